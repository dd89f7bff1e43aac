// The demo's paste actions: what is on the desktop's clipboard goes into the editor through
// the control. "Paste picture" saves the clipboard's picture, "Paste HTML" and "Paste Excel"
// clean the copied HTML (keeping its pictures) as a document or as a sheet, "Paste files"
// takes the copied picture files; the control sends every picture to the demo's receiver,
// and the editor gets the control's Body at the cursor, its pictures served by the receiver.
// "Quick format" makes a template of the web page a piece was copied from, its style sheets
// inline; "Flash size" reads a movie's width and height from its header.

import { startPanel, uploadTo } from "./panels.js";

const $ = (id) => document.getElementById(id);

// Which digit of GetClipboardFlag says the flow has something to take.
const FLOWS = [
  { button: "paste-image", name: "PasteImage", flagDigit: 0, options: "imgtype:png" },
  { button: "paste-html", name: "PasteWord", flagDigit: 4, options: "mode:html;opt2image:1;opt2table:1" },
  { button: "paste-files", name: "PasteFileList", flagDigit: 3, options: "" },
  { button: "paste-excel", name: "PasteExcel", flagDigit: 4, options: "mode:html;opt2image:1" },
];
const HTML_DIGIT = 4;

function report(outcome, text) {
  const line = $("paste-result");
  line.dataset.outcome = outcome;
  line.textContent = text;
}

async function paste(control, editor, uploadUrl, flow) {
  report("busy", `${flow.name}…`);
  try {
    // A paste with nothing of its kind on the clipboard may leave Status as it was: ask first.
    const flag = (await control.GetClipboardFlag()).split("|");
    if (flag[flow.flagDigit] !== "1") return report("error", `Nothing for ${flow.name} on the clipboard (${flag.join("|")})`);
    await uploadTo(control, uploadUrl);
    await control[flow.name](flow.options);
    const result = await control.whenDone();
    if (result.Error) return report("error", `Error: ${result.Error}`);
    pasteIntoEditor(editor, result.Body);
    report("ok", result.OriginalFiles
      ? `Pasted, uploaded ${result.OriginalFiles.split("|").join(", ")}`
      : "Pasted; no picture to upload");
  } catch (error) {
    report("error", `${flow.name}: ${error.description ?? error}`);
  }
}

function pasteIntoEditor(editor, html) {
  const at = editor.getSelection(true)?.index ?? editor.getLength();
  editor.clipboard.dangerouslyPasteHTML(at, html, "user");
}

// QuickFormat neither uploads nor ends with Status "ok": its outcome is read at once.
async function quickFormat(control, editor) {
  report("busy", "QuickFormat…");
  try {
    const flag = (await control.GetClipboardFlag()).split("|");
    if (flag[HTML_DIGIT] !== "1") return report("error", `Nothing for QuickFormat on the clipboard (${flag.join("|")})`);
    await control.QuickFormat();
    const [body, style, error] = await Promise.all(["Body", "Style", "Error"].map((name) => control.get(name)));
    if (error) return report("error", `Error: ${error}`);
    if (!body) return report("error", "No template: the copied HTML names no web page (http) or has no copied piece");
    pasteIntoEditor(editor, body);
    const sheets = style.match(/<style/gi)?.length ?? 0;
    report("ok", `Template pasted with ${sheets} style element${sheets === 1 ? "" : "s"}`);
  } catch (error) {
    report("error", `QuickFormat: ${error.description ?? error}`);
  }
}

async function flashSize(control) {
  const file = $("flash-path").value.trim();
  report("busy", "GetFlashHeader…");
  try {
    const size = await control.GetFlashHeader(file);
    if (size) return report("ok", size);
    const error = await control.get("Error");
    report("error", error ? `Error: ${error}` : `No size: ${file} is not a readable Flash movie`);
  } catch (error) {
    report("error", `GetFlashHeader: ${error.description ?? error}`);
  }
}

function wire({ control, editor, uploadUrl }) {
  for (const flow of FLOWS) $(flow.button).addEventListener("click", () => paste(control, editor, uploadUrl, flow));
  $("quick-format").addEventListener("click", () => quickFormat(control, editor));
  $("flash-header").addEventListener("click", () => flashSize(control));
}

startPanel("paste-panel", wire).catch((error) => console.error("the paste actions are not available:", error));
