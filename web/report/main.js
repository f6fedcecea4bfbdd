// The page: tree and search on the left, what the address names on the right.

import licence from "uplot/LICENSE";
import { redrawCharts } from "./chart.js";
import { Data } from "./data.js";
import { drawAll, h, replace } from "./dom.js";
import { redrawMaps } from "./heatmap.js";
import { showModule } from "./module.js";
import { showOverview } from "./overview.js";
import { Search } from "./search.js";
import { showSetting } from "./setting.js";
import { Tree } from "./tree.js";

const app = document.getElementById("app");

function decoded(part) {
  try {
    return decodeURIComponent(part);
  } catch {
    return part;
  }
}

class Page {
  constructor(data) {
    this.data = data;
    this.turn = 0;
    this.view = null;
    this.main = h("main", { id: "main", tabindex: "-1" });
    this.tree = new Tree(data, (setting) => {
      location.hash = setting.link;
      this.nav.classList.remove("open");
    });
    this.results = h("div", { class: "results", hidden: true });
    this.search = new Search(data, this.results);
    this.input = h("input", {
      type: "search",
      placeholder: "name, path or value",
      "aria-label": "Search names, paths and values",
      on: { input: () => this.onSearch() },
    });
    this.nav = h("nav", { "aria-label": "Settings" }, this.input, this.results, this.tree.element);
    this.results.addEventListener("click", (event) => event.target.closest("a") && this.nav.classList.remove("open"));
  }

  start() {
    const { data } = this;
    const menu = h(
      "button",
      {
        type: "button",
        class: "menu",
        "aria-expanded": "false",
        on: {
          click: () => menu.setAttribute("aria-expanded", String(this.nav.classList.toggle("open"))),
        },
      },
      "Settings",
    );
    replace(
      app,
      h(
        "header",
        null,
        menu,
        h("h1", null, h("a", { href: "#" }, data.project || "Tuning project")),
        data.against !== null && h("span", { class: "against" }, `compared with ${data.against}`),
      ),
      h("div", { class: "columns" }, this.nav, this.main),
      h(
        "footer",
        null,
        h(
          "details",
          null,
          h("summary", null, "Made by zotuning report. Charts by uPlot: its licence"),
          h("pre", null, licence),
        ),
      ),
    );
    window.addEventListener("hashchange", () => this.show());
    window.addEventListener("resize", () => this.redraw());
    window.addEventListener("beforeprint", () => {
      document.documentElement.dataset.print = "";
      drawAll();
      redrawCharts();
      redrawMaps();
    });
    window.addEventListener("afterprint", () => {
      delete document.documentElement.dataset.print;
      this.redraw();
    });
    matchMedia("(prefers-color-scheme: dark)").addEventListener("change", () => this.redraw());
    document.addEventListener("keydown", (event) => this.onKey(event));
    return this.show();
  }

  redraw() {
    cancelAnimationFrame(this.frame);
    this.frame = requestAnimationFrame(() => {
      redrawCharts();
      redrawMaps();
    });
  }

  onSearch() {
    const isSearch = this.input.value.trim() !== "";
    this.results.hidden = !isSearch;
    this.tree.element.hidden = isSearch;
    clearTimeout(this.timer);
    this.timer = setTimeout(() => this.search.run(this.input.value), 120);
  }

  /** Shows what the address names. */
  async show() {
    try {
      await this.showAddress();
    } catch (error) {
      replace(this.main, h("p", { class: "flag" }, `This cannot be shown: ${error.message}`));
      throw error;
    }
    const name = this.data.project || "Tuning project";
    document.title = this.view ? `${this.view.setting.title}: ${name}` : `${name}: tuning report`;
  }

  async showAddress() {
    const turn = ++this.turn;
    const isWanted = () => turn === this.turn;
    const parts = location.hash.slice(1).split("/").map(decoded);
    const { data } = this;
    if (parts[0] === "" && parts[1] === "modules") {
      this.view = null;
      await showModule(data, parts.slice(2).join("/"), this.main, isWanted);
      this.main.scrollIntoView();
      return;
    }
    for (let size = parts.length; size > 0; --size) {
      const link = parts.slice(0, size).map(encodeURIComponent).join("/").replaceAll("%3D", "=");
      const setting = data.byLink.get(link);
      if (!setting) continue;
      const path = parts.slice(size).join("/");
      if (this.view?.setting !== setting) {
        const view = await showSetting(data, setting, this.main, isWanted);
        if (!view) return;
        this.view = view;
        this.tree.show(setting);
        if (path === "") {
          window.scrollTo(0, 0);
          this.main.scrollTop = 0;
        }
      }
      if (path !== "") this.view.goTo(path);
      return;
    }
    this.view = null;
    showOverview(data, this.main);
    if (location.hash.length > 1)
      this.main.prepend(h("p", { class: "flag" }, `This report has nothing at ${parts.join("/")}.`));
  }

  onKey(event) {
    if (event.altKey || event.ctrlKey || event.metaKey || event.target.closest("input, select, textarea")) return;
    if (event.key === "/") {
      event.preventDefault();
      this.nav.classList.add("open");
      this.input.focus();
    } else if (event.key === "j" || event.key === "k") {
      const { shown } = this.data;
      const place = this.view ? shown.indexOf(this.view.setting) : -1;
      const next = shown[place + (event.key === "j" ? 1 : -1)];
      if (next) location.hash = next.link;
    } else if (event.key === "n") {
      const marks = [...this.main.querySelectorAll(".differs, .difference, .lost li")];
      const place = marks.indexOf(this.mark);
      this.mark = marks[(place + 1) % marks.length];
      this.mark?.scrollIntoView({ block: "center" });
    }
  }
}

Data.load()
  .then((data) => new Page(data).start())
  .then(() => {
    document.documentElement.dataset.ready = "true";
  })
  .catch((error) => {
    const text = `This page cannot be shown: ${error.message}. It needs a browser of 2023 or later.`;
    replace(app, h("p", { class: "flag" }, text));
    throw error;
  });
