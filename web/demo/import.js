// The demo's "Import Word": a Word document from this computer (its path typed, or picked
// with the control's open dialog) goes through the control's ImportWord, as HTML or as one
// picture per page; the pictures go to the demo's receiver, and the editor shows the result.

import { startPanel, uploadTo } from "./panels.js";

const WORD_FILTER = "Word documents (*.doc;*.docx;*.wps)|*.doc;*.docx;*.wps";

const $ = (id) => document.getElementById(id);

function report(outcome, text) {
  const line = $("import-result");
  line.dataset.outcome = outcome;
  line.textContent = text;
}

async function chooseDocument(control) {
  try {
    const chosen = await control.DialogOpen(false, true, WORD_FILTER);
    if (chosen) $("import-path").value = chosen;
    report("ok", chosen ? `Chosen ${chosen.split("/").pop()}` : "No document chosen");
  } catch (error) {
    report("error", `DialogOpen: ${error.description ?? error}`);
  }
}

// HTML keeps the document's text, tables and pictures; pictures show each page as it prints.
function importOptions(route) {
  return route === "html" ? "mode:html;optimizemode:1" : "imgtype:png";
}

async function importWord(control, editor, uploadUrl) {
  const file = $("import-path").value.trim();
  if (!file.startsWith("/")) return report("error", "Give the document's absolute path, or choose it.");
  const route = $("import-route").value;
  report("busy", `Importing ${file.split("/").pop()}…`);
  try {
    await uploadTo(control, uploadUrl);
    await control.ImportWord(file, importOptions(route));
    const result = await control.whenDone();
    if (result.Error) return report("error", `Error: ${result.Error}`);
    editor.setContents(editor.clipboard.convert({ html: result.Body }), "user");
    const pictures = result.SavedFiles ? result.SavedFiles.split("|").length : 0;
    const what = route === "html" ? "as HTML" : "as page pictures";
    report("ok", `Imported ${file.split("/").pop()} ${what}, ${pictures} picture(s) uploaded`);
  } catch (error) {
    report("error", `ImportWord: ${error.description ?? error}`);
  }
}

function wire({ control, editor, uploadUrl }) {
  $("import-browse").addEventListener("click", () => chooseDocument(control));
  $("import-run").addEventListener("click", () => importWord(control, editor, uploadUrl));
  $("import-path").addEventListener("keydown", (event) => {
    if (event.key === "Enter") importWord(control, editor, uploadUrl);
  });
}

startPanel("import-panel", wire).catch((error) => console.error("the Import Word action is not available:", error));
