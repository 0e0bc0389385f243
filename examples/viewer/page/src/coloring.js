import * as THREE from "three";

import { getBytes, getJson } from "./api.js";
import { formatCoordinate, formatValue } from "./format.js";

const POLL_MS = 300;

/// The choice of colouring, its colour map and the legend.
export class Coloring {
  /// @param cloud    what the server said of the cloud.
  /// @param view     the `CloudView` to colour.
  /// @param say      shows a text, or none.
  constructor(cloud, view, say) {
    this.cloud = cloud;
    this.view = view;
    this.say = say;
    this.by = document.getElementById("coloring");
    this.map = document.getElementById("map");
    this.maps = new Map();
    for (const { name, title } of cloud.colorings) this.by.append(new Option(title, name));
    for (const name of cloud.maps) this.map.append(new Option(name.replace("_", ", "), name));
    this.chosenMaps = new Map();
    this.by.addEventListener("change", () => this.apply());
    this.map.addEventListener("change", () => {
      this.chosenMaps.set(this.by.value, this.map.value);
      this.apply();
    });
  }

  /// Chooses the i-th colouring there is, from 0.
  choose(i) {
    if (i >= this.by.length) return;
    this.by.selectedIndex = i;
    this.apply();
  }

  async apply() {
    const coloring = this.cloud.colorings.find(({ name }) => name === this.by.value);
    try {
      if (coloring.field && coloring.ready === undefined) await this.compute(coloring);
      // Another choice may have been made meanwhile.
      if (coloring.name !== this.by.value) return;
      const map = this.chosenMaps.get(coloring.name) ?? coloring.map;
      this.map.parentElement.hidden = !map;
      if (map) {
        this.map.value = map;
        await this.useMap(map);
      }
      const { uniforms } = this.view.material;
      if (coloring.name === "height") uniforms.heights.value.set(coloring.low, coloring.high);
      this.view.color(coloring.name, Boolean(coloring.field));
      this.showLegend(coloring, map);
      this.say(null);
    } catch (error) {
      this.say(`${coloring.title}: ${error.message}`);
    }
  }

  /// Waits until the server has computed what a colouring shows.
  async compute(coloring) {
    const title = coloring.title.replace(/ \(.*/, "");
    for (;;) {
      const field = await getJson(`/api/fields/${coloring.name}`);
      if (field.ready) {
        Object.assign(coloring, field);
        return;
      }
      if (coloring.name === this.by.value) this.say(`${title}: being computed…`);
      await new Promise((resolve) => setTimeout(resolve, POLL_MS));
    }
  }

  async useMap(name) {
    if (!this.maps.has(name)) {
      const bytes = new Uint8Array(await getBytes(`/api/maps/${name}`));
      const texture = new THREE.DataTexture(bytes, bytes.length / 4, 1);
      texture.magFilter = texture.minFilter = THREE.LinearFilter;
      texture.needsUpdate = true;
      this.maps.set(name, { bytes, texture });
    }
    this.view.material.uniforms.ramp.value = this.maps.get(name).texture;
  }

  showLegend(coloring, map) {
    document.getElementById("legend").hidden = !map;
    if (!map) return;
    const { bytes } = this.maps.get(map);
    const canvas = document.getElementById("legend-scale");
    const image = new ImageData(canvas.width, 1);
    for (let x = 0; x < canvas.width; ++x) {
      const step = 4 * Math.round((x * (bytes.length / 4 - 1)) / (canvas.width - 1));
      image.data.set(bytes.subarray(step, step + 4), 4 * x);
    }
    canvas.getContext("2d").putImageData(image, 0, 0);
    const isHeight = coloring.name === "height";
    const format = isHeight ? formatCoordinate : formatValue;
    const base = isHeight ? this.cloud.shift[2] : 0;
    document.getElementById("legend-title").textContent = coloring.title;
    document.getElementById("legend-low").textContent = format(base + coloring.low);
    document.getElementById("legend-high").textContent = format(base + coloring.high);
  }
}
