// SPDX-License-Identifier: MIT
// Reading JSON by tables of keys: a row has the name of a key and the function that takes its
// value into a record. Scenarios and control messages share these functions, so a mistake has
// the same text in both:
//
//   "tags[2].placement.type" must be one of "random", "line", "grid"
//   "antennas[0].port" must be a whole number from 0 to 16
//   "air.fading" is not a known key; known are "exponent", "shadow", "fade", "errors"
//
// A table for objects with the keys "idle" and "seconds", of which the second is required:
//
//   constexpr std::array heatKeys{
//       key_s<heat_s>{"idle", [](const json_t& v, heat_s* h) { return takeNumber(v, -128, 127, &h->idle); }},
//       key_s<heat_s>{"seconds", takeLag, true},
//   };
//   refusal_s refusal = takeKeys(value, heatKeys, &heat);
//
// A take function checks one JSON value and writes it to its last argument. It returns a
// refusal, which is empty when the value was taken; after any other the argument is not used.
// Any thread. Throws only std::bad_alloc.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <iterator>
#include <limits>
#include <nlohmann/json.hpp>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "rxe.h"

namespace rxe {

using json_t = nlohmann::json;

// Why a value was refused; an empty text says that it was taken. The text goes on from the
// path: "must be ...", "is missing". The path leads from the value that was taken to the one at
// fault: "placement.type", "[3]"; it is empty for the value itself.
struct refusal_s {
    std::string text;
    std::string path;
    explicit operator bool() const { return !text.empty(); }
};

// The refusal with one more step, a key or "[index]", in front of its path.
refusal_s under(std::string_view step, refusal_s refusal);
// A text from outside, for a line that a person reads: between quotation marks, with everything
// that is not printable ASCII escaped as in JSON.
std::string quote(std::string_view text);
// The one line that a person reads: "tags[2].epc" must be ... Empty for an empty refusal.
std::string lineOf(const refusal_s& refusal);

// A key of an object and the function that takes its value into the record.
template <typename Record>
struct key_s {
    std::string_view name;
    // Checks the value and writes it to `*record`; refuses with a path that begins at the value.
    refusal_s (*take)(const json_t& value, Record* record);
    // The object has to have it; other keys may be left out.
    bool required = false;
};

// The refusal of the key `name`: "is not a known key; known are ...".
refusal_s unknownKey(std::string_view name, std::span<const std::string_view> known);

// Takes an object by its table of keys, in the alphabetical order of the object's members. The
// first mistake is the one that is told; what was taken before it stays in the record. A key
// that the table does not have is a mistake.
template <typename Record>
refusal_s takeKeys(const json_t& object, std::span<const key_s<Record>> keys, Record* record) {
    if (!object.is_object()) {
        return {"must be an object", {}};
    }
    for (const auto& [name, value] : object.items()) {
        const auto key = std::ranges::find(keys, std::string_view(name), &key_s<Record>::name);
        if (key == keys.end()) {
            std::vector<std::string_view> known;
            std::ranges::transform(keys, std::back_inserter(known), &key_s<Record>::name);
            return unknownKey(name, known);
        }
        if (refusal_s refusal = key->take(value, record)) {
            return under(name, std::move(refusal));
        }
    }
    for (const key_s<Record>& key : keys) {
        if (key.required && !object.contains(key.name)) {
            return under(key.name, {"is missing", {}});
        }
    }
    return {};
}

// The same for a table that is an array.
template <typename Record, std::size_t Count>
refusal_s takeKeys(const json_t& object, const std::array<key_s<Record>, Count>& keys, Record* record) {
    return takeKeys<Record>(object, std::span<const key_s<Record>>(keys), record);
}

// Takes each element of an array by `take(element, &record)`, up to `most` of them. After a
// refusal `*records` has not changed.
template <typename Record, typename Take>
refusal_s takeElements(const json_t& array, std::size_t most, Take take, std::vector<Record>* records) {
    if (!array.is_array() || array.size() > most) {
        return {"must be an array of at most " + std::to_string(most) + " elements", {}};
    }
    std::vector<Record> taken(array.size());
    for (std::size_t i = 0; i < taken.size(); ++i) {
        if (refusal_s refusal = take(array[i], &taken[i])) {
            return under("[" + std::to_string(i) + "]", std::move(refusal));
        }
    }
    *records = std::move(taken);
    return {};
}

// A whole number from `low` to `high`, ends included.
refusal_s takeWhole(const json_t& value, std::int64_t low, std::int64_t high, std::int64_t* out);
// The same for any integer type; `low` and `high` have to be within its range.
template <typename Number>
refusal_s takeInteger(const json_t& value, std::int64_t low, std::int64_t high, Number* out) {
    std::int64_t number = 0;
    refusal_s refusal = takeWhole(value, low, high, &number);
    if (!refusal) {
        *out = static_cast<Number>(number);
    }
    return refusal;
}

// A number from `low` to `high` that may have a fraction. NaN and infinities are refused.
refusal_s takeNumber(const json_t& value, double low, double high, double* out);
// Seconds from `low` to `high`, taken as microseconds and rounded to the nearest.
refusal_s takeSeconds(const json_t& value, double low, double high, std::int64_t* microseconds);
refusal_s takeBool(const json_t& value, bool* out);
// 1 to `most` printable ASCII characters, so that the text can stand in a line of a log.
refusal_s takeText(const json_t& value, std::size_t most, std::string* out);
// Decimal digits, from `least` to `most` of them.
refusal_s takeDigits(const json_t& value, std::size_t least, std::size_t most, std::string* out);
// Pairs of hexadecimal digits, in either case: `least` to `most` bytes, a multiple of `unit`.
refusal_s takeHex(const json_t& value, std::size_t least, std::size_t most, std::size_t unit,
                  std::vector<std::uint8_t>* bytes);
// A password: eight hexadecimal digits, the most significant first.
refusal_s takeWord32(const json_t& value, std::uint32_t* out);
// A version as "2.1.50.0": major, minor, patch and build, 0 to 255 each.
refusal_s takeVersion(const json_t& value, REL_VERSION_s* version);

// A word of a table and the value that it stands for.
template <typename Value>
struct word_s {
    std::string_view word;
    Value value;
};

// Takes the value of a word; a refusal lists the words of the table.
template <typename Value, std::size_t Count>
refusal_s takeWord(const json_t& value, const std::array<word_s<Value>, Count>& words, Value* out) {
    std::string known;
    for (const word_s<Value>& row : words) {
        if (value.is_string() && value.get_ref<const std::string&>() == row.word) {
            *out = row.value;
            return {};
        }
        known += (known.empty() ? "\"" : ", \"") + std::string(row.word) + '"';
    }
    return {"must be one of " + known, {}};
}

}  // namespace rxe
