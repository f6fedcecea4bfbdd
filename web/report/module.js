// The scalars of all settings of a module, side by side.

import { isOutside, SCALAR, valueText } from "./data.js";
import { count, cut, h, longText, replace } from "./dom.js";
import { comment, pathLink } from "./setting.js";

const MAX_CELLS = 6000;

/** Shows the table of a module in `main`. */
export async function showModule(data, name, main, isWanted) {
  const settings = data.ofModule(name);
  const rows = [];
  const nodes = new Map();
  for (const setting of settings) {
    const layout = data.layout(setting);
    const columns = await data.scalars(layout);
    const cells = new Map();
    for (const node of layout.nodes) {
      if (node.kind !== SCALAR) continue;
      if (!nodes.has(node.path)) nodes.set(node.path, node);
      const column = columns[node.column];
      cells.set(node.path, {
        text: valueText(node, column, setting.r),
        number: node.field.e ? undefined : column.numbers?.[setting.r],
        outside: isOutside(node.rule, column.numbers?.[setting.r]),
      });
    }
    rows.push({ setting, cells });
  }
  if (!isWanted()) return;
  const differing = [...nodes.keys()].filter((path) => {
    const first = rows[0].cells.get(path)?.text;
    return rows.some(({ cells }) => cells.get(path)?.text !== first);
  });
  let all = differing.length === 0;
  let order = { path: null, down: false };
  const body = h("div");

  function sorted() {
    if (order.path === null) return rows;
    const sign = order.down ? -1 : 1;
    const key = ({ cells, setting }) => (order.path === "" ? { text: setting.title } : cells.get(order.path));
    return rows.toSorted((left, right) => {
      const [a, b] = [key(left), key(right)];
      if (!a || !b) return a ? -1 : b ? 1 : 0;
      const byNumber = a.number !== undefined && b.number !== undefined ? a.number - b.number : 0;
      return sign * (byNumber || a.text.localeCompare(b.text, "en", { numeric: true }));
    });
  }

  function header(path, title) {
    const is = order.path === path;
    const turn = () => {
      order = { path, down: is && !order.down };
      render();
      [...main.querySelectorAll("th button")].find((each) => each.dataset.path === path)?.focus();
    };
    return h(
      "th",
      { scope: "col", "aria-sort": is ? (order.down ? "descending" : "ascending") : null },
      h(
        "button",
        { type: "button", "data-path": path, title: cut(nodes.get(path)?.field.d ?? ""), on: { click: turn } },
        title,
        is ? (order.down ? " ↓" : " ↑") : "",
      ),
    );
  }

  function render() {
    const paths = all ? [...nodes.keys()] : differing;
    const width = Math.max(1, Math.min(paths.length, Math.floor(MAX_CELLS / Math.max(1, Math.min(rows.length, 100)))));
    const shownPaths = paths.slice(0, width);
    const shownRows = sorted().slice(0, Math.max(1, Math.floor(MAX_CELLS / width)));
    replace(
      body,
      h(
        "div",
        { class: "scroll tall", tabindex: "0", role: "region", "aria-label": `Scalars of ${name}` },
        h(
          "table",
          { class: "matrix by-setting" },
          h(
            "thead",
            null,
            h(
              "tr",
              null,
              header("", "Setting"),
              shownPaths.map((path) => header(path, path)),
            ),
          ),
          h(
            "tbody",
            null,
            shownRows.map(({ setting, cells }) =>
              h(
                "tr",
                null,
                h(
                  "th",
                  { scope: "row" },
                  h("a", { href: `#${setting.link}` }, [setting.s, ...setting.levels].join(" / ")),
                ),
                shownPaths.map((path) => {
                  const cell = cells.get(path);
                  if (!cell) return h("td", { class: "none" }, "–");
                  return h(
                    "td",
                    { class: cell.outside ? "outside" : null },
                    cell.text.length > 60
                      ? longText(cell.text, 60)
                      : h("a", { class: "plain", href: pathLink(setting, path) }, cell.text),
                  );
                }),
              ),
            ),
          ),
        ),
      ),
      shownPaths.length < paths.length &&
        h("p", { class: "note" }, `${shownPaths.length} of ${count(paths.length, "column")} are shown`),
      shownRows.length < rows.length &&
        h("p", { class: "note" }, `${shownRows.length} of ${count(rows.length, "row")} are shown; sort to see others`),
    );
  }

  const module = data.modules.find((each) => each.n === name);
  replace(
    main,
    h("h2", { tabindex: "-1" }, cut(name)),
    comment(module?.d ?? ""),
    h(
      "p",
      null,
      `${count(rows.length, "setting")}, ${count(nodes.size, "scalar")}, ${differing.length} of which differ.`,
    ),
    differing.length > 0 &&
      differing.length < nodes.size &&
      h(
        "label",
        null,
        h("input", {
          type: "checkbox",
          on: {
            change: (event) => {
              all = event.target.checked;
              render();
            },
          },
        }),
        " Show also those that are the same everywhere",
      ),
    body,
  );
  if (rows.length > 0 && nodes.size > 0) render();
}
