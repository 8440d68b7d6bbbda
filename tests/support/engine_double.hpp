// SPDX-License-Identifier: MIT
// The radio engine's C interface as a double: it records every call in order,
// answers from memory and fails on request. Any thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "rxe.h"

namespace engine_double {

struct call_s {
    std::string name;                  // "RXE_setParam2", with a note behind it when a flag is cleared
    unsigned id = 0;                   // parameter id; RXE_txFakeTags: count; RXE_connect: baud
    std::vector<std::uint8_t> record;  // what a set call carried; empty for gets
    std::string text;                  // RXE_connect: device; RXE_enablePacketLogging: file
};

// A call as one line: name without "RXE_", id in hexadecimal, record in
// hexadecimal up to its last byte that is not zero ("-" when all are), text:
// "setParam2 0401 0100010001". Parts that a call does not have are left out.
std::string describe(const call_s& call);

// All calls since the start or the last reset, in order.
std::vector<call_s> calls();
std::string lastCall();  // described

// Forgets calls, records, failures, the callback and a start under way.
void reset();

// Forgets the calls only.
void clearCalls();

// Makes calls of `name` (with parameter `id`, or any with -1) return `status`. A
// failing call is recorded but changes nothing and fills no record.
void failOn(const std::string& name, int id, int status = 77);

// What RXE_getParam answers for `id` until that is set. Without it: a sound
// default (firmware 2.1.50.0, maximum power 330, channels 1 to 4 enabled at 903000
// to 904500 kHz), else zeros.
void setRecord(unsigned id, const void* record, std::size_t size);
template <class Record>
void setRecord(unsigned id, const Record& record) {
    setRecord(id, &record, sizeof record);
}

// Whether a start is under way: RXE_resume answers 241 when not. RXE_start and
// RXE_stop change it.
void setOngoing(bool ongoing);

// Calls the registered callback on the calling thread. Returns its result.
int deliver(std::uint16_t rawType, std::span<const std::uint8_t> payload);

}  // namespace engine_double
