// SPDX-License-Identifier: MIT
// Codes and their URIs, or why they are refused: those of codes.txt, those of every
// partition, and random ones.
#include <gtest/gtest.h>

#include <array>
#include <bitset>
#include <map>
#include <sstream>
#include <string>

#include "support/table.hpp"
#include "tuvr.h"
#include "tuvr_status.h"

namespace {

// A text of '0' and '1': codes are sums of these.
std::string number(std::uint64_t value, unsigned width) {
    const auto bits = std::bitset<64>(value).to_string();
    return width > 64 ? std::string(width - 64, '0') + bits : bits.substr(64 - width);
}

// Filled with zero bits to whole 16-bit words, as tags deliver it.
std::string hexOf(std::string bits) {
    bits.resize((bits.size() + 15) / 16 * 16, '0');
    std::string hex;
    for (std::size_t i = 0; i < bits.size(); i += 4) {
        hex += "0123456789ABCDEF"[std::bitset<4>(bits.substr(i, 4)).to_ulong()];
    }
    return hex;
}

using result_s = std::pair<int, std::string>;

result_s convert(int (*function)(const char*, int, char*), const std::string& hex) {
    std::string buffer(1024, '\0');
    const int status = function(hex.c_str(), 1024, buffer.data());
    return {status, buffer.c_str()};
}

const std::map<std::string, int> refusals{
    {"BAD_HEX", TUVR_BAD_HEX},           {"WRONG_LENGTH", TUVR_WRONG_LENGTH},
    {"BAD_PADDING", TUVR_BAD_PADDING},   {"UNKNOWN_HEADER", TUVR_UNKNOWN_HEADER},
    {"OUT_OF_RANGE", TUVR_OUT_OF_RANGE}, {"BAD_PARTITION", TUVR_BAD_PARTITION},
    {"EMPTY_FIELD", TUVR_EMPTY_FIELD},   {"BAD_CHARACTER", TUVR_BAD_CHARACTER}};

void expectRefusal(const std::string& hex, const std::string& status) {
    for (auto* const function : {tuvr_hexToEpcTagUri, tuvr_hexToEpcUri}) {
        std::array<char, 1024> buffer{"before"};
        EXPECT_EQ(function(hex.c_str(), 1024, buffer.data()), refusals.at(status)) << hex;
        EXPECT_STREQ(buffer.data(), "before") << hex;
    }
}

}  // namespace

TEST(Decode, CodesAndWhatIsWrongWithThem) {
    std::string good;  // the bits of the last code that has a URI
    int decoded = 0, refused = 0;
    for (const auto& [hex, result] : readRows("epc_uri/codes.txt")) {
        const std::string tag = result.substr(0, result.find(' '));
        if (hex.starts_with("bits ")) {
            std::istringstream field(hex.substr(5));
            std::size_t first = 0;
            unsigned width = 0;
            std::uint64_t value = 0;
            field >> first >> width >> value;
            expectRefusal(hexOf(std::string(good).replace(first, width, number(value, width))), tag);
            ++refused;
        } else if (tag.find(':') == std::string::npos) {
            expectRefusal(hex, tag);
            ++refused;
        } else {
            ++decoded;
            EXPECT_EQ(convert(tuvr_hexToEpcTagUri, hex), (result_s{TUVR_OK, "urn:epc:tag:" + tag})) << hex;
            // The pure identity leaves out the coding's length and the filter.
            const auto fields = tag.substr(tag.find(tag.starts_with("gid") ? ':' : '.') + 1);
            const std::string identity = "urn:epc:id:" + tag.substr(0, tag.find('-')) + ':' + fields;
            EXPECT_EQ(convert(tuvr_hexToEpcUri, hex), (result_s{TUVR_OK, identity})) << hex;
            good.clear();
            for (const char digit : hex) {
                good += number(std::stoul(std::string(1, digit), nullptr, 16), 4);
            }
        }
    }
    EXPECT_EQ(decoded, 31);
    EXPECT_EQ(refused, 30);
}

// Prefix and reference widths add up to the same in every row, and every
// partition pads to its own digits: walked with the largest values there are.
TEST(Decode, EveryPartition) {
    const struct {
        unsigned header;
        std::string name;
        unsigned referenceBits, restBits, referenceDigits;  // of the reference at partition 0
    } tables[] = {{0x30, "sgtin-96:", 4, 38, 1},
                  {0x31, "sscc-96:", 18, 24, 5},
                  {0x32, "sgln-96:", 1, 41, 0},
                  {0x33, "grai-96:", 4, 38, 0}};
    const unsigned prefixBits[] = {40, 37, 34, 30, 27, 24, 20};
    for (const auto& table : tables) {
        for (unsigned partition = 0; partition < 7; ++partition) {
            const auto referenceBits = table.referenceBits + 40 - prefixBits[partition];
            const auto prefix = std::string(12 - partition, '9');
            const auto reference = std::string(table.referenceDigits + partition, '9');
            const auto bits = number(table.header, 8) + number(1, 3) + number(partition, 3) +
                              number(std::stoull(prefix), prefixBits[partition]) +
                              number(reference.empty() ? 0 : std::stoull(reference), referenceBits) +
                              number(0, table.restBits);
            const std::string rest = table.header == 0x31 ? "" : ".0";
            EXPECT_EQ(convert(tuvr_hexToEpcTagUri, hexOf(bits)).second,
                      "urn:epc:tag:" + table.name + "1." + prefix + "." + reference + rest);
        }
    }
}

TEST(Decode, Arguments) {
    const std::string hex = "3074257BF7194E4000001A85";
    const std::string uri = "urn:epc:tag:sgtin-96:3.0614141.812345.6789";
    const int exact = static_cast<int>(uri.size()) + 1;
    std::string buffer(64, '#');
    EXPECT_EQ(tuvr_hexToEpcTagUri("", 64, buffer.data()), TUVR_WRONG_LENGTH);
    EXPECT_EQ(tuvr_hexToEpcTagUri(nullptr, 64, buffer.data()), TUVR_BAD_ARGUMENT);
    EXPECT_EQ(tuvr_hexToEpcUri(hex.c_str(), 64, nullptr), TUVR_BAD_ARGUMENT);
    EXPECT_EQ(tuvr_hexToEpcTagUri(hex.c_str(), 0, buffer.data()), TUVR_BAD_ARGUMENT);
    EXPECT_EQ(tuvr_hexToEpcTagUri(hex.c_str(), -1, buffer.data()), TUVR_BAD_ARGUMENT);
    EXPECT_EQ(tuvr_hexToEpcTagUri(hex.c_str(), exact - 1, buffer.data()), TUVR_BUFFER_TOO_SMALL);
    EXPECT_EQ(buffer, std::string(64, '#'));
    EXPECT_EQ(tuvr_hexToEpcTagUri(hex.c_str(), exact, buffer.data()), TUVR_OK);
    EXPECT_EQ(buffer, uri + '\0' + std::string(64 - exact, '#')) << "nothing behind the NUL is touched";
}
