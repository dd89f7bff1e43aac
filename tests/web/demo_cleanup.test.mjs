// The demo's clean-up box end to end: copied Word HTML is pasted into the box in headless
// Chromium, the agent's demo server cleans it, and the editor shows the text without Word's
// private markup while the page lists the rules that changed it, as `velmora clean` does.
import assert from "node:assert/strict";
import { execFileSync } from "node:child_process";
import { readFileSync, writeFileSync } from "node:fs";
import path from "node:path";
import { test } from "node:test";

import { DemoAgent, act, repo } from "./demo-agent.mjs";

const cliPath = process.env.VELMORA_CLI || path.join(repo, "build/velmora");

// What Word puts on the clipboard, as the browser hands it to a page: the HTML without its header.
const fixture = readFileSync(path.join(repo, "tests/data/word/clipboard_format.txt"), "utf8");
const COPIED_FROM_WORD = fixture.slice(fixture.indexOf("<html")).replaceAll("\r\n", "\n");

test("the clean-up box cleans pasted Word HTML into the editor and lists the rules", async () => {
  const agent = await new DemoAgent().started();
  await agent.onDemo(async (page) => {
    await page.waitForSelector("#cleanup-panel", { state: "visible" });
    // A paste as the browser delivers one after "Copy" in an office program: HTML and plain text.
    await page.evaluate((copied) => {
      const data = new DataTransfer();
      data.setData("text/html", copied);
      data.setData("text/plain", "Energy is, as Einstein said.");
      const box = document.getElementById("cleanup-html");
      box.focus();
      box.dispatchEvent(new ClipboardEvent("paste", { clipboardData: data, bubbles: true, cancelable: true }));
    }, COPIED_FROM_WORD);
    assert.equal(await page.inputValue("#cleanup-html"), COPIED_FROM_WORD);
    assert.equal(await page.inputValue("#cleanup-source"), "paste");

    await page.selectOption("#cleanup-engine", "word");
    await page.selectOption("#cleanup-mode", "2");
    await page.check('#cleanup-switches input[name="opt2table"]');
    assert.equal(await page.inputValue("#cleanup-opt"), "optimizemode:2;opt2table:1");
    await page.uncheck('#cleanup-switches input[name="opt2table"]');
    const { text } = await act(page, "#cleanup-run", "#cleanup-result");
    assert.match(text, /^Cleaned with word, optimizemode:2: \d+ rule\(s\) changed/);
    const shown = await page.evaluate(async () => {
      const { editor } = await window.velmoraDemo.ready;
      return { text: editor.getText(), html: editor.root.innerHTML };
    });
    assert.match(shown.text, /Energy is[\s\S]*Second paragraph/);
    assert.doesNotMatch(shown.html, /mso-|\[if/);

    // The page lists the rules `velmora clean --trace` reports for the same text and choices.
    const file = path.join(agent.scratch, "copied.html");
    writeFileSync(file, COPIED_FROM_WORD);
    const cli = JSON.parse(execFileSync(cliPath,
      ["clean", "--engine", "word", "--source", "paste", "--opt", "optimizemode:2", "--trace", file],
      { env: { ...process.env, TMPDIR: agent.scratch } }));
    const listed = await page.$$eval("#cleanup-trace li", (items) => items.map((item) => item.textContent));
    assert.ok(listed.length > 0);
    assert.deepEqual(listed, cli.trace.map(({ rule, change }) => `${rule} ${change > 0 ? "+" : ""}${change}`));
    assert.equal(await page.textContent("#cleanup-body-text"), cli.Body);
  });
});
