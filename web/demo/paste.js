// The demo's paste actions: what is on the desktop's clipboard goes into the editor through
// the control. "Paste picture" saves the clipboard's picture, "Paste HTML" and "Paste Excel"
// clean the copied HTML (keeping its pictures) as a document or as a sheet, "Paste files"
// takes the copied picture files; the control sends every picture to the demo's receiver,
// and the editor gets the control's Body at the cursor, its pictures served by the receiver.
// "Quick format" makes a template of the web page a piece was copied from, its style sheets
// inline; "Flash size" reads a movie's width and height from its header.

import { insertHtml, report, startPanel, uploadTo } from "./panels.js";
import { callErrorSentence, callErrorWord, clipboardSentence, errorSentence } from "./words.js";

const $ = (id) => document.getElementById(id);
const say = (outcome, sentence, word) => report("paste-result", outcome, sentence, word);

// Which digit of GetClipboardFlag says the flow has something to take, and what it wants.
const FLOWS = [
  { button: "paste-image", name: "PasteImage", flagDigit: 0, wants: "a picture", options: "imgtype:png" },
  { button: "paste-html", name: "PasteWord", flagDigit: 4, wants: "HTML", options: "mode:html;opt2image:1;opt2table:1" },
  { button: "paste-files", name: "PasteFileList", flagDigit: 3, wants: "copied files", options: "" },
  { button: "paste-excel", name: "PasteExcel", flagDigit: 4, wants: "HTML", options: "mode:html;opt2image:1" },
];
const HTML_DIGIT = 4;

// Whether the clipboard holds what a flow takes; says what it holds instead when not.
async function clipboardHolds(control, digit, wants) {
  const flag = await control.GetClipboardFlag();
  if (flag.split("|")[digit] === "1") return true;
  say("error", `Nothing to paste: this takes ${wants}. ${clipboardSentence(flag)}`, flag);
  return false;
}

async function paste(demo, uploadUrl, flow) {
  say("busy", `${flow.name}…`);
  const { control, editor } = demo;
  try {
    // A paste with nothing of its kind on the clipboard may leave Status as it was: ask first.
    if (!(await clipboardHolds(control, flow.flagDigit, flow.wants))) return;
    await uploadTo(control, uploadUrl);
    await control[flow.name](flow.options);
    const result = await control.whenDone();
    if (result.Error) return say("error", errorSentence(result.Error), result.Error);
    insertHtml(editor, result.Body);
    const uploaded = result.OriginalFiles ? result.OriginalFiles.split("|") : [];
    const only = flow.name === "PasteFileList" ? " (only pictures are taken; other files are left out)" : "";
    say("ok", uploaded.length ? `Pasted; uploaded ${uploaded.join(", ")}${only}` : `Pasted; no picture to upload${only}`,
      `Status ${result.Status}`);
  } catch (error) {
    say("error", callErrorSentence(error), callErrorWord(error));
  }
}

// QuickFormat neither uploads nor ends with Status "ok": its outcome is read at once.
async function quickFormat(demo) {
  say("busy", "QuickFormat…");
  const { control, editor } = demo;
  try {
    if (!(await clipboardHolds(control, HTML_DIGIT, "HTML copied from a web page"))) return;
    await control.QuickFormat();
    const [body, style, error] = await Promise.all(["Body", "Style", "Error"].map((name) => control.get(name)));
    if (error) return say("error", errorSentence(error), error);
    if (!body) {
      return say("error", "No template: the copied HTML does not come from a web page (http or https), or holds " +
        "no copied piece.");
    }
    insertHtml(editor, body);
    const sheets = style.match(/<style/gi)?.length ?? 0;
    say("ok", sheets ? `Template pasted with ${sheets} style element${sheets === 1 ? "" : "s"}`
      : "Template pasted; the page had no style sheet to bring along");
  } catch (error) {
    say("error", callErrorSentence(error), callErrorWord(error));
  }
}

// One word of the control covers an empty path, a missing file and a file of another
// type; the page tells them apart before asking.
async function flashSize(demo) {
  const file = $("flash-path").value.trim();
  if (!file) return say("error", "Give the path of a Flash movie (.swf) first.");
  if (!file.startsWith("/")) return say("error", "Give the movie's absolute path (/home/you/movie.swf), not an address.");
  if (!/\.swf$/i.test(file)) return say("error", "That is not a Flash movie: its name must end in .swf.");
  say("busy", "GetFlashHeader…");
  try {
    const size = await demo.control.GetFlashHeader(file);
    if (size) return say("ok", `The movie is ${size.replace(/^(\d+)\D+(\d+)$/, "$1 × $2")} pixels`, size);
    const error = await demo.control.get("Error");
    if (error) return say("error", `${file.split("/").pop()} cannot be read, or does not exist.`, error);
    say("error", `${file.split("/").pop()} is not a Flash movie Velmora can read.`);
  } catch (error) {
    say("error", callErrorSentence(error), callErrorWord(error));
  }
}

function wire({ demo, uploadUrl }) {
  for (const flow of FLOWS) $(flow.button).addEventListener("click", () => paste(demo, uploadUrl, flow));
  $("quick-format").addEventListener("click", () => quickFormat(demo));
  $("flash-header").addEventListener("click", () => flashSize(demo));
}

startPanel("paste-panel", wire).catch((error) => console.error("the paste actions are not available:", error));
