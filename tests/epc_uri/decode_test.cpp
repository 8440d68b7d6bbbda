// SPDX-License-Identifier: MIT
// Codes and their URIs: the standard's own examples, and codes that a small
// encoder builds from bit fields for what those leave out.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <bitset>
#include <cstdint>
#include <random>
#include <set>
#include <string>
#include <string_view>
#include <utility>

#include "tuvr.h"
#include "tuvr_status.h"

namespace {

constexpr int roomySize = 1024;

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
std::string six(std::string_view text) {
    return characters(text, 6, 0);
}
const std::string end6 = "000000";

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
    std::array<char, roomySize> buffer{};
    const int status = function(hex.c_str(), roomySize, buffer.data());
    return {status, buffer.data()};
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
    return number(0x3B, 8) + number(35, 6) + six(cage) + six(part) + end6 + six(serial) + end6;
}

struct good_s {
    std::string hex, tag;  // without "urn:epc:tag:"
};

const good_s standardExamples[] = {
    {"3074257BF7194E4000001A85", "sgtin-96:3.0614141.812345.6789"},
    // sgtin-198, escape in upper case
    {"3674257BF6B7A659B2C2BF100000000000000000000000000000", "sgtin-198:3.0614141.712345.32a%2Fb"},
    {"3174257bf4499602d2000000", "sscc-96:3.0614141.1234567890"},
    {"3274257BF46072000000162E", "sgln-96:3.0614141.12345.5678"},
    {"3974257BF46072CD9615F8800000000000000000000000000000", "sgln-195:3.0614141.12345.32a%2Fb"},
    {"3376451FD40C0E400000162E", "grai-96:3.9521141.12345.5678"},
    {"3774257BF40C0E59B2C2BF1000000000000000000000", "grai-170:3.0614141.12345.32a%2Fb"},
    {"3474257BF40000000000162E", "giai-96:3.0614141.5678"},
    {"3874257BF59B2C2BF10000000000000000000000000000000000", "giai-202:3.0614141.32a%2Fb"},
    {"2C74257BF46072000000162E", "gdti-96:3.0614141.12345.5678"},
    // gdti-113 keeps leading zeros
    {"3A74257BF460720000000007AE7F8000", "gdti-113:3.0614141.12345.006847"},
    {"2D74257BF4499602D2000000", "gsrn-96:3.0614141.1234567890"},
    {"3C74257BF400C0E680003039", "cpi-96:3.0614141.98765.12345"},
    {"3D74257BF75411DEF6B4CC00000003039000", "cpi-var:3.0614141.5PQ7%2FZ43.12345"},
    // usdod-96, blank before a CAGE code
    {"2F320434147455900000162E", "usdod-96:3.CAGEY.5678"},
    {"3B0E0CF5E76C9047759AD00373DC7602E7200000", "adi-var:3.35962.PQ7VZ4.M37GXB92"},
};

const good_s builtCodes[] = {
    // gsrnp-96
    {hexOf(company7(0x2E) + number(1234567890, 34) + number(0, 24)), "gsrnp-96:3.0614141.1234567890"},
    // gid-96 has no filter
    {hexOf(number(0x35, 8) + number(31415, 28) + number(0, 24) + number(1414, 36)), "gid-96:31415.0.1414"},
    // gdti-174
    {hexOf(company7(0x3E) + number(12345, 17) + seven("ABCDefgh012345678", 119)),
     "gdti-174:3.0614141.12345.ABCDefgh012345678"},
    // sgcn-96 keeps leading zeros
    {hexOf(company7(0x3F) + number(67890, 17) + number(10004711, 41)), "sgcn-96:3.0614141.67890.0004711"},
    // itip-110, two digits each
    {hexOf(company7(0x40) + number(12345, 20) + number(4, 7) + number(99, 7) + number(0, 38)),
     "itip-110:3.0614141.012345.04.99.0"},
    // itip-212
    {hexOf(company7(0x41) + number(12345, 20) + number(1, 7) + number(2, 7) + seven("32a/b", 140)),
     "itip-212:3.0614141.012345.01.02.32a%2Fb"},
    // an empty location stays a field
    {hexOf(company12(0x32) + number(0, 1) + number(0, 41)), "sgln-96:0.061414100012..0"},
    // an empty asset type stays a field
    {hexOf(company12(0x33) + number(0, 4) + number(7, 38)), "grai-96:0.061414100012..7"},
    // the widest number, unpadded
    {hexOf(number(0x34, 8) + number(7, 3) + number(6, 3) + number(0, 20) + number(~0ULL >> 2, 62)),
     "giai-96:7.000000.4611686018427387903"},
    // all escapes, and the marks that stand as they are
    {hexOf(company7(0x36) + number(1, 20) + seven("\"%&/<>?!'()*+,-.:;=_", 140)),
     "sgtin-198:3.0614141.000001.%22%25%26%2F%3C%3E%3F!'()*+,-.:;=_"},
    // the longest giai leaves odd zero bits
    {hexOf(company12(0x38) + seven("abcdefghijklmnopqr", 148)), "giai-202:0.061414100012.abcdefghijklmnopqr"},
    // bits behind a fixed scheme are dropped
    {"3074257BF7194E4000001A85" + std::string(200, 'F'), "sgtin-96:3.0614141.812345.6789"},
    // adi without a part, hash in front of the serial
    {hexOf(adi(" 1ABCD", "", "#A-/9")) + "FFFF", "adi-var:35.1ABCD..%23A-%2F9"},
    // adi of full length
    {hexOf(adi("W81X9C", "PARTPARTPARTPARTPARTPARTPARTPART", "SERSERSERSERSERSERSERSERSERSER")),
     "adi-var:35.W81X9C.PARTPARTPARTPARTPARTPARTPARTPART.SERSERSERSERSERSERSERSERSERSER"},
    // cpi part with hash, of full length
    {hexOf(company12(0x3D) + six("#A-/56789012345678") + end6 + number(999999999999, 40)),
     "cpi-var:0.061414100012.%23A-%2F56789012345678.999999999999"},
};

