// SPDX-License-Identifier: MIT
#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>

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

// The digits of eight bytes at once: 16 lanes of one vector, each a nibble and then its digit.
void putHex8(const std::uint8_t* bytes, char* digits) {
    using lanes_t [[gnu::vector_size(16)]] = unsigned char;
    using words_t [[gnu::vector_size(16)]] = std::uint64_t;
    std::uint64_t word = 0;
    std::memcpy(&word, bytes, sizeof word);
    const auto input = reinterpret_cast<lanes_t>(words_t{word, 0});
    const lanes_t high = input >> 4;
    const lanes_t low = input & 0xF;
    const lanes_t nibbles =
        __builtin_shufflevector(high, low, 0, 16, 1, 17, 2, 18, 3, 19, 4, 20, 5, 21, 6, 22, 7, 23);
    const auto isLetter = reinterpret_cast<lanes_t>(nibbles > 9);
    const lanes_t text = nibbles + '0' + (isLetter & ('a' - '0' - 10));
    std::memcpy(digits, &text, sizeof text);
}

// The remainder of each high byte after eight steps of the polynomial (most significant bit first).
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

// The same for a byte that is followed by 0 to 3 zero bytes, so that four bytes are folded in at once.
constexpr auto crcBefore = [] {
    std::array<std::array<std::uint16_t, 256>, 4> tables{crcTable};
    for (std::size_t i = 1; i < tables.size(); ++i) {
        for (std::size_t byte = 0; byte < 256; ++byte) {
            const std::uint16_t before = tables[i - 1][byte];
            tables[i][byte] = static_cast<std::uint16_t>(before << 8 ^ crcTable[before >> 8]);
        }
    }
    return tables;
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
    char* const digits = out->data() + end;
    if (count >= 8) {
        for (std::size_t done = 0; done + 8 < count; done += 8) {
            putHex8(bytes + done, digits + 2 * done);
        }
        putHex8(bytes + count - 8, digits + 2 * (count - 8));  // some of them twice
        return;
    }
    for (std::size_t done = 0; done < count; ++done) {
        std::memcpy(digits + 2 * done, hexMap[bytes[done]].data(), 2);
    }
}

void b8_crc16(std::uint16_t* crc, std::uint8_t byte) {
    *crc = static_cast<std::uint16_t>((*crc << 8) ^ crcTable[(*crc >> 8) ^ byte]);
}

std::uint16_t computeCRC(int length, const std::uint8_t* data) {
    if (length < 1) {
        return 0;
    }
    std::uint16_t crc = 0xFFFF;
    for (; length >= 4; length -= 4, data += 4) {
        crc = crcBefore[3][crc >> 8 ^ data[0]] ^ crcBefore[2][(crc & 0xFF) ^ data[1]] ^
              crcBefore[1][data[2]] ^ crcBefore[0][data[3]];
    }
    for (; length > 0; --length) {
        b8_crc16(&crc, *data++);
    }
    return static_cast<std::uint16_t>(~crc);
}
