// The one place where the demo turns the control's words into sentences for a person. The
// control answers in its own words ("InvalidFile:swf", "0|0|0|1|0|0", error 5020); the page
// shows the sentence, and the word beside it, smaller, for integrators.

const STAGES = [
  [/^InvalidFile:(.*)$/, (types) => `The file must be a ${list(types.split("|").map((type) => `.${type}`))} file.`],
  [/^TempFolder:(.*)$/, (why) => `Velmora cannot use its working folder: ${why}.`],
  [/^XMLHTTP-Create:(.*)$/, (why) => `The upload could not start: ${why}.`],
  [/^XMLHTTP-Open:(.*)$/, (why) => `The upload address is not usable: ${why}.`],
  [/^XMLHTTP-Send:(.*)$/, (why) => `The upload to the server failed: ${why}.`],
  [/^CreateObject:(.*)$/, (what) => `The office program needed for this is not available here (${what}).`],
  [/^Open:(.*)$/, (why) => `The document could not be opened: ${why}.`],
  [/^SetSheet:(.*)$/, (why) => `The workbook has no such sheet: ${why}.`],
  [/^SaveAs:(.*)$/, (why) => `The document could not be converted: ${why}.`],
  [/^ReadFile:(.*)$/, (why) => `The converted document could not be read: ${why}.`],
  [/^GDIPlus:(.*)$/, (why) => `The picture could not be saved: ${why}.`],
  [/^NoMatchFile$/, () => "The presentation's slides could not be exported."],
  [/^Printer:NotExist$/, () => "The virtual printer is not installed (velmora printer install)."],
  [/^Printer:SpoolerNotRunning$/, () => "The print system (CUPS) is not running."],
  [/^Printer:Timeout$/, () => "The virtual printer did not finish the pages in time."],
  [/^Printer:Registry$/, () => "The virtual printer's settings could not be written."],
  [/^PrintOut$/, () => "The document could not be printed."],
  [/^Printer:(.*)$/, (what) => `The virtual printer could not be set up for this document (${what}).`],
  [/^NoFoundKey$/, () => "The exported slides could not be found again."],
];

function list(items) {
  return items.length < 2 ? items.join("") : `${items.slice(0, -1).join(", ")} or ${items.at(-1)}`;
}

// The sentence for a word the control left in its Error property.
export function errorSentence(word) {
  for (const [pattern, say] of STAGES) {
    const found = word.match(pattern);
    if (found) return say((found[1] ?? "").replace(/[.\s]+$/, ""));
  }
  return `The control reported a problem: ${word}`;
}

// What the digits of GetClipboardFlag say is on the clipboard.
const FLAG_NAMES = ["a picture", "text", "rich text", "copied files", "HTML"];
const SOURCES = { 1: "Word", 2: "Excel", 3: "WPS" };

export function clipboardSentence(flag) {
  const digits = flag.split("|");
  const held = FLAG_NAMES.filter((_, i) => digits[i] === "1");
  const from = SOURCES[digits[5]] ? `, copied in ${SOURCES[digits[5]]}` : "";
  return held.length ? `The clipboard holds ${list(held)}${from}.` : "The clipboard is empty.";
}

// The sentence for an error a call raised: the connection, the engine, or the control.
export const AGENT_STOPPED = "The Velmora agent stopped; start it again and the page reconnects.";
export function callErrorSentence(error) {
  if (error.number === -2147417848) return AGENT_STOPPED;
  if (/there is no desktop display/.test(error.description ?? "")) {
    return "This needs the desktop (its clipboard or a window), and the Velmora agent runs without a display: " +
      "start it in your desktop session, or on a virtual X server (Xvfb).";
  }
  if (error.number === 5020) return "The clean-up gave up on this text: one of its rules ran too long on it.";
  if (error.description) return error.description.endsWith(".") ? error.description : `${error.description}.`;
  return String(error.message ?? error);
}

// The raw word of an error a call raised, for the small print.
export function callErrorWord(error) {
  return error.number !== undefined ? `error ${error.number}` : "";
}
