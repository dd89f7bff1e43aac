// What the demo's panels share, and how every action of the demo shows itself. An action
// added later (Import Excel, Import PowerPoint, Capture, Upload files) follows the same:
// - Its panel has one result line (an <output>). The action sets it to "busy" with what it
//   does, then to "ok" or "error" with a sentence for a person (words.js) and the control's
//   own word beside it, smaller, for integrators: report(). The line shows the latest
//   action only; Status and Error belong to the action that read them.
// - Before it calls the control, the action checks what it can itself (an empty path, a
//   file that is not of the right type) and says what to do instead.
// - What it brings into the editor goes in at the cursor, or replaces the selection, and
//   the editor scrolls to it: insertHtml(). Nothing replaces the whole editor unless the
//   person chose so.
// - It reads the control from demo.control at each click: when the agent restarts, the page
//   reconnects and holds a new control.
// - An action that needs the desktop (the clipboard, a dialog, a window) is marked with
//   data-needs-display; without a display the page says why it cannot run.

import { callErrorSentence, callErrorWord } from "./words.js";

const PICTURE_TYPES = "png|jpg|jpeg|gif|bmp";
const LARGEST_KB = "20480";

// Shows the outcome of an action on its result line.
export function report(lineId, outcome, sentence, word = "") {
  const line = document.getElementById(lineId);
  line.dataset.outcome = outcome;
  const said = Object.assign(document.createElement("span"), { className: "said", textContent: sentence });
  const raw = Object.assign(document.createElement("small"), { className: "word", textContent: word });
  line.replaceChildren(said, ...(word ? [raw] : []));
}

// Puts `html` into the editor at the cursor (replacing the selection), and scrolls to it.
export function insertHtml(editor, html) {
  const selection = editor.getSelection(true) ?? { index: editor.getLength() - 1, length: 0 };
  if (selection.length) editor.deleteText(selection.index, selection.length, "user");
  const before = editor.getLength();
  editor.clipboard.dangerouslyPasteHTML(selection.index, html, "user");
  editor.setSelection(selection.index + editor.getLength() - before, 0, "user");
  editor.scrollSelectionIntoView?.();
}

// Points the control's next upload at the demo's receiver.
export async function uploadTo(control, uploadUrl) {
  await control.put("SendUrl", uploadUrl);
  await control.put("LocalExt", PICTURE_TYPES);
  await control.put("LocalSize", LARGEST_KB);
}

// Lets the person pick one file of `filter` with the control's open dialog and puts its path
// into the input `pathId`; answers the path, or "" when nothing was chosen (said on the
// panel's line as "No <what> chosen."). What went wrong is said on the line too.
export async function chooseFile(demo, { pathId, filter, what, say }) {
  try {
    const chosen = await demo.control.DialogOpen(false, true, filter);
    if (chosen) document.getElementById(pathId).value = chosen;
    say("ok", chosen ? `Chosen ${chosen.split("/").pop()}` : `No ${what} chosen.`);
    return chosen;
  } catch (error) {
    say("error", callErrorSentence(error), callErrorWord(error));
    return "";
  }
}

// Once the page is connected, `wire({ demo, editor, uploadUrl })` hooks up the panel's
// buttons and the panel is shown. Its pictures need the receiver: when the agent has none,
// the panel stays hidden and says so in its state.
export async function startPanel(panelId, wire) {
  const [demo, page] = await Promise.all([
    window.velmoraDemo.ready,
    fetch("/agent.json").then((answer) => answer.json()),
  ]);
  const panel = document.getElementById(panelId);
  if (!page.upload) {
    panel.dataset.state = "no-receiver";
    return;
  }
  wire({ demo, editor: demo.editor, uploadUrl: page.upload });
  panel.hidden = false;
  panel.dataset.state = "ready";
}
