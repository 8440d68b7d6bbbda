// SPDX-License-Identifier: MIT
// The settings of one mode type, under "modeSpecificSettings" or, their older place,
// as "interval", "startTrigger" and "stopInterval" at the top of a request.
#include <limits>
#include <nlohmann/json.hpp>

#include "mode/accessors.hpp"
#include "mode/beams.hpp"
#include "mode/defaults.hpp"
#include "mode/parser.hpp"
#include "mode/record.hpp"
#include "mode/render.hpp"
#include "reader_facts.hpp"
#include "util.hpp"

using nlohmann::json;

namespace {

constexpr double minHeight = 0.0;
constexpr double maxHeight = 50.0;

// A mode type, the parser of its settings, and the result of parseModeSpecificSettings.
struct settings_row_s {
    MODE_TYPE_e type;
    int (*parse)(const json* settings, mode_configuration_s* mode, std::string* reply);  // null: ignored
    int result;
};
constexpr std::array settingsRows{
    settings_row_s{MODE_TYPE_e::INVENTORY, parseInventorySettings, settingsInventory},
    settings_row_s{MODE_TYPE_e::PORTAL, parsePortalSettings, settingsPortal},
    settings_row_s{MODE_TYPE_e::CUSTOM, nullptr, settingsNone},
    settings_row_s{MODE_TYPE_e::BEARING, parseBearingSettings, settingsBearing},
    settings_row_s{MODE_TYPE_e::PORTAL_DIRECTIONALITY, parsePortalDirSettings, settingsPortalDir},
};

// A required subkey of the setting `name`; null, with the text in the reply, when it is absent.
const json* subkey(const json* setting, const char* name, const char* key, std::string* reply) {
    const auto entry = setting->find(key);
    if (entry == setting->end()) {
        *reply = std::string("Failure: mode json payload mode \"") + name + "\" must have a subkey \"" + key +
                 "\"";
        return nullptr;
    }
    return &*entry;
}

// The setting and the subkey as the texts name them: "interval"\"unit".
std::string pathOf(const char* name, const char* key) {
    return std::string("mode json payload mode \"") + name + "\"\\\"" + key + "\"";
}

// A subkey that must be a text, and one that must be an unsigned number. Quirk: one reply begins with
// "Failure: " twice.
const json::string_t* wordSubkey(const json* setting, const char* name, const char* key, std::string* reply) {
    const json* value = subkey(setting, name, key, reply);
    const auto* word = value == nullptr ? nullptr : value->get_ptr<const json::string_t*>();
    if (value != nullptr && word == nullptr) {
        *reply = "Failure: Failure: " + pathOf(name, key) + " must be a string";
    }
    return word;
}

const json::number_unsigned_t* numberSubkey(const json* setting, const char* name, const char* key,
                                            std::string* reply) {
    const json* value = subkey(setting, name, key, reply);
    const auto* number = value == nullptr ? nullptr : value->get_ptr<const json::number_unsigned_t*>();
    if (value != nullptr && number == nullptr) {
        *reply =
            "Failure: " + pathOf(name, key) + " must have an number value (and must be an unsigned integer)";
    }
    return number;
}

// An optional key of the settings; 0 when it is absent.
int storeIfThere(const json* settings, const char* key, value_parser_t store, mode_configuration_s* mode,
                 std::string* reply) {
    const auto entry = settings->find(key);
    return entry == settings->end() ? keyParsed : store(&*entry, mode, reply);
}

// "primaryBeamPolarization" gives the default beams that polarization. It is refused with antennas
// or beams of the client. Absent: 0.
int parsePrimaryBeam(const json* settings, mode_configuration_s* mode, QDX_BEAM_POL_e* polarization,
                     std::string* reply) {
    QDX_BEAM_POL_e parsed{};
    const int result = optionalKey(
        getJsonWord(settings, key::primaryBeamPolarization, polarizationWords, &parsed, reply), reply);
    if (result != keyParsed) {
        return result == keyAbsent ? keyParsed : keyRefused;
    }
    if (!isDefaultAntennas(mode)) {
        return refuse(reply, "Failure: modeSpecificSetting for " + mode->modeTypeName +
                                 " - primaryBeamPolarization - can only be used with default Antenna "
                                 "Settings");
    }
    *polarization = parsed;
    setBearingBeams(parsed, &mode->antennas);
    return keyParsed;
}

}  // namespace

// ---------------------------------------------------------------- "interval", "startTrigger"

int parseInterval(const json* value, inventoryInterval_s* interval, std::string* reply) {
    if (!value->is_object()) {
        return refuse(reply, "Failure: mode json payload mode \"interval\" must have an object value");
    }
    const auto* word = wordSubkey(value, key::interval, key::unit, reply);
    if (word == nullptr) {
        return keyRefused;
    }
    const interval_unit_e* parsedUnit = findValue(intervalUnitWords, *word);
    if (parsedUnit == nullptr) {
        return refuse(reply, "Failure: Failure: " + pathOf(key::interval, key::unit) +
                                 " must be a seconds, minutes, hours or seconds: received: " + *word);
    }
    const auto* number = numberSubkey(value, key::interval, key::value, reply);
    if (number == nullptr) {
        return keyRefused;
    }
    // Quirk: the low 32 bits count.
    const inventoryInterval_s parsed{*parsedUnit, static_cast<std::uint32_t>(*number)};
    std::uint32_t seconds = 0;
    if (getInventoryIntervalSeconds(&parsed, &seconds) != 0) {
        return refuse(reply, "Failure: inventory interval value/unit is too large");
    }
    *interval = parsed;
    return keyParsed;
}

