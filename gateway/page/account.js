// SPDX-License-Identifier: MIT
// The accounts as bars: above the whole, below its parts. When the parts do not make the whole, the bar shows
// the difference, and says so.
import { byId, element, fillTable, fitChildren, setAttribute, setText } from "./dom.js"
import { count, duration, share, time } from "./format.js"

// What becomes of a thing: its words, and its kind, which is a colour and a pattern of the style sheet.
const fates = {
  sent: ["sent", "good"],
  filtered: ["left out by the filter", "quiet"],
  heldBack: ["held back by additional keys", "quiet"],
  superseded: ["superseded by the next tag", "quiet"],
  notDecoded: ["not understood", "bad"],
  notText: ["not valid UTF-8", "bad"],
  refused: ["refused by the socket", "bad"],
  noSocket: ["while the socket changed", "bad"],
  pending: ["pending", "warn"],
}

const part = (name, kind, value) => ({ name, kind, value })

// In the order of the table above, and then those that it does not know.
function fatesOf(counts) {
  const names = new Set([...Object.keys(fates), ...Object.keys(counts)])
  return [...names]
    .filter((name) => name in counts)
    .map((name) => part(...(fates[name] ?? [name, "warn"]), counts[name]))
}

// What the daemon says of the packets of its radio.
function packetBar(reader, { account, at, trouble }, now) {
  const notes = []
  if (trouble) {
    notes.push(`The daemon does not tell: ${trouble}.`)
  }
  if (account && now - at > 15_000) {
    notes.push(`As of ${time(at)}, ${duration((now - at) / 1000)} ago.`)
  }
  if (account?.unheard > 0) {
    notes.push(`${count(account.unheard)} of those sent were lost, since nobody was connected.`)
  }
  if (account?.simulation) {
    notes.push("The reads are simulated.")
  }
  return {
    title: `${reader}: tag packets of the radio`,
    whole: account ? account.tagPackets : null,
    parts: fatesOf(account?.fates ?? {}),
    notes,
  }
}

// What the gateway says of the numbers of the reports, and of what came.
function sourceBars(source) {
  const { boot } = source
  const bars = []
  if (boot.anyNumber) {
    bars.push({
      title: `${source.reader}: reports of the daemon's present life, by number`,
      whole: boot.next - boot.first,
      parts: [part("came", "good", boot.numbered), part("missing", "bad", boot.missing)],
      notes: source.restarts > 0 ? [`The daemon has restarted ${count(source.restarts)} times.`] : [],
    })
  }
  bars.push({
    title: `${source.reader}: reports and events that the gateway has heard`,
    whole: source.heard,
    parts: [
      part("on disk", "good", source.taken),
      part("refused: disk and memory were full", "bad", source.refused),
    ],
    notes: source.notReports > 0 ? [`${count(source.notReports)} frames were neither.`] : [],
  })
  return bars
}

// Tags by their presence events; a tag that comes back arrives again.
function presenceBar({ arrived, present, departed, early, moved }) {
  return {
    title: "Presence: tags that have arrived",
    whole: arrived,
    parts: [part("present", "good", present), part("departed", "quiet", departed)],
    notes: [
      `Moved to another antenna: ${count(moved)} times.`,
      ...(early > 0 ? [`Of those departed ${count(early)} had to make room for others.`] : []),
    ],
  }
}

function sinkBar(sink) {
  return {
    title: `Sink ${sink.name}: events for it`,
    whole: sink.taken,
    parts: [
      part("confirmed", "good", sink.confirmed),
      part("pending", "warn", sink.pending),
      part("set aside: the receiver refuses them", "aside", sink.setAside),
      part("dropped: the spool was full", "bad", sink.dropped),
    ],
    notes: [],
  }
}

export class AccountBars {
  constructor(picture, { readerShown }) {
    this.picture = picture
    this.readerShown = readerShown
    this.root = byId("account-bars")
  }

  paint() {
    const bars = this.#bars()
    fitChildren(this.root, bars.length, () =>
      element(
        "figure",
        {},
        element("figcaption", {}, element("span"), element("span", { className: "badge" })),
        element("div", { className: "bar", ariaHidden: "true" }),
        element("p", { className: "help" }),
        element("table"),
      ),
    )
    bars.forEach((bar, i) => paintBar(this.root.children[i], bar))
  }

  #bars() {
    const { readers, accounts, status, at } = this.picture
    const bars = []
    readers.forEach((name, i) => {
      if (this.readerShown(i)) {
        if (accounts[i]) {
          bars.push(packetBar(name, accounts[i], at))
        }
        bars.push(...(status?.sources ?? []).filter(({ reader }) => reader === name).flatMap(sourceBars))
      }
    })
    if (status?.presence) {
      bars.push(presenceBar(status.presence))
    }
    return [...bars, ...(status?.sinks ?? []).map(sinkBar)]
  }
}

function paintBar(figure, { title, whole, parts, notes }) {
  const [caption, bar, help, table] = figure.children
  const sum = parts.reduce((total, { value }) => total + value, 0)
  const difference = whole === null ? 0 : whole - sum
  setText(caption.firstChild, title)
  setText(
    caption.lastChild,
    whole === null ? "not known" : difference === 0 ? "closes" : `does not close: ${count(difference)}`,
  )
  setAttribute(caption.lastChild, "data-kind", whole === null ? "waiting" : difference === 0 ? "good" : "bad")
  const shown = parts.filter(({ value }) => value > 0)
  const segments = difference > 0 ? [...shown, part("not accounted for", "open", difference)] : shown
  fitChildren(bar, segments.length, () => element("i"))
  segments.forEach(({ kind, value }, i) => {
    setAttribute(bar.children[i], "class", kind)
    bar.children[i].style.flexGrow = value
  })
  setText(help, notes.join(" "))
  const number = (text) => ({ text, kind: "number" })
  const rows = parts.filter(({ value }, i) => value > 0 || i === 0)
  fillTable(
    table,
    title,
    ["What became of them", number("Number"), number("Share")],
    whole === null
      ? []
      : [
          ...rows.map(({ name, kind, value }, i) => [
            legend(table, i, name, kind),
            count(value),
            share(whole > 0 ? value / whole : 0),
          ]),
          ["all", count(whole), share(whole > 0 ? 1 : 0)],
        ],
  )
}

// The element of the row that is there already, or a new one.
function legend(table, row, name, kind) {
  const old = table.tBodies[0]?.rows[row]?.cells[0].firstElementChild
  const made = old ?? element("span", {}, element("i"), "")
  setAttribute(made.firstChild, "class", `swatch ${kind}`)
  made.lastChild.data = name
  return made
}
