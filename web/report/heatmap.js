// Tables as colour maps, with the numbers of the selected cell and the profiles through it.

import { drawCurves } from "./chart.js";
import { isOutside } from "./data.js";
import { count, h, replace, whenSeen } from "./dom.js";

const RISING = [
  [68, 1, 84],
  [59, 82, 139],
  [33, 145, 140],
  [94, 201, 98],
  [253, 231, 37],
];
const DIVERGING = [
  [33, 102, 172],
  [103, 169, 207],
  [240, 240, 240],
  [239, 138, 98],
  [178, 24, 43],
];

/** A colour of a scale, `part` from 0 to 1. */
function shade(scale, part) {
  const place = Math.min(Math.max(part, 0), 1) * (scale.length - 1);
  const low = Math.min(Math.floor(place), scale.length - 2);
  return scale[low].map((channel, k) => Math.round(channel + (scale[low + 1][k] - channel) * (place - low)));
}

const css = ([red, green, blue]) => `rgb(${red},${green},${blue})`;
const isDark = ([red, green, blue]) => red * 0.299 + green * 0.587 + blue * 0.114 < 140;

const maps = new Map();

/** Draws the maps of the page again: after a change of its width or its colours. */
export function redrawMaps() {
  for (const [canvas, draw] of maps) {
    if (!canvas.isConnected) maps.delete(canvas);
    else if (canvas.width > 0 && canvas.dataset.drawn) draw();
  }
}

/** A table, with `at(row, column)` for its place in a column of values, -1 where a row is shorter. */
export function grid(node, column) {
  const begins = [];
  let next = 0;
  for (let row = 0; row < node.rows; ++row) {
    begins.push(next);
    next += node.sizes ? node.sizes[row] : node.columns;
  }
  const at = (row, place) => (node.sizes && place >= node.sizes[row] ? -1 : begins[row] + place);
  return { rows: node.rows, columns: node.columns, column, at };
}

const short = (number) => String(Number(number.toPrecision(5)));

