// The demo page: an editor, and buttons that call the editor control through the agent.
// An action is one small function of the control and the editor; what it returns (or the
// error it raises) is shown in the output. Add an action by adding one entry.
import { connect } from "/velmora.js";

const actions = [
  { label: "Version", run: (v) => v.Version },
  { label: "Test", run: (v) => v.Test() },
  { label: "GetClipboardFlag", run: (v) => v.GetClipboardFlag() },
  { label: "DialogOpen", run: (v) => v.DialogOpen() },
  { label: "DialogSave", run: (v) => v.DialogSave() },
];

const $ = (id) => document.getElementById(id);
const editor = new Quill("#editor", { theme: "snow" });

function show(label, outcome, text) {
  const line = document.createElement("li");
  line.dataset.action = label;
  line.dataset.outcome = outcome;
  line.textContent = `${label} → ${text}`;
  $("output").append(line);
  line.scrollIntoView({ block: "nearest" });
}

function showState(control) {
  $("status").textContent = JSON.stringify(control.Status ?? "");
  $("error").textContent = JSON.stringify(control.Error ?? "");
}

async function run(action, control) {
  try {
    const value = await action.run(control, editor);
    show(action.label, "ok", JSON.stringify(value ?? null));
  } catch (error) {
    show(action.label, "error", error.number !== undefined ? `error ${error.number}: ${error.description}` : String(error));
  }
  showState(control);
}

async function start() {
  const { agent } = await (await fetch("/agent.json")).json();
  const client = await connect(agent);
  const control = await client.create("Velmora5");
  control.addEventListener("propertychange", () => showState(control));
  client.closed.then(() => {
    $("connection").dataset.state = "failed";
    $("connection").textContent = "the agent closed the connection";
  });
  for (const action of actions) {
    const button = document.createElement("button");
    button.type = "button";
    button.textContent = action.label;
    button.dataset.action = action.label;
    button.addEventListener("click", () => run(action, control));
    $("actions").append(button);
  }
  $("connection").dataset.state = "connected";
  $("connection").textContent = `connected to ${agent}`;
  showState(control);
  return { client, control, editor };
}

// For the browser's console and the tests: velmoraDemo.ready gives { client, control, editor }.
const ready = start();
ready.catch((error) => {
  $("connection").dataset.state = "failed";
  $("connection").textContent = `no agent: ${error.message}`;
});
window.velmoraDemo = { ready, actions };
