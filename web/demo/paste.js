// The demo's paste actions: what is on the desktop's clipboard goes into the editor through
// the control. "Paste picture" saves the clipboard's picture, "Paste HTML" cleans the copied
// HTML (keeping its pictures), "Paste files" takes the copied picture files; the control
// sends every picture to the demo's receiver, and the editor gets the control's Body at the
// cursor, its pictures served by the receiver.

const PICTURE_TYPES = "png|jpg|jpeg|gif|bmp";
const LARGEST_KB = "20480";

const $ = (id) => document.getElementById(id);

// Which digit of GetClipboardFlag says the flow has something to take.
const FLOWS = [
  { button: "paste-image", name: "PasteImage", flagDigit: 0, options: "imgtype:png" },
  { button: "paste-html", name: "PasteWord", flagDigit: 4, options: "mode:html;opt2image:1;opt2table:1" },
  { button: "paste-files", name: "PasteFileList", flagDigit: 3, options: "" },
];

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
    await control.put("SendUrl", uploadUrl);
    await control.put("LocalExt", PICTURE_TYPES);
    await control.put("LocalSize", LARGEST_KB);
    await control[flow.name](flow.options);
    const result = await control.whenDone();
    if (result.Error) return report("error", `Error: ${result.Error}`);
    const at = editor.getSelection(true)?.index ?? editor.getLength();
    editor.clipboard.dangerouslyPasteHTML(at, result.Body, "user");
    report("ok", result.OriginalFiles
      ? `Pasted, uploaded ${result.OriginalFiles.split("|").join(", ")}`
      : "Pasted; no picture to upload");
  } catch (error) {
    report("error", `${flow.name}: ${error.description ?? error}`);
  }
}

async function start() {
  const [{ control, editor }, page] = await Promise.all([
    window.velmoraDemo.ready,
    fetch("/agent.json").then((answer) => answer.json()),
  ]);
  const panel = $("paste-panel");
  if (!page.upload) {  // the agent has no receiver for the demo: no paste action
    panel.dataset.state = "no-receiver";
    return;
  }
  for (const flow of FLOWS) $(flow.button).addEventListener("click", () => paste(control, editor, page.upload, flow));
  panel.hidden = false;
  panel.dataset.state = "ready";
}

start().catch((error) => console.error("the paste actions are not available:", error));
