// SPDX-License-Identifier: MIT
// node tags.mjs [host]: prints the tag reports of a reader in the network.
//
// Takes JSON from tcp port 5160 (data_analytics STRING). "npm ci --ignore-scripts" beside this
// file brings what it needs. SIGINT or SIGTERM ends it. A line is: time, EPC, antenna, RSSI in
// dBm; "-" for what a report does not have.
import { Subscriber } from "zeromq"

const host = process.argv[2] ?? "127.0.0.1"
let expected = null // number of the next report

function take(frame) {
  let report, number
  try {
    report = JSON.parse(frame.subarray(4)) // behind the header
    number = report.data.eventNum
  } catch {
    console.error("not a JSON report (is data_analytics STRING?):", frame.subarray(0, 40))
    return
  }
  if (expected !== null && number < expected) {
    console.error("the daemon has restarted")
  } else if (expected !== null && number > expected) {
    console.error(`${number - expected} reports lost before number ${number}`)
  }
  expected = number + 1
  const { idHex, antenna = "-", peakRssi = "-" } = report.data
  console.log(report.timestamp, idHex, antenna, peakRssi)
}

const reports = new Subscriber({
  receiveHighWaterMark: 100_000, // messages that may wait while we are busy
  receiveTimeout: 5000, // ms
  heartbeatInterval: 2000, // ms; finds a dead link, and connects again
})
for (const signal of ["SIGINT", "SIGTERM"]) {
  process.on(signal, () => reports.close())
}
reports.subscribe()
reports.connect(`tcp://${host}:5160`)
while (!reports.closed) {
  try {
    for (const frame of await reports.receive()) {
      if (frame.length > 0) take(frame) // an empty one only ends a batch
    }
  } catch (error) {
    if (error.code !== "EAGAIN") throw error
    if (!reports.closed) console.error("no report for 5 s")
  }
}
