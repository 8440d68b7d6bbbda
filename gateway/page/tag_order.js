// SPDX-License-Identifier: MIT
// The tags that fit the filter, in the order of a column. Thousands change each second, so those whose place has
// changed are taken out and merged in again, in time proportional to the list; the list is sorted only when
// the column or the filter changes. Three members of a tag belong to it: isListed, sortValue and isMoving.

export class TagOrder {
  #fits = () => true
  #valueOf = (tag) => tag.firstSeen
  #direction = -1
  #changed = new Set()

  tags = [] // those that fit, in order

  // `valueOf(tag)` is a number, a text, a boolean or null; all that are not null are of one kind. `direction`: 1
  // ascending, -1 descending. null is last in both.
  sortBy(valueOf, direction) {
    this.settle() // new tags are among the changed ones
    this.#valueOf = valueOf
    this.#direction = direction
    this.tags = this.#sorted(this.tags)
  }

  // All tags among `known` that fit. Also for a new set of tags.
  rebuild(known, fits) {
    this.#fits = fits
    this.#changed.clear()
    const fitting = []
    for (const tag of known) {
      tag.isListed = fits(tag)
      if (tag.isListed) {
        fitting.push(tag)
      }
    }
    this.tags = this.#sorted(fitting)
  }

  // A tag is new, or a value of it has changed: it keeps its place until settle().
  change(tag) {
    this.#changed.add(tag)
  }

  forget(tag) {
    tag.isForgotten = true
    this.#changed.add(tag)
  }

  // Puts what has changed in its place.
  settle() {
    const arriving = []
    let isAnyLeaving = false
    for (const tag of this.#changed) {
      const fits = !tag.isForgotten && this.#fits(tag)
      const value = fits ? this.#valueOf(tag) : null
      if (tag.isListed !== fits || tag.sortValue !== value) {
        tag.isMoving = tag.isListed
        isAnyLeaving ||= tag.isListed
        tag.isListed = fits
        if (fits) {
          arriving.push(tag)
        }
      }
    }
    this.#changed.clear()
    const staying = isAnyLeaving ? this.tags.filter((tag) => !tag.isMoving) : this.tags
    this.tags = arriving.length > 0 ? this.#merged(staying, this.#sorted(arriving)) : staying
  }

  // Sorts `tags` in place.
  #sorted(tags) {
    for (const tag of tags) {
      tag.sortValue = this.#valueOf(tag)
      tag.isMoving = false
    }
    return tags.sort((a, b) => this.#compare(a, b))
  }

  // Each of the few finds its place by bisection; what stands between two places is copied as it is.
  #merged(many, few) {
    const merged = []
    let copied = 0
    for (const tag of few) {
      let low = copied
      let high = many.length
      while (low < high) {
        const middle = (low + high) >> 1
        if (this.#compare(many[middle], tag) < 0) {
          low = middle + 1
        } else {
          high = middle
        }
      }
      while (copied < low) {
        merged.push(many[copied++])
      }
      merged.push(tag)
    }
    while (copied < many.length) {
      merged.push(many[copied++])
    }
    return merged
  }

  // Equal values are in the order of EPC and reader, so that the order is always the same.
  #compare(a, b) {
    if (a.sortValue !== b.sortValue) {
      if (a.sortValue === null || b.sortValue === null) {
        return a.sortValue === null ? 1 : -1
      }
      return (a.sortValue < b.sortValue ? -1 : 1) * this.#direction
    }
    return a.epc === b.epc ? a.reader - b.reader : a.epc < b.epc ? -1 : 1
  }
}
