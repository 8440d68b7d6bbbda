// SPDX-License-Identifier: MIT
// The live page: connects the gateway's picture with what shows it.
//
//   stream ──► picture ──► painter ──► overview, rates, tag_table, bearings, places, sinks, account, alarms, heartbeats
import { AccountBars } from "./account.js"
import { AlarmTable } from "./alarms.js"
import { BearingRose, recent } from "./bearings.js"
import { byId, element, fitChildren } from "./dom.js"
import { HeartbeatCards } from "./heartbeats.js"
import { announce, Overview } from "./overview.js"
import { Painter } from "./painter.js"
import { Picture } from "./picture.js"
import { FloorMap } from "./places.js"
import { RateChart } from "./rates.js"
import { askForToken } from "./sign_in.js"
import { SinkTable } from "./sinks.js"
import { Connection } from "./stream.js"
import { TagTable } from "./tag_table.js"
import { onSchemeChange } from "./colours.js"

const painter = new Painter()
const picture = new Picture({
  note: (part) => {
    if (part === "status") {
      sinks.note()
    }
    painter.note(part)
  },
  changed: (tag) => {
    noteFacts(tag)
    tagTable.changed(tag)
  },
  forgotten: (tag) => tagTable.forgotten(tag),
  replaced: () => {
    facts.hasBearings = facts.hasPlaces = false
    picture.tags.forEach(noteFacts)
    facts.readers = picture.readers
    tagTable.rebuild()
  },
  alarmed: ({ type, message }) => announce(`${type}: ${message}`),
})

// The reader that the user has chosen, as an index; null for all.
let chosenReader = null
const readerShown = (reader) => chosenReader === null || reader === chosenReader

// What the tags are like, which decides what is shown of them.
const facts = { readers: [], hasBearings: false, hasPlaces: false }
function noteFacts(tag) {
  facts.hasBearings ||= tag.azimuth !== null
  facts.hasPlaces ||= tag.x !== null && tag.y !== null
}

const overview = new Overview(picture, { readerShown })
const rates = new RateChart(picture, { readerShown, repaint: () => painter.note("rates") })
const sinks = new SinkTable(picture)
const account = new AccountBars(picture, { readerShown })
const alarms = new AlarmTable(picture, { readerShown })
const heartbeats = new HeartbeatCards(picture, { readerShown })
const rose = new BearingRose()
const map = new FloorMap()
const tagTable = new TagTable(picture, facts, {
  shows: (tag) => readerShown(tag.reader),
  repaint: () => painter.note("table"),
  chosen: () => painter.note("places"),
})

// The tags that were read lately and have what a picture of an array reader needs.
function recentTags(has) {
  const found = []
  for (const tag of picture.tagsOf(chosenReader)) {
    if (picture.at - tag.lastSeen < recent && has(tag)) {
      found.push(tag)
    }
  }
  return found
}

function paintBearings() {
  byId("bearings").hidden = !facts.hasBearings
  if (facts.hasBearings) {
    rose.paint(
      recentTags(({ azimuth }) => azimuth !== null),
      picture.at,
      tagTable.selected,
    )
  }
}

function paintPlaces() {
  byId("places").hidden = !facts.hasPlaces
  if (facts.hasPlaces) {
    map.paint(
      recentTags(({ x, y }) => x !== null && y !== null),
      picture.at,
      tagTable.selected,
    )
  }
}

function paintReaderChoice() {
  facts.readers = picture.readers
  byId("reader-choice").hidden = picture.readers.length < 2
  const select = byId("reader")
  fitChildren(select, picture.readers.length + 1, () => element("option"))
  picture.readers.forEach((name, i) => {
    select.options[i + 1].textContent = name
    select.options[i + 1].value = i
  })
}

byId("reader").addEventListener("change", ({ target }) => {
  chosenReader = target.value === "" ? null : Number(target.value)
  tagTable.rebuild()
  ;["totals", "rates", "tags", "status", "alarms", "heartbeats"].forEach((part) => painter.note(part))
})

// What to paint when which part has changed, and at most how often, in ms.
painter.add(["tags", "table"], () => tagTable.paint())
painter.add(["totals", "rates", "readers", "status"], () => overview.paint(), 250)
painter.add(["health"], () => overview.paintHealth())
painter.add(["readers"], paintReaderChoice)
painter.add(["rates", "readers"], () => rates.paint())
painter.add(["status"], () => sinks.paint())
painter.add(["status", "accounts", "readers"], () => account.paint(), 500)
painter.add(["alarms", "readers"], () => alarms.paint())
painter.add(["heartbeats", "readers"], () => heartbeats.paint())
painter.add(["tags", "places"], paintBearings, 250)
painter.add(["tags", "places"], paintPlaces, 250)
onSchemeChange(() => painter.note("places"))

const connection = new Connection({
  whole: (whole) => {
    document.querySelector("main").hidden = false
    picture.replace(whole)
  },
  update: (changes) => picture.update(changes),
  state: (state) => overview.showConnection(state),
  token: askForToken,
})
byId("connect-now").addEventListener("click", () => connection.connectNow())
connection.run()
