// SPDX-License-Identifier: MIT
// When the radio starts and stops, how long it stays on an antenna, and the
// delays between: "antennaStopCondition", "radioStartConditions",
// "radioStopConditions", "delayBetweenAntennaCycles", "delayAfterSelects".
#include <cmath>
#include <limits>
#include <nlohmann/json.hpp>

#include "mode/parser.hpp"
#include "mode/record.hpp"
#include "reader_facts.hpp"
#include "util.hpp"

using nlohmann::json;

namespace {

constexpr std::uint16_t maxTagCount = 57344;
constexpr std::uint16_t maxNoMoreUniqueTags = 4095;  // s
constexpr std::uint32_t maxDelayAfterSelects = 65;   // ms
constexpr std::uint8_t emptyDelayDuration = 200;     // ms; for an empty "delayBetweenAntennaCycles"

// True when an optional key is good or absent; the text about an absent key is cleared.
bool goodOrAbsent(int accessorResult, std::string* reply) {
    return optionalKey(accessorResult, reply) != keyRefused;
}

// "gpis": a list of rules, each port once. Returns what an accessor would (json_fields.hpp); *gpis
// is replaced on success.
int parseGPIs(const json* object, std::vector<gpi_s>* gpis, std::string* reply) {
    json array;
    if (const int result = getJsonValueArray(object, key::gpis, &array, reply); result != 0) {
        return result;
    }
    std::vector<gpi_s> parsed;
    for (const json& element : array) {
        gpi_s gpi;
        if (parseGPI(&element, &gpi, reply) != keyParsed) {
            return -2;
        }
        if (std::ranges::find(parsed, gpi.port, &gpi_s::port) != parsed.end()) {
            sprintfStr(reply,
                       "Failure: Each port can only be added a single time. %d has been added more than once",
                       gpi.port);
            return -2;
        }
        parsed.push_back(gpi);
    }
    *gpis = std::move(parsed);
    return 0;
}

// Whole milliseconds; a number that does not fit 32 bits becomes the nearest that does.
std::uint32_t toMilliseconds(double seconds) {
    constexpr double most = std::numeric_limits<std::uint32_t>::max();
    return static_cast<std::uint32_t>(std::clamp(seconds * 1000.0, 0.0, most));
}

}  // namespace

int parseGPI(const json* value, gpi_s* gpi, std::string* reply) {
    if (!value->is_object()) {
        return refuse(reply, "Failure: json payload \"gpi\" must have an object value");
    }
    gpi_s parsed;
    if (getJsonValue(value, key::port, &parsed.port, reply, std::uint8_t{1}, thisModel().gpis) != 0 ||
        getJsonWord(value, key::signal, gpiSignalWords, &parsed.signal, reply) != 0 ||
        !goodOrAbsent(getJsonValue(value, key::debounceTime, &parsed.debounceTime, reply, 0,
                                   std::numeric_limits<std::uint16_t>::max()),
                      reply)) {
        return keyRefused;
    }
    *gpi = parsed;
    return keyParsed;
}

// ---------------------------------------------------------------- "antennaStopCondition"

int parseAntennaStopCondition(const json* root, mode_configuration_s* mode, std::string* reply) {
    reply->clear();
    json value;
    if (const int result = getObjectOrArray(root, key::antennaStopCondition, &value, reply);
        result != keyParsed) {
        return result == keyAbsent ? keyParsed : keyRefused;
    }
    if (value.is_object()) {
        return parseAntennaStopConditionSingleValue(&value, &mode->antennaStopCondition, reply);
    }
    std::vector<antennaStopCondition_s> conditions;
    for (const json& element : value) {
        antennaStopCondition_s condition;
        if (parseAntennaStopConditionSingleValue(&element, &condition, reply) != keyParsed) {
            return keyRefused;
        }
        conditions.push_back(condition);
    }
    mode->antennaStopConditionList = std::move(conditions);
    return keyParsed;
}

int parseAntennaStopConditionSingleValue(const json* value, antennaStopCondition_s* condition,
                                         std::string* reply) {
    if (!value->is_object()) {
        return refuse(reply,
                      "Failure: mode json payload mode \"antennaStopCondition\" must have an object value");
    }
    antennaStopCondition_s parsed;
    if (getJsonWord(value, key::type, antennaStopTypeWords, &parsed.type, reply) != 0) {
        return keyRefused;
    }
    if (parsed.type == antenna_stop_type_e::GPI) {
        const auto rule = value->find(key::value);
        if (rule == value->end()) {
            return refuse(reply,
                          "Failure: mode json payload mode type GPI must also contain a GPI object value");
        }
        if (parseGPI(&*rule, &parsed.gpi, reply) != keyParsed) {
            return keyRefused;
        }
    } else if (getJsonValue(value, key::value, &parsed.value, reply, 0,
                            std::numeric_limits<std::uint16_t>::max()) != 0) {
        return keyRefused;
    }
    *condition = parsed;
    return keyParsed;
}

// ---------------------------------------------------------------- the radio as a whole

