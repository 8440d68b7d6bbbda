// SPDX-License-Identifier: MIT
// The scenario: what the engine simulates. RXE_connect reads it from the JSON file that
// RXE_SCENARIO names, or takes the built-in one; the records are constant from then on.
// README.md has the keys of the file, their units and defaults, scenario.schema.json their
// ranges. Times are microseconds where no unit is given, places metres.
//
// A function named take... checks one JSON value and writes it to its last argument. It
// returns a refusal (scenario_keys.hpp), which is empty when the value was taken. After a
// refusal the argument may hold a part of the value and is not used. Any thread.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "rxe.h"
#include "scenario_failing.hpp"
#include "scenario_keys.hpp"
#include "world.hpp"

namespace rxe {

// How the EPCs of a group are made: by a scheme of GS1 TDS 1.13 (section 14.5), or from
// hexadecimal digits and a serial number (PREFIX).
enum class scheme_e : std::uint8_t { SGTIN_96, SSCC_96, GRAI_96, GIAI_96, PREFIX };

// The fields of an SGTIN-96 besides its serial number (GS1 TDS 1.13, section 14.5.1).
struct sgtin_s {
    // 6 to 12 digits.
    std::string companyPrefix = "0614141";
    // Together with the prefix 13 digits; the indicator digit comes first.
    std::string itemReference = "812345";
    // 0 to 7; 1 is a point of sale item (GS1 TDS 1.13, section 10).
    std::uint8_t filter = 1;
};

// How the EPCs and TIDs of a group's tags are made. All schemes but PREFIX use company prefix
// and filter of `item`; for GRAI-96 the item reference is the asset type.
struct naming_s {
    scheme_e scheme = scheme_e::SGTIN_96;
    sgtin_s item;
    // For PREFIX: an EPC is this and, at the end, the serial number. `epcBits` is 16 to 496, a
    // multiple of 16.
    std::vector<std::uint8_t> epcPrefix;
    std::uint16_t epcBits = 96;
    // Of the group's first tag; each further tag has the next one, and after the last number
    // that the scheme has room for comes 0.
    std::uint64_t firstSerial = 1001;
    // The TID begins with this; the serial number follows in 48 bits (GS1 TDS 1.13, section 16).
    std::vector<std::uint8_t> tidPrefix = {0xE2, 0x80, 0x11, 0x60};
};

// RANDOM: anywhere in the box; LINE: at equal steps from one corner to the other.
enum class placement_e : std::uint8_t { RANDOM, LINE, GRID };

// Where the tags of a group are when they come: in the box between two corners, metres.
struct placement_s {
    placement_e kind = placement_e::RANDOM;
    place_s from = {-1, -1, 0.5F};
    place_s to = {1, 1, 2};
    // Of a grid: columns along x, rows along y, and as many layers along z as the tags need.
    std::uint32_t columns = 1;
    std::uint32_t rows = 1;
};

// Tags that keep coming: pallets through a door, cartons on a belt. Times in
// microseconds; `every` 0 says that the group comes once, at `first`.
struct arrivals_s {
    std::int64_t first = 0;
    std::int64_t every = 0;
    // The most by which an arrival is late; each has a delay of its own.
    std::int64_t jitter = 0;
    // How long the tags of an arrival stay in the field.
    std::int64_t stay = forEver;
    // How many arrivals; 0 means that they do not end.
    std::uint32_t limit = 0;
};

// A tag with both passwords zero and no other memory yet.
inline tag_s blankTag() {
    tag_s tag;
    tag.banks[BANK_RESERVED].assign(8, 0);
    return tag;
}

// Tags that have all but their names and places in common; a single tag is a
// group of one with its own EPC. `pattern` holds the rest.
struct tag_group_s {
    // Tags of one arrival.
    std::uint32_t count = 1;
    // Of a single tag; empty for a group, whose EPCs come from `naming`.
    std::vector<std::uint8_t> epc;
    naming_s naming;
    placement_s placement;
    arrivals_s arrivals;
    tag_s pattern = blankTag();
};

// One temperature. It moves towards `idle` while nothing is transmitted and towards `idle` +
// `rise` at full power all the time, in between by the share of full power in milliwatts. It
// covers 63 % of the way in `seconds`.
struct heat_s {
    // Degrees Celsius.
    double idle = 0;
    double rise = 0;
    double seconds = 60;
    // Degrees; the alarm limit that the host cannot set.
    std::int16_t critical = 0;
};

// An event of the scenario, which may come again and again.
struct timed_event_s {
    // `due` is the time of the first.
    event_s event;
    // Microseconds; 0 for an event that comes once.
    std::int64_t every = 0;
};

struct scenario_s {
    // What RXE_getAPIVerNum and the firmware's parameter tell; they also decide which
    // parameters there are (features.hpp).
    REL_VERSION_s library = {2, 2, 40, 0};
    REL_VERSION_s firmware = {2, 1, 50, 0};
    // The random numbers begin with it. 0 to 2^63 - 1.
    std::uint64_t seed = 1;
    // The engine's clock does not wait for the real one.
    bool fastClock = false;
    // The most that the radio reads; 0 means that only the link profile limits it.
    double tagsPerSecond = 0;
    // Tenths of dBm, 0 to 400.
    std::int16_t maxTxPower = 330;
    // Temperatures of the power amplifier and of the reader's inside.
    heat_s pa = {.idle = 41, .rise = 22, .seconds = 90, .critical = 115};
    heat_s ambient = {.idle = 29, .rise = 4, .seconds = 300, .critical = 90};
    // Endpoint of the control socket; "none" for no control socket.
    std::string control = "ipc:///tmp/rxe_engine";
    // Operations that fail from RXE_connect on.
    std::vector<failing_s> failing;
    std::vector<timed_event_s> events;
    std::vector<tag_group_s> groups;
    // Which antennas the scenario lists, by port, 0 for the array. Without a value it has no such
    // list, and all are connected.
    std::optional<std::array<bool, maxPorts + 1>> listedAntennas;
    // Antennas, inputs, air and database as they are at RXE_connect. Its list of tags is empty;
    // makeWorld fills it from `groups`.
    world_s world;

