// SPDX-License-Identifier: MIT
// "filter": which tags are reported, by prefix, suffix or regular expression of
// their EPC.
#include <nlohmann/json.hpp>

#include "filter_expression.hpp"
#include "mode/parser.hpp"
#include "mode/record.hpp"
#include "util.hpp"

using nlohmann::json;

namespace {

constexpr std::size_t maxFilterText = maxExpressionLength;
constexpr std::size_t maxPatternDigits = 128;
static_assert(maxPatternDigits / 2 <= std::tuple_size_v<decltype(tagFilter_s::pattern)>);

// The three texts of a filter.
struct filter_words_s {
    std::string value;
    std::string match;
    std::string operation;
};

// One of these texts, with the replies for an absent key and for a value that is not a text.
struct filter_key_s {
    const char* key;
    std::string filter_words_s::*word;
    std::string_view absent;
    std::string_view noString;
};
// Quirk: the second reply of the first row names the wrong key, and two begin with "Failure: " twice.
constexpr std::array filterKeys{
    filter_key_s{key::value, &filter_words_s::value,
                 "Failure: mode json payload mode \"filter\" must include value",
                 "Failure: mode json payload mode \"filter\"\\\"match\" must be a string"},
    filter_key_s{key::match, &filter_words_s::match,
                 "Failure: mode json payload mode \"filter\" must include match",
                 "Failure: Failure: mode json payload mode \"filter\"\\\"match\" must be a string"},
    filter_key_s{key::operation, &filter_words_s::operation,
                 "Failure: mode json payload mode \"filter\" must include operation",
                 "Failure: Failure: mode json payload mode \"filter\"\\\"operation\" must be a string"},
};

// First tests that all three keys are there, then reads their texts: this is the order of the replies.
int readWords(const json* value, filter_words_s* words, std::string* reply) {
    if (!value->is_object()) {
        return refuse(reply, "Failure: mode json payload mode \"filter\" must have an object value");
    }
    for (const filter_key_s& row : filterKeys) {
        if (!value->contains(row.key)) {
            return refuse(reply, row.absent);
        }
    }
    for (const filter_key_s& row : filterKeys) {
        const auto* text = value->find(row.key)->get_ptr<const json::string_t*>();
        if (text == nullptr) {
            return refuse(reply, row.noString);
        }
        words->*row.word = *text;
    }
    return keyParsed;
}

// Reads the hexadecimal digits of a prefix or suffix into `pattern`.
int parsePattern(const std::string& digits, tagFilter_s* filter, std::string* reply) {
    if (digits.size() % 2 != 0) {
        sprintfStr(reply,
                   "Failure: mode json payload mode \"filter\"\\\"value\" for prefix and suffix have an even "
                   "number of hex digits. It has %zu hex digits",
                   digits.size());
        return keyRefused;
    }
    if (digits.size() > maxPatternDigits) {
        sprintfStr(reply,
                   "Failure: mode json payload mode \"filter\"\\\"value\" for prefix and suffix is too long. "
                   "It has %zu hex digits, The maximum is %d",
                   digits.size(), static_cast<int>(maxPatternDigits));
        return keyRefused;
    }
    if (!isAllHexDigits(digits)) {
        return refuse(reply,
                      "Failure: mode json payload mode \"filter\"\\\"value\" for prefix and suffix can only "
                      "have hex digits.");
    }
    const std::vector<std::uint8_t> bytes = hexBytes(digits);
    std::ranges::copy(bytes, filter->pattern.begin());
    filter->patternLength = static_cast<std::uint8_t>(bytes.size());
    return keyParsed;
}

int parseExpression(const std::string& text, tagFilter_s* filter, std::string* reply) {
    if (!compileFilterExpression(text, &filter->regex)) {
        sprintfStr(reply,
                   "Failure: mode json payload mode \"filter\"\\\"match\"\\\"regex\" value %s is not a valid "
                   "regex",
                   text.c_str());
        return keyRefused;
    }
    return keyParsed;
}

}  // namespace

int parseFilter(const json* value, tagFilter_s* filter, std::string* reply) {
    filter_words_s words;
    if (readWords(value, &words, reply) != keyParsed) {
        return keyRefused;
    }
    if (words.value.size() > maxFilterText) {
        return refuse(reply, "Failure: mode json payload mode \"filter\"\\\"match\" is too long");
    }
    const filter_match_e* match = findValue(filterMatchWords, words.match);
    if (match == nullptr) {
        sprintfStr(
            reply,
            "Failure: mode json payload mode \"filter\"\\\"match\" must be a must be prefix, suffix, or "
            "regex (%s entered)",
            words.match.c_str());
        return keyRefused;
    }
    tagFilter_s parsed;
    parsed.enabled = 1;
    parsed.match = *match;
    const auto parseValue = *match == filter_match_e::REGEX ? parseExpression : parsePattern;
    if (parseValue(words.value, &parsed, reply) != keyParsed) {
        return keyRefused;
    }
    const filter_operation_e* operation = findValue(filterOperationWords, words.operation);
    if (operation == nullptr) {
        sprintfStr(reply, "Failure: tag_filter operation must be include or exclude (%s entered)",
                   words.operation.c_str());
        return keyRefused;
    }
    parsed.operation = *operation;
    parsed.value = std::move(words.value);
    copyTagFilter(&parsed, filter);
    return keyParsed;
}
