// SPDX-License-Identifier: MIT
// Numbers, times and units in the user's locale. The formatters are made once: to make one costs more than
// to use it a thousand times.

const whole = new Intl.NumberFormat(undefined, { maximumFractionDigits: 0 })
const tenths = new Intl.NumberFormat(undefined, { minimumFractionDigits: 1, maximumFractionDigits: 1 })
const upToTenths = new Intl.NumberFormat(undefined, { maximumFractionDigits: 1 })
const percent = new Intl.NumberFormat(undefined, { style: "percent", maximumFractionDigits: 2 })
const clock = new Intl.DateTimeFormat(undefined, { timeStyle: "medium" })
const dayAndClock = new Intl.DateTimeFormat(undefined, { dateStyle: "short", timeStyle: "medium" })

const unitOf = (unit, digits, unitDisplay = "short") =>
  new Intl.NumberFormat(undefined, {
    style: "unit",
    unit,
    unitDisplay,
    maximumFractionDigits: digits,
  })
const celsius = unitOf("celsius", 0)
const degrees = unitOf("degree", 0, "narrow")
const durations = [
  // seconds up to which a unit is used, its length in seconds
  [90, 1, unitOf("second", 1)],
  [90 * 60, 60, unitOf("minute", 0)],
  [48 * 3600, 3600, unitOf("hour", 0)],
  [Infinity, 86400, unitOf("day", 0)],
]
const sizes = [
  // bytes up to which a unit is used, its size in bytes
  [1e3, 1, unitOf("byte", 0)],
  [1e6, 1e3, unitOf("kilobyte", 0)],
  [1e9, 1e6, unitOf("megabyte", 1)],
  [Infinity, 1e9, unitOf("gigabyte", 1)],
]

const none = "–"

function scaled(value, table) {
  const [, divisor, format] = table.find(([limit]) => value < limit)
  return format.format(value / divisor)
}

// null and undefined, which mean "not known", become a dash.
const known = (format) => (value) => ((value ?? null) === null ? none : format(value))

export const count = known((value) => whole.format(value))
export const measure = known((value) => upToTenths.format(value))
export const rate = known((value) => `${(value < 100 ? tenths : whole).format(value)}/s`)
export const share = known((value) => percent.format(value))
export const dbm = known((value) => `${whole.format(value)} dBm`)
export const temperature = known((value) => celsius.format(value))
export const angle = known((value) => degrees.format(value))
export const duration = known((seconds) => scaled(seconds, durations))
export const bytes = known((value) => scaled(value, sizes))

const day = (at) => new Date(at).setHours(0, 0, 0, 0)

// ms since 1970: the time of day, and the day when it is not today.
let today = { begin: 0, end: 0 }
export const time = known((at) => {
  if (Date.now() >= today.end) {
    today = { begin: day(Date.now()), end: day(Date.now()) + 86_400_000 }
  }
  return (at >= today.begin ? clock : dayAndClock).format(at)
})
