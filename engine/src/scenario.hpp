// SPDX-License-Identifier: MIT
// What the engine simulates, as the JSON file that RXE_SCENARIO names tells it:
// read once, at RXE_connect. Without a file it is the built-in scenario.
#ifndef ENGINE_SCENARIO_HPP
#define ENGINE_SCENARIO_HPP

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

enum class scheme_e : std::uint8_t { SGTIN_96, SSCC_96, GRAI_96, GIAI_96, PREFIX };

struct sgtin_s {
    std::string companyPrefix = "0614141";  // 6 to 12 digits
    std::string itemReference = "812345";   // 13 digits less the prefix, indicator digit first
    std::uint8_t filter = 1;                // 0 to 7; 1 is a point of sale item
};

// How the tags of a group are named. Of `item`, the other schemes have company
// prefix and filter too, and GRAI-96 its asset type in place of the item.
struct naming_s {
    scheme_e scheme = scheme_e::SGTIN_96;
    sgtin_s item;
    std::vector<std::uint8_t> epcPrefix;  // of scheme PREFIX: EPCs are this and a serial number
    std::uint16_t epcBits = 96;           // of scheme PREFIX, whole words
    std::uint64_t firstSerial = 1001;
    std::vector<std::uint8_t> tidPrefix = {0xE2, 0x80, 0x11, 0x60};  // a 48-bit serial follows
};

enum class placement_e : std::uint8_t { RANDOM, LINE, GRID };

// Where the tags of a group are when they come.
struct placement_s {
    placement_e kind = placement_e::RANDOM;
    place_s from = {-1, -1, 0.5F};
    place_s to = {1, 1, 2};
    std::uint32_t columns = 1;  // of a grid, along x; along y by rows, the rest along z
    std::uint32_t rows = 1;
};

// Tags that keep coming: pallets through a door, cartons on a belt. Times in
// microseconds; `every` 0 says that the group comes once, at `first`.
struct arrivals_s {
    std::int64_t first = 0;
    std::int64_t every = 0;
    std::int64_t jitter = 0;  // each arrival is later by up to this
    std::int64_t stay = FOR_EVER;
    std::uint32_t limit = 0;  // how many arrivals, 0 for no end
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
    std::uint32_t count = 1;  // of one arrival
    std::vector<std::uint8_t> epc;
    naming_s naming;
    placement_s placement;
    arrivals_s arrivals;
    tag_s pattern = blankTag();
};

// One temperature: it moves towards `idle` degrees, and with the transmitter at
// full power and never off towards `idle` + `rise`, by 63 % in `seconds`.
struct heat_s {
    double idle = 0;
    double rise = 0;
    double seconds = 60;
    std::int16_t critical = 0;  // the alarm limit that the host cannot set
};

struct timed_event_s {
    event_s event;           // `due` is the time of the first
    std::int64_t every = 0;  // microseconds, 0: once
};

struct scenario_s {
    REL_VERSION_s library = {2, 2, 40, 0};
    REL_VERSION_s firmware = {2, 1, 50, 0};
    std::uint64_t seed = 1;
    bool fastClock = false;
    double tagsPerSecond = 0;       // the most that the radio reads; 0: what the link profile gives
    std::int16_t maxTxPower = 330;  // tenths of dBm
    heat_s pa = {.idle = 41, .rise = 22, .seconds = 90, .critical = 115};
    heat_s ambient = {.idle = 29, .rise = 4, .seconds = 300, .critical = 90};
    std::string control = "ipc:///tmp/rxe_engine";  // "none": no control socket
    std::vector<failing_s> failing;
    std::vector<timed_event_s> events;
    std::vector<tag_group_s> groups;
    std::optional<std::array<bool, MAX_PORTS + 1>> listedAntennas;  // by port; none: all
    // Antennas, inputs, air and database as they are at RXE_connect; without tags.
    world_s world;

    scenario_s();  // the built-in scenario, as the member initialisers and the default tags have it
};

// One tag (with an "epc") or a group, and one event, `timed` or one that comes
// at once; what is wrong is told by key.
refusal_s takeTags(const json_t& value, tag_group_s* group);
refusal_s takeEvent(const json_t& value, bool timed, timed_event_s* event);
// The same from a control message: a JSON object, or words as "gpi 1 high".
refusal_s readEvent(std::string_view text, event_s* event);
refusal_s takeFailing(const json_t& value, failing_s* row);
// The keys of a tag that enters by an event.
refusal_s takeEnteringTag(const json_t& value, tag_group_s* group);
refusal_s takePlace(const json_t& value, place_s* place);
refusal_s takeEpc(const json_t& value, std::vector<std::uint8_t>* epc);

// Reads the file that RXE_SCENARIO names into `*scenario`, or gives the
// built-in one when the variable is not set or empty. Returns false, with one
// line in `*error` that names the file and the key, when something is wrong.
bool loadScenario(scenario_s* scenario, std::string* error);

// Where antenna `port`, 1 to MAX_PORTS, stands when the scenario does not say:
// four to a doorway, the doorways one behind the other.
place_s usualPlace(unsigned port);

}  // namespace rxe

#endif
