import * as THREE from "three";

export const LEVELS_WIDTH = 2048;

/// The drawn nodes as a hierarchy that the shader walks down to find the depth of detail at a place. An entry holds
/// the mask of drawn children in its low byte, and above it how far ahead the first of them stands; children stand
/// together.
export class Levels {
  constructor() {
    this.resize(1);
  }

  resize(rows) {
    this.texture?.dispose();
    this.data = new Uint32Array(LEVELS_WIDTH * rows);
    this.texture = new THREE.DataTexture(this.data, LEVELS_WIDTH, rows, THREE.RedIntegerFormat, THREE.UnsignedIntType);
    this.texture.internalFormat = "R32UI";
    this.texture.needsUpdate = true;
  }

  /// @param drawn  set of keys; those that no drawn nodes connect to the root do not count.
  update(drawn) {
    const order = drawn.has("1") ? ["1"] : [];
    const entries = [];
    for (let i = 0; i < order.length; ++i) {
      let mask = 0;
      const first = order.length;
      for (let octant = 0; octant < 8; ++octant) {
        const child = order[i] + octant;
        if (!drawn.has(child)) continue;
        mask |= 1 << octant;
        order.push(child);
      }
      entries.push(mask === 0 ? 0 : mask + 256 * (first - i));
    }
    if (entries.length > this.data.length) this.resize(Math.ceil(entries.length / LEVELS_WIDTH));
    this.data.fill(0);
    this.data.set(entries);
    this.texture.needsUpdate = true;
  }
}
