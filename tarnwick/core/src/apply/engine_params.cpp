// SPDX-License-Identifier: MIT
#include "apply/engine_params.hpp"

#include <algorithm>
#include <cmath>

#include "engine_io/features.hpp"
#include "logger.hpp"
#include "mode/defaults.hpp"
#include "mode/engine_records.hpp"
#include "mode/record.hpp"
#include "reader_facts.hpp"
#include "rm_client.hpp"

namespace {
constexpr std::uint16_t otherModelLinkProfile = 202;

// Replaces `out` by the list or, when that is empty, by one value for each antenna.
template <class Value>
std::size_t listOrRepeated(const mode_configuration_s& mode, const std::vector<Value>& list, Value value,
                           std::vector<Value>* out) {
    if (list.empty()) {
        out->assign(mode.antennas.size(), value);
    } else {
        *out = list;
    }
    return out->size();
}

// The stop fields of an OLIO_s.
struct olio_stop_s {
    std::uint8_t type;
    std::uint16_t value;
};

olio_stop_s olioStop(const antennaStopCondition_s& condition) {
    switch (condition.type) {
        case antenna_stop_type_e::DURATION:
            return {RXE_STOP_DWELL_TIME, condition.value};
        case antenna_stop_type_e::INVENTORY_COUNT:
            return {RXE_STOP_INVENTORY_ROUNDS, condition.value};
        case antenna_stop_type_e::SINGLE_INVENTORY_LIMITED_DURATION:
            return {RXE_STOP_ROUNDS_AND_DWELL + 1, condition.value};  // one round
        case antenna_stop_type_e::GPI:
            return {static_cast<std::uint8_t>(condition.gpi.port * 2 + (condition.gpi.signal == 1 ? 1 : 2)),
                    condition.gpi.debounceTime};
    }
    return {0, 0};
}

olio_stop_s olioStopAt(const mode_configuration_s& mode, std::size_t index) {
    const auto& list = mode.antennaStopConditionList;
    if (list.empty()) {
        return olioStop(mode.antennaStopCondition);
    }
    return index < list.size() ? olioStop(list[index]) : olio_stop_s{255, 65535};
}

// Appends an access with the next bit of the mask. False when there are too many.
bool appendAccess(const ACCESS_OP_s& op, std::uint64_t* mask, std::vector<ACCESS_OP_s>* accesses) {
    *mask |= accessMaskBit(accesses->size());
    accesses->push_back(op);
    return accesses->size() <= MODE_MAX_UNIQUE_ACCESSES;
}

// The accesses that the client gave as a flat list, converted.
bool appendListedAccesses(const mode_configuration_s& mode, std::uint64_t* mask,
                          std::vector<ACCESS_OP_s>* accesses) {
    return std::ranges::all_of(mode.accessList, [&](const ACCESS_CMD_S& access) {
        ACCESS_OP_s op{};
        accessStructToAccessOpStruct(&access, &op);
        return appendAccess(op, mask, accesses);
    });
}

// The reads that the tag metadata ask for, bank by bank.
bool appendMemoryReads(const mode_configuration_s& mode, std::uint64_t* mask,
                       std::vector<ACCESS_OP_s>* accesses) {
    for (const EPC_GEN2_MB_e bank : EPC_GEN2_MBs) {
        const auto row = static_cast<std::uint8_t>(bank);
        if (row >= mode.readMemory.size()) {
            break;
        }
        for (const memory_Access_s& range : mode.readMemory[row]) {
            ACCESS_CMD_S read;
            read.readMembank = row;
            read.readWordPointer = static_cast<std::uint16_t>(range.wordOffset);
            read.readWordCount = range.wordCount;
            ACCESS_OP_s op{};
            accessStructToAccessOpStruct(&read, &op);
            if (!appendAccess(op, mask, accesses)) {
                return false;
            }
        }
    }
    return true;
}
}  // namespace

// ---------------------------------------------------------------- by antenna

std::size_t getRequestedTxPwrX10(const mode_configuration_s& mode, std::vector<std::int16_t>* powers) {
    return listOrRepeated(mode, mode.transmitPowerX10List, mode.transmitPowerX10, powers);
}

