// SPDX-License-Identifier: MIT
// The client examples and a real daemon: what they print, and what they say about lost
// reports, a restarted daemon, and none.
#include <gtest/gtest.h>

#include <csignal>
#include <map>
#include <regex>

#include "support/reports.hpp"

namespace {

// Expressions for lines of the clients, plain or CSV: a report up to its RSSI, and a loss.
const std::string tag =
    R"(\n"?[0-9-]{10}T[0-9:]{8}\.\d{3}\+00:?00"?[ ,]"?3034257bf7194e40000003ea"?[ ,]1[ ,])";
const std::string lost = R"([\n"]\d+ (reports )?lost)";

const std::string folder = TARNWICK_SOURCE_DIR "/examples/clients/";
const std::string tagsInCpp = TARNWICK_BIN_DIR "/example_tags";

struct client_s {
    std::string form;  // data_analytics
    std::string program, argument;
};

// Twenty tags, and each read by antenna 1 is reported.
reader_options_s readerThatReports(const std::string& tagMetaData) {
    const std::string settings = R"("antennas": [1], "query": {"session": "S0"}, "reportFilter": {})";
    const std::string mode = R"({"mode": {"type": "SIMPLE", )" + settings + tagMetaData + "}}";
    return {.scenario = R"({"tagsPerSecond": 200, "tags": {"count": 20}})",
            .prepare = [=](const auto& directory) { writeTextFile(directory / "mode_config.json", mode); }};
}

// These clients, and the one that starts the radio.
void play(std::vector<client_s> clients) {
    clients.push_back({"OFF", "/usr/bin/python3", folder + "tags.py"});
    setenv("TZ", "UTC", 1);
    setenv("PATH", (TARNWICK_BIN_DIR ":" + std::string(getenv("PATH"))).c_str(), 1);
    setenv("PYTHONPATH", TARNWICK_PYTHON_SCHEMA, 1);
    std::deque<process_s> processes;
    for (const client_s& client : clients) {
        processes.emplace_back(client.program, process_options_s{{client.argument}, {}, {}});
    }
    const auto await = [&](const std::string& form, const std::string& text, std::size_t bytes = 0) {
        for (std::size_t i = 0; i < clients.size(); ++i) {
            const auto holds = [&, expression = std::regex(text)] {
                return processes[i].output().size() > bytes &&
                       std::regex_search(processes[i].output(), expression);
            };
            EXPECT_TRUE(!clients[i].form.starts_with(form) || eventually(holds))
                << text << " is not in the output of " << clients[i].program << " " << clients[i].argument
                << "\n"
                << processes[i].output().substr(0, 5000);
        }
    };
    // While reports have one form, the clients for the others miss them.
    const auto awaitInEachForm = [&](const std::string& text, std::size_t bytes = 0) {
        for (const std::string form : {"OFF", "STRING", "BINARY"}) {
            ASSERT_EQ(ask("data_analytics " + form), "Success");
            await(form, text, bytes);
        }
    };

    await("", "no report for 5 s|waiting for a daemon");
    {
        reader_s reader(readerThatReports(R"(, "tagMetaData": ["ANTENNA"])"));
        // Some 300 reports: the first 100 singly, then batches, whose empty frames are not reports.
        awaitInEachForm(tag + R"((-|,,"")\n)", 20'000);
        for (const process_s& process : processes) {
            const std::regex fault(lost + R"(|\): (b''|<Buffer >|basic))");
            EXPECT_FALSE(std::regex_search(process.output(), fault));
        }
        awaitInEachForm(lost);
        EXPECT_EQ(reader.exit(), 0);
    }
    reader_s reader(readerThatReports(R"(, "tagMetaData": ["ANTENNA", "RSSI"])"));
    awaitInEachForm(tag + R"(-\d+(,,"")?\n)");
    await("", R"((\nthe daemon has restarted|"restart")\n)");
    EXPECT_EQ(reader.exit(), 0);
    for (process_s& process : processes) {
        process.signal(SIGTERM);
        EXPECT_EQ(process.waitForExit(), 0) << process.output().substr(0, 5000);
    }
}

TEST(ClientExamples, printReportsAndTellOfLossesAndRestarts) {
    play({{"BINARY", "/usr/bin/python3", folder + "tags_protobuf.py"},
          {"STRING", tagsInCpp, "127.0.0.1"},
          {"STRING", folder + "tags_csv.sh", "--tcp"}});
}

#ifdef TARNWICK_NODE_PROGRAM
TEST(ClientExamples, doSoInNodeJs) {
    play({{"STRING", TARNWICK_NODE_PROGRAM, folder + "node/tags.mjs"}});
}
#endif

TEST(ClientExamples, takeTheShareOfASubscriber) {
    reader_s reader(readerThatReports(""));
    for (const char* const request : {"subscribers 2", "data_analytics STRING", "start"}) {
        ASSERT_EQ(ask(request), "Success");
    }
    const process_s clients[] = {{tagsInCpp, {{"127.0.0.1", "1"}, {}, {}}},
                                 {tagsInCpp, {{"127.0.0.1", "2"}, {}, {}}}};
    std::map<std::string, std::set<const process_s*>> takers;  // of each tag
    EXPECT_TRUE(eventually([&] {
        for (const process_s& client : clients) {
            std::istringstream output(client.output());
            for (std::string time, epc, rest; output >> time >> epc && std::getline(output, rest);) {
                takers[epc].insert(&client);
            }
        }
        return takers.size() == 20;
    }));
    EXPECT_TRUE(std::ranges::all_of(takers, [](const auto& one) { return one.second.size() == 1; }));
    EXPECT_EQ(reader.exit(), 0);
}

}  // namespace