int parseRadioStartConditions(const json* root, mode_configuration_s* mode, std::string* reply) {
    reply->clear();
    json value;
    if (const int result = getJsonValueObject(root, key::radioStartConditions, &value, reply); result != 0) {
        return optionalKey(result, reply) == keyAbsent ? keyParsed : keyRefused;
    }
    radioStartConditions_s parsed;
    switch (optionalKey(getJsonWord(&value, key::type, radioStartTypeWords, &parsed.type, reply), reply)) {
        case keyParsed:
            if (parseGPIs(&value, &parsed.gpis, reply) != 0) {
                return keyRefused;
            }
            break;
        case keyAbsent:  // the rest of the object is then not read
            parsed.type = radio_start_type_e::NONE;
            break;
        default:
            return keyRefused;
    }
    copyRadioStartConditions(&parsed, &mode->radioStartConditions);
    return keyParsed;
}

int parseRadioStopConditions(const json* root, mode_configuration_s* mode, std::string* reply) {
    reply->clear();
    json value;
    if (const int result = getJsonValueObject(root, key::radioStopConditions, &value, reply); result != 0) {
        return optionalKey(result, reply) == keyAbsent ? keyParsed : keyRefused;
    }
    using doubles = std::numeric_limits<double>;
    constexpr std::uint16_t any = std::numeric_limits<std::uint16_t>::max();
    constexpr std::uint16_t none = 0;
    radioStopConditions_s parsed;
    double seconds = 0;
    const auto good = [reply](int result) { return goodOrAbsent(result, reply); };
    if (!good(getJsonValue(&value, key::duration, &seconds, reply, doubles::lowest(), doubles::max())) ||
        !good(getJsonValue(&value, key::antennaCycles, &parsed.olioLoops, reply, none, any)) ||
        !good(getJsonValue(&value, key::tagCount, &parsed.tagCount, reply, none, maxTagCount)) ||
        !good(getJsonValue(&value, key::durationAfterNoMoreUniqueTags, &parsed.noMoreUniqueTags, reply, none,
                           maxNoMoreUniqueTags)) ||
        !good(parseGPIs(&value, &parsed.gpis, reply))) {
        return keyRefused;
    }
    if (parsed.tagCount != 0 && parsed.noMoreUniqueTags != 0) {
        return refuse(reply,
                      "Failure: \"tagCount\" and \"durationAfterNoMoreUniqueTags\" cannot both have non-zero "
                      "values");
    }
    parsed.duration = toMilliseconds(seconds);
    copyRadioStopConditions(&parsed, &mode->radioStopConditions);
    return keyParsed;
}

// ---------------------------------------------------------------- delays

int parseDelayBetweenAntCycles(const json* root, mode_configuration_s* mode, std::string* reply) {
    reply->clear();
    json value;
    if (const int result = getJsonValueObject(root, key::delayBetweenAntennaCycles, &value, reply);
        result != 0) {
        return optionalKey(result, reply) == keyAbsent ? keyParsed : keyRefused;
    }
    delay_between_antenna_cycles_s parsed;
    if (value.empty()) {
        // Quirk: an empty object gives 200 ms, an absent key 75 ms.
        mode->delayBetweenAntennaCycles = {thisModel().antennaDelay, emptyDelayDuration};
        return keyParsed;
    }
    if (getJsonWord(&value, key::type, antennaDelayTypeWords, &parsed.type, reply) != 0 ||
        getJsonValue(&value, key::duration, &parsed.duration, reply, 0,
                     std::numeric_limits<std::uint8_t>::max()) != 0) {
        return keyRefused;
    }
    const bool disabled = parsed.type == antenna_delay_type_e::DISABLED;
    if (disabled && parsed.duration != 0) {
        return refuse(reply,
                      "Failure: if delayBetweenAntennaCycles type is DISABLED, the duration must be 0");
    }
    if (!disabled && parsed.duration == 0) {
        return refuse(reply,
                      "Failure: if delayBetweenAntennaCycles type is not DISABLED, the duration must be "
                      "greater than 0");
    }
    if (parsed.type == antenna_delay_type_e::NO_UNIQUE_TAGS && thisModel().antennaDelay != parsed.type) {
        return refuse(reply,
                      "Failure: in delayBetweenAntennaCycles, NO_UNIQUE_TAGS type cannot be used with a "
                      "PN5100");
    }
    mode->delayBetweenAntennaCycles = parsed;
    return keyParsed;
}

int parseDelayAfterSelect(const json* root, mode_configuration_s* mode, std::string* reply) {
    reply->clear();
    std::uint32_t delay = 0;
    if (const int result =
            getJsonValue(root, key::delayAfterSelects, &delay, reply, std::uint32_t{0}, maxDelayAfterSelects);
        result != 0) {
        return optionalKey(result, reply);
    }
    if (!thisModel().setsDelayAfterSelects) {
        *reply = "Failure: delayAfterSelects is supported only on the PN8200";
        return -3;
    }
    mode->delayAfterSelects = delay;
    return keyParsed;
}
