// The tree of scopes, levels and modules.

import { grouped, h, replace } from "./dom.js";

function makeNodes(data) {
  const root = { name: "", children: new Map(), settings: 0, differences: 0, outside: 0 };
  for (const scope of data.scopes) child(root, scope);
  for (const setting of data.shown) {
    let node = root;
    for (const name of [setting.s, ...setting.levels]) node = child(node, name);
    const leaf = child(node, setting.moduleName, `${setting.moduleName}\n${setting.index}`);
    leaf.setting = setting;
    for (let at = leaf; at; at = at.parent) {
      ++at.settings;
      at.differences += setting.count;
      at.outside += setting.x ?? 0;
    }
  }
  return root;
}

function child(parent, name, key = name) {
  if (!parent.children.has(key)) {
    parent.children.set(key, { name, parent, children: new Map(), settings: 0, differences: 0, outside: 0 });
  }
  return parent.children.get(key);
}

export class Tree {
  constructor(data, go) {
    this.data = data;
    this.go = go;
    this.root = makeNodes(data);
    this.element = h("ul", { role: "tree", "aria-label": "Settings", class: "tree" });
    this.element.addEventListener("keydown", (event) => this.onKey(event));
    this.element.addEventListener("click", (event) => {
      const item = event.target.closest("[role=treeitem]");
      if (item) this.choose(item);
    });
    replace(
      this.element,
      [...this.root.children.values()].map((node) => this.item(node)),
    );
    this.element.querySelector("[role=treeitem]")?.setAttribute("tabindex", "0");
    this.bySetting = new Map();
    const look = (node) => {
      if (node.setting) this.bySetting.set(node.setting, node);
      for (const each of node.children.values()) look(each);
    };
    look(this.root);
  }

  item(node) {
    const badge = (number, name, title) =>
      number > 0 &&
      h("span", { class: `badge ${name}`, title }, grouped(number), h("span", { class: "unseen" }, ` ${title}`));
    const mark = { added: "+", removed: "−" }[node.setting?.k];
    const item = h(
      "li",
      { role: "treeitem", tabindex: "-1", "aria-expanded": node.setting ? null : "false" },
      h(
        "div",
        { class: `line ${node.setting ? "leaf" : "branch"}` },
        h("span", { class: "name" }, mark && `${mark} `, node.name),
        badge(node.differences, "differs", "differences"),
        badge(node.outside, "outside", "outside their rules"),
      ),
    );
    item.node = node;
    node.item = item;
    return item;
  }

  expand(item, open) {
    const { node } = item;
    if (node.setting) return;
    if (open && !item.querySelector("ul")) {
      item.append(
        h(
          "ul",
          { role: "group" },
          [...node.children.values()].map((each) => this.item(each)),
        ),
      );
    }
    item.setAttribute("aria-expanded", String(open));
  }

  choose(item) {
    this.focus(item, false);
    if (item.node.setting) this.go(item.node.setting);
    else this.expand(item, item.getAttribute("aria-expanded") !== "true");
  }

  focus(item, now = true) {
    this.element.querySelector("[tabindex='0']")?.setAttribute("tabindex", "-1");
    item.setAttribute("tabindex", "0");
    if (now) item.focus();
  }

  /** Opens the way to a setting and marks it. */
  show(setting) {
    this.element.querySelector("[aria-current]")?.removeAttribute("aria-current");
    const node = this.bySetting.get(setting);
    if (!node) return;
    const way = [];
    for (let at = node.parent; at.parent; at = at.parent) way.unshift(at);
    for (const at of way) this.expand(at.item, true);
    node.item.setAttribute("aria-current", "true");
    this.focus(node.item, false);
    node.item.firstElementChild.scrollIntoView({ block: "nearest" });
  }

  onKey(event) {
    const item = event.target.closest("[role=treeitem]");
    if (!item || event.altKey || event.ctrlKey || event.metaKey) return;
    const visible = [...this.element.querySelectorAll("[role=treeitem]")].filter(
      (each) => !each.parentElement.closest("[aria-expanded=false]"),
    );
    const place = visible.indexOf(item);
    const isOpen = item.getAttribute("aria-expanded") === "true";
    const keys = {
      ArrowDown: () => visible[place + 1] && this.focus(visible[place + 1]),
      ArrowUp: () => visible[place - 1] && this.focus(visible[place - 1]),
      Home: () => this.focus(visible[0]),
      End: () => this.focus(visible.at(-1)),
      Enter: () => this.choose(item),
      " ": () => this.choose(item),
      ArrowRight: () => (isOpen ? visible[place + 1] && this.focus(visible[place + 1]) : this.expand(item, true)),
      ArrowLeft: () => {
        if (isOpen) this.expand(item, false);
        else if (item.node.parent?.item) this.focus(item.node.parent.item);
      },
    };
    if (!keys[event.key]) return;
    event.preventDefault();
    keys[event.key]();
  }
}
