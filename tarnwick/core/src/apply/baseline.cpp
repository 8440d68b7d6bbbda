// SPDX-License-Identifier: MIT
// The known state that every mode starts from, and the starting mode.
#include <algorithm>
#include <nlohmann/json.hpp>

#include "engine_io/parameter_io.hpp"
#include "json_fields.hpp"
#include "logger.hpp"
#include "mode_config.hpp"
#include "reader_facts.hpp"
#include "rxe_intfc.hpp"
#include "util.hpp"

namespace {

using rxe_intfc::unit;

// Packets that alarms, events, the heartbeat and every report need, in the
// order in which they are enabled.
constexpr std::uint16_t basePackets[] = {
    RXE_PACKET_ANT_DISCONNECT_ALARM,
    RXE_PACKET_ANT_CONNECT_ALARM,
    RXE_PACKET_AMB_TEMP_HI_ALARM,
    RXE_PACKET_AMB_TEMP_CRIT_ALARM,
    RXE_PACKET_PA_TEMP_HI_ALARM,
    RXE_PACKET_PA_TEMP_CRIT_ALARM,
    RXE_PACKET_FWD_PWR_HI_ALARM,
    RXE_PACKET_FWD_PWR_LO_ALARM,
    RXE_PACKET_ANTENNA_INFO,
    RXE_PACKET_GPIO_INFO,
    RXE_PACKET_DB_WARNING,
    RXE_PACKET_DB_ERROR,
    RXE_PACKET_START_INFO3,
    RXE_PACKET_CMD_ONGOING,
    RXE_PACKET_INV_BEGIN,
};

// Of a full baseline only.
constexpr RXE_API_STATUS (*wipes[])() = {disableAllPackets, disableAllSelects, disableAllAccessOps};

RXE_API_STATUS setBaseFields() {
    return setCustomFields(DEFAULT_CUSTOM_FIELDS);
}

RXE_API_STATUS enableBasePackets() {
    for (const std::uint16_t type : basePackets) {
        if (const RXE_API_STATUS status = enablePacketType(RXE_PACKET_ID(type)); status != RXE_OK) {
            return status;
        }
    }
    return RXE_OK;
}

RXE_API_STATUS clearDelayAfterSelects() {
    return thisModel().clearsDelayAfterSelects ? setDelayAfterSelectsInterval(0) : RXE_OK;
}

constexpr std::uint8_t normalDynamicRange = 1;
RXE_API_STATUS setBaseDynamicRange() {
    return dynamicRangeSupported ? setDynamicRange(normalDynamicRange) : RXE_OK;
}

// Where the radio may know only the delay after rounds without reads, that is the
// second choice.
RXE_API_STATUS setBaseTxDelay() {
    constexpr auto noReads = static_cast<std::uint8_t>(antenna_delay_type_e::NO_TAGS);
    constexpr auto noUniqueReads = static_cast<std::uint8_t>(antenna_delay_type_e::NO_UNIQUE_TAGS);
    if (!txDelayIntervalSupported) {
        return RXE_OK;
    }
    const RXE_API_STATUS status = setTxDelayInterval(noUniqueReads, DEFAULT_DELAY_BETWEEN_ANT_CYCLES);
    if (status != RXE_OK && thisModel().antennaDelay == antenna_delay_type_e::NO_TAGS) {
        return setTxDelayInterval(noReads, DEFAULT_DELAY_BETWEEN_ANT_CYCLES);
    }
    return status;
}

constexpr RXE_API_STATUS (*baselineSteps[])() = {
    disableOlios,  disableHopPerRound, resetInitialChannels,   disableLastReportedFilter,
    setBaseFields, enableBasePackets,  clearDelayAfterSelects, setBaseDynamicRange,
    setBaseTxDelay};

template <std::size_t size>
RXE_API_STATUS runAll(RXE_API_STATUS (*const (&steps)[size])()) {
    for (const auto step : steps) {
        if (const RXE_API_STATUS status = step(); status != RXE_OK) {
            return status;
        }
    }
    return RXE_OK;
}

constexpr const char* defaultRequest = R"({"type":"SIMPLE"})";

bool isSuccess(const std::string& reply) {
    return reply.find("Success") != std::string::npos;
}

// What the last run has left. A file that cannot be used is still worth keeping,
// unless it tells nothing but the default.
struct starting_mode_s {
    std::string request = defaultRequest;
    bool isFromFile = false;
    bool isWorthKeeping = false;
};

starting_mode_s startingMode() {
    std::string text;
    std::string reason;
    if (readRegularFile(modeFile, &text, &reason) != file_read_e::done) {
        if (reason.empty()) {
            return {};  // the first start
        }
        logUncountedWarning(unit, " The stored mode is not used: ", reason);
        return {.isWorthKeeping = true};
    }
    nlohmann::json document;
    if (!parseJsonText(text, &document, &reason)) {
        logInfo(unit, " Error parsing mode_config.json. Using Default configuration (", escaped_s{reason},
                ")");
        return {.isWorthKeeping = !text.empty()};
    }
    const auto mode = document.find("mode");
    if (mode == document.end()) {
        return {.isWorthKeeping = true};
    }
    const std::string request = mode->dump();
    return {request, true, request != defaultRequest};
}

// Moves the stored mode out of the way of the default. Returns whether it is safe.
bool keepStoredMode() {
    std::string kept;
    std::string cause;
    if (!keepFileAs(modeFile, ".refused", &kept, &cause)) {
        logUncountedError(unit, " The default mode is not stored, since the stored mode cannot be kept as ",
                          kept, ": ", cause);
        return false;
    }
    logUncountedWarning(unit, " The stored mode could not be applied. It is kept as ", kept);
    return true;
}

// Has a mode request carried out as if a client had sent it.
std::string requestMode(const std::string& request) {
    std::vector<std::string> tokens{"mode", request};
    std::string reply;
    handleModeRequest(&tokens, &reply);
    return reply;
}

// The same with the default in the place of a stored mode. When that fails as well,
// the next start finds the stored mode where it was.
std::string requestDefault(bool isStoredWorthKeeping) {
    if (!isStoredWorthKeeping) {
        return requestMode(defaultRequest);
    }
    nlohmann::json root;
    std::string reply;
    if (applyModeRequest(defaultRequest, &root, &reply) == 0 && keepStoredMode()) {
        storeModeRequest(std::move(root));
    }
    return reply;
}

}  // namespace

RXE_API_STATUS baselineRXEConfiguration(bool full) {
    logInfo(unit, " Configure Baseline RXE Configuration");
    if (full) {
        if (const RXE_API_STATUS status = runAll(wipes); status != RXE_OK) {
            return status;
        }
    }
    return runAll(baselineSteps);
}

RXE_API_STATUS initialRXEConfiguration() {
    const RXE_API_STATUS status = baselineRXEConfiguration(true);
    const starting_mode_s start = startingMode();
    logInfo(unit, " Initial Config: ", escaped_s{start.request});
    const std::string reply =
        start.isFromFile ? requestMode(start.request) : requestDefault(start.isWorthKeeping);
    logInfo(unit, " Response: ", escaped_s{reply});
    if (!isSuccess(reply)) {
        logCountedWarning(unit, " Error with mode_config.json file. Using Default configuration (",
                          escaped_s{reply}, ")");
        requestDefault(start.isWorthKeeping);
    }
    return status;
}
