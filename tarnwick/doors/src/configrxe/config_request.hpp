// SPDX-License-Identifier: MIT
// One request to a section of "configrxe custom": its words as numbers and texts, and the
// replies that the sections share. Private to configrxe; main thread.
//
// A parameter is a word name=value; the first one of a name counts. Words that a section
// does not know are ignored.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "configrxe_words.hpp"
#include "rxe.h"

namespace rxe_intfc {

// What a section gets. It lives as long as the request is served.
struct section_request_s {
    const vocabulary::configrxe_words::section_s& section;
    int id;                          // 0 in a section without ids
    std::vector<std::string> words;  // behind the section and its id; empty in a read
    std::string* reply;
};

// Whether a word begins with "disable".
bool saysDisable(const section_request_s& request);

// Whether one of the words is this one.
bool hasWord(const section_request_s& request, const vocabulary::argument_s& argument);

// As strtol with a long of 64 bits: decimal, or with `hex` also hexadecimal behind
// "0x"; 0 for a text that is not a number, the nearest number where 64 bits are too few.
std::int64_t numberOf(const std::string& text, bool hex = false);

// The value of a parameter, of which a field keeps the low bits: 65537 is 1 in 16 bits,
// and -1 is 4294967295 in 32. `absent` without the parameter.
std::int64_t wholeParameter(const section_request_s& request, const vocabulary::argument_s& argument,
                            std::int64_t absent, bool hex);
template <class Number>
Number parameter(const section_request_s& request, const vocabulary::argument_s& argument, Number absent = 0,
                 bool hex = false) {
    return static_cast<Number>(wholeParameter(request, argument, absent, hex));
}

// Whether the parameter is there, also without a text behind the "=".
bool hasParameter(const section_request_s& request, const vocabulary::argument_s& argument);

// The text of a parameter, empty without the parameter.
std::string textParameter(const section_request_s& request, const vocabulary::argument_s& argument);

// The row of the choice that a parameter names; null for another text, as without the
// parameter.
const vocabulary::choice_s* choiceOf(const section_request_s& request,
                                     const vocabulary::argument_s& argument);

// The value of that row, or 0.
std::uint8_t choiceValue(const section_request_s& request, const vocabulary::argument_s& argument);

// What the replies call the item: "<section> <id>", or the section without ids alone.
std::string itemOf(const section_request_s& request);

// Reads a parameter of the engine; on failure the reply is "Failure: getting <what>" and the
// result false. Without `what` it is the item.
bool readInto(const section_request_s& request, unsigned parameterId, void* record, const std::string& what);
bool readInto(const section_request_s& request, unsigned parameterId, void* record);

// "Success: setting <what>" or "Failure: setting <what>".
void answerWrite(const section_request_s& request, RXE_API_STATUS status, const std::string& what);
void answerWrite(const section_request_s& request, RXE_API_STATUS status);

// Makes the text the reply.
void fail(const section_request_s& request, const char* text);

}  // namespace rxe_intfc
