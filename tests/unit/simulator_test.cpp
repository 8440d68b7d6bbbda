// SPDX-License-Identifier: MIT
#include "simulator.hpp"

#include <gmock/gmock.h>

#include <cmath>

#include "ask.hpp"
#include "radio_fixture.hpp"
#include "support/lists.hpp"
#include "support/process.hpp"
#include "support/temp_dir.hpp"
#include "util.hpp"

namespace {

using testing::EndsWith;
using testing::HasSubstr;

TEST(SimulatedRoom, BearingsAndRange) {
    const std::tuple<aar_position_s, tag_position_s, double, double> cases[] = {
        {{1, 1, 1, 0}, {1, 5, 1}, 359.9999999, 90},  // ahead along y: a short pi
        {{0, 0, 2, 90}, {5, 0, 2}, 180, 90},
        {{0, 0, 2, 0}, {-5, 0, 2}, 270, 90},
        {{0, 0, 3, 0}, {0, 0, 0}, 90, 0},  // straight below
        {{0, 0, 3, 1}, {0, 3, 0}, 1, 45},
        {{0, 0, 0, 800}, {1, 0, 0}, 530, 90},  // no more than one turn
        {{0, 0, 0, -800}, {1, 0, 0}, -350, 90},
        {{0, 0, 0, 90}, {18, 0, 24}, 180, 143.1301024},  // exactly 30 away
        {{0, 0, 0, 0}, {0, 30.01, 0}, outOfRange, outOfRange},
        {{-1e308, 0, 0, 0}, {1.7e308, 0, 0}, outOfRange, outOfRange},
    };
    const auto angles = std::make_unique<angle_table_t>();
    for (const auto& [aar, tag, azimuth, elevation] : cases) {
        get_az({aar}, {tag}, angles.get(), 1, 1);
        EXPECT_NEAR((*angles)[0][0], azimuth, 1e-5);
        get_el({aar}, {tag}, angles.get(), 1, 1);
        EXPECT_NEAR((*angles)[0][0], elevation, 1e-5) << azimuth;
    }
}

// Both angles get independent normal noise of their own width.
TEST(SimulatedRoom, NoiseHasTheWantedSpread) {
    bearing_s outside{-10, -5};
    add_noise(&outside, 0, 0);
    EXPECT_EQ(std::pair(outside.azimuth, outside.elevation), std::pair(350.0, 5.0));

    srand(7);
    const double radius = std::sqrt(-2 * std::log(rand() / 2147483647.0));
    const double angle = 2 * M_PI * rand() / 2147483647.0;
    const int next = rand();
    for (const double deviation : {0.0, 1.5}) {
        srand(7);
        bearing_s bearing{180, 90};
        add_noise(&bearing, deviation, deviation / 3);
        EXPECT_NEAR(bearing.azimuth, 180 + deviation * radius * std::cos(angle), 1e-6);
        EXPECT_NEAR(bearing.elevation, 90 + deviation / 3 * radius * std::sin(angle), 1e-6);
        EXPECT_EQ(rand(), next) << "two draws, whatever the deviation";
    }
}

TEST(SimulatorFiles, CountsAndFailures) {
    const temp_dir_s directory;
    std::filesystem::current_path(directory.path);
    const std::string good = R"({"tag_id":"E2","x":1,"y":2,"z":3,"orientation":4})";
    const auto both = [](const std::string& elements) {
        return R"({"aar_info": [)" + elements + R"(], "tag_info": [)" + elements + "]}";
    };
    // The file, what both readers return, a part of what they print.
    const std::tuple<std::string, int, int, const char*> cases[] = {
        {"", 0, 0, "aar json file failed, Invalid config file\nloading tag json file failed, Invalid"},
        {both(R"({"x":1e999})"), 0, 0, "failed, Invalid config file\nloading tag"},
        {"[]", 0, 0, "\"aar_info\" must be included in object\nFailure: \"tag_info\" must be"},
        {both(""), 0, -1, ""},
        {both("[]"), 0, 0, "Failure: tag_info must be an array containing only objects\n"},
        {both(good + R"(,{"tag_id":"E2"})"), 0, 0, "\"x\" must be included"},
        {both(R"({"x":"1"})"), 0, 0, "Failure: \"x\" field must contain a floating point number\n"},
        {both(good), 1, 0, ""},
        {both(listOf(1002, good)), 1002, 1001, ""},
    };
    const auto ids = std::make_unique<tag_id_table_t>();
    const auto tags = std::make_unique<tag_table_t>();
    aar_table_t aars{};
    for (const auto& [text, aarCount, tagCount, printed] : cases) {
        SCOPED_TRACE(text.substr(0, 80));
        writeTextFile("file", text);
        testing::internal::CaptureStdout();
        EXPECT_EQ(get_aar_info("file", &aars), aarCount);
        EXPECT_EQ(get_tag_info("file", ids.get(), tags.get()), tagCount);
        const std::string output = testing::internal::GetCapturedStdout();
        EXPECT_TRUE(*printed == '\0' ? output.empty() : output.find(printed) != output.npos) << output;
    }
    EXPECT_EQ(ids->back() + std::to_string(aars.back().orientation + tags->back().z), "E27.000000");
    for (const char* path : {"missing", ".", "/dev/zero"}) {
        EXPECT_EQ(get_aar_info(path, &aars), 0) << path;
    }
}

TEST(SimulatorPacket, PayloadBytes) {
    // Id, bearing in tenths, payload with blanks between its parts. The CRCs are those
    // of CRC-16/GENIBUS, from a bitwise computation elsewhere.
    const std::tuple<std::string, int, int, std::string> cases[] = {
        {"3034257BF400B7800004CB2F", 1800, 905,
         "8d 3034257bf400b7800004cb2f 8c3000 8bd548 03841106 0708 0389 6464"},
        {"00112233445566778899AABBCCDDEEFF", -1, 0,
         "00f1 0010 0080 00112233445566778899aabbccddeeff 8c4000 8bbd87 03841106 ffff 0000 6464"},
        {"E28", 1, 65538, "00f1 0001 0008 e2 8c0000 8b63c3 03841106 0001 0002 6464"},
        {"", 0, 0, "00f1 0000 0000 8c0000 8b0000 03841106 0000 0000 6464"},
        {"G1zz2x-1 3", 0, 0, "00f1 0005 0028 000002ff03 8c1000 8b0fb3 03841106 0000 0000 6464"},
        {std::string(600, 'A'), 0, 0,
         "00f1 00ff 07f8" + std::string(510, 'a') + "8cf800 8b978a 03841106 0000 0000 6464"},
    };
    std::vector<std::uint8_t> buffer(sizeof(RXE_packet_s) + maxSimulatedPayload);
    RXE_packet_s* const packet = headOf(&buffer);
    for (const auto& [id, azimuth, elevation, expected] : cases) {
        buildTagPacket(id, azimuth, elevation, packet);
        EXPECT_EQ(packet->type, RXE_PACKET_TAG_INFO_CUSTOM);
        std::string payload;
        appendHex(packet->payload, packet->length, &payload);
        EXPECT_EQ(payload, removeSelectChar(expected, ' '));
    }
}

// The simulator's thread, in a directory with one reader and three tags, of which
// the second is out of range and the third the spare.
class Simulator : public RadioTest {
  protected:
    Simulator() {
        std::filesystem::current_path(directory.path);
        writeTextFile("aar.json", R"({"aar_info": [{"x":0,"y":0,"z":0,"orientation":0}]})");
        writeTextFile("tag.json", R"({"tag_info": [{"tag_id":"E2801160","x":3,"y":0,"z":0},
            {"tag_id":"E2801161","x":31,"y":0,"z":0}, {"tag_id":"E2801162","x":3,"y":0,"z":0}]})");
        engine_double::reset();
    }
    ~Simulator() override { endSimulations(); }

    // Threads of this process that feed packets.
    static long simulators() {
        return std::ranges::count_if(
            std::filesystem::directory_iterator("/proc/self/task"),
            [](const auto& task) { return readTextFile(task.path() / "comm") == "simulator\n"; });
    }

    temp_dir_s directory;
};

