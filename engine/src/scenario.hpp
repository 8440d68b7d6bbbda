// SPDX-License-Identifier: MIT
// What the engine simulates: the firmware, the antennas, the tags. Read once,
// at RXE_connect, from the JSON file that RXE_SCENARIO names; the member
// initialisers are the scenario without such a file.
#ifndef ENGINE_SCENARIO_HPP
#define ENGINE_SCENARIO_HPP

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "rxe.h"

namespace rxe {

struct sgtin_s {
    std::string companyPrefix = "0614141";  // 6 to 12 digits
    std::string itemReference = "812345";   // 13 digits less the prefix, indicator digit first
    std::uint8_t filter = 1;                // 0 to 7; 1 is a point of sale item
};

struct tag_generator_s {
    std::uint32_t count = 24;
    sgtin_s sgtin;
    std::vector<std::uint8_t> epcPrefix;  // when not empty, EPCs are this and a serial number
    std::uint16_t epcBits = 96;           // of an EPC with a prefix, whole words
    std::uint64_t firstSerial = 1001;
    std::vector<std::uint8_t> tidPrefix = {0xE2, 0x80, 0x11, 0x60};  // a 48-bit serial follows
};

struct scenario_s {
    REL_VERSION_s library = {2, 2, 40, 0};
    REL_VERSION_s firmware = {2, 1, 50, 0};
    std::uint64_t seed = 1;
    bool fastClock = false;
    double tagsPerSecond = 400;
    std::int16_t maxTxPower = 330;             // tenths of dBm
    std::uint16_t antennasConnected = 0xFFFF;  // bit n-1: antenna n
    std::array<bool, 4> gpiHigh = {};          // by port - 1
    std::int16_t paTemp = 41;                  // degrees Celsius
    std::int16_t ambTemp = 29;
    tag_generator_s tags;
};

// Reads the file that RXE_SCENARIO names into `*scenario`, or leaves the
// built-in one when the variable is not set or empty. Returns false, with one
// line in `*error` that names the file and the key, when something is wrong.
bool loadScenario(scenario_s* scenario, std::string* error);

}  // namespace rxe

#endif
