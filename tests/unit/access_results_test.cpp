// SPDX-License-Identifier: MIT
// A tag packet and the outcomes of its accesses in, one report out.
#include <map>
#include <nlohmann/json.hpp>

#include "additional_config.hpp"
#include "apply/apply.hpp"
#include "radio_fixture.hpp"

namespace {

using nlohmann::json;

// Type, bank, pointer and words of reads of TID, EPC (the high byte is none of its words)
// and USER; write, kill, lock, access; blocks of 2 words; several words; an erase; and a
// lock in another olio.
const std::map<char, std::tuple<std::uint8_t, std::uint8_t, std::uint16_t, std::uint16_t>> accessLetters{
    {'t', {1, 2, 0, 0}},  {'e', {1, 1, 2, 0x0202}}, {'u', {1, 3, 4, 1}}, {'w', {2, 0, 0, 0}},
    {'k', {3, 0, 0, 0}},  {'l', {4, 0, 0, 0}},      {'a', {5, 0, 0, 0}}, {'b', {6, 3, 0, 8}},
    {'m', {11, 3, 0, 3}}, {'x', {7, 0, 0, 0}},      {'-', {4, 0, 0, 0}}};

struct packet_s {
    std::uint8_t id;
    std::uint8_t result = RXE_ACCESS_RESULT_OK;
    std::string data = {};
};

const std::string none = "not one report";
const std::string rest = "Not Attempted|";
const std::string silence = "Tag did not respond|";
const std::string code = "tag returned error code";
const std::string parts = " successful words written: ";
const std::string mismatch = "Error: received number of words did not match expected number of words|";

// A legend; letters of accesses, ids from 1, of reads as metadata behind '='; the packets
// after the tag packet; with which of them, from 1, the report leaves, or 0 with the next
// inventory; its results, or keys and values of memory, each with its '|'.
const std::tuple<const char*, std::string, std::vector<packet_s>, std::size_t, std::string> cases[] = {
    {"all", "wekla", {{1}, {2, 0, "abcd"}, {3}, {4}, {5}}, 5, "SUCCESS|61626364|SUCCESS|SUCCESS|SUCCESS|"},
    {"second fails", "lll", {{1}, {2, 2}, {3}}, 2, "SUCCESS|Error: " + silence + "Not Attempted|"},
    {"cut off by an inventory", "lll", {{1}}, 0, "SUCCESS|Not Attempted|Not Attempted|"},
    {"one runs elsewhere", "l-l", {{1}, {3}}, 2, "SUCCESS|SUCCESS|"},
    {"id without access", "l", {{2}}, 1, "Not Attempted|"},
    {"id past the table", "ll", {{1}, {255}}, 2, "SUCCESS|Not Attempted|"},
    {"id 64", std::string(63, '-') + "x", {{64}}, 1, ""},
    {"words do not match", "el", {{1, 0, "123456"}}, 1, mismatch + "Not Attempted|"},
    {"reply without code", "l", {{1, 1, "\x03"}}, 1, "Error: " + code + "|"},
    {"code 9", "l", {{1, 1, "?\x09"}}, 1, "Error: " + code + " 0x09 = Unknown error|"},
    {"part", "m", {{1}, {1, 1, "?\x0F"}}, 2, "Error after 1" + parts + code + " 0x0f = Non-specific error|"},
    {"not handled", "x", {{1}, {1, 3, "ab"}}, 2, "Error: CRC error in tag response|"},
    {"general", "l", {{1, 4}}, 1, "Error: General Error  0x04|"},
    {"blocks", "b", {{1}, {1}, {1}, {1}}, 4, "SUCCESS|"},
    {"next id", "mb", {{1}, {1}, {1}, {2}, {2}, {2, 2}}, 6, "SUCCESS|Error after 2" + parts + silence},
    {"same id again", "ml", {{1}, {1}, {1}, {1, 2}}, 4, "SUCCESS|Error after 0" + parts + silence},
    {"all", "=teu", {{1, 0, "1"}, {2, 0, "2345"}, {3, 0, "67"}}, 3, "EPC[2-3]=32333435|TID=31|USER[4]=3637|"},
    {"code 4", "=tu", {{1, 1, "?\x04"}}, 1, "TID=Error: " + code + " 0x04 = Memory locked|USER[4]=" + rest},
    {"words do not match", "=e", {{1, 0, "12"}}, 1, "EPC[2-3]=" + mismatch},
    {"cut off by an inventory", "=tu", {{1, 0, "12"}}, 0, "TID=3132|USER[4]=Not Attempted|"},
    {"not a read", "=l", {{1, 2}}, 1, "=Error: " + silence + "RESERVED=Not Attempted|"},
};

class AccessResults : public RadioTest {
  protected:
    AccessResults() { deliver(RXE_PACKET_ANTENNA_INFO, std::string("\x00\x05\x00\x01", 4)); }  // olio 5

    static void configure(std::string accesses) {
        const bool asMetadata = accesses[0] == '=';
        accesses.erase(0, asMetadata ? 1 : 0);
        mode_configuration.readMemory.assign(4, std::vector<memory_Access_s>(asMetadata ? 1 : 0));
        mode_configuration.uniqueAccesses.resize(asMetadata ? 0 : accesses.size());
        mode_configuration.blockSize = 2;
        toldAccesses.enabledAccessOps = {};
        toldAccesses.enabledAccessOpsPerOlio = {};
        toldAccesses.accessParamsEnabledCount = static_cast<std::uint32_t>(accesses.size());
        for (std::size_t i = 0; i < accesses.size(); ++i) {
            const auto& [type, bank, pointer, words] = accessLetters.at(accesses[i]);
            toldAccesses.enabledAccessOps[i + 1] = {1, type, {}, {{bank, 0, pointer}}, words, {}, 0, 0, 0};
            toldAccesses.enabledAccessOpsPerOlio[5] |= std::uint64_t{accesses[i] != '-'} << i;
        }
    }

