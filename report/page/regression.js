// The page of a regression.

const KINDS = { logistic: "Logistic regression of every SNP", logistic_pairs: "Logistic regression of pairs of SNPs", linear: "Linear regression of every SNP" };
const TESTS = { p: "likelihood-ratio test", p_het: "heterozygotes", p_hom: "homozygotes" };

function regressionModel(data) {
  const place = new Map(data.columns.map((name, i) => [name, i]));
  const rows = data.rows.map((cells, i) => ({ cells, where: data.places && data.places[i] }));
  const get = (name) => (row) => {
    const value = row.cells[place.get(name)];
    return value === null || value === undefined ? undefined : value;
  };
  const pairs = data.kind === "logistic_pairs";
  const names = pairs ? (row) => [get("snp1")(row), get("snp2")(row)] : (row) => [get("snp")(row)];
  return { data, rows, get, names, pairs, has: (name) => place.has(name), linear: data.kind === "linear" };
}

// The level that keeps the chance of any false positive among all tests of the run at 5%.
function bonferroni(tests) {
  return 0.05 / Math.max(1, tests.reduce((sum, test) => sum + test.n, 0));
}

function regressionSummary(model) {
  const { data, rows, get, names } = model;
  const section = addSection("summary", "Summary");
  const tests = data.tests || [];
  section.append(facts([
    [model.pairs ? "Pairs in the table" : "SNPs", whole(data.n_rows), data.n_failed > 0 ? `${whole(data.n_failed)} fits failed` : ""],
    rows.length > 0 && ["Samples", whole(get("n")(rows[0]))],
    !model.linear && ["Not converged", whole(data.n_not_converged)],
    ...tests.filter((test) => test.lambda !== undefined).map((test) => ["Inflation λ", test.lambda.toFixed(3), tests.length > 1 ? TESTS[test.column] : ""]),
    tests.length > 0 && tests[0].n > 0 && ["Bonferroni 5%", probability(bonferroni(tests)), plural(tests.reduce((sum, test) => sum + test.n, 0), "test")],
  ].filter(Boolean)));
  if (rows.length === 0) {
    section.append(h("p", { class: "note" }, "No model was fitted: there is nothing to show."));
    return;
  }
  const p = (row) => (model.linear ? Math.min(get("p_het")(row) ?? 1, get("p_hom")(row) ?? 1) : get("p")(row));
  const bound = tests.length > 0 ? bonferroni(tests) : undefined;
  const first = rows[0];
  if (p(first) !== undefined) {
    section.append(h("p", { class: "finding" }, "The smallest p-value is that of ", h("strong", {}, nameCell({ snps: names(first) })), `: ${probability(p(first))}`,
      bound === undefined ? "." : p(first) <= bound ? ", below the Bonferroni bound." : ", which is not below the Bonferroni bound."));
  }
  if (model.pairs) {
    section.append(h("p", { class: "note" }, "The table of pairs holds the best only. Their p-values are those of the best of all pairs, so they say nothing of inflation: there is no QQ plot."));
  }
}

