// SPDX-License-Identifier: Apache-2.0
//
// Looks at pages of tavo-report in a browser: nothing complains, plots are drawn, tables sort and search.
//   node check_pages.mjs CHROMIUM FOLDER
import assert from "node:assert/strict";
import { Chromium } from "./chromium.mjs";

const [program, folder] = process.argv.slice(2);

// For each plot: its label and how much it draws: shapes of an SVG, or pixels of a canvas that are not empty.
const DRAWN = `[...document.querySelectorAll(".plot")].map((plot) => {
  const canvas = plot.querySelector("canvas");
  if (canvas) {
    const { data } = canvas.getContext("2d").getImageData(0, 0, canvas.width, canvas.height);
    let pixels = 0;
    for (let i = 3; i < data.length; i += 4) { pixels += data[i] > 0; }
    return { label: plot.getAttribute("aria-label"), kind: "canvas", drawn: pixels, width: plot.clientWidth };
  }
  const shapes = plot.querySelectorAll("svg path, svg circle, svg text").length;
  return { label: plot.getAttribute("aria-label"), kind: "svg", drawn: shapes, width: plot.clientWidth };
})`;
const COLUMN = (id, i) => `[...document.querySelectorAll("#${id} tbody tr")].map((row) => row.cells[${i}].textContent)`;
const STATUS = (id) => `document.querySelector("#${id} [role=status]").textContent`;

async function expectDrawn(page, n) {
  const plots = await page.evaluate(DRAWN);
  assert.equal(plots.length, n, `plots: ${JSON.stringify(plots)}`);
  for (const plot of plots) {
    assert.ok(plot.label.length > 10, "a plot says what it shows");
    assert.ok(plot.drawn > (plot.kind === "canvas" ? 2000 : 4), `${plot.label} draws ${plot.drawn} (${plot.kind})`);
    assert.ok(plot.width > 200, plot.label);
  }
}

async function expectQuiet(page) {
  assert.deepEqual(page.errors, []);
  assert.deepEqual(page.requests.filter((url) => !url.startsWith("file://")), [], "the page asks nobody");
  const overflow = await page.evaluate("document.documentElement.scrollWidth - document.documentElement.clientWidth");
  assert.ok(overflow <= 0, `the page is ${overflow} pixels too wide`);
}

async function sectionsOf(page) {
  return page.evaluate("[...document.querySelectorAll('main section')].map((section) => section.id)");
}

