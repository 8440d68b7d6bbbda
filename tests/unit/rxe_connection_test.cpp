// SPDX-License-Identifier: MIT
// Bringing the radio up, on each model and with each call failing in turn.
#include <gtest/gtest.h>
#include <libxml/parser.h>

#include <mutex>

#include "apply/apply.hpp"
#include "connection.hpp"
#include "engine_io/channels.hpp"
#include "engine_io/features.hpp"
#include "engine_io/parameter_io.hpp"
#include "logger.hpp"
#include "radio.hpp"
#include "rm_server/exchange.hpp"
#include "support/engine_double.hpp"
#include "support/management_double.hpp"
#include "support/temp_dir.hpp"

namespace {

class RxeConnectionTest : public testing::Test {
  protected:
    RxeConnectionTest() {
        std::filesystem::current_path(directory.path);
        xmlInitParser();  // reader and server, here two threads, would both do it at their first text
        facts.cables[1].length = 625;  // 37.5 dB, which is beyond a byte
    }

    temp_dir_s directory;  // of the saved mode and the log file
    // Changed between connections only. The cable loss is 1.5 dB at the other antennas.
    profile_s facts{"PN5100", "reader", "US", "US FCC 15", 500, 4, 300, 2, std::vector<cable_s>(15, {6, 25})};
    fault_plan_s plan;
    std::mutex factsLock;  // for the thread sanitizer, which does not see the order that connections make
    ManagementDouble server{[this](const std::string& request) {
        const std::lock_guard hold(factsLock);
        return answerRequest(request, facts, &plan).bytes;
    }};
};

// All calls, each with a bar behind it. A write of RXE_setParam2 is only its id
// and record, the reads of the 127 channels in order are one, and so are olios.
std::string callText() {
    std::string text;
    unsigned channels = 0, olioId = 0;
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

// An engine that has never been told anything.
void renewEngine() {
    engine_double::reset();
    setCustomFields(0);
    engine_double::reset();
}

TEST_F(RxeConnectionTest, EngineSeesTheStartUpOfEachModelInOrder) {
    const std::string count = "setParam 0011 04|", check = "setParam 2112 05|";
    const std::string cables = "setParam 1201 0f|setParam 1202 ff|setParam 1203 0f|setParam 1204 0f|";
    const std::string forEver = "10ff 01000000ffffffff|";
    const std::string twoGpis = "0005 -|d001 ff|10eb -|d003 -|", fourGpis = "0015 -|d001 ff|10eb -|d005 -|";
    const std::string delay = "10f3 024b|", range = "10f5 -|0888 01|" + delay, rssi = "10fe 80|";
    // The model and its firmware; what the model is called afterwards; what the radio is told
    // between its version and its power, at the baseline's end, and from the stop rule on.
    const std::tuple<const char*, REL_VERSION_s, std::string, std::string, std::string, std::string> cases[] =
        {{"PN5100", {1, 4, 87, 0}, "PN5100", count + check + cables, delay, twoGpis + "10f3 014b|" + forEver},
         {"PN5100", {1, 4, 86, 0}, "PN5100", count + cables, delay, twoGpis + "10f3 014b|" + forEver},
         {"PN5100", {2, 1, 50, 0}, "PN5100-ASIC", check + cables, range, twoGpis + delay + forEver + rssi},
         {"PN8200", {2, 2, 28, 0}, "PN8200", check + cables, "10f5 -|" + delay, fourGpis + delay + forEver},
         {"QDX4400", {2, 2, 27, 0}, "QDX4400", "", "10f5 -|", twoGpis + forEver}};
    // 0x3C01 into the fields, then the fifteen packets.
    const std::string packets =
        "0009 013c|0004 01008103|0004 01009103|0004 01008203|0004 01008303|0004 01008503|0004 01008603|"
        "0004 01008803|0004 01008903|0004 01000303|0004 01000803|0004 01008d03|0004 01008e03|"
        "0004 01009102|0004 01000103|0004 01000903|";
    const std::string wipes = "0004 -|0100 -|0300 -|", blank = "0400 -|0885 -|10ff -|";
    for (const auto& [model, firmware, name, told, delays, conditions] : cases) {
        SCOPED_TRACE(name + " firmware patch " + std::to_string(firmware.patch));
        renewEngine();
        engine_double::setRecord(1, firmware);
        {
            const std::lock_guard hold(factsLock);
            facts.model = model;
        }
        readerFacts.max_ants = 0;
        ASSERT_EQ(initRXEConnection(), RXE_OK);
        EXPECT_EQ(readerFacts.modelName, name);
        EXPECT_TRUE(RXE_connected_status && RXE_still_connected);
        const bool array = readerFacts.modelName == "QDX4400";
        const std::vector<int> learnt{readerFacts.rxe_max_tx_pwr_x_10, readerFacts.power_source,
                                      readerFacts.max_ants, readerFacts.max_tx_pwr_x_10,
                                      readerFacts.cable_loss_compensation_x_10[2]};
        EXPECT_EQ(learnt, array ? (std::vector{330, 2, 14, 360, 0}) : (std::vector{330, 2, 4, 300, 375}));
        EXPECT_EQ(rxe_intfc::olios[array ? 38 : 4].transmitPower, array ? 330 : 285);
        // The starting mode asks the array reader's firmware whether it detects link
        // profiles; its baseline repeats neither fields nor packets.
        EXPECT_EQ(callText(), "getAPIVerNum|connect 70800 /dev/ttyS1|getParam 0001|" + told +
                                  "getParam 0014|setNVMParam 0406 83|" +
                                  (array ? "" : "setNVMParam 0403 83|") + "all channels|setCallback|" +
                                  wipes + blank + packets + delays + (array ? "getParam 0001|" : "") + blank +
                                  delays + "0201 01010001|olios|" + conditions);
    }
    EXPECT_EQ(initial_channels[0].frequency, 903000U);
    EXPECT_EQ(current_channels[126].frequency, 915250U);
    EXPECT_EQ(current_channels[126].maxPower, 100);
}

struct failure_case_s {
    std::string log;   // the line that tells of it
    std::string call;  // the engine call that fails with 77, or the query that is refused
    int id;            // -1 for a query
    int result;
    int ports = 4;
    std::uint8_t patch = 87;  // of firmware 1.4
};

TEST_F(RxeConnectionTest, EachFailureEndsItWithItsStatusAndItsLine) {
    const char* code = " failed with error code: 77";
    const char* oldFirmware = " Failed to set the number of antennas on the PN5100 using old radio Firmware";
    const failure_case_s cases[] = {
        {code, "RXE_getAPIVerNum", 0, 77},
        {code, "RXE_connect", 460800, 77},
        {code, "RXE_getParam", 1, 77},
        {" Cannot connect to RM to get Model", "getModel", -1, 1},
        {" Cannot connect to RM to get regulatory standard", "getActiveRegion", -1, 1},
        {" Cannot connect to RM to get Reader Details", "getReaderDetails", -1, 1},
        {" Reader claims to have 15 antennas but we only expect up to 14", "", 0, 1, 15},
        {" Reader has 14 antennas", "", 0, 0, 14},
        {" Reader claims to have -1 antennas but we only expect up to 14", "", 0, 1, -1},
        {" Failed to set the number of antennas on the PN5100", "RXE_setParam", 0x11, 1},
        {oldFirmware, "RXE_setParam", 0x11, 0, 4, 86},
        {" Failed to set the antennaCheckInterval, could be old RXE FW", "RXE_setParam", 0x2112, 1},
        {" Cannot connect to RM to get Cable Loss Compensation", "getCableLossCompensation", -1, 1},
        {" Cable Loss Compensation for antenna 3 is 1.5 db", "RXE_setParam", 0x1203, 0},
        {" Failed to get the maximum RXE transmit power", "RXE_getParam", 0x14, 77},
        {" Failed to set Ambient Hi Temperature warning", "RXE_setNVMParam", 0x406, 77},
        {" Failed to set PA Hi Temperature warning", "RXE_setNVMParam", 0x403, 77},
        {code, "RXE_getParam", 0x87F, 1},
        {code, "RXE_setCallback", 0, 1},
        {code, "RXE_setParam2", 0x09, 1},
        {code, "RXE_setParam2", 0x400, 1},
        {" Response: Failure: Failed to set olio 2 error 0x004d", "RXE_setParam2", 0x402, 0}};
    configureLogs(true, false);
    for (const failure_case_s& row : cases) {
        SCOPED_TRACE(row.call + row.log);
        renewEngine();
        engine_double::setRecord(1, REL_VERSION_s{1, 4, row.patch, 0});
        {
            const std::lock_guard hold(factsLock);
            facts.ports = row.ports;
            plan.kind = row.id < 0 ? fault_e::resultCode : fault_e::none;
            plan.query = row.call;
        }
        engine_double::failOn(row.call, row.id);
        RXE_connected_status = false;
        const auto complaints = getErrorCount() + getWarningCount();
        testing::internal::CaptureStdout();
        EXPECT_EQ(initRXEConnection(), row.result);
        const char* const cause = row.id < 0 ? "error code 5" : row.call.empty() ? " ports" : "status 77 (";
        EXPECT_TRUE(row.result == 0 || connectionFailureCause().find(cause) != std::string::npos);
        const std::string log = testing::internal::GetCapturedStdout();
        EXPECT_NE(log.find(" rxe_intfc" + row.log + "\n"), std::string::npos) << log;
        EXPECT_EQ(log.find("rxe_intfc Response: "), log.rfind("rxe_intfc Response: "))
            << "of the stored mode alone";
        EXPECT_EQ(RXE_connected_status, row.result == 0);
        const bool wasOpen = row.call != "RXE_getAPIVerNum" && row.call != "RXE_connect";
        EXPECT_EQ(engine_double::lastCall() == "disconnect", row.result != 0 && wasOpen);
        EXPECT_TRUE(row.result == 0 || getErrorCount() + getWarningCount() > complaints);
    }
}

TEST(RxeConnection, TheRadioIsAskedOnlyWhenItIsSilent) {
    RXE_setCallback(getPacket);
    EXPECT_TRUE(check_RXE_connection());
    EXPECT_EQ(engine_double::lastCall(), "getParam 0003");
    engine_double::failOn("RXE_getParam", 3);
    EXPECT_FALSE(check_RXE_connection());
    EXPECT_FALSE(RXE_still_connected);

    engine_double::clearCalls();
    engine_double::deliver(RXE_PACKET_STATUS, {});
    engine_double::deliver(RXE_PACKET_STATUS, {});
    EXPECT_TRUE(check_RXE_connection());
    EXPECT_TRUE(RXE_still_connected);
    EXPECT_TRUE(engine_double::calls().empty());
    EXPECT_EQ(get_num_RXE_packets_since_last_time(), 2U);
    EXPECT_EQ(get_num_RXE_packets_since_last_time(), 0U);
    EXPECT_FALSE(check_RXE_connection());
}

TEST(RxeConnection, AClosedLinkIsForgottenOnlyWhenTheEngineAgrees) {
    for (const int status : {77, 0}) {
        RXE_connected_status = true;
        engine_double::failOn("RXE_disconnect", -1, status);
        closeRXEConnection();
        EXPECT_EQ(RXE_connected_status, status != 0);
    }
}

TEST(RxeConnection, OnlyThePN5100FallsBackToTheOtherTransmitDelay) {
    readerFacts.txDelayIntervalSupported = initial_channel_state = true;
    engine_double::failOn("RXE_setParam2", 0x10F3);
    for (const bool fallsBack : {false, true}) {
        setModelName(fallsBack ? "PN5100" : "PN5100-ASIC");
        EXPECT_EQ(baselineRXEConfiguration(false), 77);
        EXPECT_EQ(engine_double::lastCall(), fallsBack ? "setParam2 10f3 014b" : "setParam2 10f3 024b");
    }
}

TEST(RxeConnection, FeaturesFollowTheVersion) {
    // Antenna check, RSSI filter, dynamic range, cable loss, transmit delay.
    const std::pair<REL_VERSION_s, const char*> cases[] = {
        {{1, 4, 86, 0}, "----t"}, {{1, 4, 87, 0}, "a---t"}, {{2, 0, 99, 0}, "----t"},
        {{2, 1, 32, 0}, "----t"}, {{2, 1, 40, 0}, "a---t"}, {{2, 1, 41, 0}, "ar--t"},
        {{2, 1, 46, 0}, "ar--t"}, {{2, 1, 47, 0}, "ardct"}, {{2, 2, 26, 0}, "-----"},
        {{2, 2, 27, 0}, "a----"}, {{2, 2, 28, 0}, "a---t"}, {{2, 3, 99, 0}, "----t"}};
    const REL_VERSION_s library{2, 2, 34, 0}, oldLibrary{2, 2, 33, 0};
    for (const auto& [fw, features] : cases) {
        const std::string seen{
            isRXEAntennaCheckSupported(&fw) ? 'a' : '-', isRSSIFilterSupported(&fw) ? 'r' : '-',
            isDynamicRangeSupported(&fw) ? 'd' : '-', isCableLossSupported(&fw, &library) ? 'c' : '-',
            isTxDelayIntervalSupported(&fw) ? 't' : '-'};
        EXPECT_EQ(seen, features) << int{fw.major} << "." << int{fw.minor} << "." << int{fw.patch};
        EXPECT_FALSE(isCableLossSupported(&fw, &oldLibrary));
        engine_double::setRecord(1, fw);
        EXPECT_EQ(isAutoDetectSupported(), fw.minor == 2 && fw.patch > 27);
    }
}

}  // namespace
