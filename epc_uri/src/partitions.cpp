// SPDX-License-Identifier: MIT
#include "partitions.hpp"

// GS1 EPC Tag Data Standard 1.13, section 14.5. Each row: bits and digits of the prefix, bits and
// digits of the reference.
// clang-format off
const partitions_s itemPartitions{{
    {40, 12, 4, 1}, {37, 11, 7, 2}, {34, 10, 10, 3}, {30, 9, 14, 4}, {27, 8, 17, 5}, {24, 7, 20, 6}, {20, 6, 24, 7}}};

const partitions_s serialPartitions{{
    {40, 12, 18, 5}, {37, 11, 21, 6}, {34, 10, 24, 7}, {30, 9, 28, 8}, {27, 8, 31, 9}, {24, 7, 34, 10}, {20, 6, 38, 11}}};

const partitions_s locationPartitions{{
    {40, 12, 1, 0}, {37, 11, 4, 1}, {34, 10, 7, 2}, {30, 9, 11, 3}, {27, 8, 14, 4}, {24, 7, 17, 5}, {20, 6, 21, 6}}};

const partitions_s assetTypePartitions{{
    {40, 12, 4, 0}, {37, 11, 7, 1}, {34, 10, 10, 2}, {30, 9, 14, 3}, {27, 8, 17, 4}, {24, 7, 20, 5}, {20, 6, 24, 6}}};

const partitions_s giai96Partitions{{
    {40, 12, 42, 13}, {37, 11, 45, 14}, {34, 10, 48, 15}, {30, 9, 52, 16}, {27, 8, 55, 17}, {24, 7, 58, 18}, {20, 6, 62, 19}}};

// The reference has up to 22 bits more than its 7-bit characters; these bits are zero.
const partitions_s giai202Partitions{{
    {40, 12, 148, 18}, {37, 11, 151, 19}, {34, 10, 154, 20}, {30, 9, 158, 21}, {27, 8, 161, 22}, {24, 7, 164, 23}, {20, 6, 168, 24}}};

const partitions_s cpi96Partitions{{
    {40, 12, 11, 3}, {37, 11, 14, 4}, {34, 10, 17, 5}, {30, 9, 21, 6}, {27, 8, 24, 7}, {24, 7, 27, 8}, {20, 6, 31, 9}}};

const partitions_s cpiVarPartitions{{
    {40, 12, 0, 18}, {37, 11, 0, 19}, {34, 10, 0, 20}, {30, 9, 0, 21}, {27, 8, 0, 22}, {24, 7, 0, 23}, {20, 6, 0, 24}}};
// clang-format on