int parseStartTrigger(const json* value, gpi_s* trigger, std::string* reply) {
    if (!value->is_object()) {
        return refuse(reply, "Failure: mode json payload mode \"startTrigger\" must have an object value");
    }
    const auto* word = wordSubkey(value, key::startTrigger, key::signal, reply);
    if (word == nullptr) {
        return keyRefused;
    }
    const std::uint8_t* level = findValue(gpiSignalWords, *word);
    if (level == nullptr) {
        return refuse(reply, "Failure: Failure: " + pathOf(key::startTrigger, key::signal) +
                                 " must be HIGH or LOW: received: " + *word);
    }
    const auto* number = numberSubkey(value, key::startTrigger, key::port, reply);
    if (number == nullptr) {
        return keyRefused;
    }
    // Quirk: the low 8 bits count: 257 is port 1.
    const gpi_s parsed{.port = static_cast<std::uint8_t>(*number), .signal = *level};
    const std::uint8_t ports = thisModel().triggerPorts;
    if (ports != 0 && (parsed.port < 1 || parsed.port > ports)) {
        return refuse(reply, "Failure: " + pathOf(key::startTrigger, key::port) + " must a value " +
                                 (ports == 4 ? "between 1 and 4" : "be either 1 or 2"));
    }
    *trigger = parsed;
    return keyParsed;
}

int storeInterval(const json* value, mode_configuration_s* mode, std::string* reply) {
    if (parseInterval(value, &mode->inventoryInterval, reply) != keyParsed) {
        return keyRefused;
    }
    mode->reportFilter.type = report_filter_type_e::PER_ANTENNA;
    getInventoryIntervalSeconds(&mode->inventoryInterval, &mode->reportFilter.duration);
    return keyParsed;
}

int storeStartTrigger(const json* value, mode_configuration_s* mode, std::string* reply) {
    gpi_s& trigger = mode->portalConfig.startTrigger;
    if (parseStartTrigger(value, &trigger, reply) != keyParsed) {
        return keyRefused;
    }
    mode->radioStartConditions = {radio_start_type_e::GPI_WITH_RESTART, {trigger}};
    return keyParsed;
}

int storeStopInterval(const json* value, mode_configuration_s* mode, std::string* reply) {
    const auto* seconds = value->get_ptr<const json::number_unsigned_t*>();
    if (seconds == nullptr) {
        return refuse(reply,
                      "Failure: mode json payload mode \"stopInterval\" must have an number value (and must "
                      "be an unsigned integer)");
    }
    // Quirk: the low 16 bits count; larger numbers are not refused.
    mode->portalConfig.stopInterval = static_cast<std::uint16_t>(*seconds);
    mode->radioStopConditions.noMoreUniqueTags = mode->portalConfig.stopInterval;
    return keyParsed;
}

// ---------------------------------------------------------------- "modeSpecificSettings"

int parseModeSpecificSettings(const json* root, mode_configuration_s* mode, std::string* reply) {
    reply->clear();
    json settings;
    if (const int result = getJsonValueObject(root, key::modeSpecificSettings, &settings, reply);
        result != 0) {
        return optionalKey(result, reply) == keyAbsent ? settingsNone : keyRefused;
    }
    const auto* row = std::ranges::find(settingsRows, mode->modeType, &settings_row_s::type);
    if (row == settingsRows.end()) {
        return refuse(reply,
                      "Failure: \"" + mode->modeTypeName + "\" does not accept a \"modeSpecificSettings\"");
    }
    if (row->parse != nullptr && row->parse(&settings, mode, reply) != keyParsed) {
        return keyRefused;
    }
    return row->result;
}

int parseInventorySettings(const json* settings, mode_configuration_s* mode, std::string* reply) {
    return storeIfThere(settings, key::interval, storeInterval, mode, reply);
}

int parsePortalSettings(const json* settings, mode_configuration_s* mode, std::string* reply) {
    const bool good =
        storeIfThere(settings, key::startTrigger, storeStartTrigger, mode, reply) == keyParsed &&
        storeIfThere(settings, key::stopInterval, storeStopInterval, mode, reply) == keyParsed;
    return good ? keyParsed : keyRefused;
}

int parseBearingSettings(const json* settings, mode_configuration_s* mode, std::string* reply) {
    return parsePrimaryBeam(settings, mode, &mode->bearingConfig.polarization, reply);
}

int parsePortalDirSettings(const json* settings, mode_configuration_s* mode, std::string* reply) {
    portalDirConfig_s parsed = mode->portalDirConfig;
    parsed.aarHeight = DEFAULT_AAR_HEIGHT;
    parsed.tagHeight = DEFAULT_TAG_HEIGHT;
    parsed.staticVDynamic = DEFAULT_STATIC_V_DYNAMIC;
    const auto good = [reply](int result) { return optionalKey(result, reply) != keyRefused; };
    if (parsePrimaryBeam(settings, mode, &parsed.polarization, reply) != keyParsed ||
        !good(getJsonValue(settings, key::aarHeight, &parsed.aarHeight, reply, minHeight, maxHeight)) ||
        !good(getJsonValue(settings, key::tagHeight, &parsed.tagHeight, reply, minHeight, maxHeight)) ||
        !good(getJsonValue(settings, key::staticVDynamic, &parsed.staticVDynamic, reply, std::int32_t{0},
                           std::numeric_limits<std::int32_t>::max()))) {
        return keyRefused;
    }
    copyPortalDir(&parsed, &mode->portalDirConfig);
    return keyParsed;
}
