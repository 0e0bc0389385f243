import * as THREE from "three";
import { OrbitControls } from "three/addons/controls/OrbitControls.js";

const FOV = 50;
const GLIDE_MS = 250;
const UP = new THREE.Vector3(0, 0, 1);

/// The camera and what moves it: mouse, fingers and keys.
export class CameraControl {
  /// @param cloud    what the server said of the cloud.
  /// @param changed  called when the next frame will be another one.
  constructor(cloud, canvas, changed) {
    this.cloud = cloud;
    this.changed = changed;
    this.camera = new THREE.PerspectiveCamera(FOV, 1, 1, 2);
    this.camera.up.copy(UP);
    this.controls = new OrbitControls(this.camera, canvas);
    this.controls.enableDamping = !matchMedia("(prefers-reduced-motion: reduce)").matches;
    this.controls.dampingFactor = 0.2;
    this.controls.minDistance = cloud.edge * 1e-4;
    this.controls.maxDistance = cloud.edge * 5;
    this.controls.addEventListener("change", changed);
    this.glide = null;
    this.box = new THREE.Box3(new THREE.Vector3(...cloud.box.min), new THREE.Vector3(...cloud.box.max));
    this.fit();
  }

  resize(width, height) {
    this.camera.aspect = width / height;
    this.camera.updateProjectionMatrix();
    this.changed();
  }

  /// Moves on by one frame; whether the camera still moves.
  step() {
    if (this.glide) {
      const share = Math.min(1, (performance.now() - this.glide.start) / GLIDE_MS);
      this.controls.target.lerpVectors(this.glide.from, this.glide.to, share * (2 - share));
      if (share === 1) this.glide = null;
    }
    const moved = this.controls.update();
    const distance = this.camera.position.distanceTo(this.controls.target);
    this.camera.near = Math.max(distance * 0.005, this.cloud.edge * 1e-5);
    this.camera.far = distance + 3 * this.cloud.edge;
    this.camera.updateProjectionMatrix();
    return moved || this.glide !== null;
  }

  /// Looks at the whole cloud from the direction (x, y, z).
  fit(x = 0, y = -1, z = 0.8) {
    const center = this.box.getCenter(new THREE.Vector3());
    const towards = new THREE.Vector3(x, y, z).normalize();
    const right = new THREE.Vector3().crossVectors(UP, towards).normalize();
    const up = new THREE.Vector3().crossVectors(towards, right);
    const slope = Math.tan(THREE.MathUtils.degToRad(FOV / 2));
    // Far enough for every corner of the box, and a little more.
    let distance = this.controls.minDistance;
    for (let corner = 0; corner < 8; ++corner) {
      const at = new THREE.Vector3(
        ...["x", "y", "z"].map((axis, i) => this.box[corner & (1 << i) ? "max" : "min"][axis]),
      ).sub(center);
      const needed = Math.max(Math.abs(at.dot(right)) / this.camera.aspect, Math.abs(at.dot(up))) / slope;
      distance = Math.max(distance, 1.03 * needed + at.dot(towards));
    }
    this.glide = null;
    this.controls.target.copy(center);
    this.camera.position.copy(center).addScaledVector(towards, distance);
    this.changed();
  }

  /// Turns about a point from now on.
  setPivot(position) {
    const to = new THREE.Vector3(...position);
    if (this.controls.enableDamping)
      this.glide = { from: this.controls.target.clone(), to, start: performance.now() };
    else this.controls.target.copy(to);
    this.changed();
  }

  /// Turns by angles in radians, to the right and upwards.
  turn(right, up) {
    const spherical = this.offset();
    const around = new THREE.Quaternion().setFromAxisAngle(UP, right);
    spherical.applyQuaternion(around);
    const side = new THREE.Vector3().crossVectors(UP, spherical);
    const polar = spherical.angleTo(UP);
    const wanted = THREE.MathUtils.clamp(polar - up, 0.01, Math.PI - 0.01);
    if (side.lengthSq() > 0) spherical.applyAxisAngle(side.normalize(), wanted - polar);
    this.camera.position.copy(this.controls.target).add(spherical);
    this.changed();
  }

  /// Moves by shares of the view's height.
  move(right, up) {
    const height = 2 * this.offset().length() * Math.tan(THREE.MathUtils.degToRad(FOV / 2));
    const step = new THREE.Vector3(right * height, up * height, 0).applyQuaternion(this.camera.quaternion);
    this.camera.position.add(step);
    this.controls.target.add(step);
    this.changed();
  }

  /// Goes nearer to the pivot by a factor.
  zoom(factor) {
    const { minDistance, maxDistance } = this.controls;
    const offset = this.offset();
    offset.setLength(THREE.MathUtils.clamp(offset.length() / factor, minDistance, maxDistance));
    this.camera.position.copy(this.controls.target).add(offset);
    this.changed();
  }

  offset() {
    return this.camera.position.clone().sub(this.controls.target);
  }

  /// The camera as the server takes it.
  describe(pixels) {
    const { camera } = this;
    camera.updateMatrixWorld();
    const [right, up, back] = [0, 1, 2].map((i) => new THREE.Vector3().setFromMatrixColumn(camera.matrixWorld, i));
    // In single precision, as the server's camera is: what rounding does to a camera at rest does not show.
    const list = (vector) => vector.toArray().map(Math.fround);
    return {
      position: list(camera.position),
      right: list(right),
      up: list(up),
      forward: list(back.negate()),
      fov: camera.fov,
      aspect: camera.aspect,
      height: pixels,
      near: camera.near,
      far: camera.far,
    };
  }
}
