// The agent end to end: the real agent in demo mode, its demo page in headless Chromium,
// the WebSocket door, and what a page leaves behind when it goes.
import assert from "node:assert/strict";
import { execFileSync } from "node:child_process";
import { existsSync, mkdirSync, writeFileSync } from "node:fs";
import net from "node:net";
import path from "node:path";
import { before, test } from "node:test";

import { DemoAgent, PICTURE, act, waitFor } from "./demo-agent.mjs";

let agent;  // the offscreen agent most tests talk to
before(async () => { agent = await new DemoAgent().started(); });

test("the demo page drives a control through the agent and gets its results and errors", async () => {
  await agent.onDemo(async (page) => {
    assert.deepEqual(await act(page, 'button[data-action="Test"]', "#actions-result"),
      { outcome: "ok", text: "The control answers: Velmora", word: "" });
    const seen = await page.evaluate(async () => {
      const { client, control } = await window.velmoraDemo.ready;
      const caught = (work) => work().then(() => "no error", (error) => `${error.number} ${error.description}`);
      const v = await client.create("Velmora5");
      const setterErrors = [];
      v.addEventListener("error", (error) => setterErrors.push(error.number));
      v.LocalSize = "99999999999";  // overflows: the setter's failure goes to "error" listeners
      await v.LocalUpload('<p>no pictures</p><a href="file:///home/u/doc.html#part2">see</a>');
      const { Status, Error, Body, OriginalFiles } = await v.whenDone({ timeoutMs: 10_000 });
      await v.release();
      // qwebchannel.js offers every published object's deleteLater; the agent must ignore it.
      const socket = new WebSocket(client.url);
      await new Promise((resolve) => socket.addEventListener("open", resolve));
      const session = await new Promise((resolve) => new QWebChannel(socket, (c) => resolve(c.objects.velmora)));
      session.deleteLater();
      const afterDelete = (await session.create("Velmora5")).ok;
      // A message that is not the channel's JSON ends the connection that sent it, not the agent.
      const closed = new Promise((resolve) => socket.addEventListener("close", (event) => resolve(event.code)));
      socket.send("this is not JSON");
      return {
        version: control.Version, className: control.className, done: { Status, Error, Body, OriginalFiles },
        setterErrors, writeOnly: v.SendUrl, afterDelete, notJson: await closed, stillThere: await control.Test(),
        overflow: await caught(() => control.put("LocalSize", "1e12")),
        noClass: (await caught(() => client.create("X"))).split(" ")[0],
      };
    });
    assert.deepEqual(seen, {
      version: "5.1.0.0", className: "Velmora5", setterErrors: [6], writeOnly: undefined, afterDelete: true,
      notJson: 1002, stillThere: "Velmora",
      done: { Status: "ok", Error: "", Body: '<p>no pictures</p><a href="#part2">see</a>', OriginalFiles: "" },
      overflow: "6 Overflow", noClass: "429",
    });
  });
});

test("an upload that ends after the call reaches the page without polling", async () => {
  const picture = path.join(agent.scratch, "pictures", "a.png");
  mkdirSync(path.dirname(picture));
  writeFileSync(picture, PICTURE);
  await agent.onDemo(async (page) => {
    const { receiverUrl } = agent;
    const result = await page.evaluate(async ({ receiverUrl, picture }) => {
      const v = await (await window.velmoraDemo.ready).client.create("Velmora5");
      v.SendUrl = `${receiverUrl}/upload?editor=demo`;
      v.LocalExt = "png|jpg";
      v.LocalSize = "100";
      await v.LocalUpload(`<p><img src="file://${picture}"></p>`);
      const statusAfterCall = v.Status;
      // Only the agent's own report can end this wait: the fallback poll is out of reach.
      return { statusAfterCall, ...(await v.whenDone({ timeoutMs: 20_000, pollMs: 600_000 })) };
    }, { receiverUrl, picture });
    assert.match(result.SavedFiles, new RegExp(`^${receiverUrl}/files/`));
    const { statusAfterCall, Error, OriginalFiles, Body } = result;  // the upload goes on after the call
    assert.deepEqual({ statusAfterCall, Error, OriginalFiles, Body },
      { statusAfterCall: "", Error: "", OriginalFiles: "a.png", Body: `<p><img src="${result.SavedFiles}"></p>` });
  });
});

