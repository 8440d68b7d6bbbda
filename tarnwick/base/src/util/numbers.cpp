// SPDX-License-Identifier: MIT
#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "util.hpp"
#include "util/characters.hpp"

namespace {

// A decimal or hexadecimal integer as it was read, before it is compared with bounds.
struct integer_text_s {
    bool negative = false;
    bool tooLarge = false;  // more than 64 bits; the magnitude is then unset
    std::uint64_t magnitude = 0;
};

void addError(std::uint32_t* errors, std::uint32_t bit) {
    if (errors != nullptr) {
        *errors |= bit;
    }
}

bool isDigit(char character) {
    return character >= '0' && character <= '9';
}

std::string_view withoutLeadingSpace(std::string_view text) {
    text.remove_prefix(std::find_if_not(text.begin(), text.end(), isSpace) - text.begin());
    return text;
}

// Removes one sign from the front; true for a minus.
bool takeSign(std::string_view* text) {
    const bool negative = text->starts_with('-');
    if (negative || text->starts_with('+')) {
        text->remove_prefix(1);
    }
    return negative;
}

bool hasHexPrefix(std::string_view text) {
    return text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X') && isHexDigit(text[2]);
}

bool readInteger(std::string_view text, int base, integer_text_s* integer) {
    text = withoutLeadingSpace(text);
    integer->negative = takeSign(&text);
    if (base != 10 && hasHexPrefix(text)) {
        text.remove_prefix(2);
        base = 16;
    }
    const char* const end = text.data() + text.size();
    const auto read = std::from_chars(text.data(), end, integer->magnitude, base == 16 ? 16 : 10);
    integer->tooLarge = read.ec == std::errc::result_out_of_range;
    return read.ec != std::errc::invalid_argument && std::all_of(read.ptr, end, isSpace);
}

template <class Integer>
Integer strToInteger(const std::string& text, std::uint32_t* errors, int base, Integer lowest,
                     Integer highest) {
    if (base != 0 && base != 10 && base != 16) {
        addError(errors, strToErrorBase);
        return 0;
    }
    integer_text_s integer;
    if (!readInteger(text, base, &integer)) {
        addError(errors, strToErrorText);
        return 0;
    }
    // The bounds are compared with the true value: a negative one fits into int64_t or is below every
    // bound, any other fits into uint64_t or is above every bound.
    constexpr std::uint64_t mostNegative = std::uint64_t{1} << 63;
    const bool outOfReach = integer.tooLarge || (integer.negative && integer.magnitude > mostNegative);
    const auto negated = static_cast<std::int64_t>(0 - integer.magnitude);
    const bool tooLow = integer.negative ? outOfReach || std::cmp_less(negated, lowest)
                                         : !outOfReach && std::cmp_less(integer.magnitude, lowest);
    if (tooLow) {
        addError(errors, strToErrorTooLow);
        return lowest;
    }
    const bool tooHigh = integer.negative ? std::cmp_greater(negated, highest)
                                          : outOfReach || std::cmp_greater(integer.magnitude, highest);
    if (tooHigh) {
        addError(errors, strToErrorTooHigh);
        return highest;
    }
    return static_cast<Integer>(integer.negative ? 0 - integer.magnitude : integer.magnitude);
}

// Whether the text begins with a decimal number. The C conversions would also accept "inf", "nan" and
// hexadecimal numbers.
bool startsAsDecimal(std::string_view text) {
    text = withoutLeadingSpace(text);
    takeSign(&text);
    if (hasHexPrefix(text)) {
        return false;
    }
    if (text.starts_with('.')) {
        text.remove_prefix(1);
    }
    return !text.empty() && isDigit(text.front());
}

template <class Float>
Float strToFloating(const std::string& text, std::uint32_t* errors, Float lowest, Float highest,
                    Float (*convert)(const char*, char**)) {
    char* end = nullptr;
    const Float value = startsAsDecimal(text) ? convert(text.c_str(), &end) : 0;
    if (end == nullptr || !std::all_of<const char*>(end, text.c_str() + text.size(), isSpace)) {
        addError(errors, strToErrorText);
        return 0;
    }
    if (value < lowest) {
        addError(errors, strToErrorTooLow);
        return lowest;
    }
    if (value > highest) {
        addError(errors, strToErrorTooHigh);
        return highest;
    }
    return value;
}

}  // namespace

// One of the public functions, by its type of number.
#define TARNWICK_STR_TO_INTEGER(Name, Integer)                                             \
    Integer Name(const std::string& text, std::uint32_t* errors, int base, Integer lowest, \
                 Integer highest) {                                                        \
        return strToInteger(text, errors, base, lowest, highest);                          \
    }
TARNWICK_STR_TO_INTEGER(strToInt16, std::int16_t)
TARNWICK_STR_TO_INTEGER(strToUint16, std::uint16_t)
TARNWICK_STR_TO_INTEGER(strToInt32, std::int32_t)
TARNWICK_STR_TO_INTEGER(strToUint32, std::uint32_t)
TARNWICK_STR_TO_INTEGER(strToInt64, std::int64_t)
TARNWICK_STR_TO_INTEGER(strToUint64, std::uint64_t)
#undef TARNWICK_STR_TO_INTEGER

float strToFloat(const std::string& text, std::uint32_t* errors, float lowest, float highest) {
    return strToFloating(text, errors, lowest, highest, &std::strtof);
}

double str_to_double(const std::string& text, std::uint32_t* errors, double lowest, double highest) {
    return strToFloating(text, errors, lowest, highest, &std::strtod);
}

void splitDecimalString(const std::string& text, long long* whole, long long* micros) {
    const float value = std::stof(text);
    if (std::isnan(value)) {
        throw std::invalid_argument("stof");
    }
    constexpr float wholeLimit = 9223372036854775808.0F;  // 2 to the 63rd
    if (std::fabs(value) >= wholeLimit) {
        throw std::out_of_range("stof");
    }
    *whole = static_cast<long long>(value);
    // All in float: the rounding of the product removes the error with which "0.7" is read.
    *micros = static_cast<long long>((value - static_cast<float>(*whole)) * 1000000.0F);
}

bool approxEqual(float a, float b) {
    constexpr float epsilon = std::numeric_limits<float>::epsilon();
    const float difference = std::fabs(a - b);
    return difference <= epsilon || difference <= epsilon * std::max(std::fabs(a), std::fabs(b));
}

float Mean(const float* values, int count) {
    if (count < 1) {
        return std::numeric_limits<float>::quiet_NaN();
    }
    float sum = 0;
    for (int i = 0; i < count; ++i) {
        sum += values[i];
    }
    return sum / static_cast<float>(count);
}

float stdDev(const float* values, int count, float mean) {
    if (count < 2) {
        return std::numeric_limits<float>::quiet_NaN();
    }
    if (std::isnan(mean)) {
        mean = Mean(values, count);
    }
    float sum = 0;
    for (int i = 0; i < count; ++i) {
        sum += (values[i] - mean) * (values[i] - mean);
    }
    return std::sqrt(sum / static_cast<float>(count - 1));
}
