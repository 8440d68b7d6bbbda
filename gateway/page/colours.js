// SPDX-License-Identifier: MIT
// Colours of the style sheet for canvases, which cannot use its variables by themselves.

const styles = getComputedStyle(document.documentElement)
const scheme = matchMedia("(prefers-color-scheme: dark)")

// The value of a variable of the style sheet in the present scheme, such as colour('text').
export const colour = (name) => styles.getPropertyValue(`--${name}`).trim()

export const seriesColours = 8 // --series-1 to --series-8
export const seriesColour = (index) => colour(`series-${(index % seriesColours) + 1}`)

export function onSchemeChange(act) {
  scheme.addEventListener("change", act)
}