    using RadioTest::deliver;
    static void deliver(const packet_s& packet) {
        ACCESS_INFO_s info{packet.id, packet.result, {}, static_cast<std::uint32_t>(packet.data.size()), {}};
        packet.data.copy(reinterpret_cast<char*>(info.data), sizeof info.data);
        deliver(RXE_PACKET_ACCESS_INFO, &info, offsetof(ACCESS_INFO_s, data) + packet.data.size());
    }

    // What joined the tag in the one report that has left.
    std::string joined() const {
        const std::vector<message_t> messages = received(data);
        if (messages.size() != 1) {
            return none;
        }
        std::string text;
        const json report = json::parse(messages[0].at(0));
        for (const auto& [key, value] : report.at("data").items()) {
            for (const json& result : value.is_array() ? value : json::array()) {
                text += result.get<std::string>() + '|';
            }
            text += value.is_string() && key != "idHex" ? key + '=' + value.get<std::string>() + '|' : "";
        }
        return text;
    }
};

// The rows follow each other in one process: nothing of a report may reach the next.
TEST_F(AccessResults, Sequences) {
    for (const auto& [legend, accesses, packets, leavesAt, expected] : cases) {
        SCOPED_TRACE(legend + accesses);
        configure(accesses);
        deliver(tagWithEpc("\x30\x31"));
        for (std::size_t i = 1; i <= packets.size(); ++i) {
            deliver(packets[i - 1]);
            EXPECT_EQ(joined(), i == leavesAt ? expected : none) << "packet " << i;
        }
        deliver(RXE_PACKET_INV_BEGIN);
        EXPECT_EQ(joined(), leavesAt == 0 ? expected : none);
    }
}

TEST_F(AccessResults, NameTheTagsError) {
    const std::map<char, std::string> texts{
        {0, "Other Error"},      {1, "Not Supported"},           {2, "Insufficient privileges"},
        {3, "Memory overrun"},   {5, "Crypto suite error"},      {6, "Command not encapsulated"},
        {8, "Security timeout"}, {7, "ResponseBuffer overflow"}, {11, "Insufficient power"},
        {16, "Unknown error"},
    };
    configure("l");
    for (const auto& [number, text] : texts) {
        deliver(tagWithEpc("\x30"));
        deliver(packet_s{1, 1, std::string("?") + number});
        EXPECT_TRUE(joined().ends_with(" = " + text + "|")) << text;
    }
}

TEST_F(AccessResults, PacketsThatDoNotFit) {
    configure("t");
    deliver(tagWithEpc("\x30"));
    deliver(RXE_PACKET_ACCESS_INFO, std::string("\x01\x00\x00\x00\xFF\xFF\xFF\xFF", 8));  // too much data
    EXPECT_EQ(joined().size(), 2 * sizeof(ACCESS_INFO_s::data) + 1);
    deliver(RXE_PACKET_ANTENNA_INFO, std::string("\xFF\xFF\x00\x01", 4));  // an olio past the table
    deliver(tagWithEpc("\x30"));
    engine_double::failOn("RXE_formatPayloadToStruct", -1, 9);
    deliver(packet_s{1});
    EXPECT_EQ(joined(), "") << "what cannot be decoded ends the report";
}

// The filter drops the second tag; its outcomes must not start a report.
TEST_F(AccessResults, OfTagThatTheFilterDropped) {
    configure("ll");
    deliver(tagWithEpc("\x30"));
    deliver(packet_s{1});
    mode_configuration.tagFilter.enabled = 1;
    mode_configuration.tagFilter.patternLength = 64;
    deliver(tagWithEpc("\x31"));
    EXPECT_EQ(joined(), "SUCCESS|Not Attempted|");
    deliver(packet_s{1});
    deliver(RXE_PACKET_INV_BEGIN);
    EXPECT_TRUE(received(data).empty());
}

// Two tags of one EPC are told apart by their TID. A repeat waits until its quiet
// time is over and leaves with whatever completes it then.
TEST_F(AccessResults, RepeatsOfOneTidAreHeldBack) {
    configure("=t");
    mode_configuration.reportPC = mode_configuration.reportCRC = true;
    TAG_INFO_s tag = tagWithEpc("\x30");
    tag.fields |= RXE_FIELD_PC | RXE_FIELD_CRC;
    const auto reported = [&](const char* tid) {
        deliver(tag);
        deliver(packet_s{1, 0, tid});
        return joined();
    };
    const auto with = [](const std::string& tid) { return "CRC=0000|PC=0000|TID=" + tid + "|format=epc|"; };
    ASSERT_EQ(setAddlKeysFilterConfig(false, 1000, maxAddlKeysDBSize), 0);
    EXPECT_EQ(reported("A"), with("41"));
    EXPECT_EQ(reported("B"), with("42"));
    EXPECT_EQ(reported("A"), none);
    deliver(RXE_PACKET_INV_BEGIN);
    EXPECT_EQ(joined(), none) << "asked again, and still held back";
    ASSERT_EQ(setAddlKeysFilterConfig(false, 0, maxAddlKeysDBSize), 0);
    deliver(RXE_PACKET_INV_BEGIN);
    EXPECT_EQ(joined(), with("41"));
    EXPECT_EQ(reported("C"), with("43")) << "memory reads count anew";
}

}  // namespace
