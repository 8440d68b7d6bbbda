// SPDX-License-Identifier: MIT
// The known state that every mode starts from.
#include <algorithm>
#include <nlohmann/json.hpp>

#include "apply/apply.hpp"
#include "engine_io/channels.hpp"
#include "engine_io/olios.hpp"
#include "engine_io/operations.hpp"
#include "engine_io/packets.hpp"
#include "engine_io/parameter_io.hpp"
#include "engine_io/parameters.hpp"
#include "logger.hpp"
#include "mode/defaults.hpp"
#include "radio.hpp"
#include "reader_facts.hpp"

namespace {

using rxe_intfc::unit;

// Of a full baseline only.
constexpr RXE_API_STATUS (*wipes[])() = {disableAllPackets, disableAllSelects, disableAllAccessOps};

RXE_API_STATUS setBaseFields() {
    return setCustomFields(DEFAULT_CUSTOM_FIELDS);
}

RXE_API_STATUS enableBasePackets() {
    for (const std::uint16_t type : basePackets()) {
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
    return readerFacts.dynamicRangeSupported ? setDynamicRange(normalDynamicRange) : RXE_OK;
}

// Some firmware of a radio whose default is NO_TAGS does not know NO_UNIQUE_TAGS. When it refuses
// that, NO_TAGS is written in its place.
RXE_API_STATUS setBaseTxDelay() {
    constexpr auto noReads = static_cast<std::uint8_t>(antenna_delay_type_e::NO_TAGS);
    constexpr auto noUniqueReads = static_cast<std::uint8_t>(antenna_delay_type_e::NO_UNIQUE_TAGS);
    if (!readerFacts.txDelayIntervalSupported) {
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
