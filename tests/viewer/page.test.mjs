// The page in a real browser.
import assert from "node:assert/strict";
import { after, before, describe, test } from "node:test";

import { startBrowser } from "./browser.mjs";
import { SHIPPED, checkPick, lasPoints, startViewer } from "./support.mjs";

const PATIENCE = { timeout: 60_000 };

let viewer;
let browser;
let cloud;
/// A page with all that it asks of the server written down.
async function open({ width = 960, height = 540, scheme = "light", query = "" } = {}) {
  const page = await browser.newPage({ viewport: { width, height }, colorScheme: scheme });
  page.setDefaultTimeout(PATIENCE.timeout);
  const log = { frames: [], picks: [], nodes: [], errors: [], strangers: [] };
  page.on("pageerror", (error) => log.errors.push(error.message));
  page.on("console", (message) => message.type() === "error" && log.errors.push(message.text()));
  page.on("request", (request) => {
    const url = new URL(request.url());
    if (url.protocol !== "data:" && url.origin !== viewer.url) log.strangers.push(url.href);
    if (url.pathname.startsWith("/api/nodes/")) log.nodes.push(url.pathname);
  });
  page.on("requestfinished", async (request) => {
    const path = new URL(request.url()).pathname;
    const kept = { "/api/frame": log.frames, "/api/pick": log.picks }[path];
    if (!kept) return;
    const answer = await (await request.response()).json().catch(() => null);
    if (answer) kept.push({ request: request.postDataJSON(), answer });
  });
  await page.goto(viewer.url + "/" + query);
  await page.waitForFunction(() => Number(document.getElementById("stat-points").dataset.value) > 0);
  await settle(page);
  return { page, log };
}

/// Waits until the page is at rest with everything drawn.
async function settle(page) {
  let before = "";
  for (;;) {
    await page.waitForFunction(() => document.body.dataset.complete === "true");
    const now = await page.evaluate(() => `${document.body.dataset.selected} ${document.getElementById("stat-fps").textContent}`);
    if (now === before && now.endsWith("at rest")) return;
    before = now;
    await page.waitForTimeout(300);
  }
}

const stat = (page, name) => page.evaluate((id) => Number(document.getElementById(id).dataset.value), `stat-${name}`);
const setSlider = (page, selector, value) =>
  page.locator(selector).evaluate((slider, v) => {
    slider.value = v;
    slider.dispatchEvent(new Event("input", { bubbles: true }));
  }, value);

async function lastOf(list, count) {
  while (list.length < count) await new Promise((resolve) => setTimeout(resolve, 20));
  return list.at(-1);
}

/// Depth of detail that a page's frames, taken one after another, have at a place.
function depthAt(frames, place) {
  const held = new Set();
  for (const { answer } of [...frames].sort((a, b) => a.answer.answer - b.answer.answer)) {
    for (const key of answer.left) held.delete(key);
    for (const key of answer.entered) held.add(key);
  }
  let key = "1";
  let corner = [0, 0, 0];
  for (let half = cloud.edge / 2; held.has(key); half /= 2) {
    const upper = place.map((c, i) => c >= corner[i] + half);
    corner = corner.map((c, i) => c + half * upper[i]);
    key += 4 * upper[0] + 2 * upper[1] + 1 * upper[2];
  }
  return key.length - 2;
}

/// Share of the canvas's pixels that differ between two screenshots, counted in the page.
async function difference(page, a, b) {
  return page.evaluate(async ([first, second]) => {
    const pixels = async (data) => {
      const image = await createImageBitmap(new Blob([Uint8Array.from(atob(data), (c) => c.charCodeAt(0))]));
      const context = new OffscreenCanvas(image.width, image.height).getContext("2d");
      context.drawImage(image, 0, 0);
      return new Uint32Array(context.getImageData(0, 0, image.width, image.height).data.buffer);
    };
    const [p, q] = [await pixels(first), await pixels(second)];
    return p.reduce((sum, value, i) => sum + (value !== q[i]), 0) / p.length;
  }, [a.toString("base64"), b.toString("base64")]);
}
const picture = (page) => page.locator("#view").screenshot();

