// SPDX-License-Identifier: MIT
// Tag packets in, bytes on tag_data and lines on gpio_led out.
#include <algorithm>
#include <bit>
#include <nlohmann/json.hpp>

#include "apply/apply.hpp"
#include "filter_expression.hpp"
#include "mode/beams.hpp"
#include "radio_fixture.hpp"
#include "tw_msg.pb.h"
#include "util.hpp"

namespace {

using nlohmann::json;

// 0614141.812345.6789 as an SGTIN-96 (GS1 EPC Tag Data Standard, E.3).
constexpr std::string_view sgtin("\x30\x74\x25\x7B\xF7\x19\x4E\x40\x00\x00\x1A\x85", 12);

class TagReport : public RadioTest {
  protected:
    TagReport() {
        setenv("TZ", "UTC", 1);
        deliver(RXE_PACKET_ANTENNA_INFO, std::string("\x00\x01\x00\x02", 4));           // olio 1, antenna 2
        deliver(RXE_PACKET_CW_ON, std::string("\x00\x00\x00\x00\x00\x0D\xC6\x5E", 8));  // 902750 kHz
    }

    // A tag with every field of the packet.
    static TAG_INFO_s fullTag() {
        TAG_INFO_s tag = tagWithEpc(sgtin);
        tag.fields = 0xFFFFFFFF;
        tag.azimuth = 3599;
        tag.elevation = 40000;
        tag.azimuthConf = 255;
        tag.elevationConf = 7;
        tag.locationX = -15;
        tag.locationY = 32767;
        tag.locConf = 200;
        tag.pc = 0x31AB;
        tag.xpc1 = 0x00C1;
        tag.xpc2 = 0xFFFE;
        tag.crc = 0x0A0B;
        tag.rssi = -61;
        tag.phase = 1.5F;
        tag.tagCount = 65535;
        tag.brandIdMatched = 2;
        tag.rssiLin = std::bit_cast<std::uint32_t>(0.25F);
        return tag;
    }

    static void switchAllOn() {
        mode_configuration_s& mode = mode_configuration;
        mode.reportChannel = mode.reportAntenna = mode.reportPC = mode.reportXPC = mode.reportCRC = true;
        mode.reportMAC = mode.reportHostName = mode.decodeTagUri = mode.decodeEpcUri = true;
        mode.userDefined = "d\xC3\xA9p\xC3\xB4t \"1\"\n";
        mode.antennaPortNames = {"front", "back"};
    }

    // Delivers a tag at a fixed time of day: 2023-11-14T22:13:20.987654 UTC.
    static void read(const TAG_INFO_s& tag) {
        constexpr std::uint16_t size = offsetof(TAG_INFO_s, reserved314);
        const RXE_packet_s head{.type = RXE_PACKET_TAG_INFO_CUSTOM, .length = size};
        std::string packet(reinterpret_cast<const char*>(&head), sizeof head);
        packet.append(reinterpret_cast<const char*>(&tag), size);
        publishReportPlan(mode_configuration, toldAccesses);
        takeReportPlan();
        void* const aligned = packet.data();  // too long to be inside the string itself
        process_tag_info_packet(static_cast<RXE_packet_s*>(aligned), {1700000000, 987654});
    }

    std::string onlyFrame() const {
        const std::vector<message_t> messages = received(data);
        return messages.size() == 1 && messages[0].size() == 1 ? messages[0][0] : "not one frame";
    }

