// The page of an MDR or GMDR run.

const MEASURES = {
  ba: "balanced accuracy", accuracy: "accuracy", homogeneity: "chi-square", gamma: "gamma", tau_b: "tau-b", tau_c: "tau-c",
  somers_d1: "Somers' d (1)", somers_d2: "Somers' d (2)", nmi: "normalised mutual information", lr: "likelihood ratio",
};
const MODES = {
  0: "cross-validated, above a permutation threshold", 1: "cross-validated", 2: "exhaustive, above a permutation threshold",
  3: "exhaustive",
};

function measureName(word) {
  return MEASURES[word] || word;
}

function capital(text) {
  return text.charAt(0).toUpperCase() + text.slice(1);
}

// Testing values that differ by less say little; the smaller combination is the better guess.
const NEAR = 0.005;

// What the sections share.
function mdrModel(data) {
  const folds = Number(data.settings.folds || 0);
  const orders = data.orders.filter((order) => order.combinations.length > 0);
  const combinations = orders.flatMap((order) => order.combinations.map((one) => ({ ...one, order: order.order })));
  const crossValidated = combinations.some((one) => one.test.ba !== undefined);
  const measure = combinations.some((one) => one.train[data.settings.measure] !== undefined) ? data.settings.measure : "ba";
  return { data, folds, orders, combinations, crossValidated, measure };
}

// The value that speaks for a combination: on samples that it was not made from, where there are such.
function headline(model, one, measure = "ba") {
  return model.crossValidated ? one.test[measure] : one.train[measure];
}

function consistencyText(model, one) {
  return one.folds_first === undefined ? "–" : `${whole(one.folds_first)} of ${model.folds || "?"}`;
}

function bestOfOrders(model) {
  return model.orders.map((order) => ({ ...order.combinations[0], order: order.order }));
}

function mdrSummary(model) {
  const { data, folds } = model;
  const settings = data.settings;
  const section = addSection("summary", "Summary");
  const searched = data.orders.map((order) => Number(order.settings.combinations)).filter((n) => n > 0);
  section.append(facts([
    settings.samples && ["Samples", whole(Number(settings.samples)), `${whole(Number(settings.cases))} cases, ${whole(Number(settings.controls))} controls`],
    settings.snps && ["SNPs", whole(Number(settings.snps))],
    searched.length > 0 && ["Combinations", whole(searched.reduce((a, b) => a + b, 0)), `of orders ${data.orders.map((order) => order.order).join(", ")}`],
    folds > 0 && ["Folds", whole(folds), settings.shuffling === "true" ? "samples shuffled" : ""],
    ["Ranked by", settings.measure === "ba" ? "BA" : measureName(settings.measure), settings.measure === "ba" ? "balanced accuracy" : ""],
  ].filter(Boolean)));
  if (model.combinations.length === 0) {
    section.append(h("p", { class: "note" }, "No combination was kept: there is nothing to show."));
    return;
  }
  const best = bestOfOrders(model);
  const top = best.reduce((a, b) => ((headline(model, b) ?? -1) > (headline(model, a) ?? -1) ? b : a));
  const value = headline(model, top);
  if (value !== undefined) {
    const consistency = (one) => (model.crossValidated && one.folds_first !== undefined ? `, first in ${consistencyText(model, one)} folds` : "");
    const smaller = best.find((one) => one.order < top.order && headline(model, one) > value - NEAR);
    section.append(h("p", { class: "finding" }, best.length > 1 ? "Of the first combinations of the orders, " : "Of all combinations, ", h("strong", {}, nameCell(top)),
      best.length > 1 ? ` has the highest ${model.crossValidated ? "testing " : ""}balanced accuracy: it reaches ` : ` stands first: its ${model.crossValidated ? "testing " : ""}balanced accuracy is `,
      `${fixed(value)}${consistency(top)}.`,
      top.p_testing_all_orders !== undefined && ` In a permutation test of the whole search it has p = ${probability(top.p_testing_all_orders)}.`,
      smaller && [" With fewer SNPs, ", h("strong", {}, nameCell(smaller)), ` reaches ${fixed(headline(model, smaller))}${consistency(smaller)}.`]));
  }
  if (!model.crossValidated && data.source !== "report") {
    section.append(h("p", { class: "note" }, "This run had no folds: its values are those of the samples that the combinations were found in, and are too high for new samples."));
  }
  if (data.source === "report") {
    section.append(h("p", { class: "note" }, "Made from a report, which has six decimals and shortened lists of the folds; the table of tavo --tidy has all."));
  }
  const rows = best.map((one, i) => {
    const gain = i > 0 ? headline(model, one) - headline(model, best[i - 1]) : NaN;
    return [String(one.order), nameCell(one), one === top ? h("span", { class: "badge" }, "highest") : "",
      ...(model.crossValidated ? [consistencyText(model, one), fixed(one.weighted_consistency, 2), fixed(one.train.ba), fixed(one.test.ba)] : [fixed(one.train.ba)]),
      Number.isNaN(gain) ? "–" : (gain >= 0 ? "+" : "−") + Math.abs(gain).toFixed(4)];
  });
  section.append(h("h3", {}, "The first combination of each order"), h("div", { class: "scroll", tabindex: "0", role: "region", "aria-label": "First combinations" },
    simpleTable("Gain: over the first combination of the order before. A small gain does not pay for one more SNP.",
      ["Order", "Combination", "", ...(model.crossValidated ? ["First in folds", "Weighted consistency", "BA training", "BA testing"] : ["BA"]), "Gain"], rows)));
}

