// The parameters of one setting.

import { drawCurves, seriesColour } from "./chart.js";
import { ARRAY, ELEMENT, GROUP, isOutside, LIST, outsideOf, SCALAR, sizeFault, TABLE, valueText } from "./data.js";
import { count, cut, forgetUnseen, grouped, h, longText, replace, whenSeen } from "./dom.js";
import { grid, heatmap } from "./heatmap.js";

const MAX_CURVES = 8;

/** Curves that the reader lays over those of the setting, by module: indices of settings. */
const overlays = new Map();

export const pathLink = (setting, path) =>
  `#${setting.link}/${encodeURIComponent(path).replaceAll("%5B", "[").replaceAll("%5D", "]")}`;

/** What a comment says, its lines joined into paragraphs. */
export function comment(text) {
  const paragraphs = text.split(/\n\s*\n/).filter((part) => part.trim() !== "");
  return paragraphs.map((part) => h("p", { class: "comment" }, longText(part.replaceAll("\n", " ").trim())));
}

/** What a rule says, in words. */
function ruleText(rule) {
  if (!rule) return "";
  const { description, recommend, order, len, row, col, ...others } = rule.t;
  const parts = [];
  if (recommend && recommend !== "None") parts.push(recommend);
  if (len && len !== "-1") parts.push(`${len} elements`);
  if ((row && row !== "-1") || (col && col !== "-1")) parts.push(`${row ?? "?"} rows of ${col ?? "?"}`);
  if (order) parts.push({ 1: "ascending", "-1": "descending" }[order] ?? `order ${order}`);
  for (const [name, text] of Object.entries(others)) parts.push(`${name} ${text}`);
  return cut(parts.join(", "), 200);
}

/** The same, to be broken between the ends of a range. */
const ruleParts = (rule) =>
  ruleText(rule)
    .split(/(?<=\.\.)/)
    .map((part, i) => [i > 0 && h("wbr"), part]);

const kindText = (node) => cut(node.rule?.t.description || node.field.t, 60);

class SettingView {
  constructor(data, setting, main) {
    this.data = data;
    this.setting = setting;
    this.main = main;
    this.filter = "all";
    this.anchors = new Map();
  }

  async load() {
    this.values = await this.data.values(this.setting);
    const other = this.setting.o === undefined ? null : this.data.settings[this.setting.o];
    this.other = other && other.y >= 0 ? await this.data.values(other) : null;
    await this.loadOverlays();
  }

  async loadOverlays() {
    const chosen = overlays.get(this.setting.moduleName) ?? [];
    const settings = chosen.filter((i) => i !== this.setting.index).map((i) => this.data.settings[i]);
    this.overlays = await Promise.all(settings.map((setting) => this.data.values(setting)));
  }

  /** Every node that a filter keeps: those at fault, and what they are in. */
  kept(node) {
    if (this.filter === "all") return true;
    if (node.children.some((child) => this.kept(child))) return true;
    if (this.filter === "differences") return node.kind >= SCALAR && this.values.differencesAt(node).length > 0;
    return this.outside(node) > 0;
  }

  outside(node) {
    if (node.kind === SCALAR) return isOutside(node.rule, this.values.number(node)) ? 1 : 0;
    const fault = sizeFault(node) === "" ? 0 : 1;
    return node.kind >= ARRAY ? fault + outsideOf(node.rule, this.values.list(node)).length : fault;
  }

  render() {
    const { setting, data } = this;
    const module = data.modules[setting.m];
    this.anchors.clear();
    const body = h("div", { class: "parameters" }, this.contents(this.values.layout.root, 3));
    const removed = setting.k === "removed";
    replace(
      this.main,
      h("p", { class: "crumbs" }, [setting.s, ...setting.levels].join(" / ")),
      h("h2", { tabindex: "-1" }, setting.moduleName),
      h(
        "p",
        { class: "file" },
        h("code", null, cut(setting.p)),
        removed && ` only in ${data.against}`,
        setting.k === "added" && ` not in ${data.against}`,
      ),
      comment(module.d),
      this.differenceNotes(),
      this.bar(),
      body.childNodes.length > 0 ? body : h("p", { class: "empty" }, "No parameter is left by this choice."),
    );
    forgetUnseen();
  }

