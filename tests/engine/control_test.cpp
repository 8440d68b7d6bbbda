// SPDX-License-Identifier: MIT
// The control socket, its question about a tag, and the operations that fail on request.
#include <gmock/gmock.h>
#include <zmq.h>

#include <nlohmann/json.hpp>

#include "radio.hpp"
#include "support/reader.hpp"

namespace {

using nlohmann::json;
using testing::HasSubstr;
using testing::StartsWith;

class Control : public Radio {
  protected:
    const std::string endpoint = "ipc://" + (directory / "control").string();

    RXE_API_STATUS connectWith(const std::string& keys = {}) {
        return connect(R"({"control": ")" + endpoint + '"' + keys + "}");
    }
    std::string ask(const frames_t& message) const {
        const socket_s peer(ZMQ_REQ);
        EXPECT_EQ(zmq_connect(peer.handle, endpoint.c_str()), 0);
        peer.send(message);
        return peer.receive().value_or(frames_t{"no answer"}).front();
    }
    std::string ask(const std::string& text) const { return ask(frames_t{text}); }
    static int get(unsigned id) {
        std::uint16_t value = 0;
        EXPECT_EQ(RXE_getParam(static_cast<unsigned short>(id), &value), RXE_OK);
        return value;
    }
    // The packet that came last, once there are `count` of them.
    static packet_s packet(std::size_t count) {
        EXPECT_TRUE(waitFor([&] { return packets.size() >= count; })) << count;
        const std::lock_guard lock(mutex);
        return packets.empty() ? packet_s{} : packets.back();
    }
};

TEST_F(Control, EachEventIsToldToTheHost) {
    ASSERT_EQ(connectWith(R"(, "database": {"capacity": 1000})"), RXE_OK);
    configure({olio(1, 1, 1), olio(2, 1, 1)});
    enable({RXE_PACKET_GPIO_INFO, RXE_PACKET_ANT_DISCONNECT_ALARM, RXE_PACKET_AMB_TEMP_CRIT_ALARM,
            RXE_PACKET_PA_TEMP_HI_ALARM, RXE_PACKET_FWD_PWR_HI_ALARM, RXE_PACKET_FWD_PWR_LO_ALARM,
            RXE_PACKET_DB_WARNING, RXE_PACKET_DB_ERROR, RXE_PACKET_ANT_CONNECT_ALARM, RXE_PACKET_API_ERROR});
    std::uint8_t limit = 131;  // 67 degrees
    ASSERT_EQ(RXE_setNVMParam(RXE_NVM_PA_HI_TEMP, &limit), RXE_OK);
    const struct {
        const char* message;
        packet_s packet;
    } cases[] = {
        {"gpi 2 high", {RXE_PACKET_GPIO_INFO, {2, 1}}},
        {R"({"event": "gpi", "port": 2, "level": "low"})", {RXE_PACKET_GPIO_INFO, {2, 0}}},
        {"antenna 2 lost", {RXE_PACKET_ANT_DISCONNECT_ALARM, {0, 2, 0, 2}}},
        {"antenna state=back port=2", {RXE_PACKET_ANT_CONNECT_ALARM, {0, 2, 0, 2}}},
        {"pa 3 low", {RXE_PACKET_FWD_PWR_LO_ALARM, {3}}},
        {"pa 16 high", {RXE_PACKET_FWD_PWR_HI_ALARM, {16}}},
        {"temperature pa 67", {RXE_PACKET_PA_TEMP_HI_ALARM, {67}}},
        {"temperature ambient 127", {RXE_PACKET_AMB_TEMP_CRIT_ALARM, {127}}},
        {"database warning", {RXE_PACKET_DB_WARNING, {0, 0, 3, 0x84, 0, 0, 0, 0x64}}},
        {"database full", {RXE_PACKET_DB_ERROR, {}}},
        {"apiError 259", {RXE_PACKET_API_ERROR, {3, 1, 0, 0}}},
        {"error it's 3",
         {RXE_PACKET_ERROR_LOG, {'E', 'R', 'R', 'L', 'O', 'G', ' ', 'i', 't', '\'', 's', ' ', '3'}}},
    };
    std::size_t count = 0;
    for (const auto& row : cases) {
        SCOPED_TRACE(row.message);
        EXPECT_EQ(ask(row.message), "ok");
        EXPECT_EQ(packet(++count), row.packet);
    }
    EXPECT_EQ(ask("gpi 2 low"), "ok") << "no edge, so no packet";
    EXPECT_EQ(ask("antenna 5 lost"), "ok") << "no olio transmits there";
    EXPECT_TRUE(eventually([] { return get(RXE_PARAM_ANTENNA_STATE) == 0xFFEF; }));
    ASSERT_EQ(RXE_getErr(), RXE_OK);
    const packet_s log = packet(++count);
    EXPECT_EQ(log.type, RXE_PACKET_ERROR_LOG);
    EXPECT_THAT(std::string(log.payload.begin(), log.payload.end()),
                testing::AllOf(StartsWith("ERRLOG "), HasSubstr("antenna 5 lost")));
    EXPECT_EQ(get(RXE_PARAM_AMB_TEMP), 127);
}

TEST_F(Control, MalformedMessagesChangeNothing) {
    ASSERT_EQ(connectWith(), RXE_OK);
    enable({RXE_PACKET_GPIO_INFO, RXE_PACKET_ANT_DISCONNECT_ALARM, RXE_PACKET_FWD_PWR_HI_ALARM,
            RXE_PACKET_FWD_PWR_LO_ALARM, RXE_PACKET_PA_TEMP_HI_ALARM, RXE_PACKET_DB_WARNING});
    const struct {
        const char *message, *answer;
    } cases[] = {
        {"", "an empty message"},
        {"{", "not valid JSON"},
        {"gpi", "\"port\" is missing"},
        {"gpi 5 high", "\"port\" must be a whole number from 1 to 4"},
        {"gpi 1 high 2", "\"2\" is one word too many"},
        {"gpi 1 =high", "\"=high\" is one word too many"},
        {"{\"event\": \"gpi\", \"port\": 1, \"level\": \"high\", \"at\": 1}",
         "\"at\" is not a known key; known are \"port\", \"level\""},
        {"tag 123", "\"epc\" must be a text of 2 to 124 hexadecimal digits, a multiple of 2"},
        {"tag 1234 1", "\"1\" is one word too many"},
        {"enter 12E4 1,2", "\"position\" must be an array of three numbers: x, y, z"},
        {"fail 3 4", "\"operation\" must be the name of an operation, such as \"RXE_start\""},
    };
    for (const auto& row : cases) {
        EXPECT_EQ(ask(row.message), row.answer) << row.message;
    }
    for (unsigned antenna = 1; antenna <= 4; ++antenna) {  // so the host tells how many there are
        ASSERT_EQ(set(RXE_PARAM_CABLE_LOSS + antenna, std::uint8_t{0}), RXE_OK);
    }
    EXPECT_EQ(ask("antenna 5 lost"), "\"port\" must be from 1 to 4, as the reader has no more");
    EXPECT_EQ(ask(frames_t{"gpi 1 high", "gpi 1 high"}), "an empty message") << "two frames";
    EXPECT_EQ(get(RXE_PARAM_ANTENNA_STATE), 0xFFFF);
    EXPECT_EQ(get(RXE_PARAM_PA_TEMP), 41);
    EXPECT_EQ(ask("gpi 1 high"), "ok") << "still an edge";
    EXPECT_EQ(packet(1), (packet_s{RXE_PACKET_GPIO_INFO, {1, 1}}));
}

class Question : public Control {
  protected:
    const std::string still = R"(, "clock": "fast", "air": {"fade": 0, "errors": false}, "antennas": [)"
                              R"({"port": 1, "position": [0, 0, 1]}, {"port": 2, "position": [0, 9, 1]}, 4])";

