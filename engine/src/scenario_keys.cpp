// SPDX-License-Identifier: MIT
#include "scenario_keys.hpp"

#include <charconv>
#include <cmath>
#include <cstdio>

namespace rxe {
namespace {

// A number for a text, without trailing zeros: 0.5, 100000.
std::string numberText(double number) {
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%.10g", number);
    return text.data();
}

// Fills `*bytes` from pairs of hexadecimal digits; false when there is any other character or a
// digit alone.
bool parseHex(std::string_view text, std::vector<std::uint8_t>* bytes) {
    bytes->resize(text.size() / 2);
    for (std::size_t i = 0; i < bytes->size(); ++i) {
        const char* const pair = text.data() + 2 * i;
        const auto [next, fault] = std::from_chars(pair, pair + 2, (*bytes)[i], 16);
        if (fault != std::errc{} || next != pair + 2) {
            return false;
        }
    }
    return text.size() % 2 == 0;
}

}  // namespace

// There is not a point in front of an index: "tags" and "[2]" make "tags[2]".
refusal_s under(std::string_view step, refusal_s refusal) {
    const bool joins = refusal.path.empty() || refusal.path.front() == '[';
    refusal.path = std::string(step) + (joins ? "" : ".") + refusal.path;
    return refusal;
}

refusal_s unknownKey(std::string_view name, std::span<const std::string_view> known) {
    std::string text =
        known.empty() ? "is not a known key; there are none" : "is not a known key; known are ";
    for (std::size_t i = 0; i < known.size(); ++i) {
        text += (i == 0 ? "\"" : ", \"") + std::string(known[i]) + '"';
    }
    return under(name, {text, {}});
}

std::string quote(std::string_view text) {
    return json_t(text).dump(-1, ' ', true, json_t::error_handler_t::replace);
}

std::string lineOf(const refusal_s& refusal) {
    return refusal.path.empty() ? refusal.text : quote(refusal.path) + ' ' + refusal.text;
}

refusal_s takeWhole(const json_t& value, std::int64_t low, std::int64_t high, std::int64_t* out) {
    const bool tooLarge =
        value.is_number_unsigned() &&
        value.get<std::uint64_t>() > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
    if (!value.is_number_integer() || tooLarge || value.get<std::int64_t>() < low ||
        value.get<std::int64_t>() > high) {
        return {"must be a whole number from " + std::to_string(low) + " to " + std::to_string(high), {}};
    }
    *out = value.get<std::int64_t>();
    return {};
}

refusal_s takeNumber(const json_t& value, double low, double high, double* out) {
    if (!value.is_number() || !(value.get<double>() >= low && value.get<double>() <= high)) {
        return {"must be a number from " + numberText(low) + " to " + numberText(high), {}};
    }
    *out = value.get<double>();
    return {};
}

refusal_s takeSeconds(const json_t& value, double low, double high, std::int64_t* microseconds) {
    double seconds = 0;
    refusal_s refusal = takeNumber(value, low, high, &seconds);
    if (!refusal) {
        *microseconds = std::llround(seconds * 1e6);
    }
    return refusal;
}

refusal_s takeBool(const json_t& value, bool* out) {
    if (!value.is_boolean()) {
        return {"must be true or false", {}};
    }
    *out = value.get<bool>();
    return {};
}

refusal_s takeText(const json_t& value, std::size_t most, std::string* out) {
    if (value.is_string()) {
        const auto& text = value.get_ref<const std::string&>();
        const bool printable = std::ranges::all_of(text, [](char c) { return c >= ' ' && c <= '~'; });
        if (!text.empty() && text.size() <= most && printable) {
            *out = text;
            return {};
        }
    }
    return {"must be a text of 1 to " + std::to_string(most) + " printable ASCII characters", {}};
}

refusal_s takeDigits(const json_t& value, std::size_t least, std::size_t most, std::string* out) {
    if (value.is_string()) {
        const auto& text = value.get_ref<const std::string&>();
        if (text.size() >= least && text.size() <= most &&
            text.find_first_not_of("0123456789") == std::string::npos) {
            *out = text;
            return {};
        }
    }
    return {"must be a text of " + std::to_string(least) + " to " + std::to_string(most) + " digits", {}};
}

refusal_s takeHex(const json_t& value, std::size_t least, std::size_t most, std::size_t unit,
                  std::vector<std::uint8_t>* bytes) {
    std::vector<std::uint8_t> taken;
    if (value.is_string() && parseHex(value.get_ref<const std::string&>(), &taken) && taken.size() >= least &&
        taken.size() <= most && taken.size() % unit == 0) {
        *bytes = std::move(taken);
        return {};
    }
    return {"must be a text of " + std::to_string(least * 2) + " to " + std::to_string(most * 2) +
                " hexadecimal digits, a multiple of " + std::to_string(unit * 2),
            {}};
}

refusal_s takeWord32(const json_t& value, std::uint32_t* out) {
    std::vector<std::uint8_t> bytes;
    refusal_s refusal = takeHex(value, 4, 4, 1, &bytes);
    if (refusal) {
        return {"must be a text of 8 hexadecimal digits", {}};
    }
    *out = 0;
    for (const std::uint8_t byte : bytes) {
        *out = *out << 8 | byte;
    }
    return {};
}

refusal_s takeVersion(const json_t& value, REL_VERSION_s* version) {
    const refusal_s refusal{"must be a text of four numbers from 0 to 255, such as \"2.1.50.0\"", {}};
    if (!value.is_string()) {
        return refusal;
    }
    const auto& text = value.get_ref<const std::string&>();
    const char* at = text.data();
    const char* const end = at + text.size();
    std::array<std::uint8_t, 4> numbers{};
    for (std::size_t i = 0; i < numbers.size(); ++i) {
        if (i > 0 && (at == end || *at++ != '.')) {
            return refusal;
        }
        const auto [next, fault] = std::from_chars(at, end, numbers[i]);
        if (fault != std::errc{}) {
            return refusal;
        }
        at = next;
    }
    if (at != end) {
        return refusal;
    }
    *version = {numbers[0], numbers[1], numbers[2], numbers[3]};
    return {};
}

}  // namespace rxe
