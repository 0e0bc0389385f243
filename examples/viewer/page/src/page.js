import * as THREE from "three";

import { getJson, post } from "./api.js";
import { CameraControl } from "./camera.js";
import { ClipBox } from "./clip_box.js";
import { CloudView } from "./cloud_view.js";
import { Coloring } from "./coloring.js";
import { formatCount } from "./format.js";
import { listenToKeys } from "./keys.js";
import { Measuring } from "./measuring.js";
import { Selection } from "./selection.js";
import { Stats } from "./stats.js";

// A node's points are left out when its bounding sphere is smaller: its sample would be finer than pixels.
const LEAST_NODE_PIXELS = 90;

const canvas = document.getElementById("view");
const message = document.getElementById("message");
const PASSING_MS = 3000;

/// Shows a text, or none.
function say(text) {
  message.textContent = text ?? "";
}

/// Shows a text for a while.
function remark(text) {
  say(text);
  setTimeout(() => message.textContent === text && say(null), PASSING_MS);
}

async function start() {
  const cloud = await getJson("/api/cloud");
  document.title = `${cloud.name} – points`;
  document.getElementById("name").textContent = `${cloud.name}, ${formatCount(cloud.points)} points`;

  const renderer = new THREE.WebGLRenderer({ canvas, alpha: true });
  const scene = new THREE.Scene();
  const stats = new Stats();
  let drawing = false;
  const draw = () => {
    if (!drawing) requestAnimationFrame(frame);
    drawing = true;
  };

  const control = new CameraControl(cloud, canvas, draw);
  const view = new CloudView(cloud, draw);
  const coloring = new Coloring(cloud, view, say);
  const clip = new ClipBox(cloud, view.material.uniforms, draw);
  const measuring = new Measuring(draw);
  const selection = new Selection(() => view.select(selection.keys), say);
  scene.add(view.group, clip.frame, measuring.object);

  const budget = document.getElementById("budget");
  const size = document.getElementById("size");
  const sizeMode = document.getElementById("size-mode");
  // The server takes more, but a slider for all of it could not be set well.
  const most = Math.max(5_000_000, cloud.budget.start);
  Object.assign(budget, { min: cloud.budget.least, max: most, step: 100_000, value: cloud.budget.start });

  function frame() {
    drawing = false;
    const moving = control.step();
    const { uniforms } = view.material;
    const pixels = renderer.domElement.height;
    const ratio = renderer.getPixelRatio();
    uniforms.adaptive.value = sizeMode.value === "adaptive";
    uniforms.size.value = Number(size.value) * (uniforms.adaptive.value ? 1 : ratio);
    uniforms.focalPixels.value = pixels / (2 * Math.tan(THREE.MathUtils.degToRad(control.camera.fov / 2)));
    const question = {
      camera: control.describe(pixels),
      budget: Number(budget.value),
      minSize: LEAST_NODE_PIXELS * ratio,
    };
    selection.ask(question);
    renderer.render(scene, control.camera);
    measuring.place(control.camera, canvas.clientWidth, canvas.clientHeight);
    stats.frameDrawn();
    stats.show(view, selection);
    if (moving) draw();
  }

  /// The point under a place of the canvas, in pixels from its upper left corner.
  function pick(x, y) {
    return post("/api/pick", {
      camera: control.describe(renderer.domElement.height),
      u: THREE.MathUtils.clamp((2 * x) / canvas.clientWidth - 1, -1, 1),
      v: THREE.MathUtils.clamp(1 - (2 * y) / canvas.clientHeight, -1, 1),
      clip: clip.describe(),
    });
  }

  async function aim(x, y) {
    const picked = await pick(x, y).catch((error) => ({ error }));
    if (picked.error) return remark(picked.error.message);
    if (!picked.found) remark("There is no point here.");
    if (measuring.active) measuring.add(picked);
    else if (picked.found) control.setPivot(picked.position);
  }
  const aimAtMiddle = () => aim(canvas.clientWidth / 2, canvas.clientHeight / 2);

  canvas.addEventListener("dblclick", (event) => {
    if (!measuring.active) aim(event.offsetX, event.offsetY);
  });
  let pressed = null;
  canvas.addEventListener("pointerdown", (event) => (pressed = { x: event.offsetX, y: event.offsetY }));
  canvas.addEventListener("pointerup", (event) => {
    const still = pressed && Math.hypot(event.offsetX - pressed.x, event.offsetY - pressed.y) < 5;
    if (measuring.active && still && event.button === 0) aim(event.offsetX, event.offsetY);
  });

  const showSettings = () => {
    document.getElementById("budget-value").value = formatCount(budget.value);
    document.getElementById("size-value").value = size.value;
    draw();
  };
  for (const input of [budget, size, sizeMode]) input.addEventListener("input", showSettings);
  const press = (id, action) => document.getElementById(id).addEventListener("click", action);
  press("fit", () => control.fit());
  press("top", () => control.fit(0, -0.001, 1));
  press("theme", () => {
    const dark = getComputedStyle(document.documentElement).getPropertyValue("color-scheme") === "dark" ||
      (!document.documentElement.dataset.theme && matchMedia("(prefers-color-scheme: dark)").matches);
    document.documentElement.dataset.theme = dark ? "light" : "dark";
  });
  press("help-open", () => document.getElementById("help").showModal());
  press("panel-toggle", (event) => {
    const open = document.getElementById("panel").classList.toggle("open");
    event.target.setAttribute("aria-expanded", open);
  });
  listenToKeys(canvas, { control, coloring, measuring, clip, aimAtMiddle });

  new ResizeObserver(() => {
    renderer.setPixelRatio(Math.min(devicePixelRatio, 2));
    renderer.setSize(canvas.clientWidth, canvas.clientHeight, false);
    control.resize(canvas.clientWidth, canvas.clientHeight);
  }).observe(canvas);
  control.resize(canvas.clientWidth || 1, canvas.clientHeight || 1);
  control.fit();
  setInterval(() => stats.show(view, selection), 500);
  showSettings();
  coloring.apply();
}

start().catch((error) => say(`The cloud cannot be shown: ${error.message}`));
