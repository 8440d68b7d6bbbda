// SPDX-License-Identifier: MIT
#include "codec.hpp"

#include <algorithm>
#include <bit>
#include <cstring>
#include <utility>

#include "status.hpp"

namespace rxe {
namespace {

constexpr std::uint8_t codeEpc96 = 0x8D;
constexpr std::size_t epc96Bytes = 12;
constexpr std::uint16_t codeEpc = 0x00F1;
constexpr std::uint16_t codeOwn = 0x0384;
constexpr std::uint16_t epcLengthMask = 0x07FF;  // the bits of TAG_INFO_s::epcLength that count
constexpr std::uint16_t noMember = 0xFFFF;

// All numbers come high byte first, except for the CRC.
enum order_e : std::uint8_t { HIGH_FIRST, LOW_FIRST };

// One number of a field: its size in bytes, where the encoder takes it from and
// where the decoder puts it, or `noMember` when the host's record has no place
// for it and only its presence is told.
struct element_s {
    std::uint8_t bytes;
    std::uint16_t readOffset;  // in tag_read_s
    std::uint16_t infoOffset;  // in TAG_INFO_s
};

struct field_s {
    std::uint32_t bit;  // RXE_FIELD_*
    std::uint8_t code;  // 0x80 + code, or the kind of one of the engine's own fields
    order_e order;
    std::uint8_t count;  // of elements in use
    std::array<element_s, 4> elements;
};

#define ELEMENT(member) \
    { sizeof(tag_read_s::member), offsetof(tag_read_s, member), offsetof(TAG_INFO_s, member) }
#define ELEMENT_UNSEEN(member) \
    { sizeof(tag_read_s::member), offsetof(tag_read_s, member), noMember }

// Codes follow the TV parameters of EPCglobal LLRP 1.1 (section 17.2), which
// has one for each of these facts. The EPC itself stands outside the table.
constexpr std::array valueFields{
    field_s{RXE_FIELD_PC, 0x8C, HIGH_FIRST, 1, {{ELEMENT(pc)}}},
    field_s{RXE_FIELD_CRC, 0x8B, LOW_FIRST, 1, {{ELEMENT(crc)}}},
    field_s{RXE_FIELD_ROSPEC, 0x89, HIGH_FIRST, 1, {{ELEMENT_UNSEEN(roSpec)}}},
    field_s{RXE_FIELD_SPEC_INDEX, 0x8E, HIGH_FIRST, 1, {{ELEMENT_UNSEEN(specIndex)}}},
    field_s{RXE_FIELD_INV_PARAM, 0x8A, HIGH_FIRST, 1, {{ELEMENT_UNSEEN(invParam)}}},
    field_s{RXE_FIELD_ANTENNA_ID, 0x81, HIGH_FIRST, 1, {{ELEMENT_UNSEEN(antenna)}}},
    field_s{RXE_FIELD_RSSI, 0x86, HIGH_FIRST, 1, {{ELEMENT(rssi)}}},
    field_s{RXE_FIELD_CHANNEL_ID, 0x87, HIGH_FIRST, 1, {{ELEMENT_UNSEEN(channel)}}},
    field_s{RXE_FIELD_FIRST_SEEN, 0x82, HIGH_FIRST, 1, {{ELEMENT_UNSEEN(firstSeen)}}},
    field_s{RXE_FIELD_LAST_SEEN, 0x84, HIGH_FIRST, 1, {{ELEMENT_UNSEEN(lastSeen)}}},
    field_s{RXE_FIELD_TAG_COUNT, 0x88, HIGH_FIRST, 1, {{ELEMENT(tagCount)}}},
    field_s{RXE_FIELD_XPC1, 0x93, HIGH_FIRST, 1, {{ELEMENT(xpc1)}}},
    field_s{RXE_FIELD_XPC2, 0x94, HIGH_FIRST, 1, {{ELEMENT(xpc2)}}},
    field_s{RXE_FIELD_ACCESS_SPEC, 0x90, HIGH_FIRST, 1, {{ELEMENT_UNSEEN(accessSpec)}}},
};

// Fields of the form 03 84 kind length.
constexpr std::array ownFields{
    field_s{RXE_FIELD_BEARING,
            0x11,
            HIGH_FIRST,
            4,
            {{ELEMENT(azimuth), ELEMENT(elevation), ELEMENT(azimuthConf), ELEMENT(elevationConf)}}},
    field_s{RXE_FIELD_PHASE, 0x12, HIGH_FIRST, 1, {{ELEMENT(phase)}}},
    field_s{RXE_FIELD_RSSI_LIN, 0x13, HIGH_FIRST, 1, {{ELEMENT(rssiLin)}}},
    field_s{RXE_FIELD_BRAND_ID, 0x14, HIGH_FIRST, 1, {{ELEMENT(brandIdMatched)}}},
    field_s{RXE_FIELD_LOCATION,
            0x15,
            HIGH_FIRST,
            3,
            {{ELEMENT(locationX), ELEMENT(locationY), ELEMENT(locConf)}}},
};

#undef ELEMENT
#undef ELEMENT_UNSEEN

// Bytes of the value, of all its numbers together.
constexpr std::size_t sizeOf(const field_s& field) {
    std::size_t bytes = 0;
    for (std::size_t i = 0; i < field.count; ++i) {
        bytes += field.elements[i].bytes;
    }
    return bytes;
}

// Numbers lie in the records low byte first.
inline void copyNumber(std::uint8_t* to, const std::uint8_t* from, std::size_t bytes, order_e order) {
    if (bytes == 1) {  // the two commonest without a call
        *to = *from;
    } else if (bytes == 2 && order == HIGH_FIRST) {
        to[0] = from[1];
        to[1] = from[0];
    } else if (order == HIGH_FIRST) {
        std::reverse_copy(from, from + bytes, to);
    } else {
        std::copy_n(from, bytes, to);
    }
}

// Most significant byte first. The caller has checked that it lies within.
std::uint64_t getNumber(std::span<const std::uint8_t> bytes, std::size_t offset, std::size_t size) {
    std::uint64_t value = 0;
    for (std::size_t i = 0; i < size; ++i) {
        value = (value << 8) | bytes[offset + i];
    }
    return value;
}

// The numbers of a field, one behind the other, from the members that the table names.
void encodeField(const field_s& field, const tag_read_s& read, byte_writer_s* writer) {
    const auto* base = reinterpret_cast<const std::uint8_t*>(&read);
    std::array<std::uint8_t, 8> number{};
    for (std::size_t i = 0; i < field.count; ++i) {
        const element_s& element = field.elements[i];
        copyNumber(number.data(), base + element.readOffset, element.bytes, field.order);
        putBytes(writer, std::span(number).first(element.bytes));
    }
}

// 96 bits have a code of their own, any other length is told in bytes and bits.
void encodeEpc(const tag_read_s& read, byte_writer_s* writer) {
    const std::uint16_t bytes = static_cast<std::uint16_t>((read.epcBits + 7) / 8);
    if (read.epcBits == 96) {
        put(writer, codeEpc96, 1);
    } else {
        put(writer, codeEpc, 2);
        put(writer, bytes, 2);
        put(writer, read.epcBits, 2);
    }
    putBytes(writer, {read.epc, bytes});
}

// Puts the numbers of one field into the record. `value` has all bytes of the field.
using field_decoder = void (*)(const std::uint8_t* value, TAG_INFO_s* info);

// Compiled for each row of a table: a tag packet is decoded for every read.
template <const auto& fields, std::size_t row>
void decodeField(const std::uint8_t* value, TAG_INFO_s* info) {
    static constexpr field_s field = fields[row];
    auto* base = reinterpret_cast<std::uint8_t*>(info);
    const auto decode = [&]<std::size_t i>() {
        static constexpr element_s element = field.elements[i];
        if constexpr (element.infoOffset != noMember) {
            copyNumber(base + element.infoOffset, value, element.bytes, field.order);
        }
        value += element.bytes;
    };
    [&]<std::size_t... i>(std::index_sequence<i...>) {
        (decode.template operator()<i>(), ...);
    }
    (std::make_index_sequence<field.count>{});
    info->fields |= field.bit;
}

// `epc` fits into the record: 12 bytes, or as stepEpc has checked.
void setEpc(std::span<const std::uint8_t> epc, std::size_t bits, TAG_INFO_s* info) {
    std::memcpy(info->epc, epc.data(), epc.size());
    info->epcLength = static_cast<std::uint16_t>(bits);
    info->fields |= RXE_FIELD_EPC;
}

void decodeEpc96(const std::uint8_t* value, TAG_INFO_s* info) {
    std::memcpy(info->epc, value, epc96Bytes);
    info->epcLength = 8 * epc96Bytes;
    info->fields |= RXE_FIELD_EPC;
}

// What one look-up of a code gives; without a decoder the code is unknown.
struct index_entry_s {
    std::size_t size = 0;
    field_decoder decode = nullptr;
};
using code_index = std::array<index_entry_s, 256>;

template <const auto& fields>
constexpr code_index indexByCode() {
    code_index index{};
    [&]<std::size_t... row>(std::index_sequence<row...>) {
        ((index[fields[row].code] = {sizeOf(fields[row]), decodeField<fields, row>}), ...);
    }
    (std::make_index_sequence<fields.size()>{});
    return index;
}

constexpr code_index valueIndex = [] {
    code_index index = indexByCode<valueFields>();
    index[codeEpc96] = {epc96Bytes, decodeEpc96};
    return index;
}();
constexpr code_index ownIndex = indexByCode<ownFields>();

// A step reads one field from the front of `rest` and says how many bytes it
// took; 0 means that `*status` tells why it could not.
//
// 80 + code: the code tells the size.
inline std::size_t stepValue(std::span<const std::uint8_t> rest, TAG_INFO_s* info, status_e* status) {
    const index_entry_s& entry = valueIndex[rest[0]];
    if (entry.decode == nullptr) {
        *status = STATUS_MALFORMED;
        return 0;
    }
    if (rest.size() <= entry.size) {
        *status = STATUS_TRUNCATED;
        return 0;
    }
    entry.decode(&rest[1], info);
    return 1 + entry.size;
}

// 00 F1: an EPC with its length. Bits that the record's length field cannot hold are refused.
std::size_t stepEpc(std::span<const std::uint8_t> rest, TAG_INFO_s* info, status_e* status) {
    if (rest.size() < 6) {
        *status = STATUS_TRUNCATED;
        return 0;
    }
    const auto bytes = static_cast<std::size_t>(getNumber(rest, 2, 2));
    const auto bits = static_cast<std::size_t>(getNumber(rest, 4, 2));
    if (bytes > sizeof info->epc || bits > epcLengthMask || bits > bytes * 8) {
        *status = STATUS_MALFORMED;
        return 0;
    }
    if (rest.size() < 6 + bytes) {
        *status = STATUS_TRUNCATED;
        return 0;
    }
    setEpc(rest.subspan(6, bytes), bits, info);
    return 6 + bytes;
}

// 03 84: an unknown kind is skipped by its length; a known one may be longer than its numbers.
inline std::size_t stepOwn(std::span<const std::uint8_t> rest, TAG_INFO_s* info, status_e* status) {
    if (rest.size() < 4 || rest.size() < 4U + rest[3]) {
        *status = STATUS_TRUNCATED;
        return 0;
    }
    const index_entry_s& entry = ownIndex[rest[2]];
    if (entry.size > rest[3]) {
        *status = STATUS_MALFORMED;
        return 0;
    }
    if (entry.decode != nullptr) {
        entry.decode(rest.data() + 4, info);
    }
    return 4U + rest[3];
}

// Field by field until the payload ends.
status_e decodeTag(std::span<const std::uint8_t> payload, void* record) {
    auto* info = static_cast<TAG_INFO_s*>(record);
    status_e status = STATUS_MALFORMED;
    while (!payload.empty()) {
        std::size_t taken = 0;
        if ((payload[0] & 0x80) != 0) {
            taken = stepValue(payload, info, &status);
        } else if (payload.size() < 2) {
            status = STATUS_TRUNCATED;
        } else if (getNumber(payload, 0, 2) == codeEpc) {
            taken = stepEpc(payload, info, &status);
        } else if (getNumber(payload, 0, 2) == codeOwn) {
            taken = stepOwn(payload, info, &status);
        } else {
            status = STATUS_MALFORMED;
        }
        if (taken == 0) {
            return status;
        }
        payload = payload.subspan(taken);
    }
    return status_e{};
}

//   | access id | result | data length: 2 | data |
status_e decodeAccess(std::span<const std::uint8_t> payload, void* record) {
    auto* info = static_cast<ACCESS_INFO_s*>(record);
    if (payload.size() < 4) {
        return STATUS_TRUNCATED;
    }
    const auto length = static_cast<std::size_t>(getNumber(payload, 2, 2));
    if (length > sizeof info->data) {
        return STATUS_MALFORMED;
    }
    if (payload.size() < 4 + length) {
        return STATUS_TRUNCATED;
    }
    info->accessId = payload[0];
    info->result = payload[1];
    info->dataLength = static_cast<std::uint32_t>(length);
    std::copy_n(payload.begin() + 4, length, info->data);
    return status_e{};
}

//   | count: 2 | count times: beam: 2, level: 4 |
status_e decodeParallelRssi(std::span<const std::uint8_t> payload, void* record) {
    auto* levels = static_cast<PARALLEL_RSSI_s*>(record);
    if (payload.size() < 2) {
        return STATUS_TRUNCATED;
    }
    const auto count = static_cast<std::size_t>(getNumber(payload, 0, 2));
    if (count > std::size(levels->beam)) {
        return STATUS_MALFORMED;
    }
    if (payload.size() < 2 + count * 6) {
        return STATUS_TRUNCATED;
    }
    levels->count = static_cast<std::uint32_t>(count);
    for (std::size_t i = 0; i < count; ++i) {
        levels->beam[i] = static_cast<std::int16_t>(getNumber(payload, 2 + i * 6, 2));
        levels->rssi[i] = std::bit_cast<float>(static_cast<std::uint32_t>(getNumber(payload, 4 + i * 6, 4)));
    }
    return status_e{};
}

//   | duration: 8 | tag reads: 4 | rounds: 2 | stop cause: 2 |
status_e decodeStartInfo(std::span<const std::uint8_t> payload, void* record) {
    if (payload.size() < 16) {
        return STATUS_TRUNCATED;
    }
    *static_cast<START_INFO_s*>(record) = {
        .duration = getNumber(payload, 0, 8),
        .tagReads = static_cast<std::uint32_t>(getNumber(payload, 8, 4)),
        .rounds = static_cast<std::uint16_t>(getNumber(payload, 12, 2)),
        .stopCause = static_cast<std::uint16_t>(getNumber(payload, 14, 2))};
    return status_e{};
}

//   | used: 4 | free: 4 |
status_e decodeDbWarning(std::span<const std::uint8_t> payload, void* record) {
    if (payload.size() < 8) {
        return STATUS_TRUNCATED;
    }
    *static_cast<DB_WARNING_s*>(record) = {.used = static_cast<std::uint32_t>(getNumber(payload, 0, 4)),
                                           .free = static_cast<std::uint32_t>(getNumber(payload, 4, 4))};
    return status_e{};
}

// A raw type and the function that decodes it.
struct decoder_s {
    std::uint16_t rawType;
    status_e (*decode)(std::span<const std::uint8_t>, void*);
};

// The order is that of the daemon's traffic.
constexpr std::array decoders{
    decoder_s{RXE_PACKET_TAG_INFO_CUSTOM, decodeTag},
    decoder_s{RXE_PACKET_ACCESS_INFO, decodeAccess},
    decoder_s{RXE_PACKET_PARALLEL_RSSI_DEBUG, decodeParallelRssi},
    decoder_s{RXE_PACKET_TAG_INFO_SHORT, decodeTag},
    decoder_s{RXE_PACKET_TAG_INFO_LONG, decodeTag},
    decoder_s{RXE_PACKET_TAG_INFO_COMPLETE, decodeTag},
    decoder_s{RXE_PACKET_START_INFO3, decodeStartInfo},
    decoder_s{RXE_PACKET_DB_WARNING, decodeDbWarning},
};

// What an encoder returns.
std::size_t written(const byte_writer_s& writer) {
    return writer.ok ? writer.size : 0;
}

}  // namespace

void put(byte_writer_s* writer, std::uint64_t value, std::size_t bytes) {
    if (!writer->ok || writer->out.size() - writer->size < bytes) {
        writer->ok = false;
        return;
    }
    for (std::size_t i = bytes; i-- > 0;) {
        writer->out[writer->size++] = static_cast<std::uint8_t>(value >> (8 * i));
    }
}

void putBytes(byte_writer_s* writer, std::span<const std::uint8_t> bytes) {
    if (!writer->ok || writer->out.size() - writer->size < bytes.size()) {
        writer->ok = false;
        return;
    }
    std::copy(bytes.begin(), bytes.end(), writer->out.begin() + static_cast<std::ptrdiff_t>(writer->size));
    writer->size += bytes.size();
}

std::size_t encodeTag(const tag_read_s& read, std::uint32_t fields, std::span<std::uint8_t> out) {
    if (read.epcBits > maxEpcBits) {
        return 0;
    }
    byte_writer_s writer{.out = out};
    if ((fields & RXE_FIELD_EPC) != 0) {
        encodeEpc(read, &writer);
    }
    for (const field_s& field : valueFields) {
        if ((fields & field.bit) != 0) {
            put(&writer, field.code, 1);
            encodeField(field, read, &writer);
        }
    }
    for (const field_s& field : ownFields) {
        if ((fields & field.bit) != 0) {
            put(&writer, codeOwn, 2);
            put(&writer, field.code, 1);
            put(&writer, sizeOf(field), 1);
            encodeField(field, read, &writer);
        }
    }
    return written(writer);
}

std::size_t encodeAccess(std::uint8_t accessId, std::uint8_t result, std::span<const std::uint8_t> data,
                         std::span<std::uint8_t> out) {
    byte_writer_s writer{.out = out, .ok = data.size() <= sizeof(ACCESS_INFO_s::data)};
    put(&writer, accessId, 1);
    put(&writer, result, 1);
    put(&writer, data.size(), 2);
    putBytes(&writer, data);
    return written(writer);
}

std::size_t encodeStartInfo(const START_INFO_s& info, std::span<std::uint8_t> out) {
    byte_writer_s writer{.out = out};
    put(&writer, info.duration, 8);
    put(&writer, info.tagReads, 4);
    put(&writer, info.rounds, 2);
    put(&writer, info.stopCause, 2);
    return written(writer);
}

RXE_API_STATUS decodePayload(std::uint16_t rawType, std::span<const std::uint8_t> payload, void* record) {
    for (const decoder_s& decoder : decoders) {
        if (decoder.rawType == rawType) {
            return toApi(decoder.decode(payload, record));
        }
    }
    return toApi(STATUS_UNKNOWN_PACKET);
}

}  // namespace rxe
