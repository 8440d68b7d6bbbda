// SPDX-License-Identifier: MIT
// Bringing the radio up, on each model and with each call failing in turn. The
// reader's facts come from a management server of the test's own.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <thread>

#include "logger.hpp"
#include "radio.hpp"
#include "rxe_intfc.hpp"
#include "support/engine_double.hpp"
#include "support/temp_dir.hpp"

namespace {

struct facts_s {
    std::string model = "PN5100";
    int ports = 4;
    std::string refused;  // the query that fails
};

// Answers every query of one reader until it is destroyed.
class ManagementServer {
  public:
    ManagementServer() : listener(socket(AF_INET, SOCK_STREAM, 0)) {
        const int yes = 1;
        setsockopt(listener, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof(yes));
        const sockaddr_in address{AF_INET, htons(50009), {htonl(INADDR_LOOPBACK)}, {}};
        if (bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0 ||
            listen(listener, 16) != 0) {
            ADD_FAILURE() << "port 50009 is taken";
        }
        server = std::thread([this] { serve(); });
    }
    ~ManagementServer() {
        shutdown(listener, SHUT_RDWR);
        server.join();
        close(listener);
    }

    facts_s facts;  // changed between connections only

  private:
    void serve() {
        int peer = -1;
        while ((peer = accept(listener, nullptr, nullptr)) >= 0) {
            char request[4096] = {};
            if (read(peer, request, sizeof(request) - 1) > 0) {
                const std::string reply = answer(request);
                EXPECT_EQ(write(peer, reply.data(), reply.size()), static_cast<ssize_t>(reply.size()));
            }
            close(peer);
        }
    }

    static std::string element(const std::string& name, const std::string& body) {
        return "<x:" + name + ">" + body + "</x:" + name + ">";
    }

    std::string answer(const std::string& request) const {
        const std::size_t readPoint = request.find("Read Point ");
        const int antenna = readPoint == std::string::npos ? 0 : std::stoi(request.substr(readPoint + 11));
        const std::pair<std::string, std::string> bodies[] = {
            {"getModel", element("returnValue", facts.model)},
            {"getActiveRegion",
             element("returnValue", element("regionName", "US") + element("standardName", "US FCC 15"))},
            {"getReaderDetails", element("NumPorts", std::to_string(facts.ports)) +
                                     element("maxTxPowerSupported", "300") + element("PowerSource", "2")},
            {"getRegionStandardList",
             element("returnValue", element("list", element("value", element("channelWidth", "500"))))},
            // 1.5 dB on the first antenna, 37.5 on the second, which is beyond a byte
            {"getCableLossCompensation",
             element("cableLossPerHundredFt", "6") + element("cableLength", antenna == 2 ? "625" : "25")},
        };
        for (const auto& [query, body] : bodies) {
            if (request.find(query) != std::string::npos) {
                return "<r:reply xmlns:r=\"urn:epcglobal:rm:xsd:1\" xmlns:x=\"urn:brixrfid:rm:xsd:1\">"
                       "<r:resultCode>" +
                       std::string(query == facts.refused ? "5" : "0") + "</r:resultCode>" +
                       element(antenna == 0 ? "readerDevice" : "antennaReadPoint", element(query, body)) +
                       "</r:reply>";
            }
        }
        return "";
    }

    int listener;
    std::thread server;
};

class RxeConnectionTest : public testing::Test {
  protected:
    RxeConnectionTest() { std::filesystem::current_path(directory.path); }
    ~RxeConnectionTest() override { std::filesystem::current_path("/"); }