  bar() {
    const { setting } = this;
    const button = (name, text) =>
      h(
        "button",
        {
          type: "button",
          "aria-pressed": String(this.filter === name),
          on: {
            click: () => {
              this.filter = name;
              this.render();
              this.main.querySelector(`.choices [aria-pressed="true"]`)?.focus();
            },
          },
        },
        text,
      );
    return h(
      "div",
      { class: "bar" },
      h(
        "div",
        { class: "choices", role: "group", "aria-label": "Parameters that are shown" },
        (setting.d > 0 || setting.x > 0) && button("all", "All"),
        setting.d > 0 && button("differences", count(setting.d, "difference")),
        setting.x > 0 && button("outside", `${grouped(setting.x)} outside the rule`),
      ),
      h("a", { href: `#/modules/${encodeURIComponent(setting.moduleName)}` }, "All settings side by side"),
      this.overlayPicker(),
    );
  }

  /** Settings of the same module, whose curves can be laid over these. */
  overlayPicker() {
    const { setting, data } = this;
    const others = data.ofModule(setting.moduleName).filter((each) => each !== setting);
    if (others.length === 0 || !this.values.layout.nodes.some((node) => node.kind === ARRAY)) return null;
    const chosen = new Set((overlays.get(setting.moduleName) ?? []).filter((i) => i !== setting.index));
    const list = h("ul", { class: "overlay-list" });
    const summary = h("summary", null, "Curves of other settings");
    const note = h("p", { class: "note" });
    const tell = () => replace(note, `${chosen.size} of at most ${MAX_CURVES - 2} chosen`);
    const fill = (wanted) => {
      const found = others.filter((each) => each.title.toLowerCase().includes(wanted.toLowerCase()));
      replace(
        list,
        found.slice(0, 100).map((each) =>
          h(
            "li",
            null,
            h(
              "label",
              null,
              h("input", {
                type: "checkbox",
                checked: chosen.has(each.index),
                on: {
                  change: async (event) => {
                    if (!event.target.checked) chosen.delete(each.index);
                    else if (chosen.size < MAX_CURVES - 2) chosen.add(each.index);
                    else event.target.checked = false;
                    tell();
                    overlays.set(setting.moduleName, [...chosen]);
                    await this.loadOverlays();
                    for (const draw of this.curves) draw();
                  },
                },
              }),
              ` ${[each.s, ...each.levels].join(" / ")}`,
            ),
          ),
        ),
        found.length > 100 &&
          h("li", { class: "note" }, `${count(found.length - 100, "more setting")}: narrow the search`),
      );
    };
    fill("");
    tell();
    const search = h("input", {
      type: "search",
      placeholder: "part of a name",
      "aria-label": "Settings by a part of their name",
      on: { input: (event) => fill(event.target.value) },
    });
    return h("details", { class: "overlays" }, summary, search, note, list);
  }

  /** Differences of what has no place of its own on the page: parts that only the other side has. */
  differenceNotes() {
    const { values } = this;
    const lost = values.differences.filter(
      ({ path }) =>
        values.layout.byPath.get(path)?.kind !== LIST &&
        !values.layout.nodes.some(
          (node) =>
            node.kind >= SCALAR &&
            (path === node.path || path.startsWith(`${node.path}.`) || path.startsWith(`${node.path}[`)),
        ),
    );
    if (lost.length === 0) return null;
    return h(
      "ul",
      { class: "lost" },
      lost.slice(0, 50).map((difference) =>
        h(
          "li",
          null,
          difference.lines.map((line) => h("div", null, line)),
        ),
      ),
      lost.length > 50 && h("li", null, count(lost.length - 50, "more difference")),
    );
  }

  // ---- The parameters, in the order of the schema; consecutive scalars are a table.

  contents(parent, level) {
    const parts = [];
    let run = [];
    const end = () => {
      if (run.length > 0) parts.push(this.scalarTable(run));
      run = [];
    };
    if (level === 3) this.curves = [];
    for (const node of parent.children) {
      if (!this.kept(node)) continue;
      if (node.kind === SCALAR) {
        run.push(node);
        continue;
      }
      end();
      parts.push(this.part(node, level));
    }
    end();
    return parts;
  }

