// SPDX-License-Identifier: MIT
// Read rate by antenna: a chart of areas, one on the other, by Chart.js; and a table, which is its legend and
// says the same in numbers.
import { colour, onSchemeChange, seriesColour, seriesColours } from "./colours.js"
import { byId, element, fillTable } from "./dom.js"
import { count, rate, time } from "./format.js"

const minute = 60_000 // ms
const tickSteps = { 1: 20_000, 3: minute, 10: 3 * minute } // ms between two times at the axis, by minutes shown

// The series of the readers that are shown: {name, counts}, at most as many as there are colours. The last one
// has the sum of all those with the fewest reports when there are more, as on an array reader.
function shownSeries(picture, readerShown) {
  const all = [...picture.rates.series.values()]
    .filter(({ reader }) => readerShown(reader))
    .map((one) => ({
      name: nameOf(one, picture.readers),
      counts: one.counts,
      sum: one.counts.reduce((a, b) => a + b, 0),
    }))
  const byName = (a, b) => a.name.localeCompare(b.name, undefined, { numeric: true })
  if (all.length <= seriesColours) {
    return all.sort(byName)
  }
  all.sort((a, b) => b.sum - a.sum)
  const rest = all.splice(seriesColours - 1)
  const counts = rest[0].counts.map((_, i) => rest.reduce((sum, one) => sum + one.counts[i], 0))
  return [...all.sort(byName), { name: `${count(rest.length)} others`, counts }]
}

function nameOf({ reader, antenna }, readers) {
  const name = { none: "without antenna", other: "other antennas" }[antenna] ?? `antenna ${antenna}`
  return readers.length > 1 ? `${readers[reader]}, ${name}` : name
}

export class RateChart {
  constructor(picture, { readerShown, repaint }) {
    this.picture = picture
    this.readerShown = readerShown
    this.span = byId("rates-span")
    this.table = byId("rates-table")
    this.swatches = []
    this.span.addEventListener("change", repaint)
    onSchemeChange(() => {
      this.#colourAxes()
      repaint()
    })
    // Without its library the page goes on with the table.
    if (globalThis.Chart) {
      this.chart = new Chart(byId("rates-chart"), this.#settings())
      this.#colourAxes()
    } else {
      byId("rates-chart").parentElement.hidden = true
    }
  }

  paint() {
    const { rates } = this.picture
    const series = shownSeries(this.picture, this.readerShown)
    const inSpan = Math.min(rates.length, (Number(this.span.value) * minute) / rates.step)
    this.#paintTable(series, inSpan)
    if (!this.chart) {
      return
    }
    const perSecond = 1000 / rates.step
    const timeOf = (i) => rates.end - (inSpan - 1 - i) * rates.step
    this.chart.data.datasets = series.map(({ name, counts }, i) => ({
      label: name,
      data: counts.slice(-inSpan).map((value, k) => ({ x: timeOf(k), y: value * perSecond })),
      borderColor: seriesColour(i),
      backgroundColor: `${seriesColour(i)}66`,
    }))
    this.chart.options.scales.x.min = rates.end - Number(this.span.value) * minute
    this.chart.options.scales.x.max = rates.end
    this.chart.update("none")
  }

  #paintTable(series, inSpan) {
    const { step } = this.picture.rates
    const perSecond = 1000 / step
    const rows = series.map(({ name, counts }, i) => {
      const shown = counts.slice(-inSpan)
      const sum = shown.reduce((a, b) => a + b, 0)
      return [
        this.#legend(i, name),
        rate((shown.at(-1) ?? 0) * perSecond),
        rate((sum / Math.max(inSpan, 1)) * perSecond),
        rate(shown.reduce((a, b) => Math.max(a, b), 0) * perSecond),
        count(sum),
      ]
    })
    const number = (text, kind = "") => ({ text, kind: `number ${kind}` })
    fillTable(
      this.table,
      "Read rates by antenna in the chosen time",
      ["Antenna", number("Now"), number("Mean"), number("Most", "wide"), number("Reports", "wide")],
      rows,
    )
  }

  #legend(index, name) {
    this.swatches[index] ??= element(
      "span",
      {},
      element("i", { className: `swatch series-${index + 1}` }),
      "",
    )
    const [, text] = this.swatches[index].childNodes
    text.data = name
    return this.swatches[index]
  }

  #settings() {
    return {
      type: "line",
      data: { datasets: [] },
      options: {
        animation: false,
        parsing: false,
        normalized: true,
        maintainAspectRatio: false,
        interaction: { mode: "index", intersect: false },
        elements: { point: { radius: 0 }, line: { borderWidth: 1.5, fill: "stack", tension: 0 } },
        scales: {
          x: {
            type: "linear",
            afterBuildTicks: (axis) => this.#setTicks(axis),
            ticks: { autoSkip: false, maxRotation: 0, callback: (at) => time(at) },
          },
          y: {
            stacked: true,
            beginAtZero: true,
            suggestedMax: 1,
            grace: "5%",
            ticks: { maxTicksLimit: 6, callback: (value) => rate(value) },
          },
        },
        plugins: {
          legend: { display: false },
          tooltip: {
            callbacks: {
              title: ([first]) => time(first.parsed.x),
              label: ({ dataset, parsed }) => `${dataset.label}: ${rate(parsed.y)}`,
            },
          },
        },
      },
    }
  }

  // At round times.
  #setTicks(axis) {
    const step = tickSteps[this.span.value]
    axis.ticks = []
    for (let at = Math.ceil(axis.min / step) * step; at <= axis.max; at += step) {
      axis.ticks.push({ value: at })
    }
  }

  #colourAxes() {
    for (const axis of Object.values(this.chart?.options.scales ?? {})) {
      axis.grid = { ...axis.grid, color: colour("line"), borderColor: colour("line") }
      axis.ticks.color = colour("quiet")
    }
  }
}
