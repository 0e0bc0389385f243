// Takes the picture of the viewer that the README shows: node picture.mjs FILE
import { startBrowser } from "./browser.mjs";
import { startViewer } from "./support.mjs";

const viewer = await startViewer();
const browser = await startBrowser();
const page = await browser.newPage({ viewport: { width: 1200, height: 600 }, colorScheme: "light" });
const settle = async () => {
  await page.waitForTimeout(1500);
  await page.waitForFunction(() => document.body.dataset.complete === "true");
};
await page.goto(viewer.url);
await settle();
await page.mouse.dblclick(400, 330);
await settle();
for (let i = 0; i < 2; ++i) await page.mouse.wheel(0, -300);
await page.locator("#measure").click();
await page.mouse.click(300, 300);
await page.waitForTimeout(500);
await page.mouse.click(560, 330);
await settle();
await page.evaluate(() => document.getElementById("panel").scrollTo(0, 0));
await page.screenshot({ path: process.argv[2] });
await browser.close();
await viewer.stop();