// The p-values of the testing values, where the run made a permutation test: among the combinations of the order, and over
// all orders where there are several.
function permutationColumns(model) {
  return [["p_testing", "p (its order)", "its order"], ["p_testing_all_orders", "p (all orders)", "any order"]]
    .filter(([field]) => model.combinations.some((one) => one[field] !== undefined) && (model.orders.length > 1 || field === "p_testing"))
    .map(([field, label, where]) => ({ label, numeric: true, smallestFirst: true, get: (one) => one[field], show: probability,
      title: `how often the best testing value of ${where} reaches this one by chance, in permutations of the whole search` }));
}

function mdrRanking(model) {
  const section = addSection("ranking", "Ranking", model.crossValidated
    ? "Ranks are by weighted consistency within an order: how often, and how high, a combination stands in the lists of the folds. Values are means over those folds."
    : "The combinations that were kept, by the measure of the run.");
  let measure = model.measure;
  const present = model.data.measures.filter((word) => model.combinations.some((one) => one.train[word] !== undefined));
  const value = (set) => (one) => one[set][measure];
  const columns = [
    { label: "Order", numeric: true, smallestFirst: true, get: (one) => one.order, show: whole },
    { label: "Rank", numeric: true, smallestFirst: true, get: (one) => one.rank, show: whole },
    { label: "Combination", names: true, get: nameOf, show: (_, one) => nameCell(one) },
    { label: "Consistency", numeric: true, get: (one) => one.weighted_consistency, show: (x) => fixed(x, 3), title: "weighted cross-validation consistency" },
    model.crossValidated && { label: "In folds", numeric: true, get: (one) => one.folds_listed, show: whole, title: "folds whose list holds the combination" },
    model.crossValidated && { label: "First in", numeric: true, get: (one) => one.folds_first, show: whole, title: "folds whose list it leads" },
    { label: model.crossValidated ? "Training" : "Value", numeric: true, get: value("train"), show: (x) => fixed(x) },
    model.crossValidated && { label: "Testing", numeric: true, get: value("test"), show: (x) => fixed(x) },
    model.combinations.some((one) => one.p !== undefined) && { label: "p", numeric: true, smallestFirst: true, get: (one) => one.p, show: probability, title: "share of the permutation records that reach the value, not corrected for the number of combinations" },
    ...permutationColumns(model),
    model.combinations.some((one) => one.n !== undefined) && { label: "Samples", numeric: true, get: (one) => one.n, show: whole },
    model.combinations.some((one) => one.cells) && { label: "Grid", title: "grid of its genotypes", get: (one) => (one.cells ? 1 : undefined),
      show: (has, one) => (has ? h("button", { type: "button", "aria-label": `Show the genotypes of ${nameOf(one)}`, onclick: () => model.showGenotypes(one) }, "show") : "–") },
  ].filter(Boolean);
  const pick = selectBox("Values of", present.map((word) => [word, capital(measureName(word))]), (word) => {
    measure = word;
    table.refresh();
  });
  pick.select.value = measure;
  let order = "";
  const filter = selectBox("Order", [["", "all"], ...model.orders.map((one) => [String(one.order), String(one.order)])], (value) => {
    order = value;
    table.refresh();
  });
  const table = sortableTable({ caption: "Ranked combinations", columns, rows: model.combinations, keep: (one) => order === "" || String(one.order) === order,
    sortedBy: columns.findIndex((column) => column.label === (model.crossValidated ? "Testing" : "Value")), searchLabel: "Search SNPs",
    searchText: (one) => one.snps.join(" "), extraControls: [model.orders.length > 1 && filter.element, present.length > 1 && pick.element] });
  section.append(table.element);
  const cut = model.data.orders.filter((order) => order.n_combinations > order.combinations.length);
  if (cut.length > 0) {
    section.append(h("p", { class: "note" }, `This page has the first ${whole(cut[0].combinations.length)} combinations of each order; the table has `,
      cut.map((order) => `${whole(order.n_combinations)} of order ${order.order}`).join(", "), "."));
  }
}