  part(node, level) {
    const tag = `h${Math.min(level, 6)}`;
    if (node.kind === GROUP || node.kind === ELEMENT) {
      return h(
        "section",
        { class: "group" },
        this.heading(node, tag),
        node.kind === GROUP && comment(node.field.d),
        this.contents(node, level + 1),
      );
    }
    if (node.kind === LIST) return this.listOfStructures(node, level, tag);
    return this.card(node, tag);
  }

  heading(node, tag, ...more) {
    const element = h(tag, null, this.anchor(node, node.kind === ELEMENT ? node.path : node.name), ...more);
    this.anchors.set(node.path, element);
    return element;
  }

  anchor(node, text) {
    return h("a", { class: "anchor", href: pathLink(this.setting, node.path), title: node.path }, text);
  }

  /** The value of a scalar, and that of the other side where it is another. */
  scalarValue(node) {
    const text = this.values.text(node);
    const differs = this.values.differencesAt(node).length > 0;
    const otherNode = differs ? this.other?.layout.byPath.get(this.values.otherPath(node)) : null;
    const was = otherNode?.kind === SCALAR ? this.other.text(otherNode) : null;
    const outside = isOutside(node.rule, this.values.number(node));
    return h(
      "span",
      { class: `value${differs ? " differs" : ""}` },
      was !== null && [h("del", { title: this.data.against }, longText(was)), " "],
      differs ? h("ins", null, longText(text)) : longText(text),
      outside && [" ", h("span", { class: "badge outside" }, "outside the rule")],
    );
  }

  scalarTable(nodes) {
    const rows = nodes.map((node) => {
      const row = h(
        "tr",
        null,
        h("th", { scope: "row" }, this.anchor(node, node.name)),
        h("td", null, this.scalarValue(node)),
        h("td", { class: "rule" }, ruleParts(node.rule)),
        h("td", { class: "help" }, longText(node.field.d.replaceAll("\n", " "), 240)),
      );
      this.anchors.set(node.path, row);
      return row;
    });
    return h(
      "table",
      { class: "scalars" },
      h(
        "thead",
        null,
        h(
          "tr",
          null,
          ["Name", "Value", "Recommended", "Meaning"].map((text) => h("th", { scope: "col" }, text)),
        ),
      ),
      h("tbody", null, rows),
    );
  }

  /** Structures below one another: their scalars as one table, with the rest after it. */
  listOfStructures(node, level, tag) {
    const fault = sizeFault(node);
    const scalarsOf = (element) => {
      const found = [];
      const look = (below) => {
        for (const child of below.children) {
          if (child.kind === SCALAR) found.push(child);
          if (child.kind === GROUP) look(child);
        }
      };
      look(element);
      return found;
    };
    const elements = node.children.filter((element) => this.kept(element));
    const relative = (child, element) => child.path.slice(element.path.length + 1);
    const names = new Map();
    for (const element of elements) {
      for (const child of scalarsOf(element)) {
        const name = relative(child, element);
        if (!names.has(name)) names.set(name, child);
      }
    }
    const rest = elements.map((element) => {
      const parts = [];
      const look = (below) => {
        for (const child of below.children) {
          if (child.kind === GROUP) look(child);
          else if (child.kind !== SCALAR && this.kept(child)) parts.push(this.part(child, level + 2));
        }
      };
      look(element);
      if (parts.length === 0) return null;
      return h("section", { class: "group" }, h(`h${Math.min(level + 1, 6)}`, null, element.path), parts);
    });
    const rows = elements.map((element) => {
      const own = new Map(scalarsOf(element).map((child) => [relative(child, element), child]));
      const row = h(
        "tr",
        null,
        h("th", { scope: "row" }, this.anchor(element, element.name)),
        [...names.keys()].map((name) => {
          const child = own.get(name);
          const cell = h("td", null, child && this.scalarValue(child));
          if (child) this.anchors.set(child.path, cell);
          return cell;
        }),
      );
      this.anchors.set(element.path, row);
      return row;
    });
    const lines = this.values.differences.filter(({ path, kind }) => path === node.path && kind === "l");
    return h(
      "section",
      { class: "group" },
      this.heading(node, tag, h("small", null, ` ${count(node.length, "element")}`)),
      comment(node.field.d),
      ruleText(node.rule) !== "" && h("p", { class: "rule" }, `Recommended: ${ruleText(node.rule)}`),
      fault !== "" && h("p", { class: "flag" }, fault),
      lines.map(({ lines: texts }) => texts.map((line) => h("p", { class: "difference" }, line))),
      names.size > 0 &&
        h(
          "div",
          { class: "scroll", tabindex: "0", role: "region", "aria-label": node.path },
          h(
            "table",
            { class: "matrix" },
            h(
              "thead",
              null,
              h(
                "tr",
                null,
                h("th", { scope: "col" }, "Element"),
                [...names].map(([name, child]) =>
                  h("th", { scope: "col", title: cut(child.field.d) }, name, h("small", null, ruleText(child.rule))),
                ),
              ),
            ),
            h("tbody", null, rows),
          ),
        ),
      rest,
    );
  }

