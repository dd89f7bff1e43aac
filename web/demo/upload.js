// The demo's "Local upload": pictures from this computer go into the editor by their
// file:/// address (typed or pasted into the path field, or picked with the control's open
// dialog), and "Local upload" hands the editor's HTML to the control's LocalUpload, which
// sends every picture to the demo's receiver. The editor then shows the HTML the control
// gives back, whose pictures come from the receiver.

import { report, startPanel, uploadTo } from "./panels.js";
import { callErrorSentence, callErrorWord, errorSentence } from "./words.js";

const PICTURE_FILTER = "Pictures (*.png;*.jpg;*.jpeg;*.gif;*.bmp)|*.png;*.jpg;*.jpeg;*.gif;*.bmp";

const $ = (id) => document.getElementById(id);

// The editor keeps only http, https and data pictures; a local one keeps its file:///
// address until the upload replaces it.
const Image = Quill.import("formats/image");
class LocalImage extends Image {
  static sanitize(url) {
    return /^file:\/\//i.test(url) ? url : super.sanitize(url);
  }
}
Quill.register(LocalImage, true);

// A file:/// address as typed, or one made from an absolute path. The control reads "%20"
// as a space and takes every other character as it stands.
function fileAddress(text) {
  const trimmed = text.trim();
  if (/^file:\/\/\//i.test(trimmed)) return trimmed;
  if (trimmed.startsWith("/")) return `file://${trimmed.replaceAll(" ", "%20")}`;
  return null;
}

const say = (outcome, sentence, word) => report("local-upload-result", outcome, sentence, word);

function insertPicture(editor, address) {
  const at = editor.getSelection(true)?.index ?? editor.getLength();
  const name = decodeURIComponent(address.split("/").pop());
  editor.insertEmbed(at, "image", address, "user");
  editor.formatText(at, 1, { alt: name }, "user");  // a picture the page may not show still has a name
  editor.setSelection(at + 1, "silent");
}

function insertTyped(editor) {
  const address = fileAddress($("local-path").value);
  if (!address) return say("error", "Give an absolute path (/home/you/picture.png) or a file:/// address.");
  insertPicture(editor, address);
  $("local-path").value = "";
  say("ok", `Inserted ${address}; "Local upload" sends it to the server.`);
}

async function choosePictures(demo) {
  try {
    const chosen = await demo.control.DialogOpen(true, true, PICTURE_FILTER);
    const paths = chosen ? chosen.split("|") : [];
    for (const path of paths) insertPicture(demo.editor, fileAddress(path));
    say("ok", paths.length ? `Inserted ${paths.length} picture(s)` : "No picture chosen.");
  } catch (error) {
    say("error", callErrorSentence(error), callErrorWord(error));
  }
}

// The control gives back the editor's whole HTML with each local picture's address
// replaced by the server's; the editor takes it in place, keeping the cursor where it was.
async function localUpload(demo, uploadUrl) {
  say("busy", "Uploading…");
  const { control, editor } = demo;
  try {
    await uploadTo(control, uploadUrl);
    await control.LocalUpload(editor.root.innerHTML);
    const result = await control.whenDone();
    if (result.Error) return say("error", errorSentence(result.Error), result.Error);
    const cursor = editor.getSelection()?.index;
    editor.setContents(editor.clipboard.convert({ html: result.Body }), "user");
    if (cursor !== undefined) editor.setSelection(Math.min(cursor, editor.getLength() - 1), 0, "silent");
    say("ok", result.OriginalFiles
      ? `Uploaded ${result.OriginalFiles.split("|").join(", ")}`
      : "Nothing uploaded: the editor holds no local picture (png, jpg, gif or bmp) that can be read.",
    `Status ${result.Status}`);
  } catch (error) {
    say("error", callErrorSentence(error), callErrorWord(error));
  }
}

function wire({ demo, editor, uploadUrl }) {
  $("local-insert").addEventListener("click", () => insertTyped(editor));
  $("local-path").addEventListener("keydown", (event) => {
    if (event.key === "Enter") insertTyped(editor);
  });
  $("local-browse").addEventListener("click", () => choosePictures(demo));
  $("local-upload").addEventListener("click", () => localUpload(demo, uploadUrl));
}

startPanel("local-upload-panel", wire).catch((error) => console.error("the Local upload action is not available:", error));