    json tell(const std::string& epc) const { return json::parse(ask("tag " + epc), nullptr, false); }
    // The answer has these values; what it has besides does not matter.
    void check(const std::string& epc, const char* values) const {
        const json told = tell(epc).flatten(), expected = json::parse(values).flatten();
        for (const auto& [pointer, value] : expected.items()) {
            EXPECT_EQ(told.value(pointer, json("absent")), value) << epc << ' ' << pointer;
        }
    }
    // A round with FM0 at 640 kHz on the lowest channel, or many on all, which read each tag again and again.
    void read(std::uint8_t session, std::uint16_t rounds = 1) {
        OLIO_s record = olio(1, RXE_STOP_INVENTORY_ROUNDS, rounds);
        record.linkProfileIndex = 1519;
        record.selectBitMask = 1;
        configure({record});
        query(0, session, rounds == 1 ? 0 : 2);
        for (unsigned channel = 2; rounds == 1 && channel <= 50; ++channel) {
            ASSERT_EQ(set(RXE_PARAM_CHANNEL + channel, CHANNEL_s{}), RXE_OK);
        }
        ASSERT_EQ(set(RXE_PARAM_RADIO_STOP, stopRecord(20000, rounds == 1 ? 1 : 0)), RXE_OK);
    }
};

TEST_F(Question, FlagsRunDownAndFiltersAreNamed) {
    const std::string tags =
        R"(, "tags": [{"epc": "AB01", "position": [0, 1, 1]}, {"epc": "EF02", "enter": 9},
        {"epc": "CD01", "position": [0, 2, 1]}, {"epc": "CD01"}, {"epc": "EF01", "position": [0, 60, 1]}])";
    ASSERT_EQ(connectWith(still + tags), RXE_OK);
    check("ab01", R"({"lastSingulated": null, "selected": {}, "antennas": [{"used": false}]})");
    ASSERT_EQ(set(RXE_PARAM_SELECT + 1, SELECT_OP_s{1, 4, 0, 1, 0x21, 8, 0, 0, {0x56}}), RXE_OK);
    ASSERT_EQ(set(RXE_PARAM_SELECT + 2, SELECT_OP_s{1, 4, 0, 2, 0x48, 16, 0, 0, {0x03, 0xE9}}), RXE_OK);
    read(1);
    run();
    check("AB01",
          R"({"epc": "ab01", "present": true, "same": "absent", "position": [0, 1, 1], "lastSuppressed": null,
        "flags": {"S0": "A", "S1": "B", "S2": "A", "S3": "A", "SL": true}, "lastSingulated": {"antenna": 1},
        "antennas": [{"used": true}, {"used": false}, {"antenna": 4}, "absent"], "selected": {"1": true}})");
    check("CD01", R"({"same": 2, "flags": {"SL": false}, "selected": {"2": {"mask": "03e9", "tag": "e9"},
        "1": {"matches": false, "bank": "EPC", "pointer": 33, "length": 8, "mask": "56", "tag": "9a"}}})");
    check("EF01", R"({"present": true, "lastSingulated": null, "lastSuppressed": null})");
    check("EF02", R"({"present": false, "flags": "absent"})");
    EXPECT_NEAR(tell("AB01")["quiet"].value("S1", 0.0), 2, 0.1);
    // The carrier is off, so that only what persists without power is left.
    for (const std::uint8_t session : {2, 0}) {
        read(session);
        run();
    }
    check("AB01", R"({"flags": {"S0": "A", "S2": "B"}, "quiet": {"S2": 20.0, "S0": "absent"}})");

    const struct {
        unsigned id;
        std::array<std::uint8_t, 100> record;
        const char* values;
    } filters[] = {
        {RXE_PARAM_LAST_REPORT,
         {1, 0, 0, 0, 255, 255, 255, 255},
         R"({"lastSuppressed": {"by": "report filter"}})"},
        {RXE_PARAM_ID_FILTER + 1, {1, 0, 8, 0, 0xEE}, R"({"lastSuppressed": {"by": "id filter"}})"},
        {RXE_PARAM_RSSI_THRESHOLD, {256 - 20}, R"({"lastSuppressed": {"by": "level filter", "antenna": 1}})"},
    };
    for (const auto& [id, record, values] : filters) {
        ASSERT_EQ(set(id, record), RXE_OK) << values;
        read(0);
        run();
        check("AB01", values);
    }
    EXPECT_EQ(ask("leave AB01"), "ok");
    EXPECT_EQ(ask("enter 0001 0,1,1"), "ok") << "takes its place and has no past";
    check("0001", R"({"present": true, "lastSingulated": null, "lastSuppressed": null})");
    run();
    check("0001", R"({"lastSingulated": null, "lastSuppressed": {"by": "level filter"}})");
}

