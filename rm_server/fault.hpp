// SPDX-License-Identifier: MIT
// Answers that go wrong on request, so that a client's failure paths can be tested.
#pragma once

#include <string>
#include <string_view>

enum class fault_e {
    none,
    // Faults of the connection and of the bytes as a whole. silent: the server accepts and never
    // answers, until the client gives up.
    silent,
    // Closes without an answer.
    close,
    // Bytes that are not XML.
    garbage,
    // The first half of the answer.
    truncated,
    // A well-formed answer without the text "reply>", by which the client finds the end: its closing
    // tag has a blank.
    noMarker,
    // Further bytes after the closing tag.
    trailing,
    // Faults within the document. resultCode: result code 5 and the error elements beside the
    // values.
    resultCode,
    // Result code 5 without the error's name and description.
    bareError,
    // The values without a result code.
    missingResultCode,
    // The value elements are left out.
    missingValue,
    // Each value element twice, first with the text "0", then right.
    doubleValue,
};

// When a fault applies. The three counts are of requests that match `query`.
struct fault_plan_s {
    fault_e kind = fault_e::none;
    // Name of a command; empty for every command.
    std::string query;
    // The value element to leave out or to double; empty for all.
    std::string value;
    // Requests that are answered properly first.
    unsigned after = 0;
    // Requests that then fail; 0 for all that follow.
    unsigned count = 0;
    // Requests so far.
    unsigned seen = 0;
};

// The fault of a name of --fault, such as "no-marker". False when no fault has that name.
bool findFault(std::string_view name, fault_e* kind);
// All names, for the help: "none, silent, close, ...".
std::string faultNames();

// Counts a request and returns the fault of its answer. A request that cannot be read has the
// empty command, which matches only a plan for every command.
fault_e nextFault(fault_plan_s* plan, std::string_view command);
