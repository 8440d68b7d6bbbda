// SPDX-License-Identifier: MIT
// How a partition value divides the bits between the company prefix and the reference behind it,
// which the company assigns (GS1 EPC Tag Data Standard 1.13, section 14.3 and the partition tables
// of 14.5). A longer prefix leaves a shorter reference:
//
//   SGTIN, partition 0   prefix 40 bits, 12 digits | item  4 bits, 1 digit
//          partition 6   prefix 20 bits,  6 digits | item 24 bits, 7 digits
#pragma once

#include <array>
#include <cstdint>

struct partition_s {
    std::uint8_t prefixBits;
    std::uint8_t prefixDigits;
    // 0 where a character of value 0 ends the reference (CPI-var).
    std::uint8_t referenceBits;
    // The digits of a padded reference; the most digits or characters of the other kinds.
    std::uint8_t referenceDigits;
};

// By partition value, 0 to 6; 7 is invalid in every table.
using partitions_s = std::array<partition_s, 7>;

extern const partitions_s itemPartitions;       // SGTIN, ITIP
extern const partitions_s serialPartitions;     // SSCC, GSRN, GSRNP
extern const partitions_s locationPartitions;   // SGLN, GDTI, SGCN
extern const partitions_s assetTypePartitions;  // GRAI
extern const partitions_s giai96Partitions;
extern const partitions_s giai202Partitions;
extern const partitions_s cpi96Partitions;
extern const partitions_s cpiVarPartitions;
