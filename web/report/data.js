// The data of the page: block 0 at once, the values of a setting on demand.

import { bytesOf, ColumnReader, columnBeside } from "./columns.js";

export const GROUP = 0;
export const LIST = 1;
export const ELEMENT = 2;
export const SCALAR = 3;
export const ARRAY = 4;
export const TABLE = 5;

const parsed = new Promise((done) => {
  if (document.readyState !== "loading") done();
  else document.addEventListener("DOMContentLoaded", () => done());
});

async function block(index) {
  let element = document.getElementById(`d${index}`);
  if (!element) {
    await parsed;
    element = document.getElementById(`d${index}`);
  }
  const stream = new Blob([bytesOf(element.textContent)]).stream().pipeThrough(new DecompressionStream("deflate"));
  return new Uint8Array(await new Response(stream).arrayBuffer());
}

/** The last segment of a path: "macro_code" of "lens.macro_code", "[2]" of "zones[2]". */
const lastName = (path) => path.slice(Math.max(path.lastIndexOf("."), path.lastIndexOf("[") - 1) + 1);

const isBelow = (path, above) => path.startsWith(above) && ".[".includes(path[above.length]);

/** What settings of one shape have in common: their nodes, as a list and as a tree. */
class Layout {
  constructor(json, data) {
    this.block = json.b;
    this.module = json.m;
    this.byPath = new Map();
    this.root = { kind: GROUP, path: "", children: [] };
    let scalars = 0;
    let lists = 0;
    const open = [this.root];
    this.nodes = json.n.map(([kind, path, field, rule, a, b, sizes]) => {
      const node = { kind, path, name: lastName(path), field: data.fields[field], children: [] };
      node.rule = rule < 0 ? null : data.rules[rule];
      if (kind === SCALAR) node.column = scalars++;
      if (kind === ARRAY || kind === TABLE) node.column = lists++;
      if (kind === LIST || kind === ARRAY) node.length = a;
      if (kind === TABLE) Object.assign(node, { rows: a, columns: b, sizes: sizes ?? null });
      while (open.length > 1 && !isBelow(path, open.at(-1).path)) open.pop();
      open.at(-1).children.push(node);
      if (kind <= ELEMENT) open.push(node);
      this.byPath.set(path, node);
      return node;
    });
  }
}

export class Data {
  static async load() {
    return new Data(JSON.parse(new TextDecoder().decode(await block(0))));
  }

  constructor(json) {
    Object.assign(this, json);
    this.against = this.against?.replace(/:$/, "") ?? null; // a whole revision
    this.layoutCache = new Map();
    this.valueCache = new Map();
    this.byLink = new Map();
    this.settings.forEach((setting, i) => {
      setting.index = i;
      setting.moduleName = this.modules[setting.m].n;
      setting.levels = setting.l.map(([name, value]) => `${name}=${value}`);
      setting.link = [setting.s, ...setting.levels, setting.moduleName].map(encodeURIComponent).join("/");
      setting.link = setting.link.replaceAll("%3D", "=");
      setting.title = [setting.s, ...setting.levels, setting.moduleName].join(" / ");
      setting.count =
        setting.d ?? (setting.k === "added" || setting.k === "removed" || setting.k === "changed" ? 1 : 0);
      if (setting.k === "other") return;
      // Two files may have the same labels.
      while (this.byLink.has(setting.link)) setting.link += "~";
      this.byLink.set(setting.link, setting);
    });
    /** Those that are of the page itself, not of what it is compared with. */
    this.shown = this.settings.filter((setting) => setting.k !== "other");
  }

  layout(setting) {
    if (setting.y < 0) return null;
    if (!this.layoutCache.has(setting.y)) {
      this.layoutCache.set(setting.y, new Layout(this.layouts[setting.y], this));
    }
    return this.layoutCache.get(setting.y);
  }

  /** The scalars of all settings of a layout, a column for each. */
  scalars(layout) {
    layout.scalars ??= block(layout.block).then((bytes) => {
      const reader = new ColumnReader(bytes);
      return layout.nodes.filter((node) => node.kind === SCALAR).map(() => reader.column());
    });
    return layout.scalars;
  }

