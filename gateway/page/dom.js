// SPDX-License-Identifier: MIT
// Short ways to write into the document. Text is always set as text, never as HTML: EPCs, messages and names
// come from outside.

export const byId = (id) => document.getElementById(id)

// element('td', {className: 'number', hidden: false}, 'text', otherElement)
export function element(name, properties = {}, ...children) {
  const made = Object.assign(document.createElement(name), properties)
  made.append(...children)
  return made
}

// Changes the document only when the text differs, which spares the browser a layout.
export function setText(node, text) {
  if (node.textContent !== text) {
    node.textContent = text
  }
}

export function setAttribute(node, name, value) {
  if (node.getAttribute(name) !== value) {
    node.setAttribute(name, value)
  }
}

export function svgElement(name, attributes = {}) {
  const made = document.createElementNS("http://www.w3.org/2000/svg", name)
  for (const [key, value] of Object.entries(attributes)) {
    made.setAttribute(key, value)
  }
  return made
}

// A table that is written as a whole: a caption, headings and rows. A cell is a text, an element, or nothing.
// Cells stay in place from one call to the next, so that a selection in the text and the focus survive.
// `headings`: texts, or {text, kind}, where `kind` is the class of the cells: "number", or "wide" for what phones leave
// out. The first cell of a row is its heading.
export function fillTable(table, caption, headings, rows) {
  if (!table.tHead) {
    table.createCaption().className = "unseen"
    table.createTHead().insertRow()
    table.createTBody()
  }
  setText(table.caption, caption)
  fitChildren(table.tHead.rows[0], headings.length, () => element("th", { scope: "col" }))
  headings.forEach((heading, i) => {
    setText(table.tHead.rows[0].cells[i], heading.text ?? heading)
    setAttribute(table.tHead.rows[0].cells[i], "class", heading.kind ?? "")
  })
  const body = table.tBodies[0]
  fitChildren(body, rows.length, () => element("tr"))
  rows.forEach((cells, row) => {
    fitChildren(body.rows[row], cells.length, (i) =>
      i === 0 ? element("th", { scope: "row" }) : element("td"),
    )
    cells.forEach((content, i) => {
      const cell = body.rows[row].cells[i]
      setAttribute(cell, "class", headings[i].kind ?? "")
      if (content instanceof Element) {
        if (cell.firstChild !== content || cell.childNodes.length > 1) {
          cell.replaceChildren(content)
        }
      } else {
        setText(cell, content ?? "")
      }
    })
  })
}

// Until `parent` has `length` children: makes the missing ones, drops those that are too many.
export function fitChildren(parent, length, make) {
  while (parent.children.length < length) {
    parent.append(make(parent.children.length))
  }
  while (parent.children.length > length) {
    parent.lastElementChild.remove()
  }
}

// A list of names and values: <dl> with a <div> for each pair. A value is a text or an element.
export function fillList(list, pairs) {
  fitChildren(list, pairs.length, () => element("div", {}, element("dt"), element("dd")))
  pairs.forEach(([name, value, kind], i) => {
    const [term, description] = list.children[i].children
    setText(term, name)
    setAttribute(description, "data-kind", kind ?? "")
    if (value instanceof Element) {
      if (description.firstChild !== value) {
        description.replaceChildren(value)
      }
    } else {
      setText(description, value)
    }
  })
}
