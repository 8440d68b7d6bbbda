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

// Raw packet types that the engine writes or reads.
enum packet_type_e : std::uint16_t {
    TYPE_SHADOW_COUNTS = 0x0000,  // in the packet log only
    TYPE_END_OF_RUN = 0x0801,
    TYPE_TAG_CUSTOM = 0x0805,
    TYPE_TAG_SHORT = 0x0806,
    TYPE_TAG_LONG = 0x0807,
    TYPE_TAG_COMPLETE = 0x0808,
    TYPE_ERROR_LOG = 0x0810,
    TYPE_PARALLEL_RSSI = 0x0A8E,
    TYPE_START_INFO3 = 0x0A91,
    TYPE_CMD_ONGOING = 0x0B01,
    TYPE_ANTENNA_INFO = 0x0B03,
    TYPE_CW_ON = 0x0B04,
    TYPE_CW_OFF = 0x0B05,
    TYPE_CW_OFF_TIMED = 0x0B06,
    TYPE_GPIO_INFO = 0x0B08,
    TYPE_INV_BEGIN = 0x0B09,
    TYPE_INV_END = 0x0B0A,
    TYPE_ACCESS_INFO = 0x0B0C,
    TYPE_ACCESS_CRITERIA_INFO = 0x0B0D,
    TYPE_CW_ON_TIMED = 0x0B0F,
    TYPE_TAG_CRC_ERROR = 0x0B10,
    TYPE_CHAN_PWR_LMT = 0x0B13,
    TYPE_ANT_DISCONNECT_ALARM = 0x0B81,
    TYPE_AMB_TEMP_HI_ALARM = 0x0B82,
    TYPE_AMB_TEMP_CRIT_ALARM = 0x0B83,
    TYPE_AMB_TEMP_LO_ALARM = 0x0B84,
    TYPE_PA_TEMP_HI_ALARM = 0x0B85,
    TYPE_PA_TEMP_CRIT_ALARM = 0x0B86,
    TYPE_PA_TEMP_LO_ALARM = 0x0B87,
    TYPE_FWD_PWR_HI_ALARM = 0x0B88,
    TYPE_FWD_PWR_LO_ALARM = 0x0B89,
    TYPE_DB_WARNING = 0x0B8D,
    TYPE_DB_ERROR = 0x0B8E,
    TYPE_ACCESS_DSBL_ALARM = 0x0B8F,
    TYPE_ANT_CONNECT_ALARM = 0x0B91,
    TYPE_RESTART = 0x0B98,
    TYPE_API_ERROR = 0x0BFF,
};

// The id that the packet table and RXE_PARAM_PACKET_ENABLE know a raw type by.
constexpr std::uint16_t idOf(std::uint16_t rawType) {
    return static_cast<std::uint16_t>(rawType ^ RXE_PACKET_TYPE_XOR);
}

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
