// The page of 'zotuning report' in a browser.

import assert from "node:assert/strict";
import { mkdtempSync, readFileSync, rmSync, statSync } from "node:fs";
import { tmpdir } from "node:os";
import { after, before, test } from "node:test";
import { measurePage } from "./measure.mjs";
import { changedPage, hostile, hostilePage, largePage, openBrowser, require } from "./pages.mjs";

let dir;
let browser;
let changed;

before(async () => {
  dir = mkdtempSync(`${tmpdir()}/zotuning-report-`);
  changed = changedPage(dir);
  browser = await openBrowser();
});

after(async () => {
  await browser?.close();
  rmSync(dir, { recursive: true, force: true });
});

/** Opens a page, and fails at whatever it asks for or its policy refuses. */
async function open(file, hash = "", { width = 1280, height = 900, dark = false } = {}) {
  const page = await browser.newPage({ viewport: { width, height }, colorScheme: dark ? "dark" : "light" });
  const faults = [];
  page.on("request", (request) => {
    if (request.url().split("#")[0] !== `file://${file}`) faults.push(`request ${request.url()}`);
  });
  page.on("console", (message) => message.type() === "error" && faults.push(`console ${message.text()}`));
  page.on("pageerror", (error) => faults.push(`error ${error.stack}`));
  await page.addInitScript(() => {
    window.refused = [];
    document.addEventListener("securitypolicyviolation", (event) => window.refused.push(event.violatedDirective));
  });
  await page.goto(`file://${file}${hash}`);
  await page.waitForSelector("html[data-ready]");
  page.end = async () => {
    assert.deepEqual(await page.evaluate(() => window.refused), []);
    assert.equal(await page.evaluate(() => window.harm), undefined);
    assert.deepEqual(faults, []);
    await page.close();
  };
  return page;
}

const texts = (page, selector) => page.locator(selector).allInnerTexts();

/** The colours of a canvas, each with its number of pixels. */
const colours = (locator) =>
  locator.evaluate((canvas) => {
    const { data } = canvas.getContext("2d").getImageData(0, 0, canvas.width, canvas.height);
    const counts = {};
    for (let i = 0; i < data.length; i += 4) {
      const key = `${data[i]},${data[i + 1]},${data[i + 2]},${data[i + 3]}`;
      counts[key] = (counts[key] ?? 0) + 1;
    }
    return counts;
  });

/** A computed colour as "r,g,b,255". */
const variable = (page, name) =>
  page.evaluate((property) => {
    const to = document.createElement("canvas").getContext("2d");
    to.fillStyle = getComputedStyle(document.documentElement).getPropertyValue(property);
    to.fillRect(0, 0, 1, 1);
    return to.getImageData(0, 0, 1, 1).data.join(",");
  }, name);

async function axe(page, what) {
  await page.evaluate(readFileSync(require.resolve("axe-core/axe.min.js"), "utf8"));
  const { violations } = await page.evaluate(() => window.axe.run());
  const grave = violations.filter(({ impact }) => impact === "serious" || impact === "critical");
  assert.deepEqual(
    grave.map(({ id, nodes }) => `${what}: ${id}: ${nodes[0].html.slice(0, 200)} ${nodes[0].failureSummary}`),
    [],
  );
}

test("opens with what differs, and the tree has the number of differences at each node", async () => {
  const page = await open(changed.file);
  assert.match(await page.innerText("main"), /39 settings of 13 modules in 3 scopes\. 4 settings differ from HEAD$/m);
  const list = (await texts(page, "ul.settings"))[0];
  for (const line of ["main_wide / mode=0 / AfCommon 6 differences", "ToneCurve added", "front / PdCalib removed"]) {
    assert.ok(list.includes(line), list);
  }
  const badges = await texts(page, "[role=tree] > li:has-text('main_wide') .badge.differs");
  const shading = await page
    .locator("a", { hasText: "main_wide / LensShading" })
    .first()
    .locator("xpath=..")
    .innerText();
  const count = Number(shading.match(/([\d,]+) difference/)[1].replaceAll(",", ""));
  assert.equal(badges[0].split("\n")[0].split(" ")[0].replaceAll(",", ""), String(count + 6 + 1));
  await page.end();
});

