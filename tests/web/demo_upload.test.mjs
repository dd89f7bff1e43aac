// The demo's Local upload end to end: the agent in demo mode starts its own receiver, the
// demo page in headless Chromium puts a local picture into the editor, and the editor ends
// up showing the receiver's copy; without the receiver the demo still runs.
import assert from "node:assert/strict";
import { existsSync, mkdirSync, readFileSync, readdirSync, writeFileSync } from "node:fs";
import path from "node:path";
import { test } from "node:test";

import { DemoAgent, PICTURE, act, loadedPictures, repo } from "./demo-agent.mjs";

test("Local upload puts the receiver's copy of a local picture into the editor", async () => {
  const agent = await new DemoAgent().started();
  const { receiverUrl, storage } = agent;
  const picture = path.join(agent.scratch, "my pictures", "red.png");  // a space, as "%20" in its address
  mkdirSync(path.dirname(picture));
  writeFileSync(picture, PICTURE);

  await agent.onDemo(async (page) => {
    await page.waitForSelector("#local-upload-panel", { state: "visible" });
    await page.fill("#local-path", picture);
    await page.click("#local-insert");
    assert.equal(await page.getAttribute("#editor img", "src"), `file://${picture.replaceAll(" ", "%20")}`);
    const result = await act(page, "#local-upload", "#local-upload-result");
    assert.deepEqual(result, { outcome: "ok", text: "Uploaded red.png" });
    const [shown] = await loadedPictures(page, 1);
    assert.match(shown.src, new RegExp(`^${receiverUrl}/files/`));
    assert.deepEqual([shown.width, shown.height], [3, 2]);
    assert.equal(await page.textContent("#error"), '""');
    assert.deepEqual(readdirSync(storage).map((name) => readFileSync(path.join(storage, name))), [PICTURE]);
  });

  assert.equal(await agent.stop(), 0);
  assert.ok(!existsSync(storage), "the receiver's storage goes with the agent");
  await assert.rejects(fetch(`${receiverUrl}/files/`), "the receiver stops with the agent");
});

test("without its receiver the demo still runs, with no Local upload", async () => {
  const agent = await new DemoAgent(["--receiver", path.join(repo, "no-such-receiver")]).started();
  assert.match(agent.log, /the demo runs without its upload receiver: cannot run .*no-such-receiver/);
  await agent.onDemo(async (page) => {
    assert.equal(await page.evaluate(async () => (await window.velmoraDemo.ready).control.Test()), "Velmora");
    await page.waitForSelector('#local-upload-panel[data-state="no-receiver"]', { state: "attached" });
    assert.equal(await page.isHidden("#local-upload-panel"), true);
  });
});
