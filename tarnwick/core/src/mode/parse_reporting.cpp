// SPDX-License-Identifier: MIT
// Which tags are reported, and what each report holds: "reportFilter", "rssiFilter" and
// "tagMetaData".
#include <charconv>
#include <limits>
#include <nlohmann/json.hpp>
#include <optional>

#include "additional_config.hpp"
#include "mode/defaults.hpp"
#include "mode/parser.hpp"
#include "mode/record.hpp"
#include "mode/render.hpp"
#include "reader_facts.hpp"
#include "util.hpp"

using nlohmann::json;

namespace {

constexpr const char* onlyAddlKey = "TID";
constexpr std::uint32_t maxWordsOfRange = 255;

// ---------------------------------------------------------------- "reportFilter"

// "addl_keys": with the key the database of additional keys is turned on, without it off.
int parseAddlKeys(const json* object, reportFilter_s* filter, std::string* reply) {
    json keys;
    if (getJsonValueArray(object, key::addl_keys, &keys, reply) != 0) {
        reply->clear();
        additional_config::isAddlKeysEnabled.store(false, std::memory_order_relaxed);
        return keyParsed;
    }
    for (const json& element : keys) {
        const auto* word = element.get_ptr<const json::string_t*>();
        if (word == nullptr) {
            return refuse(reply, "Failure: all values in the addl_keys array must be strings");
        }
        if (*word != onlyAddlKey) {
            sprintfStr(reply, "Failure: addl_keys value (%s) not supported. Supported values: (TID) ",
                       word->c_str());
            return keyRefused;
        }
        filter->addlKeys.push_back(*word);
    }
    if (setAddlKeysFilterConfig(filter->type == report_filter_type_e::PER_ANTENNA,
                                static_cast<float>(filter->duration), maxAddlKeysDBSize) != 0) {
        return refuse(reply, "Failure: could not set additional keys filter configuration");
    }
    return keyParsed;
}

// ---------------------------------------------------------------- "tagMetaData"

// A word offset: decimal digits and nothing else.
std::optional<std::uint32_t> parseOffset(std::string_view digits) {
    std::uint32_t number = 0;
    const char* end = digits.data() + digits.size();
    const auto [stop, error] = std::from_chars(digits.data(), end, number);
    if (error != std::errc{} || stop != end) {
        return std::nullopt;
    }
    return number;
}

// "7" is word 7, "0-3" are words 0 to 3.
std::optional<memory_Access_s> parseRange(std::string_view item) {
    const std::size_t dash = item.find('-');
    const auto first = parseOffset(item.substr(0, dash));
    const auto last = dash == std::string_view::npos ? first : parseOffset(item.substr(dash + 1));
    if (!first || !last || *first > *last || *last - *first >= maxWordsOfRange) {
        return std::nullopt;
    }
    return memory_Access_s{*first, static_cast<std::uint8_t>(*last - *first + 1)};
}

// "0-3,7"; empty when one of the items is not a range.
std::vector<memory_Access_s> parseRanges(std::string_view list) {
    std::vector<memory_Access_s> ranges;
    while (true) {
        const std::size_t comma = list.find(',');
        const auto range = parseRange(list.substr(0, comma));
        if (!range) {
            return {};
        }
        ranges.push_back(*range);
        if (comma == std::string_view::npos) {
            return ranges;
        }
        list.remove_prefix(comma + 1);
    }
}

// The ranges of a word that names this bank: "USER" is the whole bank, "USER[0-3,7]"
// five words of it. Empty when the word names another bank or is malformed.
std::vector<memory_Access_s> parseBankWord(std::string_view word, std::string_view bank) {
    if (word == bank) {
        return {memory_Access_s{}};
    }
    if (!word.starts_with(bank) || word.substr(bank.size(), 1) != "[" || word.find(']') != word.size() - 1) {
        return {};
    }
    word.remove_prefix(bank.size() + 1);
    word.remove_suffix(1);
    return parseRanges(word);
}

// Turns off all that "tagMetaData" can ask for, also what the mode type has turned on.
void clearTagMetaData(mode_configuration_s* mode) {
    for (const metadata_word_s& row : metadataWords) {
        if (row.enabled != nullptr) {
            mode->*row.enabled = false;
        }
    }
    mode->customFieldsBitMask = DEFAULT_CUSTOM_FIELDS;
    for (auto& row : mode->readMemory) {
        row.clear();
    }
}

int parseMetadataWord(const std::string& word, mode_configuration_s* mode, std::string* reply) {
    const auto* row = std::ranges::find(metadataWords, word, &metadata_word_s::word);
    if (row == metadataWords.end()) {
        if (!parseReadMemory(&word, mode)) {
            sprintfStr(reply, "Failure: tagMetaData value (%s) not recognized", word.c_str());
            return keyRefused;
        }
        return keyParsed;
    }
    if (row->enabled == nullptr) {
        mode->customFieldsBitMask |= row->field;
        return keyParsed;
    }
    if (row->enabled == &mode_configuration_s::reportHeatmap && !thisModel().arrayReader) {
        return refuse(reply, "Failure: HEATMAP metadata can only be used on the QDX4400");
    }
    mode->*row->enabled = true;
    return keyParsed;
}

int parseAntennaPortNames(const json* names, mode_configuration_s* mode, std::string* reply) {
    if (thisModel().arrayReader) {
        return refuse(reply, "Failure: antennaPortNames cannot be used with the QDX4400");
    }
    if (names->size() != getMaxAnts()) {
        sprintfStr(reply,
                   "Failure: the number of entries in the antennaPortNames must be the same length as the "
                   "number of antennas on the reader (%d).",
                   getMaxAnts());
        return keyRefused;
    }
    std::vector<std::string> parsed;
    for (const json& name : *names) {
        const auto* text = name.get_ptr<const json::string_t*>();
        if (text == nullptr) {
            return refuse(reply, "Failure: All entries for antennaPortNames must be strings");
        }
        parsed.push_back(*text);
    }
    mode->antennaPortNames = std::move(parsed);
    return keyParsed;
}

// Quirk: an object without either of the two keys is accepted.
int parseMetadataObject(const json* object, mode_configuration_s* mode, std::string* reply) {
    if (optionalKey(getJsonValue(object, key::userDefined, &mode->userDefined, reply, {}), reply) ==
        keyRefused) {
        return keyRefused;
    }
    json names;
    switch (optionalKey(getJsonValueArray(object, key::antennaPortNames, &names, reply), reply)) {
        case keyParsed:
            return parseAntennaPortNames(&names, mode, reply);
        case keyAbsent:
            return keyParsed;
        default:
            return keyRefused;
    }
}

}  // namespace

