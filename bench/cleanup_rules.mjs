// Replays a clean-up run that bench/cleanup_bench logged: the same rules, in the same order,
// on the same texts, with Node's regular expressions (flags "gi"). Prints the milliseconds
// the rules took (the fastest of three replays) and whether every output equals Velmora's.
//   node cleanup_rules.mjs RUN.jsonl
import { createHash } from "node:crypto";
import { readFileSync } from "node:fs";

// The rules' dialect differs from ECMAScript in two places: "." excludes only the line
// feed, and "\s" is ASCII white space only.
const ASCII_SPACE = " \\t\\n\\v\\f\\r";
function toEcmaScript(pattern) {
  let out = "";
  let inClass = false;
  for (let i = 0; i < pattern.length; i++) {
    const c = pattern[i];
    if (c === "\\") {
      const next = pattern[++i];
      if (next === "s") out += inClass ? ASCII_SPACE : `[${ASCII_SPACE}]`;
      else if (next === "S" && !inClass) out += `[^${ASCII_SPACE}]`;
      else out += c + next;
    } else if (c === "[" && !inClass) { inClass = true; out += c; if (pattern[i + 1] === "]") out += pattern[++i]; }
    else if (c === "]" && inClass) { inClass = false; out += c; }
    else if (c === "." && !inClass) out += "[^\\n]";
    else out += c;
  }
  return out;
}

const hash = (text) => createHash("sha1").update(Buffer.from(text, "utf16le")).digest("hex");
const compiled = new Map();
const regExpOf = (pattern) => {
  if (!compiled.has(pattern)) compiled.set(pattern, new RegExp(toEcmaScript(pattern), "gi"));
  return compiled.get(pattern);
};

// The replay runs ROUNDS times (regular expressions compiled once); the fastest counts.
const ROUNDS = 3;
const steps = readFileSync(process.argv[2], "utf8").split("\n").filter(Boolean).map((line) => JSON.parse(line));
const mismatches = [];
let ms = Infinity;
let perRule = new Map();
for (let round = 0; round < ROUNDS; round++) {
  let text = "";
  let roundMs = 0;
  const roundPerRule = new Map();
  for (const step of steps) {
    if (step.input !== undefined) text = step.input;
    const regExp = regExpOf(step.pattern);
    const started = process.hrtime.bigint();
    let result = text.replace(regExp, step.replacement);
    if (step.untilStable) {
      while (result !== text) { text = result; result = text.replace(regExp, step.replacement); }
    }
    const took = Number(process.hrtime.bigint() - started) / 1e6;
    roundMs += took;
    roundPerRule.set(step.name, (roundPerRule.get(step.name) ?? 0) + took);
    text = result;
    if (round === 0 && hash(text) !== step.output) mismatches.push(step.name);
  }
  if (roundMs < ms) [ms, perRule] = [roundMs, roundPerRule];
}
const slowest = [...perRule].sort((a, b) => b[1] - a[1]).slice(0, 3).map(([n, t]) => `${n} ${t.toFixed(0)}ms`);
console.log(JSON.stringify({ ms, identical: mismatches.length === 0, mismatches: mismatches.slice(0, 5), slowest }));
