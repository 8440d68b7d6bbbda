// SPDX-License-Identifier: MIT
// The CRC-16 that tags and readers append to what they send (EPC Gen2 v2.0.1, annex F):
// polynomial 1021h, preset FFFFh, most significant bit first, result complemented. The CRC of
// "123456789" is D64Eh. A receiver that runs data and CRC through the register gets 1D0Fh.
//
// All functions are constant expressions, so that tables can be checked at compile time.
#pragma once

#include <cstdint>
#include <span>

namespace rxe {

// The register before the first bit.
constexpr std::uint16_t crcPreset = 0xFFFF;

// The register after the lowest `bits` bits of `value`, 0 to 32; a truncated reply has a
// number of bits that is not a multiple of 8.
constexpr std::uint16_t crcAfter(std::uint16_t crc, std::uint32_t value, unsigned bits) {
    for (unsigned bit = bits; bit-- > 0;) {
        const bool divides = ((crc >> 15 ^ value >> bit) & 1) != 0;
        crc = static_cast<std::uint16_t>(crc << 1 ^ (divides ? 0x1021 : 0));
    }
    return crc;
}

// The register after these bytes, the first byte first.
constexpr std::uint16_t crcAfter(std::uint16_t crc, std::span<const std::uint8_t> bytes) {
    for (const std::uint8_t byte : bytes) {
        crc = crcAfter(crc, byte, 8);
    }
    return crc;
}

// The 16 bits on the air: the register's complement.
constexpr std::uint16_t crcResult(std::uint16_t crc) {
    return static_cast<std::uint16_t>(~crc);
}

// The CRC of these bytes alone, as a tag stores it over PC and EPC.
constexpr std::uint16_t crc16(std::span<const std::uint8_t> bytes) {
    return crcResult(crcAfter(crcPreset, bytes));
}

}  // namespace rxe
