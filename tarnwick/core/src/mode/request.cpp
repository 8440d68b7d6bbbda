// SPDX-License-Identifier: MIT
// A mode request: the keys in the order in which they are read, and the rules between them.
#include <nlohmann/json.hpp>

#include "mode/accessors.hpp"
#include "mode/defaults.hpp"
#include "mode/language.hpp"
#include "mode/parser.hpp"
#include "mode/record.hpp"
#include "reader_facts.hpp"
#include "util.hpp"

using nlohmann::json;

namespace {

// A request while it is parsed. `mode` becomes the mode in force only at the end, so
// that a request that is refused changes nothing. Quirk: except the settings of the
// duplicate filter, which change while "reportFilter" is parsed.
struct request_s {
    const json* root;
    mode_configuration_s* mode;
    std::string* reply;
    int settings = settingsNone;  // whose settings "modeSpecificSettings" held

    // The value of a key of the root; null when it is absent.
    const json* find(const char* key) const {
        const auto entry = root->find(key);
        return entry == root->end() ? nullptr : &*entry;
    }
    bool has(const char* key) const { return find(key) != nullptr; }

    int fail(int code, std::string_view text) const {
        *reply = text;
        return code;
    }
};

// Types that only the array reader knows.
constexpr std::array arrayReaderTypes{MODE_TYPE_e::BEARING, MODE_TYPE_e::PORTAL_DIRECTIONALITY};

// ---------------------------------------------------------------- "type"

int takeDeprecatedType(const request_s& request) {
    const auto* word = request.find(key::mode)->get_ptr<const json::string_t*>();
    if (word == nullptr) {
        return request.fail(-3, "Failure: \"mode\" field must contain a string");
    }
    const auto* row = std::ranges::find(MODE_TYPES, *word, &mode_type_s::deprecatedWord);
    if (row == MODE_TYPES.end() || word->empty()) {
        return request.fail(-4,
                            "Failure: value provided for \"mode\" must be a string containing one of the "
                            "following values: simple, inventory, portal, conveyor, or custom");
    }
    return row->overlay(request.mode);
}

int takeType(const request_s& request) {
    const auto* word = request.find(key::type)->get_ptr<const json::string_t*>();
    if (word == nullptr) {
        return request.fail(-3, "Failure: \"type\" field must contain a string");
    }
    const auto* row = std::ranges::find(MODE_TYPES, *word, &mode_type_s::word);
    if (row == MODE_TYPES.end()) {
        return request.fail(-4,
                            "Failure: value provided for \"type\" must be a string containing one of the "
                            "following values: SIMPLE, INVENTORY, PORTAL, CONVEYOR, PORTAL_DIRECTIONALITY, "
                            "BEARING, or CUSTOM");
    }
    if (!thisModel().arrayReader &&
        std::ranges::find(arrayReaderTypes, row->type) != arrayReaderTypes.end()) {
        return request.fail(-1, "Failure: " + *word + " operating mode type can only be used on the QDX4400");
    }
    return row->overlay(request.mode);
}

int typeKey(request_s& request) {
    const bool deprecated = request.has(key::mode);
    if (request.has(key::type) && deprecated) {
        return request.fail(-2,
                            "Failure: \"type\" and \"mode\" cannot both be included in object. \"mode\" is "
                            "being deprecated, please use \"type\"");
    }
    if (!request.has(key::type) && !deprecated) {
        return request.fail(-2, "Failure: \"type\" must be included in object");
    }
    return deprecated ? takeDeprecatedType(request) : takeType(request);
}

// ---------------------------------------------------------------- antennas, and what has one value for each

int antennasKey(request_s& request) {
    const json* value = request.find(key::antennas);
    if (value == nullptr || parseAntennas(value, &request.mode->antennas, request.reply) == keyParsed) {
        return 0;
    }
    return -4;
}

int beamsKey(request_s& request) {
    const json* value = request.find(key::beams);
    if (value == nullptr) {
        return 0;
    }
    if (request.has(key::antennas)) {
        return request.fail(-1, "Failure: setting both antennas and beams is not allowed");
    }
    if (!thisModel().arrayReader) {
        return request.fail(-1, "Failure: setting beams is only allowed on an QDX4400");
    }
    if (parseBeams(value, &request.mode->antennas, request.reply) != keyParsed) {
        return -1;
    }
    request.mode->usesBeams = true;
    return 0;
}

// The time on each antenna follows from the number of antennas, unless the client sets it.
int antennaStopDefault(request_s& request) {
    request.mode->antennaStopCondition.value = getDefaultAntennaStopConditionDuration(request.mode);
    return 0;
}

// A per-antenna list must have an entry for each antenna; an empty list counts as absent. `what`
// is the part of the text before "of the same size".
int requireOneForEachAntenna(const request_s& request, std::size_t entries, const char* what) {
    const std::size_t antennas = request.mode->antennas.size();
    if (entries == 0 || entries == antennas) {
        return 0;
    }
    return request.fail(-1, std::string("Failure: ") + what +
                                " of the same size as the size of \"antennas\" (" + std::to_string(antennas) +
                                ")");
}

int transmitPowerKey(request_s& request) {
    if (parseTransmitPower(request.root, request.mode, request.reply) == keyRefused) {
        return -1;
    }
    return requireOneForEachAntenna(request, request.mode->transmitPowerX10List.size(),
                                    "\"transmitPower\" must be an number or an array of numbers");
}

int linkProfileKeys(request_s& request) {
    const int environment = parseEnvironmentParam(request.root, request.mode, request.reply);
    if (environment == keyRefused) {
        return -1;
    }
    const int linkProfile = parseLinkProfile(request.root, request.mode, request.reply);
    if (linkProfile == keyRefused) {
        return -1;
    }
    if (linkProfile == keyParsed) {
        if (environment == keyParsed) {
            return request.fail(
                -1, "Failure: \"linkProfile\" and \"environment\" cannot be configured at the same time");
        }
        request.mode->environment = ENVIRONMENT_PARAMS_e::NOT_USED;
    }
    return requireOneForEachAntenna(request, request.mode->linkProfileList.size(),
                                    "\"linkProfile\" must be an number or an array of numbers");
}

int antennaStopKey(request_s& request) {
    if (parseAntennaStopCondition(request.root, request.mode, request.reply) == keyRefused) {
        return -1;
    }
    return requireOneForEachAntenna(request, request.mode->antennaStopConditionList.size(),
                                    "\"antennaStopCondition\" must be an object or an array of objects");
}

int queryKey(request_s& request) {
    if (parseQuery(request.root, request.mode, request.reply) == keyRefused) {
        return -1;
    }
    return requireOneForEachAntenna(request, request.mode->queryList.size(),
                                    "\"query\" must be an number or an array of objects");
}

// A key that needs its parser only. Only keyRefused is a failure: a delay after selects on a
// model without it is not.
template <int (*parse)(const json*, mode_configuration_s*, std::string*)>
int plainKey(request_s& request) {
    return parse(request.root, request.mode, request.reply) == keyRefused ? -1 : 0;
}

// ---------------------------------------------------------------- accesses, filter, report filter

int accessesKey(request_s& request) {
    if (parseAccess(request.root, request.mode, request.reply) == keyRefused) {
        return -1;
    }
    if (!request.has(key::accesses)) {
        return 0;
    }
    if (request.mode->modeType == MODE_TYPE_e::INVENTORY) {
        return request.fail(-1, "Failure: setting accesses is not allowed in Inventory mode");
    }
    return 0;
}

// A prefix filter works in the engine, as a select that sets the flag of the wanted tags
// in session S1 to B. The query must ask for those tags, so the client may not give one.
int forcePrefixQuery(const request_s& request) {
    if (request.has(key::query)) {
        return request.fail(
            -1, "Failure: \"query\" and \"filter\" with \"prefix\" cannot be configured at the same time");
    }
    if (request.has(key::selects)) {
        return request.fail(
            -1, "Failure: \"selects\" and \"filter\" with \"prefix\" cannot be configured at the same time");
    }
    constexpr std::uint8_t sessionS1 = *findValue(querySessionWords, "S1");
    constexpr std::uint8_t targetB = *findValue(queryTargetWords, "B");
    constexpr std::uint8_t selAll = *findValue(querySelWords, "ALL");
    request.mode->query = {.sel = selAll, .session = sessionS1, .target = targetB};
    request.mode->inventoryParams.clear();
    request.mode->queryList.clear();
    return 0;
}

int filterKey(request_s& request) {
    const json* value = request.find(key::filter);
    if (value == nullptr) {
        return 0;
    }
    tagFilter_s& filter = request.mode->tagFilter;
    if (parseFilter(value, &filter, request.reply) < 0) {
        return -5;
    }
    const bool inEngine = filter.enabled != 0 && filter.match == filter_match_e::PREFIX;
    return inEngine ? forcePrefixQuery(request) : 0;
}

int radioStopKey(request_s& request) {
    if (request.has(key::radioStopConditions) && request.mode->modeType == MODE_TYPE_e::PORTAL) {
        return request.fail(-1, "Failure: setting radioStopConditions is not allowed in PORTAL mode");
    }
    return plainKey<parseRadioStopConditions>(request);
}

int radioStartKey(request_s& request) {
    if (request.has(key::radioStartConditions) && request.mode->modeType == MODE_TYPE_e::PORTAL) {
        return request.fail(-1, "Failure: setting radioStartConditions is not allowed in PORTAL mode");
    }
    return plainKey<parseRadioStartConditions>(request);
}

// Each read of a tag has results of its accesses: with accesses the report filter is off, and the
// client may not ask for one.
int reportFilterKey(request_s& request) {
    const bool accesses = request.has(key::accesses);
    if (!request.has(key::reportFilter)) {
        if (accesses) {
            request.mode->reportFilter = {report_filter_type_e::NONE, 0, {}};
        }
        return 0;
    }
    if (request.mode->modeType == MODE_TYPE_e::INVENTORY) {
        return request.fail(-1, "Failure: setting reportFilter is not allowed in Inventory mode");
    }
    if (parseReportFilter(request.root, request.mode, request.reply) == keyRefused) {
        return -1;
    }
    return accesses ? request.fail(-1, "Failure: setting both reportFilter and accesses is not allowed") : 0;
}

// ---------------------------------------------------------------- settings of a mode type

int settingsKey(request_s& request) {
    request.settings = parseModeSpecificSettings(request.root, request.mode, request.reply);
    return request.settings < 0 ? -1 : 0;
}

// A setting of one mode type at the top of the request, its older place; the newer one is in
// "modeSpecificSettings".
struct top_level_setting_s {
    const char* key;
    int settings;  // the key is refused when "modeSpecificSettings" held these
    MODE_TYPE_e type;
    const char* typeName;
    value_parser_t store;
    int failed;  // what configMode returns when `store` refuses the value
};
constexpr top_level_setting_s topInterval{key::interval, settingsInventory, MODE_TYPE_e::INVENTORY,
                                          "inventory",   storeInterval,     -6};
constexpr top_level_setting_s topStartTrigger{key::startTrigger, settingsPortal,    MODE_TYPE_e::PORTAL,
                                              "portal",          storeStartTrigger, -7};
constexpr top_level_setting_s topStopInterval{key::stopInterval, settingsPortal,    MODE_TYPE_e::PORTAL,
                                              "portal",          storeStopInterval, -4};

template <const top_level_setting_s& row>
int topLevelKey(request_s& request) {
    const json* value = request.find(row.key);
    if (value == nullptr) {
        return 0;
    }
    const std::string setting = std::string("Failure: setting ") + row.key;
    if (request.settings == row.settings) {
        return request.fail(-1, setting +
                                    " AND modeSpecificSettings is not allowed. suggest using "
                                    "modeSpecifigSettings only");
    }
    if (request.mode->modeType != row.type) {
        return request.fail(-11, setting + " is not allowed unless in " + row.typeName + " mode");
    }
    return row.store(value, request.mode, request.reply) == keyParsed ? 0 : row.failed;
}

// ---------------------------------------------------------------- tag metadata

// A report filter that tells tags apart by their TID needs a read of the TID with each
// tag, and in the report the other members from which the key of a tag is made.
int checkTidKey(const request_s& request) {
    const mode_configuration_s& mode = *request.mode;
    const auto& keys = mode.reportFilter.addlKeys;
    if (std::ranges::find(keys, "TID") == keys.end()) {
        return 0;
    }
    const auto needs = [&request](int code, const char* what) {
        return request.fail(code, std::string("Failure: \"reportFilter\" addl_keys can only contain TID when "
                                              "used with \"tagMetaData\" containing ") +
                                      what);
    };
    if (!isAccessEnabled(EPC_GEN2_MB_e::TID, &mode)) {
        return needs(-6, "TID");
    }
    if (!mode.reportPC) {
        return needs(-7, "PC");
    }
    if (!mode.reportCRC) {
        return needs(-7, "CRC");
    }
    if (mode.reportFilter.type == report_filter_type_e::PER_ANTENNA && !mode.reportAntenna) {
        return request.fail(-8,
                            "Failure: \"reportFilter\" type PER_ANTENNA with addl_keys containing TID must "
                            "include ANTENNA in \"tagMetaData\"");
    }
    return 0;
}

int tagMetaDataKey(request_s& request) {
    if (parseTagMetaData(request.root, request.mode, request.reply) == keyRefused) {
        return -1;
    }
    if (isTagDataMemoryEnabled(request.mode)) {
        const auto excluded = [&request](const char* key) {
            return request.fail(-5, std::string("Failure: \"") + key +
                                        "\" and \"tagMetaData\" with RESERVED, EPC, TID, or USER cannot be "
                                        "configured at the same time");
        };
        if (request.has(key::accesses)) {
            return excluded(key::accesses);
        }
        if (request.has(key::reportFilter) && !isAddlKeysConfigured(request.mode)) {
            return excluded(key::reportFilter);
        }
    }
    return checkTidKey(request);
}

// ---------------------------------------------------------------- the whole request

// The keys in the order in which they are read: the first error is the reply. Each function
// returns 0, or with the text in the reply the negative number that configMode returns.
constexpr int (*keyParsers[])(request_s& request) = {
    typeKey,                               // "type", "mode"
    antennasKey,                           // "antennas"
    beamsKey,                              // "beams"
    antennaStopDefault,                    //
    transmitPowerKey,                      // "transmitPower"
    linkProfileKeys,                       // "environment", "linkProfile"
    antennaStopKey,                        // "antennaStopCondition"
    queryKey,                              // "query"
    plainKey<parseDelayAfterSelect>,       // "delayAfterSelects"
    plainKey<parseSelect>,                 // "selects"
    accessesKey,                           // "accesses"
    filterKey,                             // "filter"
    radioStopKey,                          // "radioStopConditions"
    radioStartKey,                         // "radioStartConditions"
    reportFilterKey,                       // "reportFilter"
    settingsKey,                           // "modeSpecificSettings"
    topLevelKey<topInterval>,              // "interval"
    topLevelKey<topStartTrigger>,          // "startTrigger"
    topLevelKey<topStopInterval>,          // "stopInterval"
    tagMetaDataKey,                        // "tagMetaData"
    plainKey<parseRSSIFilter>,             // "rssiFilter"
    plainKey<parseDelayBetweenAntCycles>,  // "delayBetweenAntennaCycles"
};

}  // namespace

int parseModeRequest(const std::string& request, json* root, mode_configuration_s* mode, std::string* reply) {
    setDefaultMode(mode);
    std::string reason;
    if (!parseJsonText(request, root, &reason, maxRequestNesting)) {
        return refuse(reply,
                      "Failure: mode request does not contain a valid json object: Received: " + request);
    }
    request_s state{root, mode, reply};
    for (const auto parse : keyParsers) {
        if (const int refused = parse(state); refused != 0) {
            return refused;
        }
    }
    return 0;
}
