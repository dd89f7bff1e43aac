// The demo page: an editor, and actions that call the editor control through the agent.
// The page keeps one connection and one control, in `demo`; when the agent goes away it
// says so and reconnects by itself once the agent is back. How actions show their outcome
// is written down in panels.js.
import { connect } from "/velmora.js";
import { report } from "./panels.js";
import { AGENT_STOPPED, callErrorSentence, callErrorWord, clipboardSentence } from "./words.js";

const $ = (id) => document.getElementById(id);
const RETRY_MS = 2000;

// The control's interface languages, as the page offers them, with the file type its
// dialogs list (the member's own default is the Simplified Chinese one).
const LANGUAGES = { en: "English", "zh-cn": "简体中文", "zh-tw": "繁體中文" };
const ALL_FILES = { en: "All files (*.*)|*.*", "zh-cn": "所有文件(*.*)|*.*", "zh-tw": "所有檔案(*.*)|*.*" };
const allFiles = () => ALL_FILES[$("language").value];

const actions = [
  { label: "Version", run: async (v) => ({ sentence: `Velmora ${await v.Version}` }) },
  { label: "Test", run: async (v) => ({ sentence: `The control answers: ${await v.Test()}` }) },
  { label: "Clipboard", needsDisplay: true, run: async (v) => {
    const flag = await v.GetClipboardFlag();
    return { sentence: clipboardSentence(flag), word: flag };
  } },
  { label: "Open dialog", needsDisplay: true, run: async (v) => {
    const chosen = await v.DialogOpen(true, false, allFiles());
    return { sentence: chosen ? `Chosen: ${chosen}` : "Nothing chosen." };
  } },
  { label: "Save dialog", needsDisplay: true, run: async (v) => {
    const chosen = await v.DialogSave(true, allFiles());
    return { sentence: chosen ? `To be saved as: ${chosen}` : "Nothing chosen." };
  } },
];

const editor = new Quill("#editor", { theme: "snow" });
const demo = { client: null, control: null, editor };

function showConnection(state, text) {
  $("connection").dataset.state = state;
  $("connection").textContent = text;
}

function showDisplay(hasDisplay) {
  $("no-display").hidden = hasDisplay;
  document.body.dataset.display = hasDisplay ? "yes" : "no";
}

async function run(action) {
  report("actions-result", "busy", `${action.label}…`);
  try {
    const { sentence, word = "" } = await action.run(demo.control);
    report("actions-result", "ok", sentence, word);
  } catch (error) {
    report("actions-result", "error", callErrorSentence(error), callErrorWord(error));
  }
}

function addActions() {
  for (const action of actions) {
    const button = Object.assign(document.createElement("button"), { type: "button", textContent: action.label });
    button.dataset.action = action.label;
    if (action.needsDisplay) button.dataset.needsDisplay = "";
    button.addEventListener("click", () => run(action));
    $("actions").append(button);
  }
  const choice = $("language");
  for (const [value, name] of Object.entries(LANGUAGES)) choice.append(new Option(name, value));
  choice.value = pageLanguage();
  choice.addEventListener("change", () => demo.control?.put("Lang", choice.value));
}

// The page's language, as one the control knows.
function pageLanguage() {
  const lang = document.documentElement.lang.toLowerCase();
  return lang in LANGUAGES ? lang : "en";
}

async function open() {
  const { agent } = await (await fetch("/agent.json")).json();
  const client = await connect(agent);
  const control = await client.create("Velmora5");
  await control.put("Lang", $("language").value);
  Object.assign(demo, { client, control });
  showDisplay(client.hasDisplay);
  showConnection("connected", `connected to ${agent}`);
  client.closed.then(() => {
    showConnection("failed", AGENT_STOPPED);
    reconnect();
  });
  return demo;
}

// Tries again every few seconds until the agent answers.
async function reconnect() {
  for (;;) {
    await new Promise((resolve) => setTimeout(resolve, RETRY_MS));
    try {
      return await open();
    } catch {
      showConnection("failed", AGENT_STOPPED);
    }
  }
}

addActions();
// For the browser's console and the tests: velmoraDemo.ready gives the page's `demo`
// ({ client, control, editor }), whose client and control change when the page reconnects.
const ready = open().catch((error) => {
  showConnection("failed", `No Velmora agent (${error.message}). Start it, and the page connects.`);
  return reconnect();
});
window.velmoraDemo = { ready, actions, demo };
