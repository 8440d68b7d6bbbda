// SPDX-License-Identifier: MIT
// The bytes of the engine's packets, encoder and decoder side by side.
//
// A tag packet is a row of fields, numbers most significant byte first unless
// the field table says otherwise:
//
//   | 0x80 + code | value |                          fixed-size field
//   | 0x00 | 0xF1 | bytes: 2 | bits: 2 | EPC: bytes |  EPC that is not 96 bits
//   | 0x03 | 0x84 | kind | length | value: length |  engine's own fields
//
// A field of the last form with an unknown kind is stepped over, so that an
// older reader of a newer stream still finds the rest.
#ifndef ENGINE_CODEC_HPP
#define ENGINE_CODEC_HPP

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

#include "rxe.h"

namespace rxe {

constexpr std::uint32_t ALL_FIELDS = 0xFFFFF;
constexpr std::uint16_t MAX_EPC_BITS = 496;  // 31 words, the most that a PC word can tell
constexpr std::size_t MAX_PAYLOAD = 4352;    // an ACCESS_INFO with 4,096 bytes of data and room to spare

// One read of one tag, as the air interface hands it to the encoder.
struct tag_read_s {
    const std::uint8_t* epc = nullptr;
    std::uint16_t epcBits = 0;
    std::uint64_t firstSeen = 0;  // microseconds of the engine's clock
    std::uint64_t lastSeen = 0;
    std::uint32_t roSpec = 0;
    std::uint32_t accessSpec = 0;
    std::uint16_t specIndex = 0;
    std::uint16_t invParam = 0;
    std::uint16_t antenna = 0;
    std::uint16_t channel = 0;  // number of the hopping table's entry
    float rssiLin = 0;          // milliwatts
    float phase = 0;            // radians, 0 to 2 pi
    std::uint16_t tagCount = 1;
    std::uint16_t pc = 0;
    std::uint16_t xpc1 = 0;
    std::uint16_t xpc2 = 0;
    std::uint16_t crc = 0;
    std::uint16_t azimuth = 0;    // tenths of a degree
    std::uint16_t elevation = 0;  // tenths of a degree
    std::int16_t locationX = 0;   // tenths of a metre
    std::int16_t locationY = 0;
    std::int8_t rssi = 0;  // dBm
    std::uint8_t azimuthConf = 0;
    std::uint8_t elevationConf = 0;
    std::uint8_t locConf = 0;
    std::uint8_t brandIdMatched = 0;
};

// Bytes written into `out` by an encoder; 0 when they do not fit or when a
// value cannot be encoded (an EPC of more than MAX_EPC_BITS). A PC of 0000h has an EPC of no bits.
std::size_t encodeTag(const tag_read_s& read, std::uint32_t fields, std::span<std::uint8_t> out);
std::size_t encodeAccess(std::uint8_t accessId, std::uint8_t result, std::span<const std::uint8_t> data,
                         std::span<std::uint8_t> out);
std::size_t encodeStartInfo(const START_INFO_s& info, std::span<std::uint8_t> out);

// Decodes a payload into the record of its raw type, which the caller has
// zeroed. Any thread, no allocation. On failure the record may hold the fields
// in front of the fault. Never reads past the payload's end.
RXE_API_STATUS decodePayload(std::uint16_t rawType, std::span<const std::uint8_t> payload, void* record);

// Writes numbers most significant byte first; `ok` turns false, for good, at
// the first one that does not fit.
struct byte_writer_s {
    std::span<std::uint8_t> out;
    std::size_t size = 0;
    bool ok = true;
};

void put(byte_writer_s* writer, std::uint64_t value, std::size_t bytes);
void putBytes(byte_writer_s* writer, std::span<const std::uint8_t> bytes);

}  // namespace rxe

#endif
