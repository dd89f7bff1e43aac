// The demo's "Local upload": pictures from this computer go into the editor by their
// file:/// address (typed or pasted into the path field, or picked with the control's open
// dialog), and "Local upload" hands the editor's HTML to the control's LocalUpload, which
// sends every picture to the demo's receiver. The editor then shows the HTML the control
// gives back, whose pictures come from the receiver.

import { startPanel, uploadTo } from "./panels.js";

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

function report(outcome, text) {
  const line = $("local-upload-result");
  line.dataset.outcome = outcome;
  line.textContent = text;
}

function insertPicture(editor, address) {
  const at = editor.getSelection(true)?.index ?? editor.getLength();
  const name = decodeURIComponent(address.split("/").pop());
  editor.insertEmbed(at, "image", address, "user");
  editor.formatText(at, 1, { alt: name }, "user");  // a picture the page may not show still has a name
  editor.setSelection(at + 1, "silent");
}

function insertTyped(editor) {
  const address = fileAddress($("local-path").value);
  if (!address) return report("error", "Give an absolute path (/home/you/picture.png) or a file:/// address.");
  insertPicture(editor, address);
  $("local-path").value = "";
  report("ok", `Inserted ${address}`);
}

async function choosePictures(control, editor) {
  try {
    const chosen = await control.DialogOpen(true, true, PICTURE_FILTER);
    const paths = chosen ? chosen.split("|") : [];
    for (const path of paths) insertPicture(editor, fileAddress(path));
    report("ok", paths.length ? `Inserted ${paths.length} picture(s)` : "No picture chosen");
  } catch (error) {
    report("error", `DialogOpen: ${error.description ?? error}`);
  }
}

async function localUpload(control, editor, uploadUrl) {
  report("busy", "Uploading…");
  try {
    await uploadTo(control, uploadUrl);
    await control.LocalUpload(editor.root.innerHTML);
    const result = await control.whenDone();
    if (result.Error) return report("error", `Error: ${result.Error}`);
    editor.setContents(editor.clipboard.convert({ html: result.Body }), "user");
    report("ok", result.OriginalFiles
      ? `Uploaded ${result.OriginalFiles.split("|").join(", ")}`
      : "Nothing uploaded: the editor holds no local picture the control accepts");
  } catch (error) {
    report("error", `LocalUpload: ${error.description ?? error}`);
  }
}

function wire({ control, editor, uploadUrl }) {
  $("local-insert").addEventListener("click", () => insertTyped(editor));
  $("local-path").addEventListener("keydown", (event) => {
    if (event.key === "Enter") insertTyped(editor);
  });
  $("local-browse").addEventListener("click", () => choosePictures(control, editor));
  $("local-upload").addEventListener("click", () => localUpload(control, editor, uploadUrl));
}

startPanel("local-upload-panel", wire).catch((error) => console.error("the Local upload action is not available:", error));