    // The only binary report as text, behind its header in hex.
    std::string binary() const {
        const std::string frame = onlyFrame();
        velmo::tag_data_report report;
        EXPECT_TRUE(report.ParseFromString(frame.substr(4)));
        EXPECT_EQ(report.SerializeAsString(), frame.substr(4));
        std::string text;
        appendHex(reinterpret_cast<const std::uint8_t*>(frame.data()), 4, &text);
        return text + " " + report.ShortDebugString();
    }
};

TEST_F(TagReport, JsonWithEveryMember) {
    switchAllOn();
    read(fullTag());
    EXPECT_EQ(onlyFrame(),
              R"({"data":{"CRC":"0a0b","MAC":"","PC":"31ab","XPC1":"00c1","XPC2":"fffe","antenna":2,)"
              R"("antennaPortName":"back","azimuth":359.9,"azimuthConf":255,"channel":902.75,)"
              R"("elevation":4000.0,"elevationConf":7,"epcUri":"urn:epc:id:sgtin:0614141.812345.6789",)"
              R"("eventNum":0,"format":"uii","hostName":"","idHex":"3074257bf7194e4000001a85",)"
              R"("locConf":200,"peakRssi":-61,"phase":1.5,"reads":65535,)"
              R"("tagUri":"urn:epc:tag:sgtin-96:3.0614141.812345.6789",)"
              "\"userDefined\":\"d\xC3\xA9p\xC3\xB4t \\\"1\\\"\\n\","
              R"("x":-1.5,"y":3276.7},"timestamp":"2023-11-14T22:13:20.987+0000","type":"SIMPLE"})");
    EXPECT_EQ(received(lines), (std::vector<message_t>{{"TAG_READ,2023-11-14T22:13:20.987+0000"}}));
    EXPECT_EQ(radio::msgTxCount, 1U);
}

// Values are written in place while the members stay the same, and no member of
// another report may show up when they do not. What the packet lacks is absent
// whatever the switches say, and the second extended word needs the first.
TEST_F(TagReport, JsonReportsOfChangingShape) {
    const TAG_INFO_s full = fullTag();
    TAG_INFO_s second{};
    second.fields = RXE_FIELD_XPC2;
    std::uint64_t number = 0;
    for (const bool switches : {false, true, false}) {
        mode_configuration = {};
        mode_configuration.modeType = MODE_TYPE_e::PORTAL_DIRECTIONALITY;
        if (switches) {
            switchAllOn();
        }
        for (const bool isFull : {true, true, false}) {
            read(isFull ? full : second);
            const std::string text = onlyFrame();
            const json report = json::parse(text);
            EXPECT_EQ(text, report.dump()) << "as the library writes it afresh";
            const unsigned ofSwitches = !switches ? 0 : isFull ? 12 : 8;
            EXPECT_EQ(report["data"].size(), 2 + ofSwitches + (isFull ? 11 : 0)) << text;
            EXPECT_EQ(report["type"], "PORTAL_DIRECTIONALITY");
            EXPECT_EQ(report["data"]["eventNum"], number++);
            if (switches && !isFull) {
                EXPECT_NE(text.find(R"("tagUri":"failed to decode error )"), text.npos);
            }
        }
    }
}

// Nothing may throw into the engine's callback.
TEST_F(TagReport, TextThatIsNoUtf8DropsTheReport) {
    for (const char* text : {"\xC3", "fine"}) {
        const bool leaves = *text == 'f';
        mode_configuration.userDefined = text;
        read(fullTag());
        EXPECT_EQ(received(data).size(), leaves ? 1U : 0U);
        EXPECT_TRUE(leaves || received(news).at(0).at(1).starts_with("Tag report dropped: "));
        deliver(RXE_PACKET_INV_BEGIN);
        EXPECT_TRUE(received(data).empty()) << "nothing stays pending";
    }
}

TEST_F(TagReport, BinaryReports) {
    radio::data_analytics_type = DATA_ANALYTICS_BINARY;
    sockets::tag_data.outside = true;
    switchAllOn();
    read(fullTag());
    EXPECT_EQ(
        binary(),
        R"(01000100 tag_id: "0t%{\367\031N@\000\000\032\205" timestamp_millis: 1700000000987 )"
        R"(pc: "1\253" crc: "\n\013" xpc: "\000\301\377\376" rssi_float: 0.25 rssi_int: -61 phase: 1.5 )"
        R"(antenna: 2 channel: 902750 tag_count: 65535 azimuthx10: 3599 elevationx10: 40000 )"
        R"(azimuth_confidence: 255 elevation_confidence: 7 xx10: -15 yx10: 32767 )"
        R"(location_confidence: 200 brand_id: true mac: "" host_name: "" antenna_port_name: "back" )"
        R"(user_defined: "d\303\251p\303\264t \"1\"\n" event_num: 0)");

    // The same object again: what this tag lacks must not stay from the one before.
    // A partial last byte counts, and here the second extended word brings the first.
    mode_configuration = {};
    mode_configuration.reportXPC = true;
    TAG_INFO_s partial = tagWithEpc("5");
    partial.fields |= RXE_FIELD_XPC2;
    partial.epcLength = 12;
    partial.xpc2 = 0x0102;
    read(partial);
    EXPECT_EQ(binary(), R"(00000100 tag_id: "5\000" timestamp_millis: 1700000000987 )"
                        R"(xpc: "\000\000\001\002" event_num: 1)");

    mode_configuration.modeType = MODE_TYPE_e::BEARING;
    TAG_INFO_s bearing = fullTag();
    bearing.fields = 0;
    read(bearing);
    EXPECT_EQ(binary(),
              R"(00000200 tag_id: "0t%{\367\031N@\000\000\032\205" timestamp_millis: 1700000000987 )"
              R"(pc: "\2531" rssi_int: -61 antenna: 2 azimuthx10: 3599 elevationx10: 40000 )"
              R"(azimuth_confidence: 255 elevation_confidence: 7)");
    EXPECT_TRUE(received(lines).empty());
    EXPECT_EQ(radio::msgTxCount, 0U);
}

// The EPC is "0t%{": 3074257b. A pattern is bytes or the expression, an empty one was
// never compiled; then whether INCLUDE passes.
TEST_F(TagReport, Filter) {
    using enum filter_match_e;
    const std::tuple<filter_match_e, std::string_view, bool> cases[] = {
        {PREFIX, "0t", true},  {PREFIX, "0t%{x", false},  {PREFIX, "", true},     {SUFFIX, "%{", true},
        {SUFFIX, "t%", false}, {REGEX, "3074.*7b", true}, {REGEX, "3074", false}, {REGEX, "", false},
    };
    for (const auto& [match, pattern, includePasses] : cases) {
        for (const bool include : {true, false}) {
            tagFilter_s& filter = mode_configuration.tagFilter = {};
            filter.enabled = 1;
            filter.match = match;
            filter.operation = include ? filter_operation_e::INCLUDE : filter_operation_e::EXCLUDE;
            filter.patternLength = static_cast<std::uint8_t>(pattern.size());
            std::ranges::copy(pattern, filter.pattern.begin());
            if (match == REGEX && !pattern.empty()) {
                EXPECT_TRUE(compileFilterExpression({pattern.begin(), pattern.end()}, &filter.regex));
            }
            read(tagWithEpc("0t%{"));
            const std::size_t expected = includePasses == include ? 1 : 0;
            EXPECT_EQ(received(data).size(), expected) << pattern << include;
            EXPECT_EQ(received(lines).size(), expected);
        }
    }
    EXPECT_EQ(compareTagFilter(reinterpret_cast<const std::uint8_t*>("0t%{"), 4, nullptr), 0);
}

// The parts of an item go to one subscriber, whatever the CRC of each; other
// bits, and other lengths of the EPC, do not.
TEST_F(TagReport, SubscriberOfMultiPartItems) {
    radio::data_analytics_type = DATA_ANALYTICS_STRING;
    sockets::tag_data.outside = true;
    radio::subscribers = 1024;
    const auto subscriberOf = [this](const TAG_INFO_s& tag) { return read(tag), onlyFrame().substr(0, 2); };
    // The first byte, the place of the one that tells the parts apart, its bits that do not count.
    const std::tuple<std::uint8_t, std::size_t, std::uint8_t> cases[] = {
        {0x35, 7, 0xF0}, {0x34, 8, 0x0F}, {0x30, 3, 0x0F}};
    for (const auto& [first, byte, hidden] : cases) {
        TAG_INFO_s part = fullTag();
        part.epc[0] = first;
        const std::string whole = subscriberOf(part);
        part.crc = 2;
        part.epc[byte] ^= hidden;
        EXPECT_EQ(subscriberOf(part), whole) << byte;
        part.epc[byte] ^= static_cast<std::uint8_t>(~hidden);
        EXPECT_NE(subscriberOf(part), whole) << byte;
        part.epcLength = 95;
        EXPECT_EQ(subscriberOf(part), std::string("\x03\x00", 2)) << "the tag's own CRC";
    }
}

TEST_F(TagReport, HeatMapCompletesTheReport) {
    mode_configuration.reportHeatmap = true;
    PARALLEL_RSSI_s levels{};
    levels.count = 2;
    levels.beam[0] = 5897;  // LHCP boresight
    levels.beam[1] = 425;   // a beam without polarization
    levels.rssi[0] = -50.5F;
    levels.rssi[1] = -61.25F;
    const std::string map = R"({"data":{"HEATMAP":[{"az":0,"el":0,"pol":"LHCP","rssi":-50.5},{"az":)" +
                            json(beam_to_az(425)).dump() + R"(,"el":)" + json(beam_to_el(425)).dump() +
                            R"(,"pol":"UNDEFINED","rssi":-61.25}])";
    deliver(RXE_PACKET_PARALLEL_RSSI_DEBUG, &levels, sizeof levels);
    EXPECT_EQ(onlyFrame(), map + "}}") << "nothing pending: the map alone";
    for (int i = 0; i < 2; ++i) {
        read(tagWithEpc("\x01"));
        EXPECT_TRUE(received(data).empty());
        deliver(RXE_PACKET_PARALLEL_RSSI_DEBUG, &levels, sizeof levels);
        EXPECT_EQ(onlyFrame().rfind(map + R"(,"eventNum":)" + std::to_string(i), 0), 0U);
        deliver(RXE_PACKET_PARALLEL_RSSI_DEBUG, std::string(4, '\0'));
        EXPECT_EQ(onlyFrame(), R"({"data":{"HEATMAP":null}})");
    }
    levels.count = 4000000000;  // more than the record holds
    deliver(RXE_PACKET_PARALLEL_RSSI_DEBUG, &levels, sizeof levels);
    EXPECT_EQ(json::parse(onlyFrame())["data"]["HEATMAP"].size(), 160U);
}

// A map that cannot be read still sends what there is; a tag that cannot is told.
TEST_F(TagReport, UndecodablePackets) {
    read(fullTag());
    received(data);
    engine_double::failOn("RXE_formatPayloadToStruct", -1, 9);
    deliver(RXE_PACKET_PARALLEL_RSSI_DEBUG, "x");
    EXPECT_EQ(onlyFrame(), "{}");
    read(fullTag());
    EXPECT_EQ(received(news), (std::vector<message_t>{{"error", "Error parsing tag info packet"}}));
    EXPECT_TRUE(received(data).empty());
}

}  // namespace
