// SPDX-License-Identifier: MIT
// What this reader is: the facts that are learnt while the engine connects, and the row of
// its model. Nothing else in the daemon compares names of models: it asks the row for the
// one thing that it needs.
//
// The facts are written by the main thread while the engine connects, before its callback
// is registered and before the radio thread starts. Any thread may read them from then on.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

// Row of the link profile tables.
enum class ENVIRONMENT_PARAMS_e : std::uint8_t {
    LOW_INTERFERENCE = 0,
    HIGH_INTERFERENCE = 1,
    VERY_HIGH_INTERFERENCE = 2,
    AUTO_DETECT = 3,
    DEMO = 4,
    NOT_USED = 5,  // the client gave link profiles instead; never a client's word
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

// The wait between two cycles of the antennas.
enum class antenna_delay_type_e : std::uint32_t { DISABLED = 0, NO_TAGS = 1, NO_UNIQUE_TAGS = 2 };

// Default power of a mode, in tenths of dBm.
inline constexpr std::int16_t DEFAULT_TX_POWER_X10 = 270;
inline constexpr std::int16_t DEFAULT_TX_POWER_X10_QDX = 360;

// Link profiles by environment (rows in the order of ENVIRONMENT_PARAMS_e) and
// channel width (columns: up to 500 kHz; 600; 1200; 1200 in Japan).
using link_profiles_t = std::array<std::array<std::uint16_t, 4>, ENVIRONMENT_PARAMs.size()>;

// A reader model. What a row leaves out is as on a reader of any other name.
struct reader_model_s {
    std::string_view name{};  // as in modelName
    // What the model is called once its radio is the ASIC, of firmware 2; empty
    // where that changes nothing.
    std::string_view asicName{};

    // Beams for antennas, and all that goes with them: the mode types, the heat map,
    // the heights and the echo of the elements, and facts that are built in. It has
    // neither names of ports, block writes, cable loss nor a limit of power on PoE.
    bool arrayReader = false;
    bool amplifierTemperature = true;  // of the power amplifier, told and warned of
    bool takesAntennaCount = false;    // the radio must be told how many antennas there are
    std::uint8_t gpis = 2;             // GPI ports; the engine has other records for four
    std::uint8_t triggerPorts = 0;     // that "startTrigger" may name; 0: any number

    // The delay after selects: whether a mode may ask for one, whether the engine's
    // document shows it, and whether every mode begins without it.
    bool setsDelayAfterSelects = false;
    bool showsDelayAfterSelects = false;
    bool clearsDelayAfterSelects = true;

    // Default of the delay between antenna cycles. Where it is NO_TAGS a mode may not
    // ask for NO_UNIQUE_TAGS, which not every firmware of that radio knows.
    antenna_delay_type_e antennaDelay = antenna_delay_type_e::NO_UNIQUE_TAGS;

    // In tenths of dBm: the default power of a mode, and the most that an antenna may
    // get on a PoE supply, under the standard "US FCC 15" and under any other.
    std::int16_t transmitPowerX10 = DEFAULT_TX_POWER_X10;
    std::int16_t poePowerX10FCC = 300;
    std::int16_t poePowerX10 = 300;

    const link_profiles_t* linkProfiles = nullptr;  // null: one profile for all environments
    bool linkProfilesNeedAutoDetect = false;        // they count only for a radio that can choose one itself
};

// The row of a name, compared exactly; for any other name the row without one. Any
// thread.
const reader_model_s& readerModel(std::string_view name);
inline constexpr reader_model_s otherModel{};

// Entries of a table by antenna number, 0 to 15.
inline constexpr std::size_t portTableSize = 16;

struct reader_facts_s {
    // "PN5100", "PN5100-ASIC", "PN8200", "QDX4400" or any other; empty without a radio.
    std::string modelName;
    const reader_model_s* model = &otherModel;  // the row of that name

    // Name of the active regulatory standard, such as "US FCC 15".
    std::string regulatory_standard;

    // Antennas, or antenna elements on the array reader; 14 at most.
    std::uint16_t max_ants = 14;

    // What the reader claims to transmit and what the radio itself reports, in tenths of
    // dBm. The second is the ceiling of setOlio.
    std::int16_t max_tx_pwr_x_10 = 270;
    std::int16_t rxe_max_tx_pwr_x_10 = 270;

    // Cable loss in tenths of a dB, by antenna number (entry 0 is the first element of the
    // array reader).
    std::array<std::int16_t, portTableSize> cable_loss_compensation_x_10{};

    // 0: 24 V supply, 1: PoE+, 2: PoE, else unknown.
    std::uint16_t power_source = 0;

    // What the firmware can do.
    bool rxeAntennaCheckSupported = false;
    bool rssiFilterSupported = false;
    bool dynamicRangeSupported = false;
    bool cableLossSupported = false;
    bool txDelayIntervalSupported = false;
};
extern reader_facts_s readerFacts;

// Stores the name of the model, and its row.
void setModelName(std::string_view name);

// The row of this reader. Any thread, the tag path included.
inline const reader_model_s& thisModel() {
    return *readerFacts.model;
}

// Any thread.
std::uint16_t getMaxAnts();
bool isValidAntenna(std::uint32_t antenna);  // on the array reader every value
