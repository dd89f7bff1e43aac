// The demo's paste actions end to end: another program owns the X clipboard (xclip, or the
// clipboard_owner helper for a browser's several targets), the demo page in headless
// Chromium calls the control, pictures go to the agent's receiver and the editor shows what
// the control produced. "Flash size" reads a movie the test writes.
import assert from "node:assert/strict";
import { spawn } from "node:child_process";
import { existsSync, mkdirSync, readFileSync, readdirSync, writeFileSync } from "node:fs";
import http from "node:http";
import path from "node:path";
import { after, before, describe, test } from "node:test";

import { DemoAgent, PICTURE, loadedPictures, needsDisplay, ownClipboard, repo, waitFor } from "./demo-agent.mjs";

const clipboardOwnerPath = path.join(path.dirname(process.env.VELMORA_AGENT || path.join(repo, "build/velmora-agent")),
  "tests/clipboard_owner");

let agent;
const owners = [];

before(async () => {
  agent = await new DemoAgent([], { display: !needsDisplay }).started();
});

after(() => {
  for (const owner of owners) owner.kill();
});

// xclip owns the clipboard with `bytes` as `type`.
function offer(type, bytes) {
  const file = path.join(agent.scratch, `offered-${owners.length}`);
  writeFileSync(file, bytes);
  const owner = ownClipboard(type, file);
  owners.push(owner);
  return owner;
}

// The clipboard_owner helper offers several targets at once, as a browser does after "Copy".
async function offerTargets(targets) {
  assert.ok(existsSync(clipboardOwnerPath), `build the clipboard owner first: ninja -C build clipboard_owner`);
  const args = Object.entries(targets).map(([type, bytes], i) => {
    const file = path.join(agent.scratch, `target-${owners.length}-${i}`);
    writeFileSync(file, bytes);
    return `${type}=${file}`;
  });
  const owner = spawn(clipboardOwnerPath, args, { stdio: ["ignore", "pipe", "inherit"], env: { ...process.env, QT_QPA_PLATFORM: "xcb" } });
  owners.push(owner);
  let said = "";
  owner.stdout.setEncoding("utf8").on("data", (text) => { said += text; });
  await waitFor(() => said.includes("ready"), "the clipboard owner");
  return owner;
}

// Opens the demo once the control sees what was offered (another program's "Copy" reaches
// this X client a moment later).
async function demoSeeing(flag) {
  const page = await agent.openDemo();
  await page.waitForSelector("#paste-panel", { state: "visible" });
  await page.waitForFunction(async (expected) =>
    (await (await window.velmoraDemo.ready).control.GetClipboardFlag()) === expected, flag);
  return page;
}

async function click(page, button) {
  await page.evaluate(() => { document.querySelector("#paste-result").dataset.outcome = "busy"; });
  await page.click(`#${button}`);
  await page.waitForSelector('#paste-result:is([data-outcome="ok"], [data-outcome="error"])');
  return { outcome: await page.getAttribute("#paste-result", "data-outcome"), text: await page.textContent("#paste-result") };
}

const editorText = (page) => page.evaluate(async () => (await window.velmoraDemo.ready).editor.getText());
const controlProperty = (page, name) => page.evaluate(async (property) =>
  (await window.velmoraDemo.ready).control.get(property), name);

function storedSince(before) {
  return readdirSync(agent.storage).filter((name) => !before.includes(name));
}

