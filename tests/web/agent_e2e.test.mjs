// The agent end to end: the real agent in demo mode, its demo page in headless Chromium,
// the WebSocket door, and what a page leaves behind when it goes.
import assert from "node:assert/strict";
import { execFileSync, spawn } from "node:child_process";
import { existsSync, mkdirSync, mkdtempSync, readdirSync, rmSync, writeFileSync } from "node:fs";
import http from "node:http";
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
const receiverPath = process.env.VELMORA_RECEIVER || path.join(path.dirname(agentPath), "velmora-receiver");

const CHROMIUM_ARGS = ["--headless", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
  "--disable-background-networking", "--disable-component-update", "--disable-sync"];

const started = [];        // every agent, for its folder
const running = new Set();  // the agents still to stop
let browser;
const servers = [];

// Nothing may hang: whatever is still running after this long is killed and the run fails.
const watchdog = setTimeout(() => {
  for (const agent of running) {
    console.error("agent_e2e: timed out; agent log:\n" + agent.log);
    agent.process.kill("SIGKILL");
  }
  process.exit(1);
}, 170_000);
watchdog.unref();

function waitFor(check, what, timeoutMs = 10_000) {
  return new Promise((resolve, reject) => {
    const started = Date.now();
    const poll = () => {
      const value = check();
      if (value) return resolve(value);
      if (Date.now() - started > timeoutMs) {
        return reject(new Error(`timed out waiting for ${what}\n${[...running].map((a) => a.log).join("\n")}`));
      }
      setTimeout(poll, 50);
    };
    poll();
  });
}

// One agent in demo mode on free ports, with a temporary folder of its own. Without
// `display` it runs on Qt's offscreen platform, as on a machine without a desktop.
class Agent {
  constructor({ display = false } = {}) {
    this.scratch = mkdtempSync(path.join(tmpdir(), "velmora-e2e-"));
    this.log = "";
    const env = { ...process.env, TMPDIR: this.scratch, XDG_RUNTIME_DIR: this.scratch };
    if (display) {
      env.QT_QPA_PLATFORM = "xcb";
    } else {
      env.QT_QPA_PLATFORM = "offscreen";
      delete env.DISPLAY;
      delete env.WAYLAND_DISPLAY;
    }
    this.process = spawn(agentPath, ["--demo", "--port", "0", "--http-port", "0", "--web-root", webRoot],
      { env, stdio: ["ignore", "ignore", "pipe"] });
    this.process.stderr.setEncoding("utf8");
    this.process.stderr.on("data", (text) => {
      this.log += text;
      if (process.env.E2E_TRACE) process.stderr.write(text);
    });
    this.exited = new Promise((resolve) => this.process.on("exit", (code, signal) => resolve(code ?? signal)));
    running.add(this);
    started.push(this);
  }

