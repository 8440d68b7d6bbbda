// SPDX-License-Identifier: MIT
// The last alarms of the readers, latest first.
import { byId, fillTable } from "./dom.js"
import { count, time } from "./format.js"

export class AlarmTable {
  constructor(picture, { readerShown }) {
    this.picture = picture
    this.readerShown = readerShown
    this.table = byId("alarms-table")
  }

  paint() {
    const { alarms, readers } = this.picture
    const shown = alarms.filter(({ reader }) => this.readerShown(reader)).reverse()
    const rows = shown.map(({ at, reader, type, message, number }) => [
      time(at),
      readers[reader] ?? "",
      `${type} ${count(number)}`,
      message,
    ])
    fillTable(
      this.table,
      "The last alarms",
      ["At", "Reader", "Kind", "Message"],
      rows.length > 0 ? rows : [["none", "", "", "No alarm since the gateway started."]],
    )
    shown.forEach(({ type }, i) => {
      this.table.tBodies[0].rows[i].dataset.kind = type
    })
    if (rows.length === 0) {
      delete this.table.tBodies[0].rows[0].dataset.kind
    }
  }
}
