// The demo page's panels end to end, in headless Chromium against the agent in demo mode: the
// paste actions (the clipboard_owner helper owns the X clipboard), Local upload and the clean-up
// box. Pictures go to the agent's receiver; the editor shows what the control produced.
import assert from "node:assert/strict";
import { execFileSync, spawn } from "node:child_process";
import { once } from "node:events";
import { existsSync, mkdirSync, readFileSync, readdirSync, writeFileSync } from "node:fs";
import http from "node:http";
import path from "node:path";
import { after, before, describe, test } from "node:test";

import { DemoAgent, PICTURE, act, agentPath, loadedPictures, needsDisplay, repo, waitFor } from "./demo-agent.mjs";

const clipboardOwnerPath = path.join(path.dirname(agentPath), "tests/clipboard_owner");
const cliPath = process.env.VELMORA_CLI || path.join(repo, "build/velmora");

let agent;
const owners = [];
before(async () => { agent = await new DemoAgent([], { display: !needsDisplay }).started(); });
after(() => { for (const owner of owners) owner.kill(); });

// Another program owns the X clipboard with `targets` (type: bytes), as a browser or a file
// manager does after "Copy": the clipboard_owner helper.
async function offer(targets) {
  assert.ok(existsSync(clipboardOwnerPath), `build the clipboard owner first: ninja -C build clipboard_owner`);
  const args = Object.entries(targets).map(([type, bytes], i) => {
    const file = path.join(agent.scratch, `target-${owners.length}-${i}`);
    writeFileSync(file, bytes);
    return `${type}=${file}`;
  });
  const owner = spawn(clipboardOwnerPath, args,
    { stdio: ["ignore", "pipe", "inherit"], env: { ...process.env, QT_QPA_PLATFORM: "xcb" } });
  owners.push(owner);
  let said = "";
  owner.stdout.setEncoding("utf8").on("data", (text) => { said += text; });
  await waitFor(() => said.includes("ready"), "the clipboard owner");
}

// Runs `work` on the demo page once the control sees a clipboard flag starting with `flag`
// (another program's "Copy" reaches this X client a moment later).
function onDemoSeeing(flag, work) {
  return agent.onDemo(async (page) => {
    await page.waitForSelector("#paste-panel", { state: "visible" });
    await page.waitForFunction(async (expected) =>
      (await (await window.velmoraDemo.ready).control.GetClipboardFlag()).startsWith(expected), flag);
    return work(page);
  });
}

const paste = (page, button) => act(page, `#${button}`, "#paste-result");
const editorText = (page) => page.evaluate(async () => (await window.velmoraDemo.ready).editor.getText());
const controlProperty = (page, name) => page.evaluate(async (property) =>
  (await window.velmoraDemo.ready).control.get(property), name);

const TABLE = "<table><tr><td>Apples</td><td>3</td></tr><tr><td>Pears</td><td>5</td></tr></table>";

