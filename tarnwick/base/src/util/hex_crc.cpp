// SPDX-License-Identifier: MIT
#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <span>

#include "util.hpp"
#include "util/characters.hpp"

namespace {

constexpr auto hexMap = [] {
    constexpr char digits[] = "0123456789abcdef";
    std::array<std::array<char, 2>, 256> pairs{};
    for (std::size_t byte = 0; byte < pairs.size(); ++byte) {
        pairs[byte] = {digits[byte >> 4], digits[byte & 0xF]};
    }
    return pairs;
}();

// The remainder of each high byte after eight steps of the polynomial.
constexpr auto crcTable = [] {
    constexpr std::uint16_t polynomial = 0x1021;
    std::array<std::uint16_t, 256> table{};
    for (std::size_t byte = 0; byte < table.size(); ++byte) {
        auto remainder = static_cast<std::uint16_t>(byte << 8);
        for (int bit = 0; bit < 8; ++bit) {
            const bool carry = (remainder & 0x8000) != 0;
            remainder = static_cast<std::uint16_t>((remainder << 1) ^ (carry ? polynomial : 0));
        }
        table[byte] = remainder;
    }
    return table;
}();

}  // namespace

std::uint8_t hex2int(char digit) {
    if (digit >= '0' && digit <= '9') {
        return static_cast<std::uint8_t>(digit - '0');
    }
    if (digit >= 'a' && digit <= 'f') {
        return static_cast<std::uint8_t>(digit - 'a' + 10);
    }
    if (digit >= 'A' && digit <= 'F') {
        return static_cast<std::uint8_t>(digit - 'A' + 10);
    }
    return 0;
}

std::uint8_t hex2int(char high, char low) {
    return static_cast<std::uint8_t>((hex2int(high) << 4) | hex2int(low));
}

bool isAllHexDigits(const std::string& text) {
    return std::all_of(text.begin(), text.end(), isHexDigit);
}

std::uint64_t hexToUint64(const std::string& text) {
    return std::strtoull(text.c_str(), nullptr, 16);
}

std::string hexStr(const std::vector<std::uint8_t>& bytes, int count) {
    std::string digits;
    if (count > 0) {
        appendHex(bytes.data(), std::min(bytes.size(), static_cast<std::size_t>(count)), &digits);
    }
    return digits;
}

void appendHex(const std::uint8_t* bytes, std::size_t count, std::string* out) {
    const std::size_t end = out->size();
    out->resize(end + 2 * count);
    char* digits = out->data() + end;
    for (std::size_t i = 0; i < count; ++i, digits += 2) {
        std::memcpy(digits, hexMap[bytes[i]].data(), 2);
    }
}

void b8_crc16(std::uint16_t* crc, std::uint8_t byte) {
    *crc = static_cast<std::uint16_t>((*crc << 8) ^ crcTable[(*crc >> 8) ^ byte]);
}

std::uint16_t computeCRC(int length, const std::uint8_t* data) {
    if (length < 1) {
        return 0;
    }
    std::uint32_t crc = 0xFFFF;  // in its low half
    for (const std::uint8_t byte : std::span(data, static_cast<std::size_t>(length))) {
        crc = crc << 8 ^ crcTable[(crc >> 8 & 0xFF) ^ byte];
    }
    return static_cast<std::uint16_t>(~crc);
}
