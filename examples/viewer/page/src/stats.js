import { formatBytes, formatCount } from "./format.js";

/// The figures that the page shows. Each element also holds its plain number in data-value.
export class Stats {
  constructor() {
    this.frames = [];
  }

  frameDrawn() {
    const now = performance.now();
    this.frames.push(now);
    while (this.frames[0] < now - 1000) this.frames.shift();
  }

  show(view, selection) {
    set("points", view.points, formatCount(view.points));
    set("nodes", view.drawn.size, formatCount(view.drawn.size));
    const depth = Math.max(0, ...[...view.drawn].map((key) => key.length - 1));
    set("depth", depth, String(depth));
    set("loaded", view.loader.bytes, formatBytes(view.loader.bytes));
    set("memory", view.cache.bytes, formatBytes(view.cache.bytes));
    // Frames are drawn only when something changes.
    const [first] = this.frames;
    const span = performance.now() - first;
    const moving = this.frames.length > 1 && span < 1500;
    const rate = moving ? (1000 * (this.frames.length - 1)) / (this.frames.at(-1) - first) : 0;
    set("fps", rate, moving ? rate.toFixed(0) : "at rest");
    document.body.dataset.requests = view.loader.requests;
    document.body.dataset.selected = selection.points;
    document.body.dataset.complete = view.complete && selection.keys.size === view.drawn.size && !selection.busy;
  }
}

function set(name, value, text) {
  const element = document.getElementById(`stat-${name}`);
  element.dataset.value = value;
  if (element.textContent !== text) element.textContent = text;
}
