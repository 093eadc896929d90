"use strict";

// Elements and texts. Text from the data goes into the page as text nodes only, never as markup.

function setAttributes(element, attributes) {
  for (const [name, value] of Object.entries(attributes || {})) {
    if (value === undefined || value === null || value === false) {
      continue;
    }
    if (name.startsWith("on")) {
      element.addEventListener(name.slice(2), value);
    } else {
      element.setAttribute(name, value === true ? "" : String(value));
    }
  }
}

function appendAll(element, children) {
  for (const child of children.flat(Infinity)) {
    if (child !== undefined && child !== null && child !== false) {
      element.append(child instanceof Node ? child : document.createTextNode(String(child)));
    }
  }
  return element;
}

function h(tag, attributes, ...children) {
  const element = document.createElement(tag);
  setAttributes(element, attributes);
  return appendAll(element, children);
}

function s(tag, attributes, ...children) {
  const element = document.createElementNS("http://www.w3.org/2000/svg", tag);
  setAttributes(element, attributes);
  return appendAll(element, children);
}

// Numbers as people read them.
function fixed(value, digits = 4) {
  return typeof value === "number" ? value.toFixed(digits) : value === undefined || value === null ? "–" : String(value);
}

function whole(value) {
  return typeof value === "number" ? value.toLocaleString("en") : fixed(value);
}

function probability(p) {
  if (typeof p !== "number") {
    return fixed(p);
  }
  return p === 0 ? "0" : p < 0.001 ? p.toExponential(1) : p.toPrecision(2);
}

// A statistic of any size.
function plain(value) {
  return typeof value === "number" && Number.isFinite(value) ? String(Number(value.toPrecision(5))) : fixed(value);
}

// The largest of any number of values, at least `least`.
function largestOf(values, least) {
  return values.reduce((a, b) => (b > a ? b : a), least);
}

function plural(n, word) {
  return `${whole(n)} ${word}${n === 1 ? "" : "s"}`;
}

// The names of a combination in a line.
function nameOf(combination) {
  return combination.snps.join(" × ");
}

function shortName(name, length) {
  return name.length > length ? `${name.slice(0, length - 1)}…` : name;
}

// The same for a narrow place: long names are cut, the whole stands in the title.
function nameCell(combination) {
  const text = combination.snps.map((name) => shortName(name, 30)).join(" × ");
  return h("span", { title: nameOf(combination) }, text);
}

// A section of the page with its entry in the list of sections.
function addSection(id, title, intro) {
  const section = h("section", { id, "aria-labelledby": `${id}-title` }, h("h2", { id: `${id}-title` }, title),
    intro && h("p", { class: "intro" }, intro));
  document.getElementById("content").append(section);
  document.getElementById("contents").append(h("a", { href: `#${id}` }, title));
  return section;
}

// A table as it is: header cells, rows of cells. Numbers stand to the right.
function simpleTable(caption, columns, rows) {
  const isNumber = columns.map((_, i) => rows.some((row) => typeof row[i] === "number" || /^[-−]?[0-9.,e+-]+$/.test(String(row[i]))));
  return h("table", {}, h("caption", {}, caption),
    h("thead", {}, h("tr", {}, columns.map((name, i) => h("th", { scope: "col", class: isNumber[i] && "number" }, name)))),
    h("tbody", {}, rows.map((row) => h("tr", {}, row.map((cell, i) => h("td", { class: isNumber[i] && "number" }, cell))))));
}

const MOST_ROWS_OF_DETAILS = 500;

// What a picture shows, as a table that opens on demand. make: () => rows, called when it is first opened.
function dataTable(caption, columns, make) {
  const box = h("div", { class: "scroll", tabindex: "0", role: "region", "aria-label": caption });
  const details = h("details", {}, h("summary", {}, "These data as a table"), box);
  details.addEventListener("toggle", () => {
    if (details.open && !box.firstChild) {
      const rows = make();
      const shown = rows.slice(0, MOST_ROWS_OF_DETAILS);
      const cut = rows.length > shown.length ? ` (the first ${shown.length} of ${whole(rows.length)})` : "";
      box.append(simpleTable(caption + cut, columns, shown));
    }
  });
  // Makes the table anew when it is opened again.
  details.forget = () => {
    box.replaceChildren();
    details.open = false;
  };
  return details;
}

function selectBox(label, options, onchange) {
  const select = h("select", { onchange: () => onchange(select.value) },
    options.map(([value, text]) => h("option", { value }, text)));
  return { element: h("label", {}, label, select), select };
}

function facts(items) {
  return h("dl", { class: "facts" }, items.map(([name, value, small]) =>
    h("div", {}, h("dt", {}, name), h("dd", {}, value, small && h("small", {}, small)))));
}
