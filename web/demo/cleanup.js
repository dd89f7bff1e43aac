// The demo's clean-up box: Word or Excel HTML pasted (or typed) into the box is cleaned by
// the agent's demo server ("POST /clean", the pipelines of `velmora clean`), and the result
// goes into the editor at the cursor (or replaces all of it, when chosen): the Body, with the
// Style applied to the editor only. The rules that changed the text are listed beside it,
// in the order they ran, each with what it does as its table writes it.

import { insertHtml, report } from "./panels.js";

const $ = (id) => document.getElementById(id);
const say = (outcome, sentence, word) => report("cleanup-result", outcome, sentence, word);

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

// What a rule does, in a few words, from its table: what it looks for and what it writes.
function legend({ pattern, replacement }) {
  if (pattern === undefined) return "";
  return replacement ? `turns /${pattern}/ into "${replacement}"` : `removes /${pattern}/`;
}

function showTrace(trace) {
  $("cleanup-trace").replaceChildren(...trace.map((step) => {
    const item = document.createElement("li");
    item.dataset.rule = step.rule;
    const code = Object.assign(document.createElement("span"), { className: "rule",
      textContent: `${step.rule} ${step.change > 0 ? "+" : ""}${step.change}` });
    const does = Object.assign(document.createElement("small"), { className: "does", textContent: legend(step) });
    item.append(code, does);
    return item;
  }));
}

// The option keys the chosen engine knows; anything else is a typing mistake.
function unknownOptions(options) {
  const known = new Set(["optimizemode", ...Object.values(SWITCHES[family()]).flat()]);
  return options.split(";").map((pair) => pair.split(":")[0].trim()).filter((key) => key && !known.has(key));
}

async function cleanUp(editor) {
  const request = { engine: $("cleanup-engine").value, source: $("cleanup-source").value,
    opt: $("cleanup-opt").value.trim(), html: $("cleanup-html").value };
  if (!request.html.trim()) return say("error", "Paste (or type) Word or Excel HTML into the box first.");
  const unknown = unknownOptions(request.opt);
  if (unknown.length) {
    return say("error", `The ${family()} clean-up has no option ${unknown.map((key) => `"${key}"`).join(", ")}; ` +
      "use the check boxes, or write key:1 pairs separated by semicolons.");
  }
  if (request.engine === "wps-excel") request.extraCss = $("cleanup-extra-css").value;
  say("busy", "Cleaning up…");
  $("cleanup-run").disabled = true;
  try {
    const answer = await fetch("/clean", { method: "POST", headers: { "Content-Type": "application/json" },
      body: JSON.stringify(request) });
    const result = await answer.json().catch(() => ({ error: `${answer.status} ${answer.statusText}` }));
    if (!answer.ok) return say("error", `The clean-up could not run: ${result.error}`, `HTTP ${answer.status}`);
    applyStyle(result.Style);
    const replaceAll = $("cleanup-replace").checked;
    if (replaceAll) editor.setContents(editor.clipboard.convert({ html: result.Body }), "user");
    else insertHtml(editor, result.Body);
    $("cleanup-style-text").textContent = result.Style;
    $("cleanup-body-text").textContent = result.Body;
    showTrace(result.trace);
    say("ok", `Cleaned with ${request.engine} and ${replaceAll ? "put in place of the editor's content" :
      "inserted at the cursor"}: ${result.trace.length} rule(s) changed the text`, request.opt);
  } catch (error) {
    say("error", `The clean-up could not run: ${error.message ?? error}`);
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
