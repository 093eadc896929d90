// The grid of multi-locus genotypes of a combination: cases and controls as bars, risk as shading, border and word.

const CELL = { width: 92, height: 86, gap: 5 };
const LEVELS = [0, 1, 2];

function hatchDefinition() {
  return s("defs", {}, s("pattern", { id: "hatch", width: 5, height: 5, patternUnits: "userSpaceOnUse", patternTransform: "rotate(45)" },
    s("rect", { class: "hatch-ground", width: 5, height: 5 }), s("line", { class: "hatch-line", x1: 0, y1: 0, x2: 0, y2: 5 })));
}

function genotypeCell(cell, x, y, largest, describe) {
  const { width, height } = CELL;
  if (!cell) {
    return s("g", {}, s("rect", { class: "cell-empty", x, y, width, height, rx: 4 }),
      s("text", { class: "soft small", x: x + width / 2, y: y + height / 2 + 4, "text-anchor": "middle" }, "no sample"));
  }
  const room = height - 40;
  const base = y + height - 6;
  const bar = (count, kind, left) => {
    const length = Math.max(count > 0 ? 1 : 0, (count / largest) * room);
    return [s("rect", { class: `bar-${kind}`, x: left, y: base - length, width: 26, height: length }),
      s("text", { class: "small", x: left + 13, y: base - length - 3, "text-anchor": "middle" }, count)];
  };
  const word = { high: "high risk", low: "low risk", none: "tie" }[cell.risk];
  return s("g", {}, s("title", {}, describe(cell)),
    s("rect", { class: `cell-${cell.risk}`, x, y, width, height, rx: 4 }),
    s("rect", { class: `edge-${cell.risk}`, x: x + 1, y: y + 1, width: width - 2, height: height - 2, rx: 4 }),
    s("text", { class: "soft small", x: x + 7, y: y + 14 }, word),
    bar(cell.cases, "cases", x + 16), bar(cell.controls, "controls", x + 50));
}

function describeCell(combination) {
  return (cell) => {
    const genotypes = cell.genotypes.map((genotype, j) => `${combination.snps[j]} = ${genotype}`).join(", ");
    const score = cell.score_sum === undefined ? "" : `, sum of scores ${plain(cell.score_sum)}`;
    return `${genotypes}: ${plural(cell.cases, "case")}, ${plural(cell.controls, "control")}${score}, ${cell.risk} risk`;
  };
}

function levelsOf(combination, j) {
  const other = combination.cells.some((cell) => cell.genotypes[j] === "missing");
  return other ? [...LEVELS, "missing"] : LEVELS;
}

// One panel: SNP 1 across, SNP 2 down, the others fixed.
function genotypePanel(combination, fixedGenotypes, largest) {
  const { width, height, gap } = CELL;
  const across = levelsOf(combination, 0);
  const down = combination.snps.length > 1 ? levelsOf(combination, 1) : [undefined];
  const left = combination.snps.length > 1 ? 46 : 4;
  const top = 44;
  const w = left + across.length * (width + gap) + 4;
  const hgt = top + down.length * (height + gap) + 4;
  const cells = new Map(combination.cells.map((cell) => [cell.genotypes.join(), cell]));
  const title = fixedGenotypes.map((genotype, i) => `${combination.snps[i + 2]} = ${genotype}`).join(", ");
  const parts = [s("text", { class: "axis", x: left + (w - left) / 2, y: 16, "text-anchor": "middle" }, shortName(combination.snps[0], 34))];
  across.forEach((genotype, i) => parts.push(s("text", { class: "soft", x: left + i * (width + gap) + width / 2, y: 36, "text-anchor": "middle" }, genotype)));
  if (combination.snps.length > 1) {
    const middle = top + (hgt - top) / 2;
    parts.push(s("text", { class: "axis", x: 14, y: middle, "text-anchor": "middle", transform: `rotate(-90 14 ${middle})` }, shortName(combination.snps[1], 26)));
  }
  down.forEach((second, row) => {
    const y = top + row * (height + gap);
    if (second !== undefined) {
      parts.push(s("text", { class: "soft", x: left - 10, y: y + height / 2 + 4, "text-anchor": "end" }, second));
    }
    across.forEach((first, column) => {
      const key = [first, ...(second === undefined ? [] : [second]), ...fixedGenotypes].join();
      parts.push(genotypeCell(cells.get(key), left + column * (width + gap), y, largest, describeCell(combination)));
    });
  });
  const label = `${nameOf(combination)}${title && `, ${title}`}: cases and controls by genotype`;
  return h("figure", {}, title && h("h3", {}, title),
    s("svg", { class: "grid-svg", viewBox: `0 0 ${w} ${hgt}`, role: "img", "aria-label": label, style: `max-width:${Math.round(w * 1.6)}px` }, parts));
}

function fixedChoices(combination) {
  let choices = [[]];
  for (let j = 2; j < combination.snps.length; ++j) {
    choices = choices.flatMap((choice) => levelsOf(combination, j).map((genotype) => [...choice, genotype]));
  }
  return choices;
}

const MOST_PANELS = 27;

function genotypeLegend() {
  const box = (...shapes) => s("svg", { width: 18, height: 16, "aria-hidden": "true" }, shapes);
  const rect = (name) => s("rect", { class: name, x: 1, y: 1, width: 16, height: 14, rx: 2 });
  return h("ul", { class: "legend" },
    h("li", {}, box(rect("bar-cases")), "cases"), h("li", {}, box(rect("bar-controls")), "controls"),
    h("li", {}, box(rect("cell-high"), rect("edge-high")), "high risk, framed"), h("li", {}, box(rect("cell-low"), rect("edge-low")), "low risk"));
}

function genotypeGrids(combination) {
  const cells = combination.cells;
  const table = () => dataTable(`Genotypes of ${nameOf(combination)}`,
    [...combination.snps, "cases", "controls", "cases / controls", ...(cells[0].score_sum === undefined ? [] : ["sum of scores"]), "risk"],
    () => cells.map((cell) => [...cell.genotypes, cell.cases, cell.controls,
      cell.controls > 0 ? plain(cell.cases / cell.controls) : "no control", ...(cell.score_sum === undefined ? [] : [plain(cell.score_sum)]), cell.risk]));
  const choices = fixedChoices(combination);
  if (choices.length > MOST_PANELS) {
    const details = table();
    details.open = true;
    return h("div", {}, h("p", {}, `${plural(cells.length, "genotype")} of ${combination.snps.length} SNPs: too many for a picture.`), details);
  }
  const largest = Math.max(1, ...cells.map((cell) => Math.max(cell.cases, cell.controls)));
  return h("div", {},
    h("div", { class: "grids" }, choices.map((choice) => genotypePanel(combination, choice, largest))),
    genotypeLegend(), table());
}