// Rows: reader, missing file, last lines.
TEST_F(Simulator, RunsThatEndByThemselves) {
    const char* const noTag = "Number of Tags seen by this AAR: 0\nstopping simulation\n";
    const std::tuple<int, const char*, const char*> cases[] = {
        {128, "", "AAR Idx requested (128) is invalid\nexiting\n"},
        {-2, "", "AAR Idx requested (-2) is invalid\nexiting\n"},
        {1, "", noTag},
        {0, "tag.json", noTag},
        {0, "aar.json", noTag}};
    for (const auto& [aar, missing, ending] : cases) {
        std::filesystem::remove(missing);
        testing::internal::CaptureStdout();
        EXPECT_EQ(startSimulationThread(aar, 0, 0, 0), 0);
        EXPECT_EQ(endSimulations(), 0);
        EXPECT_THAT(testing::internal::GetCapturedStdout(), EndsWith(ending));
        EXPECT_FALSE(isSimulationRunning());
    }
    EXPECT_EQ(radio::packetRxCount, 0U);
}

TEST_F(Simulator, RequestsWhileIdleAndRunning) {
    testing::internal::CaptureStdout();
    EXPECT_EQ(ask("start sim_bearing 12x 0 std_el=0.25 std_az=-1.5"), "Success");
    EXPECT_TRUE(eventually([] { return radio::packetRxCount >= 3; }));
    // A second simulation runs beside the first.
    EXPECT_EQ(ask("start sim_bearing 400 0"), "Success");
    EXPECT_TRUE(eventually([] { return radio::packetRxCount >= 103; }));
    EXPECT_EQ(simulators(), 2);
    EXPECT_EQ(ask("stop"), "Success");
    EXPECT_EQ(simulators(), 0);
    EXPECT_EQ(radio::packetRxCount % 100 % 3, 0U) << "whole slices of 3 and of 100";
    EXPECT_FALSE(isSimulationRunning());
    EXPECT_EQ(readTextFile("autoStart.txt"), "false");
    EXPECT_EQ(ask("stop"), "Success");
    EXPECT_EQ(ask("start"), "Success");

    const std::string output = testing::internal::GetCapturedStdout();
    EXPECT_THAT(output,
                testing::StartsWith("tps: 12x or 12\nsetting std_az to: -1.5\nsetting std_az to: 0.25\n"
                                    "starting with params: 0 and 12 (std az: -1.5, std el: 0.25)\n"
                                    "Simulating AAR: 0 TPS: 12 (83333 uS per tag)\n"
                                    "AAR 0,0,0,0,0\n"
                                    "standard deviation:\n azimuth: -1.5\n elevation: 0.25\n"
                                    "AAR: 0, Tag: E2801160 (0) , az: 90, el: 90\n"
                                    "Number of Tags seen by this AAR: 1\n"));
    EXPECT_THAT(output, EndsWith("stopping simulation\nstopping simulation\nstopping ... 0\n"));
    EXPECT_THAT(engineCalls(), EndsWith("stop stop resume resetDb start")) << "nothing before";
}

