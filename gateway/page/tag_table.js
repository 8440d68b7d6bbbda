// SPDX-License-Identifier: MIT
// The table of tags. Only the rows that can be seen are in the document: two spacers stand for those above and
// below, and the same few rows show other tags when the user scrolls.
import { byId, element, fillList, setAttribute, setText } from "./dom.js"
import { angle, count, dbm, measure, time } from "./format.js"
import { traceLength } from "./picture.js"
import { compileFilter } from "./tag_filter.js"
import { TagOrder } from "./tag_order.js"
import { makeTrace, paintTrace } from "./trace.js"

const settleEvery = 500 // ms between two changes of the order, so that rows can be read
const spareRows = 4 // above and below those that can be seen
const weakest = -80,
  strongest = -30 // dBm, bottom and top of a trace

const presence = (tag) => (tag.present === null ? "–" : tag.present ? "present" : "departed")
const levelText = (tag) =>
  tag.swing === null
    ? dbm(tag.rssi)
    : `${dbm(tag.rssi)}, the last ${Math.min(tag.levelCount, traceLength)} within ${count(tag.swing)} dB`

// `value` is what a column is sorted by, `text` what it shows; `first` is the direction of the first click. `when` says
// whether it is shown at all; `kind` is a class of its cells: "number", or "wide" for what phones leave out.
const columns = [
  { name: "epc", title: "EPC", first: 1, value: (tag) => tag.epc, text: (tag) => tag.epc },
  {
    name: "reader",
    title: "Reader",
    first: 1,
    value: (tag, { readers }) => readers[tag.reader] ?? null,
    text: (tag, { readers }) => readers[tag.reader] ?? "–",
    when: ({ readers }) => readers.length > 1,
  },
  {
    name: "antenna",
    title: "Antenna",
    kind: "number",
    first: 1,
    value: (tag) => tag.antenna,
    text: (tag) => (tag.antenna === null ? "–" : String(tag.antenna)),
  },
  {
    name: "rssi",
    title: "RSSI",
    kind: "number",
    first: -1,
    value: (tag) => tag.rssi,
    text: (tag) => dbm(tag.rssi),
  },
  { name: "trace", title: "RSSI trace", first: -1, value: (tag) => tag.swing },
  { name: "presence", title: "Presence", first: -1, value: (tag) => tag.present, text: presence },
  {
    name: "reads",
    title: "Reads",
    kind: "number",
    first: -1,
    value: (tag) => tag.reads,
    text: (tag) => count(tag.reads),
  },
  {
    name: "azimuth",
    title: "Azimuth",
    kind: "number wide",
    first: 1,
    value: (tag) => tag.azimuth,
    text: (tag) => angle(tag.azimuth),
    when: ({ hasBearings }) => hasBearings,
  },
  {
    name: "elevation",
    title: "Elevation",
    kind: "number wide",
    first: 1,
    value: (tag) => tag.elevation,
    text: (tag) => angle(tag.elevation),
    when: ({ hasBearings }) => hasBearings,
  },
  {
    name: "x",
    title: "x",
    kind: "number wide",
    first: 1,
    value: (tag) => tag.x,
    text: (tag) => measure(tag.x),
    when: ({ hasPlaces }) => hasPlaces,
  },
  {
    name: "y",
    title: "y",
    kind: "number wide",
    first: 1,
    value: (tag) => tag.y,
    text: (tag) => measure(tag.y),
    when: ({ hasPlaces }) => hasPlaces,
  },
  {
    name: "firstSeen",
    title: "First seen",
    kind: "number wide",
    first: -1,
    value: (tag) => tag.firstSeen,
    text: (tag) => time(tag.firstSeen),
  },
  {
    name: "lastSeen",
    title: "Last seen",
    kind: "number",
    first: -1,
    value: (tag) => tag.lastSeen,
    text: (tag) => time(tag.lastSeen),
  },
]

