// SPDX-License-Identifier: MIT
// The floor map of an array reader: where tags were located, seen from above. It grows with what it shows.
import { drawTags, freshCanvas } from "./canvas.js"
import { colour } from "./colours.js"
import { recent } from "./bearings.js"
import { byId, fillTable, setAttribute } from "./dom.js"
import { count, measure, time } from "./format.js"

const margin = 26 // px around the map, for the numbers
const latestInTable = 20

// The next of 1, 2, 5, 10, 20, 50 ... that is not less.
function roundUp(value) {
  const power = 10 ** Math.floor(Math.log10(value))
  return [1, 2, 5, 10].find((step) => step * power >= value) * power
}

export class FloorMap {
  #reach = 1 // from the centre to an edge, in the reader's unit

  constructor() {
    this.canvas = byId("places-map")
    this.table = byId("places-table")
  }

  // `tags` have a place and were read lately; `now` in ms since 1970.
  paint(tags, now, selected) {
    const { context, width, height } = freshCanvas(this.canvas)
    const reach = this.#fit(tags)
    const scale = (Math.min(width, height) / 2 - margin) / reach
    const point = (x, y) => ({ x: width / 2 + x * scale, y: height / 2 - y * scale })
    this.#drawGrid(context, reach, point)
    drawTags(
      context,
      tags.map((tag) => ({ tag, ...point(tag.x, tag.y) })),
      {
        now,
        fadeAfter: recent,
        selected,
        dot: colour("accent"),
        ring: colour("warn"),
      },
    )
    setAttribute(
      this.canvas,
      "aria-label",
      `Places of ${count(tags.length)} tags that were read in the last minute; as a table below`,
    )
    this.#paintTable(tags)
  }

  // Wide enough for all; it gets narrower only when much of it is empty, so that it does not jump.
  #fit(tags) {
    let farthest = 0.1
    for (const { x, y } of tags) {
      farthest = Math.max(farthest, Math.abs(x), Math.abs(y))
    }
    if (farthest > this.#reach || farthest < this.#reach / 3) {
      this.#reach = roundUp(farthest)
    }
    return this.#reach
  }

  #drawGrid(context, reach, point) {
    context.strokeStyle = colour("line")
    context.fillStyle = colour("quiet")
    context.lineWidth = 1
    context.font = `11px ${colour("font")}`
    context.textAlign = "center"
    context.textBaseline = "middle"
    const step = roundUp(reach / 4)
    for (let at = -Math.floor(reach / step) * step; at <= reach + step / 1e6; at += step) {
      this.#drawLine(context, point(at, -reach), point(at, reach))
      this.#drawLine(context, point(-reach, at), point(reach, at))
      const below = point(at, -reach),
        beside = point(-reach, at)
      context.fillText(measure(at), below.x, below.y + 12)
      context.fillText(measure(at), beside.x - 13, beside.y)
    }
    const centre = point(0, 0)
    context.strokeStyle = colour("text")
    context.lineWidth = 2
    this.#drawLine(context, { x: centre.x - 8, y: centre.y }, { x: centre.x + 8, y: centre.y })
    this.#drawLine(context, { x: centre.x, y: centre.y - 8 }, { x: centre.x, y: centre.y + 8 })
  }

  #drawLine(context, from, to) {
    context.beginPath()
    context.moveTo(from.x, from.y)
    context.lineTo(to.x, to.y)
    context.stroke()
  }

  #paintTable(tags) {
    const number = (text) => ({ text, kind: "number" })
    const latest = [...tags].sort((a, b) => b.lastSeen - a.lastSeen).slice(0, latestInTable)
    fillTable(
      this.table,
      `Places of the ${latestInTable} tags that were read last`,
      ["EPC", number("x"), number("y"), number("At")],
      latest.map((tag) => [tag.epc, measure(tag.x), measure(tag.y), time(tag.lastSeen)]),
    )
  }
}