// The margins tell which tags a round reads, the level is that of the tag packet.
TEST_F(Question, MarginsAreThoseOfTheRounds) {
    constexpr int count = 40;  // every other tag hears well, so that the receiver decides
    json tags = json::array();
    for (int i = 0; i < count; ++i) {
        tags.push_back({{"epc", "AB" + std::to_string(10 + i)},
                        {"position", {0, 1 + i, 1}},
                        {"sensitivity", i % 2 == 0 ? -14 : -40}});
    }
    ASSERT_EQ(connectWith(still + ", \"tags\": " + tags.dump()), RXE_OK);
    read(0);
    ASSERT_EQ(set(RXE_PARAM_CUSTOM_FIELDS, std::uint32_t{RXE_FIELD_EPC | RXE_FIELD_RSSI}), RXE_OK);
    run();
    std::map<std::string, int> levels;
    for (const TAG_INFO_s& tag : recordsOf<TAG_INFO_s>(RXE_PACKET_TAG_INFO_CUSTOM)) {
        levels["AB" + std::to_string(tag.epc[1] / 16) + std::to_string(tag.epc[1] % 16)] = tag.rssi;
    }
    for (int i = 0; i < count; ++i) {
        const std::string epc = tags[i]["epc"];
        const json told = tell(epc), row = told["antennas"][0];
        // The decoder takes what is 3 dB below its sensitivity for noise.
        const bool reached = row["margin"] >= (i % 2 == 0 ? 0 : -3);
        EXPECT_EQ(levels.contains(epc), reached) << told;
        EXPECT_EQ(told["lastSingulated"] != nullptr, reached) << told;
        if (reached) {
            EXPECT_NEAR(levels[epc], row["rssi"], 0.6) << told;
        }
    }
    EXPECT_THAT(levels.size(), testing::AllOf(testing::Gt(10), testing::Lt(35)));
    EXPECT_EQ(ask("pa 1 low"), "ok");
    EXPECT_EQ(ask("antenna 2 lost"), "ok");
    check("AB10", R"({"antennas": [{"silent": "its amplifier has failed", "connected": true},
        {"connected": false, "silent": "absent"}]})");
}

