// The agent end to end: the real agent in demo mode, its demo page in headless Chromium,
// the WebSocket door, and what a page leaves behind when it goes.
import assert from "node:assert/strict";
import { spawn } from "node:child_process";
import { existsSync, mkdtempSync, readdirSync, rmSync } from "node:fs";
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

const CHROMIUM_ARGS = ["--headless", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
  "--disable-background-networking", "--disable-component-update", "--disable-sync"];

const scratch = mkdtempSync(path.join(tmpdir(), "velmora-e2e-"));
const workRoot = path.join(scratch, "Velmora");
let agent;            // the child process
let agentLog = "";    // everything it wrote to stderr
let agentExited;      // resolves with its exit code
let wsPort;
let demoOrigin;
let browser;
const servers = [];

// Nothing may hang: whatever is still running after this long is killed and the run fails.
const watchdog = setTimeout(() => {
  console.error("agent_e2e: timed out; agent log:\n" + agentLog);
  agent?.kill("SIGKILL");
  process.exit(1);
}, 160_000);
watchdog.unref();

function waitFor(check, what, timeoutMs = 10_000) {
  return new Promise((resolve, reject) => {
    const started = Date.now();
    const poll = () => {
      const value = check();
      if (value) return resolve(value);
      if (Date.now() - started > timeoutMs) return reject(new Error(`timed out waiting for ${what}\nagent log:\n${agentLog}`));
      setTimeout(poll, 50);
    };
    poll();
  });
}

function startAgent() {
  const env = { ...process.env, TMPDIR: scratch, QT_QPA_PLATFORM: "offscreen", XDG_RUNTIME_DIR: scratch };
  delete env.DISPLAY;
  delete env.WAYLAND_DISPLAY;
  agent = spawn(agentPath, ["--demo", "--port", "0", "--http-port", "0", "--web-root", webRoot],
    { env, stdio: ["ignore", "ignore", "pipe"] });
  agent.stderr.setEncoding("utf8");
  agent.stderr.on("data", (text) => { agentLog += text; if (process.env.E2E_TRACE) process.stderr.write(`[${Date.now() % 100000}] ${text}`); });
  agentExited = new Promise((resolve) => agent.on("exit", (code, signal) => resolve(code ?? signal)));
}

async function stopAgent() {
  if (!agent || agent.exitCode !== null || agent.signalCode !== null) return;
  agent.kill("SIGTERM");
  const stopped = await Promise.race([agentExited, new Promise((r) => setTimeout(() => r("timeout"), 5000))]);
  if (stopped === "timeout") agent.kill("SIGKILL");
}

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
    const socket = net.connect(wsPort, "127.0.0.1");
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
function rawGet(requestPath, host = `127.0.0.1:${new URL(demoOrigin).port}`) {
  return new Promise((resolve, reject) => {
    const request = http.get({ host: "127.0.0.1", port: new URL(demoOrigin).port, path: requestPath,
      headers: { Host: host }, timeout: 5000, agent: false }, (response) => {
      response.resume();
      resolve(response.statusCode);
    });
    request.on("timeout", () => request.destroy(new Error("no answer")));
    request.on("error", reject);
  });
}

function pageFolders() {
  return existsSync(workRoot) ? readdirSync(workRoot).filter((name) => name.startsWith("page-")) : [];
}

async function openDemo() {
  const page = await browser.newPage();
  page.setDefaultTimeout(15_000);
  await page.goto(`${demoOrigin}/`);
  await page.evaluate(() => window.velmoraDemo.ready.then(() => true));
  return page;
}

before(async () => {
  assert.ok(existsSync(agentPath), `the agent is not built: ${agentPath}`);
  startAgent();
  const listening = await waitFor(() => agentLog.match(/listening on ws:\/\/127\.0\.0\.1:(\d+)/), "the agent to listen");
  wsPort = Number(listening[1]);
  demoOrigin = (await waitFor(() => agentLog.match(/demo page on (http:\/\/127\.0\.0\.1:\d+)\//), "the demo server"))[1];
  browser = await chromium.launch({ executablePath: "/usr/bin/chromium", args: CHROMIUM_ARGS, timeout: 30_000 });
});

after(async () => {
  await browser?.close().catch(() => {});
  await stopAgent();
  for (const server of servers) server.close();
  rmSync(scratch, { recursive: true, force: true });
  clearTimeout(watchdog);
});

test("the demo page creates a control and reads it through the agent", { timeout: 60_000 }, async () => {
  const page = await openDemo();
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
    assert.equal(await page.textContent("#status"), '""');
  } finally {
    await page.close();
  }
});

test("failed calls reach the page with their automation error", { timeout: 60_000 }, async () => {
  const page = await openDemo();
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
  const page = await openDemo();
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
      const socket = new WebSocket("ws://127.0.0.1:${wsPort}");
      let opened = false;
      socket.onopen = () => { opened = true; };
      socket.onclose = (event) => resolve({ opened, code: event.code });
    });</script>`);
  const page = await browser.newPage();
  try {
    await page.goto(foreign);
    const outcome = await page.evaluate(() => window.outcome);
    assert.equal(outcome.opened, false);
    await waitFor(() => agentLog.includes(`Origin "${foreign}" is not on the allowlist`), "the refusal in the log");
    assert.match(agentLog, /refused connection from 127\.0\.0\.1:\d+: Origin "http:\/\/127\.0\.0\.1:\d+" is not on the allowlist/);
  } finally {
    await page.close();
  }
});

test("a handshake through a name that is not loopback is refused", { timeout: 30_000 }, async () => {
  const origin = `Origin: ${demoOrigin}`;
  assert.match(await rawHandshake(["Host: evil.example", origin]), /^HTTP\/1\.1 403/);
  await waitFor(() => agentLog.includes('Host "evil.example" is not a loopback name'), "the Host refusal in the log");
  assert.match(await rawHandshake([`Host: evil.example:${wsPort}`, origin]), /^HTTP\/1\.1 403/);
  assert.match(await rawHandshake([`Host: 127.0.0.1:${wsPort}`]), /^HTTP\/1\.1 403/, "no Origin at all");
  // The same handshake through a loopback name goes through: the refusals were the door's.
  assert.match(await rawHandshake([`Host: localhost:${wsPort}`, origin]), /^HTTP\/1\.1 101/);
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
  const page = await openDemo();
  const name = (await waitFor(() => [...agentLog.matchAll(/page (page-\d+-\d+) opened/g)].at(-1), "the page to open"))[1];
  assert.ok(pageFolders().includes(name), `the page's working folder ${name} exists while it is open`);
  await page.close();
  await waitFor(() => agentLog.includes(`page ${name} closed`), "the page to close");
  await waitFor(() => !pageFolders().includes(name), "the page's working folder to go");
});

test("stopping the agent closes the pages still open and deletes their folders", { timeout: 60_000 }, async () => {
  const page = await openDemo();
  await waitFor(() => pageFolders().length > 0, "an open page's folder");
  await stopAgent();
  assert.equal(await agentExited, 0);
  assert.deepEqual(pageFolders(), []);
  await page.close();
});
