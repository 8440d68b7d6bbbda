// SPDX-License-Identifier: MIT
// Connects the radio: it learns the versions, the features and what this reader is, writes the
// reader's facts into the radio, takes the snapshot of the channels, registers the callback and
// applies the first mode.
#include <unistd.h>

#include <algorithm>

#include "connection.hpp"
#include "engine_io/channels.hpp"
#include "engine_io/features.hpp"
#include "engine_io/parameter_io.hpp"
#include "logger.hpp"
#include "mode_request.hpp"
#include "radio.hpp"
#include "reader_facts.hpp"
#include "rm_client.hpp"
#include "versions.hpp"

// Written by main() before any other thread exists.
constinit bool use_rxe = true;

// Main thread only.
constinit bool RXE_connected_status = false;
constinit bool RXE_still_connected = false;

namespace {

using rxe_intfc::noteFailure;
using rxe_intfc::tenthsText;
using rxe_intfc::unit;

constexpr auto connectFailure = static_cast<RXE_API_STATUS>(1);

// What the steps below compute for the steps behind them.
struct connect_context_s {
    REL_VERSION_s library{};
    REL_VERSION_s firmware{};
    int reportedPower = 0;  // tenths of dBm
};

// A step returns 0 or the status that ends the connection.
using connect_step_t = RXE_API_STATUS (*)(connect_context_s*);

// Why the connection failed, as one clause. Main thread.
std::string failureCause;

// A failure with a text of its own: counted, logged, and the status passed on.
RXE_API_STATUS fail(std::string_view text, RXE_API_STATUS status = connectFailure) {
    logCountedError(unit, text);
    return status;
}

// A failure of a question to the management server, whose client has the cause.
RXE_API_STATUS failManagement(std::string_view text) {
    failureCause = managementFailure();
    return fail(text);
}

// Stores a status other than 0, and what the engine refused, as the cause. Returns the status.
RXE_API_STATUS note(const char* what, RXE_API_STATUS status) {
    if (status != RXE_OK) {
        failureCause = std::string("the radio engine refused ") + what + ": status " +
                       std::to_string(static_cast<int>(status)) + " (" + RXE_strerror(status) + ")";
    }
    return status;
}

// ------------------------------------------------------------ library and firmware

RXE_API_STATUS learnLibraryVersion(connect_context_s* my) {
    logInfo(unit, " initializing RXE Connection");
    char* text = nullptr;
    const RXE_API_STATUS status = note("RXE_getAPIVerNum", RXE_getAPIVerNum(&my->library, &text));
    if (status == RXE_OK) {
        const REL_VERSION_s& version = my->library;
        set_radio_api_version_string(version.major, version.minor, version.patch, version.build);
        logInfo(unit, " ", get_radio_api_version_string());
    }
    return noteFailure(status);
}

RXE_API_STATUS openLink(connect_context_s*) {
    char device[] = "/dev/ttyS1";
    constexpr unsigned long baud = 460800;
    return noteFailure(note("RXE_connect for /dev/ttyS1", RXE_connect(device, baud)));
}

RXE_API_STATUS learnFirmwareVersion(connect_context_s* my) {
    const RXE_API_STATUS status =
        note("a read of its version", rxe_intfc::readParameter<RXE_PARAM_FW_VERSION>(&my->firmware));
    if (status == RXE_OK) {
        const REL_VERSION_s& version = my->firmware;
        set_radio_fw_version_string(version.major, version.minor, version.patch, version.build);
        logInfo(unit, " ", get_radio_fw_version_string());
    }
    return status;
}

void noteFeature(bool* feature, bool supported, std::string_view yes, std::string_view no) {
    *feature = supported;
    logInfo(unit, supported ? yes : no);
}

RXE_API_STATUS learnFeatures(connect_context_s* my) {
    const REL_VERSION_s* firmware = &my->firmware;
    noteFeature(&readerFacts.rxeAntennaCheckSupported, isRXEAntennaCheckSupported(firmware),
                " RXE Based Antenna Check Supported", " RXE Based Antenna Check NOT Supported");
    noteFeature(&readerFacts.rssiFilterSupported, isRSSIFilterSupported(firmware), " RSSI Filter Supported",
                " RSSI Filter NOT Supported");
    noteFeature(&readerFacts.dynamicRangeSupported, isDynamicRangeSupported(firmware),
                " Dynamic Range Supported", " Dynamic Range NOT Supported");
    noteFeature(&readerFacts.cableLossSupported, isCableLossSupported(firmware, &my->library),
                " Cable Loss Compensation Supported in RXE and API",
                " Cable Loss Compensation NOT Supported in RXE or API");
    noteFeature(&readerFacts.txDelayIntervalSupported, isTxDelayIntervalSupported(firmware),
                " Tx Delay Interval Supported in RXE", " Tx Delay Interval NOT Supported in RXE");
    return RXE_OK;
}

// ---------------------------------------------------------------- what the reader is

// The management server starts at the same time as this process and may not listen yet: 25 ms.
RXE_API_STATUS waitForManagement(connect_context_s*) {
    usleep(25000);
    return RXE_OK;
}

RXE_API_STATUS learnModel(connect_context_s* my) {
    std::string name;
    if (getModel(&name) != 0) {
        return failManagement(" Cannot connect to RM to get Model");
    }
    const std::string_view asicName = readerModel(name).asicName;
    setModelName(my->firmware.major == 2 && !asicName.empty() ? asicName : name);
    logInfo(unit, " Reader is model: ", escaped_s{readerFacts.modelName});
    return RXE_OK;
}

RXE_API_STATUS learnStandard(connect_context_s*) {
    if (getActiveStandardName(&readerFacts.regulatory_standard) != 0) {
        return failManagement(" Cannot connect to RM to get regulatory standard");
    }
    logInfo(unit, " Reader is using ", escaped_s{readerFacts.regulatory_standard}, " regulatory standard");
    return RXE_OK;
}

// The array reader is always the same; the management server is not asked.
constexpr std::uint16_t arrayElements = 14;
constexpr std::int16_t arrayMaxPower = 360;

void logMaxPower() {
    logInfo(unit, " Reader can transmit up to ", tenthsText(readerFacts.max_tx_pwr_x_10), " dbm");
}

RXE_API_STATUS setArrayFacts(connect_context_s*) {
    readerFacts.max_ants = arrayElements;
    logInfo(unit, " Reader has ", readerFacts.max_ants, " antenna elements");
    readerFacts.max_tx_pwr_x_10 = arrayMaxPower;
    logMaxPower();
    readerFacts.cable_loss_compensation_x_10.fill(0);
    for (unsigned element = 0; element < arrayElements; ++element) {
        logInfo(unit, " Cable Loss Compensation for antenna element ", element, " is ",
                tenthsText(readerFacts.cable_loss_compensation_x_10[element]), " db");
    }
    return RXE_OK;
}

constexpr std::string_view supplyLines[] = {
    " Reader is powered by 24V supply",
    " Reader is powered by POE+",
    " Reader is powered by POE",
};

RXE_API_STATUS learnReaderDetails(connect_context_s* my) {
    constexpr int maxPorts = 14;
    int ports = 0;
    int source = 0;
    if (getReaderDetails(&ports, &my->reportedPower, &source) != 0) {
        return failManagement(" Cannot connect to RM to get Reader Details");
    }
    if (ports < 0 || ports > maxPorts) {
        failureCause = "the Reader Management server gives this reader " + std::to_string(ports) + " ports";
        return fail(" Reader claims to have " + std::to_string(ports) +
                    " antennas but we only expect up to " + std::to_string(maxPorts));
    }
    readerFacts.max_ants = static_cast<std::uint16_t>(ports);
    logInfo(unit, " Reader has ", readerFacts.max_ants, " antennas");
    if (source >= 0 && static_cast<std::size_t>(source) < std::size(supplyLines)) {
        logInfo(unit, supplyLines[source]);
    } else {
        logInfo(unit, " Reader is powered by unknown source (", source, ")");
    }
    readerFacts.power_source = static_cast<std::uint16_t>(source);
    return RXE_OK;
}

// ------------------------------------------------------------ the facts into the radio

RXE_API_STATUS tellAntennaCount(connect_context_s*) {
    if (!thisModel().takesAntennaCount ||
        note("the number of antennas", RXE_setParam(RXE_PARAM_NUM_ANTENNAS, &readerFacts.max_ants)) ==
            RXE_OK) {
        return RXE_OK;
    }
    if (readerFacts.rxeAntennaCheckSupported) {
        return fail(" Failed to set the number of antennas on the PN5100");
    }
    logCountedWarning(unit, " Failed to set the number of antennas on the PN5100 using old radio Firmware");
    return RXE_OK;
}

// Quirk: a failure ends the connection although it is logged as a warning. Without its antenna check
// the radio would transmit into open ports.
RXE_API_STATUS tellAntennaCheck(connect_context_s*) {
    std::uint8_t interval = 5;
    if (!readerFacts.rxeAntennaCheckSupported ||
        note("the interval of the antenna check", RXE_setParam(RXE_PARAM_ANTENNA_CHECK, &interval)) ==
            RXE_OK) {
        return RXE_OK;
    }
    logCountedWarning(unit, " Failed to set the antennaCheckInterval, could be old RXE FW");
    return connectFailure;
}

RXE_API_STATUS tellCableLosses(connect_context_s* my) {
    readerFacts.max_tx_pwr_x_10 = static_cast<std::int16_t>(my->reportedPower);
    logMaxPower();
    for (int antenna = 1; antenna <= readerFacts.max_ants; ++antenna) {
        int lossPerHundredFt = 0;
        int cableLength = 0;
        if (getCableLossCompensation(antenna, &lossPerHundredFt, &cableLength) != 0) {
            return failManagement(" Cannot connect to RM to get Cable Loss Compensation");
        }
        std::int16_t& loss = readerFacts.cable_loss_compensation_x_10[static_cast<std::size_t>(antenna)];
        const long long tenths = static_cast<long long>(cableLength) * lossPerHundredFt / 10;
        loss = static_cast<std::int16_t>(tenths);
        logInfo(unit, " Cable Loss Compensation for antenna ", antenna, " is ", tenthsText(loss), " db");
        auto byte = static_cast<std::uint8_t>(std::clamp<int>(loss, 0, 255));
        RXE_setParam(static_cast<unsigned short>(RXE_PARAM_CABLE_LOSS + antenna), &byte);
    }
    return RXE_OK;
}

RXE_API_STATUS learnRadioPower(connect_context_s*) {
    std::uint32_t power = 0;
    const RXE_API_STATUS status =
        note("a read of its largest power", RXE_getParam(RXE_PARAM_MAX_TX_POWER, &power));
    if (status != RXE_OK) {
        return fail(" Failed to get the maximum RXE transmit power", status);
    }
    readerFacts.rxe_max_tx_pwr_x_10 = static_cast<std::int16_t>(power & 0xFFFF);
    logInfo(unit, " Maximum RXE Transmit Power is ", tenthsText(readerFacts.rxe_max_tx_pwr_x_10), " dbm");
    return RXE_OK;
}

// The limit is 131 degrees Celsius as the radio encodes it (RXE_NVM_*). Quirk: the line shows this
// byte as a character.
RXE_API_STATUS tellTemperatureWarning(unsigned short id, const std::string& name) {
    std::uint8_t limit = 131;
    const RXE_API_STATUS status = note("the limit of a temperature warning", RXE_setNVMParam(id, &limit));
    if (status != RXE_OK) {
        return fail(" Failed to set " + name + " Hi Temperature warning", status);
    }
    logInfo(unit, " " + name + " Hi Temperature warning set to ", static_cast<char>(limit));
    return RXE_OK;
}

RXE_API_STATUS tellAmbientWarning(connect_context_s*) {
    return tellTemperatureWarning(RXE_NVM_AMB_HI_TEMP, "Ambient");
}

RXE_API_STATUS tellAmplifierWarning(connect_context_s*) {
    return thisModel().amplifierTemperature ? tellTemperatureWarning(RXE_NVM_PA_HI_TEMP, "PA") : RXE_OK;
}

// --------------------------------------------------------------- channels, callback, mode

RXE_API_STATUS snapshotChannels(connect_context_s*) {
    return note("a read of its channels", getInitialChannels()) == RXE_OK ? RXE_OK : connectFailure;
}

RXE_API_STATUS registerCallback(connect_context_s*) {
    initial_channel_state = true;
    radio::packetRxCount.store(0, std::memory_order_relaxed);
    const RXE_API_STATUS status = note("RXE_setCallback", RXE_setCallback(getPacket));
    return noteFailure(status) == RXE_OK ? RXE_OK : connectFailure;
}

RXE_API_STATUS applyStartingMode(connect_context_s*) {
    const RXE_API_STATUS status = note("its first configuration", initialRXEConfiguration());
    return status == RXE_OK ? RXE_OK : connectFailure;
}

// A step that fails while the link is open closes it. The facts of the array reader are built in;
// the other models ask the management server for them.
enum class models_e : std::uint8_t { all, arrayReader, others };
struct step_s {
    connect_step_t run;
    models_e models = models_e::all;
    bool linkIsOpen = true;
};
constexpr step_s connectSteps[] = {
    {learnLibraryVersion, models_e::all, false},
    {openLink, models_e::all, false},
    {learnFirmwareVersion},
    {learnFeatures},
    {waitForManagement},
    {learnModel},
    {learnStandard},
    {setArrayFacts, models_e::arrayReader},
    {learnReaderDetails, models_e::others},
    {tellAntennaCount, models_e::others},
    {tellAntennaCheck, models_e::others},
    {tellCableLosses, models_e::others},
    {learnRadioPower},
    {tellAmbientWarning},
    {tellAmplifierWarning},
    {snapshotChannels},
    {registerCallback},
    {applyStartingMode},
};

bool isForThisModel(models_e models) {
    return models == models_e::all || (models == models_e::arrayReader) == thisModel().arrayReader;
}

}  // namespace

