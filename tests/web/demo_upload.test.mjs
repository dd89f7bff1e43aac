// The demo's uploads end to end: the agent in demo mode starts its own receiver, the demo
// page in headless Chromium puts a local picture (Local upload) or the X clipboard's
// picture (Paste picture) into the editor, and the editor ends up showing the receiver's
// copy.
import assert from "node:assert/strict";
import { existsSync, mkdirSync, readFileSync, readdirSync, writeFileSync } from "node:fs";
import path from "node:path";
import { test } from "node:test";

import { DemoAgent, PICTURE, loadedPictures, needsDisplay, ownClipboard, portRefuses, repo } from "./demo-agent.mjs";

test("Local upload puts the receiver's copy of a local picture into the editor", { timeout: 90_000 }, async () => {
  const agent = await new DemoAgent().started();
  const { receiverUrl, storage } = agent;
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
    const [shown] = await loadedPictures(page, 1);
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
  timeout: 90_000, skip: needsDisplay,
}, async () => {
  const agent = await new DemoAgent([], { display: true }).started();
  const { receiverUrl } = agent;
  const picture = path.join(agent.scratch, "copied.png");
  writeFileSync(picture, PICTURE);
  const owner = ownClipboard("image/png", picture);
  const page = await agent.openDemo();
  try {
    await page.waitForSelector("#paste-panel", { state: "visible" });
    await page.waitForFunction(async () => (await (await window.velmoraDemo.ready).control.GetClipboardFlag())
      .startsWith("1|"));
    await page.click("#paste-image");
    await page.waitForSelector('#paste-result:is([data-outcome="ok"], [data-outcome="error"])');
    assert.match(await page.textContent("#paste-result"), /^Pasted, uploaded /);
    const [shown] = await loadedPictures(page, 1);
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