// Questions during a run: the radio keeps the flag of session 2, and its packets stay as they are. The first
// run lasts until enough was asked; the second, in silence, until it has as many packets.
TEST_F(Question, ARunDoesNotNoticeThem) {
    std::vector<packet_s> asked;
    for (const bool asking : {true, false}) {
        RXE_disconnect();
        ASSERT_EQ(connectWith(R"(, "clock": "fast", "tags": [{"epc": "AB01"}, {"count": 59}])"), RXE_OK);
        read(2, 60000);
        ASSERT_EQ(set(RXE_PARAM_RADIO_STOP, stopRecord(0, 0)), RXE_OK);
        packets.clear();
        ASSERT_EQ(RXE_start(), RXE_OK);
        int kept = 0;
        ASSERT_TRUE(eventually([&] {
            const json told = asking ? tell("AB01") : json();
            kept += asking && told["flags"]["S2"] == "B" && !told["quiet"].contains("S2") ? 1 : 0;
            const std::lock_guard lock(mutex);
            return asking ? kept > 3 && packets.size() > 500 : packets.size() >= asked.size();
        }));
        {
            const std::lock_guard lock(mutex);
            if (asking) {
                asked = packets;
            }
        }
        ASSERT_EQ(RXE_stop(), RXE_OK);
    }
    const std::lock_guard lock(mutex);
    packets.resize(asked.size());
    EXPECT_EQ(packets, asked);
}

TEST_F(Control, TheSocketBelongsToTheConnection) {
    ASSERT_EQ(connectWith(), RXE_OK);
    EXPECT_EQ(ask("gpi 1 high"), "ok");
    ASSERT_EQ(RXE_disconnect(), RXE_OK);
    EXPECT_FALSE(std::filesystem::exists(directory / "control"));
    writeTextFile(directory / "control", "left behind");
    ASSERT_EQ(connectWith(), RXE_OK);
    EXPECT_EQ(ask("gpi 1 high"), "ok");
    ASSERT_EQ(RXE_disconnect(), RXE_OK);

    const socket_s other(ZMQ_REP);
    ASSERT_EQ(zmq_bind(other.handle, endpoint.c_str()), 0);
    testing::internal::CaptureStderr();
    ASSERT_EQ(connectWith(), RXE_OK) << "the engine does without";
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              endpoint + ": another process listens there; there is no control socket\n");
    ASSERT_EQ(RXE_disconnect(), RXE_OK);
    EXPECT_TRUE(std::filesystem::exists(directory / "control"));

    testing::internal::CaptureStderr();
    ASSERT_EQ(connect(R"({"control": "ipc:///nowhere/at/all"})"), RXE_OK);
    EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("there is no control socket"));
}

