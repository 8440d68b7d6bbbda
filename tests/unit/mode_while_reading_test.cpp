// SPDX-License-Identifier: MIT
// A client may send a mode while the radio reads: every report is made under one
// mode, and the thread sanitizer sees no thread touch what another writes.
#include <atomic>
#include <nlohmann/json.hpp>
#include <span>
#include <thread>

#include "engine_io/channels.hpp"
#include "mode_request.hpp"
#include "radio_fixture.hpp"
#include "reader_facts.hpp"
#include "support/temp_dir.hpp"

using ModeWhileReading = RadioTest;

TEST_F(ModeWhileReading, everyReportIsMadeUnderOneMode) {
    const temp_dir_s directory;
    ASSERT_EQ(chdir(directory.path.c_str()), 0);
    setModelName("PN5100");
    readerFacts.max_ants = 4;
    readerFacts.max_tx_pwr_x_10 = readerFacts.rxe_max_tx_pwr_x_10 = 300;
    initial_channel_state = true;
    const auto ask = [](const std::string& antennas, char letter) {
        const std::string user(200, letter);
        std::vector<std::string> tokens{
            "mode", R"({"type":"SIMPLE","linkProfile":201,"antennas":)" + antennas +
                        R"(,"tagMetaData":["CHANNEL",{"userDefined":")" + user + R"("}]})"};
        std::string reply;
        handleModeRequest(&tokens, &reply);
        EXPECT_EQ(reply, "Success");
    };
    ask("[1]", 'a');
    std::atomic<bool> stop{false};
    std::size_t reports = 0;
    const TAG_INFO_s tag = tagWithEpc("\x30 eleven chr");
    const std::span packet(reinterpret_cast<const std::uint8_t*>(&tag), offsetof(TAG_INFO_s, reserved314));
    std::thread engine([&] {
        while (!stop || reports == 0) {
            engine_double::deliver(RXE_PACKET_TAG_INFO_CUSTOM, packet);
            for (const message_t& message : received(data)) {
                const auto report = nlohmann::json::parse(message.at(0));
                const std::string user = report.at("data").value("userDefined", "");
                EXPECT_EQ(user, std::string(200, user.empty() ? '?' : user[0]));
                ++reports;
            }
        }
    });
    for (int turn = 0; turn < 500; ++turn) {
        ask("[1,2,3,4]", 'b');
        ask("[1]", 'a');
    }
    stop = true;
    engine.join();
    EXPECT_GT(reports, 0U);
    ASSERT_EQ(chdir("/"), 0);
}
