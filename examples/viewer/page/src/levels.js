import * as THREE from "three";

export const LEVELS_WIDTH = 2048;

/// The drawn nodes as a hierarchy that the shader walks down to find the depth of detail at a place, and how
/// far the points of that depth are from one another. An entry is two numbers: the mask of drawn children in the low
/// byte and above it how far ahead the first of them stands, children standing together; and the spacing of the node's
/// points, a float.
export class Levels {
  constructor() {
    this.resize(1);
  }

  resize(rows) {
    this.texture?.dispose();
    this.data = new Uint32Array(2 * LEVELS_WIDTH * rows);
    this.texture = new THREE.DataTexture(this.data, LEVELS_WIDTH, rows, THREE.RGIntegerFormat, THREE.UnsignedIntType);
    this.texture.internalFormat = "RG32UI";
    this.texture.needsUpdate = true;
  }

  /// @param drawn      set of keys; those that no drawn nodes connect to the root do not count.
  /// @param spacingOf  gives the spacing of a key's node.
  update(drawn, spacingOf) {
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
    if (2 * order.length > this.data.length) this.resize(Math.ceil(order.length / LEVELS_WIDTH));
    const spacings = new Float32Array(this.data.buffer);
    this.data.fill(0);
    order.forEach((key, i) => {
      this.data[2 * i] = entries[i];
      spacings[2 * i + 1] = spacingOf(key);
    });
    this.texture.needsUpdate = true;
  }
}
