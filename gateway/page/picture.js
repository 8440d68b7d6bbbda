// SPDX-License-Identifier: MIT
// What the page knows: the gateway's picture, kept up to date by its updates. It paints nothing; it tells an
// observer what has changed:
//
//   note(part)         "tags", "totals", "rates", "status", "accounts", "heartbeats", "alarms" or "readers"
//   changed(tag)       a tag is new, or a value of it
//   forgotten(tag)     is no longer known
//   replaced()         all tags are others
//   alarmed(alarm)     an alarm has come since the picture

export const traceLength = 40 // levels that a tag's trace keeps
const noLevel = -128 // in a trace: the report had none

export class Tag {
  // Members as the columns of docs/gateway-http.md: reader, epc, antenna, rssi, reads, firstSeen, lastSeen,
  // present, azimuth, elevation, x, y.
  constructor(columns, row) {
    this.assign(columns, row)
    this.levels = null // a ring of traceLength; none before a report has come by the stream
    this.levelCount = 0 // that were written to it
    this.isForgotten = false
    // Of TagOrder, here so that all tags are objects of one shape.
    this.isListed = this.isMoving = false
    this.sortValue = null
  }

  assign(columns, row) {
    for (let i = 0; i < columns.length; ++i) {
      this[columns[i]] = row[i]
    }
  }

  // Appends the present level to the trace.
  noteLevel() {
    this.levels ??= new Int8Array(traceLength)
    this.levels[this.levelCount++ % traceLength] = this.rssi ?? noLevel
  }

  // The trace, oldest first, in dBm; null for reports without a level.
  trace() {
    const length = Math.min(this.levelCount, traceLength)
    return Array.from({ length }, (_, i) => {
      const level = this.levels[(this.levelCount - length + i) % traceLength]
      return level === noLevel ? null : level
    })
  }

  // The difference of the strongest and the weakest level of the trace in dB; null without two levels.
  get swing() {
    let least = Infinity,
      most = -Infinity
    for (let i = Math.min(this.levelCount, traceLength) - 1; i >= 0; --i) {
      if (this.levels[i] !== noLevel) {
        least = Math.min(least, this.levels[i])
        most = Math.max(most, this.levels[i])
      }
    }
    return most > least ? most - least : null
  }
}

// Reports by reader and antenna in intervals of equal length; all series have equally many, oldest first.
class Rates {
  static most = 300

  constructor({ step, end, series }) {
    this.step = step // ms
    this.end = end // ms since 1970, of the last interval
    this.series = new Map(series.map((one) => [Rates.key(one.reader, one.antenna), one]))
    this.length = series[0]?.counts.length ?? 0
  }

  static key(reader, antenna) {
    return `${reader}/${antenna}`
  }

  // An interval has ended. Those between it and the last one, of which no news came, had no reports.
  append({ end, counts }) {
    const skipped = this.end > 0 ? Math.max(0, Math.round((end - this.end) / this.step) - 1) : 0
    for (const [reader, antenna] of counts) {
      const key = Rates.key(reader, antenna)
      if (!this.series.has(key)) {
        this.series.set(key, { reader, antenna, counts: new Array(this.length).fill(0) })
      }
    }
    const added = Math.min(skipped, Rates.most) + 1
    this.length = Math.min(this.length + added, Rates.most)
    const latest = new Map(counts.map(([reader, antenna, count]) => [Rates.key(reader, antenna), count]))
    for (const [key, one] of this.series) {
      one.counts.push(...new Array(added - 1).fill(0), latest.get(key) ?? 0)
      one.counts.splice(0, one.counts.length - this.length)
    }
    this.end = end
  }
}

const mostAlarms = 100

export class Picture {
  #observer
  #columns = []

  constructor(observer) {
    this.#observer = observer
    this.tags = new Map() // by reader and EPC
    this.readers = []
    this.totals = null
    this.rates = null
    this.status = null
    this.health = null
    this.accounts = []
    this.heartbeats = []
    this.alarms = [] // oldest first
    this.at = 0 // ms since 1970, the gateway's clock
    this.session = null
    this.isNewSession = false // of the last replace(): the gateway has restarted
  }

  // The tags that are shown when only one reader is chosen; all for null.
  *tagsOf(reader) {
    for (const tag of this.tags.values()) {
      if (reader === null || tag.reader === reader) {
        yield tag
      }
    }
  }

  // Takes a whole picture. Traces of tags that were known before stay, unless the gateway has restarted.
  replace(whole) {
    this.isNewSession = this.session !== null && this.session !== whole.session
    const before = this.isNewSession ? new Map() : this.tags
    this.session = whole.session
    this.program = whole.program
    this.startedAt = whole.startedAt
    this.#columns = whole.tagColumns
    this.tags = new Map()
    const readerAt = this.#columns.indexOf("reader"),
      epcAt = this.#columns.indexOf("epc")
    for (const row of whole.tags) {
      const key = `${row[readerAt]} ${row[epcAt]}`
      const tag = before.get(key) ?? new Tag(this.#columns, row)
      tag.assign(this.#columns, row)
      this.tags.set(key, tag)
    }
    this.rates = new Rates(whole.rates)
    this.alarms = whole.alarms
    this.#takeDocuments(whole)
    this.#observer.replaced()
    for (const part of ["tags", "rates", "alarms"]) {
      this.#observer.note(part)
    }
  }

  // Takes an update of the stream.
  update(changes) {
    for (const row of changes.tags ?? []) {
      this.#takeRow(row)
    }
    for (const [reader, epc] of changes.forgotten ?? []) {
      this.#forget(`${reader} ${epc}`)
    }
    if (changes.tags?.length || changes.forgotten?.length) {
      this.#observer.note("tags")
    }
    if (changes.rates) {
      this.rates.append(changes.rates)
      this.#observer.note("rates")
    }
    if (changes.alarms?.length) {
      this.alarms = [...this.alarms, ...changes.alarms].slice(-mostAlarms)
      changes.alarms.forEach((alarm) => this.#observer.alarmed(alarm))
      this.#observer.note("alarms")
    }
    this.#takeDocuments(changes)
  }

  // What comes as a whole, when it comes.
  #takeDocuments(from) {
    this.at = from.at
    for (const part of ["readers", "totals", "status", "health", "accounts", "heartbeats"]) {
      if (from[part] !== undefined) {
        this[part] = from[part]
        this.#observer.note(part)
      }
    }
  }

  #takeRow(row) {
    const key = `${row[this.#columns.indexOf("reader")]} ${row[this.#columns.indexOf("epc")]}`
    const known = this.tags.get(key)
    const reads = known?.reads
    const tag = known ?? new Tag(this.#columns, row)
    tag.assign(this.#columns, row)
    this.tags.set(key, tag)
    if (tag.reads !== reads) {
      tag.noteLevel() // the row may be here for its presence alone
    }
    this.#observer.changed(tag)
  }

  #forget(key) {
    const tag = this.tags.get(key)
    if (tag) {
      this.tags.delete(key)
      this.#observer.forgotten(tag)
    }
  }
}
