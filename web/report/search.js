// The search over names, paths and values.

import { ARRAY, SCALAR, TABLE, valueText } from "./data.js";
import { count, cut, h, replace } from "./dom.js";
import { pathLink } from "./setting.js";

const MAX_RESULTS = 60;

/** Whether every word is in the text. */
const hasAll = (text, words) => words.every((word) => text.includes(word));

/** Whether a value is what is looked for: a number by its value, other texts by a part. */
function isMatch(text, query) {
  const number = Number(query);
  if (!Number.isNaN(number)) return text !== "" && Number(text) === number;
  return query.length > 1 && text.toLowerCase().includes(query);
}

export class Search {
  constructor(data, results) {
    this.data = data;
    this.results = results;
    this.turn = 0;
  }

  /** Fills the results as they are found. A new search ends the one before. */
  async run(text) {
    const turn = ++this.turn;
    const query = text.trim().toLowerCase();
    if (query === "") return;
    const words = query.split(/\s+/);
    const settings = this.settings(words);
    const parameters = this.parameters(words);
    const found = [];
    const status = h("p", { class: "note", role: "status" });
    const values = h("ul");
    replace(
      this.results,
      this.section("Settings", settings),
      this.section("Parameters", parameters),
      h("h3", null, "Values"),
      values,
      status,
    );
    const add = (setting, path, value) => {
      found.push(path);
      if (found.length > MAX_RESULTS) return;
      values.append(
        h(
          "li",
          null,
          h(
            "a",
            { href: pathLink(setting, path) },
            h("b", null, cut(value, 80)),
            ` ${path} `,
            h("small", null, setting.title),
          ),
        ),
      );
    };
    const tell = (searched) => {
      const total = this.data.shown.length;
      const head =
        found.length > MAX_RESULTS ? `${MAX_RESULTS} of ${count(found.length, "value")}` : count(found.length, "value");
      replace(status, searched < total ? `${head}; ${searched} of ${count(total, "setting")} searched` : head);
    };
    await this.scalars(query, add, () => turn === this.turn);
    let searched = 0;
    for (const setting of this.data.shown) {
      if (turn !== this.turn) return;
      if (found.length > 5 * MAX_RESULTS) break;
      if (setting.y >= 0 && this.data.layout(setting).nodes.some((node) => node.kind >= ARRAY)) {
        this.lists(await this.data.readValues(setting), query, add);
      }
      if (++searched % 20 === 0) {
        tell(searched);
        await new Promise((next) => setTimeout(next));
      }
    }
    if (turn === this.turn) tell(this.data.shown.length);
  }

  section(title, items) {
    if (items.length === 0) return null;
    return [
      h("h3", null, title),
      h("ul", null, items.slice(0, MAX_RESULTS)),
      items.length > MAX_RESULTS && h("p", { class: "note" }, count(items.length - MAX_RESULTS, "more result")),
    ];
  }

  settings(words) {
    return this.data.shown
      .filter((setting) => hasAll(`${setting.title} ${setting.p}`.toLowerCase(), words))
      .map((setting) => h("li", null, h("a", { href: `#${setting.link}` }, setting.title)));
  }

  /** Paths without the places of elements, each once for a module. */
  parameters(words) {
    const found = new Map();
    for (const setting of this.data.shown) {
      const layout = this.data.layout(setting);
      if (!layout || layout.searched === words) continue;
      layout.searched = words;
      for (const node of layout.nodes) {
        const path = node.path.replace(/\[\d+\]/g, "");
        const key = `${setting.moduleName} ${path}`;
        if (!found.has(key) && hasAll(`${key} ${node.field.d}`.toLowerCase(), words))
          found.set(key, { setting, node, path });
      }
    }
    return [...found.values()].map(({ setting, node, path }) =>
      h(
        "li",
        null,
        h(
          "a",
          { href: pathLink(setting, node.path) },
          h("b", null, path),
          " ",
          h(
            "small",
            null,
            `${setting.moduleName}, in ${count(this.data.ofModule(setting.moduleName).length, "setting")}`,
          ),
        ),
      ),
    );
  }

  async scalars(query, add, isWanted) {
    for (const setting of this.data.shown) {
      const layout = this.data.layout(setting);
      if (!layout) continue;
      const columns = await this.data.scalars(layout);
      if (!isWanted()) return;
      for (const node of layout.nodes) {
        if (node.kind !== SCALAR) continue;
        const text = valueText(node, columns[node.column], setting.r);
        if (isMatch(text, query)) add(setting, node.path, text);
      }
    }
  }

  lists(values, query, add) {
    const number = Number(query);
    for (const node of values.layout.nodes) {
      if (node.kind !== ARRAY && node.kind !== TABLE) continue;
      const column = values.list(node);
      if (column.numbers) {
        const i = Number.isNaN(number) ? -1 : column.numbers.indexOf(column.kind === 5 ? Math.fround(number) : number);
        if (i >= 0) add(values.setting, node.path, valueText(node, column, i));
      } else {
        const text = column.texts.find((each) => isMatch(each, query));
        if (text !== undefined) add(values.setting, node.path, text);
      }
    }
  }
}