describe("pasting from the X clipboard", { skip: needsDisplay }, () => {
  test("Paste HTML and Paste files put the receiver's copy of the local pictures into the editor", {
    timeout: 60_000,
  }, async (t) => {
    const { receiverUrl } = agent;
    const picture = path.join(agent.scratch, "copied page", "photo.png");  // a space, as "%20" in its address
    mkdirSync(path.dirname(picture));
    writeFileSync(picture, PICTURE);

    await t.test("Paste HTML: a web selection with a file: picture", async () => {
      const storedBefore = readdirSync(agent.storage);
      const address = `file://${picture.replaceAll(" ", "%20")}`;
      offer("text/html", `<meta charset='utf-8'><p>Seen <b>here</b>: <img src="${address}"></p>`);
      const page = await demoSeeing("0|0|0|0|1|0");
      try {
        assert.deepEqual(await click(page, "paste-html"), { outcome: "ok", text: "Pasted, uploaded photo.png" });
        const [shown] = await loadedPictures(page, 1);
        assert.match(shown.src, new RegExp(`^${receiverUrl}/files/`));
        assert.deepEqual([shown.width, shown.height], [3, 2]);
        assert.match(await editorText(page), /Seen here:/);
        const stored = storedSince(storedBefore);
        assert.equal(stored.length, 1);
        assert.deepEqual(readFileSync(path.join(agent.storage, stored[0])), PICTURE);
      } finally {
        await page.close();
      }
    });

    await t.test("Paste files: only the picture of the copied files arrives", async () => {
      const storedBefore = readdirSync(agent.storage);
      const notes = path.join(agent.scratch, "copied page", "notes.txt");
      writeFileSync(notes, "words, not a picture");
      offer("text/uri-list", `file://${encodeURI(picture)}\r\nfile://${encodeURI(notes)}\r\n`);
      const page = await demoSeeing("0|0|0|1|0|0");
      try {
        assert.deepEqual(await click(page, "paste-files"), { outcome: "ok", text: "Pasted, uploaded photo.png" });
        const [shown] = await loadedPictures(page, 1);
        assert.match(shown.src, new RegExp(`^${receiverUrl}/files/`));
        assert.doesNotMatch(await controlProperty(page, "Body"), /notes/);
        const stored = storedSince(storedBefore);
        assert.equal(stored.length, 1);
        assert.deepEqual(readFileSync(path.join(agent.storage, stored[0])), PICTURE);
      } finally {
        await page.close();
      }
    });
  });

  test("Paste Excel puts a copied table into the editor", { timeout: 60_000 }, async () => {
    offer("text/html", "<meta charset='utf-8'><table><tr><td>Apples</td><td>3</td></tr>" +
      "<tr><td>Pears</td><td>5</td></tr></table>");
    const page = await demoSeeing("0|0|0|0|1|0");
    try {
      assert.deepEqual(await click(page, "paste-excel"), { outcome: "ok", text: "Pasted; no picture to upload" });
      assert.equal(await controlProperty(page, "Body"),
        "<table><tr><td>Apples</td><td>3</td></tr><tr><td>Pears</td><td>5</td></tr></table>");
      assert.match(await editorText(page), /Apples\s*3\s*Pears\s*5/);
    } finally {
      await page.close();
    }
  });

  test("Quick format gives the editor the copied page around the piece, its style sheet inline", {
    timeout: 60_000,
  }, async () => {
    const fetched = [];
    const site = http.createServer((request, response) => {
      fetched.push(request.url);
      if (request.url !== "/site/look.css") return response.writeHead(404).end();
      response.writeHead(200, { "Content-Type": "text/css" }).end(".lead { color: rgb(0, 128, 0) }");
    });
    await new Promise((resolve) => site.listen(0, "127.0.0.1", resolve));
    const pageAddress = `http://127.0.0.1:${site.address().port}/site/news/page.html`;
    const copied = "<html><head><link rel=\"stylesheet\" href=\"../look.css\"><style>p { margin: 0 }</style></head>" +
      "<body><p class=\"lead\"><span style=\"color: rgb(200, 0, 0)\">Red news</span> of the day</p>" +
      "<!--StartFragment--><p>the copied piece</p><!--EndFragment--><p>Page foot</p></body></html>";
    const page = await agent.openDemo();
    try {
      await offerTargets({ "text/html": copied, "chromium/x-source-url": pageAddress });
      await page.waitForFunction(async () =>
        (await (await window.velmoraDemo.ready).control.GetClipboardFlag()) === "0|0|0|0|1|0");
      assert.deepEqual(await click(page, "quick-format"), { outcome: "ok", text: "Template pasted with 2 style elements" });
      assert.deepEqual(fetched, ["/site/look.css"]);
      assert.equal(await controlProperty(page, "Style"),
        "<style>\r\n.lead { color: rgb(0, 128, 0) }\r\n</style>\r\n<style>p { margin: 0 }</style>\r\n");

      const text = await editorText(page);
      assert.match(text, /Red news of the day/);
      assert.match(text, /Page foot/);
      assert.doesNotMatch(text, /copied piece/);
      assert.equal(await page.evaluate(() => [...document.querySelectorAll("#editor span")]
        .find((span) => span.textContent === "Red news")?.style.color), "rgb(200, 0, 0)");
    } finally {
      await page.close();
      site.close();
    }
  });

  test("Quick format of HTML that names no web page leaves the editor alone", { timeout: 60_000 }, async () => {
    offer("text/html", "<meta charset='utf-8'><p>from a local file</p>");
    const page = await demoSeeing("0|0|0|0|1|0");
    try {
      const before = await editorText(page);
      const { outcome, text } = await click(page, "quick-format");
      assert.equal(outcome, "error");
      assert.match(text, /^No template/);
      assert.equal(await editorText(page), before);
    } finally {
      await page.close();
    }
  });
});

// An uncompressed movie: "FWS", version, file length, then the frame rectangle in twips as
// a 5-bit field width and four fields of that width, most significant bit first.
function plainSwf([xMin, xMax, yMin, yMax], bitsPerField = 15) {
  const bits = bitsPerField.toString(2).padStart(5, "0") +
    [xMin, xMax, yMin, yMax].map((value) => value.toString(2).padStart(bitsPerField, "0")).join("");
  const rect = Buffer.from(bits.padEnd(Math.ceil(bits.length / 8) * 8, "0").match(/.{8}/g).map((byte) => parseInt(byte, 2)));
  const rest = Buffer.from([0x00, 0x18, 0x01, 0x00]);  // frame rate 24, one frame
  const header = Buffer.from([0x46, 0x57, 0x53, 10, 0, 0, 0, 0]);
  header.writeUInt32LE(header.length + rect.length + rest.length, 4);
  return Buffer.concat([header, rect, rest]);
}

test("Flash size answers a movie's width|height and names what is wrong with other files", { timeout: 60_000 }, async () => {
  const folder = path.join(agent.scratch, "movies");
  mkdirSync(folder);
  const movie = path.join(folder, "intro.SWF");
  writeFileSync(movie, plainSwf([200, 11200, 100, 8100]));
  const fake = path.join(folder, "fake.swf");
  writeFileSync(fake, "GIF89a, not a movie");
  const notes = path.join(folder, "notes.txt");
  writeFileSync(notes, "FWS");

  const page = await agent.openDemo();
  const sizeOf = async (file) => {
    await page.fill("#flash-path", file);
    return click(page, "flash-header");
  };
  try {
    await page.waitForSelector("#paste-panel", { state: "visible" });
    assert.deepEqual(await sizeOf(movie), { outcome: "ok", text: "550|400" });
    assert.deepEqual(await sizeOf(fake), { outcome: "error", text: `No size: ${fake} is not a readable Flash movie` });
    assert.deepEqual(await sizeOf(notes), { outcome: "error", text: "Error: InvalidFile:swf" });
    assert.deepEqual(await sizeOf(path.join(folder, "missing.swf")), { outcome: "error", text: "Error: InvalidFile:swf" });
  } finally {
    await page.close();
  }
});