const browser = new Chromium(program);
const checks = {
  async "an MDR page"() {
    const page = await browser.open();
    await page.load(`file://${folder}/mdr.html`);
    assert.deepEqual(await sectionsOf(page), ["summary", "ranking", "accuracy", "genotypes", "graph", "folds", "settings"]);
    await expectDrawn(page, 3);
    assert.match(await page.evaluate("document.getElementById('summary').textContent"), /1,600.*P1 × P2.*0\.7931/s);
    // A mark for each combination in the colour of its order, and a line for each pair.
    const marks = "[...document.querySelectorAll('#accuracy svg path')].filter((path) => ['#0072b2', '#d55e00', '#009e73'].includes((path.getAttribute('fill') || '').toLowerCase())).length";
    assert.ok((await page.evaluate(marks)) >= 30, `${await page.evaluate(marks)} marks`);
    const lines = "[...document.querySelectorAll('#graph svg path')].filter((path) => path.getAttribute('fill') === 'none' || path.getAttribute('fill') === 'transparent').length";
    assert.ok((await page.evaluate(lines)) >= 10, `${await page.evaluate(lines)} lines`);
    // The grid of the pair: counts of cases and controls in 8 genotypes that have samples, and one that has none.
    const grid = await page.evaluate("document.querySelector('#genotypes svg').textContent");
    for (const text of ["255", "471", "238", "high risk", "low risk", "no sample"]) {
      assert.ok(grid.includes(text), `${text} in ${grid}`);
    }
    assert.equal(await page.evaluate("document.querySelectorAll('#genotypes svg .edge-high').length"), 5);
    await expectQuiet(page);
  },

  async "sorting by mouse and keyboard, and searching"() {
    const page = await browser.open();
    await page.load(`file://${folder}/mdr.html`);
    const heading = (label) => `[...document.querySelectorAll("#ranking thead button")].find((b) => b.textContent === "${label}")`;
    const training = async () => (await page.evaluate(COLUMN("ranking", 6))).map(Number);
    await page.evaluate(`${heading("Training")}.click()`);
    const falling = await training();
    assert.equal(falling.length, 25);
    assert.deepEqual(falling, falling.slice().sort((a, b) => b - a));
    assert.equal(await page.evaluate(`${heading("Training")}.parentElement.getAttribute("aria-sort")`), "descending");
    await page.evaluate(`${heading("Training")}.focus()`);
    await page.press("Enter");
    const rising = await training();
    assert.deepEqual(rising, rising.slice().sort((a, b) => a - b));
    assert.ok(rising[0] < falling[24]);
    // From the search box by keys alone.
    await page.evaluate("document.querySelector('#ranking input[type=search]').focus()");
    await page.type("p1 P2");
    const names = await page.evaluate(COLUMN("ranking", 2));
    assert.ok(names.length >= 5 && names.every((name) => /P1 × P2/.test(name)), names.join());
    assert.match(await page.evaluate(STATUS("ranking")), /found among 30/);
    await page.type("no such name");
    assert.equal(await page.evaluate(STATUS("ranking")), "No row found among 30");
    // A focused element shows it.
    await page.press("Tab");
    assert.notEqual(await page.evaluate("getComputedStyle(document.activeElement).outlineStyle"), "none");
    await page.evaluate(`(() => { const order = [...document.querySelectorAll("#ranking select")][0]; document.querySelector("#ranking input").value = ""; order.value = "1"; order.dispatchEvent(new Event("change")); })()`);
    assert.deepEqual([...new Set(await page.evaluate(COLUMN("ranking", 0)))], ["1"]);
    // Another combination's genotypes.
    await page.evaluate("document.querySelector('#ranking tbody button').click()");
    assert.match(await page.evaluate("document.querySelector('#genotypes h3').textContent"), /^[NP][0-9]+$/);
    // The data of a picture as a table.
    await page.evaluate("document.querySelector('#accuracy details').open = true");
    await page.evaluate("new Promise((resolve) => setTimeout(resolve, 50))");
    assert.equal(await page.evaluate("document.querySelectorAll('#accuracy details tbody tr').length"), 30);
    await expectQuiet(page);
  },

  async "dark, narrow and printed"() {
    const page = await browser.open({ width: 390, dark: true });
    await page.load(`file://${folder}/mdr.html`);
    const ground = () => page.evaluate("getComputedStyle(document.querySelector('section')).backgroundColor");
    const dark = await ground();
    await expectDrawn(page, 3);
    await expectQuiet(page);
    await page.send("Emulation.setEmulatedMedia", { features: [{ name: "prefers-color-scheme", value: "light" }] });
    assert.notEqual(await ground(), dark);
    const { data } = await page.send("Page.printToPDF", {});
    assert.ok(Buffer.from(data, "base64").length > 20000);
    assert.deepEqual(page.errors, []);
  },

  async "one combination, and a run without folds"() {
    const page = await browser.open();
    await page.load(`file://${folder}/one.html`);
    await expectDrawn(page, 3);
    assert.equal((await page.evaluate(COLUMN("ranking", 2))).length, 1);
    await page.load(`file://${folder}/all.html`);
    assert.deepEqual(await sectionsOf(page), ["summary", "ranking", "genotypes", "graph", "settings"]);
    await expectDrawn(page, 1);
    await page.load(`file://${folder}/csv.html`);
    assert.deepEqual(await sectionsOf(page), ["summary", "ranking", "accuracy", "genotypes", "graph", "folds", "settings"]);
    await expectQuiet(page);
  },

  async "long names around the graph"() {
    const page = await browser.open();
    await page.load(`file://${folder}/long.html`);
    const cut = await page.evaluate(`(() => {
      const plot = document.querySelector("#graph svg").getBoundingClientRect();
      const names = [...document.querySelectorAll("#graph svg text")];
      const outside = (name) => { const r = name.getBoundingClientRect(); return r.top < plot.top || r.bottom > plot.bottom || r.left < plot.left || r.right > plot.right; };
      return { n: names.length, outside: names.filter(outside).map((name) => name.textContent) };
    })()`);
    assert.ok(cut.n > 8, `${cut.n} names`);
    assert.deepEqual(cut.outside, []);
    await expectQuiet(page);
  },

  async "names that would break out"() {
    const page = await browser.open();
    await page.load(`file://${folder}/hostile.html`);
    await expectDrawn(page, 3);
    assert.equal(await page.evaluate("window.owned"), undefined);
    assert.equal(await page.evaluate("document.images.length"), 0);
    assert.equal(await page.evaluate("document.scripts.length"), 3);
    assert.equal(await page.evaluate("document.title"), "<img src=x onerror=window.owned=4>");
    assert.ok((await page.evaluate("document.body.textContent")).includes("<img src=x onerror=window.owned=2>"));
    await expectQuiet(page);
  },

  async "pages of regressions"() {
    const page = await browser.open();
    await page.load(`file://${folder}/linear.html`);
    assert.deepEqual(await sectionsOf(page), ["summary", "manhattan", "qq", "ranking"]);
    await expectDrawn(page, 2);
    const lambda = () => page.evaluate("document.querySelector('#qq .finding').textContent");
    const before = await lambda();
    assert.match(before, /λ = [01]\.[0-9]{3}/);
    await page.evaluate("document.querySelectorAll('#manhattan input[type=radio]')[1].click()");
    assert.notEqual(await lambda(), before);
    assert.match(await page.evaluate(STATUS("ranking")), /of 1,000/);
    await page.evaluate("document.querySelector('#ranking input').focus()");
    await page.type("455");
    assert.deepEqual(await page.evaluate(COLUMN("ranking", 0)), ["455"]);
    await page.load(`file://${folder}/unplaced.html`);
    await expectDrawn(page, 1);
    assert.match(await page.evaluate("document.getElementById('manhattan').textContent"), /none of these SNPs/);
    await page.load(`file://${folder}/pairs.html`);
    assert.deepEqual(await sectionsOf(page), ["summary", "ranking", "graph"]);
    await expectDrawn(page, 1);
    assert.deepEqual((await page.evaluate(COLUMN("ranking", 0)))[0], "P1");
    await expectQuiet(page);
  },
};

let failed = 0;
for (const [name, check] of Object.entries(checks)) {
  try {
    await check();
    console.log(`ok    ${name}`);
  } catch (error) {
    failed += 1;
    console.log(`FAILED ${name}: ${error.stack}`);
  }
}
await browser.close();
process.exit(failed === 0 ? 0 : 1);
