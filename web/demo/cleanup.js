// The demo's clean-up box: Word or Excel HTML pasted (or typed) into the box is cleaned by
// the agent's demo server ("POST /clean", the pipelines of `velmora clean`), and the editor
// shows the result: the Body as its content, the Style applied to the editor only. The
// rules that changed the text are listed beside it, in the order they ran.

const $ = (id) => document.getElementById(id);

// The switches of each pipeline family, by the optimize mode they act in.
const SWITCHES = {
  word: {
    1: ["opt1vml", "opt1absolute", "opt1eq", "opt1margin", "opt1space", "opt1grid", "opt1css"],
    2: ["opt2image", "opt2table", "opt2eq", "opt2indent", "opt2ptobr"],
    both: ["pagewidth", "pagemargin", "pageeffect", "pagescroll"],
  },
  excel: {
    1: ["opt1vml", "opt1space", "opt1table", "opt1overflow", "opt1css"],
    2: ["opt2image", "opt2space", "opt2table"],
    both: [],
  },
};

const family = () => ($("cleanup-engine").value.endsWith("excel") ? "excel" : "word");
const mode = () => $("cleanup-mode").value;

function report(outcome, text) {
  const line = $("cleanup-result");
  line.dataset.outcome = outcome;
  line.textContent = text;
}

// The option string the switches make: "optimizemode:2;opt2table:1".
function composeOptions() {
  const on = [...$("cleanup-switches").querySelectorAll("input:checked")].map((box) => `${box.name}:1`);
  $("cleanup-opt").value = [`optimizemode:${mode()}`, ...on].join(";");
}

// One check box per switch of the chosen engine and mode; a switch that stays keeps its state.
function showSwitches() {
  $("cleanup-extra-css").hidden = $("cleanup-engine").value !== "wps-excel";
  const holder = $("cleanup-switches");
  const wasOn = new Set([...holder.querySelectorAll("input:checked")].map((box) => box.name));
  const names = [...SWITCHES[family()][mode()], ...SWITCHES[family()].both];
  holder.replaceChildren(...names.map((name) => {
    const label = document.createElement("label");
    const box = Object.assign(document.createElement("input"), { type: "checkbox", name, checked: wasOn.has(name) });
    box.addEventListener("change", composeOptions);
    label.append(box, name);
    return label;
  }));
  composeOptions();
}

// A paste of copied office content puts its HTML (not its plain text) into the box.
function pasteHtml(event) {
  const html = event.clipboardData?.getData("text/html");
  if (!html) return;  // plain text: the box takes it as typed
  event.preventDefault();
  const box = event.currentTarget;
  box.setRangeText(html, box.selectionStart, box.selectionEnd, "end");
  $("cleanup-source").value = "paste";
}

// The Style's rules, kept to the editor so the rest of the page keeps its look.
function applyStyle(style) {
  const holder = document.createElement("template");
  holder.innerHTML = style;
  const rules = [...holder.content.querySelectorAll("style")].map((element) => element.textContent).join("\n");
  let sheet = $("cleanup-style");
  if (!sheet) document.head.append(sheet = Object.assign(document.createElement("style"), { id: "cleanup-style" }));
  sheet.textContent = rules ? `@scope (#editor .ql-editor) {\n${rules}\n}` : "";
}

function showTrace(trace) {
  $("cleanup-trace").replaceChildren(...trace.map(({ rule, change }) => {
    const item = document.createElement("li");
    item.dataset.rule = rule;
    item.textContent = `${rule} ${change > 0 ? "+" : ""}${change}`;
    return item;
  }));
}

async function cleanUp(editor) {
  const request = { engine: $("cleanup-engine").value, source: $("cleanup-source").value,
    opt: $("cleanup-opt").value, html: $("cleanup-html").value };
  if (request.engine === "wps-excel") request.extraCss = $("cleanup-extra-css").value;
  report("busy", "Cleaning up…");
  $("cleanup-run").disabled = true;
  try {
    const answer = await fetch("/clean", { method: "POST", headers: { "Content-Type": "application/json" },
      body: JSON.stringify(request) });
    const result = await answer.json().catch(() => ({ error: `${answer.status} ${answer.statusText}` }));
    if (!answer.ok) return report("error", `Clean-up refused: ${result.error}`);
    applyStyle(result.Style);
    editor.setContents(editor.clipboard.convert({ html: result.Body }), "user");
    $("cleanup-style-text").textContent = result.Style;
    $("cleanup-body-text").textContent = result.Body;
    showTrace(result.trace);
    report("ok", `Cleaned with ${request.engine}, ${request.opt}: ${result.trace.length} rule(s) changed the text`);
  } catch (error) {
    report("error", `Clean-up failed: ${error.message ?? error}`);
  } finally {
    $("cleanup-run").disabled = false;
  }
}

async function start() {
  const { editor } = await window.velmoraDemo.ready;
  $("cleanup-engine").addEventListener("change", showSwitches);
  $("cleanup-mode").addEventListener("change", showSwitches);
  $("cleanup-html").addEventListener("paste", pasteHtml);
  $("cleanup-run").addEventListener("click", () => cleanUp(editor));
  showSwitches();
  const panel = $("cleanup-panel");
  panel.hidden = false;
  panel.dataset.state = "ready";
}

start().catch((error) => console.error("the clean-up box is not available:", error));
