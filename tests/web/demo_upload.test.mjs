// The demo's uploads end to end: the agent in demo mode starts its own receiver, the demo
// page in headless Chromium puts a local picture (Local upload) or the X clipboard's
// picture (Paste picture) into the editor, and the editor ends up showing the receiver's
// copy.
import assert from "node:assert/strict";
import { spawn } from "node:child_process";
import { existsSync, mkdirSync, mkdtempSync, readFileSync, readdirSync, rmSync, writeFileSync } from "node:fs";
import { createRequire } from "node:module";
import net from "node:net";
import { tmpdir } from "node:os";
import path from "node:path";
import { after, before, test } from "node:test";
import { fileURLToPath } from "node:url";

const repo = path.resolve(path.dirname(fileURLToPath(import.meta.url)), "../..");
const webRoot = path.join(repo, "web");
const { chromium } = createRequire(path.join(webRoot, "package.json"))("playwright-core");
const agentPath = process.env.VELMORA_AGENT || path.join(repo, "build/velmora-agent");

const CHROMIUM_ARGS = ["--headless", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
  "--disable-background-networking", "--disable-component-update", "--disable-sync"];

// A real PNG: 3 x 2 red pixels.
const PICTURE = Buffer.from(
  "iVBORw0KGgoAAAANSUhEUgAAAAMAAAACCAIAAAASFvFNAAAAEElEQVR4nGM4IScHQQxwFgBBAAYZPEVBlgAAAABJRU5ErkJggg==", "base64");

const agents = [];
let browser;

const watchdog = setTimeout(() => {
  for (const agent of agents) {
    console.error("demo_upload: timed out; agent log:\n" + agent.log);
    agent.process.kill("SIGKILL");
  }
  process.exit(1);
}, 150_000);
watchdog.unref();

function waitFor(check, what, timeoutMs = 15_000) {
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
class DemoAgent {
  constructor(extraArgs = [], { display = false } = {}) {
    this.scratch = mkdtempSync(path.join(tmpdir(), "velmora-demo-upload-"));
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

function portRefuses(port) {
  return new Promise((resolve) => {
    const socket = net.connect(port, "127.0.0.1");
    socket.on("connect", () => { socket.destroy(); resolve(false); });
    socket.on("error", () => resolve(true));
  });
}

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

test("Local upload puts the receiver's copy of a local picture into the editor", { timeout: 90_000 }, async () => {
  const agent = await new DemoAgent().started();
  const [, receiverUrl, storage] = agent.log.match(/upload receiver on (http:\/\/127\.0\.0\.1:\d+) \(storing in (.+)\)/);
  const picture = path.join(agent.scratch, "my pictures", "red.png");  // a space, as "%20" in its address
  mkdirSync(path.dirname(picture));
  writeFileSync(picture, PICTURE);

  const page = await agent.openDemo();
  try {
    await page.waitForSelector("#local-upload-panel", { state: "visible" });
    await page.fill("#local-path", picture);
    await page.click("#local-insert");
    assert.equal(await page.getAttribute("#editor img", "src"), `file://${picture.replaceAll(" ", "%20")}`);

    await page.click("#local-upload");
    await page.waitForSelector('#local-upload-result:is([data-outcome="ok"], [data-outcome="error"])');
    assert.equal(await page.textContent("#local-upload-result"), "Uploaded red.png");
    const shown = await (await page.waitForFunction(() => {
      const images = [...document.querySelectorAll("#editor img")];
      const loaded = images.length === 1 && images[0].complete && images[0].naturalWidth > 0;
      return loaded && { src: images[0].getAttribute("src"), width: images[0].naturalWidth, height: images[0].naturalHeight };
    })).jsonValue();
    assert.match(shown.src, new RegExp(`^${receiverUrl}/files/`));
    assert.deepEqual([shown.width, shown.height], [3, 2]);
    assert.equal(await page.textContent("#error"), '""');

    const stored = readdirSync(storage);
    assert.equal(stored.length, 1);
    assert.deepEqual(readFileSync(path.join(storage, stored[0])), PICTURE);
  } finally {
    await page.close();
  }

  assert.equal(await agent.stop(), 0);
  assert.ok(!existsSync(storage), "the receiver's storage goes with the agent");
  assert.ok(await portRefuses(Number(new URL(receiverUrl).port)), "the receiver stops with the agent");
});

test("Paste picture puts the receiver's copy of the clipboard's picture into the editor", {
  timeout: 90_000, skip: process.env.DISPLAY ? false : "needs the X server of the test command",
}, async () => {
  const agent = await new DemoAgent([], { display: true }).started();
  const [, receiverUrl] = agent.log.match(/upload receiver on (http:\/\/127\.0\.0\.1:\d+)/);
  const picture = path.join(agent.scratch, "copied.png");
  writeFileSync(picture, PICTURE);
  // Another program owns the clipboard, as an image viewer would after "Copy".
  const owner = spawn("xclip", ["-selection", "clipboard", "-t", "image/png", "-i", picture, "-quiet"],
    { stdio: "ignore" });
  const page = await agent.openDemo();
  try {
    await page.waitForSelector("#paste-panel", { state: "visible" });
    await page.waitForFunction(async () => (await (await window.velmoraDemo.ready).control.GetClipboardFlag())
      .startsWith("1|"));
    await page.click("#paste-image");
    await page.waitForSelector('#paste-result:is([data-outcome="ok"], [data-outcome="error"])');
    assert.match(await page.textContent("#paste-result"), /^Pasted, uploaded /);
    const shown = await (await page.waitForFunction(() => {
      const images = [...document.querySelectorAll("#editor img")];
      const loaded = images.length === 1 && images[0].complete && images[0].naturalWidth > 0;
      return loaded && { src: images[0].getAttribute("src"), width: images[0].naturalWidth, height: images[0].naturalHeight };
    })).jsonValue();
    assert.match(shown.src, new RegExp(`^${receiverUrl}/files/`));
    assert.deepEqual([shown.width, shown.height], [3, 2]);
  } finally {
    await page.close();
    owner.kill();
  }
});

test("without its receiver the demo still runs, with no Local upload", { timeout: 60_000 }, async () => {
  const agent = await new DemoAgent(["--receiver", path.join(repo, "no-such-receiver")]).started();
  assert.match(agent.log, /the demo runs without its upload receiver: cannot run .*no-such-receiver/);
  const page = await agent.openDemo();
  try {
    assert.equal(await page.evaluate(async () => (await window.velmoraDemo.ready).control.Test()), "Velmora");
    await page.waitForSelector('#local-upload-panel[data-state="no-receiver"]', { state: "attached" });
    assert.equal(await page.isHidden("#local-upload-panel"), true);
  } finally {
    await page.close();
  }
});