test("a deep link shows its parameter: value, old value, rule and comment", async () => {
  const page = await open(changed.file, "#main_wide/mode=0/AfCommon/lens.macro_code");
  const row = page.locator("tr.target");
  assert.deepEqual(
    (await row.innerText()).split("\t").map((text) => text.trim()),
    [
      "macro_code",
      "836 1100 outside the rule",
      "512..1023",
      "Position at the closest distance. Unit: code. Range: 512..1023.",
    ],
  );
  assert.ok(await row.isVisible());
  assert.equal(await row.locator("del").innerText(), "836");
  const box = await row.boundingBox();
  assert.ok(box.y > 0 && box.y < 900, "in sight");
  // The value can be selected as text.
  assert.equal(
    await row.locator("ins").evaluate((element) => {
      getSelection().selectAllChildren(element);
      return getSelection().toString();
    }),
    "1100",
  );
  // An inserted element moves those after it; the changed one is compared with its old value.
  const zones = page.locator("tr", { hasText: "[3]" }).first();
  assert.match(await zones.innerText(), /0\.45 0\.25/);
  assert.match(await page.innerText("main"), /zones: length 4 → 5, inserted at \[1\]/);
  await page.getByRole("button", { name: /differences/ }).click();
  const names = await texts(page, ".scalars tbody th");
  assert.deepEqual(names, ["macro_code", "fine_step"]);
  await page.end();
});

test("a list is a curve over its index or another list, with the other side and other settings", async () => {
  const page = await open(changed.file, "#main_wide/mode=0/AfCommon/focus_codes");
  const card = page.locator(".card", { has: page.locator("h3", { hasText: "focus_codes" }) });
  await card.locator("canvas").waitFor();
  await page.mouse.move(0, 0);
  const drawn = await colours(card.locator("canvas"));
  for (const name of ["--series-0", "--series-1"]) {
    assert.ok(drawn[await variable(page, name)] > 50, `${name} is drawn`);
  }
  assert.ok(drawn[await variable(page, "--outside")] > 5, "a value outside the rule is ringed");
  assert.deepEqual(await texts(card, ".u-legend .u-label"), ["index", "HEAD", "this setting"]);
  assert.match(await card.innerText(), /focus_codes\.value\[3\]: 268 → 290/);
  await card.locator("select").selectOption("focus_distance_m");
  assert.match((await texts(card, ".u-legend .u-label"))[0], /focus_distance_m/);
  assert.notDeepEqual(await colours(card.locator("canvas")), drawn);
  await page.getByText("Curves of other settings").click();
  await page.getByRole("checkbox").first().check();
  await page.waitForFunction(() => document.querySelectorAll(".curve")[1].querySelectorAll(".u-series").length === 4);
  assert.ok((await colours(card.locator("canvas")))[await variable(page, "--series-2")] > 50);
  await page.end();
});

test("a table is a map with numbers, profiles, marks, and a map of the difference", async () => {
  const page = await open(changed.file, "#main_wide/LensShading/red.gain");
  const card = page.locator(".card").first();
  const map = card.locator("canvas.map");
  await map.waitFor();
  assert.match(await card.locator(".marked").innerText(), /^\d+ values? outside the rule/);
  const seen = await colours(map);
  assert.ok(Object.keys(seen).length > 50, "many colours");
  assert.ok(seen["255,45,45,255"] > 4, "a cell is outlined");
  const box = await map.boundingBox();
  await page.mouse.move(box.x + (6.5 * box.width) / 33, box.y + (5.5 * box.height) / 33);
  await card.locator(".readout", { hasText: "row 5, column 6" }).waitFor();
  const readout = await card.locator(".readout").innerText();
  assert.match(readout, /^row 5, column 6: 9\.5 · HEAD has 1\.\d+ · difference \+\d.* · outside the rule$/);
  assert.deepEqual(await texts(card, "h5"), ["Row 5", "Column 6"]);
  assert.equal(await card.locator(".profile canvas").count(), 2);
  await map.focus();
  await page.keyboard.press("ArrowRight");
  await card.locator(".readout", { hasText: "row 5, column 7: " }).waitFor();
  await card.getByRole("button", { name: "Difference" }).click();
  const [low, high] = await texts(card, ".legend > span:not(.marked)");
  // One cell moved by 8, the others by less than 0.1: they have the colour scale to themselves.
  assert.match(low, /^≤ -0\.0\d+$/);
  assert.equal(high, low.replace("≤ -", "≥ "));
  const moved = Object.keys(await colours(map)).map((key) => key.split(",").map(Number));
  assert.ok(moved.some(([r, , b]) => r > b + 60) && moved.some(([r, , b]) => b > r + 60), "up and down");
  await card.getByText(/^Numbers/).click();
  assert.equal(await card.locator(".numbers tbody tr:nth-child(6) td:nth-child(8)").innerText(), "9.5");
  await page.end();
});