function mdrScatter(model) {
  const points = model.combinations.filter((one) => one.train.ba !== undefined && one.test.ba !== undefined);
  if (points.length === 0) {
    return;
  }
  const section = addSection("accuracy", "Training against testing", "Each mark is a combination. On the diagonal it predicts new samples as well as those that it was found in; "
    + "far below it, it fits noise. Larger marks stand in the lists of more folds.");
  const values = points.flatMap((one) => [one.train.ba, one.test.ba]);
  const [least, largest] = [-largestOf(values.map((x) => -x), -1), largestOf(values, 0)];
  const pad = Math.max(0.01, (largest - least) * 0.06);
  const round = (x, up) => (up ? Math.ceil(x * 50) : Math.floor(x * 50)) / 50;
  const low = round(Math.min(0.5, least) - pad, false);
  const high = round(Math.min(1, largest + pad), true);
  const lowTrain = round(-largestOf(points.map((one) => -one.train.ba), -1) - pad, false);
  const crowd = points.length > 300 ? 0.6 : 1;
  const size = (one) => crowd * (model.folds > 0 && one.folds_listed !== undefined ? 7 + 13 * (one.folds_listed / model.folds) : 10);
  const firsts = new Set(bestOfOrders(model).map((one) => `${one.order}:${nameOf(one)}`));
  const make = () => ({
    grid: { left: 64, right: 24, top: 40, bottom: 52 },
    legend: { itemWidth: 14, data: model.orders.map((order) => `order ${order.order}`) },
    xAxis: { type: "value", name: "training balanced accuracy", nameGap: 30, min: Math.max(0, lowTrain), max: high },
    yAxis: { type: "value", name: "testing balanced accuracy", nameGap: 42, min: Math.max(0, low), max: high },
    tooltip: { trigger: "item", formatter: (item) => item.data.hint || "" },
    series: [
      ...model.orders.map((order, i) => ({
        name: `order ${order.order}`, type: "scatter", z: 20 - i, symbol: SHAPES[i % SHAPES.length],
        itemStyle: { color: seriesColour(i), borderColor: colour("surface"), borderWidth: crowd, opacity: 0.9 },
        data: points.filter((one) => one.order === order.order).map((one) => ({
          value: [one.train.ba, one.test.ba], symbolSize: size(one),
          hint: plotText(`${nameOf(one)}\norder ${one.order}, rank ${one.rank}\ntraining ${fixed(one.train.ba)}, testing ${fixed(one.test.ba)}\nin ${fixed(one.folds_listed, 0)} of ${model.folds} folds`),
          label: { show: firsts.has(`${one.order}:${nameOf(one)}`), formatter: plotText(shortName(nameOf(one), 32)), position: "left", distance: 8, color: colour("ink"), fontSize: 13 },
        })),
        labelLayout: { hideOverlap: true, moveOverlap: "shiftY" },
      })),
      { type: "line", silent: true, symbol: "none", data: [[Math.max(lowTrain, low), Math.max(lowTrain, low)], [high, high]], lineStyle: { color: colour("soft"), type: "dashed", width: 1.5 } },
      { type: "line", silent: true, symbol: "none", data: [[lowTrain, 0.5], [high, 0.5]], lineStyle: { color: colour("soft"), type: "dotted", width: 1.5 } },
    ],
  });
  const picture = plot({ label: `Testing against training balanced accuracy of ${plural(points.length, "combination")}`, height: 440, make, renderer: points.length > 1500 ? "canvas" : "svg" });
  section.append(h("figure", {}, picture.element, h("figcaption", {}, "Dashed: testing equals training. Dotted: 0.5, what guessing gives.")),
    dataTable("Balanced accuracies", ["order", "combination", "training", "testing", "folds"],
      () => points.map((one) => [one.order, nameOf(one), fixed(one.train.ba), fixed(one.test.ba), fixed(one.folds_listed, 0)])));
}