std::uint8_t room[5000];
REL_VERSION_s version;
ACCESS_INFO_s record;
char device[] = "/dev/ttyS1";
const struct {
    const char* name;
    RXE_API_STATUS (*call)();
} operations[] = {
    {"RXE_getAPIVerNum", [] { return RXE_getAPIVerNum(&version, nullptr); }},
    {"RXE_connect", [] { return RXE_connect(device, 460800); }},
    {"RXE_setCallback", [] { return RXE_setCallback([](RXE_packet_s*) { return 0; }); }},
    {"RXE_getParam", [] { return RXE_getParam(RXE_PARAM_LIVENESS, room); }},
    {"RXE_setParam", [] { return RXE_setParam(RXE_PARAM_GPIO_DIR, room); }},
    {"RXE_setParam2", [] { return RXE_setParam2(RXE_PARAM_GPIO_DIR, room, true, false); }},
    {"RXE_setNVMParam", [] { return RXE_setNVMParam(RXE_NVM_PA_HI_TEMP, room); }},
    {"RXE_enablePacketLogging", [] { return RXE_enablePacketLogging("/dev/null"); }},
    {"RXE_disablePacketLogging", [] { return RXE_disablePacketLogging(); }},
    {"RXE_resetDb", [] { return RXE_resetDb(); }},
    {"RXE_getErr", [] { return RXE_getErr(); }},
    {"RXE_txFakeTags", [] { return RXE_txFakeTags(1); }},
    {"RXE_resume", [] { return RXE_resume(); }},
    {"RXE_stop", [] { return RXE_stop(); }},
    {"RXE_start", [] { return RXE_start(); }},
    {"RXE_formatPayloadToStruct",
     [] {
         return format(packet_s{RXE_PACKET_ACCESS_INFO, {1, 0, 0, 0}}, &record);
     }},
    {"RXE_disconnect", [] { return RXE_disconnect(); }},
};

TEST_F(Control, EveryOperationFailsOnRequest) {
    json scenario{{"control", "none"}};
    for (std::size_t i = 0; i < std::size(operations); ++i) {
        scenario["failing"].push_back({{"operation", operations[i].name}, {"status", 300 + i}, {"count", 2}});
    }
    writeTextFile(directory / "scenario.json", scenario.dump());
    setenv("RXE_SCENARIO", (directory / "scenario.json").c_str(), 1);
    for (std::size_t i = 0; i < std::size(operations); ++i) {
        const auto& [name, call] = operations[i];
        const std::vector statuses{call(), call(), call()};
        EXPECT_THAT(statuses, testing::ElementsAre(300 + i, 300 + i, RXE_OK)) << name;
    }
}

TEST_F(Control, WithoutAConnectionThereIsNoRadio) {
    for (const bool after : {false, true}) {
        for (const auto& [name, call] : operations) {
            const bool works =
                std::set<std::string>{"RXE_getAPIVerNum", "RXE_formatPayloadToStruct"}.contains(name);
            EXPECT_TRUE(name == std::string("RXE_connect") || (call() == RXE_OK) == works) << name << after;
        }
        EXPECT_EQ(RXE_resume(), RXE_NO_START_ONGOING);
        EXPECT_NE(RXE_connect(nullptr, 460800), RXE_OK);
        EXPECT_NE(RXE_connect(std::string().data(), 460800), RXE_OK);
        EXPECT_NE(RXE_connect(device, 12345), RXE_OK);
        ASSERT_EQ(connectWith(), RXE_OK);
        EXPECT_NE(RXE_connect(device, 460800), RXE_OK);
        EXPECT_EQ(RXE_stop(), RXE_OK) << "stop when idle";
        EXPECT_EQ(RXE_disconnect(), RXE_OK);
    }
}

TEST_F(Control, FailuresCountByParameterAndAfterCallsThatWork) {
    ASSERT_EQ(connectWith(), RXE_OK);
    const auto statusOf = [](unsigned id) {
        return static_cast<int>(RXE_getParam(static_cast<unsigned short>(id), room));
    };
    EXPECT_EQ(ask("fail RXE_getParam 77 parameter=0x2111 after=1"), "ok");
    EXPECT_EQ((std::vector{statusOf(3), statusOf(0x2111), statusOf(0x2111), statusOf(0x2111)}),
              (std::vector{0, 0, 77, 0}));
    EXPECT_EQ(ask("fail parameter=3 status=78 count=0"), "ok");
    EXPECT_EQ((std::vector{statusOf(3), statusOf(3), statusOf(3), statusOf(1)}),
              (std::vector{78, 78, 78, 0}));
    EXPECT_EQ(ask("fail RXE_stop 79 after=2"), "ok");
    EXPECT_EQ(RXE_stop(), RXE_OK);
    EXPECT_EQ(json::parse(ask("failing")),
              json::parse(R"({"failing": [{"parameter": 3, "status": 78, "after": 0, "count": 0},
                                          {"operation": "RXE_stop", "status": 79, "after": 1, "count": 1}]})"));
    EXPECT_EQ(ask("fail parameter=3 status=0"), "ok");
    EXPECT_EQ(statusOf(3), RXE_OK);
}

}  // namespace
