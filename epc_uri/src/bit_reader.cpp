// SPDX-License-Identifier: MIT
#include "bit_reader.hpp"

#include <algorithm>

namespace {

constexpr std::uint8_t noDigit = 0xFF;  // for characters that are not hexadecimal digits

// The value of a digit by its character, so that a decode looks each one up in one step.
constexpr std::array<std::uint8_t, 256> makeDigits() {
    std::array<std::uint8_t, 256> digits{};
    digits.fill(noDigit);
    for (std::uint8_t i = 0; i < 10; ++i) {
        digits[static_cast<std::size_t>('0') + i] = i;
    }
    for (std::uint8_t i = 0; i < 6; ++i) {
        digits[static_cast<std::size_t>('A') + i] = static_cast<std::uint8_t>(10 + i);
        digits[static_cast<std::size_t>('a') + i] = static_cast<std::uint8_t>(10 + i);
    }
    return digits;
}

constexpr auto digits = makeDigits();

}  // namespace

tuvr_status_e readHex(const char* hex, bits_s* bits) {
    std::size_t length = 0;
    for (; hex[length] != '\0'; ++length) {
        const auto digit = digits[static_cast<unsigned char>(hex[length])];
        if (digit == noDigit) {
            return TUVR_BAD_HEX;
        }
        const auto index = length / 2;
        if (index < bits->bytes.size()) {
            auto& byte = bits->bytes[index];
            byte = static_cast<std::uint8_t>(length % 2 == 0 ? digit << 4 : byte | digit);
        }
    }
    if (length == 0 || length % 2 != 0) {
        return TUVR_WRONG_LENGTH;
    }
    bits->count = std::min(length / 2, bits->bytes.size()) * 8;
    bits->at = 0;
    return TUVR_OK;
}

bool takeBits(bits_s* bits, unsigned width, std::uint64_t* value) {
    if (bits->count - bits->at < width) {
        return false;
    }
    std::uint64_t taken = 0;
    // Takes what is left of a byte, or less, in each turn.
    while (width > 0) {
        const auto offset = static_cast<unsigned>(bits->at % 8);
        const auto step = std::min(width, 8 - offset);
        const unsigned byte = bits->bytes[bits->at / 8];
        taken = taken << step | ((byte >> (8 - offset - step)) & ((1U << step) - 1));
        bits->at += step;
        width -= step;
    }
    *value = taken;
    return true;
}
