// The demo page's Import Word end to end, in headless Chromium against the agent in demo mode:
// a document the test writes goes through the agent's office helper (LibreOffice), its
// pictures to the agent's receiver, and the result into the editor.
import assert from "node:assert/strict";
import { execFileSync } from "node:child_process";
import { readdirSync } from "node:fs";
import path from "node:path";
import { before, test } from "node:test";

import { DemoAgent, act, loadedPictures, repo } from "./demo-agent.mjs";

const makeDocument = process.env.VELMORA_WORD_DOCUMENT || path.join(repo, "build/tests/word_document");

let agent;
before(async () => { agent = await new DemoAgent().started(); });

test("Import Word brings a document into the editor as HTML and as page pictures", async () => {
  const file = path.join(agent.scratch, "Quarterly report.docx");
  execFileSync(makeDocument, [file, "2", "3"]);  // two pages, three pictures, an equation
  await agent.onDemo(async (page) => {
    await page.waitForSelector("#import-panel", { state: "visible" });
    await page.fill("#import-path", file);

    const html = await act(page, "#import-run", "#import-result");
    assert.deepEqual(html, { outcome: "ok",
      text: "Imported Quarterly report.docx as HTML, 4 picture(s) uploaded", word: "Status ok" });
    const shown = await loadedPictures(page, 4);
    for (const picture of shown) assert.match(picture.src, new RegExp(`^${agent.receiverUrl}/files/`));
    assert.equal(shown.filter((picture) => picture.width === 640 && picture.height === 480).length, 3,
      "the three photos, and the equation as a picture");
    assert.match(await page.evaluate(() => document.querySelector("#editor").innerText), /Page 2/);

    await page.selectOption("#import-route", "pictures");
    const pictures = await act(page, "#import-run", "#import-result");
    assert.deepEqual(pictures, { outcome: "ok",
      text: "Imported Quarterly report.docx as page pictures, 2 picture(s) uploaded", word: "Status ok" });
    // The pages go in at the cursor: the document imported before stays.
    const all = await loadedPictures(page, 6);
    assert.equal(all.filter((shown) => shown.width === 1240 && shown.height === 1753).length, 2);

    const refusals = [["", "Give the path of a Word document (.doc, .docx or .wps), or choose it.", ""],
      ["report.docx", "Give the document's absolute path (/home/you/report.docx).", ""],
      ["/home/u/notes.txt", "That is not a Word document: .doc, .docx or .wps.", ""],
      [path.join(agent.scratch, "missing.docx"), "missing.docx does not exist, or cannot be read.",
        "InvalidFile:doc|docx|wps"]];
    for (const [typed, text, word] of refusals) {
      await page.fill("#import-path", typed);
      assert.deepEqual(await act(page, "#import-run", "#import-result"), { outcome: "error", text, word });
    }
  });
  assert.equal(readdirSync(agent.storage).length, 6, "three pictures and an equation, then two pages");
});
