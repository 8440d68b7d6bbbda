// SPDX-License-Identifier: MIT
// Answers that go wrong on request, so that a client's failure paths can be tested.
#pragma once

#include <string>
#include <string_view>

enum class fault_e {
    none,
    // On the wire.
    silent,     // accepts and never answers; the client gives up
    close,      // closes without an answer
    garbage,    // bytes that are not XML
    truncated,  // the first half of the answer
    noMarker,   // a well-formed answer without the text "reply>": its closing tag holds a blank
    trailing,   // further bytes after the closing tag
    // In the document.
    resultCode,         // result code 5 and the error elements beside the value
    bareError,          // result code 5 without the error's name and description
    missingResultCode,  //
    missingValue,       // the value elements are left out
    doubleValue,        // each value element twice, first with the text "0", then as it should be
};

// When a fault applies. Counts are of requests that match `query`.
struct fault_plan_s {
    fault_e kind = fault_e::none;
    std::string query;   // command name, or empty for every command
    std::string value;   // the one value element to leave out or double, or empty for all
    unsigned after = 0;  // matching requests answered properly first
    unsigned count = 0;  // matching requests that then fail; 0 for all
    unsigned seen = 0;   // matching requests so far
};

// False when no fault has that name.
bool findFault(std::string_view name, fault_e* kind);
std::string faultNames();

// Counts a request and tells what goes wrong with it. An unreadable request has
// the empty command and matches only a plan for every command.
fault_e nextFault(fault_plan_s* plan, std::string_view command);
