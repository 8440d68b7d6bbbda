// SPDX-License-Identifier: MIT
// What the readers say of themselves in their heartbeats.
import { byId, element, fillList, fitChildren, setText } from "./dom.js"
import { count, duration, measure, share, temperature, time } from "./format.js"

const lateAfter = 30_000 // ms; the daemon sends one every 10 s, unless it is told otherwise
const noTemperature = -273 // what it tells without an answer of the radio

const good = (isGood) => (isGood ? "good" : "bad")

function antennaText(antennas) {
  const names = Object.keys(antennas)
  const lost = names.filter((name) => antennas[name] !== "connected")
  return lost.length === 0
    ? `${count(names.length)} of ${count(names.length)} connected`
    : `${count(names.length - lost.length)} of ${count(names.length)} connected; not: ${lost.join(", ")}`
}

function temperatureText(celsius) {
  return celsius === noTemperature ? "no answer" : temperature(celsius)
}

// The mean of what an element hears back, for the channel of this heartbeat.
function echoText(echo) {
  return Object.entries(echo)
    .map(([frequency, elements]) => {
      const levels = Object.values(elements).map(({ rxPwrPostEchox10 }) => rxPwrPostEchox10 / 10)
      const mean = levels.reduce((a, b) => a + b, 0) / Math.max(levels.length, 1)
      return `${measure(frequency / 1000)} MHz: ${measure(mean)} dBm, mean of ${count(levels.length)} elements`
    })
    .join("; ")
}

// Name, value and kind of what `data` has. Members come and go with reader model and daemon.
const rows = [
  ["radioConnection", "Radio", (value) => [value, good(value === "connected")]],
  ["radioActivity", "Reading", (value) => [value]],
  [
    "antennas",
    "Antennas",
    (value) => [antennaText(value), good(Object.values(value).every((state) => state === "connected"))],
  ],
  [
    "temperature",
    "Temperature",
    ({ ambient, pa }) => [
      [
        `${temperatureText(ambient)} ambient`,
        ...(pa === undefined ? [] : [`${temperatureText(pa)} amplifier`]),
      ].join(", "),
    ],
  ],
  ["aarEcho", "Echo", (value) => [echoText(value)]],
  ["uptime", "Daemon up for", (value) => [value]],
  ["cpuUtilization", "Processor", (value) => [share(value / 100)]],
  ["ramUtilization", "Memory", (value) => [share(value / 100)]],
  ["numTagReads", "Tag reads", (value) => [count(value)]],
  ["numRadioPacketsRxed", "Radio packets", (value) => [count(value)]],
  ["numDataMessagesTxed", "Reports sent", (value) => [count(value)]],
  ["numErrors", "Errors", (value) => [count(value), good(value === 0)]],
  ["numWarnings", "Warnings", (value) => [count(value), value === 0 ? "good" : "warn"]],
]

export class HeartbeatCards {
  constructor(picture, { readerShown }) {
    this.picture = picture
    this.readerShown = readerShown
    this.root = byId("heartbeat-cards")
  }

  paint() {
    const { readers, heartbeats, at } = this.picture
    const shown = readers
      .map((name, i) => ({ name, heartbeat: heartbeats[i] ?? null }))
      .filter((_, i) => this.readerShown(i))
    fitChildren(this.root, shown.length, () =>
      element("article", {}, element("h3"), element("p", { className: "help" }), element("dl")),
    )
    shown.forEach(({ name, heartbeat }, i) => {
      const [title, note, list] = this.root.children[i].children
      setText(title, name)
      const isLate = heartbeat !== null && at - heartbeat.at > lateAfter
      setText(
        note,
        heartbeat === null
          ? "No heartbeat has come yet."
          : `Heartbeat of ${time(heartbeat.at)}${isLate ? `, ${duration((at - heartbeat.at) / 1000)} ago` : ""}`,
      )
      note.classList.toggle("trouble", isLate)
      fillList(list, heartbeat === null ? [] : pairsOf(heartbeat.data))
    })
  }
}

function pairsOf(data) {
  return rows.filter(([key]) => key in data).map(([key, name, show]) => [name, ...show(data[key])])
}
