// All elements are created here, and texts become text nodes: nothing from a file is ever read as markup.

/** Characters that steer or hide: controls but line feed and tab, and those that format text, such as its direction. */
const HIDDEN = /(?![\n\t])[\p{Cc}\p{Cf}\u2028\u2029]/gu;

/** The text with its hidden characters shown as \u{NNNN}. */
export const printable = (text) =>
  String(text).replace(HIDDEN, (c) => `\\u{${c.codePointAt(0).toString(16).padStart(4, "0")}}`);

/** The text, cut when it is longer than `max` characters. */
export const cut = (text, max = 300) => (text.length > max ? `${text.slice(0, max)}…` : text);

/**
 * Makes an element. Of `properties`, `on` holds listeners by event, `class` and others are attributes, and false or null
 * leaves one out. Children are elements or texts; null and false are passed over.
 */
export function h(tag, properties, ...children) {
  const element = document.createElement(tag);
  for (const [name, value] of Object.entries(properties ?? {})) {
    if (value === false || value === null || value === undefined) continue;
    if (name === "on") {
      for (const [event, listener] of Object.entries(value)) element.addEventListener(event, listener);
    } else {
      element.setAttribute(name, value === true ? "" : printable(value));
    }
  }
  append(element, children);
  return element;
}

export function append(element, children) {
  for (const child of children.flat(Infinity)) {
    if (child === null || child === undefined || child === false) continue;
    element.append(child instanceof Node ? child : printable(child));
  }
}

export function replace(element, ...children) {
  element.replaceChildren();
  append(element, children);
}

/** A text that may be very long: its head, and a button that shows the rest. */
export function longText(text, max = 300) {
  if (text.length <= max) return document.createTextNode(printable(text));
  const part = h("span", null, `${text.slice(0, max)}… `);
  const more = h(
    "button",
    { type: "button", class: "more", on: { click: () => replace(part, text) } },
    `all ${count(text.length, "character")}`,
  );
  part.append(more);
  return part;
}

/** "1,024" */
export const grouped = (number) => String(number).replace(/\B(?=(\d{3})+$)/g, ",");

/** "1 setting", "3 settings" */
export const count = (number, noun) => `${grouped(number)} ${noun}${number === 1 ? "" : "s"}`;

const pending = new Map();
const observer = new IntersectionObserver(
  (entries) => {
    for (const entry of entries) if (entry.isIntersecting) drawNow(entry.target);
  },
  { rootMargin: "200px" },
);

function drawNow(element) {
  const draw = pending.get(element);
  pending.delete(element);
  observer.unobserve(element);
  draw?.();
}

/** Calls `draw` when the element comes near the screen. */
export function whenSeen(element, draw) {
  pending.set(element, draw);
  observer.observe(element);
}

/** Draws what is still to be drawn, for a printer. */
export function drawAll() {
  forgetUnseen();
  // What is drawn may contain more to be drawn.
  while (pending.size > 0) for (const element of [...pending.keys()]) drawNow(element);
}

/** Forgets what has left the page. */
export function forgetUnseen() {
  for (const element of [...pending.keys()]) {
    if (element.isConnected) continue;
    observer.unobserve(element);
    pending.delete(element);
  }
}

/** A colour of the style sheet. */
export const colour = (name) => getComputedStyle(document.documentElement).getPropertyValue(name).trim();