    temp_dir_s directory;  // of the saved mode and the log file
    ManagementServer server;
};

constexpr auto failing = static_cast<RXE_API_STATUS>(77);

// All calls, each with a bar behind it. A write of RXE_setParam2 is only its id
// and record, the reads of the 127 channels in order are one, and so are olios.
std::string callText() {
    std::string text;
    unsigned channels = 0;
    unsigned olioId = 0;
    for (const auto& call : engine_double::calls()) {
        const std::string line = engine_double::describe(call) + "|";
        const bool isWrite = call.name == "RXE_setParam2";
        if (isWrite && call.id == 0x401 + olioId) {
            text += olioId++ == 0 ? "olios|" : "";
        } else if (call.name == "RXE_getParam" && call.id == 0x801 + channels) {
            text += ++channels == RXE_MAX_CHANNELS ? "all channels|" : "";
        } else {
            text += isWrite ? line.substr(sizeof("setParam2")) : line;
        }
    }
    return text;
}

void setFirmware(REL_VERSION_s version) {
    engine_double::setRecord(1, &version, sizeof(version));
}

// An engine that has never been told anything.
void renewEngine() {
    engine_double::reset();
    setCustomFields(0);
    engine_double::reset();
}

struct model_case_s {
    const char* model;
    REL_VERSION_s firmware;
    const char* name;        // what the model is called afterwards
    std::string facts;       // what the radio is told between its version and its power
    std::string delays;      // end of the baseline
    std::string conditions;  // from the stop rule on, of the starting mode
};

TEST_F(RxeConnectionTest, EngineSeesTheStartUpOfEachModelInOrder) {
    const std::string count = "setParam 0011 04|";
    const std::string check = "setParam 2112 05|";
    const std::string cables = "setParam 1201 0f|setParam 1202 ff|setParam 1203 0f|setParam 1204 0f|";
    const std::string forEver = "10ff 01000000ffffffff|";
    const std::string twoGpis = "0005 -|d001 ff|10eb -|d003 -|";
    const std::string fourGpis = "0015 -|d001 ff|10eb -|d005 -|";
    const std::string delay = "10f3 024b|";
    const model_case_s cases[] = {
        {"PN5100", {1, 4, 87, 0}, "PN5100", count + check + cables, delay, twoGpis + "10f3 014b|" + forEver},
        {"PN5100", {1, 4, 86, 0}, "PN5100", count + cables, delay, twoGpis + "10f3 014b|" + forEver},
        {"PN5100",
         {2, 1, 50, 0},
         "PN5100-ASIC",
         check + cables,
         "10f5 -|0888 01|" + delay,
         twoGpis + delay + forEver + "10fe 80|"},
        {"PN8200", {2, 2, 28, 0}, "PN8200", check + cables, "10f5 -|" + delay, fourGpis + delay + forEver},
        {"QDX4400", {2, 2, 27, 0}, "QDX4400", "", "10f5 -|", twoGpis + forEver},
    };
    // 0x3C01 into the fields, then the fifteen packets.
    const std::string packets =
        "0009 013c|0004 01008103|0004 01009103|0004 01008203|0004 01008303|0004 01008503|0004 01008603|"
        "0004 01008803|0004 01008903|0004 01000303|0004 01000803|0004 01008d03|0004 01008e03|"
        "0004 01009102|0004 01000103|0004 01000903|";
    const std::string wipes = "0004 -|0100 -|0300 -|";
    const std::string blank = "0400 -|0885 -|10ff -|";
    for (const model_case_s& row : cases) {
        SCOPED_TRACE(std::string(row.name) + " firmware patch " + std::to_string(row.firmware.patch));
        renewEngine();
        setFirmware(row.firmware);
        server.facts.model = row.model;
        max_ants = 0;
        ASSERT_EQ(initRXEConnection(), RXE_OK);
        EXPECT_EQ(modelName, row.name);
        EXPECT_TRUE(RXE_connected_status && RXE_still_connected);
        EXPECT_EQ(rxe_max_tx_pwr_x_10, 330);
        EXPECT_EQ(power_source, 2);
        const bool array = modelName == "QDX4400";
        EXPECT_EQ(max_ants, array ? 14 : 4);
        EXPECT_EQ(max_tx_pwr_x_10, array ? 360 : 300);
        EXPECT_EQ(cable_loss_compensation_x_10[2], array ? 0 : 375);
        EXPECT_EQ(olios[array ? 38 : 4].enable, 1);
        // The starting mode asks the array reader's firmware whether it detects link
        // profiles; its baseline repeats neither fields nor packets.
        EXPECT_EQ(callText(), "getAPIVerNum|connect 70800 /dev/ttyS1|getParam 0001|" + row.facts +
                                  "getParam 0014|setNVMParam 0406 83|" +
                                  (array ? "" : "setNVMParam 0403 83|") + "all channels|setCallback|" +
                                  wipes + blank + packets + row.delays + (array ? "getParam 0001|" : "") +
                                  blank + row.delays + "0201 01010001|olios|" + row.conditions);
    }
    EXPECT_EQ(initial_channels[0].frequency, 903000U);
    EXPECT_EQ(current_channels[126].frequency, 915250U);
    EXPECT_EQ(current_channels[126].maxPower, 100);
}

struct failure_case_s {
    const char* legend;
    const char* call;  // the engine call that fails with 77, or the query that is refused
    int id;            // -1 for a query
    int result;
    bool disconnects;
    int ports = 4;
    REL_VERSION_s firmware = {1, 4, 87, 0};
};

TEST_F(RxeConnectionTest, EachFailureEndsItWithItsStatus) {
    const failure_case_s cases[] = {
        {"library version", "RXE_getAPIVerNum", 0, 77, false},
        {"link", "RXE_connect", 460800, 77, false},
        {"firmware version", "RXE_getParam", 1, 77, true},
        {"model", "getModel", -1, 1, true},
        {"standard", "getActiveRegion", -1, 1, true},
        {"reader details", "getReaderDetails", -1, 1, true},
        {"fifteen ports", "no call", 0, 1, true, 15},
        {"fourteen ports", "no call", 0, 0, false, 14},
        {"a negative number of ports", "no call", 0, 1, true, -1},
        {"antenna count", "RXE_setParam", 0x11, 1, true},
        {"antenna count, which old firmware lacks", "RXE_setParam", 0x11, 0, false, 2, {1, 4, 86, 0}},
        {"antenna check", "RXE_setParam", 0x2112, 1, true},
        {"cable loss unknown", "getCableLossCompensation", -1, 1, true},
        {"cable loss not taken", "RXE_setParam", 0x1203, 0, false},
        {"maximum power", "RXE_getParam", 0x14, 77, true},
        {"ambient warning", "RXE_setNVMParam", 0x406, 77, true},
        {"amplifier warning", "RXE_setNVMParam", 0x403, 77, true},
        {"a channel", "RXE_getParam", 0x87F, 1, true},
        {"callback", "RXE_setCallback", 0, 1, true},
        {"custom fields", "RXE_setParam2", 0x09, 1, true},
        {"olios in the baseline", "RXE_setParam2", 0x400, 1, true},
        {"an olio of the starting mode", "RXE_setParam2", 0x402, 0, false},
    };
    for (const failure_case_s& row : cases) {
        SCOPED_TRACE(row.legend);
        renewEngine();
        setFirmware(row.firmware);
        server.facts.ports = row.ports;
        server.facts.refused = row.id < 0 ? row.call : "";
        if (row.id >= 0) {
            engine_double::failOn(row.call, row.id, failing);
        }
        RXE_connected_status = false;
        const auto complaints = getErrorCount() + getWarningCount();
        EXPECT_EQ(initRXEConnection(), row.result);
        EXPECT_EQ(RXE_connected_status, row.result == 0);
        EXPECT_EQ(engine_double::calls().back().name == "RXE_disconnect", row.disconnects);
        EXPECT_TRUE(row.result == 0 || getErrorCount() + getWarningCount() > complaints);
    }
}

TEST(RxeConnection, TheRadioIsAskedOnlyWhenItIsSilent) {
    const std::uint8_t none = 0;
    RXE_setCallback(getPacket);
    EXPECT_TRUE(check_RXE_connection());
    EXPECT_EQ(engine_double::describe(engine_double::calls().back()), "getParam 0003");

    engine_double::failOn("RXE_getParam", 3, failing);
    EXPECT_FALSE(check_RXE_connection());
    EXPECT_FALSE(RXE_still_connected);

    engine_double::clearCalls();
    engine_double::deliver(770 ^ RXE_PACKET_TYPE_XOR, {&none, 0});
    engine_double::deliver(770 ^ RXE_PACKET_TYPE_XOR, {&none, 0});
    EXPECT_TRUE(check_RXE_connection());
    EXPECT_TRUE(RXE_still_connected);
    EXPECT_TRUE(engine_double::calls().empty());
    EXPECT_EQ(get_num_RXE_packets_since_last_time(), 2U);
    EXPECT_EQ(get_num_RXE_packets_since_last_time(), 0U);
    EXPECT_FALSE(check_RXE_connection());
}

TEST(RxeConnection, AClosedLinkIsForgottenOnlyWhenTheEngineAgrees) {
    RXE_connected_status = true;
    engine_double::failOn("RXE_disconnect", -1, failing);
    closeRXEConnection();
    EXPECT_TRUE(RXE_connected_status);
    engine_double::reset();
    closeRXEConnection();
    EXPECT_FALSE(RXE_connected_status);
}

TEST(RxeConnection, OnlyThePN5100FallsBackToTheOtherTransmitDelay) {
    for (const bool fallsBack : {false, true}) {
        engine_double::reset();
        modelName = fallsBack ? "PN5100" : "PN5100-ASIC";
        txDelayIntervalSupported = true;
        initial_channel_state = true;
        engine_double::failOn("RXE_setParam2", 0x10F3, failing);
        EXPECT_EQ(baselineRXEConfiguration(false), 77);
        EXPECT_EQ(engine_double::describe(engine_double::calls().back()),
                  fallsBack ? "setParam2 10f3 014b" : "setParam2 10f3 024b");
    }
}

TEST(RxeConnection, FeaturesFollowTheVersion) {
    struct case_s {
        REL_VERSION_s firmware;
        const char* features;  // antenna check, RSSI filter, dynamic range, cable loss, transmit delay
    };
    const case_s cases[] = {
        {{1, 4, 86, 0}, "----t"}, {{1, 4, 87, 0}, "a---t"}, {{2, 0, 99, 0}, "----t"},
        {{2, 1, 32, 0}, "----t"}, {{2, 1, 40, 0}, "a---t"}, {{2, 1, 41, 0}, "ar--t"},
        {{2, 1, 46, 0}, "ar--t"}, {{2, 1, 47, 0}, "ardct"}, {{2, 2, 26, 0}, "-----"},
        {{2, 2, 27, 0}, "a----"}, {{2, 2, 28, 0}, "a---t"}, {{2, 3, 99, 0}, "----t"},
    };
    const REL_VERSION_s library{2, 2, 34, 0};
    const REL_VERSION_s oldLibrary{2, 2, 33, 0};
    for (const auto& [fw, features] : cases) {
        const std::string seen{
            isRXEAntennaCheckSupported(&fw) ? 'a' : '-', isRSSIFilterSupported(&fw) ? 'r' : '-',
            isDynamicRangeSupported(&fw) ? 'd' : '-', isCableLossSupported(&fw, &library) ? 'c' : '-',
            isTxDelayIntervalSupported(&fw) ? 't' : '-'};
        EXPECT_EQ(seen, features) << testing::PrintToString(std::vector<int>{fw.major, fw.minor, fw.patch});
        EXPECT_FALSE(isCableLossSupported(&fw, &oldLibrary));
        setFirmware(fw);
        EXPECT_EQ(isAutoDetectSupported(), fw.minor == 2 && fw.patch > 27);
    }
}

}  // namespace
