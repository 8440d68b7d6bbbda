// SPDX-License-Identifier: MIT
#include "mode/engine_records.hpp"

#include <algorithm>
#include <bit>

namespace {

// An enabled access on words of a bank. A read has its word count in both bytes of the field, as
// wordCount and wordCountExpected (rxe.h).
ACCESS_OP_s bankAccess(std::uint8_t type, std::uint8_t membank, std::uint16_t wordPointer,
                       std::uint16_t wordCount) {
    ACCESS_OP_s op{};
    op.enable = 1;
    op.type = type;
    op.membank = membank;
    op.wordPointer = wordPointer;
    op.wordCount = wordCount;
    return op;
}

ACCESS_OP_s readAccess(std::uint8_t membank, std::uint32_t wordPointer, std::uint8_t wordCount) {
    return bankAccess(RXE_ACCESS_READ, membank, static_cast<std::uint16_t>(wordPointer),
                      static_cast<std::uint16_t>(wordCount | wordCount << 8));
}

ACCESS_OP_s payloadAccess(std::uint8_t type, std::uint32_t payload) {
    ACCESS_OP_s op{};
    op.enable = 1;
    op.type = type;
    op.payload = payload;
    return op;
}

ACCESS_OP_s writeAccess(const ACCESS_CMD_S& access) {
    const auto words = static_cast<std::uint16_t>(access.writeData.size());
    if (words == 1 && access.writeBlockSize == 0) {
        return bankAccess(RXE_ACCESS_WRITE, access.writeMembank, access.writeWordPointer,
                          access.writeData.front());
    }
    const std::uint8_t type =
        access.writeBlockSize == 0 ? RXE_ACCESS_MULTIWORD_WRITE : RXE_ACCESS_BLOCK_WRITE;
    ACCESS_OP_s op = bankAccess(type, access.writeMembank, access.writeWordPointer, words);
    std::ranges::copy(access.writeData, op.data);
    return op;
}

}  // namespace

std::uint64_t accessMaskBit(std::size_t index) {
    if (index >= 32) {
        return 0;
    }
    const auto shifted = static_cast<std::int32_t>(std::uint32_t{1} << index);
    return static_cast<std::uint64_t>(std::int64_t{shifted});
}

int accessStructToAccessOpStruct(const ACCESS_CMD_S* access, ACCESS_OP_s* op) {
    switch (access->type) {
        case access_cmd_type_e::READ:
            *op = readAccess(access->readMembank, access->readWordPointer, access->readWordCount);
            return 0;
        case access_cmd_type_e::WRITE:
            if (access->writeData.empty() || access->writeData.size() > MODE_MAX_WRITE_WORDS) {
                return -1;
            }
            *op = writeAccess(*access);
            return 0;
        case access_cmd_type_e::ACCESS:
            *op = payloadAccess(RXE_ACCESS_ACCESS, access->accessPassword);
            return 0;
        case access_cmd_type_e::LOCK:
            *op = payloadAccess(RXE_ACCESS_LOCK, access->lockPayload);
            return 0;
        case access_cmd_type_e::KILL:
            *op = payloadAccess(RXE_ACCESS_KILL, access->killPassword);
            return 0;
    }
    return -1;
}

std::uint8_t initialQForPopulation(std::uint32_t tagPopulation) {
    if (tagPopulation == 0) {
        return 0;
    }
    return std::min(static_cast<std::uint8_t>(std::bit_width(tagPopulation) - 1), MODE_MAX_INITIAL_Q);
}
