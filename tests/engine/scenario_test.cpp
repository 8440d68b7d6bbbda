// SPDX-License-Identifier: MIT
// What a scenario may say, and how each mistake in one is told.
#include <gmock/gmock.h>
#include <sys/stat.h>

#include <iomanip>

#include "radio.hpp"

namespace {

class Scenario : public Radio {
  protected:
    // The EPCs that antenna 1 hears within ten seconds, in hexadecimal digits.
    static std::set<std::string> epcsOfRun() {
        run({olio(1, RXE_STOP_DWELL_TIME, 100)}, stopRecord(10000, 0));
        std::set<std::string> epcs;
        for (const TAG_INFO_s& tag : recordsOf<TAG_INFO_s>(RXE_PACKET_TAG_INFO_CUSTOM)) {
            std::ostringstream text;
            for (int i = 0; i < (tag.epcLength & 0x7FF) / 8; ++i) {
                text << std::hex << std::setfill('0') << std::setw(2) << int{tag.epc[i]};
            }
            epcs.insert(text.str());
        }
        return epcs;
    }
};

TEST_F(Scenario, RulesBetweenKeysAndMissingOnes) {
    const struct {
        const char *scenario, *line;
    } cases[] = {
        {"{", "is not valid JSON"},
        {"[]", "must be an object"},
        {R"({"firmware": "2.1.256.0"})", "\"firmware\" must be a text of four numbers"},
        {R"({"firmware": "2.1.50.0x"})", "\"firmware\" must be a text of four numbers"},
        {R"({"a\nb\u001b": 1})", "\"a\\nb\\u001b\" is not a known key"},
        {R"({"antennas": [3, {"port": 3}]})", "\"antennas[1]\" names port 3 again"},
        {R"({"tags": {"itemReference": "12345"}})", "\"tags.itemReference\" must have 6 digits"},
        {R"({"tags": {"scheme": "grai-96", "itemReference": "123456"}})",
         "\"tags.itemReference\" must have 5"},
        {R"({"tags": {"scheme": "prefix"}})", "\"tags.epcPrefix\" is missing"},
        {R"({"tags": {"epcPrefix": "AABBCC", "epcBits": 16}})", "\"tags.epcPrefix\" is longer than"},
        {R"({"tags": {"epcPrefix": "AA", "epcBits": 16, "firstSerial": 250, "count": 7}})",
         "\"tags.firstSerial\" leaves no room for \"count\" serial numbers, which end at 255"},
        {R"({"tags": [{"epc": "AABB", "enter": 5, "leave": 5}]})", "\"tags[0].leave\" must be later than"},
        {R"({"tags": {"enter": 1, "arrivals": {"every": 1, "stay": 1}}})", "\"tags.enter\" does not go with"},
        {R"({"failing": [{"status": 5}]})", "\"failing[0].operation\" is missing, and \"parameter\" too"},
    };
    for (const auto& row : cases) {
        testing::internal::CaptureStderr();
        EXPECT_EQ(connect(row.scenario), 11) << row.scenario;
        const std::string line = testing::internal::GetCapturedStderr();
        EXPECT_THAT(line, testing::HasSubstr(std::string("scenario.json: ") + row.line));
        EXPECT_EQ(line.find('\n'), line.size() - 1) << line;
    }
}

// A folder, a pipe that nobody writes to, a file that is too long.
TEST_F(Scenario, OnlyRegularFilesOfSomeLengthAreRead) {
    ASSERT_EQ(mkfifo((directory / "pipe").c_str(), 0600), 0);
    writeTextFile(directory / "long", "{}");
    std::filesystem::resize_file(directory / "long", std::uintmax_t{1} << 30);
    const std::pair<std::filesystem::path, const char*> cases[] = {
        {directory, "is not a regular file"},
        {directory / "pipe", "is not a regular file"},
        {directory / "long", "has more than 32 MiB"},
        {directory / "absent", "cannot be opened: No such file or directory"},
    };
    for (const auto& [path, fault] : cases) {
        setenv("RXE_SCENARIO", path.c_str(), 1);
        REL_VERSION_s version = {};
        EXPECT_EQ(RXE_getAPIVerNum(&version, nullptr), RXE_OK) << path;
        char device[] = "/dev/ttyS1";
        testing::internal::CaptureStderr();
        EXPECT_EQ(RXE_connect(device, 460800), 11) << path;
        EXPECT_EQ(testing::internal::GetCapturedStderr(),
                  "RXE_SCENARIO: " + path.string() + ": " + fault + '\n');
    }
}

// The engine's clock is exact, and a run of 10 s shows who came in it. EPCs of schemes are by hand
// from the layouts of GS1 TDS 1.13, table 14-1.
TEST_F(Scenario, TagsHaveTheirNamesAndComeAndGoAsTheirTimesSay) {
    const std::set<std::string> here{"aa01"};
    const struct {
        const char *legend, *keys;
        std::set<std::string> heard;
    } cases[] = {
        {"GTINs",
         R"("tags": {"count": 2, "companyPrefix": "0614141", "itemReference": "812345", "firstSerial": 6789,
            "filter": 3})",
         {"3074257bf7194e4000001a85", "3074257bf7194e4000001a86"}},
        {"SSCCs",
         R"("tags": {"count": 2, "scheme": "sscc-96", "filter": 3, "firstSerial": 1234567890})",
         {"3174257bf4499602d2000000", "3174257bf4499602d3000000"}},
        {"GRAIs",
         R"("tags": {"count": 2, "scheme": "grai-96", "itemReference": "12345", "filter": 3,
            "firstSerial": 5678})",
         {"3374257bf40c0e400000162e", "3374257bf40c0e400000162f"}},
        {"GIAIs",
         R"("tags": {"count": 2, "scheme": "giai-96", "filter": 3, "firstSerial": 5678})",
         {"3474257bf40000000000162e", "3474257bf40000000000162f"}},
        {"a prefix",
         R"("tags": {"count": 2, "epcPrefix": "AB", "epcBits": 32, "firstSerial": 255})",
         {"ab0000ff", "ab000100"}},
        {"there all the time", R"("tags": [{"epc": "AA01", "position": [0, 0, 1]}])", here},
        {"comes later than the run", R"("tags": [{"epc": "AA01", "enter": 11}])", {}},
        {"comes and leaves", R"("tags": [{"epc": "AA01", "enter": 3, "leave": 4}])", here},
        {"out of reach", R"("tags": [{"epc": "AA01", "position": [0, 500, 1]}])", {}},
        {"passes by", R"("tags": [{"epc": "AA01", "position": [0, -400, 1], "velocity": [0, 100, 0]}])",
         here},
        {"three arrivals of one",
         R"("tags": {"count": 1, "epcPrefix": "AA", "epcBits": 16, "firstSerial": 7,
            "arrivals": {"every": 3, "stay": 1, "limit": 3}})",
         {"aa07", "aa08", "aa09"}},
        {"two in a line stand at its ends",
         R"("tags": {"count": 2, "epcPrefix": "AA", "epcBits": 16, "firstSerial": 1,
            "placement": {"type": "line", "from": [0, 0, 1], "to": [0, 1000, 1]}})",
         {"aa01"}},
        {"enters and leaves by events",
         R"("tags": [], "events": [{"at": 2, "event": "enter", "epc": "AA02", "position": [0, 0, 1]},
            {"at": 4, "event": "enter", "epc": "AA03", "position": [0, 0, 1], "stay": 1},
            {"at": 11, "event": "enter", "epc": "AA04", "position": [0, 0, 1]}])",
         {"aa02", "aa03"}},
        {"moved into the field",
         R"("tags": [{"epc": "AA01", "position": [0, 500, 1]}], "events":
            [{"at": 5, "event": "move", "epc": "AA01", "position": [0, 0, 1]}])",
         here},
        {"has left by an event before it comes near, and one that was not there",
         R"("tags": [{"epc": "AA01", "position": [0, -400, 1], "velocity": [0, 100, 0]}], "events":
            [{"at": 2, "event": "leave", "epc": "AA01"}, {"at": 2, "event": "leave", "epc": "AA02"}])",
         {}},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.legend);
        open(row.keys);
        EXPECT_EQ(epcsOfRun(), row.heard);
    }
}

}  // namespace
