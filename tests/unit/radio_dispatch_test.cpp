// SPDX-License-Identifier: MIT
#include <nlohmann/json.hpp>
#include <numeric>
#include <regex>
#include <sstream>

#include "radio_fixture.hpp"

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

    // The "data" of the one report that has left, as text.
    std::string dataOf() const {
        const std::vector<message_t> messages = received(data);
        return messages.size() == 1 ? json::parse(messages[0].at(0))["data"].dump() : "not one";
    }
};

// Steps: a number is a message of so many bytes, "i" and a number an immediate one,
// "13x" 13 messages of one byte, "t" a tick, "f" a flush, "s" the radio's start and "e"
// its stop as lines.
void run(const char* steps) {
    std::istringstream words(steps);
    for (std::string word; words >> word;) {
        if (word == "t") {
            do_background_activity_radio_thread();
        } else if (word == "f") {
            flush_zmq_sockets();
        } else if (word == "s") {
            send_radio_start_message();
        } else if (word == "e") {
            send_radio_stop_message();
        } else if (word[0] == 'i') {
            send_tag_data_message(std::string(std::stoul(word.substr(1)), 'm'), true, false);
        } else {
            const bool many = word.back() == 'x';
            const unsigned long number = std::stoul(word);
            for (unsigned long i = 0; i < (many ? number : 1); ++i) {
                const std::string message(many ? 1 : number, 'm');
                send_gpio_led_message(message);
                send_tag_data_message(message, false, false);
            }
        }
    }
}

std::string bytes(std::initializer_list<int> values) {
    return {values.begin(), values.end()};
}

// Type and payload of a packet, topic and payload of the news; a null topic for none.
// Records are whole whatever the packet's length; types that begin otherwise, end
// early or are not handled are silent. A number is a type as a radio sends it.
const std::tuple<std::uint16_t, std::string, const char*, std::string> newsCases[] = {
    {0x0801, bytes({8, 9, 1}), "start_ack", ""},
    {RXE_PACKET_END_OF_RUN, bytes({8, 8}), nullptr, ""},
    {0x0810, "ERRLOG x", "err_log", "ERRLOG x"},
    {RXE_PACKET_ERROR_LOG, "ERRLOX x", nullptr, ""},
    {RXE_PACKET_ANT_DISCONNECT_ALARM, bytes({1, 2}), "ant_disconnect", bytes({1, 2})},
    {RXE_PACKET_ERROR_LOG, "ERRLO", nullptr, ""},
    {RXE_PACKET_INV_END, "x", nullptr, ""},
    {RXE_PACKET_START_INFO3, "x", "start_info", "x" + std::string(15, '\0')},
    {RXE_PACKET_DB_WARNING, "", "db_warning", std::string(8, '\0')},
    {RXE_PACKET_AMB_TEMP_LO_ALARM, bytes({1}), nullptr, ""},
    {RXE_PACKET_FWD_PWR_LO_ALARM, bytes({4}), "pa_failure", bytes({4})},
    {RXE_PACKET_DB_ERROR, "x", "db_error", ""},
    {RXE_PACKET_AMB_TEMP_CRIT_ALARM, "", "amb_temp_crit", ""}};

TEST_F(RadioDispatch, NewsForTheMainThread) {
    std::uint64_t packets = radio::packetRxCount;
    for (const auto& [type, payload, topic, expected] : newsCases) {
        SCOPED_TRACE(testing::Message() << std::hex << type << payload);
        deliver(type, payload);
        const std::vector<message_t> told = received(news);
        EXPECT_EQ(told.size(), topic == nullptr ? 0U : 1U);
        EXPECT_TRUE(told.empty() || told[0] == (message_t{topic, expected}));
        EXPECT_TRUE(received(data).empty());
        EXPECT_EQ(radio::packetRxCount, ++packets);
    }
}

