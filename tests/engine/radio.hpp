// SPDX-License-Identifier: MIT
// A connected engine for a test: a scenario in a directory of its own, a
// callback that keeps every packet, and the few writes that most runs need.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <cstring>
#include <functional>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "rxe.h"
#include "support/temp_dir.hpp"

struct packet_s {
    std::uint16_t type;
    std::vector<std::uint8_t> payload;
    bool operator==(const packet_s&) const = default;
};

inline std::uint64_t bigEndian(const packet_s& packet, std::size_t offset, std::size_t bytes) {
    std::uint64_t value = 0;
    for (std::size_t i = 0; i < bytes; ++i) {
        value = value << 8 | packet.payload.at(offset + i);
    }
    return value;
}

// The packet as the library takes it: exactly as long as it says, so that the
// address sanitizer sees a read beyond its end.
template <typename Record>
RXE_API_STATUS format(const packet_s& packet, Record* record) {
    const auto bytes = std::make_unique<std::uint8_t[]>(sizeof(RXE_packet_s) + packet.payload.size());
    const auto length = static_cast<std::uint16_t>(packet.payload.size());
    std::memcpy(&bytes[0], &packet.type, 2);
    std::memcpy(&bytes[2], &length, 2);
    std::copy(packet.payload.begin(), packet.payload.end(), &bytes[4]);
    *record = {};
    void* const aligned = bytes.get();  // as all memory of the allocator is
    return RXE_formatPayloadToStruct(static_cast<RXE_packet_s*>(aligned), record);
}

class Radio : public testing::Test {
  protected:
    static inline std::mutex mutex;
    static inline std::condition_variable arrived;
    static inline std::vector<packet_s> packets;
    const temp_dir_s scratch;
    const std::filesystem::path directory = scratch.path;

    void TearDown() override {
        RXE_disconnect();
        packets.clear();
    }

    static int keep(RXE_packet_s* packet) {
        const std::lock_guard lock(mutex);
        packets.push_back({packet->type, {packet->payload, packet->payload + packet->length}});
        arrived.notify_all();
        return 0;
    }

    // Tests run side by side, so a scenario that says nothing of the control socket has none.
    RXE_API_STATUS connect(std::string scenario) {
        if (scenario.starts_with('{') && scenario.size() > 1 &&
            scenario.find("\"control\"") == std::string::npos) {
            scenario.insert(1, scenario == "{}" ? R"("control": "none")" : R"("control": "none",)");
        }
        writeTextFile(directory / "scenario.json", scenario);
        setenv("RXE_SCENARIO", (directory / "scenario.json").c_str(), 1);
        char device[] = "/dev/ttyS1";
        const RXE_API_STATUS status = RXE_connect(device, 460800);
        RXE_setCallback(keep);
        return status;
    }
    // Connects anew, with the fast clock and these keys.
    void open(const std::string& keys) {
        RXE_disconnect();
        ASSERT_EQ(connect(R"({"clock": "fast")" + (keys.empty() ? "" : ", " + keys) + "}"), RXE_OK);
    }

    template <typename Record>
    static RXE_API_STATUS set(unsigned id, Record record) {
        return RXE_setParam2(static_cast<unsigned short>(id), &record, true, true);
    }
    static void enable(std::initializer_list<std::uint16_t> types) {
        for (const std::uint16_t type : types) {
            ASSERT_EQ(set(RXE_PARAM_PACKET_ENABLE, PACKET_ENABLE_s{1, 0, RXE_PACKET_ID(type)}), RXE_OK);
        }
    }
    static OLIO_s olio(std::uint16_t antenna, std::uint8_t stopType, std::uint16_t stopValue) {
        OLIO_s record = {};
        record.enable = 1;
        record.transmitAntenna = record.receiveAntenna = antenna;
        record.stopType = stopType;
        record.stopValue = stopValue;
        record.transmitPower = 300;
        record.inventoryIndex = 1;
        return record;
    }
    static void query(std::uint8_t sel, std::uint8_t session, std::uint8_t target, std::uint8_t q = 0) {
        ASSERT_EQ(set(RXE_PARAM_INVENTORY + 1, INVENTORY_OP_s{1, 1, {{sel, session, target, q}}}), RXE_OK);
    }
    // Inventory set 1, every packet that tells of a run, and these olios from id 1.
    static void configure(const std::vector<OLIO_s>& olios) {
        query(0, 0, 2);  // A and B in turn, so that every round reads every tag
        enable({RXE_PACKET_START_INFO3, RXE_PACKET_CMD_ONGOING, RXE_PACKET_ANTENNA_INFO, RXE_PACKET_CW_ON,
                RXE_PACKET_INV_BEGIN, RXE_PACKET_INV_END, RXE_PACKET_ACCESS_INFO});
        for (std::size_t i = 0; i < olios.size(); ++i) {
            ASSERT_EQ(set(static_cast<unsigned>(RXE_PARAM_OLIO + 1 + i), olios[i]), RXE_OK);
        }
    }
    static bool waitFor(const std::function<bool()>& condition) {
        std::unique_lock lock(mutex);
        return arrived.wait_for(lock, std::chrono::seconds(20), condition);
    }
    static std::size_t count(std::uint16_t type) {
        return static_cast<std::size_t>(
            std::count_if(packets.begin(), packets.end(), [&](const packet_s& p) { return p.type == type; }));
    }
    // The packets of a type that decode, in their order.
    template <typename Record>
    static std::vector<Record> recordsOf(std::uint16_t type) {
        std::vector<Record> records;
        for (const packet_s& packet : packets) {
            if (Record record; packet.type == type && format(packet, &record) == RXE_OK) {
                records.push_back(record);
            }
        }
        return records;
    }
    static PER_RADIO_STOP_s stopRecord(std::uint32_t duration, std::uint16_t loops,
                                       std::uint16_t tagCount = 0, std::uint8_t gpiMask = 0,
                                       std::uint16_t hold = 0) {
        return {duration, loops, tagCount, gpiMask, 0, hold, 0, 0};
    }
    // One whole run that ends by itself; how it ended.
    static START_INFO_s run() {
        {
            const std::lock_guard lock(mutex);
            packets.clear();
        }
        EXPECT_EQ(RXE_start(), RXE_OK);
        EXPECT_TRUE(waitFor([] { return count(RXE_PACKET_END_OF_RUN) == 1; }));
        const std::lock_guard lock(mutex);
        START_INFO_s info = {};
        EXPECT_GE(packets.size(), 2U);
        EXPECT_EQ(format(packets.at(packets.size() - 2), &info), RXE_OK);
        return info;
    }
    static START_INFO_s run(const std::vector<OLIO_s>& olios, const PER_RADIO_STOP_s& stop) {
        configure(olios);
        EXPECT_EQ(set(RXE_PARAM_RADIO_STOP, stop), RXE_OK);
        return run();
    }
};
