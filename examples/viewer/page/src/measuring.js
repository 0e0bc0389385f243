import * as THREE from "three";

import { formatCoordinate } from "./format.js";

const AXES = ["X", "Y", "Z"];

/// The distance between two points of the cloud.
export class Measuring {
  /// @param changed  called when there is something else to draw.
  constructor(changed) {
    this.changed = changed;
    this.points = [];
    this.button = document.getElementById("measure");
    this.table = document.getElementById("measured");
    this.text = document.getElementById("distance");
    this.label = document.getElementById("measure-label");
    this.ends = new THREE.BufferGeometry();
    const look = { color: 0xff3b6b, depthTest: false, transparent: true };
    this.object = new THREE.Group();
    this.object.add(
      new THREE.Line(this.ends, new THREE.LineBasicMaterial(look)),
      new THREE.Points(this.ends, new THREE.PointsMaterial({ ...look, size: 9, sizeAttenuation: false })),
    );
    // After the points of the cloud
    for (const part of this.object.children) Object.assign(part, { renderOrder: 1, frustumCulled: false });
    this.button.addEventListener("click", () => this.toggle());
    this.show();
  }

  get active() {
    return this.button.getAttribute("aria-pressed") === "true";
  }

  toggle(active = !this.active) {
    this.button.setAttribute("aria-pressed", active);
    document.body.classList.toggle("aiming", active);
    if (active) this.points = [];
    this.show();
  }

  /// @param picked  the server's answer to a pick; a third point starts anew.
  add(picked) {
    if (!picked.found) return;
    if (this.points.length === 2) this.points = [];
    this.points.push(picked);
    this.show();
  }

  show() {
    const [a, b] = this.points;
    this.ends.setAttribute(
      "position",
      new THREE.Float32BufferAttribute(this.points.flatMap((p) => p.position), 3),
    );
    this.object.visible = this.points.length > 0;
    this.table.hidden = !a;
    const body = this.table.tBodies[0];
    body.replaceChildren();
    for (let axis = 0; a && axis < 3; ++axis) {
      const row = body.insertRow();
      const head = document.createElement("th");
      head.textContent = AXES[axis];
      row.append(head);
      const values = [a.world[axis], b?.world[axis], b && b.world[axis] - a.world[axis]];
      for (const value of values) row.insertCell().textContent = value === undefined ? "" : formatCoordinate(value);
    }
    if (b) this.text.textContent = `Distance ${formatCoordinate(this.distance)}`;
    else if (this.active) this.text.textContent = a ? "Choose the second point." : "Choose the first point.";
    else this.text.textContent = "";
    this.changed();
  }

  /// From the coordinates in the world, in double.
  get distance() {
    const [a, b] = this.points;
    return Math.hypot(...a.world.map((value, axis) => b.world[axis] - value));
  }

  /// Keeps the label beside the line's middle.
  place(camera, width, height) {
    const shown = this.points.length === 2;
    this.label.hidden = !shown;
    if (!shown) return;
    const [a, b] = this.points.map((p) => new THREE.Vector3(...p.position));
    const middle = a.add(b).multiplyScalar(0.5).project(camera);
    this.label.hidden = Math.abs(middle.z) > 1;
    this.label.textContent = formatCoordinate(this.distance);
    const x = (0.5 + 0.5 * middle.x) * width;
    const y = (0.5 - 0.5 * middle.y) * height;
    this.label.style.transform = `translate(${x + 10}px, ${y - 12}px)`;
  }
}
