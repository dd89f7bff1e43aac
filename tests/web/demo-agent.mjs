// What the browser tests share: the real agent in demo mode (with its receiver) on free ports,
// one headless Chromium per test file, and a watchdog that ends a stuck test with the agents' logs.
import assert from "node:assert/strict";
import { spawn } from "node:child_process";
import { existsSync, mkdtempSync, readdirSync, rmSync } from "node:fs";
import { createRequire } from "node:module";
import { tmpdir } from "node:os";
import path from "node:path";
import { after, before } from "node:test";
import { fileURLToPath } from "node:url";

export const repo = path.resolve(path.dirname(fileURLToPath(import.meta.url)), "../..");
const webRoot = path.join(repo, "web");
const { chromium } = createRequire(path.join(webRoot, "package.json"))("playwright-core");
export const agentPath = process.env.VELMORA_AGENT || path.join(repo, "build/velmora-agent");
export const needsDisplay = process.env.DISPLAY ? false : "needs the X server of the test command";

// A real PNG: 3 x 2 red pixels.
export const PICTURE = Buffer.from(
  "iVBORw0KGgoAAAANSUhEUgAAAAMAAAACCAIAAAASFvFNAAAAEElEQVR4nGM4IScHQQxwFgBBAAYZPEVBlgAAAABJRU5ErkJggg==", "base64");

const agents = [];
let browser;

setTimeout(() => {
  for (const agent of agents) {
    console.error("timed out; agent log:\n" + agent.log);
    agent.process.kill("SIGKILL");
  }
  process.exit(1);
}, 170_000).unref();

export async function waitFor(check, what, timeoutMs = 15_000) {
  for (const deadline = Date.now() + timeoutMs; Date.now() < deadline; await new Promise((r) => setTimeout(r, 50))) {
    const value = check();
    if (value) return value;
  }
  throw new Error(`timed out waiting for ${what}\n${agents.map((agent) => agent.log).join("\n")}`);
}

// The agent in demo mode with a temporary folder of its own. Without `display` it runs on
// Qt's offscreen platform, as on a machine without a desktop; with it, on the X server of
// the test command (for the clipboard and dialogs).
export class DemoAgent {
  constructor(extraArgs = [], { display = false } = {}) {
    this.scratch = mkdtempSync(path.join(tmpdir(), "velmora-demo-"));
    this.log = "";
    // Its own config folder (no allowed origins of the machine's user), and no desktop
    // prompt for origins off the list: the tests check the list itself.
    const env = { ...process.env, TMPDIR: this.scratch, XDG_RUNTIME_DIR: this.scratch,
      XDG_CONFIG_HOME: this.scratch, QT_QPA_PLATFORM: display ? "xcb" : "offscreen" };
    if (!display) delete env.DISPLAY;
    delete env.WAYLAND_DISPLAY;
    this.process = spawn(agentPath, ["--demo", "--no-prompt", "--port", "0", "--http-port", "0", "--web-root", webRoot,
      ...extraArgs],
      { env, stdio: ["ignore", "ignore", "pipe"] });
    this.process.stderr.setEncoding("utf8").on("data", (text) => { this.log += text; });
    this.exited = new Promise((resolve) => this.process.on("exit", (code, signal) => resolve(code ?? signal)));
    agents.push(this);
  }

  async started() {
    const said = (pattern, what) => waitFor(() => this.log.match(pattern), what).then((match) => match[1]);
    this.wsPort = Number(await said(/listening on ws:\/\/127\.0\.0\.1:(\d+)/, "the agent"));
    this.demoOrigin = await said(/demo page on (http:\/\/127\.0\.0\.1:\d+)\//, "the demo");
    const receiver = this.log.match(/upload receiver on (http:\/\/127\.0\.0\.1:\d+) \(storing in (.+)\)/);
    if (receiver) [, this.receiverUrl, this.storage] = receiver;
    return this;
  }

  async stop() {
    this.process.kill("SIGTERM");  // nothing when it has ended already
    const timer = setTimeout(() => this.process.kill("SIGKILL"), 5000);
    try { return await this.exited; } finally { clearTimeout(timer); }
  }

  pageFolders() {
    const root = path.join(this.scratch, "Velmora");
    return existsSync(root) ? readdirSync(root).filter((name) => name.startsWith("page-")) : [];
  }

  // Opens the demo page; its session's name ("page-<pid>-<n>-<random>") is page.sessionName.
  async openDemo() {
    const opened = () => [...this.log.matchAll(/page (page-\d+-\d+-[0-9a-f]+) opened/g)].map((match) => match[1]);
    const before = opened().length;
    const page = await browser.newPage();
    page.setDefaultTimeout(20_000);
    await page.goto(`${this.demoOrigin}/`);
    await page.evaluate(() => window.velmoraDemo.ready.then(() => true));
    await waitFor(() => opened().length > before, "the page's session");
    page.sessionName = opened().at(-1);
    return page;
  }

  // Runs `work` on a fresh demo page and closes the page afterwards.
  async onDemo(work) {
    const page = await this.openDemo();
    try { return await work(page); } finally { await page.close(); }
  }
}

// Clicks one of the demo's action buttons and answers the outcome its result line shows: the
// sentence for a person (text) and the control's own word beside it (word, "" when none).
export async function act(page, button, result) {
  await page.evaluate((line) => { document.querySelector(line).dataset.outcome = "busy"; }, result);
  await page.click(button);
  await page.waitForSelector(`${result}:is([data-outcome="ok"], [data-outcome="error"])`);
  const shown = await page.$eval(result, (line) => ({ outcome: line.dataset.outcome,
    text: line.querySelector(".said")?.textContent ?? "", word: line.querySelector(".word")?.textContent ?? "" }));
  return shown;
}

// The pictures the editor shows once every one of them has loaded.
export async function loadedPictures(page, count) {
  return (await page.waitForFunction((expected) => {
    const images = [...document.querySelectorAll("#editor img")];
    const loaded = images.length === expected && images.every((image) => image.complete && image.naturalWidth > 0);
    return loaded && images.map((image) => ({
      src: image.getAttribute("src"), width: image.naturalWidth, height: image.naturalHeight }));
  }, count)).jsonValue();
}

before(async () => {
  assert.ok(existsSync(agentPath), `the agent is not built: ${agentPath}`);
  browser = await chromium.launch({ executablePath: "/usr/bin/chromium", timeout: 30_000, args: ["--headless",
    "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run", "--disable-background-networking",
    "--disable-component-update", "--disable-sync"] });
});

after(async () => {
  await browser?.close().catch(() => {});
  for (const agent of agents) {
    await agent.stop();
    rmSync(agent.scratch, { recursive: true, force: true });
  }
});
