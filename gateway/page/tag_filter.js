// SPDX-License-Identifier: MIT
// The filter box: words that must all fit a tag.
//
//   3034       the EPC has it somewhere          antenna:2    of its last read
//   present    by the presence events            reader:dock  the reader's name begins so
//   departed                                     rssi>-60     dBm, of its last read; also <
//
// `antenna:2` and the others may be begun only: a word that is not complete, such as "antenna:", fits all, so
// that the table does not go empty while the user types.

const rules = [
  // what the word looks like, and from its match and the names of readers a test for a tag
  [/^present$/, () => (tag) => tag.present === true],
  [/^departed$/, () => (tag) => tag.present === false],
  [
    /^antenna:(\d+)$/,
    ([, number]) =>
      (tag) =>
        tag.antenna === Number(number),
  ],
  [
    /^reader:(.+)$/,
    ([, name], readers) =>
      (tag) =>
        readers[tag.reader]?.toLowerCase().startsWith(name),
  ],
  [
    /^rssi>(-?\d+)$/,
    ([, level]) =>
      (tag) =>
        tag.rssi !== null && tag.rssi > Number(level),
  ],
  [
    /^rssi<(-?\d+)$/,
    ([, level]) =>
      (tag) =>
        tag.rssi !== null && tag.rssi < Number(level),
  ],
  [/^(antenna:|reader:|rssi[<>]-?)$/, () => () => true],
  [
    /^/,
    ({ input }) =>
      (tag) =>
        tag.epc.includes(input),
  ],
]

// A function that tells whether a tag fits. `readers` are the names of the readers.
export function compileFilter(text, readers) {
  const tests = text
    .toLowerCase()
    .split(/\s+/)
    .filter(Boolean)
    .map((word) => {
      const [pattern, testOf] = rules.find(([one]) => one.test(word))
      return testOf(pattern.exec(word), readers)
    })
  return (tag) => tests.every((fits) => fits(tag))
}