// Sends a request head to `port` exactly as given and answers the status line that comes back.
function statusLine(port, head) {
  return new Promise((resolve, reject) => {
    const socket = net.connect(port, "127.0.0.1");
    let answer = "";
    socket.setTimeout(5000, () => socket.destroy(new Error("no answer")));
    socket.on("connect", () => socket.write([...head, "", ""].join("\r\n")));
    socket.on("data", (chunk) => { answer += chunk; if (answer.includes("\r\n")) socket.destroy(); });
    socket.on("close", () => resolve(answer.split("\r\n")[0]));
    socket.on("error", reject);
  });
}

test("the doors let in only loopback names and the demo's own files", async () => {
  const origin = `Origin: ${agent.demoOrigin}`;
  const host = `Host: 127.0.0.1:${agent.wsPort}`;
  for (const [headers, status] of [[["Host: evil.example", origin], 403],
    [[`Host: evil.example:${agent.wsPort}`, origin], 403], [[host], 403], [[host, "Origin: http://evil.example"], 403],
    [[`Host: localhost:${agent.wsPort}`, origin], 101]]) {
    const answer = await statusLine(agent.wsPort, ["GET / HTTP/1.1", ...headers, "Upgrade: websocket",
      "Connection: Upgrade", "Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==", "Sec-WebSocket-Version: 13"]);
    assert.match(answer, new RegExp(`^HTTP/1\\.1 ${status}`), headers.join(", "));
  }
  assert.match(agent.log, /Host "evil.example" is not a loopback name/);
  assert.match(agent.log, /refused connection from 127\.0\.0\.1:\d+: Origin "http:\/\/evil.example" is not on the/);
  const demoPort = new URL(agent.demoOrigin).port;
  for (const [requestPath, status, viaHost = `127.0.0.1:${demoPort}`] of [["/demo/index.html", 200],
    ["/velmora.js", 200], ["/qwebchannel.js", 200], ["/quill/quill.js", 200],
    ["/demo/%2e%2e/%2e%2e/CMakeLists.txt", 404], ["/quill/../../package.json", 404], ["/package.json", 404],
    ["/demo/index.html", 403, "evil.example"]]) {
    const answer = await statusLine(demoPort, [`GET ${requestPath} HTTP/1.1`, `Host: ${viaHost}`, "Connection: close"]);
    assert.match(answer, new RegExp(`^HTTP/1\\.1 ${status}`), `${requestPath} through ${viaHost}`);
  }
});

test("a page that goes takes its folder; the others keep theirs, files and all, until the agent stops", async () => {
  const gone = await agent.openDemo();
  const picture = path.join(agent.scratch, "Velmora", gone.sessionName, "picture.png");
  writeFileSync(picture, PICTURE);  // the page's folder exists while it is open
  const staying = await agent.openDemo();
  assert.ok(existsSync(picture), "another page's control leaves this page's files alone");
  await gone.close();
  await waitFor(() => !agent.pageFolders().includes(gone.sessionName), "the gone page's working folder to go");
  assert.ok(agent.pageFolders().includes(staying.sessionName));
  assert.equal(await agent.stop(), 0);
  assert.deepEqual(agent.pageFolders(), []);
  await staying.close();
});

// What xdotool says, or nothing when it fails. It and a display are there under Xvfb (scripts/test.sh).
const xdotool = (...args) => {
  try { return execFileSync("xdotool", args, { encoding: "utf8", timeout: 5000, stdio: "pipe" }); } catch { return ""; }
};

test("a page that goes while its dialog is open is cleaned up once the dialog closes", {
  skip: process.env.DISPLAY && xdotool("version") ? false : "needs an X display and xdotool",
}, async () => {
  const desktop = await new DemoAgent([], { display: true }).started();
  const windows = () =>
    xdotool("search", "--onlyvisible", "--pid", String(desktop.process.pid)).split("\n").filter(Boolean);
  const [owner, other] = [await desktop.openDemo(), await desktop.openDemo()];
  await owner.evaluate(() => { velmoraDemo.ready.then(({ control }) => control.DialogOpen()); });
  await waitFor(() => windows().length > 0, "the open dialog");

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
    for (const window of windows()) {
      xdotool("windowfocus", "--sync", window);  // the window may have gone meanwhile
      xdotool("key", "--window", window, "Escape");
    }
    return !desktop.pageFolders().includes(owner.sessionName);
  }, "the gone page's folder to be deleted", 30_000);
  assert.ok(desktop.pageFolders().includes(other.sessionName), "the other page keeps its folder");
  assert.equal(await other.evaluate(async () => (await velmoraDemo.ready).control.Test()), "Velmora");
  await other.close();
  assert.equal(await desktop.stop(), 0);
});
