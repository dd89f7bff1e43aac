// The demo's clean-up box end to end: copied Word HTML is pasted into the box in headless
// Chromium, the agent's demo server cleans it, and the editor shows the text without Word's
// private markup while the page lists the rules that changed it, as `velmora clean` does.
import assert from "node:assert/strict";
import { execFileSync } from "node:child_process";
import { writeFileSync } from "node:fs";
import path from "node:path";
import { test } from "node:test";

import { DemoAgent, act, repo } from "./demo-agent.mjs";

const cliPath = process.env.VELMORA_CLI || path.join(repo, "build/velmora");

// What Word puts on the clipboard for a heading and a numbered list item, shortened.
const COPIED_FROM_WORD = `<html xmlns:o="urn:schemas-microsoft-com:office:office" xmlns:w="urn:schemas-microsoft-com:office:word">
<head>
<meta http-equiv=Content-Type content="text/html; charset=utf-8">
<meta name=ProgId content=Word.Document>
<!--[if gte mso 9]><xml>
 <w:WordDocument><w:View>Print</w:View><w:Zoom>100</w:Zoom></w:WordDocument>
</xml><![endif]-->
<style>
p.MsoNormal, li.MsoNormal { mso-style-parent:""; margin:0cm; font-size:12.0pt; font-family:"Calibri",sans-serif; }
@page WordSection1 { size:595.3pt 841.9pt; margin:72.0pt 90.0pt 72.0pt 90.0pt; mso-header-margin:35.4pt; }
</style>
</head>
<body lang=EN-GB style='tab-interval:36.0pt'>
<!--StartFragment-->
<p class=MsoNormal><b><span style='mso-bidi-font-size:11.0pt'>Quarterly report</span></b><o:p></o:p></p>
<p class=MsoListParagraph style='text-indent:-18.0pt;mso-list:l0 level1 lfo1'><![if !supportLists]><span style='mso-list:Ignore'>1.<span style='font:7.0pt "Times New Roman"'>&nbsp;&nbsp;&nbsp; </span></span><![endif]>Sales grew by 12%.<o:p></o:p></p>
<!--[if gte mso 10]><p>Only Word shows this</p><![endif]-->
<!--EndFragment-->
</body>
</html>`;

test("the clean-up box cleans pasted Word HTML into the editor and lists the rules", async () => {
  const agent = await new DemoAgent().started();
  await agent.onDemo(async (page) => {
    await page.waitForSelector("#cleanup-panel", { state: "visible" });
    // A paste as the browser delivers one after "Copy" in an office program: HTML and plain text.
    await page.evaluate((copied) => {
      const data = new DataTransfer();
      data.setData("text/html", copied);
      data.setData("text/plain", "Quarterly report\n1. Sales grew by 12%.");
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
    assert.equal(shown.text.replace(/\s+/g, " ").trim(), "Quarterly report 1. Sales grew by 12%.");
    assert.doesNotMatch(shown.html, /mso-|\[if|Only Word shows this/);

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
