// The demo page as a person meets it, in headless Chromium through the real agent: what it
// says without a display, the sentences beside the control's words, nothing lost in the
// editor, and a page that reconnects when the agent comes back. Screenshots of its states
// go to build/tests/screenshots for a person to look at.
import assert from "node:assert/strict";
import { mkdirSync, writeFileSync } from "node:fs";
import net from "node:net";
import path from "node:path";
import { before, test } from "node:test";

import { DemoAgent, PICTURE, act, loadedPictures, repo, waitFor } from "./demo-agent.mjs";

const screenshots = path.join(repo, "build/tests/screenshots");
mkdirSync(screenshots, { recursive: true });
const shoot = (page, name) => page.screenshot({ path: path.join(screenshots, `demo-${name}.png`), fullPage: true });

let agent;  // without a display, as on a server or over SSH
before(async () => { agent = await new DemoAgent().started(); });

test("without a display the agent and the page say why the clipboard and dialogs cannot work", async () => {
  assert.match(agent.log, /no desktop display: paste, the clipboard, dialogs and capture tell pages/);
  await agent.onDemo(async (page) => {
    await page.waitForSelector("#no-display", { state: "visible" });
    await page.waitForSelector("#paste-panel", { state: "visible" });
    await shoot(page, "loaded-without-display");
    const said = "This needs the desktop (its clipboard or a window), and the Velmora agent runs without a display: " +
      "start it in your desktop session, or on a virtual X server (Xvfb).";
    for (const [button, result] of [['button[data-action="Clipboard"]', "#actions-result"],
      ['button[data-action="Open dialog"]', "#actions-result"], ["#paste-image", "#paste-result"]])
      assert.deepEqual(await act(page, button, result), { outcome: "error", text: said, word: "error 5" }, button);
    await shoot(page, "after-an-error");
  });
});

test("each mistake with a movie's path gets its own sentence, and a movie its size", async () => {
  const movie = path.join(agent.scratch, "movie.swf");
  writeFileSync(movie, Buffer.from("4657530a400000007800055f00000fa000", "hex"));
  const notAMovie = path.join(agent.scratch, "renamed.swf");
  writeFileSync(notAMovie, "plain words");
  await agent.onDemo(async (page) => {
    await page.waitForSelector("#paste-panel", { state: "visible" });
    for (const [typed, outcome, text, word] of [
      ["", "error", "Give the path of a Flash movie (.swf) first.", ""],
      ["movie.swf", "error", "Give the movie's absolute path (/home/you/movie.swf), not an address.", ""],
      ["/home/u/picture.png", "error", "That is not a Flash movie: its name must end in .swf.", ""],
      [path.join(agent.scratch, "missing.swf"), "error", "missing.swf cannot be read, or does not exist.",
        "InvalidFile:swf"],
      [notAMovie, "error", "renamed.swf is not a Flash movie Velmora can read.", ""],
      [movie, "ok", "The movie is 550 × 400 pixels", "550|400"]]) {
      await page.fill("#flash-path", typed);
      assert.deepEqual(await act(page, "#flash-header", "#paste-result"), { outcome, text, word }, typed);
    }
  });
});

test("the clean-up box adds to what the editor holds, and says what is wrong before sending", async () => {
  const picture = path.join(agent.scratch, "kept.png");
  writeFileSync(picture, PICTURE);
  await agent.onDemo(async (page) => {
    await page.waitForSelector("#cleanup-panel", { state: "visible" });
    await page.fill("#local-path", picture);
    await page.click("#local-insert");
    assert.equal((await act(page, "#local-upload", "#local-upload-result")).outcome, "ok");
    const [uploaded] = await loadedPictures(page, 1);

    for (const [html, options, text] of [["", "optimizemode:2", "Paste (or type) Word or Excel HTML into the box first."],
      ["<p>x</p>", "optimizemode:2;nonsense:1", 'The word clean-up has no option "nonsense"; use the check boxes, ' +
        "or write key:1 pairs separated by semicolons."]]) {
      await page.fill("#cleanup-html", html);
      await page.fill("#cleanup-opt", options);
      assert.deepEqual(await act(page, "#cleanup-run", "#cleanup-result"), { outcome: "error", text, word: "" });
    }
    await page.fill("#cleanup-html", "<p class=MsoNormal>Added <b>text</b><o:p></o:p></p>");
    await page.fill("#cleanup-opt", "optimizemode:2");
    const cleaned = await act(page, "#cleanup-run", "#cleanup-result");
    assert.match(cleaned.text, /inserted at the cursor/);
    assert.match(await page.evaluate(() => document.querySelector("#editor").innerText), /Added text/);
    const [kept] = await loadedPictures(page, 1);
    assert.equal(kept.src, uploaded.src, "the uploaded picture is still there");
    await page.setViewportSize({ width: 800, height: 900 });
    await shoot(page, "after-an-action-narrow");
  });
});

// A port nothing listens on now.
async function freePort() {
  const server = net.createServer().listen(0, "127.0.0.1");
  await new Promise((resolve) => server.once("listening", resolve));
  const { port } = server.address();
  await new Promise((resolve) => server.close(resolve));
  return port;
}

test("the page says when the agent stops, and reconnects by itself when it is back", async () => {
  const ports = ["--port", String(await freePort()), "--http-port", String(await freePort())];
  const first = await new DemoAgent(ports).started();
  const page = await first.openDemo();
  try {
    await first.stop();
    await page.waitForSelector('#connection[data-state="failed"]');
    assert.equal(await page.textContent("#connection"),
      "The Velmora agent stopped; start it again and the page reconnects.");
    await shoot(page, "agent-stopped");
    const second = await new DemoAgent(ports).started();
    await page.waitForSelector('#connection[data-state="connected"]', { timeout: 30_000 });
    assert.deepEqual(await act(page, 'button[data-action="Test"]', "#actions-result"),
      { outcome: "ok", text: "The control answers: Velmora", word: "" });
    await waitFor(() => second.log.includes("opened"), "the page's new session");
  } finally {
    await page.close();
  }
});
