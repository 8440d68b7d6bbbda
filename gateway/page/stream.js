// SPDX-License-Identifier: MIT
// The connection to the gateway: opens the stream, fetches the whole picture, and hands on both so that each
// update comes once and in order; connects again when the stream ends.

const firstWait = 1_000,
  longestWait = 15_000 // ms between two attempts
const longestSilence = 40_000 // ms; the gateway sends something every 15 s

// The gateway wants a token.
class Unauthorized extends Error {}

const sleep = (ms) =>
  new Promise((done) => {
    setTimeout(done, ms)
  })

// Why an answer is not the wanted one, in words.
function troubleOf(response) {
  return response.status === 503
    ? "the gateway serves as many pages as it can (32)"
    : `the gateway answers ${response.status} ${response.statusText}`
}

async function ask(path, options) {
  const response = await fetch(path, { cache: "no-store", ...options })
  if (response.status === 401) {
    throw new Unauthorized()
  }
  if (!response.ok) {
    throw new Error(troubleOf(response))
  }
  return response
}

// The server-sent events of a response, each as {event, data}; data is parsed JSON. `alive` is called for each
// piece that comes, comments included. It reads the body itself since an EventSource does not tell a status of
// 401 from a gateway that is away, nor a silent connection from a dead one.
export async function* eventsOf(body, alive) {
  const reader = body.pipeThrough(new TextDecoderStream()).getReader()
  let rest = ""
  for (;;) {
    const { value, done } = await reader.read()
    if (done) {
      return
    }
    alive()
    const blocks = (rest + value).split("\n\n")
    rest = blocks.pop()
    for (const block of blocks) {
      const fields = Object.fromEntries(
        block.split("\n").map((line) => {
          const colon = line.indexOf(":")
          return [line.slice(0, colon), line.slice(colon + 1).trimStart()]
        }),
      )
      if (fields.data) {
        yield { event: fields.event, data: JSON.parse(fields.data) }
      }
    }
  }
}

export class Connection {
  #handlers
  #token = "" // in memory only; lost with the page
  #wake = () => {}

  // whole(picture), update(changes), state({kind, trouble, wait}) with kind one of "connecting", "live",
  // "waiting"; token(trouble) shows a form and resolves to what the user has typed.
  constructor(handlers) {
    this.#handlers = handlers
    addEventListener("online", () => this.connectNow())
    document.addEventListener("visibilitychange", () => {
      if (!document.hidden) {
        this.connectNow()
      }
    })
  }

  // Ends the wait for the next attempt.
  connectNow() {
    this.#wake()
  }

  // For ever.
  async run() {
    let wait = firstWait
    for (;;) {
      let trouble = "the gateway has ended the connection"
      try {
        this.#handlers.state({ kind: "connecting" })
        await this.#listen(() => {
          wait = firstWait
        })
      } catch (error) {
        if (error instanceof Unauthorized) {
          await this.#signIn()
          continue
        }
        trouble = error instanceof TypeError ? "the gateway does not answer" : error.message
      }
      // Not all pages at once after a restart.
      const pause = wait * (0.75 + Math.random() / 2)
      this.#handlers.state({ kind: "waiting", trouble, wait: pause })
      await Promise.race([
        sleep(pause),
        new Promise((done) => {
          this.#wake = done
        }),
      ])
      wait = Math.min(2 * wait, longestWait)
    }
  }

  // Until the stream ends. Throws when it cannot begin, or was not read without a gap.
  async #listen(hasBegun) {
    const silence = new AbortController()
    let timer = 0
    const alive = () => {
      clearTimeout(timer)
      timer = setTimeout(() => silence.abort(new Error("the gateway has gone silent")), longestSilence)
    }
    alive()
    try {
      const stream = await ask("api/stream", { signal: silence.signal })
      let version = null // of the latest update that was handed on; none before the whole picture
      const kept = [] // updates that came before the whole picture
      const handOn = (update) => {
        if (update.version > version + 1) {
          throw new Error("an update is missing")
        }
        if (update.version === version + 1) {
          version = update.version
          this.#handlers.update(update)
        }
      }
      const begin = async (hello) => {
        const whole = await (await ask("api/state", { signal: silence.signal })).json()
        if (whole.session !== hello.session) {
          throw new Error("the gateway has restarted")
        }
        version = whole.version
        this.#handlers.whole(whole)
        kept.forEach(handOn)
        this.#handlers.state({ kind: "live" })
        hasBegun()
      }
      for await (const { event, data } of eventsOf(stream.body, alive)) {
        if (event === "hello") {
          begin(data).catch((error) => silence.abort(error))
        } else if (version === null) {
          kept.push(data)
        } else {
          handOn(data)
        }
      }
    } catch (error) {
      throw silence.signal.aborted ? silence.signal.reason : error
    } finally {
      clearTimeout(timer)
      silence.abort()
    }
  }

  // Exchanges the token for a cookie. A token that was right before is tried again first: the cookie ends with
  // the gateway, and the page goes on by itself when it has restarted.
  async #signIn() {
    let trouble = ""
    for (let token = this.#token; ; token = "") {
      this.#token = token || (await this.#handlers.token(trouble))
      try {
        await ask("api/session", { headers: { Authorization: `Bearer ${this.#token}` } })
        return
      } catch (error) {
        trouble = error instanceof Unauthorized ? "This is not the token." : "The gateway does not answer."
        if (!(error instanceof Unauthorized) && token) {
          return // away, not refused: the next attempt tells
        }
      }
    }
  }
}
