// SPDX-License-Identifier: MIT
#include "json_values.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <nlohmann/json.hpp>

namespace json_text {
namespace {

// putReal uses the library's formatter of a double, which is not part of its public interface;
// std::to_chars differs from it in one of some 2,000 numbers. A test compares it with dump().
static_assert(NLOHMANN_JSON_VERSION_MAJOR == 3 && NLOHMANN_JSON_VERSION_MINOR == 11);

// Up to this frequency in kHz putMegahertz writes the digits itself; the library prints the same for
// each of these numbers. UHF channels are below 1 GHz, so the library's formatter is not called.
constexpr std::uint32_t gridKilohertz = 6'000'000;

constexpr std::string_view hexDigits = "0123456789abcdef";

// The digits of 00 to 99, two for each number.
constexpr auto pairs = [] {
    std::array<char, 200> digits{};
    for (std::size_t i = 0; i < 100; ++i) {
        digits[2 * i] = static_cast<char>('0' + i / 10);
        digits[2 * i + 1] = static_cast<char>('0' + i % 10);
    }
    return digits;
}();

char* putPair(std::uint32_t number, char* out) {
    std::memcpy(out, &pairs[std::size_t{2} * number], 2);
    return out + 2;
}

}  // namespace

char* putWord(std::uint16_t word, char* out) {
    out[0] = '"';
    out[1] = hexDigits[word >> 12];
    out[2] = hexDigits[word >> 8 & 15];
    out[3] = hexDigits[word >> 4 & 15];
    out[4] = hexDigits[word & 15];
    out[5] = '"';
    return out + 6;
}

char* putTenths(std::int32_t tenths, char* out) {
    if (tenths < 0) {
        *out++ = '-';
        tenths = -tenths;
    }
    const auto number = static_cast<std::uint32_t>(tenths);
    const std::uint32_t tens = number / 100;  // up to 655
    if (tens >= 100) {
        *out++ = static_cast<char>('0' + tens / 100);
    }
    if (tens >= 10) {
        out = putPair(tens % 100, out);
    } else if (tens > 0) {
        *out++ = static_cast<char>('0' + tens);
    }
    const char* last = &pairs[std::size_t{2} * (number % 100)];
    *out++ = last[0];
    *out++ = '.';
    *out++ = last[1];
    return out;
}

char* putMegahertz(std::uint32_t kilohertz, char* out) {
    if (kilohertz > gridKilohertz) {
        return putReal(static_cast<double>(static_cast<float>(kilohertz)) / 1000.0, out);
    }
    out = putUnsigned(kilohertz / 1000, out);
    *out++ = '.';
    const std::uint32_t rest = kilohertz % 1000;
    *out++ = static_cast<char>('0' + rest / 100);
    if (rest % 100 != 0) {
        *out++ = static_cast<char>('0' + rest / 10 % 10);
        if (rest % 10 != 0) {
            *out++ = static_cast<char>('0' + rest % 10);
        }
    }
    return out;
}

char* putReal(double number, char* out) {
    return std::isfinite(number) ? nlohmann::detail::to_chars(out, out + numberRoom, number)
                                 : putBytes("null", out);
}

std::string jsonString(std::string_view text, std::string* error) {
    try {
        return nlohmann::json(text).dump();
    } catch (const nlohmann::json::exception& failure) {
        *error = failure.what();
        return "\"\"";
    }
}

bool isPlain(std::string_view text) {
    return std::ranges::all_of(text, [](char character) {
        const auto byte = static_cast<unsigned char>(character);
        return byte >= 0x20 && byte < 0x80 && byte != '"' && byte != '\\';
    });
}

}  // namespace json_text