  async started() {
    this.wsPort = Number((await waitFor(() => this.log.match(/listening on ws:\/\/127\.0\.0\.1:(\d+)/), "the agent"))[1]);
    this.demoOrigin = (await waitFor(() => this.log.match(/demo page on (http:\/\/127\.0\.0\.1:\d+)\//), "the demo"))[1];
    return this;
  }

  async stop() {
    if (this.process.exitCode === null && this.process.signalCode === null) {
      this.process.kill("SIGTERM");
      const stopped = await Promise.race([this.exited, new Promise((r) => setTimeout(() => r("timeout"), 5000))]);
      if (stopped === "timeout") this.process.kill("SIGKILL");
    }
    running.delete(this);
    return this.exited;
  }

  pageFolders() {
    const root = path.join(this.scratch, "Velmora");
    return existsSync(root) ? readdirSync(root).filter((name) => name.startsWith("page-")) : [];
  }

  openedPages() {
    return [...this.log.matchAll(/page (page-\d+-\d+) opened/g)].map((match) => match[1]);
  }

  // Opens the demo page; its session's name ("page-<pid>-<n>") is page.sessionName.
  async openDemo() {
    const opened = this.openedPages().length;
    const page = await browser.newPage();
    page.setDefaultTimeout(15_000);
    await page.goto(`${this.demoOrigin}/`);
    await page.evaluate(() => window.velmoraDemo.ready.then(() => true));
    await waitFor(() => this.openedPages().length > opened, "the page's session");
    page.sessionName = this.openedPages().at(-1);
    return page;
  }
}

let agent;  // the offscreen agent most tests talk to

// A tiny HTTP server on 127.0.0.1 that answers every request with `html`.
async function servePage(html) {
  const server = http.createServer((_, response) => {
    response.writeHead(200, { "Content-Type": "text/html; charset=utf-8" });
    response.end(html);
  });
  servers.push(server);
  await new Promise((resolve) => server.listen(0, "127.0.0.1", resolve));
  return `http://127.0.0.1:${server.address().port}`;
}

// Sends a raw WebSocket handshake and answers the status line the agent sent back.
function rawHandshake(headers) {
  return new Promise((resolve, reject) => {
    const socket = net.connect(agent.wsPort, "127.0.0.1");
    let answer = "";
    socket.setTimeout(5000, () => { socket.destroy(); reject(new Error("no answer to the handshake")); });
    socket.on("connect", () => {
      socket.write(["GET / HTTP/1.1", ...headers, "Upgrade: websocket", "Connection: Upgrade",
        "Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==", "Sec-WebSocket-Version: 13", "", ""].join("\r\n"));
    });
    socket.on("data", (chunk) => {
      answer += chunk;
      if (answer.includes("\r\n")) { socket.destroy(); resolve(answer.split("\r\n")[0]); }
    });
    socket.on("close", () => resolve(answer.split("\r\n")[0]));
    socket.on("error", reject);
  });
}

// GET from the demo server with the path sent exactly as given.
function rawGet(requestPath, host = `127.0.0.1:${new URL(agent.demoOrigin).port}`) {
  return new Promise((resolve, reject) => {
    const request = http.get({ host: "127.0.0.1", port: new URL(agent.demoOrigin).port, path: requestPath,
      headers: { Host: host }, timeout: 5000, agent: false }, (response) => {
      response.resume();
      resolve(response.statusCode);
    });
    request.on("timeout", () => request.destroy(new Error("no answer")));
    request.on("error", reject);
  });
}

before(async () => {
  assert.ok(existsSync(agentPath), `the agent is not built: ${agentPath}`);
  agent = await new Agent().started();
  browser = await chromium.launch({ executablePath: "/usr/bin/chromium", args: CHROMIUM_ARGS, timeout: 30_000 });
});

after(async () => {
  await browser?.close().catch(() => {});
  for (const each of [...running]) await each.stop();
  for (const each of started) rmSync(each.scratch, { recursive: true, force: true });
  for (const server of servers) server.close();
  clearTimeout(watchdog);
});

test("the demo page creates a control and reads it through the agent", { timeout: 60_000 }, async () => {
  const page = await agent.openDemo();
  try {
    const seen = await page.evaluate(async () => {
      const { control } = await window.velmoraDemo.ready;
      return { version: control.Version, test: await control.Test(), status: control.Status, error: control.Error,
               className: control.className };
    });
    assert.deepEqual(seen, { version: "5.1.0.0", test: "Velmora", status: "", error: "", className: "Velmora5" });

    await page.click('button[data-action="Test"]');
    await page.waitForSelector('#output li[data-action="Test"]');
    assert.equal(await page.textContent('#output li[data-action="Test"]'), 'Test → "Velmora"');
    await page.click('button[data-action="Version"]');
    assert.equal(await page.textContent('#output li[data-action="Version"]'), 'Version → "5.1.0.0"');
    await page.click('button[data-action="GetClipboardFlag"]');
    assert.equal(await page.textContent('#output li[data-action="GetClipboardFlag"]'), 'GetClipboardFlag → "0|0|0|0|0|0"',
      "the agent's own clipboard is empty");
    assert.equal(await page.textContent("#status"), '""');
  } finally {
    await page.close();
  }
});

test("results, setters and Status reach the page through the mirror", { timeout: 60_000 }, async () => {
  const page = await agent.openDemo();
  try {
    const seen = await page.evaluate(async () => {
      const { client } = await window.velmoraDemo.ready;
      const v = await client.create("Velmora5");
      const setterErrors = [];
      v.addEventListener("error", (error) => setterErrors.push(error.number));
      v.Lang = "en";
      v.LocalSize = "99999999999";  // overflows: the setter's failure goes to "error" listeners
      v.LocalExt = "PNG|JPG";
      await v.LocalUpload('<p>no pictures</p><a href="file:///home/u/doc.html#part2">see</a>');
      const done = await v.whenDone({ timeoutMs: 10_000 });
      await v.release();
      return { done, setterErrors, getterOfWriteOnly: v.SendUrl };
    });
    assert.equal(seen.done.Status, "ok");
    assert.equal(seen.done.Error, "");
    assert.equal(seen.done.Body, '<p>no pictures</p><a href="#part2">see</a>');
    assert.equal(seen.done.OriginalFiles, "");
    assert.deepEqual(seen.setterErrors, [6]);
    assert.equal(seen.getterOfWriteOnly, undefined);
  } finally {
    await page.close();
  }
});

test("an upload that ends after the call reaches the page without polling", { timeout: 60_000 }, async () => {
  const root = mkdtempSync(path.join(tmpdir(), "velmora-e2e-receiver-"));
  mkdirSync(path.join(root, "stored"));
  const receiver = spawn(receiverPath, ["--root", path.join(root, "stored"), "--port", "0"],
    { stdio: ["ignore", "pipe", "inherit"] });
  let receiverOut = "";
  receiver.stdout.setEncoding("utf8");
  receiver.stdout.on("data", (text) => { receiverOut += text; });
  const page = await agent.openDemo();
  try {
    const picture = path.join(root, "pictures", "a.png");
    mkdirSync(path.dirname(picture));
    writeFileSync(picture, Buffer.from("89504e470d0a1a0a", "hex"));
    const receiverUrl = (await waitFor(() => receiverOut.match(/listening on (http:\/\/\S+)/), "the receiver"))[1];
    const result = await page.evaluate(async ({ receiverUrl, picture }) => {
      const { client } = await window.velmoraDemo.ready;
      const v = await client.create("Velmora5");
      v.SendUrl = `${receiverUrl}/upload?editor=demo`;
      v.LocalExt = "png|jpg";
      v.LocalSize = "100";
      await v.LocalUpload(`<p><img src="file://${picture}"></p>`);
      const statusAfterCall = v.Status;
      // Only the agent's own report can end this wait: the fallback poll is out of reach.
      return { statusAfterCall, ...(await v.whenDone({ timeoutMs: 20_000, pollMs: 600_000 })) };
    }, { receiverUrl, picture });
    assert.equal(result.statusAfterCall, "", "the file goes to the server after the call returned");
    assert.equal(result.Error, "");
    assert.equal(result.OriginalFiles, "a.png");
    assert.match(result.SavedFiles, new RegExp(`^${receiverUrl}/files/`));
    assert.equal(result.Body, `<p><img src="${result.SavedFiles}"></p>`);
  } finally {
    await page.close();
    receiver.kill("SIGTERM");
    rmSync(root, { recursive: true, force: true });
  }
});

test("failed calls reach the page with their automation error", { timeout: 60_000 }, async () => {
  const page = await agent.openDemo();
  try {
    const errors = await page.evaluate(async () => {
      const { client, control } = await window.velmoraDemo.ready;
      const caught = async (work) => {
        try { await work(); return null; } catch (error) { return { number: error.number, description: error.description }; }
      };
      return {
        overflow: await caught(() => control.put("LocalSize", "99999999999")),
        unknown: await caught(() => control.call("NoSuchMember")),
        tooMany: await caught(() => control.Test(1)),
        noDisplay: await caught(() => control.DialogOpen()),
        noClass: await caught(() => client.create("NoSuchClass")),
      };
    });
    assert.equal(errors.overflow.number, 6);
    assert.equal(errors.overflow.description, "Overflow");
    assert.equal(errors.unknown.number, 438);
    assert.equal(errors.tooMany.number, 450);
    assert.equal(errors.noDisplay.number, 5);
    assert.match(errors.noDisplay.description, /DialogOpen shows a window/);
    assert.equal(errors.noClass.number, 429);
  } finally {
    await page.close();
  }
});

test("the page cannot delete the agent's session object", { timeout: 60_000 }, async () => {
  const page = await agent.openDemo();
  try {
    const answer = await page.evaluate(async () => {
      const { client } = await window.velmoraDemo.ready;
      // qwebchannel.js offers every published object's deleteLater; the agent must ignore it.
      const socket = new WebSocket(client.url);
      await new Promise((resolve) => socket.addEventListener("open", resolve));
      const session = await new Promise((resolve) => new QWebChannel(socket, (channel) => resolve(channel.objects.velmora)));
      session.deleteLater();
      const created = await session.create("Velmora5");
      socket.close();
      return created.ok;
    });
    assert.equal(answer, true);
  } finally {
    await page.close();
  }
});

test("a page from an origin not on the allowlist is refused", { timeout: 60_000 }, async () => {
  const foreign = await servePage(`<!doctype html><script>
    window.outcome = new Promise((resolve) => {
      const socket = new WebSocket("ws://127.0.0.1:${agent.wsPort}");
      let opened = false;
      socket.onopen = () => { opened = true; };
      socket.onclose = (event) => resolve({ opened, code: event.code });
    });</script>`);
  const page = await browser.newPage();
  try {
    await page.goto(foreign);
    const outcome = await page.evaluate(() => window.outcome);
    assert.equal(outcome.opened, false);
    await waitFor(() => agent.log.includes(`Origin "${foreign}" is not on the allowlist`), "the refusal in the log");
    assert.match(agent.log, /refused connection from 127\.0\.0\.1:\d+: Origin "http:\/\/127\.0\.0\.1:\d+" is not on the allowlist/);
  } finally {
    await page.close();
  }
});

test("a handshake through a name that is not loopback is refused", { timeout: 30_000 }, async () => {
  const origin = `Origin: ${agent.demoOrigin}`;
  assert.match(await rawHandshake(["Host: evil.example", origin]), /^HTTP\/1\.1 403/);
  await waitFor(() => agent.log.includes('Host "evil.example" is not a loopback name'), "the Host refusal in the log");
  assert.match(await rawHandshake([`Host: evil.example:${agent.wsPort}`, origin]), /^HTTP\/1\.1 403/);
  assert.match(await rawHandshake([`Host: 127.0.0.1:${agent.wsPort}`]), /^HTTP\/1\.1 403/, "no Origin at all");
  // The same handshake through a loopback name goes through: the refusals were the door's.
  assert.match(await rawHandshake([`Host: localhost:${agent.wsPort}`, origin]), /^HTTP\/1\.1 101/);
});

test("the demo server serves its own files only", { timeout: 30_000 }, async () => {
  assert.equal(await rawGet("/demo/index.html"), 200);
  assert.equal(await rawGet("/velmora.js"), 200);
  assert.equal(await rawGet("/qwebchannel.js"), 200);
  assert.equal(await rawGet("/quill/quill.js"), 200);
  assert.equal(await rawGet("/demo/%2e%2e/%2e%2e/CMakeLists.txt"), 404);
  assert.equal(await rawGet("/quill/../../package.json"), 404);
  assert.equal(await rawGet("/package.json"), 404);
  assert.equal(await rawGet("/demo/index.html", "evil.example"), 403);
});

test("a page that goes takes its controls and working folder with it", { timeout: 60_000 }, async () => {
  const page = await agent.openDemo();
  const name = page.sessionName;
  assert.ok(agent.pageFolders().includes(name), `the page's working folder ${name} exists while it is open`);
  await page.close();
  await waitFor(() => agent.log.includes(`page ${name} closed`), "the page to close");
  await waitFor(() => !agent.pageFolders().includes(name), "the page's working folder to go");
});

test("stopping the agent closes the pages still open and deletes their folders", { timeout: 60_000 }, async () => {
  const page = await agent.openDemo();
  await waitFor(() => agent.pageFolders().length > 0, "an open page's folder");
  assert.equal(await agent.stop(), 0);
  assert.deepEqual(agent.pageFolders(), []);
  await page.close();
});

// A display and xdotool are there when the tests run under Xvfb (scripts/test.sh).
const hasDisplay = Boolean(process.env.DISPLAY) && (() => {
  try { execFileSync("xdotool", ["version"], { stdio: "ignore" }); return true; } catch { return false; }
})();

test("a page that goes while its dialog is open is cleaned up once the dialog closes", {
  timeout: 90_000, skip: hasDisplay ? false : "needs an X display and xdotool",
}, async () => {
  const desktop = await new Agent({ display: true }).started();
  const owner = await desktop.openDemo();
  const other = await desktop.openDemo();
  await owner.evaluate(() => { velmoraDemo.ready.then(({ control }) => control.DialogOpen()); });
  const dialog = await waitFor(() => {
    try {
      return execFileSync("xdotool", ["search", "--onlyvisible", "--pid", String(desktop.process.pid)],
        { encoding: "utf8", timeout: 5000 }).trim().split("\n")[0];
    } catch { return ""; }
  }, "the open dialog");

  // The dialog runs an event loop of its own: the agent keeps serving meanwhile.
  assert.equal(await other.evaluate(async () => (await velmoraDemo.ready).control.get("Version")), "5.1.0.0");
  assert.equal(await owner.evaluate(async () => (await velmoraDemo.ready).control.Test()), "Velmora");

  // The page goes while its DialogOpen is still on the agent's stack: its session waits.
  await owner.close();
  await waitFor(() => desktop.log.includes(`page ${owner.sessionName} closed`), "the page to close");
  assert.ok(desktop.pageFolders().includes(owner.sessionName));

  // The agent's visible windows may include short-lived ones besides the dialog: press
  // Escape in each until the dialog is gone, looking them up again on every try.
  await waitFor(() => {
    let windows = [dialog];
    try {
      windows = execFileSync("xdotool", ["search", "--onlyvisible", "--pid", String(desktop.process.pid)],
        { encoding: "utf8", timeout: 5000 }).trim().split("\n").filter(Boolean);
    } catch { /* none visible any more */ }
    for (const window of windows) {
      try {
        execFileSync("xdotool", ["windowfocus", "--sync", window], { timeout: 5000, stdio: "ignore" });
        execFileSync("xdotool", ["key", "--window", window, "Escape"], { timeout: 5000, stdio: "ignore" });
      } catch { /* the window went meanwhile */ }
    }
    return !desktop.pageFolders().includes(owner.sessionName);
  }, "the gone page's folder to be deleted", 30_000);
  assert.ok(desktop.pageFolders().includes(other.sessionName), "the other page keeps its folder");
  assert.equal(await other.evaluate(async () => (await velmoraDemo.ready).control.Test()), "Velmora");
  await other.close();
  assert.equal(await desktop.stop(), 0);
});