function manhattanOption(model, test) {
  const { data } = model;
  const chromosomes = data.chromosomes;
  const several = chromosomes && chromosomes.length > 1;
  const limit = bonferroni(data.tests);
  const shown = test.x.map((x, i) => ({ x, y: test.y[i], name: test.names[i] }));
  const strongest = new Set(shown.slice().sort((a, b) => b.y - a.y).slice(0, 6));
  const chromosomeOf = (x) => {
    let i = 0;
    while (chromosomes && i + 1 < chromosomes.length && x > chromosomes[i + 1].start) {
      ++i;
    }
    return i;
  };
  const groups = [[], []];
  for (const point of shown) {
    groups[chromosomes ? chromosomeOf(point.x) % 2 : 0].push(point);
  }
  const centres = chromosomes && chromosomes.map((one) => one.start + one.length / 2);
  const end = chromosomes ? chromosomes[chromosomes.length - 1].start + chromosomes[chromosomes.length - 1].length : largestOf(test.x, 1);
  const highest = largestOf(test.y, Math.max(-Math.log10(limit), 1)) * 1.08;
  const lines = [[limit, "Bonferroni"]];
  if (test.n > 100000 && Math.abs(Math.log10(limit / 5e-8)) > 0.4) {
    lines.push([5e-8, "5·10⁻⁸"]);
  }
  return {
    grid: { left: 58, right: 88, top: 16, bottom: 50 },
    xAxis: {
      type: "value", min: several ? 0 : "dataMin", max: several ? end : "dataMax",
      name: several ? "chromosome" : chromosomes ? `position on chromosome ${chromosomes[0].name}` : "SNP, in the order of the genotype file", nameGap: 30,
      splitLine: { show: false },
      ...(several ? {
        axisTick: { customValues: chromosomes.map((one) => one.start) },
        axisLabel: { customValues: centres, formatter: (x) => (chromosomes[centres.indexOf(x)] || { name: "" }).name, hideOverlap: true },
      } : {}),
    },
    yAxis: { type: "value", min: 0, max: Math.ceil(highest), name: "−log₁₀ p", nameGap: 36 },
    tooltip: { trigger: "item", formatter: (item) => item.data.hint || "" },
    series: groups.map((group, i) => ({
      type: "scatter", symbol: i === 0 ? "circle" : "diamond", symbolSize: i === 0 ? 4.5 : 6, progressive: 5000,
      itemStyle: { color: colour(i === 0 ? "series1" : "series6"), opacity: 0.85 },
      labelLayout: { hideOverlap: true, moveOverlap: "shiftY" },
      data: group.map((point) => ({
        value: [point.x, point.y], hint: plotText(`${point.name}\np = ${probability(10 ** -point.y)}${chromosomes ? `\nchromosome ${chromosomes[chromosomeOf(point.x)].name}: ${whole(point.x - chromosomes[chromosomeOf(point.x)].start)}` : ""}`),
        ...(10 ** -point.y <= limit || strongest.has(point) ? { symbolSize: 9, itemStyle: { color: colour("series2") }, } : {}),
        ...(strongest.has(point) ? { label: { show: true, formatter: plotText(shortName(point.name, 18)), position: "top", color: colour("ink"), fontSize: 12.5 } } : {}),
      })),
      ...(i === 0 ? { markLine: {
        silent: true, symbol: "none", lineStyle: { color: colour("soft"), type: "dashed" },
        label: { color: colour("soft"), position: "end", formatter: (item) => item.name },
        data: lines.map(([p, name]) => ({ yAxis: -Math.log10(p), name })),
      } } : {}),
    })),
  };
}

// What a reader of the Manhattan plot must know of the points that are drawn.
function drawnText(data, test) {
  const parts = [test.x.length < test.n_placed
    ? `${whole(test.x.length)} of ${whole(test.n_placed)} points are drawn: the 20,000 smallest p-values, and of the others the first in each spot of a grid of 800 by 0.05.`
    : "All points are drawn."];
  if (data.n_unplaced > 0) {
    parts.push(`${plural(data.n_unplaced, "SNP")} without a place in the map ${data.n_unplaced === 1 ? "is" : "are"} left out.`);
  }
  if (test.y.some((y) => y > 300)) {
    parts.push("p-values below 10⁻³⁰⁸ are drawn at the end of what a number can hold.");
  }
  return `${parts.join(" ")} `;
}

// Returns what to call when another test was chosen.
function addManhattan(section, model, chosen) {
  const { data } = model;
  if (chosen().n_placed === 0) {
    section.append(h("p", { class: "note" }, "The map has none of these SNPs: there is nothing to draw."));
    return () => {};
  }
  const text = h("span", {}, drawnText(data, chosen()));
  const picture = plot({ label: `Manhattan plot of ${plural(chosen().n_placed, "SNP")}`, height: 400, renderer: "canvas", make: () => manhattanOption(model, chosen()) });
  const table = dataTable("The smallest p-values", ["SNP", "−log₁₀ p", "p"], () => {
    const { names, x, y } = chosen();
    return x.map((_, i) => i).sort((a, b) => y[b] - y[a]).map((i) => [names[i], fixed(y[i], 3), probability(10 ** -y[i])]);
  });
  section.append(h("figure", {}, picture.element, h("figcaption", {}, text, "Dashed: 0.05 over the number of tests. Larger marks in another colour: beyond it, or the six smallest.")), table);
  return () => {
    text.textContent = drawnText(data, chosen());
    picture.redraw();
    table.forget();
  };
}

