import * as THREE from "three";

import { formatCoordinate } from "./format.js";

const STEPS = 500;
const AXES = ["X", "Y", "Z"];

/// The box outside of which nothing is drawn or picked, with its sliders.
export class ClipBox {
  /// @param changed  called when the box is another one.
  constructor(cloud, uniforms, changed) {
    this.cloud = cloud;
    this.uniforms = uniforms;
    this.changed = changed;
    this.box = new THREE.Box3(new THREE.Vector3(...cloud.box.min), new THREE.Vector3(...cloud.box.max));
    this.frame = new THREE.Box3Helper(this.box, 0x4a90d9);
    this.frame.visible = false;
    this.toggle = document.getElementById("clip");
    this.sides = document.getElementById("clip-sides");
    this.toggle.addEventListener("change", () => this.update());
    for (let axis = 0; axis < 3; ++axis) for (const end of ["min", "max"]) this.addSlider(axis, end);
  }

  get enabled() {
    return this.toggle.checked;
  }

  /// The box as the server takes it; undefined when it is off.
  describe() {
    return this.enabled ? { min: this.box.min.toArray(), max: this.box.max.toArray() } : undefined;
  }

  addSlider(axis, end) {
    const label = document.createElement("label");
    const output = document.createElement("output");
    const slider = document.createElement("input");
    Object.assign(slider, { type: "range", min: 0, max: STEPS, value: end === "min" ? 0 : STEPS });
    slider.id = `clip-${AXES[axis].toLowerCase()}-${end}`;
    label.append(`${AXES[axis]} ${end === "min" ? "from" : "to"}`, output, slider);
    this.sides.append(label);
    const low = this.cloud.box.min[axis];
    const size = this.cloud.box.max[axis] - low;
    const show = () => {
      const at = low + (size * slider.value) / STEPS;
      this.box[end].setComponent(axis, at);
      output.value = formatCoordinate(at + this.cloud.shift[axis]);
    };
    slider.addEventListener("input", () => {
      show();
      this.update();
    });
    show();
  }

  update() {
    this.sides.hidden = !this.enabled;
    this.frame.visible = this.enabled;
    this.uniforms.clipping.value = this.enabled;
    this.uniforms.clipMin.value.copy(this.box.min);
    this.uniforms.clipMax.value.copy(this.box.max);
    this.changed();
  }
}
