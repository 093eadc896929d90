// Plots. The library draws on request; colours come from the page's style, so that they follow the theme, and
// every series has a shape or a pattern of its own as well.

const SHAPES = ["circle", "diamond", "triangle", "rect", "roundRect", "pin"];
const plots = [];

function colour(name) {
  return getComputedStyle(document.documentElement).getPropertyValue(`--${name}`).trim();
}

function seriesColour(i) {
  return colour(`series${(i % 6) + 1}`);
}

// Settings that all plots share. Tooltips are drawn as text, not as markup.
function withTheme(option) {
  const ink = colour("ink");
  const soft = colour("soft");
  const axis = (one) => ({
    nameLocation: "middle",
    nameTextStyle: { color: ink, fontSize: 13 },
    axisLine: { show: true, lineStyle: { color: soft } },
    axisTick: { show: true, lineStyle: { color: soft } },
    splitLine: { lineStyle: { color: colour("line"), type: "dotted" } },
    ...one,
    axisLabel: { color: soft, fontSize: 12, ...(one.axisLabel || {}) },
  });
  return {
    animation: false,
    aria: { enabled: false },
    textStyle: { fontFamily: "system-ui, 'Liberation Sans', 'DejaVu Sans', sans-serif", color: ink },
    ...option,
    ...(option.xAxis ? { xAxis: axis(option.xAxis), yAxis: axis(option.yAxis) } : {}),
    legend: option.legend && { top: 0, textStyle: { color: ink, fontSize: 13 }, inactiveColor: soft, ...option.legend },
    tooltip: {
      renderMode: "richText",
      backgroundColor: colour("surface"),
      borderColor: soft,
      textStyle: { color: ink, fontSize: 13 },
      confine: true,
      ...option.tooltip,
    },
  };
}

// Braces begin a style in the texts of the library.
function plotText(text) {
  return String(text).replace(/\{/g, "(").replace(/\}/g, ")");
}

// Draws make() into a new element and keeps it up to date with theme and width. label: what the picture
// shows, for those who do not see it.
function plot({ label, height, make, renderer = "svg" }) {
  const element = h("div", { class: "plot", role: "img", "aria-label": label, style: `height:${height}px` });
  const one = { element, chart: null, make, renderer };
  plots.push(one);
  return {
    element,
    redraw: () => one.chart && one.chart.setOption(withTheme(make()), true),
  };
}

function drawPlots() {
  for (const one of plots) {
    if (!one.chart) {
      one.chart = echarts.init(one.element, null, { renderer: one.renderer });
      new ResizeObserver(() => one.chart.resize()).observe(one.element);
    }
    one.chart.setOption(withTheme(one.make()), true);
  }
}

const PRINT_WIDTH = 680;

function followTheme() {
  matchMedia("(prefers-color-scheme: dark)").addEventListener("change", drawPlots);
  addEventListener("beforeprint", () => {
    document.documentElement.dataset.print = "";
    drawPlots();
    plots.forEach((one) => one.chart.resize({ width: PRINT_WIDTH }));
  });
  addEventListener("afterprint", () => {
    delete document.documentElement.dataset.print;
    drawPlots();
    plots.forEach((one) => one.chart.resize({ width: "auto" }));
  });
}
