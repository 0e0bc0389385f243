import assert from "node:assert/strict";
import { spawn } from "node:child_process";
import { readFileSync } from "node:fs";
import net from "node:net";
import path from "node:path";
import { fileURLToPath } from "node:url";

const root = path.join(path.dirname(fileURLToPath(import.meta.url)), "../..");
const program = process.env.VIEWER_PROGRAM ?? path.join(root, "build/release/examples/viewer/viewer");
export const SHIPPED = path.join(root, "examples/data/swiss_fields.las");

/// Starts the viewer; resolves when it has ended, and offers a way to end it.
export function run(...args) {
  const child = spawn(program, args);
  const said = { out: "", err: "" };
  child.stdout.on("data", (data) => (said.out += data));
  child.stderr.on("data", (data) => (said.err += data));
  const ended = new Promise((resolve) => child.on("close", (status) => resolve({ status, ...said })));
  return { child, said, ended };
}

/// A viewer that serves the shipped cloud.
export async function startViewer(...args) {
  const viewer = run("--port", "0", ...args);
  let failed = false;
  viewer.ended.then(() => (failed = true));
  while (!/Open (http\S+)/.test(viewer.said.out)) {
    assert.ok(!failed, viewer.said.err);
    await sleep(20);
  }
  const url = viewer.said.out.match(/Open (http\S+?)\/ /)[1];
  const stop = async () => {
    viewer.child.kill("SIGINT");
    return viewer.ended;
  };
  return { ...viewer, url, port: Number(new URL(url).port), stop };
}

export const sleep = (ms) => new Promise((resolve) => setTimeout(resolve, ms));

export async function post(viewer, route, message = {}) {
  const response = await fetch(viewer.url + route, { method: "POST", body: JSON.stringify(message) });
  return { status: response.status, body: await response.json() };
}

/// Sends bytes over a connection of its own and gives back what comes until it is closed or `ms` have passed.
export function exchange(port, bytes, ms = 1500) {
  return new Promise((resolve) => {
    const socket = net.connect(port, "127.0.0.1");
    const parts = [];
    const finish = () => {
      clearTimeout(timer);
      socket.destroy();
      resolve(Buffer.concat(parts).toString("latin1"));
    };
    const timer = setTimeout(finish, ms);
    socket.on("data", (data) => parts.push(data));
    socket.on("close", finish);
    socket.on("error", () => {});
    socket.write(bytes);
  });
}

/// Random numbers in [0, 1) from a seed. Source: Tommy Ettinger, "mulberry32", public domain.
export function random(seed) {
  return () => {
    seed = (seed + 0x6d2b79f5) | 0;
    let t = Math.imul(seed ^ (seed >>> 15), seed | 1);
    t = (t + Math.imul(t ^ (t >>> 7), t | 61)) ^ t;
    return ((t ^ (t >>> 14)) >>> 0) / 4294967296;
  };
}

/// World coordinates of all points of a LAS file, x y z after one another.
export function lasPoints(file) {
  const bytes = readFileSync(file);
  const start = bytes.readUInt32LE(96);
  const length = bytes.readUInt16LE(105);
  const count = bytes.readUInt32LE(107);
  const points = new Float64Array(3 * count);
  for (let i = 0; i < count; ++i)
    for (let axis = 0; axis < 3; ++axis)
      points[3 * i + axis] =
        bytes.readInt32LE(start + i * length + 4 * axis) * bytes.readDoubleLE(131 + 8 * axis) +
        bytes.readDoubleLE(155 + 8 * axis);
  return points;
}

const dot = (a, b) => a[0] * b[0] + a[1] * b[1] + a[2] * b[2];

/// Holds the answer to a pick against all points of the file: of those within three pixels of the cursor it must be
/// the nearest to the camera, and where there is none, of those within sixteen the nearest to the cursor.
export function checkPick(points, cloud, request, answer) {
  const { camera, u, v, clip } = request;
  const slope = Math.tan((camera.fov * Math.PI) / 360);
  const ray = camera.forward.map((f, i) => f + v * slope * camera.up[i] + u * slope * camera.aspect * camera.right[i]);
  const length = Math.hypot(...ray);
  const pixel = (2 * slope) / camera.height / length;
  const origin = camera.position.map((p, i) => p + cloud.shift[i]);
  const look = (x, y, z) => {
    const d = [x - origin[0], y - origin[1], z - origin[2]];
    const depth = dot(d, ray) / length;
    return { depth, pixels: Math.sqrt(Math.max(0, dot(d, d) - depth * depth)) / depth / pixel };
  };

  let nearest = Infinity; // depth within three pixels, less what rounding may do at the beam's edge
  let central = Infinity; // pixels from the cursor
  let off = Infinity; // from the answer to the nearest point of the file
  for (let i = 0; i < points.length; i += 3) {
    const p = [points[i], points[i + 1], points[i + 2]];
    if (answer.found) off = Math.min(off, Math.max(...p.map((c, k) => Math.abs(c - answer.world[k]))));
    const { depth, pixels } = look(...p);
    if (pixels > 20 || depth < camera.near * length || depth > camera.far * length) continue;
    if (clip && !p.every((c, k) => c - cloud.shift[k] >= clip.min[k] && c - cloud.shift[k] <= clip.max[k])) continue;
    if (pixels < 2.99) nearest = Math.min(nearest, depth);
    central = Math.min(central, pixels);
  }
  if (!answer.found) {
    assert.ok(central > 15.9, `a point ${central} pixels from the cursor was not found`);
    return "nothing";
  }
  // The answer is a point of the file, in its coordinates.
  assert.ok(off < 1e-3, `no point is at ${answer.world}`);
  const found = look(...answer.world);
  if (nearest < Infinity || found.pixels < 3) {
    assert.ok(found.pixels < 3.01, `the point is ${found.pixels} pixels off`);
    assert.ok(found.depth < nearest + 1e-3, `a point at ${nearest} is nearer than ${found.depth}`);
    return "exact";
  }
  assert.ok(found.pixels < 16.01 && found.pixels < central + 1e-2, `${found.pixels} pixels off, ${central} is possible`);
  return "near";
}