test("the numbers of the other side are those of its file, to the last bit", async () => {
  const page = await open(changed.file, "#main_wide/LensShading/blue.gain");
  for (const [colour, card] of [
    ["red", page.locator(".card").first()],
    ["blue", page.locator(".card", { has: page.locator(`a[title="blue.gain"]`) })],
  ]) {
    await card.getByText(/^Numbers/).click();
    await card.locator(".numbers td").first().waitFor();
    const shown = await card.locator(".numbers td").evaluateAll((cells) => cells.map((cell) => cell.title));
    const wanted = changed.old[colour].gain.value.flatMap((row) => row.value);
    assert.equal(shown.length, wanted.length);
    const differing = shown.map((title, i) => [title, wanted[i]]).filter(([title]) => title !== "");
    assert.ok(differing.length > 900);
    for (const [title, value] of differing) {
      assert.equal(Math.fround(Number(title.replace("HEAD: ", ""))), Math.fround(value));
    }
  }
  await page.end();
});

test("the search finds names, paths, and values of scalars, texts and lists", async () => {
  const page = await open(changed.file);
  const search = page.getByRole("searchbox");
  await page.keyboard.press("/");
  await search.fill("macro_code");
  await page.locator(".results a", { hasText: "lens.macro_code" }).waitFor();
  await search.fill("1100");
  const found = page.locator(".results a", { hasText: "main_wide / mode=0 / AfCommon" });
  await found.waitFor();
  assert.match(await found.innerText(), /^1100 lens\.macro_code/);
  await found.click();
  assert.equal(await page.locator("tr.target th").innerText(), "macro_code");
  await search.fill("9.5");
  await page.locator(".results a", { hasText: "red.gain" }).waitFor();
  await search.fill("upper");
  await page.locator(".results a", { hasText: "zones[4].label" }).waitFor();
  await page.end();
});

test("the scalars of all settings of a module are one table that can be sorted", async () => {
  const page = await open(changed.file, "#/modules/AfCommon");
  const column = async () => {
    const heads = await texts(page, ".matrix thead th");
    const place = heads.findIndex((text) => text.startsWith("lens.macro_code"));
    return (await texts(page, `.matrix tbody td:nth-child(${place + 1})`)).map(Number);
  };
  const head = page.locator("th button", { hasText: "lens.macro_code" });
  await head.click();
  const rising = await column();
  assert.ok(rising.length > 2 && rising.includes(1100));
  assert.deepEqual(
    rising,
    rising.toSorted((a, b) => a - b),
  );
  await head.click();
  assert.deepEqual(await column(), rising.toReversed());
  assert.equal(await page.locator("th[aria-sort]").getAttribute("aria-sort"), "descending");
  await page.end();
});

test("the keyboard opens the tree and goes from setting to setting", async () => {
  const page = await open(changed.file);
  await page.locator("[role=tree] [tabindex='0']").focus();
  for (const key of ["ArrowDown", "ArrowRight", "ArrowDown", "Enter"]) await page.keyboard.press(key);
  await page.waitForFunction(() => document.querySelector("h2")?.textContent === "LensShading");
  assert.equal(await page.evaluate(() => location.hash), "#main_wide/LensShading");
  await page.keyboard.press("j");
  await page.waitForFunction(() => document.querySelector("h2")?.textContent === "PdCalib");
  await page.end();
});

test("has no serious finding of axe-core, light and dark, wide and narrow, and fits 360 pixels", async () => {
  for (const hash of ["", "#main_wide/mode=0/AfCommon", "#main_wide/LensShading/red.gain", "#/modules/AfCommon"]) {
    const sizes = hash === "" ? [1280, 360] : [360];
    for (const [width, dark] of [[1280, false], ...sizes.map((size) => [size, true])]) {
      const page = await open(changed.file, hash, { width, dark });
      await page.evaluate(() => dispatchEvent(new Event("beforeprint")));
      await page.evaluate(() => dispatchEvent(new Event("afterprint")));
      await axe(page, `${hash} ${width} ${dark ? "dark" : "light"}`);
      assert.equal(await page.evaluate(() => document.documentElement.scrollWidth), width, `${hash} at ${width}`);
      await page.end();
    }
  }
});