// Four slices a second.
TEST_F(Simulator, KeepsItsPace) {
    startSimulationThread(0, 400, 0, 0);
    ASSERT_TRUE(eventually([] { return radio::packetRxCount >= 100; }));
    const auto begin = std::chrono::steady_clock::now();
    ASSERT_TRUE(eventually([] { return radio::packetRxCount >= 500; }));
    const std::chrono::duration<double> passed = std::chrono::steady_clock::now() - begin;
    EXPECT_GT(passed.count(), 0.9);
    EXPECT_LT(passed.count(), 1.8) << "or this machine is very busy";
}

TEST_F(Simulator, RatesAtTheEnds) {
    // Below 4 a second nothing is sent; the run goes on until it is stopped.
    for (const int tps : {3, 0, -8}) {
        startSimulationThread(0, tps, 0, 0);
        EXPECT_TRUE(eventually(isSimulationRunning)) << tps;
        EXPECT_EQ(stopSimulationThread(), 0);
        EXPECT_EQ(radio::packetRxCount, 0U) << tps;
    }
    // A slice that would take minutes ends at the stop. Tags past the table are drawn and
    // passed over.
    const std::string tags = listOf(3000, R"({"tag_id":"E2","x":1,"y":2,"z":3})");
    writeTextFile("tag.json", R"({"tag_info": [)" + tags + "]}");
    testing::internal::CaptureStdout();
    startSimulationThread(0, 2'000'000'000, 0, 0);
    EXPECT_TRUE(eventually([] { return radio::packetRxCount >= 3000; }));
    EXPECT_EQ(stopSimulationThread(), 0);
    const std::string output = testing::internal::GetCapturedStdout();
    EXPECT_THAT(output, HasSubstr("Number of Tags seen by this AAR: 1000\n"));
    EXPECT_THAT(output, HasSubstr(", aar_idx: 0 (tag_count: 2999)\n"));
}

// Until its files are read, which takes a while here, a simulation does not show, and a
// stop passes it by when no other one runs.
TEST_F(Simulator, StopWhileItLoads) {
    const std::string tags = listOf(100'000, R"({"tag_id":"E2","x":1,"y":2,"z":3})");
    writeTextFile("tag.json", R"({"tag_info": [)" + tags + "]}");
    startSimulationThread(0, 3, 0, 0);
    EXPECT_EQ(stopSimulationThread(), 0);
    EXPECT_TRUE(eventually(isSimulationRunning));
    startSimulationThread(0, 3, 0, 0);
    EXPECT_EQ(stopSimulationThread(), 0);
    EXPECT_EQ(simulators(), 0);
}

}  // namespace