export class TagTable {
  // `facts` has what all rows share: readers, hasBearings, hasPlaces. `shows(tag)` tells whether the chosen reader has
  // read it. `chosen(tag)` is called when the user chooses a tag, or null.
  constructor(picture, facts, { shows, repaint, chosen }) {
    this.picture = picture
    this.facts = facts
    this.shows = shows
    this.repaint = repaint
    this.chosen = chosen
    this.order = new TagOrder()
    this.column = columns.find(({ name }) => name === "firstSeen")
    this.direction = this.column.first
    this.selected = null
    this.settledAt = 0
    this.shownColumns = []
    this.rowHeight = 0
    this.rows = [] // {row, cells, tag} in the document
    this.#build()
  }

  changed(tag) {
    this.order.change(tag)
  }

  forgotten(tag) {
    this.order.forget(tag)
    if (tag === this.selected) {
      this.select(null)
    }
  }

  // Other tags, another reader, or another filter.
  rebuild() {
    const fits = compileFilter(this.filter.value, this.facts.readers)
    this.order.rebuild(this.picture.tags.values(), (tag) => this.shows(tag) && fits(tag))
    if (
      this.selected &&
      this.picture.tags.get(`${this.selected.reader} ${this.selected.epc}`) !== this.selected
    ) {
      this.select(null)
    }
    this.repaint()
  }

  select(tag) {
    this.selected = tag
    this.chosen(tag)
    this.repaint()
  }

  paint() {
    const now = performance.now()
    if (!this.hold.checked) {
      if (now - this.settledAt >= settleEvery) {
        this.order.settle()
        this.settledAt = now
      } else if (!this.settleTimer) {
        this.settleTimer = setTimeout(() => {
          this.settleTimer = 0
          this.repaint()
        }, settleEvery)
      }
    }
    this.#fitColumns()
    this.#paintRows()
    this.#paintDetails()
    const { length } = this.order.tags
    setText(
      this.counter,
      length === this.picture.tags.size
        ? `${count(length)} tags`
        : `${count(length)} of ${count(this.picture.tags.size)} tags`,
    )
  }

  #build() {
    this.filter = byId("tags-filter")
    this.hold = byId("tags-hold")
    this.counter = byId("tags-count")
    this.details = byId("tag-details")
    this.view = byId("tags-view")
    this.head = element("tr")
    this.above = element("tr", { className: "spacer", ariaHidden: "true" })
    this.below = element("tr", { className: "spacer", ariaHidden: "true" })
    this.body = element("tbody", {}, this.above, this.below)
    this.table = element(
      "table",
      {},
      element("caption", { className: "unseen", textContent: "Tags that were read" }),
      element("thead", {}, this.head),
      this.body,
    )
    this.view.append(this.table)
    this.filter.addEventListener("input", () => {
      this.view.scrollTop = 0
      this.rebuild()
    })
    this.hold.addEventListener("change", this.repaint)
    this.view.addEventListener("scroll", this.repaint, { passive: true })
    this.view.addEventListener("keydown", (event) => this.#key(event))
    this.body.addEventListener("click", ({ target }) => {
      const shown = this.rows.find(({ row }) => row.contains(target))
      if (shown) {
        this.select(shown.tag === this.selected ? null : shown.tag)
      }
    })
    new ResizeObserver(() => {
      this.rowHeight = 0
      this.repaint()
    }).observe(this.view)
  }

  // Headings, made again when other columns are shown.
  #fitColumns() {
    const shown = columns.filter(({ when }) => !when || when(this.facts))
    if (shown.map(({ name }) => name).join() !== this.shownColumns.map(({ name }) => name).join()) {
      this.shownColumns = shown
      this.head.replaceChildren(
        ...shown.map((column) => {
          const button = element("button", { type: "button", textContent: column.title })
          button.addEventListener("click", () => this.#sort(column))
          return element("th", { scope: "col", className: column.kind ?? "" }, button)
        }),
      )
      this.rows.forEach(({ row }) => row.remove())
      this.rows = []
    }
    shown.forEach((column, i) => {
      const sorting = column !== this.column ? "none" : this.direction > 0 ? "ascending" : "descending"
      setAttribute(this.head.cells[i], "aria-sort", sorting)
    })
  }

