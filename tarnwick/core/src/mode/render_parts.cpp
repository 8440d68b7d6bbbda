// SPDX-License-Identifier: MIT
// The conditions and filters of the mode in force as JSON.
#include <nlohmann/json.hpp>

#include "mode/accessors.hpp"
#include "mode/defaults.hpp"
#include "mode/language.hpp"
#include "mode/record.hpp"
#include "mode/render.hpp"
#include "mode/words.hpp"

using nlohmann::json;

namespace {

// Sets the key unless the number is 0.
void addNonZero(json* out, const char* key, std::uint32_t number) {
    if (number != 0) {
        (*out)[key] = number;
    }
}

void addGPIs(json* out, const std::vector<gpi_s>& gpis) {
    if (gpis.empty()) {
        return;
    }
    json array = json::array();
    for (const gpi_s& gpi : gpis) {
        json rule;
        getGPIJsonObj(&rule, &gpi);
        array.push_back(std::move(rule));
    }
    (*out)[key::gpis] = std::move(array);
}

json antennaStopObj(const antennaStopCondition_s& condition) {
    json out = json::object();
    out[key::type] = findWord(antennaStopTypeWords, condition.type);
    if (condition.type == antenna_stop_type_e::GPI) {
        getGPIJsonObj(&out[key::value], &condition.gpi);
    } else {
        out[key::value] = condition.value;
    }
    return out;
}

// The word itself, or "unknown" for a value without a word.
std::string_view wordOrUnknown(std::string_view word) {
    return word.empty() ? "unknown" : word;
}

}  // namespace

void getGPIJsonObj(json* out, const gpi_s* gpi) {
    *out = {{key::port, gpi->port},
            {key::signal, gpi->signal == 1 ? "HIGH" : "LOW"},
            {key::debounceTime, gpi->debounceTime}};
}

void getAntennaStopConditionJsonObj(json* out, GET_CURRENT_MODE_METHOD_e method) {
    const mode_configuration_s& mode = mode_configuration;
    const antennaStopCondition_s atDefault{
        DEFAULT_ANTENNA_STOP_CONDITION_TYPE, getDefaultAntennaStopConditionDuration(&mode), {}};
    const auto isShown = [&](const antennaStopCondition_s& condition) {
        return method == GET_CURRENT_MODE_METHOD_e::VERBOSE || condition != atDefault;
    };
    *out = json();
    if (mode.antennaStopConditionList.empty()) {
        if (isShown(mode.antennaStopCondition)) {
            *out = antennaStopObj(mode.antennaStopCondition);
        }
        return;
    }
    for (const antennaStopCondition_s& condition : mode.antennaStopConditionList) {
        if (isShown(condition)) {
            out->push_back(antennaStopObj(condition));
        }
    }
}

void getRadioStopConditionsJsonObj(json* out) {
    const radioStopConditions_s& conditions = mode_configuration.radioStopConditions;
    *out = json::object();
    if (conditions.duration != 0) {
        (*out)[key::duration] = conditions.duration / 1000;  // whole seconds
    }
    addNonZero(out, key::antennaCycles, conditions.olioLoops);
    addNonZero(out, key::tagCount, conditions.tagCount);
    addNonZero(out, key::durationAfterNoMoreUniqueTags, conditions.noMoreUniqueTags);
    addGPIs(out, conditions.gpis);
}

void getRadioStartConditionsJsonObj(json* out) {
    const radioStartConditions_s& conditions = mode_configuration.radioStartConditions;
    *out = json::object();
    if (const std::string_view word = findWord(radioStartTypeWords, conditions.type); !word.empty()) {
        (*out)[key::type] = word;
    }
    addGPIs(out, conditions.gpis);
}

void getReportFilterJsonObj(json* out) {
    const reportFilter_s& filter = mode_configuration.reportFilter;
    *out = json::object();
    const std::string_view type = findWord(reportFilterTypeWords, filter.type);
    if (type.empty()) {
        return;
    }
    (*out)[key::type] = type;
    (*out)[key::duration] = filter.duration;
    if (!filter.addlKeys.empty()) {
        (*out)[key::addl_keys] = filter.addlKeys;
    }
}

void getDelayBetweenAntCyclesJsonObj(json* out) {
    const delay_between_antenna_cycles_s& delay = mode_configuration.delayBetweenAntennaCycles;
    *out = {{key::type, findWord(antennaDelayTypeWords, delay.type)}, {key::duration, delay.duration}};
}

void getTagFilterJsonObj(json* out) {
    const tagFilter_s& filter = mode_configuration.tagFilter;
    *out = {{key::value, filter.value},
            {key::match, wordOrUnknown(findWord(filterMatchWords, filter.match))},
            {key::operation, wordOrUnknown(findWord(filterOperationWords, filter.operation))}};
}

// ---------------------------------------------------------------- "tagMetaData"

void getTagMetaDataJsonObj(json* out) {
    const mode_configuration_s& mode = mode_configuration;
    *out = json::array();
    for (const metadata_word_s& row : metadataWords) {
        const bool on =
            row.enabled != nullptr ? mode.*row.enabled : (mode.customFieldsBitMask & row.field) != 0;
        if (on) {
            out->push_back(row.word);
        }
    }
    if (!mode.userDefined.empty()) {
        out->push_back(json::object({{key::userDefined, mode.userDefined}}));
    }
    if (!mode.antennaPortNames.empty()) {
        out->push_back(json::object({{key::antennaPortNames, mode.antennaPortNames}}));
    }
    for (const EPC_GEN2_MB_e bank : EPC_GEN2_MBs) {
        if (isAccessEnabled(bank, &mode)) {
            std::string word;
            getMetaDataReadMemoryString(bank, &word);
            out->push_back(std::move(word));
        }
    }
}

void getMetaDataReadMemoryString(EPC_GEN2_MB_e bank, std::string* word) {
    const auto row = static_cast<std::size_t>(bank);
    const std::vector<memory_Access_s>& ranges = mode_configuration.readMemory.at(row);
    *word = EPC_GEN2_MB_strings.at(row);
    if (ranges.size() == 1 && ranges.front().wordCount == 0) {
        return;
    }
    char separator = '[';
    for (const memory_Access_s& range : ranges) {
        *word += separator;
        *word += std::to_string(range.wordOffset);
        if (range.wordCount != 1) {
            *word += '-' + std::to_string(range.wordOffset + range.wordCount - 1);
        }
        separator = ',';
    }
    *word += ']';
}
