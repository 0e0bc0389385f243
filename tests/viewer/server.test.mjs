// The server by itself: its command line, its answers, and what it does about clients that misbehave.
import assert from "node:assert/strict";
import { readFileSync } from "node:fs";
import net from "node:net";
import { after, before, describe, test } from "node:test";

import { SHIPPED, checkPick, exchange, lasPoints, post, random, run, sleep, startViewer } from "./support.mjs";

let viewer;
let cloud;
/// A camera somewhere above the cloud that looks at a place in it.
function cameraOf(next) {
  const size = cloud.box.max.map((c, i) => c - cloud.box.min[i]);
  const at = size.map((s, i) => cloud.box.min[i] + s * next());
  const away = 20 + 600 * next();
  const azimuth = 2 * Math.PI * next();
  const height = 0.2 + 1.2 * next();
  const forward = [Math.cos(azimuth) * Math.cos(height), Math.sin(azimuth) * Math.cos(height), -Math.sin(height)];
  const right = [Math.sin(azimuth), -Math.cos(azimuth), 0];
  const up = [Math.cos(azimuth) * Math.sin(height), Math.sin(azimuth) * Math.sin(height), Math.cos(height)];
  const position = at.map((c, i) => c - away * forward[i]);
  return { position, right, up, forward, fov: 50, aspect: 1.5, height: 800, near: 1, far: 3000 };
}

