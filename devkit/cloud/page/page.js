// The live page: polls the state each second and redraws what changed. Reported values are inserted as
// text, never as markup.
"use strict";

const POLL_MS = 1000;
const REQUEST_MS = 5000;
const SEVERITIES = ["good", "notice", "warning", "critical"];
const LOW_BATTERY = 20;
const HIGH_LOAD = 80;
const GAP_PERIODS = 3;
const DASH = "–";
const WAVEFORMS = ["sampVInput", "sampVOutput", "sampIOutput"];

const byId = (id) => document.getElementById(id);
const ink = (name) => getComputedStyle(document.documentElement).getPropertyValue("--" + name).trim();
const plural = (count, word) => `${count} ${word}${count === 1 ? "" : "s"}`;
const clock = (seconds, style = "medium") => new Date(seconds * 1000).toLocaleTimeString([], { timeStyle: style });
const isNumber = (value) => typeof value === "number" && Number.isFinite(value);

function quantity(value, unit, digits = 1) {
  return isNumber(value) ? `${value.toFixed(digits)} ${unit}` : DASH;
}

function duration(seconds) {
  if (seconds < 90) return `${Math.round(seconds)} s`;
  return seconds < 5400 ? `${Math.round(seconds / 60)} min` : `${Math.round(seconds / 3600)} h`;
}

async function getJson(url) {
  const response = await fetch(url, { cache: "no-store", signal: AbortSignal.timeout(REQUEST_MS) });
  if (!response.ok) throw new Error(`${url}: ${response.status}`);
  return response.json();
}

/** A copy of a template; sets the text of its elements with data-field. */
class View {
  constructor(template) {
    this.root = byId(template).content.firstElementChild.cloneNode(true);
    this.fields = new Map();
    for (const element of this.root.querySelectorAll("[data-field]")) this.fields.set(element.dataset.field, element);
  }

  set(field, text) {
    const element = this.fields.get(field);
    if (element.textContent !== text) element.textContent = text;
  }
}

class Plot {
  constructor(figure, makeConfig) {
    this.figure = figure;
    this.makeConfig = makeConfig;
    this.figure.dataset.empty = "true";
  }

  /** Draws series of points; null shows that there is no data. */
  draw(series) {
    const isEmpty = !series || typeof Chart === "undefined" || series.every((points) => points.length === 0);
    this.figure.dataset.empty = String(isEmpty);
    if (isEmpty) return;
    this.chart ??= new Chart(this.figure.querySelector("canvas"), this.makeConfig());
    series.forEach((points, i) => { this.chart.data.datasets[i].data = points; });
    this.chart.update("none");
  }

  forget() {
    this.chart?.destroy();
    this.chart = undefined;
  }
}

function lineConfig(lines, scales) {
  return {
    type: "line",
    data: {
      datasets: lines.map(({ color, axis, isFilled }) => ({
        data: [],
        yAxisID: axis ?? "y",
        borderColor: ink(color),
        backgroundColor: ink(color) + "22",
        borderWidth: 2,
        pointRadius: 0,
        tension: 0.3,
        fill: isFilled ? "origin" : false,
        spanGaps: false,
      })),
    },
    options: {
      animation: false,
      maintainAspectRatio: false,
      normalized: true,
      parsing: false,
      events: [],
      plugins: { legend: { display: false }, tooltip: { enabled: false } },
      scales,
    },
  };
}

function waveformConfig() {
  const hidden = { type: "linear", axis: "y", display: false, grace: "8%" };
  return lineConfig(
    [{ color: "input" }, { color: "output" }, { color: "current", axis: "amperes" }],
    { x: { type: "linear", bounds: "data", display: false }, y: hidden, amperes: hidden });
}

function historyConfig() {
  const ticks = { color: ink("quiet"), font: { size: 11 }, maxRotation: 0, align: "inner" };
  const shortSpan = 600;
  function timeLabel(seconds) {
    return clock(seconds, this.max - this.min > shortSpan ? "short" : "medium");
  }
  const threeTicks = (axis) => {
    axis.ticks = [axis.min, (axis.min + axis.max) / 2, axis.max].map((value) => ({ value }));
  };
  return lineConfig(
    [{ color: "good", isFilled: true }, { color: "power" }],
    {
      x: { type: "linear", bounds: "data", grid: { display: false }, afterBuildTicks: threeTicks, ticks: { ...ticks, callback: timeLabel } },
      y: { min: 0, suggestedMax: 100, grid: { color: ink("line") }, ticks: { ...ticks, stepSize: 50 } },
    });
}

/** A column of the history as points; missing reports leave a gap. */
function timeSeries(rows, column) {
  const series = [];
  for (const [i, row] of rows.entries()) {
    const isGap = i > 0 && row[0] - rows[i - 1][0] > GAP_PERIODS * secondsBetween;
    if (isGap) series.push({ x: row[0], y: NaN });
    if (row[column] !== null) series.push({ x: row[0], y: row[column] });
  }
  return series;
}

