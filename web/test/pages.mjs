// Projects and pages for the browser tests and for the pictures of docs/report.md.

import { execFileSync } from "node:child_process";
import { cpSync, existsSync, mkdirSync, readFileSync, writeFileSync } from "node:fs";
import { createRequire } from "node:module";
import { fileURLToPath } from "node:url";

const root = fileURLToPath(new URL("../..", import.meta.url));
export const require = createRequire(`${root}/out/web/package.json`);
const { chromium } = require("playwright-core");

const tool = process.env.ZOTUNING ?? `${root}/out/release/zotuning`;
const makeProject = process.env.MAKE_PROJECT;

const run = (program, words, options) => execFileSync(program, words, { encoding: "utf8", stdio: "pipe", ...options });

export const zotuning = (dir, ...words) => run(tool, ["-C", dir, ...words]);

export function edit(path, change) {
  const json = JSON.parse(readFileSync(path, "utf8"));
  change(json);
  writeFileSync(path, JSON.stringify(json, null, 1));
}

/** A copy of the example at `dir`; `prepare` may change it before it becomes a project. */
function example(dir, sensors, prepare = () => {}) {
  mkdirSync(dir);
  cpSync(`${root}/examples/tuning_project/proto`, `${dir}/schema`, { recursive: true });
  prepare(`${dir}/schema`);
  const words = ["init", "project", "--proto", "schema", ...sensors.flatMap((sensor) => ["--sensor", sensor])];
  run(tool, words, { cwd: dir });
  for (const scope of ["default", "main_wide", "front"]) {
    cpSync(`${root}/examples/tuning_project/${scope}`, `${dir}/project/${scope}`, { recursive: true });
  }
  return `${dir}/project`;
}

/** A page of the example as it was changed since the last commit. */
export function changedPage(dir) {
  const project = example(`${dir}/changed`, ["main_wide", "front"]);
  // Of full precision, so that their bits are on the page.
  edit(`${project}/main_wide/LensShading.json`, (json) => {
    for (const row of json.blue.gain.value) row.value = row.value.map((gain, c) => gain * 1.000123456 + c * 1e-7);
  });
  const git = (...words) => run("git", ["-c", "user.name=n", "-c", "user.email=e", ...words], { cwd: project });
  git("init", "-q");
  git("add", "-A");
  git("commit", "-qm", "first");
  edit(`${project}/main_wide/mode_0/AfCommon.json`, (json) => {
    json.lens.macro_code.value = 1100;
    json.scan.fine_step.value = 9;
    json.focus_codes.value[3] = 290;
    json.zones.splice(1, 0, structuredClone(json.zones[0]));
    json.zones[3].weight.value = 0.25;
    json.focus_codes.value[8] = 1200;
  });
  edit(`${project}/main_wide/LensShading.json`, (json) => {
    json.red.gain.value.forEach((row, r) => {
      row.value = row.value.map((gain, c) =>
        Number((gain * (1 + 0.03 * Math.sin(r / 5) * Math.cos(c / 7))).toFixed(3)),
      );
    });
    json.red.gain.value[5].value[6] = 9.5;
    for (const row of json.blue.gain.value) row.value = row.value.map((gain) => gain * 1.01);
  });
  cpSync(`${project}/default/ToneCurve.json`, `${project}/main_wide/mode_2/ToneCurve.json`);
  git("rm", "-q", "front/PdCalib.json");
  zotuning(project, "report", "--against", "HEAD:", "-o", `${dir}/changed.html`);
  const old = JSON.parse(git("show", "HEAD:./main_wide/LensShading.json"));
  return { project, old, file: `${dir}/changed.html` };
}

/** Texts that would do harm if they were read as anything else. */
export const hostile = {
  script: "</script><script>window.harm = 1</script>",
  image: '<img src=x onerror="window.harm = 1">',
  hidden: "a\u202eb\u0007c\u0000d",
  long: "x".repeat(1 << 20),
};

/** A page of a project whose names, comments, rules and texts are hostile. */
export function hostilePage(dir) {
  const project = example(`${dir}/hostile`, ["main_wide", "front", "<img src=x onerror=alert(1)>"], (schema) => {
    const path = `${schema}/af.proto`;
    const text = readFileSync(path, "utf8");
    writeFileSync(path, text.replace("// Name for logs.", `// ${hostile.script} ${hostile.image}`));
  });
  cpSync(`${project}/main_wide`, `${project}/<img src=x onerror=alert(1)>`, { recursive: true });
  edit(`${project}/main_wide/mode_0/AfCommon.json`, (json) => {
    json.zones[0].label = hostile.script;
    json.zones[1].label = hostile.hidden;
    json.zones[2].label = hostile.long;
    json.zones[3].label = hostile.image;
    json.lens.macro_code.rule.recommend = hostile.image;
    json.lens.macro_code.rule.description = hostile.script + hostile.long;
  });
  zotuning(project, "report", "--against", "default", "-o", `${dir}/hostile.html`);
  return `${dir}/hostile.html`;
}

/** A page of a project of 1,505 files, 37 MB. */
export function largePage(dir) {
  run(makeProject, ["c", `${dir}/large`]);
  zotuning(`${dir}/large`, "report", "-o", `${dir}/large.html`);
  return `${dir}/large.html`;
}

const browsers = ["/usr/bin/chromium-headless-shell", "/usr/bin/chromium"];

export const openBrowser = () =>
  chromium.launch({ executablePath: browsers.find(existsSync), args: ["--no-sandbox", "--disable-gpu"] });