describe("the server by itself", () => {
  before(async () => {
    viewer = await startViewer();
    cloud = await (await fetch(`${viewer.url}/api/cloud`)).json();
  });
  after(() => viewer.stop());

  test("the command line", async () => {
    const outcomes = await Promise.all([
      run("--help").ended,
      run("--banana").ended,
      run("--budget", "5").ended,
      run("--port", "0", "/nowhere/missing.las").ended,
      run("--port", String(viewer.port)).ended,
    ]);
    assert.deepEqual(outcomes.map(({ status }) => status), [0, 2, 2, 1, 1]);
    assert.match(outcomes[0].out, /--port.*--budget/s);
    assert.match(outcomes[1].err, /unknown option '--banana'/);
    assert.match(outcomes[2].err, /'5' for --budget/);
    assert.match(outcomes[3].err, /missing\.las/);
    assert.match(outcomes[4].err, new RegExp(`port ${viewer.port} .*in use`));
  });

  test("every point comes once, within the steps of its node's cube", async () => {
    const points = lasPoints(SHIPPED);
    const key = (p) => p.map((c, k) => Math.round(100 * (c - cloud.shift[k] - cloud.box.min[k]))).join(" ");
    const places = new Map();
    for (let i = 0; i < points.length; i += 3) {
      const k = key([...points.subarray(i, i + 3)]);
      places.set(k, (places.get(k) ?? 0) + 1);
    }
    const nodes = [];
    for (const queue = ["1"]; queue.length > 0; ) {
      const key = queue.shift();
      const response = await fetch(`${viewer.url}/api/nodes/${key}`);
      const bytes = await response.arrayBuffer();
      if (response.status === 404) continue;
      nodes.push(new DataView(bytes));
      for (let octant = 0; octant < 8; ++octant) queue.push(key + octant);
    }
    let fetched = 0;
    for (const bytes of nodes) {
      const count = bytes.getUint32(0, true);
      const edge = bytes.getFloat32(16, true);
      assert.ok(edge / 131070 < 0.005);
      fetched += count;
      for (let i = 0; i < count; ++i) {
        const place = [0, 1, 2].map(
          (k) =>
            bytes.getFloat32(4 + 4 * k, true) + (edge * bytes.getUint16(24 + 8 * i + 2 * k, true)) / 65535 + cloud.shift[k],
        );
        const left = places.get(key(place)) ?? 0;
        if (left > 0) places.set(key(place), left - 1);
      }
    }
    assert.equal(fetched, cloud.points);
    const missing = [...places.values()].reduce((sum, left) => sum + left, 0);
    assert.ok(missing < 1e-4 * cloud.points, `${missing} of ${cloud.points} points are elsewhere`);
  });

  test("a pick finds the point that brute force finds", async () => {
    const points = lasPoints(SHIPPED);
    const next = random(8);
    const kinds = { exact: 0, near: 0, nothing: 0 };
    for (let i = 0; i < 40; ++i) {
      const request = { camera: cameraOf(next), u: 2 * next() - 1, v: 2 * next() - 1 };
      if (i % 4 === 3)
        request.clip = {
          min: cloud.box.min.map((c, k) => c + 0.3 * next() * (cloud.box.max[k] - c)),
          max: cloud.box.max.map((c, k) => c - 0.3 * next() * (c - cloud.box.min[k])),
        };
      const { status, body } = await post(viewer, "/api/pick", request);
      assert.equal(status, 200);
      kinds[checkPick(points, cloud, request, body)] += 1;
    }
    assert.ok(kinds.exact > 10 && kinds.nothing > 0, JSON.stringify(kinds));
  });

  test("a frame tells what entered and left, and all after an answer was lost", async () => {
    const { client } = (await post(viewer, "/api/clients")).body;
    const next = random(3);
    let held = new Set();
    for (let frame = 0; frame < 30; ++frame) {
      const lost = frame % 7 === 5;
      const question = { client, seen: lost ? 0 : frame, camera: cameraOf(next), budget: 200_000, minSize: 50 };
      const { status, body } = await post(viewer, "/api/frame", question);
      assert.equal(status, 200);
      assert.equal(body.whole, lost);
      if (body.whole) held.clear();
      for (const key of body.left) assert.ok(held.delete(key));
      for (const key of body.entered) {
        assert.ok(!held.has(key) && (key === "1" || held.has(key.slice(0, -1))), `${key} comes before its parent`);
        held.add(key);
      }
      assert.equal(held.size, body.nodes);
      assert.ok(body.points <= 200_000);
    }
    assert.equal((await fetch(`${viewer.url}/api/clients/close`, { method: "POST", body: JSON.stringify({ client }) })).status, 204);
    const question = { client, seen: 0, camera: cameraOf(next), budget: 200_000, minSize: 50 };
    assert.equal((await post(viewer, "/api/frame", question)).status, 410);
  });

  test("no path leads to the file system, and other hosts' names to nothing", async () => {
    for (const path of ["/../../../../etc/passwd", "/%2e%2e/%2e%2e/%2e%2e/etc/passwd", "//etc/passwd", "/etc/passwd",
      "/page.js/../../../etc/passwd", "/..%2f..%2f..%2fetc%2fpasswd", "/api/nodes/../../../etc/passwd", "/CMakeCache.txt",
      "/\\..\\..\\etc\\passwd", "/page.js%00.html", "/index.html"]) {
      const answer = await exchange(viewer.port, `GET ${path} HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\n\r\n`);
      assert.match(answer, /^HTTP\/1.1 40[04] /, path);
      assert.doesNotMatch(answer, /root:/);
    }
    const other = await exchange(viewer.port, "GET / HTTP/1.1\r\nHost: example.org\r\nConnection: close\r\n\r\n");
    assert.match(other, /^HTTP\/1.1 403 /);
    const addresses = readFileSync(`/proc/${viewer.child.pid}/net/tcp`, "latin1");
    const port = viewer.port.toString(16).toUpperCase().padStart(4, "0");
    assert.match(addresses, new RegExp(`0100007F:${port} 00000000:0000 0A`));
    assert.doesNotMatch(addresses, new RegExp(`00000000:${port} 00000000:0000 0A`));
  });

  test("several thousand broken requests leave the server as it was", async () => {
    const next = random(20);
    const any = (list) => list[Math.floor(next() * list.length)];
    const camera = cameraOf(next);
    const { client } = (await post(viewer, "/api/clients")).body;
    const bodies = [{ client, seen: 0, camera, budget: 1000000, minSize: 50 }, { camera, u: 0, v: 0 }, { client: "x" }, {}];
    const targets = ["/", "/page.js", "/api/cloud", "/api/frame", "/api/pick", "/api/clients/close", "/api/nodes/1",
      "/api/nodes/17777777777777777777777", "/api/nodes/8", "/api/nodes/1/normal", "/api/fields/banana", "/api/maps/viridis"];
    const nasty = ["1e999", "-1e999", "null", "[]", "{}", '""', "1e-320", "18446744073709551616", "-1", "true", "NaN", '"\\ud800"'];
    const mangle = (text) => {
      const bytes = Buffer.from(text);
      const edits = 1 + Math.floor(next() * 6);
      for (let i = 0; i < edits && bytes.length > 0; ++i) bytes[Math.floor(next() * bytes.length)] = Math.floor(next() * 256);
      return next() < 0.3 ? bytes.subarray(0, Math.floor(next() * bytes.length)) : bytes;
    };
    const broken = () => {
      let body = JSON.stringify(any(bodies));
      if (next() < 0.6) body = body.replace(/-?\d+(\.\d+)?(e-?\d+)?/g, (number) => (next() < 0.15 ? any(nasty) : number));
      else if (next() < 0.5) body = mangle(body);
      const heads = [`Content-Length: ${Buffer.byteLength(body)}`, "Content-Length: 99999999999999999999", "Content-Length: -5",
        "Transfer-Encoding: chunked", "Range: bytes=0-0,0-0,0-0", "Expect: 100-continue", "Content-Encoding: gzip",
        "Content-Type: multipart/form-data; boundary=", "X: " + "y".repeat(9000)];
      const extra = next() < 0.7 ? heads[0] : any(heads);
      const head = `${any(["GET", "POST", "POST", "HEAD", "PUT", "DELETE", "PRI", "get"])} ${any(targets)} HTTP/1.1\r\n` +
        `Host: localhost\r\nConnection: close\r\n${extra}\r\n\r\n`;
      return Buffer.concat([next() < 0.2 ? mangle(head) : Buffer.from(head), Buffer.from(body)]);
    };

    let answered = 0;
    const statuses = new Map();
    const worker = async () => {
      for (let i = 0; i < 500; ++i) {
        const request = broken();
        const answer = await exchange(viewer.port, request, 300);
        const status = answer.match(/^HTTP\/1\.1 (\d+) /)?.[1];
        if (status) answered += 1;
        statuses.set(status, (statuses.get(status) ?? 0) + 1);
        assert.ok(!status || Number(status) < 500, `${status} to ${request}`);
      }
    };
    await Promise.all(Array.from({ length: 8 }, worker));
    assert.ok(answered > 2500, JSON.stringify([...statuses]));
    assert.deepEqual(await (await fetch(`${viewer.url}/api/cloud`)).json(), cloud);
  });

  test("a request has a size: endless heads, lines and bodies are cut off", async () => {
    const memory = () => Number(readFileSync(`/proc/${viewer.child.pid}/status`, "latin1").match(/VmRSS:\s+(\d+)/)[1]) / 1024;
    const before = memory();
    const endless = (start, piece) =>
      new Promise((resolve) => {
        const socket = net.connect(viewer.port, "127.0.0.1");
        let sent = 0;
        const pour = () => {
          while (!socket.destroyed && sent < 100e6 && socket.write(piece)) sent += piece.length;
        };
        socket.on("drain", pour);
        socket.on("error", () => {});
        socket.on("close", () => resolve(sent));
        socket.write(start);
        pour();
      });
    const sent = await Promise.all([
      endless("GET / HTTP/1.1\r\nHost: localhost\r\nX: ", Buffer.alloc(1e5, "y")),
      endless("GET / HTTP/1.1\r\nHost: localhost\r\n", Buffer.from("X: y\r\n".repeat(1e4))),
      endless("POST /api/pick HTTP/1.1\r\nHost: localhost\r\nTransfer-Encoding: chunked\r\n\r\n",
        Buffer.from("10\r\n0123456789abcdef\r\n".repeat(5e3))),
      endless("POST /api/pick HTTP/1.1\r\nHost: localhost\r\nContent-Length: 4000000000\r\n\r\n", Buffer.alloc(1e5, "y")),
    ]);
    for (const bytes of sent) assert.ok(bytes < 20e6, `${bytes} bytes were taken`);
    assert.ok(memory() - before < 50, `${before} MB grew to ${memory()} MB`);
  });

  test("clients that are slow or go away do not hold up others", async () => {
    const sockets = [];
    const open = (text) => {
      const socket = net.connect(viewer.port, "127.0.0.1").on("error", () => {});
      socket.write(text);
      sockets.push(socket);
      return socket;
    };
    for (let i = 0; i < 40; ++i) open("POST /api/frame HTTP/1.1\r\nHost: localhost\r\nContent-Length: 900\r\n\r\n{");
    // Asks for a node and reads nothing of it.
    for (let i = 0; i < 30; ++i) open("GET /api/nodes/1 HTTP/1.1\r\nHost: localhost\r\n\r\n".repeat(20)).pause();
    // Goes away with the answer under way.
    for (let i = 0; i < 100; ++i) {
      const socket = open("GET /api/nodes/1 HTTP/1.1\r\nHost: localhost\r\n\r\n");
      socket.once("data", () => socket.destroy());
    }
    await sleep(200);
    const start = performance.now();
    assert.equal((await fetch(`${viewer.url}/api/nodes/1`)).status, 200);
    const waited = performance.now() - start;
    for (const socket of sockets) socket.destroy();
    assert.ok(waited < 1500, `another client waited ${waited} ms`);
  });

  test("Ctrl-C ends the server at once, with open connections too", async () => {
    const own = await startViewer();
    await fetch(`${own.url}/api/cloud`);
    const held = net.connect(own.port, "127.0.0.1").on("error", () => {});
    held.write("GET / HTT");
    await sleep(100);
    const start = performance.now();
    const { status, out } = await own.stop();
    assert.equal(status, 0);
    assert.match(out, /Ended\./);
    assert.ok(performance.now() - start < 2000);
    held.destroy();
  });
});
