// The demo's "Import Excel": a workbook from this computer (its path typed, or picked with
// the control's open dialog) goes through the control's ImportExcelSheet, one sheet or all
// of them, as HTML or as pictures; the pictures go to the demo's receiver, and the editor
// shows the result. The sheet list comes from GetExcelWorkSheetName once the path is known.

import { chooseFile, insertHtml, report, startPanel, uploadTo } from "./panels.js";
import { callErrorSentence, callErrorWord, errorSentence } from "./words.js";

const EXCEL_FILTER = "Excel workbooks (*.xls;*.xlsx;*.et)|*.xls;*.xlsx;*.et";
const ALL_SHEETS = "0";

const $ = (id) => document.getElementById(id);
const say = (outcome, sentence, word) => report("sheets-result", outcome, sentence, word);
const nameOf = (file) => file.split("/").pop();

// The workbook the sheet list belongs to, and the reading that fills it: an import waits for
// it, so the sheet number it sends is always one of this workbook.
let listed = { file: "", reading: Promise.resolve(true) };

function showSheets(names) {
  $("sheets-sheet").replaceChildren(new Option("All sheets", ALL_SHEETS),
    ...names.map((name, i) => new Option(name, String(i + 1))));
}

// What is wrong with a typed path before the control sees it, or "" when nothing is.
function refusal(file) {
  if (!file) return "Give the path of an Excel workbook (.xls, .xlsx or .et), or choose it.";
  if (!file.startsWith("/")) return "Give the workbook's absolute path (/home/you/budget.xlsx).";
  if (!/\.(xlsx?|et)$/i.test(file)) return "That is not an Excel workbook: .xls, .xlsx or .et.";
  return "";
}

// The type was checked first: the control's "InvalidFile" then means the file is missing.
function sayFailure(file, error) {
  const missing = error.startsWith("InvalidFile:");
  say("error", missing ? `${nameOf(file)} does not exist, or cannot be read.` : errorSentence(error), error);
}

// Lists the sheets of `file`; answers whether that worked. A later path replaces the list
// of an earlier one still being read.
function listSheets(demo, file) {
  if (file === listed.file) return listed.reading;
  showSheets([]);
  listed = { file };
  listed.reading = refusal(file) ? Promise.resolve(true) : readSheets(demo.control, file);
  return listed.reading;
}

async function readSheets(control, file) {
  say("busy", `Reading the sheets of ${nameOf(file)}…`);
  try {
    const names = await control.GetExcelWorkSheetName(file);
    const error = await control.get("Error");
    if (listed.file !== file) return false;  // a later path took the list over
    if (!error) {
      const sheets = names ? names.split("\r\n") : [];
      showSheets(sheets);
      say("ok", `${nameOf(file)} has ${sheets.length} sheet(s): import one, or all.`);
      return true;
    }
    sayFailure(file, error);
  } catch (error) {
    if (listed.file !== file) return false;
    say("error", callErrorSentence(error), callErrorWord(error));
  }
  listed.file = "";  // read again next time: the file may be there by then
  return false;
}

async function chooseWorkbook(demo) {
  const chosen = await chooseFile(demo, { pathId: "sheets-path", filter: EXCEL_FILTER, what: "workbook", say });
  if (chosen) await listSheets(demo, chosen);
}

// HTML keeps the cells, their borders and pictures; pictures show each sheet's used range.
function importOptions(route) {
  return route === "html" ? "optimizemode:1" : "mode:img;imgtype:png";
}

async function importSheet(demo, uploadUrl) {
  const file = $("sheets-path").value.trim();
  const refused = refusal(file);
  if (refused) return say("error", refused);
  if (!(await listSheets(demo, file))) return;  // the line says why
  const choice = $("sheets-sheet").selectedOptions[0];
  const sheet = choice.value === ALL_SHEETS ? "all sheets" : `sheet ${choice.text}`;
  const route = $("sheets-route").value;
  say("busy", `Importing ${nameOf(file)}, ${sheet}…`);
  const { control, editor } = demo;
  try {
    await uploadTo(control, uploadUrl);
    await control.ImportExcelSheet(file, Number(choice.value), importOptions(route));
    const result = await control.whenDone();
    if (result.Error) return sayFailure(file, result.Error);
    insertHtml(editor, result.Body);
    const pictures = result.SavedFiles ? result.SavedFiles.split("|").length : 0;
    const what = route === "html" ? "as HTML" : "as pictures";
    say("ok", `Imported ${nameOf(file)}, ${sheet}, ${what}, ${pictures} picture(s) uploaded`,
      `Status ${result.Status}`);
  } catch (error) {
    say("error", callErrorSentence(error), callErrorWord(error));
  }
}

function wire({ demo, uploadUrl }) {
  $("sheets-browse").addEventListener("click", () => chooseWorkbook(demo));
  $("sheets-path").addEventListener("change", () => listSheets(demo, $("sheets-path").value.trim()));
  $("sheets-run").addEventListener("click", () => importSheet(demo, uploadUrl));
}

startPanel("sheets-panel", wire).catch((error) => console.error("the Import Excel action is not available:", error));
