// SPDX-License-Identifier: MIT
// Selects, id filters, inventory parameter sets and accesses: the engine's records that
// carry an id of their own. Main thread. Each writer logs one line and writes one record;
// on failure it logs the status and returns it.
#pragma once

#include <cstdint>

#include "rxe.h"

// A Gen2 Select (EPC Gen2, 6.3.2.12.1.1), ids 1 to 32. (length + 7) / 8 bytes of the mask are sent.
RXE_API_STATUS setSelect(std::uint8_t id, const SELECT_OP_s& select);

// A filter of the engine on the EPCs of tags, ids 1 to 234. `maskBytes` bytes of `mask` are read.
// Status 1 refuses more than the record holds, and an id above 234, where other parameters begin.
RXE_API_STATUS setIDFilter(std::uint8_t id, std::uint8_t enable, std::uint16_t bitPointer,
                           std::uint16_t bitLength, const std::uint8_t* mask, std::uint16_t maskBytes);

// The Query of a round (EPC Gen2, 6.3.2.12.2.1), ids 1 to 255. sel: 0 all, 2 not SL, 3 SL; session
// 0 to 3; target: 0 A, 1 B, 2 A and B in turn; initialQ 0 to 15.
RXE_API_STATUS setInvParams(std::uint8_t id, std::uint8_t enable, std::uint8_t sel, std::uint8_t session,
                            std::uint8_t target, std::uint8_t initialQ);

// Operations on each tag (EPC Gen2, 6.3.2.12.3), ids 1 to 63, without access criteria and without a
// stop count. Pointers count words of 16 bits from 0. membank: 0 reserved, 1 EPC, 2 TID, 3 user.
//
// A word count of 0 reads to the end of the bank.
RXE_API_STATUS setAccessRead(std::uint8_t id, std::uint8_t enable, std::uint8_t membank,
                             std::uint16_t wordPointer, std::uint8_t wordCount);
// One word.
RXE_API_STATUS setAccessWrite(std::uint8_t id, std::uint8_t enable, std::uint8_t membank,
                              std::uint16_t wordPointer, std::uint16_t value);
// Several words, one after the other or in blocks (setBlockSize). 256 words or more are refused with
// status 1, and the engine gets no record.
RXE_API_STATUS setAccessMultiWordWrite(std::uint8_t id, std::uint8_t enable, std::uint8_t membank,
                                       std::uint16_t wordPointer, std::uint16_t count,
                                       const std::uint16_t* words);
RXE_API_STATUS setAccessBlockWrite(std::uint8_t id, std::uint8_t enable, std::uint8_t membank,
                                   std::uint16_t wordPointer, std::uint16_t count,
                                   const std::uint16_t* words);
// The kill password; the 20 bits of mask and action of Gen2 Lock (EPC Gen2, 6.3.2.12.3.5), mask high;
// the access password.
RXE_API_STATUS setAccessKill(std::uint8_t id, std::uint8_t enable, std::uint32_t password);
RXE_API_STATUS setAccessLock(std::uint8_t id, std::uint8_t enable, std::uint32_t payload);
RXE_API_STATUS setAccessAccess(std::uint8_t id, std::uint8_t enable, std::uint32_t password);

// Each disables all ids of its range by one record with id 0.
RXE_API_STATUS disableAllSelects();
RXE_API_STATUS disableAllAccessOps();
RXE_API_STATUS disableAllIDFilters();
