// SPDX-License-Identifier: MIT
#ifndef ENGINE_CRC_HPP
#define ENGINE_CRC_HPP

#include <cstdint>
#include <span>

namespace rxe {

// CRC-16 of the Gen2 air interface (EPC Gen2 v2.0.1, annex F): polynomial
// 1021h, preset FFFFh, most significant bit first, result complemented.
constexpr std::uint16_t crc16(std::span<const std::uint8_t> bytes) {
    std::uint16_t crc = 0xFFFF;
    for (const std::uint8_t byte : bytes) {
        crc = static_cast<std::uint16_t>(crc ^ (byte << 8));
        for (int bit = 0; bit < 8; ++bit) {
            crc = static_cast<std::uint16_t>((crc & 0x8000) != 0 ? (crc << 1) ^ 0x1021 : crc << 1);
        }
    }
    return static_cast<std::uint16_t>(~crc);
}

}  // namespace rxe

#endif
