// SPDX-License-Identifier: MIT
// From a frame to the line that a person reads.
//
// A tag report is a frame of one of three forms, and no frame says which:
//
//   OFF      {"data":{...},"timestamp":...}
//   STRING   | number, low | number, high | 0      | 0 | {"data":{...}...
//   BINARY   | number, low | number, high | 1 or 2 | 0 | velmo::tag_data_report
//
// The fourth byte tells the header from JSON text, which holds no NUL.
#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>

// A frame with a header, taken apart.
struct tag_frame_s {
    int subscriber;
    std::uint8_t kind;  // 0 JSON, 1 and 2 binary
    std::string_view body;
};

// Nothing for a frame without a header: one of the form OFF, or not a report.
std::optional<tag_frame_s> splitTagFrame(std::string_view frame);

// Two lower-case digits for each byte.
std::string hexText(std::string_view bytes);

// The fields of a serialised velmo::tag_data_report by their names, those that it does not
// carry left out; bytes that are not text in hex. Nothing when the bytes are not one.
std::optional<nlohmann::json> binaryFields(std::string_view bytes);

// The running number of a report, in any of the three forms. Nothing for a reduced report, which
// has none, and for a frame that is not a report. Only the number is looked for, so that it can be
// done for every frame.
std::optional<std::uint64_t> reportNumber(std::string_view frame);

// The line of a frame of the tag channel, without a newline:
//
//   {"data":{"eventNum":7,...}                                      OFF
//   subscriber=3 kind=json {"data":{"eventNum":7,...}               STRING
//   subscriber=3 kind=full {"tag_id":"30340a0b...","pc":"3000",...} BINARY
//   subscriber=3 kind=reduced {"tag_id":"30340a0b...",...}          BINARY, BEARING mode
//   unreadable frame of 3 bytes: 010203
//
// The fields of a binary report stand in the order of their numbers, those that
// the report does not carry are left out, bytes that are not text are in hex.
std::string decodeTagFrame(std::string_view frame);

// The line of a frame that is text: the text, with control characters shown as
// in JSON ("\u000a"), so that one frame stays one line.
std::string decodeTextFrame(std::string_view frame);