const std::string serial36 = number(5, 36);
const std::string blank41 = number(0, 41);

struct bad_s {
    std::string hex;
    tuvr_status_e status;
};

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
    // not programmed
    {"000000000000000000000000", TUVR_UNKNOWN_HEADER},
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
    {hexOf(company7(0x3D) + six("A") + end6 + number(1000000000000, 40)), TUVR_OUT_OF_RANGE},
    // piece 100
    {hexOf(company7(0x40) + number(1, 20) + number(100, 7) + number(1, 7) + number(0, 38)),
     TUVR_OUT_OF_RANGE},
    // a giai text of 19 characters at partition 0
    {hexOf(company12(0x38) + seven("abcdefghijklmnopqrs", 148)), TUVR_OUT_OF_RANGE},
    // a cpi part of 19 characters at partition 0
    {hexOf(company12(0x3D) + six("ABCDEFGHIJKLMNOPQRS") + end6 + number(1, 40)), TUVR_OUT_OF_RANGE},
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
    {hexOf(company7(0x3D) + end6 + number(1, 40)), TUVR_EMPTY_FIELD},
    // an adi serial of a hash alone
    {hexOf(adi("W81X9C", "A", "#")), TUVR_EMPTY_FIELD},
};

void expectGood(const good_s& row) {
    SCOPED_TRACE(row.hex);
    EXPECT_EQ(convert(tuvr_hexToEpcTagUri, row.hex), (result_s{TUVR_OK, "urn:epc:tag:" + row.tag}));
    // The pure identity leaves out the coding's length and the filter.
    const bool hasFilter = !row.tag.starts_with("gid");
    const auto fields = row.tag.substr(row.tag.find(hasFilter ? '.' : ':') + 1);
    EXPECT_EQ(convert(tuvr_hexToEpcUri, row.hex),
              (result_s{TUVR_OK, "urn:epc:id:" + row.tag.substr(0, row.tag.find('-')) + ':' + fields}));
}

}  // namespace

TEST(Decode, StandardExamplesAndBuiltCodes) {
    std::ranges::for_each(standardExamples, expectGood);
    std::ranges::for_each(builtCodes, expectGood);
}

TEST(Decode, RefusedCodesLeaveTheBufferAlone) {
    for (const auto& row : refused) {
        for (auto* const function : {tuvr_hexToEpcTagUri, tuvr_hexToEpcUri}) {
            SCOPED_TRACE(row.hex);
            std::array<char, 8> buffer{"before"};
            EXPECT_EQ(function(row.hex.c_str(), roomySize, buffer.data()), row.status);
            EXPECT_STREQ(buffer.data(), "before");
        }
    }
}

// Prefix and reference widths add up to the same in every row, and every
// partition pads to its own digits: walked with the largest values there are.
TEST(Decode, EveryPartition) {
    struct table_s {
        unsigned header;
        const char* name;
        unsigned referenceBits, restBits;  // reference bits at partition 0
        unsigned referenceDigits;          // at partition 0
    };
    const table_s tables[] = {{0x30, "sgtin-96", 4, 38, 1},
                              {0x31, "sscc-96", 18, 24, 5},
                              {0x32, "sgln-96", 1, 41, 0},
                              {0x33, "grai-96", 4, 38, 0}};
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
                      "urn:epc:tag:" + std::string(table.name) + ":1." + prefix + "." + reference + rest);
        }
    }
}

TEST(Decode, Arguments) {
    const std::string hex = "3074257BF7194E4000001A85";
    const std::string uri = "urn:epc:tag:sgtin-96:3.0614141.812345.6789";
    std::array<char, 64> buffer{};
    EXPECT_EQ(tuvr_hexToEpcTagUri(nullptr, 64, buffer.data()), TUVR_BAD_ARGUMENT);
    EXPECT_EQ(tuvr_hexToEpcUri(hex.c_str(), 64, nullptr), TUVR_BAD_ARGUMENT);
    for (const int size : {0, -1}) {
        EXPECT_EQ(tuvr_hexToEpcTagUri(hex.c_str(), size, buffer.data()), TUVR_BAD_ARGUMENT);
    }
    const int exact = static_cast<int>(uri.size()) + 1;
    buffer.fill('#');
    EXPECT_EQ(tuvr_hexToEpcTagUri(hex.c_str(), exact - 1, buffer.data()), TUVR_BUFFER_TOO_SMALL);
    EXPECT_EQ(buffer[0], '#');
    EXPECT_EQ(tuvr_hexToEpcTagUri(hex.c_str(), exact, buffer.data()), TUVR_OK);
    EXPECT_EQ(buffer.data(), uri);
    EXPECT_EQ(buffer[uri.size() + 1], '#') << "nothing behind the NUL is touched";
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
