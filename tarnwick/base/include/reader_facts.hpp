// SPDX-License-Identifier: MIT
// What this reader is: the facts that the daemon learns while the engine connects, and the row of
// its model. The rest of the daemon does not compare names of models: it asks the row for the
// one property that it needs.
//
// The facts are written by the main thread while the engine connects, before its callback
// is registered and before the radio thread starts. Any thread may read them from then on.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

// The radio environment that a mode names: the row of the link profile tables. The enum, the words
// and the list have one order.
enum class ENVIRONMENT_PARAMS_e : std::uint8_t {
    LOW_INTERFERENCE = 0,
    HIGH_INTERFERENCE = 1,
    VERY_HIGH_INTERFERENCE = 2,
    AUTO_DETECT = 3,
    DEMO = 4,
    NOT_USED = 5,  // the client gave link profiles instead; a request cannot have this word
};
inline constexpr std::array<std::string_view, 6> ENVIRONMENT_PARAMS_strings{
    "LOW_INTERFERENCE", "HIGH_INTERFERENCE", "VERY_HIGH_INTERFERENCE", "AUTO_DETECT", "DEMO", "NOT_USED",
};
inline constexpr std::array ENVIRONMENT_PARAMs{
    ENVIRONMENT_PARAMS_e::LOW_INTERFERENCE,
    ENVIRONMENT_PARAMS_e::HIGH_INTERFERENCE,
    ENVIRONMENT_PARAMS_e::VERY_HIGH_INTERFERENCE,
    ENVIRONMENT_PARAMS_e::AUTO_DETECT,
    ENVIRONMENT_PARAMS_e::DEMO,
    ENVIRONMENT_PARAMS_e::NOT_USED,
};

// When the transmitter rests between two passes over the antennas: never, after a pass without a
// read, or after a pass without a tag that is new. The numbers are those of the engine.
enum class antenna_delay_type_e : std::uint32_t { DISABLED = 0, NO_TAGS = 1, NO_UNIQUE_TAGS = 2 };

// Default power of a mode, in tenths of dBm: of antennas at a port, and of the array reader.
inline constexpr std::int16_t DEFAULT_TX_POWER_X10 = 270;
inline constexpr std::int16_t DEFAULT_TX_POWER_X10_QDX = 360;

// Link profiles by environment (rows in the order of ENVIRONMENT_PARAMS_e) and
// channel width (columns: up to 500 kHz; 600; 1200; 1200 in Japan).
using link_profiles_t = std::array<std::array<std::uint16_t, 4>, ENVIRONMENT_PARAMs.size()>;

// A reader model. The defaults of the members are those of a reader without a row.
struct reader_model_s {
    // As in modelName.
    std::string_view name{};
    // The name of the model when its radio is the ASIC, which has firmware 2; empty for a model
    // without such a radio.
    std::string_view asicName{};

    // Beams in place of antennas, with all that belongs to them: the mode types, the heat map,
    // the heights and the echo of the elements, and facts that are built in. It does not have
    // names of ports, block writes, cable loss or a limit of power on PoE.
    bool arrayReader = false;
    // The power amplifier has a temperature: status shows it, and the radio warns of it.
    bool amplifierTemperature = true;
    // The daemon writes the number of antennas into the radio.
    bool takesAntennaCount = false;
    // GPI ports; with four of them the engine has other records for start and stop.
    std::uint8_t gpis = 2;
    // "startTrigger" may name the ports 1 to this; 0: any number.
    std::uint8_t triggerPorts = 0;

    // The delay after selects: whether a mode may ask for one, whether the engine's
    // document shows it, and whether it is set to 0 before each mode.
    bool setsDelayAfterSelects = false;
    bool showsDelayAfterSelects = false;
    bool clearsDelayAfterSelects = true;

    // Default of the delay between antenna cycles. When it is NO_TAGS a mode may not
    // ask for NO_UNIQUE_TAGS, since some firmware of that radio does not know it.
    antenna_delay_type_e antennaDelay = antenna_delay_type_e::NO_UNIQUE_TAGS;

    // In tenths of dBm: the default power of a mode, and the most that an antenna may
    // get on a PoE supply, under the standard "US FCC 15" and under any other.
    std::int16_t transmitPowerX10 = DEFAULT_TX_POWER_X10;
    std::int16_t poePowerX10FCC = 300;
    std::int16_t poePowerX10 = 300;

    // Null: one profile for all environments.
    const link_profiles_t* linkProfiles = nullptr;
    // The table is used only when the radio can choose a profile itself (isAutoDetectSupported).
    bool linkProfilesNeedAutoDetect = false;
};

// The row of a name, compared exactly; for any other name the row without one. Any
// thread.
const reader_model_s& readerModel(std::string_view name);
inline constexpr reader_model_s otherModel{};

// Entries of a table by antenna number, 0 to 15. Numbers of ports go up to 14.
inline constexpr std::size_t portTableSize = 16;

// All facts. The values here are those of a process without a radio.
struct reader_facts_s {
    // "PN5100", "PN5100-ASIC", "PN8200", "QDX4400" or any other; empty without a radio.
    std::string modelName;
    const reader_model_s* model = &otherModel;  // the row of that name

    // Name of the active regulatory standard, such as "US FCC 15". It determines the limit of the
    // power on a PoE supply.
    std::string regulatory_standard;

    // Antennas, or antenna elements on the array reader; 14 at most.
    std::uint16_t max_ants = 14;

    // The largest power, in tenths of dBm: as the management server gives it, which limits what a
    // mode may ask for, and as the radio reports it, which limits what setOlio writes.
    std::int16_t max_tx_pwr_x_10 = 270;
    std::int16_t rxe_max_tx_pwr_x_10 = 270;

    // Cable loss in tenths of a dB, by antenna number; 0 for all elements of the array reader. It
    // is added to the power of an antenna.
    std::array<std::int16_t, portTableSize> cable_loss_compensation_x_10{};

    // 0: 24 V supply, 1: PoE+, 2: PoE, else unknown. Only PoE limits the power (poePowerX10).
    std::uint16_t power_source = 0;

    // What the firmware can do (features.hpp).
    bool rxeAntennaCheckSupported = false;
    bool rssiFilterSupported = false;
    bool dynamicRangeSupported = false;
    bool cableLossSupported = false;
    bool txDelayIntervalSupported = false;
};
extern reader_facts_s readerFacts;

// Stores the name of the model, and its row. Main thread, before other threads read the facts.
void setModelName(std::string_view name);

// The row of this reader. Any thread, the tag path included.
inline const reader_model_s& thisModel() {
    return *readerFacts.model;
}

// Antennas, or antenna elements on the array reader. Any thread.
std::uint16_t getMaxAnts();
// Whether the number is at most that. 0, which is not an antenna, passes, and on the array reader
// every number does: beam ids are not checked. Any thread.
bool isValidAntenna(std::uint32_t antenna);