function qqOption(test) {
  const points = test.qq.slice().reverse();
  const last = largestOf(points.map((point) => point[0]), 1);
  const hidden = { type: "line", silent: true, symbol: "none", stack: "band", lineStyle: { opacity: 0 } };
  return {
    grid: { left: 58, right: 24, top: 16, bottom: 50 },
    xAxis: { type: "value", min: 0, max: Math.ceil(last * 10) / 10, name: "expected −log₁₀ p", nameGap: 30 },
    yAxis: { type: "value", min: 0, name: "observed −log₁₀ p", nameGap: 36 },
    tooltip: { trigger: "item", formatter: (item) => (item.seriesType === "scatter" ? `expected ${fixed(item.value[0], 3)}\nobserved ${fixed(item.value[1], 3)}` : "") },
    series: [
      { ...hidden, data: points.map((point) => [point[0], point[2]]) },
      { ...hidden, areaStyle: { color: colour("band"), opacity: 0.7 }, data: points.map((point) => [point[0], point[3] - point[2]]) },
      { type: "line", silent: true, symbol: "none", data: [[0, 0], [last, last]], lineStyle: { color: colour("soft"), type: "dashed", width: 1.5 } },
      { type: "scatter", z: 10, symbolSize: 5.5, itemStyle: { color: colour("series1"), opacity: 1 }, data: points.map((point) => [point[0], point[1]]) },
    ],
  };
}

function addQq(section, chosen) {
  const lambda = h("strong");
  const say = () => {
    lambda.textContent = chosen().lambda.toFixed(3);
  };
  say();
  const picture = plot({ label: "QQ plot of the p-values", height: 420, make: () => qqOption(chosen()) });
  const table = dataTable("Quantiles", ["expected −log₁₀ p", "observed −log₁₀ p", "95% from", "to"], () => chosen().qq.map((point) => point.map((x) => fixed(x, 3))));
  section.append(h("p", { class: "finding" }, "Genomic inflation factor λ = ", lambda),
    h("figure", { style: "max-width:640px" }, picture.element, h("figcaption", {}, "Grey: where 95% of such points would be by chance. λ: the median statistic over that expected; 1 without inflation.")), table);
  return () => {
    say();
    picture.redraw();
    table.forget();
  };
}

function regressionPlots(model) {
  const tests = (model.data.tests || []).filter((test) => test.n > 0);
  if (tests.length === 0) {
    return;
  }
  let test = tests[0];
  const section = addSection("manhattan", "Manhattan plot", "The p-value of every SNP along the genome: high points are associated with the phenotype. A true association usually has high neighbours, too.");
  if (tests.length > 1) {
    section.append(h("div", { class: "controls" }, h("fieldset", {}, h("legend", {}, "Test of, here and in the QQ plot"), tests.map((one, i) => h("label", {},
      h("input", { type: "radio", name: "test", checked: i === 0, onchange: () => { test = one; updates.forEach((update) => update()); } }), TESTS[one.column])))));
  }
  const updates = [addManhattan(section, model, () => test)];
  updates.push(addQq(addSection("qq", "QQ plot", "The p-values against those expected when no SNP has an effect. A line that leaves the diagonal only at its upper end is as it should be; "
    + "one that leaves it early says that the statistics are inflated, by relatedness or population structure for example."), () => test));
}

// exp(beta) with its 95% interval; a fit that ran away has none.
function oddsRatio(model, term) {
  const beta = model.get(`beta_${term}`);
  const se = model.get(`se_${term}`);
  return (value, row) => {
    if (beta(row) === undefined || se(row) === undefined) {
      return "–";
    }
    const [odds, low, high] = [0, -1.96, 1.96].map((z) => Math.exp(beta(row) + z * se(row)));
    const digits = (x) => (x >= 100 ? x.toFixed(0) : x.toPrecision(3));
    return high < 1e6 && low > 1e-6 ? [digits(odds), h("small", {}, ` ${digits(low)}–${digits(high)}`)] : "unlimited";
  };
}