function mdrGenotypes(model) {
  const choices = model.combinations.filter((one) => one.cells);
  const section = addSection("genotypes", "Genotypes of the best", "Cases and controls with each combination of genotypes, over all samples. "
    + (model.data.kind === "gmdr" ? "A genotype is high risk when the scores of its samples add up to more than 0." : "A genotype is high risk when its cases over its controls are above those of all samples."));
  model.showGenotypes = () => {};
  if (choices.length === 0) {
    section.append(h("p", { class: "note" }, "The results have no counts of genotypes. tavo-report --genotypes counts them in the genotype file."));
    return;
  }
  const place = h("div");
  const heading = h("h3", { tabindex: "-1" });
  const show = (one) => {
    pick.select.value = String(choices.findIndex((other) => other.order === one.order && nameOf(other) === nameOf(one)));
    heading.replaceChildren(nameCell(one));
    const value = headline(model, one);
    const parts = [plural(one.n ?? one.cells.reduce((sum, cell) => sum + cell.cases + cell.controls, 0), "sample"),
      model.data.kind !== "gmdr" && one.threshold !== undefined && `threshold: ${plain(one.threshold)} ${one.threshold === 1 ? "case" : "cases"} per control`,
      value !== undefined && `${model.crossValidated ? "testing " : ""}balanced accuracy ${fixed(value)}`];
    place.replaceChildren(h("p", { class: "intro" }, parts.filter(Boolean).join(", ")), genotypeGrids(one));
  };
  const pick = selectBox("Combination", choices.map((one, i) => [String(i), `order ${one.order}, rank ${one.rank}: ${shortName(nameOf(one), 80)}`]), (i) => show(choices[Number(i)]));
  section.append(h("div", { class: "controls" }, pick.element), heading, place);
  const best = bestOfOrders(model).filter((one) => one.cells);
  show(best.length > 0 ? best.reduce((a, b) => ((headline(model, b) ?? -1) > (headline(model, a) ?? -1) + NEAR ? b : a)) : choices[0]);
  model.showGenotypes = (one) => {
    show(one);
    section.scrollIntoView();
    heading.focus();
  };
}

const EDGES_OF_GRAPH = 25;

// Pairs of SNPs and how good they are: from the pairs, or where there are none from the smallest larger order.
function mdrEdges(model) {
  const order = model.orders.find((one) => one.order === 2) || model.orders.find((one) => one.order > 2);
  if (!order) {
    return null;
  }
  const edges = new Map();
  for (const one of order.combinations.slice(0, EDGES_OF_GRAPH)) {
    for (let i = 0; i < one.snps.length; ++i) {
      for (let j = i + 1; j < one.snps.length; ++j) {
        const key = JSON.stringify([one.snps[i], one.snps[j]]);
        const value = headline(model, one);
        if (value !== undefined && !edges.has(key)) {
          edges.set(key, { source: one.snps[i], target: one.snps[j], value, rank: one.rank, folds: one.folds_listed, share: model.folds > 0 && one.folds_listed !== undefined ? one.folds_listed / model.folds : 1 });
        }
      }
    }
  }
  return { order: order.order, edges: [...edges.values()] };
}

function mdrGraph(model) {
  const found = mdrEdges(model);
  if (!found || found.edges.length === 0) {
    return;
  }
  const { order, edges } = found;
  const pairs = order === 2 ? "the first pairs" : `the SNPs that stand together in the first combinations of order ${order}`;
  const section = addSection("graph", "Interaction graph", `SNPs of ${pairs} of the ranking. Wider lines: higher ${model.crossValidated ? "testing " : ""}balanced accuracy. `
    + (model.crossValidated ? "Solid: in the lists of all folds; dashed: of at least half; dotted: of fewer." : ""));
  section.append(...graphFigure({
    edges, valueName: `${model.crossValidated ? "testing " : ""}balanced accuracy`, show: (x) => fixed(x),
    columns: ["rank", "SNP", "SNP", model.crossValidated ? "testing BA" : "BA", "in folds"],
    row: (edge) => [edge.rank, edge.source, edge.target, fixed(edge.value), fixed(edge.folds, 0)],
  }));
}

