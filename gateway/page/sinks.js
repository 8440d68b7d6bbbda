// SPDX-License-Identifier: MIT
// Who gets the events: each sink with its state, its backlog now and over the last minutes, and its trouble.
import { byId, element, fillTable, setAttribute, setText } from "./dom.js"
import { bytes, count, duration } from "./format.js"
import { makeTrace, paintTrace } from "./trace.js"

const kept = 300 // values of the backlog; the status comes at most once a second

const words = { up: "up", behind: "behind", down: "down" }
const kinds = { up: "good", behind: "warn", down: "bad" }

export class SinkTable {
  #rows = new Map() // by name: {name, state, trace, history}

  constructor(picture) {
    this.picture = picture
    this.table = byId("sinks-table")
    this.spool = byId("spool")
  }

  // A status has come.
  note() {
    for (const { name, pending } of this.picture.status?.sinks ?? []) {
      const { history } = this.#row(name)
      history.push(pending)
      history.splice(0, history.length - kept)
    }
  }

  paint() {
    const { status } = this.picture
    if (!status) {
      setText(this.spool, "The status of the gateway is not known yet.")
      return
    }
    const number = (text) => ({ text, kind: "number" })
    fillTable(
      this.table,
      "Sinks and their backlog",
      [
        "Sink",
        "State",
        number("Pending"),
        "Backlog",
        number("Oldest"),
        { text: "Repeats", kind: "number wide" },
      ],
      status.sinks.map((sink) => this.#paintRow(sink)),
    )
    const { entries, bytes: size, trouble } = status.spool
    setText(
      this.spool,
      `Spool: ${count(entries)} events, ${bytes(size)}` +
        (trouble ? `; it cannot be written: ${trouble}` : ""),
    )
    this.spool.classList.toggle("trouble", trouble !== "")
  }

  #row(name) {
    if (!this.#rows.has(name)) {
      this.#rows.set(name, {
        name: element("div", {}, name, element("span", { className: "trouble" })),
        state: element("span", { className: "badge" }),
        trace: makeTrace(),
        history: [],
      })
    }
    return this.#rows.get(name)
  }

  #paintRow(sink) {
    const row = this.#row(sink.name)
    setText(row.name.lastChild, sink.trouble)
    setText(row.state, words[sink.state] ?? sink.state)
    setAttribute(row.state, "data-kind", kinds[sink.state] ?? "warn")
    const most = row.history.reduce((a, b) => Math.max(a, b), 10)
    paintTrace(row.trace, row.history, {
      low: 0,
      high: most,
      few: 60,
      text: `${count(sink.pending)} pending, at most ${count(most)} lately`,
    })
    return [
      row.name,
      row.state,
      count(sink.pending),
      row.trace,
      sink.pending > 0 ? duration(sink.oldestAge) : "–",
      count(sink.retried),
    ]
  }
}
