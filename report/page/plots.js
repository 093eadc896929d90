// Plots. The library draws on request; colours come from the page's style, so that they follow the theme, and
// every series has a shape or a pattern of its own as well.

const DARK = matchMedia("(prefers-color-scheme: dark)");
const SHAPES = ["circle", "diamond", "triangle", "rect", "roundRect", "pin"];
const plots = [];

function colour(name) {
  return getComputedStyle(document.documentElement).getPropertyValue(`--${name}`).trim();
}

function isDark() {
  return DARK.matches && document.documentElement.dataset.print === undefined;
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

// A plot without room for its axes is left as it was.
const LEAST_WIDTH = 160;

function drawPlots() {
  for (const one of plots) {
    if (!one.chart) {
      one.chart = echarts.init(one.element, null, { renderer: one.renderer });
      new ResizeObserver(([entry]) => !printing && entry.contentRect.width >= LEAST_WIDTH && one.chart.resize()).observe(one.element);
    }
    one.chart.setOption(withTheme(one.make()), true);
  }
}

// What follows the theme besides the plots: functions to call.
const themed = [];

function onTheme(redraw) {
  themed.push(redraw);
}

// Pages of paper are narrower than screens, and light.
const PRINT_WIDTH = 680;
let printing = false;

function redrawAll() {
  drawPlots();
  themed.forEach((redraw) => redraw());
}

function setPrinting(on) {
  printing = on;
  if (on) {
    document.documentElement.dataset.print = "";
  } else {
    delete document.documentElement.dataset.print;
  }
  redrawAll();
  for (const one of plots) {
    one.chart.resize({ width: on ? Math.min(PRINT_WIDTH, one.element.clientWidth) : "auto" });
    one.chart.getZr().flush();
  }
}

function followTheme() {
  DARK.addEventListener("change", redrawAll);
  addEventListener("beforeprint", () => setPrinting(true));
  addEventListener("afterprint", () => setPrinting(false));
}
