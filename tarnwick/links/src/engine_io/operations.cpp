// SPDX-License-Identifier: MIT
// Selects, id filters, inventory parameter sets and accesses: the records that
// carry an id of their own.
#include <algorithm>

#include "engine_io/operations.hpp"
#include "engine_io/parameter_io.hpp"
#include "logger.hpp"

namespace {

using rxe_intfc::noteFailure;
using rxe_intfc::refused;
using rxe_intfc::unit;
using rxe_intfc::writeParameter;

// An access without criteria and without a stop count.
ACCESS_OP_s accessRecord(std::uint8_t enable, std::uint8_t type) {
    ACCESS_OP_s record{};
    record.enable = enable;
    record.type = type;
    return record;
}

// An access on words of a memory bank. The meaning of the field `wordCount` depends on the type: a
// count, two counts in its bytes, or the word of a write.
ACCESS_OP_s wordAccessRecord(std::uint8_t enable, std::uint8_t type, std::uint8_t membank,
                             std::uint16_t wordPointer, std::uint16_t wordCount) {
    ACCESS_OP_s record = accessRecord(enable, type);
    record.membank = membank;
    record.wordPointer = wordPointer;
    record.wordCount = wordCount;
    return record;
}

// An access whose whole content is a password or a lock word.
ACCESS_OP_s payloadAccessRecord(std::uint8_t enable, std::uint8_t type, std::uint32_t payload) {
    ACCESS_OP_s record = accessRecord(enable, type);
    record.payload = payload;
    return record;
}

RXE_API_STATUS writeAccess(std::uint8_t id, const ACCESS_OP_s& record) {
    return writeParameter<RXE_PARAM_ACCESS>(record, id);
}

// The ids of id filters end where the numbers of single parameters begin.
constexpr unsigned lastIdFilter = RXE_PARAM_AUTORESTART - RXE_PARAM_ID_FILTER - 1;

// The engine counts the words of a long write in a byte.
constexpr std::uint16_t longWriteLimit = 256;

RXE_API_STATUS writeLongAccess(std::uint8_t id, ACCESS_OP_s record, const std::uint16_t* words) {
    if (record.wordCount >= longWriteLimit) {
        return noteFailure(refused, " word count too large");
    }
    std::copy_n(words, record.wordCount, record.data);
    return writeAccess(id, record);
}

}  // namespace

RXE_API_STATUS setSelect(std::uint8_t id, const SELECT_OP_s& select) {
    logInfo(unit, " Setting Select Params");
    SELECT_OP_s record{};
    record.enable = select.enable;
    record.target = select.target;
    record.action = select.action;
    record.membank = select.membank;
    record.pointer = select.pointer;
    record.length = select.length;
    record.truncate = select.truncate;
    std::copy_n(select.mask, (select.length + 7) / 8, record.mask);
    return writeParameter<RXE_PARAM_SELECT>(record, id);
}

RXE_API_STATUS setIDFilter(std::uint8_t id, std::uint8_t enable, std::uint16_t bitPointer,
                           std::uint16_t bitLength, const std::uint8_t* mask, std::uint16_t maskBytes) {
    logInfo(unit, " Setting ID Filter");
    REPORT_FILTER_ID_s record{};
    if (id > lastIdFilter) {
        return noteFailure(refused, " filter id not supported");
    }
    if (maskBytes > sizeof(record.mask)) {
        return noteFailure(refused, " mask is too long");
    }
    record.enable = enable;
    record.bitLength = bitLength;
    record.bitPointer = bitPointer;
    std::copy_n(mask, maskBytes, record.mask);
    return writeParameter<RXE_PARAM_ID_FILTER>(record, id);
}

RXE_API_STATUS setInvParams(std::uint8_t id, std::uint8_t enable, std::uint8_t sel, std::uint8_t session,
                            std::uint8_t target, std::uint8_t initialQ) {
    logInfo(unit, " Setting Inventory Params");
    INVENTORY_OP_s record{};
    record.enable = enable;
    record.protocol = 1;  // EPC Gen2
    record.sel = sel;
    record.session = session;
    record.target = target;
    record.initialQ = initialQ;
    return writeParameter<RXE_PARAM_INVENTORY>(record, id);
}

RXE_API_STATUS setAccessRead(std::uint8_t id, std::uint8_t enable, std::uint8_t membank,
                             std::uint16_t wordPointer, std::uint8_t wordCount) {
    logInfo(unit, " Setting Access Read");
    // The low byte is how many words to read, the high byte how many are expected.
    const auto counts = static_cast<std::uint16_t>(wordCount | (wordCount << 8));
    return writeAccess(id, wordAccessRecord(enable, RXE_ACCESS_READ, membank, wordPointer, counts));
}

RXE_API_STATUS setAccessWrite(std::uint8_t id, std::uint8_t enable, std::uint8_t membank,
                              std::uint16_t wordPointer, std::uint16_t value) {
    return writeAccess(id, wordAccessRecord(enable, RXE_ACCESS_WRITE, membank, wordPointer, value));
}

RXE_API_STATUS setAccessMultiWordWrite(std::uint8_t id, std::uint8_t enable, std::uint8_t membank,
                                       std::uint16_t wordPointer, std::uint16_t count,
                                       const std::uint16_t* words) {
    logInfo(unit, " Setting Access Multiwrite");
    return writeLongAccess(
        id, wordAccessRecord(enable, RXE_ACCESS_MULTIWORD_WRITE, membank, wordPointer, count), words);
}

RXE_API_STATUS setAccessBlockWrite(std::uint8_t id, std::uint8_t enable, std::uint8_t membank,
                                   std::uint16_t wordPointer, std::uint16_t count,
                                   const std::uint16_t* words) {
    return writeLongAccess(id, wordAccessRecord(enable, RXE_ACCESS_BLOCK_WRITE, membank, wordPointer, count),
                           words);
}

RXE_API_STATUS setAccessKill(std::uint8_t id, std::uint8_t enable, std::uint32_t password) {
    logInfo(unit, " Setting Access kill");
    return writeAccess(id, payloadAccessRecord(enable, RXE_ACCESS_KILL, password));
}

RXE_API_STATUS setAccessLock(std::uint8_t id, std::uint8_t enable, std::uint32_t payload) {
    logInfo(unit, " Setting Access lock");
    return writeAccess(id, payloadAccessRecord(enable, RXE_ACCESS_LOCK, payload));
}

RXE_API_STATUS setAccessAccess(std::uint8_t id, std::uint8_t enable, std::uint32_t password) {
    logInfo(unit, " Setting Access password");
    return writeAccess(id, payloadAccessRecord(enable, RXE_ACCESS_ACCESS, password));
}

RXE_API_STATUS disableAllSelects() {
    logInfo(unit, " Disable All Selects ");
    return writeParameter<RXE_PARAM_SELECT>(SELECT_OP_s{});
}

RXE_API_STATUS disableAllAccessOps() {
    logInfo(unit, " Disable All Access Ops");
    return writeParameter<RXE_PARAM_ACCESS>(ACCESS_OP_s{});
}

RXE_API_STATUS disableAllIDFilters() {
    logInfo(unit, " Disable ID Filters ");
    return writeParameter<RXE_PARAM_ID_FILTER>(REPORT_FILTER_ID_s{});
}
