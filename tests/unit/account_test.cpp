// SPDX-License-Identifier: MIT
// Each tag packet has one fate: the account counts it, and the trace of its EPC says what decided.
#include <gmock/gmock.h>

#include <nlohmann/json.hpp>
#include <numeric>
#include <thread>

#include "additional_config.hpp"
#include "radio_fixture.hpp"
#include "requests.hpp"

namespace {

using nlohmann::json;

// The JSON of a reply, or the whole reply as a text.
json ask(std::string request) {
    std::string reply;
    requests::ProcessRequest(&request, &reply);
    return reply.starts_with("Success: ") ? json::parse(reply.substr(9)) : json(reply);
}

class Account : public RadioTest {
  protected:
    Account() {
        mode_configuration.reportPC = mode_configuration.reportCRC = true;
        transmitOn(2);
    }
    static void transmitOn(char antenna) {
        deliver(RXE_PACKET_ANTENNA_INFO, std::string("\0\1\0", 3) + antenna);
    }

    static void read(std::string_view epc) {
        TAG_INFO_s tag = tagWithEpc(epc);
        tag.fields |= RXE_FIELD_PC | RXE_FIELD_CRC | RXE_FIELD_RSSI;
        tag.rssi = -61;
        deliver(tag);
    }
    static void useForm(data_analytics_e form) {
        radio::data_analytics_type = form;
        sockets::tag_data.outside = form != DATA_ANALYTICS_OFF;
    }