// A graph on a circle, so that it looks the same every time.
function graphFigure({ edges, valueName, show, columns, row }) {
  const degree = new Map();
  for (const edge of edges) {
    degree.set(edge.source, (degree.get(edge.source) || 0) + 1);
    degree.set(edge.target, (degree.get(edge.target) || 0) + 1);
  }
  const names = [...degree.keys()];
  const values = edges.map((edge) => edge.value);
  const least = Math.min(...values);
  const span = Math.max(...values) - least || 1;
  const strongest = edges.reduce((a, b) => (b.value > a.value ? b : a));
  // Many names point away from the circle, those at the top and the bottom up and down.
  const pointsAway = names.length > 8;
  const label = (name) => shortName(name, 22);
  const heights = names.map((name, i) => label(name).length * Math.abs(Math.sin((2 * Math.PI * (i + 0.5)) / names.length)));
  const room = pointsAway ? Math.max(50, 24 + 8 * Math.max(...heights)) : 50;
  const make = () => ({
    tooltip: { trigger: "item", formatter: (item) => item.data.hint || plotText(item.name) },
    series: [{
      type: "graph", layout: "circular", circular: { rotateLabel: pointsAway }, roam: false,
      left: "18%", right: "18%", top: room, bottom: room,
      label: { show: true, color: colour("ink"), fontSize: 13, position: "right", formatter: (item) => plotText(label(item.name)) },
      emphasis: { focus: "adjacency", lineStyle: { opacity: 1 } },
      data: names.map((name, i) => ({
        id: String(i), name, symbol: "circle", symbolSize: 12 + 5 * Math.sqrt(degree.get(name)),
        itemStyle: { color: name === strongest.source || name === strongest.target ? colour("series2") : colour("series1"), borderColor: colour("surface"), borderWidth: 2 },
        hint: plotText(`${name}\nin ${plural(degree.get(name), "pair")}`),
      })),
      links: edges.map((edge) => ({
        source: String(names.indexOf(edge.source)), target: String(names.indexOf(edge.target)),
        hint: plotText(`${edge.source} × ${edge.target}\n${valueName} ${show(edge.value)}`),
        lineStyle: {
          width: 1 + 8 * ((edge.value - least) / span), curveness: 0.12, opacity: edge === strongest ? 1 : 0.65,
          color: edge === strongest ? colour("series2") : colour("series1"),
          type: edge.share >= 0.999 ? "solid" : edge.share >= 0.5 ? "dashed" : "dotted",
        },
      })),
    }],
  });
  const picture = plot({ label: `Graph of ${plural(names.length, "SNP")} and ${plural(edges.length, "pair")}`, height: 360 + 2 * room, make });
  return [h("figure", {}, picture.element, h("figcaption", {}, "The strongest pair, ", h("strong", {}, `${strongest.source} × ${strongest.target}`), `, in another colour: ${valueName} ${show(strongest.value)}.`)),
    dataTable("Pairs", columns, () => edges.map(row))];
}

function mixColour(share) {
  const parse = (name) => {
    const text = colour(name);
    return [1, 3, 5].map((i) => parseInt(text.slice(i, i + 2), 16));
  };
  const [from, to] = [parse("heat0"), parse("heat1")];
  return from.map((part, i) => Math.round(part + (to[i] - part) * share));
}

const ROWS_OF_HEAT = 15;

