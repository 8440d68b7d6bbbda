// SPDX-License-Identifier: MIT
// Tags that are followed (radio.hpp): the engine thread notes each of their packets and, when it is
// decided, their fate. While no tag is followed a report costs two looks at a flag.
#pragma once

#include <array>
#include <atomic>
#include <bit>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <type_traits>
#include <vector>

#include "radio.hpp"

// A record that one thread writes while another copies it. The words are taken singly; the copier finds
// out by `writes` whether they belong together.
template <class Record>
class shared_record_s {
  public:
    static_assert(std::is_trivially_copyable_v<Record>);

    void write(const Record& record, std::uint64_t number) {
        const std::uint64_t writes = writes_.load(std::memory_order_relaxed) + 1;
        writes_.store(writes, std::memory_order_relaxed);
        number_.store(number, std::memory_order_release);
        words_t words{};
        std::memcpy(words.data(), &record, sizeof record);
        for (std::size_t i = 0; i < words.size(); ++i) {
            words_[i].store(words[i], std::memory_order_release);
        }
        writes_.store(writes + 1, std::memory_order_release);
    }

    // False while it is being written, or when it is not record `number` any more.
    bool copy(std::uint64_t number, Record* record) const {
        const std::uint64_t writes = writes_.load(std::memory_order_acquire);
        if (writes % 2 != 0 || number_.load(std::memory_order_acquire) != number) {
            return false;
        }
        words_t words{};
        for (std::size_t i = 0; i < words.size(); ++i) {
            words[i] = words_[i].load(std::memory_order_acquire);
        }
        std::memcpy(static_cast<void*>(record), words.data(), sizeof *record);
        return writes_.load(std::memory_order_relaxed) == writes;
    }

  private:
    using words_t = std::array<std::uint64_t, (sizeof(Record) + 7) / 8>;
    std::array<std::atomic<std::uint64_t>, std::tuple_size_v<words_t>> words_{};
    std::atomic<std::uint64_t> number_{0};  // 0: none
    std::atomic<std::uint64_t> writes_{0};  // begun and ended; odd while one is going on
};

// One trace. The main thread makes and frees it; the engine thread finds it in its report plan.
struct tag_trace_s {
    std::vector<std::uint8_t> prefix;
    timeval since{};
    std::uint64_t id = 0;  // another one for each trace of the process
    // Packets so far; packet n, from 1, is in place n % tracedPackets. Written by the engine thread.
    std::atomic<std::uint64_t> packets{0};
    std::array<shared_record_s<traced_packet_s>, tracedPackets> last{};
};

namespace radio {

// Whether the packet that was opened last is of a tag that is followed, and without its fate. Engine
// thread, as all below.
extern bool isTraced;

// Notes the packet, if its tag is followed. `time` is the time of day of the read.
void beginTrace(const TAG_INFO_s& info, const timeval& time);

// Notes the fate; the details come from the report plan, the report and the additional keys. `form` is
// that of a report which was sent.
void endTrace(vocabulary::fate_e fate, int form);

// Notes that additional keys hold the report back under this key, for now.
void traceHeldBack(std::string_view key);

}  // namespace radio