describe("pasting from the X clipboard", { skip: needsDisplay }, () => {
  test("Paste HTML, files, picture and Excel put the copy in the editor, pictures through the receiver", async (t) => {
    const picture = path.join(agent.scratch, "copied page", "photo.png");  // a space, as "%20" in its address
    const notes = path.join(agent.scratch, "copied page", "notes.txt");
    mkdirSync(path.dirname(picture));
    writeFileSync(picture, PICTURE);
    writeFileSync(notes, "words, not a picture");
    const cases = [
      { name: "Paste HTML: a web selection with a file: picture", button: "paste-html", flag: "0|0|0|0|1|0",
        type: "text/html",
        bytes: `<meta charset='utf-8'><p>Seen <b>here</b>: <img src="file://${picture.replaceAll(" ", "%20")}"></p>`,
        check: async (page) => assert.match(await editorText(page), /Seen here:/) },
      { name: "Paste files: only the picture of the copied files arrives", button: "paste-files", flag: "0|0|0|1|0|0",
        type: "text/uri-list", bytes: `file://${encodeURI(picture)}\r\nfile://${encodeURI(notes)}\r\n`,
        check: async (page) => assert.doesNotMatch(await controlProperty(page, "Body"), /notes/) },
      { name: "Paste picture: the clipboard's own picture", button: "paste-image", flag: "1|", type: "image/png",
        bytes: PICTURE, said: /^Pasted; uploaded /, reencoded: true },
      { name: "Paste Excel: a copied table", button: "paste-excel", flag: "0|0|0|0|1|0", type: "text/html",
        bytes: `<meta charset='utf-8'>${TABLE}`, said: /^Pasted; no picture to upload$/, pictures: 0,
        check: async (page) => {
          assert.equal(await controlProperty(page, "Body"), TABLE);
          assert.match(await editorText(page), /Apples\s*3\s*Pears\s*5/);
        } },
    ];
    for (const c of cases) {
      await t.test(c.name, async () => {
        const storedBefore = readdirSync(agent.storage);
        await offer({ [c.type]: c.bytes });
        await onDemoSeeing(c.flag, async (page) => {
          const { outcome, text } = await paste(page, c.button);
          assert.equal(outcome, "ok", text);
          assert.match(text, c.said ?? /^Pasted; uploaded photo\.png/);
          for (const shown of await loadedPictures(page, c.pictures ?? 1)) {
            assert.match(shown.src, new RegExp(`^${agent.receiverUrl}/files/`));
            assert.deepEqual([shown.width, shown.height], [3, 2]);
          }
          await c.check?.(page);
        });
        const stored = readdirSync(agent.storage).filter((name) => !storedBefore.includes(name));
        assert.equal(stored.length, c.pictures ?? 1);
        if (stored.length && !c.reencoded) assert.deepEqual(readFileSync(path.join(agent.storage, stored[0])), PICTURE);
      });
    }
  });

  test("Quick format gives the editor the copied page around the piece, its style sheet inline", async (t) => {
    const fetched = [];
    const server = http.createServer((request, response) => {  // the site the piece was copied from
      fetched.push(request.url);
      if (request.url !== "/site/look.css") return response.writeHead(404).end();
      response.writeHead(200, { "Content-Type": "text/css" }).end(".lead { color: rgb(0, 128, 0) }");
    }).listen(0, "127.0.0.1");
    t.after(() => server.close());
    await once(server, "listening");
    const site = `http://127.0.0.1:${server.address().port}`;
    const copied = "<html><head><link rel=\"stylesheet\" href=\"../look.css\"><style>p { margin: 0 }</style></head>" +
      "<body><p class=\"lead\"><span style=\"color: rgb(200, 0, 0)\">Red news</span> of the day</p>" +
      "<!--StartFragment--><p>the copied piece</p><!--EndFragment--><p>Page foot</p></body></html>";
    await offer({ "text/html": copied, "chromium/x-source-url": `${site}/site/news/page.html` });
    await onDemoSeeing("0|0|0|0|1|0", async (page) => {
      assert.deepEqual(await paste(page, "quick-format"),
        { outcome: "ok", text: "Template pasted with 2 style elements", word: "" });
      assert.deepEqual(fetched, ["/site/look.css"]);
      assert.equal(await controlProperty(page, "Style"),
        "<style>\r\n.lead { color: rgb(0, 128, 0) }\r\n</style>\r\n<style>p { margin: 0 }</style>\r\n");
      const text = await editorText(page);
      assert.match(text, /Red news of the day[\s\S]*Page foot/);
      assert.doesNotMatch(text, /copied piece/);
      assert.equal(await page.evaluate(() => [...document.querySelectorAll("#editor span")]
        .find((span) => span.textContent === "Red news")?.style.color), "rgb(200, 0, 0)");
    });
  });
});

test("each reason Quick format cannot make a template gets its own sentence", { skip: needsDisplay }, async () => {
  for (const { targets, flag, text, word } of [
    { targets: { "text/plain": "just words" }, flag: "0|1|", word: "0|1|0|0|0|0",
      text: "Nothing to paste: this takes HTML copied from a web page. The clipboard holds text." },
    { targets: { "text/html": "<p>copied in an office program</p>" }, flag: "0|0|0|0|1|0", word: "",
      text: "No template: the copied HTML does not come from a web page (http or https), or holds no copied piece." },
  ]) {
    await offer(targets);
    await onDemoSeeing(flag, async (page) =>
      assert.deepEqual(await paste(page, "quick-format"), { outcome: "error", text, word }));
  }
});

