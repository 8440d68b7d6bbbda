// SPDX-License-Identifier: MIT
// The library from several threads, from within its callback, and its log.
// Meant to be run under the thread sanitizer too.
#include <atomic>
#include <thread>

#include "radio.hpp"
#include "support/process.hpp"

namespace {

std::atomic<int> packetsSeen{0};
std::atomic<std::uint16_t> lastType{0};
std::atomic<int> faults{0};

int callsBack(RXE_packet_s* packet) {
    ++packetsSeen;
    lastType = packet->type;
    std::int16_t degrees = 0;
    std::uint16_t delay = 0;
    faults += RXE_getParam(RXE_PARAM_PA_TEMP, &degrees) != RXE_OK;
    faults += RXE_setParam2(RXE_PARAM_DELAY_AFTER_SELECTS, &delay, true, true) != RXE_OK;
    faults += RXE_disconnect() == RXE_OK;
    if (packet->type != RXE_PACKET_ERROR_LOG) {  // which may be asked for while nothing runs
        faults += (RXE_resume() == RXE_NO_START_ONGOING) != (packet->type == RXE_PACKET_END_OF_RUN);
        faults += RXE_start() == RXE_OK;
    }
    return 0;
}

int stopsItself(RXE_packet_s* packet) {
    lastType = packet->type;
    if (++packetsSeen == 20) {
        faults += RXE_stop() != RXE_OK;
    }
    return 0;
}

class Threads : public Radio {
  protected:
    void begin(const std::string& scenario, int (*callback)(RXE_packet_s*)) {
        ASSERT_EQ(connect(scenario), RXE_OK);
        ASSERT_EQ(RXE_setCallback(callback), RXE_OK);
        configure({olio(1, 2, 50), olio(2, 1, 2)});
        packetsSeen = faults = 0;
        lastType = 0;
        ASSERT_EQ(RXE_start(), RXE_OK);
    }
    static bool waitForPackets(int many) {
        return eventually([&] { return packetsSeen >= many; });
    }
};

TEST_F(Threads, StopFromWithinTheCallback) {
    begin("{}", stopsItself);
    EXPECT_TRUE(eventually([] { return lastType == RXE_PACKET_END_OF_RUN; }));
    EXPECT_EQ(faults, 0);
    EXPECT_EQ(RXE_start(), RXE_OK) << "waits for the callback of the last packet";
    EXPECT_NE(RXE_start(), RXE_OK) << "a second start";
    EXPECT_EQ(RXE_disconnect(), RXE_OK) << "ends the run too";
    EXPECT_EQ(lastType, RXE_PACKET_END_OF_RUN);
}

TEST_F(Threads, EveryOperationFromEveryThread) {
    begin(R"({"clock": "fast"})", callsBack);
    std::atomic<bool> enough{false};
    std::vector<std::thread> threads;
    for (int n = 0; n < 3; ++n) {
        threads.emplace_back([&, n] {
            for (std::uint16_t i = 0; !enough; ++i) {
                OLIO_s record = olio(static_cast<std::uint16_t>(n + 1), 1, 1);
                faults += set(static_cast<unsigned>(RXE_PARAM_OLIO + 10 + n), record) != RXE_OK;
                faults += RXE_getParam(RXE_PARAM_OLIO + 1, &record) != RXE_OK;
                faults += RXE_getErr() != RXE_OK;
                faults += RXE_resetDb() != RXE_OK;
                const PACKET_ENABLE_s enable{std::uint8_t(i % 2), 0, RXE_PACKET_ID(RXE_PACKET_INV_BEGIN)};
                faults += set(RXE_PARAM_PACKET_ENABLE, enable) != RXE_OK;
                const auto log = directory / ("log" + std::to_string(n));
                faults += RXE_enablePacketLogging(log.c_str()) != RXE_OK;
            }
        });
    }
    EXPECT_TRUE(waitForPackets(3000));
    EXPECT_EQ(RXE_stop(), RXE_OK);
    enough = true;
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(faults, 0);
}

TEST_F(Threads, LogHoldsWhatTheCallbackSaw) {
    open("");
    EXPECT_NE(RXE_enablePacketLogging((directory / "missing" / "log").c_str()), RXE_OK);
    EXPECT_NE(RXE_enablePacketLogging(nullptr), RXE_OK);
    ASSERT_EQ(RXE_enablePacketLogging((directory / "log").c_str()), RXE_OK);
    std::uint32_t mask = 0x3C01;
    for (const bool shadow : {true, true, false}) {  // the second one repeats, the third is not counted
        EXPECT_EQ(RXE_setParam2(RXE_PARAM_CUSTOM_FIELDS, &mask, true, shadow), RXE_OK);
    }
    const START_INFO_s info = run({olio(1, 1, 1)}, stopRecord(0, 20));
    ASSERT_EQ(RXE_disablePacketLogging(), RXE_OK);
    EXPECT_EQ(RXE_disablePacketLogging(), RXE_OK) << "when there is none";
    run();  // leaves no trace in the file

    const std::string log = readTextFile(directory / "log");
    EXPECT_TRUE(log.starts_with("RXEPKLOG\1"));
    // In front of the last packet: writes answered from the shadow, and others.
    const std::size_t end = log.size() - 12 - 4, counts = end - 12 - 8;
    EXPECT_EQ(log.substr(counts + 8, 12), std::string("\0\0\x08\0\0\0\0\x01\0\0\0\x0B", 12))
        << "the mask, and what a run takes";
    EXPECT_EQ(log.substr(end + 8), std::string("\x01\x08\x04\0\x08\x09\0\x02", 8));
    std::uint64_t time = 0;
    std::memcpy(&time, &log[end], sizeof time);
    EXPECT_EQ(time, info.duration) << "microseconds of the engine's clock";
}

}  // namespace