function mdrFolds(model) {
  const orders = model.orders.filter((order) => order.lists.some((entry) => entry.fold));
  if (orders.length === 0 || model.folds < 2) {
    return;
  }
  const section = addSection("folds", "Stability over the folds", "A combination that is real stands in the list of every fold, with testing values that do not differ much.");
  const place = h("div", { class: "scroll", tabindex: "0", role: "region", "aria-label": "Folds" });
  const show = (order) => {
    const rows = order.combinations.slice(0, ROWS_OF_HEAT);
    const entries = new Map(order.lists.map((entry) => [`${JSON.stringify(entry.snps)}/${entry.fold}`, entry]));
    const at = (one, fold) => entries.get(`${JSON.stringify(one.snps)}/${fold}`);
    const folds = Array.from({ length: model.folds }, (_, i) => i + 1);
    const values = rows.flatMap((one) => folds.map((fold) => at(one, fold)?.test.ba)).filter((x) => typeof x === "number");
    const least = Math.min(0.5, ...values);
    const span = Math.max(...values) - least || 1;
    place.replaceChildren(h("table", { class: "heat" },
      h("caption", {}, `Testing balanced accuracy in each fold, and below it the rank in the fold's list; ${isDark() ? "brighter" : "darker"} is higher. A dot: not in the list.`),
      h("thead", {}, h("tr", {}, h("th", { scope: "col" }, `Order ${order.order}`), folds.map((fold) => h("th", { scope: "col" }, `Fold ${fold}`)))),
      h("tbody", {}, rows.map((one) => h("tr", {}, h("th", { scope: "row" }, nameCell(one)), folds.map((fold) => {
        const entry = at(one, fold);
        const value = entry?.test.ba;
        if (value === undefined) {
          return h("td", { class: "absent" }, entry ? `#${entry.rank}` : "·");
        }
        const rgb = mixColour((value - least) / span);
        const bright = (0.299 * rgb[0] + 0.587 * rgb[1] + 0.114 * rgb[2]) > 140;
        return h("td", { style: `background:rgb(${rgb.join()});color:${bright ? "#111" : "#fff"}` }, value.toFixed(3), h("small", {}, `#${entry.rank}`));
      }))))));
  };
  let shown = orders[Math.min(1, orders.length - 1)];
  const pick = selectBox("Order", orders.map((order) => [String(order.order), `order ${order.order}`]), (order) => {
    shown = orders.find((one) => String(one.order) === order);
    show(shown);
  });
  pick.select.value = String(shown.order);
  show(shown);
  onTheme(() => show(shown));

  const best = bestOfOrders(model);
  const value = (one, fold, set) => {
    const order = model.orders.find((other) => other.order === one.order);
    return order.lists.find((entry) => entry.fold === fold && JSON.stringify(entry.snps) === JSON.stringify(one.snps))?.[set].ba ?? null;
  };
  const folds = Array.from({ length: model.folds }, (_, i) => i + 1);
  const make = () => ({
    grid: { left: 64, right: 24, top: 56, bottom: 48 },
    legend: { type: "scroll", itemWidth: 34, data: best.map((one) => ({ name: plotText(`${one.order}: ${shortName(nameOf(one), 40)}`) })), pageTextStyle: { color: colour("ink") } },
    xAxis: { type: "category", name: "fold", nameGap: 28, data: folds.map(String) },
    yAxis: { type: "value", name: "testing balanced accuracy", nameGap: 42, scale: true },
    tooltip: { trigger: "item", formatter: (item) => plotText(`${item.seriesName}\nfold ${item.name}: ${fixed(item.value)}`) },
    series: best.map((one, i) => ({
      name: plotText(`${one.order}: ${shortName(nameOf(one), 40)}`), type: "line", symbol: SHAPES[i % SHAPES.length], symbolSize: 10,
      lineStyle: { width: 2, color: seriesColour(i), type: ["solid", "dashed", "dotted"][i % 3] }, itemStyle: { color: seriesColour(i) },
      data: folds.map((fold) => value(one, fold, "test")),
    })),
  });
  const picture = plot({ label: "Testing balanced accuracy of the first combination of each order over the folds", height: 320, make });
  section.append(h("div", { class: "controls" }, orders.length > 1 && pick.element), place,
    h("h3", {}, "The first of each order"), h("figure", {}, picture.element, h("figcaption", {}, "A gap: the combination is not in the list of that fold.")),
    dataTable("Testing balanced accuracy by fold", ["order", "combination", ...folds.map((fold) => `fold ${fold}`)],
      () => best.map((one) => [one.order, nameOf(one), ...folds.map((fold) => fixed(value(one, fold, "test"), 3))])));
}

function settingsSection(settings) {
  const section = addSection("settings", "Settings");
  const rows = Object.entries(settings).map(([name, value]) => [name.replaceAll("_", " "), name === "mode" ? `${value} (${MODES[value] || "?"})` : value]);
  section.append(h("div", { class: "scroll" }, h("table", {}, h("tbody", {}, rows.map(([name, value]) => h("tr", {}, h("th", { scope: "row" }, name), h("td", { class: "names" }, value)))))));
}

function showMdr(data) {
  const model = mdrModel(data);
  const method = data.kind === "gmdr" ? "Score-based multifactor dimensionality reduction (GMDR)" : "Multifactor dimensionality reduction (MDR)";
  document.getElementById("subtitle").textContent = `${method}, ${MODES[data.settings.mode] || MODES[1]}${data.settings.genotype_file ? ` · ${data.settings.genotype_file}` : ""}`;
  mdrSummary(model);
  if (model.combinations.length > 0) {
    mdrRanking(model);
    mdrScatter(model);
    mdrGenotypes(model);
    mdrGraph(model);
    mdrFolds(model);
  }
  settingsSection(data.settings);
}
