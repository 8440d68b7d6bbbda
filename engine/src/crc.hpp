// SPDX-License-Identifier: MIT
// The CRC that tags and readers put behind what they send. Constant expressions, so that
// tables can be checked when they are compiled.
#pragma once

#include <cstdint>
#include <span>

namespace rxe {

// CRC-16 of the Gen2 air interface (EPC Gen2 v2.0.1, annex F): polynomial
// 1021h, preset FFFFh, most significant bit first, result complemented.
constexpr std::uint16_t crcPreset = 0xFFFF;

// The register after the lowest `bits` bits of `value`, which need not be whole bytes.
constexpr std::uint16_t crcAfter(std::uint16_t crc, std::uint32_t value, unsigned bits) {
    for (unsigned bit = bits; bit-- > 0;) {
        const bool divides = ((crc >> 15 ^ value >> bit) & 1) != 0;
        crc = static_cast<std::uint16_t>(crc << 1 ^ (divides ? 0x1021 : 0));
    }
    return crc;
}

// The register after these bytes.
constexpr std::uint16_t crcAfter(std::uint16_t crc, std::span<const std::uint8_t> bytes) {
    for (const std::uint8_t byte : bytes) {
        crc = crcAfter(crc, byte, 8);
    }
    return crc;
}

// What is sent, from the register.
constexpr std::uint16_t crcResult(std::uint16_t crc) {
    return static_cast<std::uint16_t>(~crc);
}

// The CRC of these bytes alone.
constexpr std::uint16_t crc16(std::span<const std::uint8_t> bytes) {
    return crcResult(crcAfter(crcPreset, bytes));
}

}  // namespace rxe