    // TID and one word of USER are read with each tag.
    static void readMemory() {
        mode_configuration.readMemory.assign(4, std::vector<memory_Access_s>(1));
        toldAccesses.accessParamsEnabledCount = 2;
        toldAccesses.enabledAccessOps[1] = {1, RXE_ACCESS_READ, {}, {{2, 0, 0}}, 0, {}, 0, 0, 0};
        toldAccesses.enabledAccessOps[2] = {1, RXE_ACCESS_READ, {}, {{3, 0, 0}}, 1, {}, 0, 0, 0};
        toldAccesses.enabledAccessOpsPerOlio[1] = 3;
    }
    static void answer(std::uint8_t access) {
        ACCESS_INFO_s info{access, RXE_ACCESS_RESULT_OK, {}, 2, {}};
        deliver(RXE_PACKET_ACCESS_INFO, &info, offsetof(ACCESS_INFO_s, data) + 2);
    }
};

TEST_F(Account, CountsEachFateOnceAndSaysWhatDecided) {
    ASSERT_EQ(ask("trace add 41"), "Success");
    const auto lastOf = [] { return ask("trace show 41")["last"].back(); };

    sockets::tag_data.isHeard = true;
    sockets::tag_data.listeners = 3;
    read("A1");
    const json first = lastOf();
    EXPECT_EQ((std::vector<json>{first["epc"], first["antenna"], first["peakRssi"], first["fate"],
                                 first["form"], first["eventNum"], first["listeners"]}),
              (std::vector<json>{"4131", 2, -61, "sent", "OFF", 0, 3}));
    sockets::tag_data.isHeard = false;
    for (const data_analytics_e form : {DATA_ANALYTICS_STRING, DATA_ANALYTICS_BINARY, DATA_ANALYTICS_OFF}) {
        useForm(form);
        read("A2");
    }

    mode_configuration.tagFilter.enabled = 1;
    mode_configuration.tagFilter.value = "4133";
    mode_configuration.tagFilter.match = filter_match_e::PREFIX;
    mode_configuration.tagFilter.operation = filter_operation_e::EXCLUDE;
    mode_configuration.tagFilter.pattern = {'A', '3'};
    mode_configuration.tagFilter.patternLength = 2;
    read("A3");
    EXPECT_EQ(lastOf()["rule"], "exclude prefix 4133");

    engine_double::failOn("RXE_formatPayloadToStruct", -1, 9);
    read("A4");
    engine_double::reset();
    RXE_setCallback(getPacket);

    mode_configuration.userDefined = "\xff";
    read("A5");
    EXPECT_EQ(lastOf()["fate"], "notText");
    mode_configuration.userDefined.clear();

    sockets::tag_data.outside = true;
    read("A6");
    sockets::tag_data.outside = false;
    void* const full = zmq_socket(sockets::context, ZMQ_PUSH);  // without a peer it refuses what comes
    void* const usual = std::exchange(sockets::tag_data.handle, full);
    read("A7");
    sockets::tag_data.handle = usual;
    zmq_close(full);

    transmitOn(4);
    readMemory();
    setAddlKeysFilterConfig(false, 1000, 10);
    for (const char* const answers : {"\1\2", "\1\2", "\1"}) {
        read("B1");
        for (const char* access = answers; *access != '\0'; ++access) {
            answer(static_cast<std::uint8_t>(*access));
        }
    }
    read("B1");

    const json account = ask("account");
    EXPECT_EQ(account["fates"].dump(),
              R"({"filtered":1,"heldBack":1,"noSocket":1,"notDecoded":1,"notText":1,)"
              R"("pending":1,"refused":1,"sent":5,"superseded":1})");
    EXPECT_EQ(account["tagPackets"], 13);
    EXPECT_EQ(account["forms"].dump(), R"({"BINARY":1,"OFF":3,"STRING":1})");
    EXPECT_EQ(account["unheard"], 4);
    EXPECT_EQ(account["nextEventNum"], 11) << "a filtered packet and one that is not decoded take no number";
    EXPECT_EQ(account["byAntenna"].size(), 2U);
    EXPECT_EQ(account["byAntenna"][0]["tagPackets"], 9);
    EXPECT_EQ(account["byAntenna"][1]["antenna"], 4);
    EXPECT_EQ(account["byAntenna"][1]["superseded"], 1);
    EXPECT_EQ(account["lines"].dump(), R"({"refused":0,"sent":10})");
    EXPECT_EQ(account["news"].dump(), R"({"refused":0,"sent":2})");
}

// Packets come without a pause, and each account is of one moment.
TEST_F(Account, IsWholeWhilePacketsComeWithoutAPause) {
    const std::jthread engine([](const std::stop_token& end) {
        while (!end.stop_requested()) {
            read("A1");
        }
    });
    account_s account;
    while (account.tagPackets < 50'000) {
        account = {};
        ASSERT_TRUE(takeAccount(&account));
        std::uint64_t sum = account.pending ? 1 : 0;
        for (const antenna_account_s& antenna : account.byAntenna) {
            sum = std::accumulate(antenna.fates.begin(), antenna.fates.end(), sum);
        }
        ASSERT_EQ(account.tagPackets, sum);
        ASSERT_EQ(account.nextEventNum, sum);
    }
}

// The main thread changes the form and meanwhile the engine thread leaves its reports behind.
TEST_F(Account, CorrectsWhatWasLeftBehindAndCouldNotBeSent) {
    sockets::tag_data.turn.doInTurn([] {
        std::thread([] { read("A1"); }).join();
        sockets::tag_data.outside = true;
    });
    const json account = ask("account");
    EXPECT_EQ((std::vector<json>{account["tagPackets"], account["fates"]["sent"],
                                 account["fates"]["noSocket"], account["forms"]["OFF"]}),
              (std::vector<json>{1, 0, 1, 0}));
    sockets::tag_data.outside = false;
}

TEST_F(Account, ATraceKeepsTheLastPacketsUntilItIsRemoved) {
    const std::string wants =
        "Failure: trace needs an EPC or its beginning in hexadecimal digits, two for each byte, "
        "at most 62 bytes";
    const std::pair<std::string, std::string> cases[] = {
        {"trace", "Failure: trace needs one of add, remove, list, show"},
        {"trace list 41", "Failure: trace needs one of add, remove, list, show"},
        {"trace add", wants},
        {"trace add 414", wants},
        {"trace add 4g", wants},
        {"trace add 41 42", wants},
        {"trace add " + std::string(126, '0'), wants},
        {"trace show 41", "Failure: 41 is not traced"},
        {"trace remove 41", "Failure: 41 is not traced"},
        {"account x", "Failure: account takes no parameters"},
    };
    for (const auto& [request, reply] : cases) {
        EXPECT_EQ(ask(request), reply) << request;
    }
    EXPECT_TRUE(ask("trace list")["traces"].empty());
    for (int i = 0; i < 16; ++i) {
        EXPECT_EQ(ask("trace add 4" + std::string(1, "0123456789abcdef"[i])), "Success");
    }
    EXPECT_EQ(ask("trace add 41"), "Success") << "there already";
    EXPECT_EQ(ask("trace add 50"), "Failure: 16 EPCs are traced already, remove one first");
    ASSERT_EQ(ask("trace remove 4f"), "Success");
    ASSERT_EQ(ask("trace add " + std::string(124, 'f')), "Success");
    ASSERT_EQ(ask("trace remove " + std::string(124, 'F')), "Success");
    ASSERT_EQ(ask("trace add 4131"), "Success");

    for (int i = 0; i < 300; ++i) {
        read(i % 2 == 0 ? "A1" : "A2");
    }
    const json all = ask("trace show 41");
    EXPECT_EQ(all["packets"], 300);
    ASSERT_EQ(all["last"].size(), 256U);
    EXPECT_EQ((std::vector<json>{all["last"][0]["eventNum"], all["last"][255]["eventNum"]}),
              (std::vector<json>{44, 299}));
    EXPECT_EQ(ask("trace show 4131")["packets"], 150);
    EXPECT_EQ(ask("trace show 42")["packets"], 0);
    EXPECT_EQ(ask("trace list")["traces"].size(), 16U);
    ASSERT_EQ(ask("trace remove 41"), "Success");
    read("A1");
    EXPECT_EQ(ask("trace show 4131")["packets"], 151);
}

// A tag is held back; the trace names the key and the end of its quiet time.
TEST_F(Account, ATraceNamesTheQuietKey) {
    ask("trace add 4231");
    readMemory();
    mode_configuration.reportAntenna = true;
    setAddlKeysFilterConfig(true, 1000, 10);
    for (int i = 0; i < 2; ++i) {
        read("B1");
        answer(1);
        answer(2);
    }
    json packet = ask("trace show 4231")["last"].back();
    EXPECT_EQ((std::vector<json>{packet["fate"], packet["key"]}),
              (std::vector<json>{"pending", "0000423100000000_2"}));
    EXPECT_GT(packet["until"], packet["time"]);
    ASSERT_EQ(ask("trace remove 4231"), "Success");
    read("B1");  // where the packet was noted is gone
    ask("trace add 42");
    read("B1");
    packet = ask("trace show 42")["last"].back();
    EXPECT_EQ(packet["fate"], "pending");
}

}  // namespace
