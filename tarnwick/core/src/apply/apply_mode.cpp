// SPDX-License-Identifier: MIT
// From a mode to the state of the engine. Selects, inventory sets and accesses are written once
// and shared; each antenna gets one olio, and the masks of the olio say which of them it uses.
#include <algorithm>

#include "apply/apply.hpp"
#include "apply/engine_params.hpp"
#include "apply/steps.hpp"
#include "engine_io/olios.hpp"
#include "engine_io/operations.hpp"
#include "engine_io/packets.hpp"
#include "engine_io/parameter_io.hpp"
#include "engine_io/parameters.hpp"
#include "logger.hpp"
#include "mode/accessors.hpp"
#include "mode/record.hpp"
#include "reader_facts.hpp"
#include "util.hpp"

namespace {

using apply::apply_context_s;
using apply::apply_step_t;
using apply::engineFailure;
using apply::fail;
using apply::writeAccesses;
using apply::writeOlios;
using rxe_intfc::unit;

// ------------------------------------------------------------- what the mode asks

int collectPerAntenna(apply_context_s* my) {
    const std::size_t count = my->mode.antennas.size();
    if (getRequestedTxPwrX10(my->mode, &my->powers) != count) {
        return fail(my, -1, "Failure: transmitPower could not be applied to all antennas");
    }
    if (getLinkProfile(my->mode, &my->linkProfiles) != count) {
        return fail(my, -1, "Failure: linkProfile could not be applied to all antennas");
    }
    if (getInventoryParams(my->mode, &my->inventoryParams) == 0) {
        return fail(my, -1, "Failure: inventory params could not be applied to all antennas");
    }
    if (getInventoryParamIds(my->mode, &my->inventoryIds) != count) {
        return fail(my, -1, "Failure: inventory param ID could not be applied to all antennas");
    }
    return 0;
}

bool hasPrefix(const tagFilter_s& filter) {
    return filter.enabled != 0 && filter.match == filter_match_e::PREFIX;
}

// The engine can test a prefix itself, as a select on the EPC.
int collectPrefix(apply_context_s* my) {
    const tagFilter_s& filter = my->mode.tagFilter;
    if (hasPrefix(filter)) {
        for (std::size_t i = 0; i + 1 < filter.value.size(); i += 2) {
            my->prefix.push_back(hex2int(filter.value[i], filter.value[i + 1]));
        }
    }
    return 0;
}

int collectOperations(apply_context_s* my) {
    if (isRawSelectEnabled(&my->mode) && getSelectParams(my->mode, &my->selectMask, &my->selects) < 0) {
        return fail(my, -1, "Failure: too many select parameters requested");
    }
    if (isAnyAccessEnabled(&my->mode) && getAccessParams(my->mode, &my->accessMask, &my->accesses) < 0) {
        return fail(my, -1, "Failure: too many access parameters requested");
    }
    return 0;
}

// --------------------------------------------------------- selects and inventory

int wipePreviousMode(apply_context_s*) {
    baselineRXEConfiguration(false);
    return 0;
}

int writePrefixSelect(apply_context_s* my) {
    const tagFilter_s& filter = my->mode.tagFilter;
    if (!hasPrefix(filter)) {
        return 0;
    }
    // Action 0 sets the flag of matching tags to A and that of the others to B, action 4 the
    // reverse (EPC Gen2, 6.3.2.12.1.1). The query asks for B. The EPC begins at bit 20h of its bank,
    // behind CRC and PC.
    const bool exclude = filter.operation == filter_operation_e::EXCLUDE;
    constexpr std::uint8_t sessionS1 = 1;
    constexpr std::uint8_t bankEPC = 1;
    constexpr std::uint16_t firstEpcBit = 0x20;
    SELECT_OP_s select{};
    select.enable = 1;
    select.target = sessionS1;
    select.action = exclude ? 0 : 4;
    select.membank = bankEPC;
    select.pointer = firstEpcBit;
    select.length = static_cast<std::uint8_t>((my->prefix.size() & 31) * 8);
    std::copy_n(my->prefix.begin(), select.length / 8, select.mask);
    const RXE_API_STATUS status = setSelect(1, select);
    my->selectMask = 1;
    return engineFailure(my, exclude ? -2 : -1, status, "select error");
}

int writeSelects(apply_context_s* my) {
    for (std::size_t i = 0; i < my->selects.size(); ++i) {
        SELECT_OP_s select = my->selects[i];
        select.enable = 1;
        const RXE_API_STATUS status = setSelect(static_cast<std::uint8_t>(i + 1), select);
        if (status != RXE_OK) {
            return engineFailure(my, -1, status, "select error");
        }
    }
    return 0;
}

int writeDelayAfterSelects(apply_context_s* my) {
    if (my->mode.delayAfterSelects == 0) {
        return 0;
    }
    const auto microseconds = static_cast<std::uint16_t>(my->mode.delayAfterSelects * 1000);
    return engineFailure(my, -1, setDelayAfterSelectsInterval(microseconds), "delayAfterSelects error");
}

int writeInventoryParams(apply_context_s* my) {
    constexpr std::size_t maxId = 0xFF;
    for (std::size_t i = 0; i < my->inventoryParams.size(); ++i) {
        const c1g2_info_s& info = my->inventoryParams[i];
        const RXE_API_STATUS status =
            i < maxId ? setInvParams(static_cast<std::uint8_t>(i + 1), 1, info.sel, info.session, info.target,
                                     info.initialQ)
                      : rxe_intfc::noteFailure(rxe_intfc::refused, " too many inventory params");
        if (status != RXE_OK) {
            return engineFailure(my, -4, status, "invParam error");
        }
    }
    return 0;
}

// ------------------------------------------------------------------- packet types

RXE_API_STATUS switchPacketType(std::uint16_t type, bool enable) {
    const std::uint16_t id = RXE_PACKET_ID(type);
    return enable ? enablePacketType(id) : disablePacketType(id);
}

int switchAccessReports(apply_context_s* my) {
    switchPacketType(RXE_PACKET_ACCESS_INFO, !my->accesses.empty());
    return 0;
}

// ------------------------------------------------------------------ start and stop

int writeRadioStop(apply_context_s* my) {
    return engineFailure(my, -6, setRadioStopConditions(&my->mode.radioStopConditions),
                         "radio stop condition error");
}

int writeGpioDirection(apply_context_s* my) {
    constexpr std::uint8_t allInputs = 0xFF;
    return engineFailure(my, -7, setGPIODir(allInputs), "gpio direction error");
}

int writeAutorestart(apply_context_s* my) {
    const bool restarts = my->mode.radioStartConditions.type == radio_start_type_e::GPI_WITH_RESTART;
    const std::uint8_t restart = restarts ? 2 : 0;
    return engineFailure(my, -6, rxe_intfc::writeParameter<RXE_PARAM_AUTORESTART>(restart),
                         "autorestart error");
}

int writeGpioStart(apply_context_s* my) {
    const radioStartConditions_s& start = my->mode.radioStartConditions;
    const std::vector<gpi_s>* gpis = &start.gpis;
    const bool byGpi =
        start.type == radio_start_type_e::GPI || start.type == radio_start_type_e::GPI_WITH_RESTART;
    const RXE_API_STATUS status =
        setGPIOStart(byGpi ? getGPIBitMask(gpis) : 0, getGPIHoldTime(1, gpis), getGPIHoldTime(2, gpis),
                     getGPIHoldTime(3, gpis), getGPIHoldTime(4, gpis));
    return engineFailure(my, -8, status, "gpio start error");
}

int writeTxDelay(apply_context_s* my) {
    if (!readerFacts.txDelayIntervalSupported) {
        return 0;
    }
    const delay_between_antenna_cycles_s& delay = my->mode.delayBetweenAntennaCycles;
    return engineFailure(my, -10, setTxDelayInterval(static_cast<std::uint8_t>(delay.type), delay.duration),
                         "Tx Delay Interval error");
}

// ------------------------------------------------------------------ what is reported

// The engine knows tags by their EPC alone, so its filter is off when the mode has additional keys,
// and when the duration is 0: the daemon then decides about duplicates.
int writeReportFilter(apply_context_s* my) {
    const reportFilter_s& filter = my->mode.reportFilter;
    RXE_API_STATUS status = RXE_OK;
    if (filter.type == report_filter_type_e::NONE) {
        status = disableLastReportedFilter();
    } else if (filter.duration == 0 || !filter.addlKeys.empty()) {
        logInfo(unit, " Addl Keys provided - Disabling RXE report filter");
        status = disableLastReportedFilter();
    } else {
        status = enableLastReportedFilter(static_cast<std::uint8_t>(filter.type), filter.duration);
    }
    return engineFailure(my, -10, status, "lastReportFilter error");
}

int writeCustomFields(apply_context_s* my) {
    return engineFailure(my, -11, setCustomFields(my->mode.customFieldsBitMask), "customFields error");
}

int switchChannelReports(apply_context_s* my) {
    return engineFailure(my, -12, switchPacketType(RXE_PACKET_CW_ON, my->mode.reportChannel),
                         "channel reporting error");
}

std::uint16_t unsignedTenths(double value) {
    return static_cast<std::uint16_t>(std::clamp(value * 10, 0.0, 65535.0));
}

int writeArrayReader(apply_context_s* my) {
    if (!thisModel().arrayReader) {
        return 0;
    }
    const RXE_API_STATUS status = switchPacketType(RXE_PACKET_PARALLEL_RSSI_DEBUG, my->mode.reportHeatmap);
    if (status != RXE_OK) {
        return engineFailure(my, -13, status, "parallel rssi debug error");
    }
    const portalDirConfig_s& portal = my->mode.portalDirConfig;
    if (portal.enabled != 0) {
        setAARHeightX10(unsignedTenths(portal.aarHeight));
        setTagHeightX10(unsignedTenths(portal.tagHeight));
        setStaticVDynamic(static_cast<std::uint8_t>(portal.staticVDynamic));
    }
    return 0;
}

int writeDynamicRange(apply_context_s* my) {
    constexpr std::uint8_t highRange = 2;
    if (!readerFacts.dynamicRangeSupported ||
        my->mode.environment != ENVIRONMENT_PARAMS_e::VERY_HIGH_INTERFERENCE) {
        return 0;
    }
    return engineFailure(my, -14, setDynamicRange(highRange), "dynamic range error");
}

int writeRssiThreshold(apply_context_s* my) {
    if (!readerFacts.rssiFilterSupported) {
        return 0;
    }
    return engineFailure(my, -12, setRSSIDetectThreshold(my->mode.rssiFilter.threshold),
                         "rssi detect threshold");
}

// In this order: a step may need those above it, and the engine gets its writes in this order.
constexpr apply_step_t applySteps[] = {
    collectPerAntenna,      collectPrefix,        collectOperations,
    wipePreviousMode,       writePrefixSelect,    writeSelects,
    writeDelayAfterSelects, writeInventoryParams, writeAccesses,
    switchAccessReports,    writeOlios,           writeRadioStop,
    writeGpioDirection,     writeAutorestart,     writeGpioStart,
    writeTxDelay,           writeReportFilter,    writeCustomFields,
    switchChannelReports,   writeArrayReader,     writeDynamicRange,
    writeRssiThreshold,
};

}  // namespace

