// SPDX-License-Identifier: MIT
// Selects, id filters, inventory parameter sets and accesses: the engine's records that
// carry an id of their own. Main thread. Each writer logs one line and writes one record;
// on failure it logs the status and returns it.
#pragma once

#include <cstdint>

#include "rxe.h"

// Of the mask (length + 7) / 8 bytes are sent.
RXE_API_STATUS setSelect(std::uint8_t id, const SELECT_OP_s& select);

// `maskBytes` bytes of `mask` are read. More than the record holds, and an id
// above 234, where other parameters begin, are refused with status 1.
RXE_API_STATUS setIDFilter(std::uint8_t id, std::uint8_t enable, std::uint16_t bitPointer,
                           std::uint16_t bitLength, const std::uint8_t* mask, std::uint16_t maskBytes);
RXE_API_STATUS setInvParams(std::uint8_t id, std::uint8_t enable, std::uint8_t sel, std::uint8_t session,
                            std::uint8_t target, std::uint8_t initialQ);

// Accesses, ids 1 to 63, without access criteria and without a stop count.
RXE_API_STATUS setAccessRead(std::uint8_t id, std::uint8_t enable, std::uint8_t membank,
                             std::uint16_t wordPointer, std::uint8_t wordCount);
RXE_API_STATUS setAccessWrite(std::uint8_t id, std::uint8_t enable, std::uint8_t membank,
                              std::uint16_t wordPointer, std::uint16_t value);
// 256 words or more are refused with status 1; nothing reaches the engine.
RXE_API_STATUS setAccessMultiWordWrite(std::uint8_t id, std::uint8_t enable, std::uint8_t membank,
                                       std::uint16_t wordPointer, std::uint16_t count,
                                       const std::uint16_t* words);
RXE_API_STATUS setAccessBlockWrite(std::uint8_t id, std::uint8_t enable, std::uint8_t membank,
                                   std::uint16_t wordPointer, std::uint16_t count,
                                   const std::uint16_t* words);
RXE_API_STATUS setAccessKill(std::uint8_t id, std::uint8_t enable, std::uint32_t password);
RXE_API_STATUS setAccessLock(std::uint8_t id, std::uint8_t enable, std::uint32_t payload);
RXE_API_STATUS setAccessAccess(std::uint8_t id, std::uint8_t enable, std::uint32_t password);

RXE_API_STATUS disableAllSelects();
RXE_API_STATUS disableAllAccessOps();
RXE_API_STATUS disableAllIDFilters();
