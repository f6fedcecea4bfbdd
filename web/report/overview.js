// The first view of the page.

import { count, cut, grouped, h, replace } from "./dom.js";

const MAX_ROWS = 300;

export function showOverview(data, main) {
  const changed = data.shown.filter((setting) => setting.count > 0);
  const outside = data.shown.filter((setting) => setting.x > 0);
  const unread = data.shown.filter((setting) => setting.y < 0);
  const modules = data.modules
    .map((module) => module.n)
    .filter((name) => data.ofModule(name).length > 0)
    .sort();
  const cell = (number, name) => h("td", { class: `number ${number > 0 ? name : "zero"}` }, grouped(number));
  replace(
    main,
    h("h2", { tabindex: "-1" }, cut(data.project || "Tuning project")),
    h(
      "p",
      null,
      `${count(data.shown.length, "setting")} of ${count(modules.length, "module")} in ${count(data.scopes.length, "scope")}.`,
      data.against !== null &&
        ` ${count(changed.length, "setting")} ${changed.length === 1 ? "differs" : "differ"} from ${data.against}`,
    ),
    unread.length > 0 &&
      h(
        "p",
        { class: "flag" },
        `${count(unread.length, "setting")} could not be read: ${cut(unread.map((setting) => setting.p).join(", "))}`,
      ),
    table(
      ["Scope", "Settings", data.against !== null && "That differ", "With values outside their rules"],
      data.scopes.map((scope) => {
        const own = data.shown.filter((setting) => setting.s === scope);
        return [
          h("th", { scope: "row" }, scope),
          cell(own.length, ""),
          data.against !== null && cell(own.filter((setting) => setting.count > 0).length, "differs"),
          cell(own.filter((setting) => setting.x > 0).length, "outside"),
        ];
      }),
    ),
    changed.length > 0 && [h("h3", null, "What differs"), list(changed, (setting) => words(setting))],
    data.versions.length > 0 && [
      h("h3", null, "Versions that differ"),
      h(
        "ul",
        null,
        data.versions.map((version) =>
          h(
            "li",
            null,
            `${version.s} ${version.n}: `,
            version.d.flatMap((difference) => difference[3]).join("; ") || version.k,
          ),
        ),
      ),
    ],
    outside.length > 0 && [
      h("h3", null, "Values outside their rule"),
      list(outside, (setting) => `${grouped(setting.x)} outside`),
    ],
    h("h3", null, "Modules"),
    h(
      "ul",
      { class: "modules" },
      modules.map((name) =>
        h(
          "li",
          null,
          h("a", { href: `#/modules/${encodeURIComponent(name)}` }, name),
          h("small", null, ` ${count(data.ofModule(name).length, "setting")}`),
        ),
      ),
    ),
    h("h3", null, "Keys"),
    h(
      "p",
      { class: "keys" },
      [
        ["/", "search"],
        ["j", "next setting"],
        ["k", "previous setting"],
        ["n", "next difference on the page"],
      ].map(([key, text]) => h("span", null, h("kbd", null, key), ` ${text} `)),
    ),
  );
}

function words(setting) {
  if (setting.k === "added") return "added";
  if (setting.k === "removed") return "removed";
  return setting.d ? count(setting.d, "difference") : "differs";
}

function table(heads, rows) {
  return h(
    "table",
    { class: "summary" },
    h(
      "thead",
      null,
      h(
        "tr",
        null,
        heads.filter(Boolean).map((text) => h("th", { scope: "col" }, text)),
      ),
    ),
    h(
      "tbody",
      null,
      rows.map((cells) => h("tr", null, cells)),
    ),
  );
}

function list(settings, text) {
  const ordered = settings.toSorted((a, b) => b.count - a.count).slice(0, MAX_ROWS);
  return [
    h(
      "ul",
      { class: "settings" },
      ordered.map((setting) =>
        h("li", null, h("a", { href: `#${setting.link}` }, setting.title), " ", h("small", null, text(setting))),
      ),
    ),
    settings.length > MAX_ROWS && h("p", { class: "note" }, count(settings.length - MAX_ROWS, "more setting")),
  ];
}
