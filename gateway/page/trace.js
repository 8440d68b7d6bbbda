// SPDX-License-Identifier: MIT
// A small line of values, as large as a word: levels of a tag, backlog of a sink.
import { setAttribute, setText, svgElement } from "./dom.js"

const width = 100,
  height = 24,
  margin = 2 // in units of the picture, which the style sheet stretches

export function makeTrace() {
  const svg = svgElement("svg", {
    class: "trace",
    viewBox: `0 0 ${width} ${height}`,
    preserveAspectRatio: "none",
    role: "img",
  })
  svg.append(svgElement("title"), svgElement("path"))
  return svg
}

// Values from left to right, null for a gap; the latest is at the right end. `low` and `high` are the values at the
// bottom and the top. Less than `few` values do not take the whole width. `text` says it in words.
export function paintTrace(svg, values, { low, high, few, text }) {
  const step = width / (Math.max(values.length, few) - 1)
  const scale = (height - 2 * margin) / Math.max(high - low, 1e-9)
  let path = "",
    pen = "M"
  values.forEach((value, i) => {
    if (value === null) {
      pen = "M"
      return
    }
    const x = width - (values.length - 1 - i) * step
    const y = height - margin - (Math.min(Math.max(value, low), high) - low) * scale
    path += `${pen}${x.toFixed(1)} ${y.toFixed(1)}`
    pen = "L"
  })
  setAttribute(svg.lastChild, "d", path)
  setText(svg.firstChild, text)
}