TEST_F(RadioDispatch, EndOfRunFlushesAndTellsTheStop) {
    run("13x t");
    received(data);
    received(lines);
    send_tag_data_message("open", false, false);
    deliver(RXE_PACKET_GPIO_INFO, bytes({2}));  // too short to be read
    deliver(RXE_PACKET_GPIO_INFO, bytes({2, 7}));
    deliver(RXE_PACKET_GPIO_INFO, bytes({255, 0}));
    deliver(RXE_PACKET_END_OF_RUN, bytes({8, 9}));
    EXPECT_EQ(received(data), (std::vector<message_t>{{"open", ""}}));
    std::string told;
    for (const message_t& message : received(lines)) {
        told = std::accumulate(message.begin(), message.end(), told);
    }
    const std::string time = "[0-9]{4}(-[0-9]{2}){2}T[0-9]{2}(:[0-9]{2}){2}\\.[0-9]{3}[+-][0-9]{4}";
    const std::regex expected("GPI_2_H," + time + "GPI_255_L," + time + "RADIO_STOP," + time);
    EXPECT_TRUE(std::regex_match(told, expected)) << told;
}

// The next tag, an end of run, a carrier, whatever its packet holds, and an
// inventory complete it.
const std::tuple<std::uint16_t, std::string, bool> completingCases[] = {
    {RXE_PACKET_TAG_INFO_SHORT, "", true},
    {RXE_PACKET_START_INFO3, "", true},
    {RXE_PACKET_CW_ON, std::string(8, '\0'), true},
    {RXE_PACKET_CW_ON, std::string(7, '\0'), true},
    {RXE_PACKET_INV_BEGIN, "", true},
    {RXE_PACKET_CMD_ONGOING, "", false},
    {RXE_PACKET_ANTENNA_INFO, std::string(4, '\0'), false},
    {RXE_PACKET_ANT_DISCONNECT_ALARM, bytes({0, 1}), false},
};

TEST_F(RadioDispatch, PendingReportIsCompletedOnce) {
    for (const auto& [type, payload, completes] : completingCases) {
        SCOPED_TRACE(testing::Message() << std::hex << type);
        leavePendingReport();
        deliver(type, payload);
        EXPECT_EQ(received(data).size(), completes ? 1U : 0U);
        deliver(RXE_PACKET_INV_BEGIN);  // completes what is left
        deliver(RXE_PACKET_INV_BEGIN);
        EXPECT_EQ(received(data).size(), completes && type != RXE_PACKET_TAG_INFO_SHORT ? 0U : 1U);
    }
}

TEST_F(RadioDispatch, ReportKeepsWhereItsTagWasSeen) {
    deliver(RXE_PACKET_ANTENNA_INFO, bytes({0, 9, 0x01, 0x02}));
    deliver(RXE_PACKET_ANTENNA_INFO, bytes({0, 9, 3}));  // too short: changes nothing
    deliver(RXE_PACKET_CW_ON, bytes({0, 0, 0, 0, 0x00, 0x0D, 0xC6, 0x5E}));
    leavePendingReport();
    deliver(RXE_PACKET_CW_ON, bytes({0, 0, 0, 0, 0, 0, 0, 1}));
    EXPECT_TRUE(dataOf().starts_with(R"({"antenna":258,"channel":902.75,)"));
    leavePendingReport();
    deliver(RXE_PACKET_INV_BEGIN);
    EXPECT_TRUE(dataOf().starts_with(R"({"antenna":258,"channel":0.001,)"));
}

// Reads count as they come, also those that the filter drops or that cannot be decoded.
TEST_F(RadioDispatch, CountsReadsByAntenna) {
    mode_configuration.tagFilter.enabled = 1;
    mode_configuration.tagFilter.patternLength = 64;
    const std::tuple<const char*, int, std::uint16_t> reads[] = {
        {"PN8200", 13, 0x0805},    {"PN8200", 13, 0x0806},    {"PN8200", 0, 0x0807},
        {"PN8200", 14, 0x0808},    {"PN8200", 65535, 0x0808}, {"QDX4400", 13, 0x0805},
        {"QDX4400", 5897, 0x0805}, {"QDX4400", 5897, 0x0805}};
    for (const auto& [model, antenna, type] : reads) {
        setModelName(model);
        deliver(RXE_PACKET_ANTENNA_INFO, bytes({0, 0, antenna >> 8, antenna & 0xFF}));
        deliver(type, "x");
    }
    EXPECT_EQ(radio::tagReadCountPerAnt[0], 1U);
    EXPECT_EQ(radio::tagReadCountPerAnt[14], 0U);
    EXPECT_EQ(radio::tagReadCount, 8U);
    EXPECT_EQ(radio::tagReadCountPerAnt[13], 2U);
    EXPECT_EQ(getTagReadCountPerAntQDX(), (std::map<std::uint16_t, std::uint64_t>{{13, 1}, {5897, 2}}));
    EXPECT_EQ(radio::msgTxCount, 0U);
}