describe("the page in a browser", () => {
  before(async () => {
    viewer = await startViewer();
    cloud = await (await fetch(`${viewer.url}/api/cloud`)).json();
    browser = await startBrowser();
  });
  after(async () => {
    await browser.close();
    assert.equal((await viewer.stop()).status, 0);
  });

  test("the first points appear within two seconds, and nothing comes from elsewhere", async () => {
    const times = [];
    for (let i = 0; i < 3; ++i) {
      const page = await browser.newPage({ viewport: { width: 960, height: 540 } });
      const start = performance.now();
      await page.goto(viewer.url);
      await page.waitForFunction(() => Number(document.getElementById("stat-points").dataset.value) > 0);
      times.push(performance.now() - start);
      await page.close();
    }
    // The best of three: the machine may be busy with other things.
    assert.ok(Math.min(...times) < 2000, `${times} ms`);
    const { page, log } = await open();
    assert.deepEqual([log.errors, log.strangers], [[], []]);
    const shot = await picture(page);
    await page.evaluate(() => (document.getElementById("view").style.visibility = "hidden"));
    assert.ok((await difference(page, shot, await page.screenshot({ clip: await page.locator("main").boundingBox() }))) > 0.05);
    await page.close();
  });

  test("the budget holds, a node is fetched once, and zooming in refines", async () => {
    const { page, log } = await open();
    await setSlider(page, "#budget", 100_000);
    await settle(page);
    await page.mouse.dblclick(240, 280);
    const { answer } = await lastOf(log.picks, 1);
    await page.waitForTimeout(500);
    await settle(page);
    const coarse = depthAt(log.frames, answer.position);
    for (let i = 0; i < 25; ++i) {
      await page.mouse.wheel(0, -240);
      await page.waitForTimeout(30);
    }
    await settle(page);
    assert.ok(depthAt(log.frames, answer.position) > coarse);
    assert.ok((await stat(page, "points")) <= 100_000);
    await setSlider(page, "#budget", 300_000);
    await page.mouse.down();
    for (let i = 0; i < 10; ++i) await page.mouse.move(330 + 12 * i, 270 + 2 * i);
    await page.mouse.up();
    await settle(page);
    await page.locator("#fit").click();
    await settle(page);
    assert.ok(log.frames.length > 5);
    for (const { request, answer } of log.frames) assert.ok(answer.points <= request.budget);
    assert.equal(new Set(log.nodes).size, log.nodes.length, "a node was fetched twice");
    assert.deepEqual(log.errors, []);
    await page.close();
  });

  test("the cache keeps to its limit, and what it dropped comes back", async () => {
    const { page, log } = await open({ query: "?cache=1" });
    await page.focus("#view");
    for (const action of ["+", "+", "+", "+", "+", "+", "+", "+", "+", "ArrowLeft"]) await page.keyboard.press(action);
    await settle(page);
    const drawn = 12 * (await stat(page, "points"));
    assert.ok((await stat(page, "memory")) <= Math.max(2 ** 20, drawn + 24 * (await stat(page, "nodes"))));
    await page.keyboard.press("Home");
    await settle(page);
    assert.ok((await stat(page, "loaded")) > (await stat(page, "memory")));
    assert.ok(new Set(log.nodes).size < log.nodes.length);
    await page.close();
  });

  test("a double click turns the view about the point that brute force finds", async () => {
    const points = lasPoints(SHIPPED);
    const { page, log } = await open();
    await page.mouse.dblclick(240, 280);
    const { request, answer } = await lastOf(log.picks, 1);
    assert.equal(checkPick(points, cloud, request, answer), "exact");
    await page.waitForTimeout(500);
    await settle(page);
    const { camera } = log.frames.at(-1).request;
    const towards = answer.position.map((c, i) => c - camera.position[i]);
    const cosine = towards.reduce((sum, c, i) => sum + c * camera.forward[i], 0) / Math.hypot(...towards);
    assert.ok(cosine > 1 - 1e-6, `the view's middle is off: ${cosine}`);
    await page.close();
  });

  test("the distance is that of two points in national-grid coordinates, by mouse and by keyboard", async () => {
    const points = lasPoints(SHIPPED);
    const { page, log } = await open();
    const measured = async () => Number((await page.locator("#distance").textContent()).replace("Distance ", ""));
    const check = async () => {
      const [a, b] = log.picks.slice(-2);
      for (const { request, answer } of [a, b]) assert.notEqual(checkPick(points, cloud, request, answer), "nothing");
      assert.ok(a.answer.world[0] > 589_499 && a.answer.world[1] > 231_299);
      const distance = Math.hypot(...a.answer.world.map((c, i) => c - b.answer.world[i]));
      assert.ok(Math.abs((await measured()) - distance) < 0.001);
      return distance;
    };
    await page.locator("#measure").click();
    await page.mouse.click(220, 280);
    await lastOf(log.picks, 1);
    await page.mouse.click(420, 280);
    await lastOf(log.picks, 2);
    await page.waitForFunction(() => document.getElementById("distance").textContent.startsWith("Distance"));
    assert.ok((await check()) > 10);
    assert.match(await page.locator("#measured").textContent(), /589\d{3}\.\d{3}/);
    await page.locator("#measure-label").waitFor({ state: "visible" }); // with the next picture drawn

    await page.keyboard.press("Escape");
    await page.focus("#view");
    await page.keyboard.press("m");
    await page.keyboard.press("Enter");
    await lastOf(log.picks, 3);
    for (let i = 0; i < 3; ++i) await page.keyboard.press("Shift+ArrowLeft");
    await settle(page);
    await page.keyboard.press("Enter");
    await lastOf(log.picks, 4);
    await page.waitForFunction(() => document.getElementById("distance").textContent.startsWith("Distance"));
    assert.ok((await check()) > 1);
    await page.close();
  });

  test("each colouring and colour map shows, with a legend for scales", async () => {
    const { page, log } = await open();
    const pictures = [await picture(page)];
    for (const name of ["height", "intensity", "normal", "curvature", "density"]) {
      await page.selectOption("#coloring", name);
      await page.waitForFunction(() => document.getElementById("message").textContent !== "", null, { timeout: 400 }).catch(() => {});
      await page.waitForFunction(() => document.getElementById("message").textContent === "");
      await page.waitForTimeout(200);
      await settle(page);
      pictures.push(await picture(page));
      await page.locator("#legend").waitFor({ state: name === "normal" ? "hidden" : "visible" });
      for (const before of pictures.slice(0, -1)) assert.ok((await difference(page, before, pictures.at(-1))) > 0.05, name);
    }
    const low = Number(await page.locator("#legend-low").textContent());
    assert.ok(low > 0 && low < Number((await page.locator("#legend-high").textContent()).replace(",", "")));
    await page.selectOption("#map", "inferno");
    await settle(page);
    assert.ok((await difference(page, pictures.at(-1), await picture(page))) > 0.05);
    assert.equal(new Set(log.nodes).size, log.nodes.length);
    assert.deepEqual(log.errors, []);
    await page.close();
  });

  test("the clip box hides what is outside from the eye and from the pick", async () => {
    const { page, log } = await open();
    const whole = await picture(page);
    await page.locator("#clip").check();
    await setSlider(page, "#clip-x-min", 250);
    await settle(page);
    assert.ok((await difference(page, whole, await picture(page))) > 0.03);
    for (const [i, x] of [220, 420].entries()) {
      await page.mouse.dblclick(x, 280);
      const { answer, request } = await lastOf(log.picks, i + 1);
      if (answer.found) assert.ok(answer.position[0] >= request.clip.min[0]);
      assert.equal(answer.found, x === 420);
    }
    await page.close();
  });

  test("a second page does not disturb the first, nor does one that goes away", async () => {
    const first = await open();
    const shot = await picture(first.page);
    const asked = first.log.frames.length;
    const second = await open();
    await second.page.focus("#view");
    for (let i = 0; i < 12; ++i) await second.page.keyboard.press("+");
    const third = await browser.newPage();
    await third.goto(viewer.url);
    await third.close();
    await settle(second.page);
    assert.ok((await stat(second.page, "depth")) >= (await stat(first.page, "depth")));
    assert.equal(await difference(first.page, shot, await picture(first.page)), 0);
    await first.page.focus("#view");
    await first.page.keyboard.press("ArrowLeft");
    await settle(first.page);
    const later = first.log.frames.slice(asked);
    assert.ok(later.length > 0 && later.every(({ answer }) => !answer.whole));
    await Promise.all([first.page.close(), second.page.close()]);
  });

  test("light, dark and a phone's width", async () => {
    const back = (page) => page.evaluate(() => getComputedStyle(document.body).backgroundColor);
    const light = await open();
    const dark = await open({ scheme: "dark" });
    assert.notEqual(await back(light.page), await back(dark.page));
    await dark.page.locator("#theme").click();
    assert.equal(await back(dark.page), await back(light.page));
    await Promise.all([light.page.close(), dark.page.close()]);

    const { page } = await open({ width: 360, height: 720 });
    assert.ok(!(await page.locator("#panel").isVisible()));
    await page.locator("#panel-toggle").click();
    assert.ok(await page.locator("#budget").isVisible());
    assert.ok(await page.evaluate(() => document.scrollingElement.scrollWidth <= innerWidth));
    await page.close();
  });
});