std::size_t getLinkProfile(const mode_configuration_s& mode, std::vector<std::uint16_t>* linkProfiles) {
    const ENVIRONMENT_PARAMS_e environment = mode.environment;
    if (environment != ENVIRONMENT_PARAMS_e::NOT_USED) {
        const std::uint16_t profile = env_to_lP(static_cast<std::uint8_t>(environment));
        return listOrRepeated<std::uint16_t>(mode, {}, profile, linkProfiles);
    }
    return listOrRepeated(mode, mode.linkProfileList, mode.linkProfile, linkProfiles);
}

std::size_t getInventoryParams(const mode_configuration_s& mode, std::vector<c1g2_info_s>* params) {
    const query_s& query = mode.query;
    *params = mode.inventoryParams;
    if (params->empty()) {
        params->push_back(
            {query.sel, query.session, query.target, initialQForPopulation(query.tagPopulation)});
    }
    return params->size();
}

std::size_t getInventoryParamIds(const mode_configuration_s& mode, std::vector<std::uint8_t>* ids) {
    std::vector<std::uint8_t> listed;
    for (const query_s& query : mode.queryList) {
        listed.push_back(query.inventoryParamId);
    }
    return listOrRepeated(mode, listed, std::uint8_t{1}, ids);
}

std::uint8_t getOlioStopConditionType(const mode_configuration_s& mode, std::uint16_t index) {
    return olioStopAt(mode, index).type;
}

std::uint16_t getOlioStopConditionValue(const mode_configuration_s& mode, std::uint16_t index) {
    return olioStopAt(mode, index).value;
}

// ---------------------------------------------------------------- link profile

std::uint16_t env_to_lP(std::uint8_t environment) {
    std::string region;
    float channelWidth = 0;
    if (getActiveRegionNameAndChannelWidth(&region, &channelWidth) != 0) {
        logCountedError("mode_config", " Cannot connect to RM to get region name and channel width");
        logUncountedError("mode_config", " the cause: ", managementFailure(), "; link profile ",
                          DEFAULT_LINK_PROFILE, " is taken");
        return DEFAULT_LINK_PROFILE;
    }
    const bool autoDetect = thisModel().linkProfilesNeedAutoDetect && isAutoDetectSupported();
    return linkProfileFor(readerFacts.modelName, environment, channelWidth, region, autoDetect);
}

std::uint16_t linkProfileFor(std::string_view model, std::uint8_t environment, float channelWidth,
                             std::string_view region, bool autoDetect) {
    const float width = std::round(channelWidth);
    std::size_t column = 0;
    std::uint16_t fallback = DEFAULT_LINK_PROFILE;
    if (width <= 500) {
        fallback = 408;
    } else if (width == 600) {
        column = 1;
    } else if (width == 1200) {
        column = region.find("Japan") == std::string_view::npos ? 2 : 3;
    } else {
        return DEFAULT_LINK_PROFILE;
    }
    const reader_model_s& row = readerModel(model);
    if (row.linkProfiles == nullptr) {
        return otherModelLinkProfile;
    }
    if (environment >= row.linkProfiles->size() || (row.linkProfilesNeedAutoDetect && !autoDetect)) {
        return fallback;
    }
    return (*row.linkProfiles)[environment][column];
}

// ---------------------------------------------------------------- selects, accesses

int getSelectParams(const mode_configuration_s& mode, std::uint32_t* mask,
                    std::vector<SELECT_OP_s>* selects) {
    selects->clear();
    *mask = 0;
    for (const SELECT_OP_s& select : mode.uniqueSelects) {
        const std::size_t position = selects->size();
        selects->push_back(select);
        if (position >= MODE_MAX_UNIQUE_SELECTS) {
            return -1;
        }
        *mask |= 1U << position;
    }
    return 0;
}

int getAccessParams(const mode_configuration_s& mode, std::uint64_t* mask,
                    std::vector<ACCESS_OP_s>* accesses) {
    accesses->clear();
    *mask = 0;
    bool complete = false;
    if (!mode.accessBitMasks.empty()) {
        complete = std::ranges::all_of(
            mode.uniqueAccesses, [&](const ACCESS_OP_s& op) { return appendAccess(op, mask, accesses); });
    } else if (!mode.accessList.empty()) {
        complete = appendListedAccesses(mode, mask, accesses);
    } else {
        complete = appendMemoryReads(mode, mask, accesses);
    }
    return complete ? 0 : -1;
}
