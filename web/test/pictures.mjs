// Makes the pictures of docs/report.md: node web/test/pictures.mjs DIR

import { mkdirSync, mkdtempSync, rmSync } from "node:fs";
import { tmpdir } from "node:os";
import { changedPage, openBrowser } from "./pages.mjs";

const to = process.argv[2];
mkdirSync(to, { recursive: true });
const dir = mkdtempSync(`${tmpdir()}/zotuning-report-`);
const browser = await openBrowser();
const pictures = [
  ["overview", "", 1280, 900, "light"],
  ["setting", "#main_wide/mode=0/AfCommon", 1280, 900, "light"],
  ["curve", "#main_wide/mode=0/AfCommon/focus_codes", 1280, 900, "dark"],
  ["map", "#main_wide/LensShading/red.gain", 1280, 900, "light", { button: "Difference" }],
  ["module", "#/modules/AfCommon", 1280, 900, "dark"],
  ["search", "", 1280, 900, "light", { search: "macro" }],
  ["narrow", "#main_wide/mode=0/AfCommon/focus_codes", 360, 740, "light"],
  ["narrow-tree", "#main_wide/mode=0/AfCommon", 360, 740, "dark", { button: "Settings" }],
  ["narrow-map", "#main_wide/LensShading/red.gain", 360, 740, "dark"],
];
try {
  const { file } = changedPage(dir);
  for (const [name, hash, width, height, colorScheme, { button, search } = {}] of pictures) {
    const page = await browser.newPage({ viewport: { width, height }, colorScheme });
    await page.goto(`file://${file}${hash}`);
    await page.waitForSelector("html[data-ready]");
    if (button) await page.getByRole("button", { name: button, exact: true }).first().click();
    if (search) await page.getByRole("searchbox").fill(search);
    await page.waitForTimeout(400);
    await page.screenshot({ path: `${to}/${name}.png` });
    await page.close();
    console.log(`${to}/${name}.png`);
  }
} finally {
  await browser.close();
  rmSync(dir, { recursive: true, force: true });
}
