// SPDX-License-Identifier: MIT
// The head of the page: connection, health, and the few numbers that matter most.
import { byId, element, fillList, fitChildren, setAttribute, setText } from "./dom.js"
import { count, duration, rate, time } from "./format.js"

function setBadge(badge, text, kind) {
  setText(badge, text)
  setAttribute(badge, "data-kind", kind)
}

const keptTexts = 5

// Says a text to those who use a screen reader, behind what was said before.
export function announce(text) {
  const log = byId("announcer")
  log.append(element("p", {}, text))
  if (log.children.length > keptTexts) {
    log.firstElementChild.remove()
  }
}

export class Overview {
  constructor(picture, { readerShown }) {
    this.picture = picture
    this.readerShown = readerShown
    this.wasReady = null
  }

  paint() {
    const { picture } = this
    const { totals, rates, status, startedAt, at } = picture
    setText(byId("program"), picture.program)
    let latest = 0
    for (const { reader, counts } of rates.series.values()) {
      latest += this.readerShown(reader) ? (counts.at(-1) ?? 0) : 0
    }
    fillList(byId("overview"), [
      ["Reports now", rate((latest * 1000) / rates.step)],
      ["Reports", count(totals.reports)],
      ["Tags", count(totals.tags)],
      ...(status?.presence ? [["Present", count(status.presence.present)]] : []),
      ...(totals.forgotten > 0 ? [["Tags forgotten", count(totals.forgotten)]] : []),
      ...(totals.unseen > 0 ? [["Not shown here", count(totals.unseen), "warn"]] : []),
      ["Gateway up for", duration((at - startedAt) / 1000)],
      ["As of", time(at)],
    ])
  }

  paintHealth() {
    const { ready, reasons } = this.picture.health
    setBadge(byId("health"), ready ? "all is well" : "not well", ready ? "good" : "bad")
    const list = byId("reasons")
    list.hidden = reasons.length === 0
    fitChildren(list, reasons.length, () => element("li"))
    reasons.forEach((reason, i) => setText(list.children[i], reason))
    if (this.wasReady !== null && this.wasReady !== ready) {
      announce(ready ? "All is well again." : `Not well: ${reasons.join("; ")}`)
    }
    this.wasReady = ready
  }

  // `state` as the connection tells it.
  showConnection({ kind, trouble, wait }) {
    clearInterval(this.countdown)
    document.body.dataset.connection = kind
    byId("connect-now").hidden = kind !== "waiting"
    if (kind === "live") {
      setBadge(byId("connection"), "live", "good")
      announce(
        this.picture.isNewSession
          ? "Connected. The gateway has restarted; its page begins anew."
          : "Connected.",
      )
    } else if (kind === "connecting") {
      setBadge(byId("connection"), "connecting", "waiting")
    } else {
      const end = Date.now() + wait
      const show = () =>
        setBadge(
          byId("connection"),
          `${trouble}; next attempt in ${duration(Math.max(0, Math.ceil((end - Date.now()) / 1000)))}`,
          "bad",
        )
      this.countdown = setInterval(show, 1000)
      show()
      announce(`Not connected: ${trouble}.`)
    }
  }
}
