// The demo's "Import PowerPoint": a presentation from this computer (its path typed, or
// picked with the control's open dialog) goes through the control's ImportPPT as one picture
// per slide, scaled to a width when one is given; the pictures go to the demo's receiver, and
// the editor shows them.

import { chooseFile, insertHtml, report, startPanel, uploadTo } from "./panels.js";
import { callErrorSentence, callErrorWord, errorSentence } from "./words.js";

const SLIDES_FILTER = "Presentations (*.ppt;*.pptx;*.dps)|*.ppt;*.pptx;*.dps";

const $ = (id) => document.getElementById(id);
const say = (outcome, sentence, word) => report("slides-result", outcome, sentence, word);

const choosePresentation = (demo) =>
  chooseFile(demo, { pathId: "slides-path", filter: SLIDES_FILTER, what: "presentation", say });

async function importSlides(demo, uploadUrl) {
  const file = $("slides-path").value.trim();
  const width = $("slides-width").value.trim();
  if (!file) return say("error", "Give the path of a presentation (.ppt, .pptx or .dps), or choose it.");
  if (!file.startsWith("/")) return say("error", "Give the presentation's absolute path (/home/you/talk.pptx).");
  if (!/\.(pptx?|dps)$/i.test(file)) return say("error", "That is not a presentation: .ppt, .pptx or .dps.");
  // The control quietly keeps the slides' own size for a width it cannot use: say so instead.
  if ($("slides-width").validity.badInput || (width && !/^[1-9]\d{0,4}$/.test(width)))
    return say("error", "Give the width as a whole number of pixels, or leave it empty for the slides' own size.");
  say("busy", `Importing ${file.split("/").pop()}…`);
  const { control, editor } = demo;
  try {
    await uploadTo(control, uploadUrl);
    await control.ImportPPT(file, "imgtype:png" + (width ? `;tw:${width}` : ""));
    const result = await control.whenDone();
    // The type was checked above: the control's "InvalidFile" then means the file is missing.
    if (result.Error.startsWith("InvalidFile:"))
      return say("error", `${file.split("/").pop()} does not exist, or cannot be read.`, result.Error);
    if (result.Error) return say("error", errorSentence(result.Error), result.Error);
    insertHtml(editor, result.Body);
    const pictures = result.SavedFiles ? result.SavedFiles.split("|").length : 0;
    say("ok", `Imported ${file.split("/").pop()}, ${pictures} slide(s) uploaded`, `Status ${result.Status}`);
  } catch (error) {
    say("error", callErrorSentence(error), callErrorWord(error));
  }
}

function wire({ demo, uploadUrl }) {
  $("slides-browse").addEventListener("click", () => choosePresentation(demo));
  $("slides-run").addEventListener("click", () => importSlides(demo, uploadUrl));
  for (const field of ["slides-path", "slides-width"]) {
    $(field).addEventListener("keydown", (event) => {
      if (event.key === "Enter") importSlides(demo, uploadUrl);
    });
  }
}

startPanel("slides-panel", wire)
  .catch((error) => console.error("the Import PowerPoint action is not available:", error));
