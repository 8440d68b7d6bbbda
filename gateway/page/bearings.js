// SPDX-License-Identifier: MIT
// The bearing rose of an array reader: from above, azimuth around the centre, elevation from it. Sectors tell
// how many tags are in each direction, dots are tags.
import { circle, drawTags, freshCanvas } from "./canvas.js"
import { colour } from "./colours.js"
import { byId, fillTable, setAttribute } from "./dom.js"
import { angle, count } from "./format.js"

const sectorCount = 24,
  sectorWidth = 360 / sectorCount // degrees
const widest = 90 // degrees of elevation at the rim
const tableSectors = 8
export const recent = 60_000 // ms; older reads are not shown

const radians = (degrees) => (degrees * Math.PI) / 180
const turn = (degrees) => ((degrees % 360) + 360) % 360
const sectorOf = (azimuth, sectors) => Math.round(turn(azimuth) / (360 / sectors)) % sectors

function countBySector(tags, sectors) {
  const counts = new Array(sectors).fill(0)
  for (const tag of tags) {
    ++counts[sectorOf(tag.azimuth, sectors)]
  }
  return counts
}

export class BearingRose {
  constructor() {
    this.canvas = byId("bearings-rose")
    this.table = byId("bearings-table")
  }

  // `tags` have a bearing and were read lately; `now` in ms since 1970.
  paint(tags, now, selected) {
    const { context, width, height } = freshCanvas(this.canvas)
    const centre = { x: width / 2, y: height / 2 }
    const radius = Math.min(width, height) / 2 - 30 // px; room for the numbers
    // Azimuth 0 is to the right and grows counter-clockwise, as x and y of the floor map have it.
    const point = (azimuth, distance) => ({
      x: centre.x + distance * Math.cos(radians(azimuth)),
      y: centre.y - distance * Math.sin(radians(azimuth)),
    })
    const counts = countBySector(tags, sectorCount)
    this.#drawSectors(context, centre, radius, counts)
    this.#drawGrid(context, centre, radius, point)
    const places = tags.map((tag) => ({
      tag,
      ...point(tag.azimuth, (Math.min(tag.elevation ?? 0, widest) / widest) * radius),
    }))
    drawTags(context, places, {
      now,
      fadeAfter: recent,
      selected,
      dot: colour("accent"),
      ring: colour("warn"),
    })
    setAttribute(
      this.canvas,
      "aria-label",
      `Bearings of ${count(tags.length)} tags that were read in the last minute; as a table below`,
    )
    this.#paintTable(tags)
  }

  // The area of a sector is in proportion to its tags.
  #drawSectors(context, { x, y }, radius, counts) {
    const most = Math.max(1, ...counts)
    context.fillStyle = colour("sector")
    counts.forEach((tags, i) => {
      const middle = -radians(i * sectorWidth),
        half = radians(sectorWidth / 2) * 0.92
      context.beginPath()
      context.moveTo(x, y)
      context.arc(x, y, radius * Math.sqrt(tags / most), middle - half, middle + half)
      context.fill()
    })
  }

  #drawGrid(context, { x, y }, radius, point) {
    context.strokeStyle = colour("line")
    context.fillStyle = colour("quiet")
    context.lineWidth = 1
    context.font = `11px ${colour("font")}`
    context.textAlign = "center"
    context.textBaseline = "middle"
    for (const elevation of [30, 60, 90]) {
      circle(context, x, y, (radius * elevation) / widest)
      context.stroke()
    }
    for (let azimuth = 0; azimuth < 360; azimuth += 30) {
      const rim = point(azimuth, radius),
        label = point(azimuth, radius + 13)
      context.beginPath()
      context.moveTo(x, y)
      context.lineTo(rim.x, rim.y)
      context.stroke()
      context.fillText(angle(azimuth), label.x, label.y)
    }
  }

  #paintTable(tags) {
    const width = 360 / tableSectors
    const rows = countBySector(tags, tableSectors).map((number, i) => [
      `${angle(turn(i * width - width / 2))} to ${angle(i * width + width / 2)}`,
      count(number),
    ])
    fillTable(this.table, "Tags by azimuth", ["Azimuth", { text: "Tags", kind: "number" }], rows)
  }
}
