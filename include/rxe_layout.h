/* SPDX-License-Identifier: MIT */
/* The compiler must lay the records out as the pictures show: every processor, 32 or 64 bits, has the same
 * bytes. A record's row has its size and alignment, a field's row its place and type; fields named reserved
 * are what the rows leave. Host and library read the fields as they are and copy records as bytes, and rely
 * on these rows: who changes a record changes its picture and its rows. */
#ifndef TARNWICK_RXE_LAYOUT_H
#define TARNWICK_RXE_LAYOUT_H

#include <type_traits>

#ifndef TARNWICK_RXE_H
#error "rxe.h includes this header"
#endif
#if __BYTE_ORDER__ != __ORDER_LITTLE_ENDIAN__
#error "the records are little-endian, and are read as they are"
#endif
#define RXE_MIXED_RECORD(type, bytes, alignment)                                   \
    static_assert(sizeof(type) == (bytes) && alignof(type) == (alignment), #type); \
    static_assert(std::is_trivially_copyable_v<type> && std::is_standard_layout_v<type>, #type)
/* And each byte belongs to a field, of which the compiler is sure unless there is a float or a union of
 * members of different sizes. */
#define RXE_RECORD(type, bytes, alignment)    \
    RXE_MIXED_RECORD(type, bytes, alignment); \
    static_assert(std::has_unique_object_representations_v<type>, #type " has a gap")
#define RXE_LAYOUT(type, field, offset, ...)                            \
    static_assert(offsetof(type, field) == (offset), #type "." #field); \
    static_assert(std::is_same_v<decltype(type::field), __VA_ARGS__>, #type "." #field)

static_assert(sizeof(RXE_API_STATUS) == sizeof(int));

RXE_RECORD(REL_VERSION_s, 4, 1);
RXE_LAYOUT(REL_VERSION_s, major, 0, uint8_t);
RXE_LAYOUT(REL_VERSION_s, minor, 1, uint8_t);
RXE_LAYOUT(REL_VERSION_s, patch, 2, uint8_t);
RXE_LAYOUT(REL_VERSION_s, build, 3, uint8_t);

RXE_RECORD(RXE_packet_s, 4, 2);
RXE_LAYOUT(RXE_packet_s, type, 0, uint16_t);
RXE_LAYOUT(RXE_packet_s, length, 2, uint16_t);
RXE_LAYOUT(RXE_packet_s, payload, 4, uint8_t[]);

RXE_RECORD(PACKET_ENABLE_s, 4, 2);
RXE_LAYOUT(PACKET_ENABLE_s, enable, 0, uint8_t);
RXE_LAYOUT(PACKET_ENABLE_s, id, 2, uint16_t);

RXE_RECORD(OLIO_s, 40, 8);
RXE_LAYOUT(OLIO_s, enable, 0, uint8_t);
RXE_LAYOUT(OLIO_s, transmitAntenna, 2, uint16_t);
RXE_LAYOUT(OLIO_s, receiveAntenna, 4, uint16_t);
RXE_LAYOUT(OLIO_s, stopType, 6, uint8_t);
RXE_LAYOUT(OLIO_s, stopValue, 8, uint16_t);
RXE_LAYOUT(OLIO_s, transmitPower, 10, int16_t);
RXE_LAYOUT(OLIO_s, selectBitMask, 12, uint32_t);
RXE_LAYOUT(OLIO_s, inventoryIndex, 16, uint8_t);
RXE_LAYOUT(OLIO_s, accessBitMask, 24, uint64_t);
RXE_LAYOUT(OLIO_s, linkProfileIndex, 32, uint16_t);

RXE_RECORD(SELECT_OP_s, 76, 2);
RXE_LAYOUT(SELECT_OP_s, enable, 0, uint8_t);
RXE_LAYOUT(SELECT_OP_s, target, 1, uint8_t);
RXE_LAYOUT(SELECT_OP_s, action, 2, uint8_t);
RXE_LAYOUT(SELECT_OP_s, membank, 3, uint8_t);
RXE_LAYOUT(SELECT_OP_s, pointer, 4, uint16_t);
RXE_LAYOUT(SELECT_OP_s, length, 6, uint8_t);
RXE_LAYOUT(SELECT_OP_s, truncate, 8, uint16_t);
RXE_LAYOUT(SELECT_OP_s, mask, 10, uint8_t[66]);

RXE_MIXED_RECORD(INVENTORY_OP_s, 520, 2);
RXE_LAYOUT(INVENTORY_OP_s, enable, 0, uint8_t);
RXE_LAYOUT(INVENTORY_OP_s, protocol, 1, uint8_t);
RXE_LAYOUT(INVENTORY_OP_s, sel, 2, uint8_t);
RXE_LAYOUT(INVENTORY_OP_s, session, 3, uint8_t);
RXE_LAYOUT(INVENTORY_OP_s, target, 4, uint8_t);
RXE_LAYOUT(INVENTORY_OP_s, initialQ, 5, uint8_t);
RXE_LAYOUT(INVENTORY_OP_s, membank, 2, uint8_t);
RXE_LAYOUT(INVENTORY_OP_s, wordPointer, 4, uint16_t);
RXE_LAYOUT(INVENTORY_OP_s, wordCount, 6, uint16_t);
RXE_LAYOUT(INVENTORY_OP_s, data, 8, uint16_t[256]);

RXE_RECORD(ACCESS_OP_s, 528, 4);
RXE_LAYOUT(ACCESS_OP_s, enable, 0, uint8_t);
RXE_LAYOUT(ACCESS_OP_s, type, 1, uint8_t);
RXE_LAYOUT(ACCESS_OP_s, membank, 4, uint8_t);
RXE_LAYOUT(ACCESS_OP_s, wordPointer, 6, uint16_t);
RXE_LAYOUT(ACCESS_OP_s, payload, 4, uint32_t);
RXE_LAYOUT(ACCESS_OP_s, wordCount, 8, uint16_t);
RXE_LAYOUT(ACCESS_OP_s, data, 10, uint16_t[257]);
RXE_LAYOUT(ACCESS_OP_s, criteriaIdx, 524, uint8_t);
RXE_LAYOUT(ACCESS_OP_s, stopCount, 526, uint16_t);

RXE_RECORD(PER_RADIO_STOP_s, 16, 4);
RXE_LAYOUT(PER_RADIO_STOP_s, duration, 0, uint32_t);
RXE_LAYOUT(PER_RADIO_STOP_s, olioLoops, 4, uint16_t);
RXE_LAYOUT(PER_RADIO_STOP_s, tagCount, 6, uint16_t);
RXE_LAYOUT(PER_RADIO_STOP_s, gpiBitMask, 8, uint8_t);
RXE_LAYOUT(PER_RADIO_STOP_s, holdTime1, 10, uint16_t);
RXE_LAYOUT(PER_RADIO_STOP_s, holdTime2, 12, uint16_t);

RXE_RECORD(PER_RADIO_STOP2_s, 20, 4);
RXE_LAYOUT(PER_RADIO_STOP2_s, duration, 0, uint32_t);
RXE_LAYOUT(PER_RADIO_STOP2_s, olioLoops, 4, uint16_t);
RXE_LAYOUT(PER_RADIO_STOP2_s, tagCount, 6, uint16_t);
RXE_LAYOUT(PER_RADIO_STOP2_s, gpiBitMask, 8, uint8_t);
RXE_LAYOUT(PER_RADIO_STOP2_s, holdTime1, 10, uint16_t);
RXE_LAYOUT(PER_RADIO_STOP2_s, holdTime2, 12, uint16_t);
RXE_LAYOUT(PER_RADIO_STOP2_s, holdTime3, 14, uint16_t);
RXE_LAYOUT(PER_RADIO_STOP2_s, holdTime4, 16, uint16_t);

RXE_RECORD(GPIO_START_s, 6, 2);
RXE_LAYOUT(GPIO_START_s, gpiBitMask, 0, uint8_t);
RXE_LAYOUT(GPIO_START_s, holdTime1, 2, uint16_t);
RXE_LAYOUT(GPIO_START_s, holdTime2, 4, uint16_t);

RXE_RECORD(GPIO_START2_s, 10, 2);
RXE_LAYOUT(GPIO_START2_s, gpiBitMask, 0, uint8_t);
RXE_LAYOUT(GPIO_START2_s, holdTime1, 2, uint16_t);
RXE_LAYOUT(GPIO_START2_s, holdTime2, 4, uint16_t);
RXE_LAYOUT(GPIO_START2_s, holdTime3, 6, uint16_t);
RXE_LAYOUT(GPIO_START2_s, holdTime4, 8, uint16_t);

RXE_RECORD(REPORT_FILTER_ID_s, 72, 2);
RXE_LAYOUT(REPORT_FILTER_ID_s, enable, 0, uint8_t);
RXE_LAYOUT(REPORT_FILTER_ID_s, bitLength, 2, uint16_t);
RXE_LAYOUT(REPORT_FILTER_ID_s, bitPointer, 4, uint16_t);
RXE_LAYOUT(REPORT_FILTER_ID_s, mask, 6, uint8_t[66]);

RXE_RECORD(REPORT_FILTER_LAST_REPORT_s, 8, 4);
RXE_LAYOUT(REPORT_FILTER_LAST_REPORT_s, enable, 0, uint8_t);
RXE_LAYOUT(REPORT_FILTER_LAST_REPORT_s, type, 1, uint8_t);
RXE_LAYOUT(REPORT_FILTER_LAST_REPORT_s, duration, 4, uint32_t);

RXE_RECORD(CHANNEL_s, 12, 4);
RXE_LAYOUT(CHANNEL_s, enable, 0, uint8_t);
RXE_LAYOUT(CHANNEL_s, frequency, 4, uint32_t);
RXE_LAYOUT(CHANNEL_s, maxPower, 8, uint16_t);

RXE_MIXED_RECORD(TAG_INFO_s, 4160, 4);
RXE_LAYOUT(TAG_INFO_s, fields, 16, uint32_t);
RXE_LAYOUT(TAG_INFO_s, azimuth, 20, uint16_t);
RXE_LAYOUT(TAG_INFO_s, elevation, 22, uint16_t);
RXE_LAYOUT(TAG_INFO_s, azimuthConf, 24, uint8_t);
RXE_LAYOUT(TAG_INFO_s, elevationConf, 25, uint8_t);
RXE_LAYOUT(TAG_INFO_s, locationX, 26, int16_t);
RXE_LAYOUT(TAG_INFO_s, locationY, 28, int16_t);
RXE_LAYOUT(TAG_INFO_s, locConf, 30, uint8_t);
RXE_LAYOUT(TAG_INFO_s, rssiLin, 32, uint32_t);
RXE_LAYOUT(TAG_INFO_s, phase, 36, float);
RXE_LAYOUT(TAG_INFO_s, tagCount, 44, uint16_t);
RXE_LAYOUT(TAG_INFO_s, pc, 46, uint16_t);
RXE_LAYOUT(TAG_INFO_s, xpc1, 48, uint16_t);
RXE_LAYOUT(TAG_INFO_s, xpc2, 50, uint16_t);
RXE_LAYOUT(TAG_INFO_s, crc, 52, uint16_t);
RXE_LAYOUT(TAG_INFO_s, epcLength, 54, uint16_t);
RXE_LAYOUT(TAG_INFO_s, rssi, 56, int8_t);
RXE_LAYOUT(TAG_INFO_s, brandIdMatched, 57, uint8_t);
RXE_LAYOUT(TAG_INFO_s, epc, 58, uint8_t[256]);

RXE_RECORD(ACCESS_INFO_s, 4104, 4);
RXE_LAYOUT(ACCESS_INFO_s, accessId, 0, uint8_t);
RXE_LAYOUT(ACCESS_INFO_s, result, 1, uint8_t);
RXE_LAYOUT(ACCESS_INFO_s, dataLength, 4, uint32_t);
RXE_LAYOUT(ACCESS_INFO_s, data, 8, uint8_t[4096]);

RXE_MIXED_RECORD(PARALLEL_RSSI_s, 964, 4);
RXE_LAYOUT(PARALLEL_RSSI_s, count, 0, uint32_t);
RXE_LAYOUT(PARALLEL_RSSI_s, beam, 4, int16_t[160]);
RXE_LAYOUT(PARALLEL_RSSI_s, rssi, 324, float[160]);

RXE_RECORD(START_INFO_s, 16, 8);
RXE_LAYOUT(START_INFO_s, duration, 0, uint64_t);
RXE_LAYOUT(START_INFO_s, tagReads, 8, uint32_t);
RXE_LAYOUT(START_INFO_s, rounds, 12, uint16_t);
RXE_LAYOUT(START_INFO_s, stopCause, 14, uint16_t);

RXE_RECORD(DB_WARNING_s, 8, 4);
RXE_LAYOUT(DB_WARNING_s, used, 0, uint32_t);
RXE_LAYOUT(DB_WARNING_s, free, 4, uint32_t);

RXE_RECORD(AAREchoResults, 116, 2);
RXE_LAYOUT(AAREchoResults, txPwrx10, 4, int16_t[14]);
RXE_LAYOUT(AAREchoResults, rxPwrPreEchox10, 32, int16_t[14]);
RXE_LAYOUT(AAREchoResults, rxPwrPostEchox10, 60, int16_t[14]);

#undef RXE_LAYOUT
#undef RXE_RECORD
#undef RXE_MIXED_RECORD

#endif
