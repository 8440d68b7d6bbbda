// SPDX-License-Identifier: MIT
// Codes and their URIs: those of codes.txt, and what is refused, which a small
// encoder builds from bit fields.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <bitset>
#include <fstream>
#include <random>
#include <set>
#include <string>

#include "tuvr.h"
#include "tuvr_status.h"

namespace {

// A text of '0' and '1': codes are sums of these.
std::string number(std::uint64_t value, unsigned width) {
    const auto bits = std::bitset<64>(value).to_string();
    return width > 64 ? std::string(width - 64, '0') + bits : bits.substr(64 - width);
}

std::string characters(std::string_view text, unsigned width, std::size_t total) {
    std::string bits;
    for (const char c : text) {
        bits += number(static_cast<unsigned char>(c) & ((1U << width) - 1), width);
    }
    bits.resize(std::max(bits.size(), total), '0');
    return bits;
}
std::string seven(std::string_view text, std::size_t total) {
    return characters(text, 7, total);
}
// Six bits a character, up to a terminator.
std::string six(std::string_view text) {
    return characters(text, 6, 0) + "000000";
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

// Header, filter 3, and partition 5 with the prefix 0614141.
std::string company7(unsigned header) {
    return number(header, 8) + number(3, 3) + number(5, 3) + number(614141, 24);
}
// The same with partition 0 and twelve digits, where some references are empty.
std::string company12(unsigned header) {
    return number(header, 8) + number(0, 3) + number(0, 3) + number(61414100012, 40);
}
std::string adi(std::string_view cage, std::string_view part, std::string_view serial) {
    return number(0x3B, 8) + number(35, 6) + characters(cage, 6, 0) + six(part) + six(serial);
}

const std::string serial36 = number(5, 36);
const std::string blank41 = number(0, 41);

using bad_s = std::pair<std::string, tuvr_status_e>;

const bad_s refused[] = {
    // nothing
    {"", TUVR_WRONG_LENGTH},
    // an odd number of digits
    {"3074257BF7194E4000001A855", TUVR_WRONG_LENGTH},
    // one byte short
    {"3074257BF7194E4000001A", TUVR_WRONG_LENGTH},
    // a variable code without its last terminator
    {hexOf(adi("W81X9C", "", "1234").substr(0, 80)), TUVR_WRONG_LENGTH},
    // no digit
    {"3074257BF7194E4000001A8G", TUVR_BAD_HEX},
    // no digit behind the code
    {"3074257BF7194E4000001A85" + std::string(200, '0') + "x0", TUVR_BAD_HEX},
    // a TID
    {"E28011606000020000000000", TUVR_UNKNOWN_HEADER},
    // partition 7
    {hexOf(number(0x30, 8) + number(3, 3) + number(7, 3) + number(0, 82)), TUVR_BAD_PARTITION},
    // a prefix of 10^7
    {hexOf(number(0x30, 8) + number(3, 3) + number(5, 3) + number(10000000, 24) + number(0, 58)),
     TUVR_OUT_OF_RANGE},
    // an item of 10^6
    {hexOf(company7(0x30) + number(1000000, 20) + number(0, 38)), TUVR_OUT_OF_RANGE},
    // a value in an empty location
    {hexOf(company12(0x32) + number(1, 1) + blank41), TUVR_OUT_OF_RANGE},
    // a value in an empty asset type
    {hexOf(company12(0x33) + number(1, 4) + number(0, 38)), TUVR_OUT_OF_RANGE},
    // a cpi part of 10^3
    {hexOf(company12(0x3C) + number(1000, 11) + number(0, 31)), TUVR_OUT_OF_RANGE},
    // a cpi serial of 13 digits
    {hexOf(company7(0x3D) + six("A") + number(1000000000000, 40)), TUVR_OUT_OF_RANGE},
    // piece 100
    {hexOf(company7(0x40) + number(1, 20) + number(100, 7) + number(1, 7) + number(0, 38)),
     TUVR_OUT_OF_RANGE},
    // a giai text of 19 characters at partition 0
    {hexOf(company12(0x38) + seven("abcdefghijklmnopqrs", 148)), TUVR_OUT_OF_RANGE},
    // a cpi part of 19 characters at partition 0
    {hexOf(company12(0x3D) + six("ABCDEFGHIJKLMNOPQRS") + number(1, 40)), TUVR_OUT_OF_RANGE},
    // an adi part of 33 characters
    {hexOf(adi("W81X9C", std::string(33, 'A'), "1")), TUVR_OUT_OF_RANGE},
    // an adi serial of 31 characters
    {hexOf(adi("W81X9C", "", std::string(31, 'A'))), TUVR_OUT_OF_RANGE},
    // a numeric string without its 1
    {hexOf(company7(0x3F) + number(1, 17) + number(20, 41)), TUVR_OUT_OF_RANGE},
    // a numeric string of its 1 alone
    {hexOf(company7(0x3F) + number(1, 17) + number(1, 41)), TUVR_EMPTY_FIELD},
    // reserved bits set
    {"3174257BF4499602D2000001", TUVR_BAD_PADDING},
    // a character after the end
    {hexOf(company7(0x36) + number(1, 20) + seven(std::string_view("a\0b", 3), 140)), TUVR_BAD_PADDING},
    // the odd last bits of a giai text
    {hexOf(company7(0x38) + seven("abcdefghijklmnopqrstuvw", 161) + "001"), TUVR_BAD_PADDING},
    // a character outside the set
    {hexOf(company7(0x36) + number(1, 20) + seven("a#", 140)), TUVR_BAD_CHARACTER},
    // a hash within an adi serial
    {hexOf(adi("W81X9C", "A", "A#")), TUVR_BAD_CHARACTER},
    // a hash in an adi part
    {hexOf(adi("W81X9C", "#A", "A")), TUVR_BAD_CHARACTER},
    // a CAGE code with O
    {hexOf(adi(" 1ABCO", "A", "A")), TUVR_BAD_CHARACTER},
    // a CAGE code in lower case
    {hexOf(number(0x2F, 8) + number(3, 4) + characters("aBCDEF", 8, 48) + serial36), TUVR_BAD_CHARACTER},
    // a CAGE octet above ASCII
    {hexOf(number(0x2F, 8) + number(3, 4) + characters("\301BCDEF", 8, 48) + serial36), TUVR_BAD_CHARACTER},
    // an empty serial text
    {hexOf(company7(0x36) + number(1, 20) + seven("", 140)), TUVR_EMPTY_FIELD},
    // an empty cpi part
    {hexOf(company7(0x3D) + six("") + number(1, 40)), TUVR_EMPTY_FIELD},
    // an adi serial of a hash alone
    {hexOf(adi("W81X9C", "A", "#")), TUVR_EMPTY_FIELD},
};

}  // namespace

TEST(Decode, GoodCodes) {
    std::ifstream codes(TARNWICK_SOURCE_DIR "/tests/epc_uri/codes.txt");
    int good = 0;
    for (std::string hex, tag; codes >> hex && std::getline(codes >> std::ws, tag);) {
        if (hex == "#") {
            continue;
        }
        ++good;
        EXPECT_EQ(convert(tuvr_hexToEpcTagUri, hex), (result_s{TUVR_OK, "urn:epc:tag:" + tag})) << hex;
        // The pure identity leaves out the coding's length and the filter.
        const auto fields = tag.substr(tag.find(tag.starts_with("gid") ? ':' : '.') + 1);
        const std::string identity = "urn:epc:id:" + tag.substr(0, tag.find('-')) + ':' + fields;
        EXPECT_EQ(convert(tuvr_hexToEpcUri, hex), (result_s{TUVR_OK, identity})) << hex;
    }
    EXPECT_EQ(good, 31);
}

TEST(Decode, RefusedCodesLeaveTheBufferAlone) {
    for (const auto& [hex, status] : refused) {
        for (auto* const function : {tuvr_hexToEpcTagUri, tuvr_hexToEpcUri}) {
            std::array<char, 1024> buffer{"before"};
            EXPECT_EQ(function(hex.c_str(), 1024, buffer.data()), status) << hex;
            EXPECT_STREQ(buffer.data(), "before") << hex;
        }
    }
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
    EXPECT_EQ(tuvr_hexToEpcTagUri(nullptr, 64, buffer.data()), TUVR_BAD_ARGUMENT);
    EXPECT_EQ(tuvr_hexToEpcUri(hex.c_str(), 64, nullptr), TUVR_BAD_ARGUMENT);
    EXPECT_EQ(tuvr_hexToEpcTagUri(hex.c_str(), 0, buffer.data()), TUVR_BAD_ARGUMENT);
    EXPECT_EQ(tuvr_hexToEpcTagUri(hex.c_str(), -1, buffer.data()), TUVR_BAD_ARGUMENT);
    EXPECT_EQ(tuvr_hexToEpcTagUri(hex.c_str(), exact - 1, buffer.data()), TUVR_BUFFER_TOO_SMALL);
    EXPECT_EQ(buffer, std::string(64, '#'));
    EXPECT_EQ(tuvr_hexToEpcTagUri(hex.c_str(), exact, buffer.data()), TUVR_OK);
    EXPECT_EQ(buffer, uri + '\0' + std::string(64 - exact, '#')) << "nothing behind the NUL is touched";
}

// Random codes: a known status, and a URI of printable characters that starts
// as it must. What lies outside the buffers is for the sanitizers to see.
TEST(Decode, RandomCodes) {
    const auto seed = std::random_device{}();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    std::set<int> statuses;
    for (int i = 0; i < 50000; ++i) {
        std::string bits = number(0x2C + random() % 24, 8);
        const auto words = random() % 36;
        while (bits.size() < words * 16) {
            bits += number(random() & random(), 32);
        }
        const auto hex = hexOf(bits);
        const auto [status, tag] = convert(tuvr_hexToEpcTagUri, hex);
        const auto identity = convert(tuvr_hexToEpcUri, hex);
        statuses.insert(status);
        ASSERT_EQ(status, identity.first) << hex;
        ASSERT_EQ(tag.starts_with("urn:epc:tag:"), status == TUVR_OK) << hex;
        ASSERT_EQ(identity.second.starts_with("urn:epc:id:"), status == TUVR_OK) << hex;
        ASSERT_EQ(tag.find_first_not_of("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789"
                                        ":.-%!'()*+,;=_"),
                  std::string::npos)
            << hex;
    }
    for (const int status : {TUVR_OK, TUVR_WRONG_LENGTH, TUVR_BAD_PARTITION, TUVR_OUT_OF_RANGE,
                             TUVR_BAD_PADDING, TUVR_BAD_CHARACTER}) {
        EXPECT_TRUE(statuses.contains(status)) << status;
    }
}