function regressionTable(model) {
  const { data, get, has } = model;
  const section = addSection("ranking", model.pairs ? "The best pairs" : "The best SNPs", data.rows.length < data.n_rows
    ? `The ${whole(data.rows.length)} rows with the smallest p-values of ${whole(data.n_rows)}; the table of the run has all.` : "All rows of the table of the run.");
  const number = (label, name, show, more) => has(name) && { label, numeric: true, get: get(name), show, ...more };
  const name = (label, column) => ({ label, names: true, get: get(column), show: (text) => nameCell({ snps: [text] }) });
  const p = (label, column, title) => number(label, column, probability, { smallestFirst: true, title });
  const estimate = (label, term) => has(`beta_${term}`) && { label: model.linear ? `β ${label}` : `OR ${label}`, numeric: true, get: get(`beta_${term}`),
    show: model.linear ? (x, row) => (x === undefined ? "–" : `${plain(x)} ± ${plain(get(`se_${term}`)(row))}`) : oddsRatio(model, term) };
  const columns = [
    ...(model.pairs ? [name("SNP 1", "snp1"), name("SNP 2", "snp2")] : [name("SNP", "snp")]),
    data.places && { label: "Chr", title: "chromosome", get: (row) => row.where && row.where[0] },
    data.places && { label: "Position", numeric: true, smallestFirst: true, get: (row) => row.where && row.where[1], show: whole },
    !data.places && !model.pairs && { label: "Number", numeric: true, smallestFirst: true, get: get("position"), show: whole },
    p("p", "p", "likelihood-ratio test, degrees of freedom as a textbook counts them"),
    number("LR", "lr_statistic", plain, { title: "likelihood-ratio statistic" }),
    number("df", "df", whole),
    p("p het", "p_het"), p("p hom", "p_hom"),
    estimate("het", "het"), estimate("hom", "hom"),
    ...(model.pairs ? ["snp1_1*snp2_1", "snp1_2*snp2_2"].map((term) => p(`p ${term}`, `p_${term}`, "Wald test of the product")) : []),
    has("converged") && { label: "Conv.", title: "whether the fit converged", get: (row) => (get("converged")(row) === false ? "no" : get("status")(row) === "failed" ? "failed" : "yes") },
  ].filter(Boolean);
  section.append(sortableTable({ caption: "Results by p-value", columns, rows: model.rows, searchLabel: "Search SNPs", searchText: (row) => model.names(row).join(" ") }).element);
  if (!model.pairs) {
    section.append(h("p", { class: "intro" }, model.linear ? "β: coefficient with its standard error. " : "OR: odds ratio with its 95% interval (Wald); unlimited where the fit ran away, as it does when all who have a genotype are cases, or none is. The likelihood-ratio test holds there all the same. ", "het: heterozygotes, hom: homozygotes of the counted allele, both against the other homozygotes."));
  }
}

function regressionGraph(model) {
  const rows = model.rows.filter((row) => model.get("p")(row) !== undefined).slice(0, EDGES_OF_GRAPH);
  if (!model.pairs || rows.length === 0) {
    return;
  }
  const section = addSection("graph", "Interaction graph", "SNPs of the pairs with the smallest p-values. Wider lines: smaller p-values.");
  const edges = rows.map((row, i) => ({ source: model.get("snp1")(row), target: model.get("snp2")(row), rank: i + 1, value: Math.min(320, -Math.log10(Math.max(model.get("p")(row), 1e-320))), share: 1 }));
  section.append(...graphFigure({ edges, valueName: "−log₁₀ p", show: (x) => fixed(x, 1), columns: ["rank", "SNP", "SNP", "−log₁₀ p"], row: (edge) => [edge.rank, edge.source, edge.target, fixed(edge.value, 2)] }));
}

function showRegression(data) {
  const model = regressionModel(data);
  document.getElementById("subtitle").textContent = KINDS[data.kind];
  regressionSummary(model);
  if (data.rows.length > 0) {
    regressionPlots(model);
    regressionTable(model);
    regressionGraph(model);
  }
}
