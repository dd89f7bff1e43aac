// The demo's "Import Word": a Word document from this computer (its path typed, or picked
// with the control's open dialog) goes through the control's ImportWord, as HTML or as one
// picture per page; the pictures go to the demo's receiver, and the editor shows the result.

import { chooseFile, insertHtml, report, startPanel, uploadTo } from "./panels.js";
import { callErrorSentence, callErrorWord, errorSentence } from "./words.js";

const WORD_FILTER = "Word documents (*.doc;*.docx;*.wps)|*.doc;*.docx;*.wps";

const $ = (id) => document.getElementById(id);

const say = (outcome, sentence, word) => report("import-result", outcome, sentence, word);

const chooseDocument = (demo) =>
  chooseFile(demo, { pathId: "import-path", filter: WORD_FILTER, what: "document", say });

// HTML keeps the document's text, tables and pictures; pictures show each page as it prints,
// drawn by the office or printed through the virtual printer.
const ROUTES = {
  html: { options: "mode:html;optimizemode:1", said: "as HTML" },
  pictures: { options: "imgtype:png", said: "as page pictures" },
  printed: { options: "printimage:1;imgtype:png", said: "as printed pages" },
};

// Printing to pictures needs the virtual printer: offered where it is installed.
async function offerPrinting(control) {
  try {
    if (await control.IsPrinterExist())
      $("import-route").append(new Option("as printed pages (virtual printer)", "printed"));
  } catch {
    // no printing then
  }
}

async function importWord(demo, uploadUrl) {
  const file = $("import-path").value.trim();
  if (!file) return say("error", "Give the path of a Word document (.doc, .docx or .wps), or choose it.");
  if (!file.startsWith("/")) return say("error", "Give the document's absolute path (/home/you/report.docx).");
  if (!/\.(docx?|wps)$/i.test(file)) return say("error", "That is not a Word document: .doc, .docx or .wps.");
  const route = $("import-route").value;
  say("busy", `Importing ${file.split("/").pop()}…`);
  const { control, editor } = demo;
  try {
    await uploadTo(control, uploadUrl);
    await control.ImportWord(file, ROUTES[route].options);
    const result = await control.whenDone();
    // The type was checked above: the control's "InvalidFile" then means the file is missing.
    if (result.Error.startsWith("InvalidFile:"))
      return say("error", `${file.split("/").pop()} does not exist, or cannot be read.`, result.Error);
    if (result.Error) return say("error", errorSentence(result.Error), result.Error);
    insertHtml(editor, result.Body);
    const pictures = result.SavedFiles ? result.SavedFiles.split("|").length : 0;
    say("ok", `Imported ${file.split("/").pop()} ${ROUTES[route].said}, ${pictures} picture(s) uploaded`,
      `Status ${result.Status}`);
  } catch (error) {
    say("error", callErrorSentence(error), callErrorWord(error));
  }
}

function wire({ demo, uploadUrl }) {
  offerPrinting(demo.control);
  $("import-browse").addEventListener("click", () => chooseDocument(demo));
  $("import-run").addEventListener("click", () => importWord(demo, uploadUrl));
  $("import-path").addEventListener("keydown", (event) => {
    if (event.key === "Enter") importWord(demo, uploadUrl);
  });
}

startPanel("import-panel", wire).catch((error) => console.error("the Import Word action is not available:", error));
