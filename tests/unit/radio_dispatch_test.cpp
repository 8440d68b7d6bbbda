// SPDX-License-Identifier: MIT
#include <nlohmann/json.hpp>
#include <regex>
#include <tuple>

#include "mode_config.hpp"
#include "radio_fixture.hpp"
#include "rxe_intfc.hpp"

namespace {

using nlohmann::json;

class RadioDispatch : public RadioTest {
  protected:
    // Heat maps on: a report stays pending behind its tag packet.
    RadioDispatch() {
        mode_configuration.reportHeatmap = true;
        mode_configuration.reportAntenna = true;
        mode_configuration.reportChannel = true;
    }

    void leavePendingReport() {
        deliver(tagWithEpc("\x30\x31"));
        ASSERT_TRUE(received(data).empty());
    }

    // The one report that has left, or null.
    json report() const {
        const std::vector<message_t> messages = received(data);
        return messages.size() == 1 ? json::parse(messages[0].at(0)) : json();
    }
};

std::string bytes(std::initializer_list<int> values) {
    return {values.begin(), values.end()};
}

// Type and payload of a packet, topic and payload of the news; a null topic for none.
// Records are whole whatever the packet's length; types that begin otherwise, end
// early or are not handled are silent.
const std::tuple<std::uint16_t, std::string, const char*, std::string> newsCases[] = {
    {0x0801, bytes({8, 9, 1}), "start_ack", ""},
    {0x0801, bytes({8, 8}), nullptr, ""},
    {0x0810, "ERRLOG x", "err_log", "ERRLOG x"},
    {0x0810, "ERRLOX x", nullptr, ""},
    {0x0B81, bytes({1, 2}), "ant_disconnect", bytes({1, 2})},
    {0x0810, "ERRLO", nullptr, ""},
    {0x0B0A, "x", nullptr, ""},
    {0x0A91, "x", "start_info", "x" + std::string(15, '\0')},
    {0x0B8D, "", "db_warning", std::string(8, '\0')},
    {0x0B84, bytes({1}), nullptr, ""},
    {0x0B89, bytes({4}), "pa_failure", bytes({4})},
    {0x0B8E, "x", "db_error", ""},
    {0x0B83, "", "amb_temp_crit", ""}};

TEST_F(RadioDispatch, NewsForTheMainThread) {
    std::uint64_t packets = packetRxCount;
    for (const auto& [type, payload, topic, expected] : newsCases) {
        SCOPED_TRACE(testing::Message() << std::hex << type << payload);
        deliver(type, payload);
        const std::vector<message_t> told = received(news);
        EXPECT_EQ(told.size(), topic == nullptr ? 0U : 1U);
        EXPECT_TRUE(told.empty() || told[0] == (message_t{topic, expected}));
        EXPECT_TRUE(received(data).empty());
        EXPECT_EQ(packetRxCount, ++packets);
    }
}

TEST_F(RadioDispatch, EndOfRunFlushesAndTellsTheStop) {
    for (int i = 0; i < 13; ++i) {
        send_tag_data_message("x", false);
    }
    do_background_activity_radio_thread();
    received(data);
    send_tag_data_message("open", false);
    deliver(0x0B08, bytes({2}));  // too short to be read
    deliver(0x0B08, bytes({2, 7}));
    deliver(0x0B08, bytes({255, 0}));
    deliver(0x0801, bytes({8, 9}));
    EXPECT_EQ(received(data), (std::vector<message_t>{{"open", ""}}));
    std::string told;
    for (const message_t& line : received(lines)) {
        told += line.at(0);
    }
    const std::string time = "[0-9]{4}(-[0-9]{2}){2}T[0-9]{2}(:[0-9]{2}){2}\\.[0-9]{3}[+-][0-9]{4}";
    const std::regex expected("GPI_2_H," + time + "GPI_255_L," + time + "RADIO_STOP," + time);
    EXPECT_TRUE(std::regex_match(told, expected)) << told;
}

// The next tag, an end of run, a carrier, whatever its packet holds, and an
// inventory complete it.
const std::tuple<std::uint16_t, std::string, bool> completingCases[] = {
    {0x0806, "", true},
    {0x0A91, "", true},
    {0x0B04, std::string(8, '\0'), true},
    {0x0B04, std::string(7, '\0'), true},
    {0x0B09, "", true},
    {0x0B01, "", false},
    {0x0B03, std::string(4, '\0'), false},
    {0x0B81, bytes({0, 1}), false},
};

TEST_F(RadioDispatch, PendingReportIsCompletedOnce) {
    for (const auto& [type, payload, completes] : completingCases) {
        SCOPED_TRACE(testing::Message() << std::hex << type);
        leavePendingReport();
        deliver(type, payload);
        EXPECT_EQ(received(data).size(), completes ? 1U : 0U);
        deliver(0x0B09);  // completes what is left
        deliver(0x0B09);
        EXPECT_EQ(received(data).size(), completes && type != 0x0806 ? 0U : 1U);
    }
}

TEST_F(RadioDispatch, ReportKeepsWhereItsTagWasSeen) {
    deliver(0x0B03, bytes({0, 9, 0x01, 0x02}));
    deliver(0x0B03, bytes({0, 9, 3}));  // too short: changes nothing
    deliver(0x0B04, bytes({0, 0, 0, 0, 0x00, 0x0D, 0xC6, 0x5E}));
    leavePendingReport();
    deliver(0x0B04, bytes({0, 0, 0, 0, 0, 0, 0, 1}));
    json seen = report();
    EXPECT_EQ(seen["data"]["antenna"], 0x0102);
    EXPECT_EQ(seen["data"]["channel"].dump(), "902.75");
    leavePendingReport();
    deliver(0x0B09);
    EXPECT_EQ(report()["data"]["channel"].dump(), "0.001");
}

// Reads count as they come, also those that the filter drops or that cannot be decoded.
TEST_F(RadioDispatch, CountsReadsByAntenna) {
    mode_configuration.tagFilter.enabled = 1;
    mode_configuration.tagFilter.patternLength = 64;
    const auto readOn = [](int antenna, std::uint16_t type) {
        deliver(0x0B03, bytes({0, 0, antenna >> 8, antenna & 0xFF}));
        deliver(type, "x");
    };
    modelName = "PN8200";
    readOn(13, 0x0805);
    readOn(13, 0x0806);
    readOn(0, 0x0807);
    readOn(14, 0x0808);
    readOn(65535, 0x0808);
    EXPECT_EQ(tagReadCountPerAnt[0], 1U);
    EXPECT_EQ(tagReadCountPerAnt[14], 0U);
    modelName = "QDX4400";
    readOn(13, 0x0805);
    readOn(5897, 0x0805);
    readOn(5897, 0x0805);
    EXPECT_EQ(tagReadCount, 8U);
    EXPECT_EQ(tagReadCountPerAnt[13], 2U);
    EXPECT_EQ(getTagReadCountPerAntQDX(), (std::map<std::uint16_t, std::uint64_t>{{13, 1}, {5897, 2}}));
    EXPECT_EQ(msgTxCount, 0U);
}

}  // namespace