// What Word puts on the clipboard, as the browser hands it to a page: the HTML without its header.
const fixture = readFileSync(path.join(repo, "tests/data/word/clipboard_format.txt"), "utf8");
const COPIED_FROM_WORD = fixture.slice(fixture.indexOf("<html")).replaceAll("\r\n", "\n");

test("the clean-up box cleans pasted Word HTML into the editor and lists the rules", async () => {
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
    const { text } = await act(page, "#cleanup-run", "#cleanup-result");
    assert.match(text, /^Cleaned with word and inserted at the cursor: \d+ rule\(s\) changed/);
    assert.match(await editorText(page), /Energy is[\s\S]*Second paragraph/);
    assert.doesNotMatch(await page.evaluate(() => document.querySelector("#editor").innerHTML), /mso-|\[if/);

    // The page lists the rules `velmora clean --trace` reports for the same text and choices.
    const file = path.join(agent.scratch, "copied.html");
    writeFileSync(file, COPIED_FROM_WORD);
    const cli = JSON.parse(execFileSync(cliPath,
      ["clean", "--engine", "word", "--source", "paste", "--opt", "optimizemode:2;opt2table:1", "--trace", file],
      { env: { ...process.env, TMPDIR: agent.scratch } }));
    const listed = await page.$$eval("#cleanup-trace li", (items) => items.map((item) => item.textContent));
    assert.ok(listed.length > 0);
    const legend = ({ pattern, replacement }) => (replacement ? `turns /${pattern}/ into "${replacement}"`
      : `removes /${pattern}/`);
    assert.deepEqual(listed, cli.trace.map((step) => `${step.rule} ${step.change > 0 ? "+" : ""}${step.change}` +
      (step.pattern === undefined ? "" : legend(step))));
    assert.equal(await page.textContent("#cleanup-body-text"), cli.Body);
  });
});

test("Local upload puts the receiver's copy of a local picture into the editor", async () => {
  const own = await new DemoAgent().started();  // an agent of its own, to stop
  const { receiverUrl, storage } = own;
  const picture = path.join(own.scratch, "my pictures", "red.png");  // a space, as "%20" in its address
  mkdirSync(path.dirname(picture));
  writeFileSync(picture, PICTURE);

  await own.onDemo(async (page) => {
    await page.waitForSelector("#local-upload-panel", { state: "visible" });
    await page.fill("#local-path", picture);
    await page.click("#local-insert");
    assert.equal(await page.getAttribute("#editor img", "src"), `file://${picture.replaceAll(" ", "%20")}`);
    const result = await act(page, "#local-upload", "#local-upload-result");
    assert.deepEqual(result, { outcome: "ok", text: "Uploaded red.png", word: "Status ok" });
    const [shown] = await loadedPictures(page, 1);
    assert.match(shown.src, new RegExp(`^${receiverUrl}/files/`));
    assert.deepEqual([shown.width, shown.height], [3, 2]);
    assert.deepEqual(readdirSync(storage).map((name) => readFileSync(path.join(storage, name))), [PICTURE]);
  });

  assert.equal(await own.stop(), 0);
  assert.ok(!existsSync(storage), "the receiver's storage goes with the agent");
  await assert.rejects(fetch(`${receiverUrl}/files/`), "the receiver stops with the agent");
});

test("without its receiver the demo still runs, with no Local upload", async () => {
  const own = await new DemoAgent(["--receiver", path.join(repo, "no-such-receiver")]).started();
  assert.match(own.log, /the demo runs without its upload receiver: cannot run .*no-such-receiver/);
  await own.onDemo(async (page) => {
    assert.equal(await page.evaluate(async () => (await window.velmoraDemo.ready).control.Test()), "Velmora");
    await page.waitForSelector('#local-upload-panel[data-state="no-receiver"]', { state: "attached" });
    assert.equal(await page.isHidden("#local-upload-panel"), true);
  });
});
