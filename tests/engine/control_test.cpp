// SPDX-License-Identifier: MIT
// The control socket, and the operations that fail on request.
#include <zmq.h>

#include "scenario_text.hpp"

namespace {

struct peer_s {
    void* context = zmq_ctx_new();
    void* socket;
    explicit peer_s(int type) : socket(zmq_socket(context, type)) {
        const int linger = 0, patience = 20000;
        zmq_setsockopt(socket, ZMQ_LINGER, &linger, sizeof linger);
        zmq_setsockopt(socket, ZMQ_RCVTIMEO, &patience, sizeof patience);
    }
    ~peer_s() {
        zmq_close(socket);
        zmq_ctx_term(context);
    }
};

class Control : public ScenarioRadio {
  protected:
    std::string endpoint() const { return "ipc://" + (directory / "control").string(); }
    RXE_API_STATUS connectWith(const std::string& keys = {}) {
        return connect(R"({"control": ")" + endpoint() + '"' + keys + "}");
    }
    std::string ask(const std::string& text, bool twice = false) const {
        const peer_s peer(ZMQ_REQ);
        EXPECT_EQ(zmq_connect(peer.socket, endpoint().c_str()), 0);
        if (twice) {
            zmq_send(peer.socket, text.data(), text.size(), ZMQ_SNDMORE);
        }
        zmq_send(peer.socket, text.data(), text.size(), 0);
        char buffer[1000];
        const int size = zmq_recv(peer.socket, buffer, sizeof buffer, 0);
        return size < 0 ? "no answer" : std::string(buffer, std::min<std::size_t>(size, sizeof buffer));
    }
    template <typename Value>
    static Value get(unsigned id) {
        Value value{};
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

constexpr std::uint16_t GPIO_INFO = 0x0B08, ANT_DISCONNECT = 0x0B81, AMB_CRIT = 0x0B83, PA_HI = 0x0B85,
                        FWD_HI = 0x0B88, FWD_LO = 0x0B89, DB_WARNING = 0x0B8D, DB_ERROR = 0x0B8E,
                        ANT_CONNECT = 0x0B91, API_ERROR = 0x0BFF;

TEST_F(Control, EachEventIsToldToTheHost) {
    ASSERT_EQ(connectWith(R"(, "database": {"capacity": 1000})"), RXE_OK);
    configure({olio(1, 1, 1), olio(2, 1, 1)});
    enable({GPIO_INFO, ANT_DISCONNECT, AMB_CRIT, PA_HI, FWD_HI, FWD_LO, DB_WARNING, DB_ERROR, ANT_CONNECT,
            API_ERROR});
    std::uint8_t limit = 131;  // 67 degrees
    ASSERT_EQ(RXE_setNVMParam(RXE_NVM_PA_HI_TEMP, &limit), RXE_OK);
    const struct {
        const char* message;
        packet_s packet;
    } cases[] = {
        {"gpi 2 high", {GPIO_INFO, {2, 1}}},
        {R"({"event": "gpi", "port": 2, "level": "low"})", {GPIO_INFO, {2, 0}}},
        {"antenna 2 lost", {ANT_DISCONNECT, {0, 2, 0, 2}}},
        {"antenna state=back port=2", {ANT_CONNECT, {0, 2, 0, 2}}},
        {"pa 3 low", {FWD_LO, {3}}},
        {"pa 16 high", {FWD_HI, {16}}},
        {"temperature pa 67", {PA_HI, {67}}},
        {"temperature ambient 127", {AMB_CRIT, {127}}},
        {"database warning", {DB_WARNING, {0, 0, 3, 0x84, 0, 0, 0, 0x64}}},
        {"database full", {DB_ERROR, {}}},
        {"apiError 259", {API_ERROR, {3, 1, 0, 0}}},
        {"error it is 3 o'clock", {ERROR_LOG, {'E', 'R', 'R', 'L', 'O', 'G',  ' ', 'i', 't', ' ', 'i',
                                               's', ' ', '3', ' ', 'o', '\'', 'c', 'l', 'o', 'c', 'k'}}},
    };
    std::size_t count = 0;
    for (const auto& row : cases) {
        SCOPED_TRACE(row.message);
        EXPECT_EQ(ask(row.message), "ok");
        EXPECT_EQ(packet(++count), row.packet);
    }
    EXPECT_EQ(ask("gpi 2 low"), "ok") << "no edge, so no packet";
    EXPECT_EQ(ask("antenna 5 lost"), "ok") << "no olio transmits there";
    ASSERT_EQ(RXE_getErr(), RXE_OK);
    const packet_s log = packet(++count);
    const std::string text(log.payload.begin(), log.payload.end());
    EXPECT_EQ(log.type, ERROR_LOG);
    EXPECT_TRUE(text.starts_with("ERRLOG ")) << text;
    EXPECT_NE(text.find("antenna 5 lost"), std::string::npos) << text;
    EXPECT_EQ(get<std::int16_t>(RXE_PARAM_AMB_TEMP), 127);
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (get<std::uint16_t>(RXE_PARAM_ANTENNA_STATE) != 0xFFEF && std::chrono::steady_clock::now() < end) {
    }
    EXPECT_EQ(get<std::uint16_t>(RXE_PARAM_ANTENNA_STATE), 0xFFEF);
}

TEST_F(Control, MalformedMessagesChangeNothing) {
    ASSERT_EQ(connectWith(), RXE_OK);
    enable({GPIO_INFO, ANT_DISCONNECT, FWD_HI, FWD_LO, PA_HI, DB_WARNING, DB_ERROR});
    for (json message : complete["events"]) {
        message.erase("at");
        message.erase("every");
        for (const auto& [pointer, path] : pathsOf(message)) {
            for (const json& value : {json(nullptr), json(-1e9), json("\x01"), json{{"bogus", 1}}}) {
                json broken = message;
                broken[pointer] = value;
                EXPECT_TRUE(ask(broken.dump()).starts_with('"' + path)) << broken << ask(broken.dump());
            }
        }
        message["bogus"] = 1;
        EXPECT_TRUE(ask(message.dump()).starts_with("\"bogus\" is not a known key")) << message;
    }
    const struct {
        const char *message, *answer;
    } cases[] = {
        {"", "an empty message"},
        {"{", "not valid JSON"},
        {"gpi", "\"port\" is missing"},
        {"gpi 1 high 2", "\"2\" is one word too many"},
        {"gpi 1 =high", "\"=high\" is one word too many"},
        {"{\"event\": \"gpi\", \"port\": 1, \"level\": \"high\", \"at\": 1}",
         "\"at\" is not a known key; known are \"port\", \"level\""},
        {"leave", "\"epc\" is missing"},
        {"enter 12E4 1,2", "\"position\" must be an array of three numbers: x, y, z"},
        {"fail 3 4", "\"operation\" must be the name of an operation, such as \"RXE_start\""},
    };
    for (const auto& row : cases) {
        EXPECT_EQ(ask(row.message), row.answer) << row.message;
    }
    EXPECT_EQ(ask("gpi 1 high", true), "an empty message") << "two frames";
    EXPECT_EQ(get<std::uint16_t>(RXE_PARAM_ANTENNA_STATE), 0xFFFF);
    EXPECT_EQ(get<std::int16_t>(RXE_PARAM_PA_TEMP), 41);
    EXPECT_EQ(ask("gpi 1 high"), "ok") << "still an edge";
    EXPECT_EQ(packet(1), (packet_s{GPIO_INFO, {1, 1}}));
}

TEST_F(Control, TheSocketBelongsToTheConnection) {
    ASSERT_EQ(connectWith(), RXE_OK);
    EXPECT_EQ(ask("gpi 1 high"), "ok");
    ASSERT_EQ(RXE_disconnect(), RXE_OK);
    EXPECT_FALSE(std::filesystem::exists(directory / "control"));
    std::ofstream(directory / "control") << "left behind";
    ASSERT_EQ(connectWith(), RXE_OK);
    EXPECT_EQ(ask("gpi 1 high"), "ok");
    ASSERT_EQ(RXE_disconnect(), RXE_OK);

    const peer_s other(ZMQ_REP);
    ASSERT_EQ(zmq_bind(other.socket, endpoint().c_str()), 0);
    testing::internal::CaptureStderr();
    ASSERT_EQ(connectWith(), RXE_OK) << "the engine does without";
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              endpoint() + ": another process listens there; there is no control socket\n");
    ASSERT_EQ(RXE_disconnect(), RXE_OK);
    EXPECT_TRUE(std::filesystem::exists(directory / "control"));

    ASSERT_EQ(connect(R"({"control": "none"})"), RXE_OK);
    testing::internal::CaptureStderr();
    ASSERT_EQ(RXE_disconnect(), RXE_OK);
    ASSERT_EQ(connect(R"({"control": "ipc:///nowhere/at/all"})"), RXE_OK);
    EXPECT_NE(testing::internal::GetCapturedStderr().find("there is no control socket"), std::string::npos);
}

TEST_F(Control, EveryOperationFailsOnRequest) {
    static std::uint8_t room[5000];
    static char device[] = "/dev/ttyS1";
    const struct {
        const char* name;
        RXE_API_STATUS (*call)();
    } operations[] = {
        {"RXE_getAPIVerNum",
         [] { return RXE_getAPIVerNum(reinterpret_cast<REL_VERSION_s*>(room), nullptr); }},
        {"RXE_connect", [] { return RXE_connect(device, 460800); }},
        {"RXE_setCallback", [] { return RXE_setCallback(keep); }},
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
             return format(packet_s{ACCESS_INFO, {1, 0, 0, 0}}, reinterpret_cast<ACCESS_INFO_s*>(room));
         }},
        {"RXE_disconnect", [] { return RXE_disconnect(); }},
    };
    json scenario{{"control", "none"}};
    for (std::size_t i = 0; i < std::size(operations); ++i) {
        scenario["failing"].push_back({{"operation", operations[i].name}, {"status", 300 + i}, {"count", 2}});
    }
    const std::string path = directory / "scenario.json";
    std::ofstream(path) << scenario;
    setenv("RXE_SCENARIO", path.c_str(), 1);
    for (std::size_t i = 0; i < std::size(operations); ++i) {
        SCOPED_TRACE(operations[i].name);
        std::memset(room, 0, sizeof room);
        EXPECT_EQ(operations[i].call(), 300 + static_cast<int>(i));
        EXPECT_EQ(operations[i].call(), 300 + static_cast<int>(i));
        EXPECT_EQ(operations[i].call(), RXE_OK);
    }
}

TEST_F(Control, FailuresCountByParameterAndAfterCallsThatWork) {
    ASSERT_EQ(connectWith(), RXE_OK);
    const auto statusOf = [](unsigned id) {
        std::uint8_t room[600];
        return static_cast<int>(RXE_getParam(static_cast<unsigned short>(id), room));
    };
    EXPECT_EQ(ask("fail RXE_getParam 77 parameter=0x2111 after=1"), "ok");
    EXPECT_EQ((std::vector{statusOf(3), statusOf(0x2111), statusOf(0x2111), statusOf(0x2111)}),
              (std::vector{0, 0, 77, 0}));
    EXPECT_EQ(ask("fail parameter=3 status=78 count=0"), "ok");
    EXPECT_EQ((std::vector{statusOf(3), statusOf(3), statusOf(3), statusOf(1)}),
              (std::vector{78, 78, 78, 0}));
    EXPECT_EQ(ask("fail parameter=3 status=0"), "ok");
    EXPECT_EQ(statusOf(3), RXE_OK);
}

}  // namespace