    // The built-in scenario, as the member initialisers and the default tags have it.
    scenario_s();
};

// One tag (an object with "epc") or a group of tags.
refusal_s takeTags(const json_t& value, tag_group_s* group);
// One event. With `timed` it must have "at" and may have "every", both in seconds.
refusal_s takeEvent(const json_t& value, bool timed, timed_event_s* event);
// An event that comes at once, or a question, from a control message: a JSON object, or words as
// "gpi 1 high".
// After a refusal `*event` has not changed.
refusal_s readEvent(std::string_view text, event_s* event);
// An operation that is to fail.
refusal_s takeFailing(const json_t& value, failing_s* row);
// The keys of a tag that enters by an event.
refusal_s takeEnteringTag(const json_t& value, tag_group_s* group);
// [x, y, z] in metres, each within 1,000 of 0.
refusal_s takePlace(const json_t& value, place_s* place);
// Hexadecimal digits: 1 to 31 words of 16 bits.
refusal_s takeEpc(const json_t& value, std::vector<std::uint8_t>* epc);

// Reads the file that RXE_SCENARIO names, up to 32 MiB, into `*scenario`; that is the built-in
// scenario when the variable is not set or empty. When something is wrong it returns false, with
// the built-in scenario and one line in `*error` that names the file and the key:
//   RXE_SCENARIO: shop.json: "tags[2].epc" must be ...
bool loadScenario(scenario_s* scenario, std::string* error);

// Where antenna `port`, 1 to maxPorts, stands when the scenario does not say:
// four to a doorway, the doorways one behind the other.
place_s usualPlace(unsigned port);

}  // namespace rxe
