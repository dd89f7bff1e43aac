// What the demo's upload panels share: the page's control and editor, the agent's upload
// receiver, and the settings every panel's pictures are sent with.

const PICTURE_TYPES = "png|jpg|jpeg|gif|bmp";
const LARGEST_KB = "20480";

// Points the control's next upload at the demo's receiver.
export async function uploadTo(control, uploadUrl) {
  await control.put("SendUrl", uploadUrl);
  await control.put("LocalExt", PICTURE_TYPES);
  await control.put("LocalSize", LARGEST_KB);
}

// Once the control is ready, `wire({ control, editor, uploadUrl })` hooks up the panel's
// buttons and the panel is shown. Its pictures need the receiver: when the agent has none,
// the panel stays hidden and says so in its state.
export async function startPanel(panelId, wire) {
  const [{ control, editor }, page] = await Promise.all([
    window.velmoraDemo.ready,
    fetch("/agent.json").then((answer) => answer.json()),
  ]);
  const panel = document.getElementById(panelId);
  if (!page.upload) {
    panel.dataset.state = "no-receiver";
    return;
  }
  wire({ control, editor, uploadUrl: page.upload });
  panel.hidden = false;
  panel.dataset.state = "ready";
}