int apply::fail(apply_context_s* my, int code, std::string text) {
    *my->reply = std::move(text);
    return code;
}

int apply::engineFailure(apply_context_s* my, int code, RXE_API_STATUS status, const std::string& what) {
    if (status == RXE_OK) {
        return 0;
    }
    return fail(my, code,
                "Failure: Failed to set " + what + sprintfStr(" 0x%04x", static_cast<unsigned>(status)));
}

RXE_API_STATUS setRadioStopConditions(const radioStopConditions_s* conditions) {
    std::uint16_t tagCount = conditions->tagCount;
    if (tagCount == 0 && conditions->noMoreUniqueTags != 0) {
        tagCount = static_cast<std::uint16_t>(RXE_NO_MORE_UNIQUE_TAGS_BASE + conditions->noMoreUniqueTags);
    }
    const std::vector<gpi_s>* gpis = &conditions->gpis;
    return setGlobalStopConditions(conditions->duration, conditions->olioLoops, tagCount, getGPIBitMask(gpis),
                                   getGPIHoldTime(1, gpis), getGPIHoldTime(2, gpis), getGPIHoldTime(3, gpis),
                                   getGPIHoldTime(4, gpis));
}

int configureRXEForMode(const mode_configuration_s& mode, std::string* reply) {
    logInfo(unit, " Configure RXE for mode");
    apply_context_s my{.mode = mode, .reply = reply};
    for (const apply_step_t step : applySteps) {
        if (const int code = step(&my); code != 0) {
            return code;
        }
    }
    *reply = "Success";
    return 0;
}
