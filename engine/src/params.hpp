// SPDX-License-Identifier: MIT
// The parameter space: every record the host can read or write, by id.
//
// All functions may be called on any thread, also from within the callback, except where a
// comment names a thread: a mutex guards the records and is held for one copy; the bits that the
// radio thread reads for every packet are atomic.
//
// Functions return RXE_OK, or of status.hpp the first that applies of these:
//   STATUS_UNKNOWN_PARAM   not an id; the base of a range, for a read
//   STATUS_NOT_SUPPORTED   this reader or its firmware does not have it
//   STATUS_NOT_READABLE, STATUS_NOT_WRITABLE
//   STATUS_BAD_RECORD      a field is out of range
//   STATUS_NOT_MODELLED    a command that the software radio does not have
// A refused call changes nothing.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <mutex>
#include <span>
#include <vector>

#include "features.hpp"
#include "rxe.h"
#include "scenario.hpp"

namespace rxe {

// The highest packet id that has a bit in params_s::packetBits.
constexpr std::uint16_t maxPacketId = RXE_PACKET_BIT_WORDS * 32 - 1;

struct params_s {
    std::mutex mutex;
    // All records, range behind range, as the table of ranges in params.cpp lays them
    // out. Guarded by `mutex`.
    std::vector<std::byte> records;
    // Tenths of dBm, the most that an olio may ask for. Written at connection.
    std::int16_t maxTxPower = 0;
    // Says which parameters there are. Written at connection.
    reader_s reader;
    // The highest antenna that the host has told of, by their number or by the loss of a cable;
    // 0 before it has. Written by the host's threads, read by the control thread.
    std::atomic<std::uint16_t> toldAntennas{0};
    // One bit for each packet id. Written by the host's threads, read by the
    // radio thread in front of every packet.
    std::array<std::atomic<std::uint32_t>, RXE_PACKET_BIT_WORDS> packetBits{};
    // Counts the accepted writes, by any thread. The radio thread gathers its plan anew when it
    // has changed.
    std::atomic<std::uint64_t> generation{0};
};

// Every record back to what the radio holds after power-up in this scenario, except what
// setNvmParam has written, which outlives a connection. Before the radio thread starts.
void resetParams(const scenario_s& scenario, params_s* params);

// Copies the record of `id` to `*record`, which has the size that rxe.h gives for this id; it
// need not be aligned.
RXE_API_STATUS getParam(params_s* params, std::uint16_t id, void* record);
// Checks the record and stores it. `shadowed`: the library may answer from its own copy. When
// the record repeats what is stored, nothing goes to the radio and `*answered` becomes true;
// `answered` may be null only without `shadowed`.
RXE_API_STATUS setParam(params_s* params, std::uint16_t id, const void* record, bool shadowed = false,
                        bool* answered = nullptr);
// The same in the id space of RXE_setNVMParam, which can only be written and does not depend
// on the reader.
RXE_API_STATUS setNvmParam(params_s* params, std::uint16_t id, const void* record);

// Stores a record that the radio measures and the host can only read: temperatures, antennas,
// echoes. It does not count as a write, so the radio keeps its plan.
void publishRecord(params_s* params, std::uint16_t id, const void* record);
// The byte that the host has last written to `id` with RXE_setNVMParam, 0 before it has.
std::uint8_t nvmByte(params_s* params, std::uint16_t id);

// How many antenna ports the reader has, or elements of its array; maxPorts where the host has
// not told. Any thread, without the lock.
unsigned antennaPorts(const params_s& params);

// The record of `id`, which must be one the table has, and those behind it in its range, for the
// radio's own use. The caller holds `params.mutex`.
std::span<const std::byte> recordsFrom(const params_s& params, std::uint16_t id);
// The record of `id` as a value. The caller holds `params.mutex`; `Record` is the type
// that rxe.h gives for this id.
template <typename Record>
Record recordOf(const params_s& params, unsigned id) {
    Record record;
    std::memcpy(&record, recordsFrom(params, static_cast<std::uint16_t>(id)).data(), sizeof record);
    return record;
}
// Calls take(n, record) for each record of the range behind `base` that is enabled, n from 1. There
// are a thousand olios alone, so the range is looked up once. The caller holds `params.mutex`.
template <typename Record, typename Take>
void forEachEnabled(const params_s& params, unsigned base, Take take) {
    auto records = recordsFrom(params, static_cast<std::uint16_t>(base + 1));
    for (unsigned n = 1; !records.empty(); ++n, records = records.subspan(sizeof(Record))) {
        Record record;
        std::memcpy(&record, records.data(), sizeof record);
        if (record.enable != 0) {
            take(n, record);
        }
    }
}

// Whether packets of this id are to be reported. Ids without a bit always are.
inline bool packetEnabled(const params_s& params, std::uint16_t id) {
    return id > maxPacketId ||
           ((params.packetBits[id / 32].load(std::memory_order_relaxed) >> (id % 32)) & 1) != 0;
}

}  // namespace rxe
