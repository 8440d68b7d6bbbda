// SPDX-License-Identifier: MIT
// From the mode in force to engine state. Selects, inventory sets and accesses
// are written once and shared; what tells antennas apart are the masks on the
// one olio that each of them gets.
#include <algorithm>
#include <string_view>

#include "logger.hpp"
#include "mode_config.hpp"
#include "radio.hpp"
#include "rxe_intfc.hpp"
#include "rxe_intfc/parameter_io.hpp"
#include "util.hpp"

// The accesses the engine was told. Written by the main thread under holdPackets,
// read by the engine thread.
constinit std::array<ACCESS_OP_s, accessTableSize> enabledAccessOps{};
constinit std::array<std::uint64_t, olioTableSize> enabledAccessOpsPerOlio{};
constinit std::uint32_t accessParamsEnabledCount = 0;

namespace {

using rxe_intfc::unit;

// What the steps below hand on to each other, for one call.
struct apply_context_s {
    std::string* reply = nullptr;
    std::vector<std::uint32_t> antennas;
    tagFilter_s tagFilter;
    reportFilter_s reportFilter;
    delay_between_antenna_cycles_s delayBetweenAntCycles;
    std::vector<std::int16_t> powers;         // by antenna position, tenths of dBm
    std::vector<std::uint16_t> linkProfiles;  // by antenna position
    std::vector<c1g2_info_s> inventoryParams;
    std::vector<std::uint8_t> inventoryIds;  // by antenna position
    std::uint32_t delayAfterSelects = 0;     // ms
    bool hasPrefix = false;
    std::vector<std::uint8_t> prefix;
    std::uint32_t selectMask = 0;  // of all antennas, unless they differ
    std::vector<SELECT_OP_s> selects;
    std::uint64_t accessMask = 0;  // the same
    std::vector<ACCESS_OP_s> accesses;
    bool hasPortalDir = false;
    portalDirConfig_s portalDir;
    radioStartConditions_s startConditions;
};

// A step returns 0, or the code of the whole function with the reply filled.
using apply_step_t = int (*)(apply_context_s*);

int fail(apply_context_s* my, int code, std::string text) {
    *my->reply = std::move(text);
    return code;
}

// The failure of an engine call; 0 for status 0.
int engineFailure(apply_context_s* my, int code, RXE_API_STATUS status, const std::string& what) {
    if (status == RXE_OK) {
        return 0;
    }
    return fail(my, code,
                "Failure: Failed to set " + what + sprintfStr(" 0x%04x", static_cast<unsigned>(status)));
}

// ------------------------------------------------------------- what the mode asks

int collectLists(apply_context_s* my) {
    getAntennas(&my->antennas);
    getTagFilter(&my->tagFilter);
    getReportFilter(&my->reportFilter);
    getDelayBetweenAntCycles(&my->delayBetweenAntCycles);
    return 0;
}

int collectPerAntenna(apply_context_s* my) {
    const std::size_t count = my->antennas.size();
    if (getRequestedTxPwrX10(&my->powers) != count) {
        return fail(my, -1, "Failure: transmitPower could not be applied to all antennas");
    }
    if (getLinkProfile(&my->linkProfiles) != count) {
        return fail(my, -1, "Failure: linkProfile could not be applied to all antennas");
    }
    if (getInventoryParams(&my->inventoryParams) == 0) {
        return fail(my, -1, "Failure: inventory params could not be applied to all antennas");
    }
    if (getInventoryParamIds(&my->inventoryIds) != count) {
        return fail(my, -1, "Failure: inventory param ID could not be applied to all antennas");
    }
    if (getDelayAfterSelects(&my->delayAfterSelects) != 0) {
        return fail(my, -1, "Failure: delayAfterSelects could not be found");
    }
    return 0;
}

// A prefix is what the engine can test itself, as a select on the EPC.
int collectPrefix(apply_context_s* my) {
    my->hasPrefix = my->tagFilter.enabled != 0 && my->tagFilter.match == filter_match_e::PREFIX;
    if (my->hasPrefix) {
        const std::string& digits = my->tagFilter.value;
        for (std::size_t i = 0; i + 1 < digits.size(); i += 2) {
            my->prefix.push_back(hex2int(digits[i], digits[i + 1]));
        }
    }
    return 0;
}

int collectOperations(apply_context_s* my) {
    if (isRawSelectEnabled() && getSelectParams(&my->selectMask, &my->selects) < 0) {
        return fail(my, -1, "Failure: too many select parameters requested");
    }
    if (isAnyAccessEnabled() && getAccessParams(&my->accessMask, &my->accesses) < 0) {
        return fail(my, -1, "Failure: too many access parameters requested");
    }
    return 0;
}

int collectPortalDir(apply_context_s* my) {
    my->hasPortalDir = isPortalDirEnabled();
    if (my->hasPortalDir) {
        getPortalDirConfig(&my->portalDir);
    }
    return 0;
}

// --------------------------------------------------------- selects and inventory

int wipePreviousMode(apply_context_s*) {
    baselineRXEConfiguration(false);
    return 0;
}

int writePrefixSelect(apply_context_s* my) {
    if (!my->hasPrefix) {
        return 0;
    }
    // Action 0 moves the matching tags to A and the others to B, action 4 the
    // reverse (EPC Gen2, 6.3.2.12.1.1).
    const bool exclude = my->tagFilter.operation == filter_operation_e::EXCLUDE;
    constexpr std::uint8_t sessionS1 = 1;
    constexpr std::uint8_t bankEPC = 1;
    constexpr std::uint16_t firstEpcBit = 0x20;
    const auto length = static_cast<std::uint8_t>((my->prefix.size() & 31) * 8);
    const RXE_API_STATUS status =
        setSelect(1, 1, sessionS1, exclude ? 0 : 4, bankEPC, firstEpcBit, length, my->prefix.data(), 0);
    my->selectMask = 1;
    return engineFailure(my, exclude ? -2 : -1, status, "select error");
}

int writeSelects(apply_context_s* my) {
    for (std::size_t i = 0; i < my->selects.size(); ++i) {
        const SELECT_OP_s& op = my->selects[i];
        const RXE_API_STATUS status = setSelect(static_cast<std::uint8_t>(i + 1), 1, op.target, op.action,
                                                op.membank, op.pointer, op.length, op.mask, op.truncate);
        if (status != RXE_OK) {
            return engineFailure(my, -1, status, "select error");
        }
    }
    return 0;
}

int writeDelayAfterSelects(apply_context_s* my) {
    if (my->delayAfterSelects == 0) {
        return 0;
    }
    const auto microseconds = static_cast<std::uint16_t>(my->delayAfterSelects * 1000);
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

// ------------------------------------------------------------------------ accesses

struct access_writer_s {
    std::uint8_t type;
    std::string_view name;
    RXE_API_STATUS (*write)(std::uint8_t id, const ACCESS_OP_s& op);
};

constexpr access_writer_s accessWriters[] = {
    {RXE_ACCESS_READ, "read",
     [](std::uint8_t id, const ACCESS_OP_s& op) {
         return setAccessRead(id, op.enable, op.membank, op.wordPointer,
                              static_cast<std::uint8_t>(op.wordCount & 0xFF));
     }},
    {RXE_ACCESS_WRITE, "write",
     [](std::uint8_t id, const ACCESS_OP_s& op) {
         return setAccessWrite(id, op.enable, op.membank, op.wordPointer, op.wordCount);
     }},
    {RXE_ACCESS_MULTIWORD_WRITE, "multiword write",
     [](std::uint8_t id, const ACCESS_OP_s& op) {
         return setAccessMultiWordWrite(id, op.enable, op.membank, op.wordPointer, op.wordCount, op.data);
     }},
    {RXE_ACCESS_BLOCK_WRITE, "block write",
     [](std::uint8_t id, const ACCESS_OP_s& op) {
         return setAccessBlockWrite(id, op.enable, op.membank, op.wordPointer, op.wordCount, op.data);
     }},
    {RXE_ACCESS_ACCESS, "access",
     [](std::uint8_t id, const ACCESS_OP_s& op) { return setAccessAccess(id, op.enable, op.payload); }},
    {RXE_ACCESS_LOCK, "lock",
     [](std::uint8_t id, const ACCESS_OP_s& op) { return setAccessLock(id, op.enable, op.payload); }},
    {RXE_ACCESS_KILL, "kill",
     [](std::uint8_t id, const ACCESS_OP_s& op) { return setAccessKill(id, op.enable, op.payload); }},
};

// An access of a type without a writer is left out, here and in the table.
int writeAccess(apply_context_s* my, std::size_t id, const ACCESS_OP_s& op) {
    const auto* writer = std::ranges::find(accessWriters, op.type, &access_writer_s::type);
    if (writer == std::end(accessWriters)) {
        return 0;
    }
    const RXE_API_STATUS status = writer->write(static_cast<std::uint8_t>(id), op);
    if (status != RXE_OK) {
        return engineFailure(my, -5, status, "access " + std::string(writer->name) + " error");
    }
    const auto hold = holdPackets();
    enabledAccessOps[id] = op;
    return 0;
}

void forgetAccesses() {
    const auto hold = holdPackets();
    enabledAccessOps[0].enable = 0;
    enabledAccessOpsPerOlio.fill(0);
    accessParamsEnabledCount = 0;
}

void disableAccessesFrom(std::size_t id) {
    const auto hold = holdPackets();
    for (; id < enabledAccessOps.size(); ++id) {
        enabledAccessOps[id].enable = 0;
    }
}

int writeAccesses(apply_context_s* my) {
    forgetAccesses();
    std::size_t id = 1;
    for (const ACCESS_OP_s& op : my->accesses) {
        if (op.enable != 0) {
            const auto hold = holdPackets();
            ++accessParamsEnabledCount;
        }
        if (const int code = writeAccess(my, id, op); code != 0) {
            return code;
        }
        ++id;
    }
    disableAccessesFrom(id);
    return 0;
}

constexpr std::uint16_t accessInfoPacket = 780;
constexpr std::uint16_t cwOnPacket = 772;
constexpr std::uint16_t parallelRssiPacket = 654;

RXE_API_STATUS switchPacketType(std::uint16_t id, bool enable) {
    return enable ? enablePacketType(id) : disablePacketType(id);
}

int switchAccessReports(apply_context_s* my) {
    switchPacketType(accessInfoPacket, !my->accesses.empty());
    return 0;
}

// --------------------------------------------------------------------------- olios

// On a PoE supply the radio may not draw more; tenths of dBm.
constexpr int poeCap = 300;
constexpr int poeCapPN8200FCC = 315;
constexpr std::uint16_t poweredByPoE = 2;

std::int16_t olioPower(std::uint32_t antenna, std::int16_t requested) {
    if (modelName == "QDX4400") {
        return requested;
    }
    int power = requested;
    if (antenna < cable_loss_compensation_x_10.size()) {
        power += cable_loss_compensation_x_10[antenna];
    }
    if (power_source == poweredByPoE) {
        const bool fcc = modelName == "PN8200" && regulatory_standard == "US FCC 15";
        power = std::min(power, fcc ? poeCapPN8200FCC : poeCap);
    }
    return static_cast<std::int16_t>(std::clamp(power, -32768, 32767));
}

// With bearings the receive side is not an antenna but a pattern, chosen by the
// thousands of the beam id, which are its polarization.
int olioReceiveAntenna(apply_context_s* my, std::uint32_t antenna, std::uint16_t* receive) {
    constexpr int monopulse = 0;
    constexpr int peakThreshold = 6;
    constexpr std::uint32_t firstPattern = 0xFFF0;
    if (!isBearingEnabled() && !my->hasPortalDir) {
        *receive = static_cast<std::uint16_t>(antenna);
        return 0;
    }
    if (const RXE_API_STATUS status = setMonoOrCOM(monopulse); status != RXE_OK) {
        return engineFailure(my, -13, status, "Mono or COM to " + std::to_string(monopulse) + " error");
    }
    if (const RXE_API_STATUS status = setPeakThreshold(peakThreshold); status != RXE_OK) {
        return engineFailure(my, -14, status,
                             "peak threshold to " + std::to_string(peakThreshold) + " error");
    }
    *receive = static_cast<std::uint16_t>(antenna / 1000 + firstPattern);
    return 0;
}

int olioMasks(apply_context_s* my, std::size_t index, std::uint32_t* selectMask, std::uint64_t* accessMask) {
    *selectMask = my->selectMask;
    *accessMask = my->accessMask;
    if (selectsPerAntenna() && getCurrentSelectBitMask(index, selectMask) != 0) {
        return fail(my, -15,
                    "Failure: Failed to get select bit mask for antenna idx: " + std::to_string(index));
    }
    if (accessesPerAntenna() && getCurrentAccessBitMask(index, accessMask) != 0) {
        return fail(my, -15,
                    "Failure: Failed to get access bit mask for antenna idx: " + std::to_string(index));
    }
    return 0;
}

int writeBlockSize(apply_context_s* my) {
    std::uint8_t blockSize = 0;
    getModeBlockSize(&blockSize);
    return blockSize == 0 ? 0 : engineFailure(my, -16, setBlockSize(blockSize), "block size error");
}

int writeOlio(apply_context_s* my, std::size_t index) {
    const std::uint32_t antenna = my->antennas[index];
    const auto position = static_cast<std::uint16_t>(index);
    const auto id = static_cast<std::uint16_t>(index + 1);
    const std::uint8_t stopType = getOlioStopConditionType(position);
    const std::uint16_t stopValue = getOlioStopConditionValue(position);
    std::uint16_t receive = 0;
    if (const int code = olioReceiveAntenna(my, antenna, &receive); code != 0) {
        return code;
    }
    std::uint32_t selectMask = 0;
    std::uint64_t accessMask = 0;
    if (const int code = olioMasks(my, index, &selectMask, &accessMask); code != 0) {
        return code;
    }
    if (const int code = writeBlockSize(my); code != 0) {
        return code;
    }
    const RXE_API_STATUS status = setOlio(id, 1, static_cast<std::uint16_t>(antenna), receive, stopType,
                                          stopValue, olioPower(antenna, my->powers[index]), selectMask,
                                          my->inventoryIds[index], accessMask, my->linkProfiles[index]);
    if (status != RXE_OK) {
        return engineFailure(my, -5, status, "olio " + std::to_string(id) + " error");
    }
    const auto hold = holdPackets();
    enabledAccessOpsPerOlio[id] = accessMask;
    return 0;
}

int writeOlios(apply_context_s* my) {
    for (std::size_t index = 0; index < my->antennas.size(); ++index) {
        if (const int code = writeOlio(my, index); code != 0) {
            return code;
        }
    }
    return 0;
}

// ------------------------------------------------------------------ start and stop

int writeRadioStop(apply_context_s* my) {
    radioStopConditions_s conditions;
    getRadioStopConditions(&conditions);
    return engineFailure(my, -6, setRadioStopConditions(&conditions), "radio stop condition error");
}

int writeGpioDirection(apply_context_s* my) {
    constexpr std::uint8_t allInputs = 0xFF;
    return engineFailure(my, -7, setGPIODir(allInputs), "gpio direction error");
}

int writeAutorestart(apply_context_s* my) {
    getRadioStartConditions(&my->startConditions);
    std::uint8_t restart = my->startConditions.type == radio_start_type_e::GPI_WITH_RESTART ? 2 : 0;
    return engineFailure(my, -6, rxe_intfc::writeParameter(RXE_PARAM_AUTORESTART, &restart),
                         "autorestart error");
}

int writeGpioStart(apply_context_s* my) {
    const std::vector<gpi_s>* gpis = &my->startConditions.gpis;
    const bool byGpi = my->startConditions.type == radio_start_type_e::GPI ||
                       my->startConditions.type == radio_start_type_e::GPI_WITH_RESTART;
    const RXE_API_STATUS status =
        setGPIOStart(byGpi ? getGPIBitMask(gpis) : 0, getGPIHoldTime(1, gpis), getGPIHoldTime(2, gpis),
                     getGPIHoldTime(3, gpis), getGPIHoldTime(4, gpis));
    return engineFailure(my, -8, status, "gpio start error");
}

int writeTxDelay(apply_context_s* my) {
    if (!txDelayIntervalSupported) {
        return 0;
    }
    const auto type = static_cast<std::uint8_t>(my->delayBetweenAntCycles.type);
    return engineFailure(my, -10, setTxDelayInterval(type, my->delayBetweenAntCycles.duration),
                         "Tx Delay Interval error");
}

// --------------------------------------------------------------------- what is told

// The engine knows tags by their EPC alone, so with further keys, or with none
// of its own time, duplicates are left to the daemon.
int writeReportFilter(apply_context_s* my) {
    const reportFilter_s& filter = my->reportFilter;
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
    return engineFailure(my, -11, setCustomFields(getCustomFieldsBitMask()), "customFields error");
}

int switchChannelReports(apply_context_s* my) {
    return engineFailure(my, -12, switchPacketType(cwOnPacket, isReportChannelEnabled()),
                         "channel reporting error");
}

std::uint16_t unsignedTenths(double value) {
    return static_cast<std::uint16_t>(std::clamp(value * 10, 0.0, 65535.0));
}

int writeArrayReader(apply_context_s* my) {
    if (modelName != "QDX4400") {
        return 0;
    }
    const RXE_API_STATUS status = switchPacketType(parallelRssiPacket, isReportHeatmapEnabled());
    if (status != RXE_OK) {
        return engineFailure(my, -13, status, "parallel rssi debug error");
    }
    if (my->hasPortalDir) {
        setAARHeightX10(unsignedTenths(my->portalDir.aarHeight));
        setTagHeightX10(unsignedTenths(my->portalDir.tagHeight));
        setStaticVDynamic(static_cast<std::uint8_t>(my->portalDir.staticVDynamic));
    }
    return 0;
}

int writeDynamicRange(apply_context_s* my) {
    constexpr std::uint8_t highRange = 2;
    ENVIRONMENT_PARAMS_e environment{};
    getEnvironment(&environment);
    if (!dynamicRangeSupported || environment != ENVIRONMENT_PARAMS_e::VERY_HIGH_INTERFERENCE) {
        return 0;
    }
    return engineFailure(my, -14, setDynamicRange(highRange), "dynamic range error");
}

int writeRssiThreshold(apply_context_s* my) {
    if (!rssiFilterSupported) {
        return 0;
    }
    rssiFilter_s filter;
    getRSSIFilter(&filter);
    return engineFailure(my, -12, setRSSIDetectThreshold(filter.threshold), "rssi detect threshold");
}

// The order is the engine's: each step may rely on those above it.
constexpr apply_step_t applySteps[] = {
    collectLists,         collectPerAntenna, collectPrefix,
    collectOperations,    collectPortalDir,  wipePreviousMode,
    writePrefixSelect,    writeSelects,      writeDelayAfterSelects,
    writeInventoryParams, writeAccesses,     switchAccessReports,
    writeOlios,           writeRadioStop,    writeGpioDirection,
    writeAutorestart,     writeGpioStart,    writeTxDelay,
    writeReportFilter,    writeCustomFields, switchChannelReports,
    writeArrayReader,     writeDynamicRange, writeRssiThreshold,
};

}  // namespace

int configureRXEForMode(std::string* reply) {
    logInfo(unit, " Configure RXE for mode");
    apply_context_s my;
    my.reply = reply;
    for (const apply_step_t step : applySteps) {
        if (const int code = step(&my); code != 0) {
            return code;
        }
    }
    *reply = "Success";
    return 0;
}