RXE_API_STATUS initRXEConnection() {
    connect_context_s my;
    for (const step_s& step : connectSteps) {
        if (!isForThisModel(step.models)) {
            continue;
        }
        if (const RXE_API_STATUS status = step.run(&my); status != RXE_OK) {
            if (step.linkIsOpen) {
                RXE_disconnect();
            }
            return status;
        }
    }
    RXE_connected_status = true;
    RXE_still_connected = true;
    return RXE_OK;
}

const std::string& connectionFailureCause() {
    return failureCause;
}

void closeRXEConnection() {
    if (noteFailure(RXE_disconnect()) == RXE_OK) {
        RXE_connected_status = false;
    }
}

bool check_RXE_connection() {
    // Packets at the last call. Main thread.
    static std::uint64_t lastCount = 0;
    const std::uint64_t count = radio::packetRxCount.load(std::memory_order_relaxed);
    if (count != lastCount) {
        lastCount = count;
        RXE_still_connected = true;
    } else {
        std::array<std::uint8_t, 256> unread{};
        RXE_still_connected = RXE_getParam(RXE_PARAM_LIVENESS, unread.data()) == RXE_OK;
    }
    return RXE_still_connected;
}

std::uint64_t get_num_RXE_packets_since_last_time() {
    // Packets at the last call. Main thread.
    static std::uint64_t lastCount = 0;
    const std::uint64_t count = radio::packetRxCount.load(std::memory_order_relaxed);
    const std::uint64_t difference = count > lastCount ? count - lastCount : lastCount - count;
    lastCount = count;
    return difference;
}
