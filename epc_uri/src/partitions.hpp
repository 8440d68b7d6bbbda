// SPDX-License-Identifier: MIT
// How a partition value divides a code's bits between the company prefix and
// what the company numbered (GS1 EPC Tag Data Standard 1.13, section 14.3).
#pragma once

#include <array>
#include <cstdint>

struct partition_s {
    std::uint8_t prefixBits;
    std::uint8_t prefixDigits;
    std::uint8_t referenceBits;    // 0 where the reference ends with a terminator
    std::uint8_t referenceDigits;  // digits of a padded number; the most digits or characters of others
};

// By partition value; 7 is not used.
using partitions_s = std::array<partition_s, 7>;

extern const partitions_s itemPartitions;       // SGTIN, ITIP
extern const partitions_s serialPartitions;     // SSCC, GSRN, GSRNP
extern const partitions_s locationPartitions;   // SGLN, GDTI, SGCN
extern const partitions_s assetTypePartitions;  // GRAI
extern const partitions_s giai96Partitions;
extern const partitions_s giai202Partitions;
extern const partitions_s cpi96Partitions;
extern const partitions_s cpiVarPartitions;
