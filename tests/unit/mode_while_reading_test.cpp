// SPDX-License-Identifier: MIT
// Clients may ask for anything while the radio reads: every report is made under one mode,
// and the thread sanitizer sees no thread touch what another writes.
#include <atomic>
#include <fstream>
#include <functional>
#include <nlohmann/json.hpp>
#include <span>
#include <thread>

#include "additional_config.hpp"
#include "engine_io/channels.hpp"
#include "logger.hpp"
#include "mode_request.hpp"
#include "radio_fixture.hpp"
#include "reader_facts.hpp"
#include "requests.hpp"
#include "support/temp_dir.hpp"

class ModeWhileReading : public RadioTest {
  protected:
    ModeWhileReading() {
        EXPECT_EQ(chdir(directory.path.c_str()), 0);
        setModelName("PN5100");
        readerFacts.max_ants = 4;
        readerFacts.max_tx_pwr_x_10 = readerFacts.rxe_max_tx_pwr_x_10 = 300;
        initial_channel_state = true;
        setMode("[1]", 'a');
    }
    ~ModeWhileReading() override { EXPECT_EQ(chdir("/"), 0); }

    // A mode that reads the TID, holds repeats of it back for no time, and has a text of its own.
    static void setMode(const std::string& antennas, char letter) {
        const std::string user(200, letter);
        std::vector<std::string> tokens{
            "mode", R"({"type":"SIMPLE","linkProfile":201,"antennas":)" + antennas +
                        R"(,"tagMetaData":["CHANNEL","PC","CRC","TID",{"userDefined":")" + user +
                        R"("}],"reportFilter":{"type":"RADIO_WIDE","duration":0,"addl_keys":["TID"]}})"};
        std::string reply;
        handleModeRequest(&tokens, &reply);
        EXPECT_EQ(reply, "Success");
    }

    // What the main thread does beside the modes, in turn.
    static void askAside(int turn) {
        std::vector<std::string> tokens{"tag_info", "v"};
        std::string reply;
        requests::tagInfoHandler(&tokens, &reply);
        EXPECT_TRUE(reply.starts_with("Success: Current Tag Info DB Size : ")) << reply;
        tokens = {"status"};
        requests::statusHandler(&tokens, &reply);
        if (turn % 10 == 0) {
            resetTagInfoDB();
        }
        send_radio_start_message();
        logInfo("test", " turn ", turn);
    }

    // Tags and their TIDs, until `stop`.
    std::thread engine(const std::function<void()>& afterEach) {
        return std::thread([this, afterEach] {
            TAG_INFO_s tag = tagWithEpc("\x30 eleven chr");
            tag.fields |= RXE_FIELD_PC | RXE_FIELD_CRC;
            const std::span packet(reinterpret_cast<const std::uint8_t*>(&tag),
                                   offsetof(TAG_INFO_s, reserved314));
            ACCESS_INFO_s tid{};
            tid.accessId = 1;
            tid.dataLength = 12;
            const std::span words(reinterpret_cast<const std::uint8_t*>(&tid),
                                  offsetof(ACCESS_INFO_s, data) + 12);
            while (!stop) {
                ++tid.data[0];
                engine_double::deliver(RXE_PACKET_TAG_INFO_CUSTOM, packet);
                engine_double::deliver(RXE_PACKET_ACCESS_INFO, words);
                engine_double::deliver(RXE_PACKET_CMD_ONGOING, {});
                afterEach();
            }
        });
    }

    temp_dir_s directory;
    std::atomic<bool> stop{false};
};

TEST_F(ModeWhileReading, everyReportIsMadeUnderOneMode) {
    std::atomic<std::size_t> reports = 0;
    std::thread reader = engine([&] {
        for (const message_t& message : received(data)) {
            for (const std::string& frame : message) {
                const auto report = nlohmann::json::parse(frame.empty() ? "{}" : frame);
                const std::string user = report.empty() ? "" : report.at("data").value("userDefined", "");
                EXPECT_EQ(user, std::string(user.size(), user.empty() ? '?' : user[0]));
                reports += user.size() / 200;
            }
        }
    });
    std::thread radio([this] {
        while (!stop) {
            do_background_activity_radio_thread();
            takeSubscriptions();
        }
    });
    for (int turn = 0; turn < 500; ++turn) {
        setMode("[1,2,3,4]", 'b');
        askAside(turn);
        setMode("[1]", 'a');
    }
    while (reports == 0) {
        std::this_thread::yield();
    }
    stop = true;
    reader.join();
    radio.join();
}

// The form changes, and with it the socket. The engine thread's lines are all there, in their order.
TEST_F(ModeWhileReading, FormsChangeAndLinesKeepTheirOrder) {
    configureLogs(false, false);
    int told = 0;
    std::thread reader = engine([&told] {
        isEngineThread = true;
        logInfo("test", " engine ", told++);
        isEngineThread = false;
    });
    std::thread radio([this] {
        while (!stop) {
            for (std::string request :
                 {"data_analytics STRING", "data_analytics BINARY", "data_analytics OFF"}) {
                std::string reply;
                ProcessInternalRequest(&request, &reply);
                EXPECT_EQ(reply, "Success");
            }
        }
    });
    for (int turn = 0; turn < 2000; ++turn) {
        askAside(turn);
    }
    stop = true;
    reader.join();
    radio.join();
    for (int i = 0; i < 100; ++i) {  // what waits goes to the file
        logInfo("test", " end");
    }
    int next = 0;
    for (const char* file : {"tarnwick.log.5", "tarnwick.log.4", "tarnwick.log.3", "tarnwick.log.2",
                             "tarnwick.log.1", "tarnwick.log"}) {
        std::ifstream log(file);
        for (std::string line; std::getline(log, line);) {
            if (const auto at = line.find(" engine "); at != std::string::npos) {
                ASSERT_EQ(std::stoi(line.substr(at + 8)), next++);
            }
        }
    }
    EXPECT_EQ(next, told);
    EXPECT_GT(told, 0);
}

// Another thread is at both sockets, and stays there until the packet has been handled.
TEST_F(RadioTest, TheEngineThreadLeavesBehindWhatItWouldWaitFor) {
    sockets::gpio_led.turn.doInTurn([] {
        sockets::tag_data.turn.doInTurn(
            [] { std::thread([] { deliver(tagWithEpc("\x30 eleven chr")); }).join(); });
    });
    ASSERT_EQ(received(data).size(), 1U);
    EXPECT_TRUE(received(lines).at(0).at(0).starts_with("TAG_READ,"));
}