const list = (value) => (Array.isArray(value) ? value : []);

/**
 * The waveforms of a report as points. A report repeats the samples of the units before it in its run, so they can be
 * told apart only if the previous unit's report of that run is known; null otherwise.
 */
function ownWaveforms(report, previous) {
  const isSameRun = previous && previous.number < report.number && report.last - previous.last < secondsBetween / 2;
  if (Number(report.device) > 0 && !isSameRun) return null;
  const samples = ({ body: { vars = {} } }, key) => list(vars[key]);
  return WAVEFORMS.map((key) => {
    const repeated = previous ? samples(previous, key).length : 0;
    return samples(report, key).slice(repeated).map((y, x) => ({ x, y }));
  });
}

class UnitCard extends View {
  constructor(computer, device) {
    super("unit-template");
    this.query = new URLSearchParams({ computer, device }).toString();
    this.root.id = `unit-${computer}-${device}`;
    Object.assign(this.root.dataset, { unit: device, computer });
    this.waveforms = new Plot(this.root.querySelector('[data-plot="waveforms"]'), waveformConfig);
    this.history = new Plot(this.root.querySelector('[data-plot="history"]'), historyConfig);
    this.isVisible = false;
    this.isDrawn = true;
  }

  update(unit, previousCard) {
    Object.assign(this.root.dataset, {
      state: unit.state,
      level: unit.level,
      missed: unit.missed,
      reports: unit.reports,
      stale: unit.overdue > 0,
    });
    this.set("last", clock(unit.last));
    this.set("age", `· ${duration(unit.age)} ago`);
    this.set("reports", plural(unit.reports, "report"));
    this.set("missed", `· ${unit.missed} missed`);
    if (!unit.body) return;
    this.report = unit;
    this.waves = ownWaveforms(unit, previousCard?.report);
    this.describe(unit);
    this.measure(unit);
    this.isDrawn = false;
    this.draw();
  }

  describe(unit) {
    const { vars = {}, caps = {} } = unit.body;
    this.set("name", unit.name || `UPS ${unit.device}`);
    this.set("device", `Unit ${unit.device}`);
    this.set("version", caps.hasVersion && vars.version ? ` · version ${vars.version}` : "");
    this.set("state", unit.words);
    const notes = unit.notes.map((words) => Object.assign(document.createElement("li"), { textContent: words }));
    if (notes.length === 0) notes.push(Object.assign(document.createElement("li"), { textContent: "No notes", className: "none" }));
    this.fields.get("notes").replaceChildren(...notes);
  }

  measure(unit) {
    const { vars = {}, caps = {}, status = {}, regressiveCounter: countdown = {} } = unit.body;
    const measured = (capability, value) => (caps[capability] ? value : null);
    const battery = measured("hasCBattery", vars.cBattery);
    const output = measured("hasVOutput", vars.vOutput);
    this.set("input-voltage", quantity(measured("hasVInput", vars.vInput), "V"));
    this.set("output-voltage", quantity(output, "V"));
    this.set("temperature", quantity(measured("hasTemperature", vars.temperature), "°C"));
    this.set("power", quantity(measured("hasPOutput", vars.pOutput), "W", 0));
    this.set("current", quantity(measured("hasIOutput", vars.iOutput), "A", 2));
    this.set("frequency", quantity(measured("hasFOutput", vars.fOutput), "Hz"));
    this.set("battery-voltage", quantity(measured("hasVBattery", vars.vBattery), "V"));
    this.set("rated", quantity(measured("hasNominalPOutput", vars.nominalPOutput), "W", 0));
    this.set("shutdown", countdown.active ? `Counting, ${countdown.value}` : "Not planned");
    this.setMeter("battery", "battery", battery, battery < LOW_BATTERY ? "critical" : battery < 2 * LOW_BATTERY ? "warning" : "good");
    this.setMeter("load", "load", unit.load, unit.load > 100 ? "critical" : unit.load > HIGH_LOAD ? "warning" : "good");
    this.root.querySelector(".charge").style.width = `${0.12 * Math.min(100, Math.max(0, battery ?? 0))}px`;
    this.root.dataset.source = output !== null && output < 1 ? "none" : status.opBattery ? "battery" : "mains";
  }

  setMeter(name, field, value, tone) {
    const meter = this.root.querySelector(`[data-meter="${name}"]`);
    const track = meter.querySelector("[role=meter]");
    const isKnown = isNumber(value);
    this.set(field, quantity(value, "%", 0));
    meter.dataset.tone = isKnown ? tone : "good";
    track.setAttribute("aria-valuenow", isKnown ? Math.min(100, Math.max(0, Math.round(value))) : 0);
    track.setAttribute("aria-valuetext", isKnown ? `${Math.round(value)} percent` : "not reported");
    track.firstElementChild.style.width = `${isKnown ? Math.min(100, Math.max(0, value)) : 0}%`;
  }

