// SPDX-License-Identifier: MIT
// The form for the token.
import { byId, setText } from "./dom.js"

// Shows the form, with what was wrong with the last token, and resolves to what the user types. Nothing keeps the
// text: the form is emptied at once.
export function askForToken(trouble) {
  const dialog = byId("sign-in"),
    input = byId("sign-in-token")
  setText(byId("sign-in-trouble"), trouble)
  if (!dialog.open) {
    dialog.showModal()
  }
  return new Promise((resolve) => {
    const submit = (event) => {
      event.preventDefault()
      const token = input.value.trim()
      input.value = ""
      dialog.querySelector("form").removeEventListener("submit", submit)
      dialog.close()
      resolve(token)
    }
    dialog.querySelector("form").addEventListener("submit", submit)
    dialog.addEventListener("cancel", (event) => event.preventDefault())
  })
}