test("dark is dark, charts too, and follows the system", async () => {
  const page = await open(changed.file, "#main_wide/mode=0/AfCommon/focus_codes", { dark: true });
  const canvas = page.locator(".curve canvas").nth(1);
  await canvas.waitFor();
  const dark = await variable(page, "--series-0");
  assert.ok((await colours(canvas))[dark] > 50);
  await page.emulateMedia({ colorScheme: "light" });
  const light = await variable(page, "--series-0");
  assert.notEqual(light, dark);
  await page.waitForTimeout(200);
  assert.ok((await colours(canvas))[light] > 50);
  await page.end();
});

test("prints what is not on the screen yet, in light colours", async () => {
  const page = await open(changed.file, "#main_wide/LensShading", { dark: true });
  const dark = await variable(page, "--series-0");
  await page.evaluate(() => {
    window.addEventListener("afterprint", () => {
      const canvas = document.querySelector(".profile canvas");
      const { data } = canvas.getContext("2d").getImageData(0, 0, canvas.width, canvas.height);
      window.printed = new Set(
        Array.from({ length: data.length / 4 }, (_, i) => data.slice(i * 4, i * 4 + 4).join(",")),
      );
    });
  });
  const pdf = (await page.pdf({ format: "A4" })).toString("latin1");
  assert.ok(pdf.startsWith("%PDF"));
  const pages = Number(pdf.match(/\/Count (\d+)/)[1]);
  assert.ok(pages >= 2 && pages < 12, `${pages} pages`);
  for (const map of await page.locator("canvas.map").all()) {
    assert.ok(Object.keys(await colours(map)).length > 50, "drawn for the printer");
  }
  assert.ok(await page.evaluate((colour) => window.printed.size > 2 && !window.printed.has(colour), dark));
  await page.end();
});

test("texts of hostile files stay texts", async () => {
  const file = hostilePage(dir);
  const page = await open(file, "#main_wide/mode=0/AfCommon/zones");
  const labels = await texts(page, ".matrix tbody td:nth-child(2)");
  assert.ok(labels[0].includes(hostile.script), labels[0]);
  assert.ok(labels[1].includes("a\\u{202e}b\\u{0007}c\\u{0000}d"), labels[1]);
  assert.ok(labels[2].length < 1000 && labels[2].includes("all 1,048,576 characters"));
  assert.ok(labels[3].includes(hostile.image), labels[3]);
  assert.equal(await page.locator("main img, main script, nav img").count(), 0);
  assert.ok((await page.innerText("[role=tree]")).includes("<img src=x onerror=alert(1)>"));
  await page.locator("button.more").last().click();
  assert.ok((await page.innerText(".matrix")).includes(hostile.long));
  await page.getByRole("searchbox").fill("<img");
  await page.locator(".results li").first().waitFor();
  await page.goto(`file://${file}#${encodeURIComponent("<img src=x onerror=alert(1)>")}/LensShading/%00%ff`);
  await page.waitForFunction(() => document.querySelector("h2")?.textContent === "LensShading");
  await page.end();
});

test("1,505 files of 37 MB: size, first screen, moves between settings, search", async (context) => {
  const file = largePage(dir);
  const { size } = statSync(file);
  context.diagnostic(`page of ${(size / 1e6).toFixed(2)} MB`);
  assert.ok(size < 8e6);

  const { first, median, slowest } = await measurePage(file, async (page) => {
    const started = Date.now();
    await page.getByRole("searchbox").fill("macro_code");
    await page.locator(".results a", { hasText: "lens.macro_code" }).first().waitFor();
    context.diagnostic(`search of a path: ${Date.now() - started} ms`);
    await page.getByRole("searchbox").fill("no such text");
    await page
      .getByRole("status")
      .filter({ hasText: /^0 values$/ })
      .waitFor();
    context.diagnostic(`search through every value: ${Date.now() - started} ms`);
  });
  context.diagnostic(`first screen: ${first.toFixed(2)} s of processor time`);
  context.diagnostic(`moves: median ${median.toFixed(0)} ms of processor time, slowest ${slowest.toFixed(0)} ms`);
});
