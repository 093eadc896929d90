// A table that sorts, searches and turns pages. columns: {label, get(row), show(value), numeric, names, title};
// get gives what is sorted by, show the text or node of a cell. keep(row): what may be shown now; sortedBy: the column
// that is sorted by at first.

const ROWS_OF_PAGE = 25;

function compareValues(a, b) {
  const missing = (value) => value === undefined || value === null || value === "" || Number.isNaN(value);
  if (missing(a) || missing(b)) {
    return missing(a) - missing(b);
  }
  return typeof a === "number" && typeof b === "number" ? a - b : String(a).localeCompare(String(b), "en", { numeric: true });
}

function sortableTable({ caption, columns, rows, searchLabel, searchText, extraControls = [], keep = () => true, sortedBy = -1 }) {
  let sorted = { column: -1, ascending: true };
  let found = rows;
  let page = 0;

  const status = h("span", { role: "status", "aria-live": "polite" });
  const body = h("tbody");
  const heads = columns.map((column, i) => h("th", { scope: "col", class: column.numeric && "number", title: column.title },
    h("button", { type: "button", onclick: () => sortBy(i) }, column.label)));
  const previous = h("button", { type: "button", onclick: () => turn(-1) }, "Previous");
  const next = h("button", { type: "button", onclick: () => turn(1) }, "Next");
  const search = h("input", { type: "search", oninput: () => find(), placeholder: "name, or part of it" });

  function show() {
    const pages = Math.max(1, Math.ceil(found.length / ROWS_OF_PAGE));
    page = Math.min(Math.max(page, 0), pages - 1);
    const first = page * ROWS_OF_PAGE;
    body.replaceChildren(...found.slice(first, first + ROWS_OF_PAGE).map((row) => h("tr", {}, columns.map((column) => {
      const value = column.get(row);
      return h("td", { class: column.numeric ? "number" : column.names && "names" }, column.show ? column.show(value, row) : fixed(value));
    }))));
    previous.disabled = page === 0;
    next.disabled = page === pages - 1;
    const part = found.length === 0 ? "No row" : `Rows ${first + 1} to ${Math.min(first + ROWS_OF_PAGE, found.length)} of ${whole(found.length)}`;
    status.textContent = part + (found.length < rows.length ? ` found among ${whole(rows.length)}` : "");
  }

  function arrange() {
    const wanted = search.value.trim().toLowerCase().split(/\s+/).filter(Boolean);
    found = rows.filter((row) => {
      if (!keep(row)) {
        return false;
      }
      const text = searchText(row).toLowerCase();
      return wanted.every((word) => text.includes(word));
    });
    if (sorted.column >= 0) {
      const { get } = columns[sorted.column];
      const sign = sorted.ascending ? 1 : -1;
      const missing = (row) => compareValues(get(row), undefined) === 0;
      found.sort((a, b) => (missing(a) || missing(b) ? missing(a) - missing(b) : sign * compareValues(get(a), get(b))));
    }
    page = 0;
    show();
  }

  // Numbers begin with the largest, names with the first; once more turns the order round.
  function sortBy(i) {
    const again = sorted.column === i;
    sorted = { column: i, ascending: again ? !sorted.ascending : !columns[i].numeric || Boolean(columns[i].smallestFirst) };
    heads.forEach((head, j) => {
      if (j === i) {
        head.setAttribute("aria-sort", sorted.ascending ? "ascending" : "descending");
      } else {
        head.removeAttribute("aria-sort");
      }
    });
    arrange();
  }

  function find() {
    arrange();
  }

  function turn(by) {
    page += by;
    show();
  }

  if (sortedBy >= 0) {
    sortBy(sortedBy);
  } else {
    arrange();
  }
  const element = h("div", {},
    h("div", { class: "controls" }, h("label", {}, searchLabel, search), extraControls),
    h("div", { class: "scroll", tabindex: "0", role: "region", "aria-label": caption },
      h("table", {}, h("caption", { class: "sr" }, caption), h("thead", {}, h("tr", {}, heads)), body)),
    h("div", { class: "pager" }, previous, next, status));
  return { element, refresh: arrange };
}