  // ---- Lists and tables of numbers.

  card(node, tag) {
    const column = this.values.list(node);
    const differences = this.values.differencesAt(node);
    const outside = outsideOf(node.rule, column).length;
    const fault = sizeFault(node);
    const size = node.kind === TABLE ? `${node.rows} × ${node.columns}` : count(node.length, "element");
    const lines = differences.flatMap((difference) => difference.lines);
    return h(
      "section",
      { class: "card" },
      this.heading(node, tag, h("small", null, ` ${kindText(node)} ${size}`)),
      comment(node.field.d),
      ruleText(node.rule) !== "" && h("p", { class: "rule" }, `Recommended: ${ruleText(node.rule)}`),
      (outside > 0 || fault !== "") &&
        h(
          "p",
          { class: "flag" },
          [outside > 0 && `${count(outside, "value")} outside the rule`, fault].filter(Boolean).join("; "),
        ),
      lines.slice(0, 12).map((line) => h("p", { class: "difference" }, line)),
      lines.length > 12 && h("p", { class: "difference" }, count(lines.length - 12, "more line")),
      node.kind === TABLE && column.numbers && column.length > 0 && this.map(node, column),
      node.kind === ARRAY && column.numbers && column.length > 2 && this.curve(node),
      column.length > 0 && this.numbers(node, column),
    );
  }

  /** The list at the same place of the other side, where that differs. */
  otherList(node) {
    if (!this.other || this.values.differencesAt(node).length === 0) return null;
    const found = this.other.layout.byPath.get(this.values.otherPath(node));
    return found?.kind >= ARRAY ? { node: found, column: this.other.list(found) } : null;
  }

  map(node, column) {
    const other = this.otherList(node);
    const same =
      other?.node.kind === TABLE &&
      other.node.rows === node.rows &&
      other.node.columns === node.columns &&
      !other.node.sizes &&
      !node.sizes &&
      other.column.numbers;
    return heatmap({
      node,
      table: grid(node, column),
      other: same ? grid(other.node, other.column) : null,
      against: this.data.against,
      textAt: (of, i) => valueText(node, of, i),
    });
  }

  curve(node) {
    const axes = this.values.layout.nodes.filter(
      (each) => each.kind === ARRAY && each !== node && each.length === node.length && this.values.list(each).numbers,
    );
    const holder = h("div", { class: "curve" });
    let axis = "";
    const linesOf = (values, found, name, extra) => {
      const column = values.list(found);
      const along = axis === "" ? null : values.layout.byPath.get(axis);
      const fits = along?.kind === ARRAY && along.length === found.length;
      const x = fits ? Array.from(values.list(along).numbers) : Array.from(column.numbers.keys());
      return { name, x, y: Array.from(column.numbers), ...extra };
    };
    const draw = () => {
      const lines = [];
      const other = this.otherList(node);
      if (other?.column.numbers && other.column.length > 0) {
        lines.push(linesOf(this.other, other.node, this.data.against, { dashed: true, place: 1 }));
      }
      const name = this.setting.k === "removed" ? this.data.against : "this setting";
      lines.push(linesOf(this.values, node, name, { place: 0 }));
      this.overlays.forEach((values, i) => {
        const found = values.layout.byPath.get(node.path);
        if (found?.kind !== ARRAY || !values.list(found).numbers || found.length === 0) return;
        const label = cut([values.setting.s, ...values.setting.levels].join(" / "), 80);
        lines.push(linesOf(values, found, label, { place: i + 2 }));
      });
      const band = node.rule?.lo === undefined ? null : node.rule;
      drawCurves(holder, { lines, xName: axis === "" ? "index" : axis, band });
    };
    draw();
    this.curves.push(draw);
    const select = h(
      "select",
      {
        on: {
          change: (event) => {
            axis = event.target.value;
            draw();
          },
        },
      },
      h("option", { value: "" }, "index"),
      axes.map((each) => h("option", { value: each.path }, each.path)),
    );
    return [axes.length > 0 && h("label", { class: "axis" }, "x axis: ", select), holder];
  }

