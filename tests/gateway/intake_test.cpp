// SPDX-License-Identifier: MIT
// Frames of all forms, what their numbers say, and the configuration: all that needs no process.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "account.hpp"
#include "config.hpp"
#include "gateway/program.hpp"
#include "intake.hpp"
#include "support/table.hpp"
#include "tw_msg.pb.h"

namespace {

std::string replaced(std::string text, const std::string& what, const std::string& by) {
    for (std::size_t at = text.find(what); at != text.npos; at = text.find(what, at + by.size())) {
        text.replace(at, what.size(), by);
    }
    return text;
}

std::string headed(char kind, const std::string& body) {
    return std::string{'\x01', '\0', kind, '\0'} + body;
}

velmo::tag_data_report fullReport() {
    velmo::tag_data_report report;
    report.set_tag_id("\x30\x34\x0a\xff");
    report.set_timestamp_millis(1'772'446'530'123);
    report.set_pc(std::string("\x31\x00", 2));
    report.set_xpc("\x12\x34\x56\x78");
    report.set_rssi_int(-52);
    report.set_antenna(3);
    report.set_channel(902'750);
    report.set_azimuthx10(-125);
    report.set_host_name("dock");
    report.set_event_num(17);
    return report;
}

}  // namespace

TEST(Intake, MakesTheSameJsonOfEachForm) {
    const std::string json = reportText(17);
    velmo::tag_data_report reduced;
    reduced.set_tag_id("\x30\x34");
    reduced.set_timestamp_millis(1'772'446'530'123);
    reduced.set_pc(std::string("\x00\x30", 2));
    velmo::tag_data_report nothing;
    struct {
        const char* legend;
        std::string frame;
        std::string body;
        std::optional<std::uint64_t> number;
    } const cases[] = {
        {"OFF", json, json, 17},
        {"STRING", headed('\0', json), json, 17},
        {"BINARY, full", headed('\x01', fullReport().SerializeAsString()),
         R"({"data":{"PC":"3100","XPC1":"1234","XPC2":"5678","antenna":3,"azimuth":-12.5,"channel":902.75,)"
         R"("eventNum":17,"format":"uii","hostName":"dock","idHex":"30340aff","peakRssi":-52},)"
         R"("timestamp":"2026-03-02T10:15:30.123+0000"})",
         17},
        {"BINARY, reduced", headed('\x02', reduced.SerializeAsString()),
         R"({"data":{"PC":"3000","format":"epc","idHex":"3034"},"timestamp":"2026-03-02T10:15:30.123+0000",)"
         R"("type":"BEARING"})",
         std::nullopt},
        {"a report without an EPC", headed('\x01', nothing.SerializeAsString()), "", std::nullopt},
        {"bytes behind a header", headed('\x01', "\xff\xff"), "", std::nullopt},
        {"text", "hello", "", std::nullopt},
        {"no number", R"({"data":{}})", "", std::nullopt},
        {"a line break would part a line of a file", "{\"data\":{\"eventNum\":1\n}}", "", std::nullopt},
        {"cut off", json.substr(0, json.size() - 1), "", std::nullopt},
    };
    for (const auto& row : cases) {
        const judged_frame_s judged = judgeTagFrame(row.frame);
        EXPECT_EQ(judged.body, row.body) << row.legend;
        if (!row.body.empty()) {
            EXPECT_EQ(judged.number, row.number) << row.legend;
        }
    }
}

TEST(Intake, ReadsTheUptimeOfAHeartbeat) {
    EXPECT_EQ(uptimeOf(heartbeatText("100:02:03")), 360'123);
    for (const char* wrong : {"", "1:2", "1:2:3:4", "a:b:c", "-1:00:00"}) {
        EXPECT_EQ(uptimeOf(heartbeatText(wrong)), -1) << wrong;
    }
}

TEST(Account, KnowsGapsLateReportsAndRestarts) {
    // Numbers in the order in which they come; "u5" is a heartbeat of that uptime, "w" a wait of a minute.
    struct {
        const char* legend;
        std::vector<std::string> come;
        std::uint64_t restarts, gaps, missing;
    } const cases[] = {
        {"nothing is missing before the first", {"7", "8", "9"}, 0, 0, 0},
        {"a gap", {"7", "9", "10", "20"}, 0, 2, 10},
        {"late reports fill a gap", {"1", "5", "3", "2", "6", "4"}, 0, 1, 0},
        {"after a while nothing is late", {"1", "5", "w", "3"}, 1, 2, 6},
        {"a lower number is a restart, which begins at 0", {"5", "6", "0", "1"}, 1, 0, 0},
        {"what came between the restart and its first report is missing", {"5", "3", "4"}, 1, 1, 3},
        {"restart after restart", {"5", "3", "2", "1"}, 3, 3, 6},
        {"the same number twice", {"5", "5"}, 1, 1, 5},
        {"the uptime tells where the number does not", {"u50", "5", "u1", "9"}, 1, 1, 9},
        {"the uptime falls while old reports still come", {"u50", "5", "u1", "6", "7", "0"}, 1, 0, 0},
        {"the number has told what the uptime tells", {"u50", "5", "0", "u1", "4"}, 1, 1, 3},
    };
    for (const auto& row : cases) {
        std::int64_t now = 1'000'000'000;
        source_account_s source;
        beginBoot(&source, now);
        for (const std::string& word : row.come) {
            now += word == "w" ? 60'000'000 : 1'000;
            if (word.starts_with('u')) {
                takeUptime(&source, std::stoi(word.substr(1)));
            } else if (word != "w" && takeNumber(&source, std::stoull(word), now) == number_e::restart) {
                beginBoot(&source, now);
                EXPECT_NE(takeNumber(&source, std::stoull(word), now), number_e::restart) << row.legend;
            }
            // A restart of the gateway in between changes nothing.
            source = nlohmann::json(source).get<source_account_s>();
            EXPECT_EQ(source.boot.next, source.boot.first + source.boot.numbered + source.boot.missing)
                << row.legend;
        }
        EXPECT_EQ(std::tuple(source.restarts, source.gaps, source.missing),
                  std::tuple(row.restarts, row.gaps, row.missing))
            << row.legend;
    }
}

TEST(Config, TellsEveryMistakeWithItsPlace) {
    const temp_dir_s directory;
    for (const table_section_s& section : readTable("gateway/config.txt")) {
        for (const table_row_s& row : section.rows) {
            std::vector<std::string> mistakes;
            const bool isSound =
                parseConfig(replaced(row.left, "DIR", directory.path), "FILE", &mistakes).has_value();
            std::string text;
            for (const std::string& mistake : mistakes) {
                text += (text.empty() ? "" : "\n") + mistake;
            }
            EXPECT_EQ(text, replaced(row.right, "DIR", directory.path)) << row.left;
            EXPECT_EQ(isSound, row.right.empty()) << row.left;
        }
    }
}

TEST(Config, ReadsSecretsOnlyFromFilesThatAreOnes) {
    const temp_dir_s directory;
    const std::string file = directory.path / "secret";
    std::string error;
    EXPECT_FALSE(readSecret(file, &error));
    writeTextFile(file, "");
    std::filesystem::permissions(file, std::filesystem::perms(0600));
    EXPECT_FALSE(readSecret(file, &error));
    writeTextFile(file, "pass word\r\nmore");
    EXPECT_EQ(readSecret(file, &error), "pass word");
    std::filesystem::permissions(file, std::filesystem::perms(0604));
    EXPECT_FALSE(readSecret(file, &error));
    EXPECT_FALSE(readSecret(directory.path, &error));
}