  /** The values of one setting. */
  async values(setting) {
    if (!this.valueCache.has(setting.index)) {
      this.valueCache.set(setting.index, this.readValues(setting));
      if (this.valueCache.size > 40) this.valueCache.delete(this.valueCache.keys().next().value);
    }
    return this.valueCache.get(setting.index);
  }

  async readValues(setting) {
    const layout = this.layout(setting);
    const [scalars, bytes] = await Promise.all([this.scalars(layout), block(setting.b)]);
    const reader = new ColumnReader(bytes);
    const size = reader.uint32();
    const differences = size === 0 ? [] : JSON.parse(new TextDecoder().decode(reader.take(size)));
    const own = layout.nodes.filter((node) => node.kind >= ARRAY).map(() => reader.column());
    const shared = own.some((list) => list.place !== undefined) ? await this.values(this.settings[setting.w]) : null;
    const lists = own.map((list) => {
      if (list.place === undefined) return list;
      const there = shared.lists[list.place];
      return list.above ? columnBeside(there, list) : there;
    });
    return new Values(setting, layout, scalars, lists, differences);
  }

  /** Every setting of a module that the page shows. */
  ofModule(name) {
    return this.shown.filter((setting) => setting.moduleName === name && setting.y >= 0);
  }
}

/** The values of one setting, by node. */
class Values {
  constructor(setting, layout, scalars, lists, differences) {
    this.setting = setting;
    this.layout = layout;
    this.scalars = scalars;
    this.lists = lists;
    this.differences = differences.map(([path, leftPath, kind, lines]) => ({
      path,
      leftPath: leftPath || path,
      kind,
      lines,
    }));
  }

  list(node) {
    return this.lists[node.column];
  }

  text(node) {
    return valueText(node, this.scalars[node.column], this.setting.r);
  }

  number(node) {
    return this.scalars[node.column].numbers?.[this.setting.r];
  }

  /** What differs at a node or below it. */
  differencesAt(node) {
    return this.differences.filter(({ path }) => path === node.path || isBelow(path, node.path));
  }

  /** The path that a node has on the other side, where elements before it were inserted or removed. */
  otherPath(node) {
    for (const { path, leftPath } of this.differencesAt(node)) {
      if (path !== leftPath && leftPath.endsWith(path.slice(node.path.length))) {
        return leftPath.slice(0, leftPath.length - (path.length - node.path.length));
      }
    }
    return node.path;
  }
}

/** A value of a column for people: names of enums, true and false. */
export function valueText(node, column, i) {
  const text = column.text(i);
  if (node.field.e) return node.field.e[text] ?? text;
  if (isBool(node)) return text === "0" ? "false" : "true";
  return text;
}

export const isBool = (node) => /^bool/i.test(node.field.t);

/** Whether a number is outside the range that its rule recommends. */
export const isOutside = (rule, number) =>
  rule?.lo !== undefined && number !== undefined && !(number >= rule.lo && number <= rule.hi);

/** The places of a list that are outside its rule. */
export function outsideOf(rule, column) {
  const places = [];
  if (rule?.lo === undefined || !column.numbers) return places;
  column.numbers.forEach((number, i) => {
    if (isOutside(rule, number)) places.push(i);
  });
  return places;
}

/** Where the size of a list or table is not what its rule says, in words; "" where it is. */
export function sizeFault(node) {
  const { rule } = node;
  if (!rule) return "";
  const faults = [];
  const look = (wanted, found, noun) => {
    if (wanted !== undefined && wanted !== found) faults.push(`${found} ${noun}, the rule says ${wanted}`);
  };
  if (node.kind === LIST || node.kind === ARRAY) look(rule.len, node.length, "elements");
  if (node.kind === LIST && isOutside(rule, node.length)) faults.push(`${node.length} elements, outside the rule`);
  if (node.kind === TABLE) {
    look(rule.row, node.rows, "rows");
    look(rule.col, node.columns, "columns");
    if (node.sizes) faults.push("rows of different lengths");
  }
  if (node.kind === ARRAY && node.length > 0 && (rule.row ?? rule.col) !== undefined) {
    faults.push(`${node.length} values, which make no ${rule.row ?? "?"} rows of ${rule.col ?? "?"}`);
  }
  return faults.join("; ");
}