// What is sent: the sizes of a message's frames with "+" between them; the 13 are left
// out. The rate of a tick is the count since the tick before, doubled.
const std::tuple<const char*, const char*, const char*, const char*> cases[] = {
    // legend, steps, sockets::tag_data, gpio_led
    {"24 a second: single frames", "12x t 9 9 f", "9 9 ", "9 9 "},
    {"26 a second: one batch, ended by the flush", "13x t 9 8 f f", "9+8+0 ", "9+8+0 "},
    {"1500 bytes take one more frame", "13x t 1500 9 8 f", "1500+9+8 ", "1500+9+8 "},
    {"1501 bytes end with the next frame", "13x t 1501 9 f", "1501+9 ", "1501+9 "},
    {"a lower rate ends the batch; only sockets::tag_data has an empty message", "13x t 9 t 8 f", "9+8 0 ",
     "9+8 "},
    {"a start joins a batch, a stop ends it", "13x t 9 s 8 e 7 f", "9+8+7+0 ", "9+40+8+39+0 7+0 "},
    {"an immediate message closes the batch, stands alone", "13x t 9 i7 8 f", "9+0 7 8+0 ", "9+8+0 "},
};

std::string sent(void* socket) {
    std::string sizes;
    for (const message_t& message : received(socket)) {
        std::string frames;
        for (const std::string& frame : message) {
            frames += (frames.empty() ? "" : "+") + std::to_string(frame.size());
        }
        sizes += frames == "1" ? "" : frames + " ";
    }
    return sizes;
}

TEST_F(RadioTest, BatchByTheMeasuredRate) {
    for (const auto& [legend, steps, tagData, gpioLed] : cases) {
        SCOPED_TRACE(legend);
        run("t t f");
        received(data);
        received(lines);
        run(steps);
        EXPECT_EQ(sent(data), tagData);
        EXPECT_EQ(sent(lines), gpioLed);
    }
}

// Spread over two radio::subscribers each report leaves alone: a prefix tells nothing of further frames.
TEST_F(RadioTest, ReportsOfOneSubscriberAreBatched) {
    run("t t f 13x t");
    sockets::tag_data.outside = true;
    for (const int form : {DATA_ANALYTICS_STRING, DATA_ANALYTICS_BINARY}) {
        radio::data_analytics_type = form;
        for (const std::uint16_t count : {1, 2}) {
            radio::subscribers = count;
            received(data);
            for (int i = 0; i < 3; ++i) {
                deliver(tagWithEpc("\x30\x31"));
                deliver(RXE_PACKET_INV_BEGIN);
            }
            flush_zmq_sockets();
            EXPECT_EQ(received(data).size(), count == 1 ? 1U : 3U) << form;
        }
    }
}

// The engine thread cannot be woken to flush: it looks at its next status packet
// whether the radio thread has ticked since.
TEST_F(RadioTest, StatusPacketFlushesOnceForEachTick) {
    run("13x t");
    deliver(RXE_PACKET_CMD_ONGOING);
    run("9");
    deliver(RXE_PACKET_CMD_ONGOING);
    EXPECT_EQ(sent(data), "") << "no tick since the last look";
    run("t");
    deliver(RXE_PACKET_CMD_ONGOING);
    EXPECT_EQ(sent(data), "9+0 ");
}

}  // namespace
