// SPDX-License-Identifier: MIT
// The tags that fit the filter, in the order of a column. Thousands change each second, so changed tags are
// taken out and merged in again, in time proportional to the list; the list is sorted only when the column
// or the filter changes.

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
  rebuild(known, fits = this.#fits) {
    this.#fits = fits
    this.#changed.clear()
    this.tags = this.#sorted(Array.from(known).filter(fits))
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
    if (this.#changed.size === 0) {
      return
    }
    const changed = this.#changed
    const staying = this.tags.filter((tag) => !changed.has(tag))
    const moving = this.#sorted([...changed].filter((tag) => !tag.isForgotten && this.#fits(tag)))
    this.#changed = new Set()
    this.tags = this.#merged(staying, moving)
  }

  #sorted(tags) {
    // The value is asked for once a tag, not once a comparison.
    const keyed = tags.map((tag) => ({ tag, value: this.#valueOf(tag) }))
    keyed.sort((a, b) => this.#compare(a.value, a.tag, b.value, b.tag))
    return keyed.map(({ tag }) => tag)
  }

  // Each of the few finds its place by bisection; what stands between two places is copied as it is.
  #merged(many, few) {
    const merged = []
    let copied = 0
    for (const tag of few) {
      const value = this.#valueOf(tag)
      let low = copied,
        high = many.length
      while (low < high) {
        const middle = (low + high) >> 1
        if (this.#compare(this.#valueOf(many[middle]), many[middle], value, tag) < 0) {
          low = middle + 1
        } else {
          high = middle
        }
      }
      for (; copied < low; ++copied) {
        merged.push(many[copied])
      }
      merged.push(tag)
    }
    for (; copied < many.length; ++copied) {
      merged.push(many[copied])
    }
    return merged
  }

  // Equal values are in the order of EPC and reader, so that the order is always the same.
  #compare(valueA, tagA, valueB, tagB) {
    if (valueA !== valueB) {
      if (valueA === null || valueB === null) {
        return valueA === null ? 1 : -1
      }
      return (valueA < valueB ? -1 : 1) * this.#direction
    }
    return tagA.epc === tagB.epc ? tagA.reader - tagB.reader : tagA.epc < tagB.epc ? -1 : 1
  }
}
