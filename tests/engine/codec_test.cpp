// SPDX-License-Identifier: MIT
// What RXE_formatPayloadToStruct makes of a payload, whole, cut or wrong. No
// test here connects: it works without a radio.
#include "radio.hpp"

namespace {

using bytes_t = std::vector<std::uint8_t>;

bytes_t joined(std::initializer_list<bytes_t> parts) {
    bytes_t all;
    for (const bytes_t& part : parts) {
        all.insert(all.end(), part.begin(), part.end());
    }
    return all;
}

const bytes_t epc96 = {0x8D, 0x30, 0x14, 0x25, 0x7B, 0xF7, 0x19, 0x4E, 0x40, 0x00, 0x00, 0x1A, 0x85};
const bytes_t pc = {0x8C, 0x30, 0x00};
const bytes_t crc = {0x8B, 0x34, 0x12};
const bytes_t bearing = {0x03, 0x84, 0x11, 0x06, 0x0C, 0x1C, 0x01, 0xC2, 100, 99};

TEST(Codec, TagPayloads) {
    const struct {
        const char* legend;
        bytes_t payload;
        unsigned fields, bits;
        std::uint8_t lastByte;
    } cases[] = {
        {"96 bits with PC, CRC and bearing", joined({epc96, pc, crc, bearing}), 0x22401, 96, 0x85},
        {"16 bits", joined({{0, 0xF1, 0, 2, 0, 16, 0xAB, 0xCD}, pc}), 0x401, 16, 0xCD},
        {"100 bits", joined({{0, 0xF1, 0, 13, 0, 100}, bytes_t(12), {0xF0}}), 1, 100, 0xF0},
        {"496 bits", joined({{0, 0xF1, 0, 62, 1, 0xF0}, bytes_t(62, 0x5A)}), 1, 496, 0x5A},
        {"an unknown field", joined({{0x03, 0x84, 0x7F, 0x02, 0xDE, 0xAD}, epc96}), 1, 96, 0x85},
        {"nothing", {}, 0, 0, 0},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.legend);
        TAG_INFO_s info;
        ASSERT_EQ(format({RXE_PACKET_TAG_INFO_CUSTOM, row.payload}, &info), RXE_OK);
        EXPECT_EQ(info.fields, row.fields);
        EXPECT_EQ(info.epcLength, row.bits);
        EXPECT_EQ(info.epc[row.bits == 0 ? 0 : (row.bits - 1) / 8], row.lastByte);
    }
    TAG_INFO_s info;
    ASSERT_EQ(format({RXE_PACKET_TAG_INFO_CUSTOM, joined({epc96, pc, crc, bearing})}, &info), RXE_OK);
    EXPECT_EQ(info.pc, 0x3000);
    EXPECT_EQ(info.crc, 0x1234) << "low byte first, other than the rest";
    EXPECT_TRUE(info.azimuth == 3100 && info.elevation == 450);
    EXPECT_TRUE(info.azimuthConf == 100 && info.elevationConf == 99);
}

TEST(Codec, RefusesWhatItCannotRead) {
    const struct {
        const char* legend;
        packet_s packet;
    } cases[] = {
        {"an unknown code", {RXE_PACKET_TAG_INFO_CUSTOM, {0xFE, 0}}},
        {"an unknown pair of code bytes", {RXE_PACKET_TAG_INFO_CUSTOM, {0x01, 0x02, 0, 0}}},
        {"half a pair of code bytes", {RXE_PACKET_TAG_INFO_CUSTOM, {0x03}}},
        {"a value that is cut", {RXE_PACKET_TAG_INFO_CUSTOM, {0x8C, 0x30}}},
        {"an EPC without its head", {RXE_PACKET_TAG_INFO_CUSTOM, {0, 0xF1, 0, 2, 0}}},
        {"an EPC that is cut", {RXE_PACKET_TAG_INFO_CUSTOM, {0, 0xF1, 0, 2, 0, 16, 0xAB}}},
        {"a kind without its length", {RXE_PACKET_TAG_INFO_CUSTOM, {0x03, 0x84, 0x11}}},
        {"a bearing that is cut", {RXE_PACKET_TAG_INFO_CUSTOM, {0x03, 0x84, 0x11, 8, 0, 0, 0, 0, 0, 0, 0}}},
        {"more bits than bytes", {RXE_PACKET_TAG_INFO_CUSTOM, {0, 0xF1, 0, 1, 0, 9, 1}}},
        {"an EPC beyond the record", {RXE_PACKET_TAG_INFO_CUSTOM, {0, 0xF1, 0xFF, 0xFF, 0, 16, 1}}},
        {"a bearing that is too short", {RXE_PACKET_TAG_INFO_CUSTOM, {0x03, 0x84, 0x11, 0x02, 0, 0}}},
        {"accessed data beyond the payload", {RXE_PACKET_ACCESS_INFO, {1, 0, 0, 3, 0, 0}}},
        {"accessed data beyond the record",
         {RXE_PACKET_ACCESS_INFO, joined({{1, 0, 0x10, 1}, bytes_t(4097)})}},
        {"an access without a head", {RXE_PACKET_ACCESS_INFO, {1, 0, 0}}},
        {"more beams than the record has",
         {RXE_PACKET_PARALLEL_RSSI_DEBUG, joined({{0, 161}, bytes_t(161 * 6)})}},
        {"a beam that is cut", {RXE_PACKET_PARALLEL_RSSI_DEBUG, {0, 1, 0, 1, 0, 0, 0}}},
        {"a short end of run", {RXE_PACKET_START_INFO3, bytes_t(15)}},
        {"a short database warning", {RXE_PACKET_DB_WARNING, bytes_t(7)}},
        {"a packet without a record", {RXE_PACKET_ANTENNA_INFO, bytes_t(8)}},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.legend);
        ACCESS_INFO_s room;  // no smaller than any record but a tag's
        TAG_INFO_s tag;
        EXPECT_NE(row.packet.type == RXE_PACKET_TAG_INFO_CUSTOM ? format(row.packet, &tag)
                                                                : format(row.packet, &room),
                  RXE_OK);
    }
    TAG_INFO_s tag;
    RXE_packet_s packet = {RXE_PACKET_TAG_INFO_CUSTOM, 0};
    EXPECT_NE(RXE_formatPayloadToStruct(nullptr, &tag), RXE_OK);
    EXPECT_NE(RXE_formatPayloadToStruct(&packet, nullptr), RXE_OK);
}

}  // namespace
