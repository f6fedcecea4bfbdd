// Curves, drawn by uPlot.

import uPlot from "uplot";
import { colour, whenSeen } from "./dom.js";

const HEIGHT = 230;

/** What fits a sheet of paper. */
const PRINTED_WIDTH = 620;

export const seriesColour = (i) => colour(`--series-${i % 8}`);

/** Distances of ticks between whole numbers. */
const WHOLE_STEPS = Array.from({ length: 16 }, (_, power) => [1, 2, 5].map((digit) => digit * 10 ** power)).flat();

const charts = new Map();

/** Lays out the charts of the page again: after a change of its width or its colours. */
export function redrawCharts() {
  for (const [holder, make] of charts) {
    if (!holder.isConnected) charts.delete(holder);
    else if (holder.chart) make();
  }
}

const short = (number) => (number === null || number === undefined ? "–" : String(Number(number.toPrecision(7))));

/**
 * Draws lines over one another into `holder` when it is seen. Each of `lines` has a name, `x` and `y`, and may be
 * dashed; they need not have the same x. `band` is a range to be shown, or null, and what is outside it is marked.
 */
export function drawCurves(holder, { lines, xName, band, height = HEIGHT, small = false }) {
  const make = () => {
    holder.chart?.destroy();
    const most = document.documentElement.dataset.print === undefined ? Infinity : PRINTED_WIDTH;
    const width = Math.min(Math.max(160, holder.clientWidth), most);
    const axis = {
      stroke: colour("--quiet"),
      grid: { stroke: colour("--line"), width: 1 },
      ticks: { stroke: colour("--line"), width: 1 },
      font: "12px system-ui, sans-serif",
      size: small ? 42 : 56,
      values: (_, ticks) => ticks.map((tick) => (tick === null ? "" : String(Number(tick.toPrecision(6))))),
    };
    const options = {
      width,
      height,
      scales: { x: { time: false } },
      legend: { show: !small, markers: { fill: (chart, i) => chart.series[i].stroke(chart, i) } },
      cursor: { drag: { x: !small, y: false } },
      axes: [
        {
          ...axis,
          size: 34,
          label: small ? undefined : xName,
          labelSize: 18,
          labelFont: axis.font,
          ...(lines.every(({ x }) => x.every(Number.isInteger)) && { incrs: WHOLE_STEPS }),
        },
        axis,
      ],
      series: [
        { label: xName, value: (_, value) => short(value) },
        ...lines.map((line, i) => ({
          label: line.name,
          stroke: seriesColour(line.place ?? i),
          width: 2,
          dash: line.dashed ? [6, 4] : undefined,
          points: { show: !small && line.x.length <= 40, size: 5 },
          spanGaps: true,
          value: (_, value) => short(value),
        })),
      ],
      hooks: band && {
        drawClear: [(chart) => drawBand(chart, band)],
        draw: lines.map((line) => (chart) => ringOutside(chart, band, line)),
      },
    };
    const tables = lines.map((line) => {
      const order = Array.from(line.x.keys()).sort((a, b) => line.x[a] - line.x[b]);
      return [order.map((i) => line.x[i]), order.map((i) => (Number.isFinite(line.y[i]) ? line.y[i] : null))];
    });
    holder.chart = new uPlot(options, tables.length === 1 ? tables[0] : uPlot.join(tables), holder);
  };
  charts.set(holder, make);
  if (holder.chart) make();
  else whenSeen(holder, make);
}

/** Rings around what is outside the range. */
function ringOutside(chart, { lo, hi }, { x, y }) {
  const { ctx } = chart;
  ctx.save();
  ctx.strokeStyle = colour("--outside");
  ctx.lineWidth = 2 * (window.devicePixelRatio || 1);
  x.forEach((at, i) => {
    if (!Number.isFinite(y[i]) || (y[i] >= lo && y[i] <= hi)) return;
    ctx.beginPath();
    ctx.arc(chart.valToPos(at, "x", true), chart.valToPos(y[i], "y", true), 3 * ctx.lineWidth, 0, 2 * Math.PI);
    ctx.stroke();
  });
  ctx.restore();
}

/** What the rule recommends, as a band behind the curves. */
function drawBand(chart, { lo, hi }) {
  const { ctx, bbox } = chart;
  const y = (value) => Math.min(Math.max(chart.valToPos(value, "y", true), bbox.top), bbox.top + bbox.height);
  ctx.save();
  ctx.fillStyle = colour("--band");
  ctx.fillRect(bbox.left, y(hi), bbox.width, y(lo) - y(hi));
  ctx.restore();
}
