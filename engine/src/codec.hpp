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
// The decoder skips a field of the last form with an unknown kind, so that an older decoder of a
// newer stream still finds the rest.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

#include "rxe.h"

namespace rxe {

// Every RXE_FIELD_ bit.
constexpr std::uint32_t allFields = 0xFFFFF;
// 31 words, the most that a PC word can tell.
constexpr std::uint16_t maxEpcBits = 496;
// Bytes: an ACCESS_INFO with 4,096 bytes of data and room to spare.
constexpr std::size_t maxPayload = 4352;

// One read of one tag, as the air interface hands it to the encoder.
struct tag_read_s {
    // `epcBits` bits, up to maxEpcBits, most significant first; it belongs to the caller.
    const std::uint8_t* epc = nullptr;
    std::uint16_t epcBits = 0;
    // Microseconds of the engine's clock: the first read since the last report, and this one.
    std::uint64_t firstSeen = 0;
    std::uint64_t lastSeen = 0;
    // The id of the olio; an access spec has none here.
    std::uint32_t roSpec = 0;
    std::uint32_t accessSpec = 0;
    // 1 for a read, and the id of the inventory set.
    std::uint16_t specIndex = 0;
    std::uint16_t invParam = 0;
    // Port or beam that transmitted.
    std::uint16_t antenna = 0;
    // Number of the hopping table's entry.
    std::uint16_t channel = 0;
    // Milliwatts at the receiver; `rssi` is the same in dBm.
    float rssiLin = 0;
    // Radians, 0 to 2 pi.
    float phase = 0;
    // Reads since the last report, this one included.
    std::uint16_t tagCount = 1;
    // As the tag sent them; 0 for what it did not send.
    std::uint16_t pc = 0;
    std::uint16_t xpc1 = 0;
    std::uint16_t xpc2 = 0;
    std::uint16_t crc = 0;
    // Bearing and location from the array, in tenths of a degree and of a metre; confidences
    // are percent. All 0 for a port.
    std::uint16_t azimuth = 0;
    std::uint16_t elevation = 0;
    std::int16_t locationX = 0;
    std::int16_t locationY = 0;
    std::int8_t rssi = 0;
    std::uint8_t azimuthConf = 0;
    std::uint8_t elevationConf = 0;
    std::uint8_t locConf = 0;
    // Always 0: no tag here has a brand id.
    std::uint8_t brandIdMatched = 0;
};

// Encoders return the bytes written into `out`; 0 when they do not fit or when a
// value cannot be encoded (an EPC of more than maxEpcBits). A PC of 0000h has an EPC of no bits.
// `fields`: the RXE_FIELD_ bits that the packet carries; bits without a field are ignored.
std::size_t encodeTag(const tag_read_s& read, std::uint32_t fields, std::span<std::uint8_t> out);
// `result` is an RXE_ACCESS_RESULT_ or one of this engine's own; `data` has up to 4,096 bytes.
std::size_t encodeAccess(std::uint8_t accessId, std::uint8_t result, std::span<const std::uint8_t> data,
                         std::span<std::uint8_t> out);
std::size_t encodeStartInfo(const START_INFO_s& info, std::span<std::uint8_t> out);

// Decodes a payload into the record of its raw type, which the caller has
// zeroed. Any thread, no allocation. Fails with STATUS_UNKNOWN_PACKET for a type that has
// no record, STATUS_TRUNCATED and STATUS_MALFORMED; the record may then hold the fields
// in front of the fault. Never reads past the payload's end.
RXE_API_STATUS decodePayload(std::uint16_t rawType, std::span<const std::uint8_t> payload, void* record);

// Writes numbers most significant byte first; `ok` turns false, for good, at
// the first one that does not fit.
struct byte_writer_s {
    std::span<std::uint8_t> out;
    // Bytes written so far.
    std::size_t size = 0;
    bool ok = true;
};

// Appends the lowest `bytes` bytes of the value, 1 to 8.
void put(byte_writer_s* writer, std::uint64_t value, std::size_t bytes);
void putBytes(byte_writer_s* writer, std::span<const std::uint8_t> bytes);

}  // namespace rxe
