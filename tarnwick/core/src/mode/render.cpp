// SPDX-License-Identifier: MIT
// The answer to "mode" without a request: the mode in force, or the request that
// made it.
#include "mode/render.hpp"

#include <nlohmann/json.hpp>

#include "json_fields.hpp"
#include "mode/beams.hpp"
#include "mode/defaults.hpp"
#include "mode/language.hpp"
#include "mode/parser.hpp"
#include "mode/record.hpp"
#include "mode/words.hpp"
#include "reader_facts.hpp"
#include "util.hpp"

using nlohmann::json;

namespace {

const mode_configuration_s& inForce = mode_configuration;

std::string polarizationName(QDX_BEAM_POL_e polarization) {
    std::string word;
    return getPolarizationString(polarization, &word) == 0 ? word : "UNDEFINED";
}

// ---------------------------------------------------------------- the keys

void addAntennas(json* root, GET_CURRENT_MODE_METHOD_e) {
    if (!inForce.usesBeams) {
        (*root)[key::antennas] = inForce.antennas;
        return;
    }
    json beams = json::array();
    for (const std::uint32_t antenna : inForce.antennas) {
        const auto beam = static_cast<short>(antenna);
        beams.push_back({{key::azimuth, beam_to_az(beam)},
                         {key::elevation, beam_to_el(beam)},
                         {key::polarization, polarizationName(beam_to_pol(beam))}});
    }
    (*root)[key::beams] = std::move(beams);
}

void addEnvironmentOrLinkProfile(json* root, GET_CURRENT_MODE_METHOD_e) {
    if (inForce.environment == ENVIRONMENT_PARAMS_e::NOT_USED) {
        addLinkProfileToJsonObj(root);
    } else {
        addEnvironmentParamToJsonObj(root);
    }
}

void addAntennaStopCondition(json* root, GET_CURRENT_MODE_METHOD_e method) {
    json value;
    getAntennaStopConditionJsonObj(&value, method);
    if (!value.empty()) {
        (*root)[key::antennaStopCondition] = std::move(value);
    }
}

void addRSSIFilter(json* root, GET_CURRENT_MODE_METHOD_e) {
    (*root)[key::rssiFilter] = {{key::threshold, inForce.rssiFilter.threshold}};
}

void addDelayAfterSelects(json* root, GET_CURRENT_MODE_METHOD_e) {
    (*root)[key::delayAfterSelects] = inForce.delayAfterSelects;
}

void addQuery(json* root, GET_CURRENT_MODE_METHOD_e method) {
    getQueryJsonObj(&(*root)[key::query], method == GET_CURRENT_MODE_METHOD_e::VERBOSE);
}

// A key whose value one builder makes.
template <void (*build)(json*)>
void addBuilt(json* root, const char* key) {
    build(&(*root)[key]);
}

// ---------------------------------------------------------------- "modeSpecificSettings"

void addInventorySettings(json* settings, bool verbose) {
    if (verbose || !isDefaultInventory(&inForce)) {
        const std::string_view unit = findWord(intervalUnitWords, inForce.inventoryInterval.unit);
        (*settings)[key::interval] = {{key::value, inForce.inventoryInterval.value},
                                      {key::unit, unit.empty() ? "unknown" : unit}};
    }
}

void addPortalSettings(json* settings, bool verbose) {
    if (verbose || !isDefaultPortal(&inForce)) {
        const portalConfig_s& portal = inForce.portalConfig;
        (*settings)[key::startTrigger] = {{key::port, portal.startTrigger.port},
                                          {key::signal, portal.startTrigger.signal == 1 ? "HIGH" : "LOW"}};
        (*settings)[key::stopInterval] = portal.stopInterval;
    }
}

void addBearingSettings(json* settings, bool verbose) {
    if (verbose || !isDefaultBearing(&inForce)) {
        (*settings)[key::primaryBeamPolarization] = polarizationName(inForce.bearingConfig.polarization);
    }
}

// Quirk: shows only the settings that differ from their defaults, also in the verbose rendering.
void addPortalDirSettings(json* settings, bool) {
    const portalDirConfig_s& config = inForce.portalDirConfig;
    if (isDefaultPortalDir(&inForce)) {
        return;
    }
    if (config.aarHeight != DEFAULT_AAR_HEIGHT) {
        (*settings)[key::aarHeight] = config.aarHeight;
    }
    if (config.tagHeight != DEFAULT_TAG_HEIGHT) {
        (*settings)[key::tagHeight] = config.tagHeight;
    }
    if (config.staticVDynamic != DEFAULT_STATIC_V_DYNAMIC) {
        (*settings)[key::staticVDynamic] = config.staticVDynamic;
    }
    if (config.polarization != DEFAULT_BEAM_POLARIZATION) {
        (*settings)[key::primaryBeamPolarization] = polarizationName(config.polarization);
    }
}

// The settings of a mode type; the types that are not listed do not have any.
struct settings_builder_s {
    MODE_TYPE_e type;
    void (*build)(json* settings, bool verbose);
};
constexpr std::array settingsBuilders{
    settings_builder_s{MODE_TYPE_e::INVENTORY, addInventorySettings},
    settings_builder_s{MODE_TYPE_e::PORTAL, addPortalSettings},
    settings_builder_s{MODE_TYPE_e::BEARING, addBearingSettings},
    settings_builder_s{MODE_TYPE_e::PORTAL_DIRECTIONALITY, addPortalDirSettings},
};

void addModeSpecificSettings(json* root, GET_CURRENT_MODE_METHOD_e method) {
    const auto* row = std::ranges::find(settingsBuilders, inForce.modeType, &settings_builder_s::type);
    if (row == settingsBuilders.end()) {
        return;
    }
    json settings = json::object();
    row->build(&settings, method == GET_CURRENT_MODE_METHOD_e::VERBOSE);
    if (!settings.empty()) {
        (*root)[key::modeSpecificSettings] = std::move(settings);
    }
}

// ---------------------------------------------------------------- the whole

using record_t = const mode_configuration_s&;
using method_t = GET_CURRENT_MODE_METHOD_e;

// A key of the rendering. It is shown when it is possible on this reader and in this mode, and
// either differs from its default or the rendering is verbose.
struct rendered_key_s {
    bool (*possible)(record_t mode);
    bool (*needed)(record_t mode);
    void (*add)(json* root, method_t method);
};

bool always(record_t) {
    return true;
}
bool isNotPortal(record_t mode) {
    return mode.modeType != MODE_TYPE_e::PORTAL;
}
template <bool (*isDefault)(const mode_configuration_s*)>
bool unless(record_t mode) {
    return !isDefault(&mode);
}

constexpr std::array renderedKeys{
    rendered_key_s{always, unless<isDefaultAntennas>, addAntennas},
    rendered_key_s{always, unless<isDefaultTransmitPower>,
                   [](json* root, method_t) { addTransmitPowerToJsonObj(root); }},
    rendered_key_s{always, unless<isDefaultEnvironmentVariable>, addEnvironmentOrLinkProfile},
    rendered_key_s{always, unless<isDefaultAntennaStopCondition>, addAntennaStopCondition},
    rendered_key_s{isNotPortal, unless<isDefaultRadioStopConditions>,
                   [](json* root, method_t) {
                       addBuilt<getRadioStopConditionsJsonObj>(root, key::radioStopConditions);
                   }},
    rendered_key_s{isNotPortal, unless<isDefaultRadioStartConditions>,
                   [](json* root, method_t) {
                       addBuilt<getRadioStartConditionsJsonObj>(root, key::radioStartConditions);
                   }},
    rendered_key_s{[](record_t mode) { return mode.modeType != MODE_TYPE_e::INVENTORY; },
                   unless<isDefaultReportFilter>,
                   [](json* root, method_t) { addBuilt<getReportFilterJsonObj>(root, key::reportFilter); }},
    rendered_key_s{always, unless<isDefaultTagMetaData>,
                   [](json* root, method_t) { addBuilt<getTagMetaDataJsonObj>(root, key::tagMetaData); }},
    rendered_key_s{always, [](record_t mode) { return mode.rssiFilter.threshold != RSSI_FILTER_OFF; },
                   addRSSIFilter},
    rendered_key_s{always, unless<isDefaultDelayBetweenAntCycles>,
                   [](json* root, method_t) {
                       addBuilt<getDelayBetweenAntCyclesJsonObj>(root, key::delayBetweenAntennaCycles);
                   }},
    rendered_key_s{[](record_t mode) { return mode.tagFilter.enabled != 0; }, always,
                   [](json* root, method_t) { addBuilt<getTagFilterJsonObj>(root, key::filter); }},
    rendered_key_s{always, [](record_t mode) { return mode.delayAfterSelects != 0; }, addDelayAfterSelects},
    rendered_key_s{unless<isDefaultSelects>, always,
                   [](json* root, method_t) { addBuilt<getSelectsJsonObj>(root, key::selects); }},
    rendered_key_s{unless<isDefaultAccesses>, always,
                   [](json* root, method_t) { addBuilt<getAccessesJsonObj>(root, key::accesses); }},
    // Not with a prefix filter, which sets the query itself.
    rendered_key_s{always,
                   [](record_t mode) {
                       return mode.tagFilter.enabled == 0 || mode.tagFilter.match != filter_match_e::PREFIX;
                   },
                   addQuery},
    rendered_key_s{always, always, addModeSpecificSettings},
};

json renderMode(method_t method) {
    const bool verbose = method == GET_CURRENT_MODE_METHOD_e::VERBOSE;
    json root = json::object();
    root[key::type] = inForce.modeTypeName;
    for (const rendered_key_s& row : renderedKeys) {
        if (row.possible(inForce) && (verbose || row.needed(inForce))) {
            row.add(&root, method);
        }
    }
    return root;
}

// The request that made the mode in force, from the file that keeps it.
void readRequest(std::string* reply) {
    std::string text;
    json document;
    std::string reason;
    const file_read_e result = readRegularFile(modeFile, &text, &reason);
    if (result == file_read_e::notOpened) {
        *reply = "Failure: could not open mode_config.json";
        return;
    }
    if (result == file_read_e::refused || !parseJsonText(text, &document, &reason)) {
        *reply = "Failure: Unable to get mode as_set";
        return;
    }
    json request;
    if (getJsonValueObject(&document, "mode", &request, reply) == 0) {
        *reply = "Success: " + request.dump();
    }
}

}  // namespace

void addTransmitPowerToJsonObj(json* root) {
    constexpr double tenths = 10.0;
    if (inForce.transmitPowerX10List.empty()) {
        (*root)[key::transmitPower] = inForce.transmitPowerX10 / tenths;
        return;
    }
    json powers = json::array();
    for (const std::int16_t power : inForce.transmitPowerX10List) {
        powers.push_back(power / tenths);
    }
    (*root)[key::transmitPower] = std::move(powers);
}

void addLinkProfileToJsonObj(json* root) {
    if (inForce.linkProfileList.empty()) {
        (*root)[key::linkProfile] = inForce.linkProfile;
    } else {
        (*root)[key::linkProfile] = inForce.linkProfileList;
    }
}

void addEnvironmentParamToJsonObj(json* root) {
    (*root)[key::environment] = findWord(environmentWords, inForce.environment);
}

int getCurrentMode(std::string* reply, GET_CURRENT_MODE_METHOD_e method) {
    if (method == GET_CURRENT_MODE_METHOD_e::AS_SET) {
        readRequest(reply);
    } else {
        *reply = "Success: " + renderMode(method).dump();
    }
    return 0;
}
