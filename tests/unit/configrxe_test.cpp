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

// "holds <id>": the parameter is `digits`, two for each byte.
void hold(const std::string& id, const std::string& digits) {
    std::vector<std::uint8_t> record;
    for (std::size_t i = 0; i < digits.size(); i += 2) {
        record.push_back(hex2int(digits[i], digits[i + 1]));
    }
    engine_double::setRecord(static_cast<unsigned>(std::stoi(id, nullptr, 16)), record.data(), record.size());
}

TEST(ConfigRXE, AnswersAndTellsTheEngineAsTheExchangesShow) {
    readerFacts.rxe_max_tx_pwr_x_10 = 315;
    for (const table_section_s& section : readTable("unit/configrxe.txt")) {
        const std::vector<std::string> words = tokenizeRequestByWhitespace(&section.heading);
        const bool isFailing = words.back() == "failing";
        for (const std::string& model : std::vector(words.begin(), words.end() - (isFailing ? 1 : 0))) {
            setModelName(model);
            engine_double::reset();
            if (isFailing) {
                engine_double::failOn("RXE_getParam", -1);
                engine_double::failOn("RXE_setParam2", -1);
            }
            for (const auto& [request, expected] : section.rows) {
                SCOPED_TRACE(section.heading + ": " + request);
                if (request.starts_with("holds ")) {
                    hold(request.substr(6), expected);
                } else {
                    const std::string reply = ask(request);
                    EXPECT_EQ(writes() + reply, expected) << model;
                }
            }
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
