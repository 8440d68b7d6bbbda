// SPDX-License-Identifier: MIT
// One event as it lies in the spool and goes to the sinks, and what CloudEvents 1.0 says of it.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

// What a source publishes. A sink chooses by these words, and has what it chose in its mask.
enum class stream_e : std::uint8_t {
    tags,      // tag reports
    events,    // heartbeats and alarms
    overflow,  // made by the spool: a sink's oldest entries were dropped. Every sink gets its own
    presence,  // made of the tag reports: tags arrive, move and depart
};

// Bit of a stream in a mask of streams.
constexpr unsigned streamBit(stream_e stream) {
    return 1U << static_cast<unsigned>(stream);
}

// The word of a stream, as in "streams" of a sink and in the placeholder {stream}.
std::string_view streamName(stream_e stream);

// The stream of a word that a sink may choose; nothing for other words, "overflow" included.
std::optional<stream_e> streamOf(std::string_view word);

// An entry of the spool. Entries of one sink come in ascending order of `seq`.
struct entry_s {
    std::int64_t seq = 0;  // place in the spool, from 1 up; never used twice
    stream_e stream = stream_e::tags;
    std::string reader;                   // name of the source in the configuration
    std::string key;                      // keyOf() of it
    std::int64_t boot = 0;                // names a life of the daemon: ms since 1970 at which it was noticed
    std::optional<std::uint64_t> number;  // the report's event number; none for events and reduced reports
    std::int64_t takenAt = 0;             // microseconds since 1970-01-01 UTC at which the frame was read
    std::string body;  // one JSON object in compact form, UTF-8; a report or an event as the daemon wrote it
};

// The part of the identity behind the reader: "BOOT/NUMBER", or "BOOT/sSEQ" for an entry without
// a number ("BOOT/oSEQ" for an overflow). With the reader in front it names one event for ever, also when it
// is sent twice.
std::string idOf(const entry_s& entry);

// The last word or words of the event's type: "tag.read", "heartbeat", "alarm", "overflow",
// "presence.arrived", "presence.moved" or "presence.departed".
std::string_view typeOf(const entry_s& entry);

// A context attribute of CloudEvents 1.0 under its own name, without "ce_" or "ce-".
struct attribute_s {
    std::string_view name;
    std::string value;
};

// specversion, id, source ("/readers/NAME"), type ("tarnwick." and typeOf()), time (RFC 3339), and
// subject when there is an EPC. datacontenttype is left out: it is always eventContentType, and
// each protocol has a place of its own for it.
std::vector<attribute_s> attributesOf(const entry_s& entry);
inline constexpr std::string_view eventContentType = "application/json";

// The structured form: one JSON object with the attributes, datacontenttype and the body as "data".
std::string structuredEvent(const entry_s& entry);

// The value of a text member of the body, found without building a document: the text behind the
// first `"name":"`, up to the next quotation mark. Right for values that hold no escapes, such as
// idHex and timestamp. Empty without it.
std::string_view textMember(std::string_view body, std::string_view name);

// The EPC of a report's body, textMember() of "idHex", in a fraction of the time. Empty when it is
// not lower-case hex, so that it may stand in a topic or a file without care.
std::string_view epcOf(std::string_view body);

// The EPC of a report or a presence event in lower-case hex; empty when the body has none.
std::string_view keyOf(stream_e stream, std::string_view body);

// The value of a number member of the body, found in the same way behind `key`, such as "\"antenna\":".
// Empty without it.
std::string_view numberMember(std::string_view body, std::string_view key);

// Microseconds since 1970 of a report's "2026-03-02T10:15:30.123+0000" or of an utcText(). Nothing for
// another form.
std::optional<std::int64_t> microsecondsOf(std::string_view time);

// "2026-03-02T10:15:30.123456Z" for microseconds since 1970-01-01 UTC.
std::string utcText(std::int64_t microseconds);

// Microseconds since 1970-01-01 UTC.
std::int64_t nowMicroseconds();
