// SPDX-License-Identifier: MIT
// The text command "configrxe": whole replies and what a write puts into the
// engine, by the exchanges in configrxe.txt.
#include <gtest/gtest.h>

#include <regex>
#include <stdexcept>

#include "configrxe.hpp"
#include "engine_io/channels.hpp"
#include "engine_io/olios.hpp"
#include "reader_facts.hpp"
#include "support/engine_double.hpp"
#include "support/table.hpp"
#include "util.hpp"

namespace {

// The reply to "configrxe custom <request>".
std::string ask(const std::string& request) {
    const std::string whole = "configrxe custom " + request;
    std::vector<std::string> tokens = tokenizeRequestByWhitespace(&whole);
    std::string reply;
    EXPECT_EQ(configRXEHandler(&tokens, &reply), 0);
    return reply;
}

// What the engine was told since the last call, as the table has it.
std::string writes() {
    std::string text;
    for (const auto& call : engine_double::calls()) {
        text +=
            call.record.empty() ? "" : "[" + engine_double::describe(call).substr(sizeof("setParam2")) + "] ";
    }
    engine_double::clearCalls();
    return std::regex_replace(text, std::regex("0{40,}"), "~");
}

// The exchanges of one "@" block, whose lines these are, on one model.
void play(const std::string& model, const std::vector<std::string>& lines) {
    setModelName(model);
    engine_double::reset();
    for (std::size_t i = 0; i < lines.size(); ++i) {
        const std::string& line = lines[i];
        SCOPED_TRACE(model + " " + line);
        if (line[0] == ':') {
            std::vector<std::uint8_t> record;
            for (std::size_t digit = line.find(' ', 2) + 1; digit < line.size(); digit += 2) {
                record.push_back(hex2int(line[digit], line[digit + 1]));
            }
            const int id = std::stoi(line.substr(2), nullptr, 16);
            engine_double::setRecord(static_cast<unsigned short>(id), record.data(), record.size());
        } else if (line[0] == '!') {
            engine_double::failOn("RXE_getParam", -1);
            engine_double::failOn("RXE_setParam2", -1);
        } else {
            const std::string reply = ask(line.substr(2));
            std::string seen = std::regex_replace(writes() + reply, std::regex(" \n"), "\u00b7\n");
            seen = seen.ends_with('\n') ? seen.substr(0, seen.size() - 1) + "\u21b5\n" : seen + "\n";
            std::string expected;
            while (i + 1 < lines.size() && std::string(":!>").find(lines[i + 1][0]) == std::string::npos) {
                expected += lines[++i] + "\n";
            }
            EXPECT_EQ(seen, expected);
        }
    }
    engine_double::setRecord(static_cast<unsigned>(std::stoi(id, nullptr, 16)), record.data(), record.size());
}

TEST(ConfigRXE, AnswersAndTellsTheEngineAsTheExchangesShow) {
    readerFacts.rxe_max_tx_pwr_x_10 = 315;
    std::istringstream file(readTextFile(TARNWICK_SOURCE_DIR "/tests/unit/configrxe.txt"));
    std::vector<std::vector<std::string>> blocks;  // the first line of each names the models
    for (std::string line; std::getline(file, line);) {
        if (line.starts_with("@ ")) {
            blocks.push_back({line.substr(2)});
        } else if (!line.empty() && line[0] != '#') {
            blocks.at(blocks.size() - 1).push_back(line);
        }
    }
    EXPECT_EQ(blocks.size(), 7U);
    for (const std::vector<std::string>& block : blocks) {
        for (const std::string& model : tokenizeRequestByWhitespace(&block[0])) {
            play(model, {block.begin() + 1, block.end()});
        }
    }
}

// What a mode has told the engine is what the next mode goes by.
TEST(ConfigRXE, SharesNoMemoryWithTheMode) {
    ASSERT_EQ(getInitialChannels(), RXE_OK);
    initial_channel_state = true;
    EXPECT_EQ(setCustomFields(0x3C01), RXE_OK);
    ask("channel 3 frequency=920000 max_pwr=30");
    EXPECT_TRUE(initial_channel_state && getChannelForChannelIdx(2) == 904000);
    for (int i = 0; i < 2; ++i) {
        writes();
        ask("taginfofields epc pc");
        EXPECT_EQ(writes(), "[0009 0104] ");
    }
    EXPECT_EQ(setCustomFields(0x3C01), RXE_OK);
    EXPECT_EQ(writes(), "");
}

// The conversion's own exception passes, for too many digits another one.
TEST(ConfigRXE, MalformedNumbersOfSomeSectionsThrow) {
    for (const char* request : {"cableLoss 1 ", "aarHeight ", "tagHeight ", "staticVDynamic ",
                                "txDelayInterval type=noReads duration="}) {
        EXPECT_THROW(ask(request + std::string("x")), std::invalid_argument) << request;
        EXPECT_THROW(ask(request + std::string(40, '9')), std::out_of_range) << request;
    }
}

}  // namespace
