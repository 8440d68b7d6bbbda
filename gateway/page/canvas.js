// SPDX-License-Identifier: MIT
// A canvas whose unit is the pixel of the style sheet, sharp on every screen.

// Fits the canvas to its place in the page, clears it, and returns {context, width, height}.
export function freshCanvas(canvas) {
  const { clientWidth: width, clientHeight: height } = canvas
  const ratio = devicePixelRatio
  const pixels = [Math.round(width * ratio), Math.round(height * ratio)]
  if (canvas.width !== pixels[0] || canvas.height !== pixels[1]) {
    ;[canvas.width, canvas.height] = pixels
  }
  const context = canvas.getContext("2d")
  context.setTransform(ratio, 0, 0, ratio, 0, 0)
  context.clearRect(0, 0, width, height)
  return { context, width, height }
}

export function circle(context, x, y, radius) {
  context.beginPath()
  context.arc(x, y, radius, 0, 2 * Math.PI)
}

// Tags as dots that fade with the time since their last read; the chosen tag has a ring. `places` are {tag, x, y}.
export function drawTags(context, places, { now, fadeAfter, selected, dot, ring }) {
  context.fillStyle = dot
  for (const { tag, x, y } of places) {
    context.globalAlpha = Math.max(0.15, 1 - (now - tag.lastSeen) / fadeAfter)
    context.fillRect(x - 2, y - 2, 4, 4)
  }
  context.globalAlpha = 1
  const chosen = places.find(({ tag }) => tag === selected)
  if (chosen) {
    context.strokeStyle = ring
    context.lineWidth = 2.5
    circle(context, chosen.x, chosen.y, 8)
    context.stroke()
  }
}
