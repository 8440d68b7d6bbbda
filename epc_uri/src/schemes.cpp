// SPDX-License-Identifier: MIT
#include "schemes.hpp"

#include <algorithm>

namespace {

// The fields that most schemes have, with their widths in bits.
constexpr field_s filter{filterField, 3, 0};
constexpr field_s prefix{prefixField, 3, 0};
constexpr field_s padded{paddedReferenceField, 0, 0};
constexpr field_s plain{plainReferenceField, 0, 0};
constexpr field_s twoDigits{paddedField, 7, 2};
constexpr field_s zeros{reservedField, 24, 0};

constexpr field_s integer(std::uint8_t bits, std::uint8_t digits = 0) {
    return {integerField, bits, digits};
}
constexpr field_s numeric(std::uint8_t bits) {
    return {numericStringField, bits, 0};
}
constexpr field_s text(std::uint8_t characters) {
    return {sevenBitField, static_cast<std::uint8_t>(characters * 7), characters};
}

// GS1 EPC Tag Data Standard 1.13, table 14-1 for headers, section 14.5 for fields.
// clang-format off
constexpr std::array schemes{
    scheme_s{0x2C, "gdti-96", "gdti", 96, false, &locationPartitions, {{filter, prefix, padded, integer(41)}}},
    scheme_s{0x2D, "gsrn-96", "gsrn", 96, false, &serialPartitions, {{filter, prefix, padded, zeros}}},
    scheme_s{0x2E, "gsrnp-96", "gsrnp", 96, false, &serialPartitions, {{filter, prefix, padded, zeros}}},
    scheme_s{0x2F, "usdod-96", "usdod", 96, false, nullptr,
             {{{filterField, 4, 0}, {cageField, 48, 6}, integer(36)}}},
    scheme_s{0x30, "sgtin-96", "sgtin", 96, false, &itemPartitions, {{filter, prefix, padded, integer(38)}}},
    scheme_s{0x31, "sscc-96", "sscc", 96, false, &serialPartitions, {{filter, prefix, padded, zeros}}},
    scheme_s{0x32, "sgln-96", "sgln", 96, false, &locationPartitions, {{filter, prefix, padded, integer(41)}}},
    scheme_s{0x33, "grai-96", "grai", 96, false, &assetTypePartitions, {{filter, prefix, padded, integer(38)}}},
    scheme_s{0x34, "giai-96", "giai", 96, false, &giai96Partitions, {{filter, prefix, plain}}},
    scheme_s{0x35, "gid-96", "gid", 96, false, nullptr, {{integer(28), integer(24), integer(36)}}},
    scheme_s{0x36, "sgtin-198", "sgtin", 198, false, &itemPartitions, {{filter, prefix, padded, text(20)}}},
    scheme_s{0x37, "grai-170", "grai", 170, false, &assetTypePartitions, {{filter, prefix, padded, text(16)}}},
    scheme_s{0x38, "giai-202", "giai", 202, false, &giai202Partitions,
             {{filter, prefix, {sevenBitReferenceField, 0, 0}}}},
    scheme_s{0x39, "sgln-195", "sgln", 195, false, &locationPartitions, {{filter, prefix, padded, text(20)}}},
    scheme_s{0x3A, "gdti-113", "gdti", 113, false, &locationPartitions, {{filter, prefix, padded, numeric(58)}}},
    scheme_s{0x3B, "adi-var", "adi", 68, true, nullptr,
             {{{filterField, 6, 0}, {cageField, 36, 6}, {adiPartField, 0, 32}, {adiSerialField, 0, 30}}}},
    scheme_s{0x3C, "cpi-96", "cpi", 96, false, &cpi96Partitions, {{filter, prefix, plain, integer(31)}}},
    // The serial of a part has at most 12 digits, fewer than 40 bits can hold.
    scheme_s{0x3D, "cpi-var", "cpi", 86, true, &cpiVarPartitions,
             {{filter, prefix, {sixBitReferenceField, 0, 0}, integer(40, 12)}}},
    scheme_s{0x3E, "gdti-174", "gdti", 174, false, &locationPartitions, {{filter, prefix, padded, text(17)}}},
    scheme_s{0x3F, "sgcn-96", "sgcn", 96, false, &locationPartitions, {{filter, prefix, padded, numeric(41)}}},
    scheme_s{0x40, "itip-110", "itip", 110, false, &itemPartitions,
             {{filter, prefix, padded, twoDigits, twoDigits, integer(38)}}},
    scheme_s{0x41, "itip-212", "itip", 212, false, &itemPartitions,
             {{filter, prefix, padded, twoDigits, twoDigits, text(20)}}},
};
// clang-format on

}  // namespace

const scheme_s* findScheme(std::uint8_t header) {
    const auto* const found = std::ranges::find(schemes, header, &scheme_s::header);
    return found == schemes.end() ? nullptr : found;
}
