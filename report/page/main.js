// Shows the data of the page.

(function main() {
  const data = JSON.parse(document.getElementById("data").textContent);
  if (data.kind === "mdr" || data.kind === "gmdr") {
    showMdr(data);
  } else {
    showRegression(data);
  }
  // Once, for every grid of genotypes.
  document.body.append(s("svg", { width: 0, height: 0, "aria-hidden": "true", style: "position:absolute" }, hatchDefinition()));
  drawPlots();
  followTheme();
  document.documentElement.dataset.ready = "true";
})();