// An object without additional keys turns their database off; without "reportFilter" the database
// stays as it is. Quirk: both happen at once, also when a later key of the request is refused.
int parseReportFilter(const json* root, mode_configuration_s* mode, std::string* reply) {
    reply->clear();
    json value;
    if (const int result = getJsonValueObject(root, key::reportFilter, &value, reply); result != 0) {
        return optionalKey(result, reply) == keyAbsent ? keyParsed : keyRefused;
    }
    reportFilter_s parsed{report_filter_type_e::NONE, 0, {}};
    if (!value.empty() && (getJsonWord(&value, key::type, reportFilterTypeWords, &parsed.type, reply) != 0 ||
                           getJsonValue(&value, key::duration, &parsed.duration, reply, 0,
                                        std::numeric_limits<std::uint32_t>::max()) != 0)) {
        return keyRefused;
    }
    if (parseAddlKeys(&value, &parsed, reply) != keyParsed) {
        return keyRefused;
    }
    copyReportFilter(&parsed, &mode->reportFilter);
    return keyParsed;
}

int parseRSSIFilter(const json* root, mode_configuration_s* mode, std::string* reply) {
    reply->clear();
    json value;
    if (const int result = getJsonValueObject(root, key::rssiFilter, &value, reply); result != 0) {
        return optionalKey(result, reply) == keyAbsent ? keyParsed : keyRefused;
    }
    if (!readerFacts.rssiFilterSupported) {
        return refuse(reply, "Failure: RSSI filter not supported");
    }
    rssiFilter_s parsed{RSSI_FILTER_OFF};
    using bounds = std::numeric_limits<std::int8_t>;
    if (!value.empty() &&
        getJsonValue(&value, key::threshold, &parsed.threshold, reply, bounds::min(), bounds::max()) != 0) {
        return keyRefused;
    }
    copyRSSIFilter(&parsed, &mode->rssiFilter);
    return keyParsed;
}

int parseTagMetaData(const json* root, mode_configuration_s* mode, std::string* reply) {
    reply->clear();
    json value;
    if (const int result = getJsonValueArray(root, key::tagMetaData, &value, reply); result != 0) {
        return optionalKey(result, reply);
    }
    clearTagMetaData(mode);
    for (const json& element : value) {
        int result = keyRefused;
        if (const auto* word = element.get_ptr<const json::string_t*>()) {
            result = parseMetadataWord(*word, mode, reply);
        } else if (element.is_object()) {
            result = parseMetadataObject(&element, mode, reply);
        } else {
            *reply =
                "Failure: \"tagMetaData\" must be an array containing only strings or userDefined or "
                "antennaPortNames objects";
        }
        if (result != keyParsed) {
            return keyRefused;
        }
    }
    return keyParsed;
}

bool parseReadMemory(const std::string* word, mode_configuration_s* mode) {
    for (const EPC_GEN2_MB_e bank : EPC_GEN2_MBs) {
        const auto row = static_cast<std::size_t>(bank);
        std::vector<memory_Access_s> ranges = parseBankWord(*word, EPC_GEN2_MB_strings[row]);
        if (!ranges.empty() && row < mode->readMemory.size()) {
            mode->readMemory[row] = std::move(ranges);
            return true;
        }
    }
    return false;
}
