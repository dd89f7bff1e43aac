// What the demo page's browser tests share: the agent in demo mode (with its receiver) on
// free ports, one headless Chromium per test file, and a watchdog so that a stuck test ends
// with the agent's log instead of hanging.
import assert from "node:assert/strict";
import { spawn } from "node:child_process";
import { existsSync, mkdtempSync, rmSync } from "node:fs";
import { createRequire } from "node:module";
import net from "node:net";
import { tmpdir } from "node:os";
import path from "node:path";
import { after, before } from "node:test";
import { fileURLToPath } from "node:url";

export const repo = path.resolve(path.dirname(fileURLToPath(import.meta.url)), "../..");
const webRoot = path.join(repo, "web");
const { chromium } = createRequire(path.join(webRoot, "package.json"))("playwright-core");
const agentPath = process.env.VELMORA_AGENT || path.join(repo, "build/velmora-agent");

const CHROMIUM_ARGS = ["--headless", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
  "--disable-background-networking", "--disable-component-update", "--disable-sync"];

// A real PNG: 3 x 2 red pixels.
export const PICTURE = Buffer.from(
  "iVBORw0KGgoAAAANSUhEUgAAAAMAAAACCAIAAAASFvFNAAAAEElEQVR4nGM4IScHQQxwFgBBAAYZPEVBlgAAAABJRU5ErkJggg==", "base64");

const agents = [];
let browser;

const watchdog = setTimeout(() => {
  for (const agent of agents) {
    console.error("demo test timed out; agent log:\n" + agent.log);
    agent.process.kill("SIGKILL");
  }
  process.exit(1);
}, 150_000);
watchdog.unref();

export function waitFor(check, what, timeoutMs = 15_000) {
  return new Promise((resolve, reject) => {
    const started = Date.now();
    const poll = () => {
      const value = check();
      if (value) return resolve(value);
      if (Date.now() - started > timeoutMs) return reject(new Error(`timed out waiting for ${what}`));
      setTimeout(poll, 50);
    };
    poll();
  });
}

// The agent in demo mode on free ports, offscreen, with a temporary folder of its own.
// With `display` it uses the X server of the test command, for the clipboard.
export class DemoAgent {
  constructor(extraArgs = [], { display = false } = {}) {
    this.scratch = mkdtempSync(path.join(tmpdir(), "velmora-demo-"));
    this.log = "";
    const env = { ...process.env, TMPDIR: this.scratch, XDG_RUNTIME_DIR: this.scratch, QT_QPA_PLATFORM: "offscreen" };
    if (display) {
      env.QT_QPA_PLATFORM = "xcb";
    } else {
      delete env.DISPLAY;
    }
    delete env.WAYLAND_DISPLAY;
    this.process = spawn(agentPath, ["--demo", "--port", "0", "--http-port", "0", "--web-root", webRoot, ...extraArgs],
      { env, stdio: ["ignore", "ignore", "pipe"] });
    this.process.stderr.setEncoding("utf8");
    this.process.stderr.on("data", (text) => { this.log += text; });
    this.exited = new Promise((resolve) => this.process.on("exit", (code, signal) => resolve(code ?? signal)));
    agents.push(this);
  }

  async started() {
    this.demoOrigin = (await waitFor(() => this.log.match(/demo page on (http:\/\/127\.0\.0\.1:\d+)\//), "the demo"))[1];
    const receiver = this.log.match(/upload receiver on (http:\/\/127\.0\.0\.1:\d+) \(storing in (.+)\)/);
    if (receiver) [, this.receiverUrl, this.storage] = receiver;
    return this;
  }

  async stop() {
    if (this.process.exitCode === null && this.process.signalCode === null) this.process.kill("SIGTERM");
    return this.exited;
  }

  async openDemo() {
    const page = await browser.newPage();
    page.setDefaultTimeout(20_000);
    await page.goto(`${this.demoOrigin}/`);
    await page.evaluate(() => window.velmoraDemo.ready.then(() => true));
    return page;
  }
}

export function portRefuses(port) {
  return new Promise((resolve) => {
    const socket = net.connect(port, "127.0.0.1");
    socket.on("connect", () => { socket.destroy(); resolve(false); });
    socket.on("error", () => resolve(true));
  });
}

// Another program owns the X clipboard with `file` as `type`, as a desktop program would
// after "Copy"; kill the returned process to let go.
export function ownClipboard(type, file) {
  return spawn("xclip", ["-selection", "clipboard", "-t", type, "-i", file, "-quiet"], { stdio: "ignore" });
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

export const needsDisplay = process.env.DISPLAY ? false : "needs the X server of the test command";

before(async () => {
  assert.ok(existsSync(agentPath), `the agent is not built: ${agentPath}`);
  browser = await chromium.launch({ executablePath: "/usr/bin/chromium", args: CHROMIUM_ARGS, timeout: 30_000 });
});

after(async () => {
  await browser?.close().catch(() => {});
  for (const agent of agents) {
    await agent.stop();
    rmSync(agent.scratch, { recursive: true, force: true });
  }
  clearTimeout(watchdog);
});
