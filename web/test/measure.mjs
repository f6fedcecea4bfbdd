// What a page takes: node web/test/measure.mjs FILE prints it as JSON.

import { fileURLToPath } from "node:url";
import { openBrowser } from "./pages.mjs";

const MOVES = 80;

/**
 * Opens a page and goes through its settings. `first` is the processor time of all processes of a browser that does
 * nothing else, in seconds, until the first screen is there; `median` and `slowest` are those of moves to the next
 * setting, in milliseconds of the page's own thread, which do not depend on what else runs on this machine. `use` may
 * go on with the page.
 */
export async function measurePage(file, use = async () => {}) {
  const browser = await openBrowser();
  try {
    const session = await browser.newBrowserCDPSession();
    const seconds = async () => {
      const { processInfo } = await session.send("SystemInfo.getProcessInfo");
      return processInfo.reduce((sum, { cpuTime }) => sum + cpuTime, 0);
    };
    const page = await browser.newPage({ viewport: { width: 1280, height: 900 } });
    await page.goto("about:blank");
    const begin = await seconds();
    await page.goto(`file://${file}`);
    await page.waitForSelector("html[data-ready]");
    await page.screenshot();
    const first = (await seconds()) - begin;

    const thread = await page.context().newCDPSession(page);
    await thread.send("Performance.enable", { timeDomain: "threadTicks" });
    const busy = async () => {
      const { metrics } = await thread.send("Performance.getMetrics");
      return metrics.find(({ name }) => name === "TaskDuration").value * 1000;
    };
    // Until the screen shows the next setting, if there is one.
    const move = () =>
      page.evaluate(async () => {
        const frame = () => new Promise((done) => requestAnimationFrame(() => setTimeout(done)));
        const title = document.querySelector("h2");
        const link = location.hash;
        document.body.dispatchEvent(new KeyboardEvent("keydown", { key: "j", bubbles: true }));
        if (location.hash === link) return false;
        while (document.querySelector("h2") === title) await frame();
        await frame();
        return true;
      });
    const moves = [];
    for (let i = 0; i < MOVES; ++i) {
      const before = await busy();
      if (!(await move())) break;
      moves.push((await busy()) - before);
    }
    moves.sort((a, b) => a - b);
    await use(page);
    return { first, median: moves[moves.length >> 1], slowest: moves.at(-1) };
  } finally {
    await browser.close();
  }
}

if (process.argv[1] === fileURLToPath(import.meta.url)) {
  console.log(JSON.stringify(await measurePage(process.argv[2])));
}
