import * as THREE from "three";

import { NodeCache } from "./cache.js";
import { Levels } from "./levels.js";
import { Loader } from "./loader.js";
import { COLORINGS, pointMaterial } from "./material.js";

const HEAD_BYTES = 24;
const CACHE_BYTES = 256 * 2 ** 20;

/// The nodes that are drawn: fetches those that are selected and keeps some that were.
export class CloudView {
  /// @param cloud    what the server said of the cloud.
  /// @param changed  called when there is something else to draw.
  constructor(cloud, changed) {
    this.changed = changed;
    this.levels = new Levels();
    this.material = pointMaterial(cloud, this.levels);
    this.group = new THREE.Group();
    this.group.matrixAutoUpdate = false;
    this.loader = new Loader((path, bytes) => this.arrived(path, bytes));
    const megabytes = Number(new URLSearchParams(location.search).get("cache"));
    this.cache = new NodeCache(megabytes > 0 ? megabytes * 2 ** 20 : CACHE_BYTES, (node) => this.drop(node));
    this.selected = new Set();
    this.drawn = new Set();
    this.field = null;
    this.points = 0;
  }

  /// @param keys  the nodes to draw, the most important first.
  select(keys) {
    this.selected = new Set(keys);
    this.refresh();
  }

  /// @param name   of the colouring.
  /// @param field  whether it needs values that come by themselves.
  color(name, field) {
    this.material.uniforms.coloring.value = COLORINGS.indexOf(name);
    this.field = field ? name : null;
    this.refresh();
  }

  /// Whether all that is selected is drawn in its colours.
  get complete() {
    return this.loader.wanted.length === 0 && this.loader.flying.size === 0;
  }

  refresh() {
    this.group.clear();
    this.drawn.clear();
    this.points = 0;
    const wanted = [];
    const wantedFields = [];
    for (const key of this.selected) {
      const node = this.cache.get(key);
      if (!node) {
        wanted.push(`/api/nodes/${key}`);
        continue;
      }
      this.drawn.add(key);
      this.points += node.count;
      if (node.count > 0) this.group.add(node.object);
      if (this.field && !node.fields.has(this.field)) wantedFields.push(`/api/nodes/${key}/${this.field}`);
    }
    this.cache.use(this.selected);
    this.levels.update(this.drawn, (key) => this.cache.get(key).spacing);
    this.material.uniforms.levels.value = this.levels.texture;
    this.loader.want(wanted.concat(wantedFields));
    this.changed();
  }

  arrived(path, bytes) {
    const [, , , key, field] = path.split("/");
    if (!field) this.cache.add(key, this.makeNode(bytes));
    else if (this.cache.has(key)) this.addField(this.cache.get(key), key, field, bytes);
    this.refresh();
  }

  makeNode(bytes) {
    const head = new DataView(bytes);
    const count = head.getUint32(0, true);
    const geometry = new THREE.BufferGeometry();
    const places = new Uint16Array(bytes, HEAD_BYTES, 4 * count);
    const colors = new Uint8Array(bytes, HEAD_BYTES + 8 * count, 4 * count);
    geometry.setAttribute("position", new THREE.BufferAttribute(places, 4, true));
    geometry.setAttribute("color", new THREE.BufferAttribute(colors, 4, true));

    const object = new THREE.Points(geometry, this.material);
    const edge = head.getFloat32(16, true);
    object.position.set(head.getFloat32(4, true), head.getFloat32(8, true), head.getFloat32(12, true));
    object.scale.setScalar(edge);
    object.updateMatrixWorld();
    object.matrixAutoUpdate = false;
    // The server has looked already.
    object.frustumCulled = false;
    const node = { count, spacing: head.getFloat32(20, true), object, bytes: bytes.byteLength, fields: new Set() };
    object.onBeforeRender = () => {
      const { uniforms } = this.material;
      uniforms.waiting.value = this.field !== null && !node.fields.has(this.field);
      this.material.uniformsNeedUpdate = true;
    };
    return node;
  }

  addField(node, key, field, bytes) {
    const attribute =
      field === "normal"
        ? new THREE.BufferAttribute(new Int8Array(bytes), 4, true)
        : new THREE.BufferAttribute(new Uint16Array(bytes), 1, true);
    node.object.geometry.setAttribute(field, attribute);
    node.fields.add(field);
    this.cache.grow(key, bytes.byteLength);
  }

  drop(node) {
    node.object.geometry.dispose();
  }
}
