// SPDX-License-Identifier: MIT
// What the engine simulates, as the JSON file that RXE_SCENARIO names tells it:
// read once, at RXE_connect. Without a file it is the built-in scenario. The records are
// constant from then on; README.md has the keys of the file, their units and defaults.
//
// Reading: a function named take... checks one JSON value and writes it to its last
// argument. After a refusal the argument may hold a part of the value and is not used.
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

// How the EPCs of a group are made (GS1 TDS 1.13, section 14.5), PREFIX from hexadecimal digits.
enum class scheme_e : std::uint8_t { SGTIN_96, SSCC_96, GRAI_96, GIAI_96, PREFIX };

// What an SGTIN-96 has besides its serial number.
struct sgtin_s {
    // 6 to 12 digits.
    std::string companyPrefix = "0614141";
    // 13 digits less the prefix, indicator digit first.
    std::string itemReference = "812345";
    // 0 to 7; 1 is a point of sale item.
    std::uint8_t filter = 1;
};

// How the tags of a group are named. Of `item`, the other schemes have company
// prefix and filter too, and GRAI-96 its asset type in place of the item.
struct naming_s {
    scheme_e scheme = scheme_e::SGTIN_96;
    sgtin_s item;
    // Of scheme PREFIX: EPCs are this and a serial number, `epcBits` bits in whole words.
    std::vector<std::uint8_t> epcPrefix;
    std::uint16_t epcBits = 96;
    // Of the group's first tag; each further tag has the next one.
    std::uint64_t firstSerial = 1001;
    // A serial number of 48 bits follows, which is another one for each tag.
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
    // Each arrival is later by up to this.
    std::int64_t jitter = 0;
    // How long the tags of an arrival stay in the field.
    std::int64_t stay = forEver;
    // How many arrivals; 0 for no end.
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

// One temperature: it moves towards `idle` degrees, and with the transmitter at
// full power and never off towards `idle` + `rise`, by 63 % in `seconds`.
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
    // Of all draws. 0 to 2^63 - 1.
    std::uint64_t seed = 1;
    // The engine's clock does not wait for the real one.
    bool fastClock = false;
    // The most that the radio reads; 0 for what the link profile gives.
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
    // Which antennas the scenario lists, by port; without a value, all are there.
    std::optional<std::array<bool, maxPorts + 1>> listedAntennas;
    // Antennas, inputs, air and database as they are at RXE_connect; without tags.
    world_s world;

    // The built-in scenario, as the member initialisers and the default tags have it.
    scenario_s();
};

// One tag (with an "epc") or a group, and one event, `timed` or one that comes
// at once; what is wrong is told by key.
refusal_s takeTags(const json_t& value, tag_group_s* group);
refusal_s takeEvent(const json_t& value, bool timed, timed_event_s* event);
// The same from a control message: a JSON object, or words as "gpi 1 high".
refusal_s readEvent(std::string_view text, event_s* event);
// An operation that is to fail.
refusal_s takeFailing(const json_t& value, failing_s* row);
// The keys of a tag that enters by an event.
refusal_s takeEnteringTag(const json_t& value, tag_group_s* group);
// [x, y, z] in metres; whole bytes of hexadecimal digits in words of 16 bits.
refusal_s takePlace(const json_t& value, place_s* place);
refusal_s takeEpc(const json_t& value, std::vector<std::uint8_t>* epc);

// Reads the file that RXE_SCENARIO names into `*scenario`, or gives the
// built-in one when the variable is not set or empty. Returns false, with one
// line in `*error` that names the file and the key, when something is wrong.
bool loadScenario(scenario_s* scenario, std::string* error);

// Where antenna `port`, 1 to maxPorts, stands when the scenario does not say:
// four to a doorway, the doorways one behind the other.
place_s usualPlace(unsigned port);

}  // namespace rxe