  #sort(column) {
    this.direction = column === this.column ? -this.direction : column.first
    this.column = column
    this.order.sortBy((tag) => column.value(tag, this.facts), this.direction)
    this.view.scrollTop = 0
    this.repaint()
  }

  #makeRow() {
    const row = element("tr")
    const cells = this.shownColumns.map((column, i) => {
      const cell = element(i === 0 ? "th" : "td", { className: `${column.name} ${column.kind ?? ""}` })
      if (i === 0) {
        cell.scope = "row"
      }
      if (column.name === "trace") {
        cell.append(makeTrace())
      }
      row.append(cell)
      return cell
    })
    this.below.before(row)
    return { row, cells, tag: null }
  }

  #paintRows() {
    const { tags } = this.order
    if (this.rowHeight === 0) {
      this.rows[0] ??= this.#makeRow()
      this.rowHeight = this.rows[0].row.getBoundingClientRect().height || 30
      this.viewHeight = this.view.clientHeight
    }
    const first = Math.max(
      0,
      Math.min(Math.floor(this.view.scrollTop / this.rowHeight), tags.length - 1) - spareRows,
    )
    const last = Math.min(tags.length, first + Math.ceil(this.viewHeight / this.rowHeight) + 2 * spareRows)
    while (this.rows.length < last - first) {
      this.rows.push(this.#makeRow())
    }
    while (this.rows.length > last - first) {
      this.rows.pop().row.remove()
    }
    this.above.style.height = `${first * this.rowHeight}px`
    this.below.style.height = `${(tags.length - last) * this.rowHeight}px`
    setAttribute(this.table, "aria-rowcount", String(tags.length + 1))
    this.rows.forEach((shown, i) => this.#paintRow(shown, tags[first + i], first + i))
  }

  #paintRow(shown, tag, index) {
    shown.tag = tag
    setAttribute(shown.row, "aria-rowindex", String(index + 2))
    setAttribute(shown.row, "aria-current", String(tag === this.selected))
    shown.cells.forEach((cell, i) => {
      const column = this.shownColumns[i]
      if (column.text) {
        setText(cell, column.text(tag, this.facts))
      } else {
        paintTagTrace(cell.firstChild, tag)
      }
      if (column.name === "presence") {
        setAttribute(cell, "data-present", String(tag.present))
      }
    })
  }

  #paintDetails() {
    const tag = this.selected
    this.details.hidden = tag === null
    if (tag === null) {
      return
    }
    if (!this.details.firstChild) {
      this.details.append(element("dl"), makeTrace())
    }
    const [list, trace] = this.details.children
    fillList(
      list,
      columns
        .filter((column) => column.text && (!column.when || column.when(this.facts)))
        .map((column) => [column.title, column.text(tag, this.facts)]),
    )
    paintTagTrace(trace, tag)
  }

  #key(event) {
    const page = Math.max(1, Math.floor(this.viewHeight / this.rowHeight) - 2)
    const { tags } = this.order
    const at = tags.indexOf(this.selected) // -1: none
    const target = {
      ArrowDown: at + 1,
      ArrowUp: at - 1,
      PageDown: at + page,
      PageUp: at - page,
      Home: 0,
      End: tags.length - 1,
    }[event.key]
    if (event.key === "Escape" && this.selected) {
      this.select(null)
    } else if (target !== undefined && tags.length > 0 && event.target === this.view) {
      const index = Math.min(Math.max(target, 0), tags.length - 1)
      this.#scrollTo(index)
      this.select(tags[index])
      event.preventDefault()
    }
  }

  #scrollTo(index) {
    const top = index * this.rowHeight,
      room = this.viewHeight - 2 * this.rowHeight // below the headings
    if (top < this.view.scrollTop) {
      this.view.scrollTop = top
    } else if (top > this.view.scrollTop + room) {
      this.view.scrollTop = top - room
    }
  }
}

function paintTagTrace(svg, tag) {
  paintTrace(svg, tag.trace(), { low: weakest, high: strongest, few: 10, text: levelText(tag) })
}