  numbers(node, column) {
    const outside = new Set(outsideOf(node.rule, column));
    const other = this.otherList(node);
    const open = column.length <= 16 && node.kind === ARRAY;
    const cellOf = (i) => {
      const text = valueText(node, column, i);
      const differs = other && other.column.length === column.length && other.column.text(i) !== column.text(i);
      const names = [outside.has(i) && "outside", differs && "differs"].filter(Boolean).join(" ");
      return h(
        "td",
        { class: names || null, title: differs ? `${this.data.against}: ${cut(other.column.text(i), 80)}` : null },
        longText(text, 80),
      );
    };
    const fill = () => {
      const { rows, columns, at } =
        node.kind === TABLE
          ? grid(node, column)
          : {
              rows: Math.ceil(column.length / 16),
              columns: Math.min(column.length, 16),
              at: (row, place) => (row * 16 + place < column.length ? row * 16 + place : -1),
            };
      const oneRow = node.kind === ARRAY && rows === 1;
      const first = (row) => (node.kind === TABLE ? row : row * 16);
      const shown = Math.min(rows, Math.max(1, Math.floor(20000 / columns)));
      return [
        h(
          "table",
          { class: "numbers" },
          h(
            "thead",
            null,
            h(
              "tr",
              null,
              !oneRow && h("th", { scope: "col" }, node.kind === TABLE ? "row" : "from"),
              Array.from({ length: columns }, (_, place) => h("th", { scope: "col" }, String(place))),
            ),
          ),
          h(
            "tbody",
            null,
            Array.from({ length: shown }, (_, row) =>
              h(
                "tr",
                null,
                !oneRow && h("th", { scope: "row" }, String(first(row))),
                Array.from({ length: columns }, (_, place) => (at(row, place) < 0 ? h("td") : cellOf(at(row, place)))),
              ),
            ),
          ),
        ),
        shown < rows && h("p", { class: "note" }, count(rows - shown, "more row")),
      ];
    };
    const region = h("div", {
      class: "scroll",
      tabindex: "0",
      role: "region",
      "aria-label": `Numbers of ${node.path}`,
    });
    if (open) {
      whenSeen(region, () => replace(region, fill()));
      return region;
    }
    return h(
      "details",
      {
        class: "all-numbers",
        on: { toggle: (event) => event.target.open && region.childNodes.length === 0 && replace(region, fill()) },
      },
      h("summary", null, `Numbers (${grouped(column.length)})`),
      region,
    );
  }

  /** Brings a parameter into sight. */
  goTo(path) {
    for (let at = path; at !== ""; at = at.replace(/(\.[^.[\]]*|\[\d+\]|^[^.[]+)$/, "")) {
      const element = this.anchors.get(at);
      if (!element) {
        if (!/[.[]/.test(at)) break;
        continue;
      }
      for (const old of this.main.querySelectorAll(".target")) old.classList.remove("target");
      element.classList.add("target");
      element.scrollIntoView({ block: "center" });
      element.querySelector("a")?.focus({ preventScroll: true });
      return true;
    }
    return false;
  }
}

/** Shows a setting in `main`; null when another was asked for meanwhile. */
export async function showSetting(data, setting, main, isWanted) {
  const view = new SettingView(data, setting, main);
  if (setting.y < 0) {
    replace(main, h("h2", { tabindex: "-1" }, setting.title), h("p", null, `${setting.p} could not be read.`));
    return view;
  }
  await view.load();
  if (!isWanted()) return null;
  view.render();
  return view;
}

export { seriesColour };
