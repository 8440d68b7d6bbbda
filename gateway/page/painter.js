// SPDX-License-Identifier: MIT
// When to paint: what has changed is noted, and painted at most once a frame. A frame that is used up leaves
// the rest to the next one. A page that nobody sees gets no frames, and paints nothing.

const budget = 8 // ms of a frame, which lasts 16

export class Painter {
  #jobs = []
  #due = new Set() // jobs whose parts have changed
  #frameIsAsked = false

  // Calls `paint` after one of `parts` was noted, at most every `interval` ms.
  add(parts, paint, interval = 0) {
    this.#jobs.push({ parts, paint, interval, painted: -Infinity })
  }

  // `part` of the picture has changed.
  note(part) {
    for (const job of this.#jobs) {
      if (job.parts.includes(part)) {
        this.#due.add(job)
      }
    }
    this.#askForFrame()
  }

  #askForFrame() {
    if (!this.#frameIsAsked && this.#due.size > 0) {
      this.#frameIsAsked = true
      requestAnimationFrame((now) => this.#frame(now))
    }
  }

  #frame(now) {
    this.#frameIsAsked = false
    const end = performance.now() + budget
    let patience = Infinity // ms until the next job may paint
    for (const job of [...this.#due]) {
      const wait = job.painted + job.interval - now
      if (wait <= 0 && performance.now() < end) {
        // Behind all others, so that each gets its turn.
        this.#due.delete(job)
        job.painted = now
        job.paint()
      } else {
        patience = Math.min(patience, Math.max(wait, 0))
      }
    }
    if (patience === 0) {
      this.#askForFrame()
    } else if (patience < Infinity) {
      setTimeout(() => this.#askForFrame(), patience)
    }
  }
}
