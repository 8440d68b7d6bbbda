// SPDX-License-Identifier: MIT
// Modules of the live page alone; live_test.cpp runs this in the page. Its value is a list of complaints.
async function complaints() {
  const found = []
  const { TagOrder } = await import("/tag_order.js")
  const { compileFilter } = await import("/tag_filter.js")
  const { eventsOf } = await import("/stream.js")
  const { Picture, Tag } = await import("/picture.js")

  // The order after any changes is that of a plain sort.
  let seed = 7
  const random = (end) => (seed = (seed * 1103515245 + 12345) % 2147483648) % end
  for (let round = 0; round < 200; ++round) {
    const known = new Set()
    const order = new TagOrder()
    const make = () => {
      const tag = new Tag(["epc", "reader", "a", "b"], [`${random(1e9)}`, 0, random(6) || null, random(5)])
      known.add(tag)
      return tag
    }
    for (let i = random(40); i > 0; --i) make()
    let key = "a"
    let direction = 1
    const fits = ({ b }) => b >= round % 4
    const sorted = () =>
      [...known].filter(fits).sort((x, y) => {
        if (x[key] === y[key]) return x.epc < y.epc ? -1 : 1
        if (x[key] === null || y[key] === null) return x[key] === null ? 1 : -1
        return (x[key] - y[key]) * direction
      })
    order.rebuild(known, fits)
    const steps = [
      () => order.change(make()),
      () =>
        [...known]
          .filter(() => random(3) === 0)
          .forEach((tag) => order.change(Object.assign(tag, { a: random(9), b: random(5) }))),
      () => [...known].slice(0, 1).forEach((tag) => known.delete(tag) && order.forget(tag)),
      () => order.sortBy((tag) => tag[key], direction),
    ]
    for (let step = 0; step < 30; ++step) {
      if (step % 10 === 0) {
        key = random(2) ? "a" : "b"
        direction = random(2) ? 1 : -1
        steps[3]()
      }
      steps[random(4)]()
      order.settle()
      const texts = [order.tags, sorted()].map((list) => list.map(({ epc }) => epc).join())
      if (texts[0] !== texts[1]) return [`round ${round}, step ${step}: ${texts.join(" is not ")}`]
    }
  }

  const tag = { reader: 1, epc: "3034ab", antenna: 2, rssi: -60, present: true }
  const filters = [
    ["", true],
    ["34AB", true],
    ["35", false],
    ["3034 antenna:2", true],
    ["antenna:12", false],
    ["antenna:", true],
    ["present", true],
    ["departed", false],
    ["reader:GA", true],
    ["reader:dock", false],
    ["rssi>-61 rssi<-59", true],
    ["rssi>-60", false],
    ["rssi>-", true],
  ]
  for (const [text, fits] of filters) {
    if (compileFilter(text, ["dock", "gate"])(tag) !== fits) found.push(`filter "${text}"`)
  }

  // However the bytes of a stream are cut.
  const bytes = new TextEncoder().encode(
    'retry: 2000\n\nevent: hello\ndata: {"a":"é"}\n\n: still\n\nevent: update\nid: 1\ndata: {}\n\n',
  )
  for (let cut = 0; cut < bytes.length; ++cut) {
    const body = new Blob([bytes]).stream().pipeThrough(
      new TransformStream({
        transform: (chunk, out) =>
          [chunk.slice(0, cut), chunk.slice(cut)].forEach((piece) => out.enqueue(piece)),
      }),
    )
    const events = []
    for await (const event of eventsOf(body, () => {})) events.push(event)
    if (JSON.stringify(events) !== '[{"event":"hello","data":{"a":"é"}},{"event":"update","data":{}}]') {
      found.push(`stream cut at ${cut}: ${JSON.stringify(events)}`)
    }
  }

  // Rates: a new antenna, intervals that were skipped.
  const nobody = { note() {}, changed() {}, forgotten() {}, replaced() {}, alarmed() {} }
  const picture = new Picture(nobody)
  const series = [{ reader: 0, antenna: "1", counts: [5, 6] }]
  picture.replace({
    session: "a",
    tagColumns: [],
    tags: [],
    alarms: [],
    rates: { step: 2000, end: 4000, series },
  })
  picture.update({ rates: { end: 8000, counts: [[0, "2", 7]] } })
  const counts = [...picture.rates.series.values()].map((one) => one.counts.join(" "))
  if (counts.join() !== "5 6 0 0,0 0 0 7") found.push(`rates: ${counts}`)
  return found
}