/** The map of a table; `other` is that of the other side, of the same shape, or null. */
export function heatmap({ node, table, other, against, textAt }) {
  const { rows, columns } = table;
  const value = (of, row, place) => {
    const i = of.at(row, place);
    return i < 0 ? Number.NaN : of.column.numbers[i];
  };
  const modes = { this: "This setting", other: "The other side", difference: "Difference" };
  let mode = "this";
  let cell = [Math.floor(rows / 2), Math.floor(columns / 2)];
  const valueNow = (row, place) => {
    if (mode === "other") return value(other, row, place);
    if (mode === "difference") return value(table, row, place) - value(other, row, place);
    return value(table, row, place);
  };

  const canvas = h("canvas", {
    class: "map",
    tabindex: "0",
    role: "img",
    "aria-label": `Map of ${node.path}, ${rows} rows and ${columns} columns. Arrow keys move the cell that is read out.`,
  });
  const readout = h("p", { class: "readout", "aria-live": "polite" });
  const low = h("span");
  const high = h("span");
  const strip = h("canvas", { class: "strip", width: "128", height: "10", "aria-hidden": "true" });
  const marked = h("span", { class: "marked" });
  const rowChart = h("div", { class: "profile" });
  const columnChart = h("div", { class: "profile" });
  const rowTitle = h("h5");
  const columnTitle = h("h5");
  const base = document.createElement("canvas");
  let width = 0;
  let height = 0;
  let scaleLow = 0;
  let scaleHigh = 1;
  let isCut = false;
  let frame = null;

  /** The ends of the scale; that of differences is even, and a few large ones do not take the colours from the rest. */
  function measure() {
    if (mode === "difference") {
      const sizes = [];
      for (let row = 0; row < rows; ++row) {
        for (let place = 0; place < columns; ++place) sizes.push(Math.abs(valueNow(row, place)));
      }
      const sorted = sizes.filter(Number.isFinite).sort((a, b) => a - b);
      const usual = sorted[Math.floor(sorted.length * 0.98)] ?? 0;
      const largest = sorted.at(-1) ?? 0;
      isCut = usual > 0 && largest > 3 * usual;
      scaleHigh = isCut ? usual : largest;
      scaleLow = -scaleHigh;
      return;
    }
    isCut = false;
    let least = Infinity;
    let most = -Infinity;
    for (let row = 0; row < rows; ++row) {
      for (let place = 0; place < columns; ++place) {
        const number = valueNow(row, place);
        // What is outside the rule is outlined, and must not take the colours from the others.
        if (!Number.isFinite(number) || isOutside(node.rule, number)) continue;
        least = Math.min(least, number);
        most = Math.max(most, number);
      }
    }
    if (least > most) least = most = 0;
    scaleLow = least;
    scaleHigh = most;
  }

  const cellColour = (number) => {
    const scale = mode === "difference" ? DIVERGING : RISING;
    const part = scaleHigh > scaleLow ? (number - scaleLow) / (scaleHigh - scaleLow) : 0.5;
    return shade(scale, part);
  };

  function draw() {
    measure();
    const room = Math.max(140, Math.min(canvas.parentElement.clientWidth, 620));
    width = Math.max(2, Math.min(64, Math.floor(room / columns)));
    if (width * columns > room) width = room / columns;
    height = Math.max(3, Math.min(28, width, 460 / rows));
    if (rows * height < 40) height = Math.min(28, 40 / rows);
    const pixels = window.devicePixelRatio || 1;
    base.width = canvas.width = Math.round(width * columns * pixels);
    base.height = canvas.height = Math.round(height * rows * pixels);
    canvas.style.width = `${width * columns}px`;
    canvas.style.height = `${height * rows}px`;
    canvas.dataset.drawn = mode;
    const to = base.getContext("2d");
    to.scale(pixels, pixels);
    to.font = "11px system-ui, sans-serif";
    to.textAlign = "center";
    to.textBaseline = "middle";
    let outside = 0;
    for (let row = 0; row < rows; ++row) {
      for (let place = 0; place < columns; ++place) {
        const number = valueNow(row, place);
        const x = place * width;
        const y = row * height;
        const fill = Number.isFinite(number) ? cellColour(number) : [128, 128, 128];
        to.fillStyle = css(fill);
        to.fillRect(x, y, width + 0.5, height + 0.5);
        if (mode === "this" && isOutside(node.rule, value(table, row, place)) && table.at(row, place) >= 0) {
          ++outside;
          to.strokeStyle = "#ff2d2d";
          to.lineWidth = 2;
          to.strokeRect(x + 1, y + 1, width - 2, height - 2);
        }
        if (width >= 34 && height >= 15 && Number.isFinite(number)) {
          to.fillStyle = isDark(fill) ? "#fff" : "#000";
          to.fillText(short(number), x + width / 2, y + height / 2);
        }
      }
    }
    markCell();
    replace(low, isCut && "≤ ", short(scaleLow));
    replace(high, isCut && "≥ ", short(scaleHigh));
    replace(marked, outside > 0 && `${count(outside, "value")} outside the rule, outlined in red`);
    const legend = strip.getContext("2d");
    for (let x = 0; x < strip.width; ++x) {
      legend.fillStyle = css(shade(mode === "difference" ? DIVERGING : RISING, x / (strip.width - 1)));
      legend.fillRect(x, 0, 1, strip.height);
    }
  }

  /** The map with the cell that is looked at. */
  function markCell() {
    const pixels = window.devicePixelRatio || 1;
    const to = canvas.getContext("2d");
    to.setTransform(1, 0, 0, 1, 0, 0);
    to.clearRect(0, 0, canvas.width, canvas.height);
    to.drawImage(base, 0, 0);
    to.scale(pixels, pixels);
    const [x, y] = [cell[1] * width, cell[0] * height];
    for (const [name, line] of [
      ["#fff", 4],
      ["#000", 2],
    ]) {
      to.strokeStyle = name;
      to.lineWidth = line;
      to.strokeRect(x, y, width, height);
    }
  }

  function tell() {
    const [row, place] = cell;
    const i = table.at(row, place);
    const parts = [`row ${row}, column ${place}: ${i < 0 ? "no value" : textAt(table.column, i)}`];
    if (other && i >= 0) {
      const difference = value(table, row, place) - value(other, row, place);
      parts.push(`${against} has ${textAt(other.column, other.at(row, place))}`);
      parts.push(difference === 0 ? "the same" : `difference ${difference > 0 ? "+" : ""}${short(difference)}`);
    }
    if (i >= 0 && isOutside(node.rule, table.column.numbers[i])) parts.push("outside the rule");
    replace(readout, parts.join(" · "));
    replace(rowTitle, `Row ${row}`);
    replace(columnTitle, `Column ${place}`);
    const lines = (length, numberAt) => {
      const x = Array.from({ length }, (_, k) => k);
      const line = { name: "this setting", x, y: x.map((k) => numberAt(table, k)), place: 0 };
      if (!other) return [line];
      return [{ name: against, x, y: x.map((k) => numberAt(other, k)), dashed: true, place: 1 }, line];
    };
    const options = { band: null, height: 130, small: true };
    drawCurves(rowChart, { ...options, lines: lines(columns, (of, k) => value(of, row, k)), xName: "column" });
    drawCurves(columnChart, { ...options, lines: lines(rows, (of, k) => value(of, k, place)), xName: "row" });
  }

  function moveTo(row, place) {
    const next = [Math.min(Math.max(row, 0), rows - 1), Math.min(Math.max(place, 0), columns - 1)];
    if (next[0] === cell[0] && next[1] === cell[1]) return;
    cell = next;
    markCell();
    // The pointer moves more often than the screen is drawn.
    if (frame !== null) return;
    frame = requestAnimationFrame(() => {
      frame = null;
      tell();
    });
  }

  canvas.addEventListener("pointermove", (event) => {
    moveTo(Math.floor(event.offsetY / height), Math.floor(event.offsetX / width));
  });
  canvas.addEventListener("pointerdown", (event) => {
    moveTo(Math.floor(event.offsetY / height), Math.floor(event.offsetX / width));
  });
  canvas.addEventListener("keydown", (event) => {
    const step = { ArrowUp: [-1, 0], ArrowDown: [1, 0], ArrowLeft: [0, -1], ArrowRight: [0, 1] }[event.key];
    if (!step) return;
    event.preventDefault();
    moveTo(cell[0] + step[0], cell[1] + step[1]);
  });

  const buttons = Object.entries(modes).map(([name, text]) =>
    h(
      "button",
      {
        type: "button",
        "aria-pressed": String(name === mode),
        on: {
          click: (event) => {
            mode = name;
            for (const button of buttons) button.setAttribute("aria-pressed", String(button === event.currentTarget));
            draw();
          },
        },
      },
      name === "other" ? against : text,
    ),
  );
  const holder = h("div", { class: "map-holder" }, canvas);
  whenSeen(holder, () => {
    maps.set(canvas, draw);
    draw();
    tell();
  });
  return h(
    "div",
    { class: "heatmap" },
    h(
      "div",
      { class: "map-side" },
      other && h("div", { class: "choices", role: "group", "aria-label": "What the map shows" }, buttons),
      holder,
      h("p", { class: "legend" }, low, strip, high, marked),
      readout,
    ),
    h("div", { class: "profiles" }, h("div", null, rowTitle, rowChart), h("div", null, columnTitle, columnChart)),
  );
}