  /** Draws the charts if the card is in sight: they cost the most time. */
  async draw() {
    if (this.isDrawn || !this.isVisible || !this.report) return;
    this.isDrawn = true;
    this.waveforms.draw(this.waves);
    try {
      const { rows } = await getJson(`/api/history?${this.query}`);
      this.history.draw(rows.length > 1 ? [timeSeries(rows, 1), timeSeries(rows, 2)] : null);
    } catch {
      this.isDrawn = false; // retried with the next report, or when the card comes into sight
    }
  }

  recolor() {
    this.waveforms.forget();
    this.history.forget();
    this.isDrawn = false;
    this.draw();
  }
}

class ComputerSection extends View {
  constructor(id) {
    super("computer-template");
    this.root.dataset.computer = id;
    this.set("id", id);
    this.list = this.root.querySelector(".units");
  }

  update(computer) {
    const { os, ver } = computer.body ?? {};
    if (computer.body) this.set("system", [os, ver && `suite ${ver}`].filter(Boolean).join(" · "));
    this.set("reported", computer.last ? `· reported ${duration(computer.age)} ago` : "");
  }
}

const sections = new Map();
const cards = new Map();
let lastNumber = 0;
let secondsBetween = 10;

const sight = new IntersectionObserver((entries) => {
  for (const { target, isIntersecting } of entries) {
    const card = cards.get(target.id);
    if (!card) continue;
    card.isVisible = isIntersecting;
    card.draw();
  }
}, { rootMargin: "200px" });

/** The entry of a map; a new one is made and appended to the page. */
function ensure(map, key, make, parent) {
  let view = map.get(key);
  if (!view) {
    view = make();
    map.set(key, view);
    parent.append(view.root);
  }
  return view;
}

function showComputer(computer) {
  const section = ensure(sections, computer.id, () => new ComputerSection(computer.id), byId("computers"));
  section.update(computer);
  for (const unit of computer.units) {
    const id = `unit-${computer.id}-${unit.device}`;
    const isNew = !cards.has(id);
    const card = ensure(cards, id, () => new UnitCard(computer.id, unit.device), section.list);
    const previous = String(Number(unit.device) - 1).padStart(3, "0");
    card.update(unit, cards.get(`unit-${computer.id}-${previous}`));
    if (isNew) sight.observe(card.root);
  }
  [...section.list.children].sort((a, b) => a.dataset.unit.localeCompare(b.dataset.unit)).forEach((root, i) => {
    if (section.list.children[i] !== root) section.list.insertBefore(root, section.list.children[i]);
  });
}

function showHeadline(units) {
  const worst = units.reduce((level, unit) => Math.max(level, SEVERITIES.indexOf(unit.level)), 0);
  const troubled = units.filter((unit) => SEVERITIES.indexOf(unit.level) >= 2);
  const silent = units.filter((unit) => unit.overdue > 0);
  const words = units.length === 0 ? "Waiting for the first report"
    : troubled.length === 0 ? "All UPSs are OK"
      : `${plural(troubled.length, "UPS")} ${troubled.length === 1 ? "needs" : "need"} attention`;
  const counts = new Map();
  for (const unit of units) counts.set(unit.words, (counts.get(unit.words) ?? 0) + 1);
  const detail = [...counts].map(([state, count]) => `${count} ${state[0].toLowerCase()}${state.slice(1)}`);
  if (silent.length > 0) detail.push(`${silent.length} not reporting`);
  byId("headline").dataset.level = units.length === 0 ? "notice" : silent.length > 0 && worst < 2 ? "warning" : SEVERITIES[worst];
  byId("headline-words").textContent = silent.length === units.length && units.length > 0 ? "Reports have stopped" : words;
  byId("headline-detail").textContent = detail.join(" · ");
  document.title = troubled.length > 0 ? `(${troubled.length}) PelCloud` : "PelCloud";
}

function showLink(link, words) {
  byId("link").dataset.link = link;
  byId("link-words").textContent = words;
}

function reset() {
  byId("computers").replaceChildren();
  sections.clear();
  cards.clear();
  lastNumber = 0;
}

async function poll() {
  try {
    const state = await getJson(`/api/state?since=${lastNumber}`);
    if (state.number < lastNumber) {
      reset(); // the cloud was restarted and counts from 1 again
    } else {
      lastNumber = state.number;
      secondsBetween = state.secondsBetween;
      state.computers.forEach(showComputer);
      const units = state.computers.flatMap((computer) => computer.units);
      showHeadline(units);
      byId("empty").hidden = state.computers.length > 0;
      byId("waiting").hidden = state.waiting === 0;
      byId("waiting-words").textContent = `${plural(state.waiting, "device")} waiting for approval.`;
      document.body.dataset.reports = state.number;
      showLink("live", "Live");
    }
  } catch {
    showLink("lost", "Connection lost");
  }
  setTimeout(poll, POLL_MS);
}

matchMedia("(prefers-color-scheme: dark)").addEventListener("change", () => cards.forEach((card) => card.recolor()));
poll();
