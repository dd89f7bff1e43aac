// The demo page's Import Excel and Import PowerPoint end to end, in headless Chromium against
// the agent in demo mode: the sample workbook and presentation (under names with a space) go
// through the agent's office helper, their pictures to the agent's receiver, into the editor.
import assert from "node:assert/strict";
import { copyFileSync } from "node:fs";
import path from "node:path";
import { before, test } from "node:test";

import { DemoAgent, act, loadedPictures, repo } from "./demo-agent.mjs";

const sample = (name) => path.join(repo, "tests/data/office", name);
const editorText = (page) => page.evaluate(() => document.querySelector("#editor").innerText);

let agent;
before(async () => { agent = await new DemoAgent().started(); });

// Types a path and leaves the field, as a person does; answers the outcome its line shows.
async function typePath(page, field, typed, result) {
  await page.$eval(result, (line) => { line.dataset.outcome = "busy"; });
  await page.fill(field, typed);
  await page.press(field, "Tab");
  await page.waitForSelector(`${result}:is([data-outcome="ok"], [data-outcome="error"])`);
  return page.$eval(result, (line) => line.textContent);
}

const sheetChoices = (page) => page.$$eval("#sheets-sheet option", (options) => options.map((o) => o.text));

test("Import Excel lists the sheets, and brings one sheet or all of them in as HTML or pictures", async () => {
  const file = path.join(agent.scratch, "Budget 2026.xlsx");
  copyFileSync(sample("workbook.xlsx"), file);
  await agent.onDemo(async (page) => {
    await page.waitForSelector("#sheets-panel", { state: "visible" });
    assert.equal(await typePath(page, "#sheets-path", file, "#sheets-result"),
      "Budget 2026.xlsx has 4 sheet(s): import one, or all.");
    assert.deepEqual(await sheetChoices(page), ["All sheets", "Prices", "Hidden", "Empty", "Notes"]);

    const imports = [["Prices", "html", "sheet Prices, as HTML, 1 picture(s) uploaded", 1],
      ["All sheets", "html", "all sheets, as HTML, 1 picture(s) uploaded", 2],
      ["All sheets", "img", "all sheets, as pictures, 2 picture(s) uploaded", 4]];  // the sheets with content
    for (const [sheet, route, said, shown] of imports) {
      await page.selectOption("#sheets-sheet", { label: sheet });
      await page.selectOption("#sheets-route", route);
      assert.deepEqual(await act(page, "#sheets-run", "#sheets-result"),
        { outcome: "ok", text: `Imported Budget 2026.xlsx, ${said}`, word: "Status ok" });
      for (const picture of await loadedPictures(page, shown))
        assert.match(picture.src, new RegExp(`^${agent.receiverUrl}/files/`));
    }
    const text = await editorText(page);
    for (const expected of ["Price list", "3.50 EUR", "价格 notes"]) assert.ok(text.includes(expected), expected);
    assert.ok(!text.includes("secret"), "the hidden sheet stays out of all sheets");

    await page.fill("#sheets-path", path.join(agent.scratch, "missing.xlsx"));
    assert.deepEqual(await act(page, "#sheets-run", "#sheets-result"), { outcome: "error",
      text: "missing.xlsx does not exist, or cannot be read.", word: "InvalidFile:xls|xlsx|et" });
    assert.deepEqual(await sheetChoices(page), ["All sheets"]);
  });
});

test("Import PowerPoint brings every slide in as a picture, at its own size or a width", async () => {
  const file = path.join(agent.scratch, "Team talk.pptx");
  copyFileSync(sample("slides.pptx"), file);
  await agent.onDemo(async (page) => {
    await page.waitForSelector("#slides-panel", { state: "visible" });
    await page.fill("#slides-path", file);
    for (const [width, size, all] of [["", "1058 x 595", 12], ["400", "400 x 225", 24]]) {
      await page.fill("#slides-width", width);
      assert.deepEqual(await act(page, "#slides-run", "#slides-result"),
        { outcome: "ok", text: "Imported Team talk.pptx, 12 slide(s) uploaded", word: "Status ok" });
      const shown = await loadedPictures(page, all);
      assert.equal(shown.filter((picture) => `${picture.width} x ${picture.height}` === size).length, 12, size);
    }

    const refusals = [["/home/u/budget.xlsx", "", "That is not a presentation: .ppt, .pptx or .dps.", ""],
      [file, "2.5", "Give the width as a whole number of pixels, or leave it empty for the slides' own size.", ""],
      [path.join(agent.scratch, "missing.pptx"), "", "missing.pptx does not exist, or cannot be read.",
        "InvalidFile:ppt|pptx|dps"]];
    for (const [typed, width, text, word] of refusals) {
      await page.fill("#slides-path", typed);
      await page.fill("#slides-width", width);
      assert.deepEqual(await act(page, "#slides-run", "#slides-result"), { outcome: "error", text, word }, typed);
    }
  });
});
