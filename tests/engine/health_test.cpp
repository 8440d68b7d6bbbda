// SPDX-License-Identifier: MIT
// Temperatures that follow the radio's work, and the alarms they raise.
#include <nlohmann/json.hpp>

#include "radio.hpp"
#include "support/process.hpp"

namespace {

class Health : public Radio {
  protected:
    static int degrees(unsigned id) {
        std::int16_t value = 0;
        EXPECT_EQ(RXE_getParam(static_cast<unsigned short>(id), &value), RXE_OK);
        return value;
    }
    static void setLimit(unsigned short id, std::uint8_t value) {
        EXPECT_EQ(RXE_setNVMParam(id, &value), RXE_OK);
    }
};

// First order: 63.2 % of the way in one time constant, of the part of the rise
// that the power on air is of the most that there is.
TEST_F(Health, TemperaturesFollowTheWork) {
    const struct {
        const char* legend;
        std::int16_t power;  // tenths of dBm, of 33 dBm at most
        std::uint32_t milliseconds;
        int pa, ambient;
    } cases[] = {
        {"one time constant at full power", 330, 10000, 40 + 25, 25 + 4},
        {"three of them", 330, 30000, 40 + 38, 25 + 8},
        {"half the power", 300, 10000, 40 + 13, 25 + 2},
        {"a tenth of it", 230, 30000, 40 + 4, 25 + 1},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.legend);
        open(R"("tags": {"count": 1}, "temperatures": {"pa": {"idle": 40, "rise": 40, "seconds": 10},
            "ambient": {"idle": 25, "rise": 10, "seconds": 20}})");
        EXPECT_EQ(degrees(RXE_PARAM_PA_TEMP), 40);
        EXPECT_EQ(degrees(RXE_PARAM_AMB_TEMP), 25);
        OLIO_s record = olio(1, RXE_STOP_DWELL_TIME, 100);
        record.transmitPower = row.power;
        run({record}, stopRecord(row.milliseconds, 0));
        EXPECT_NEAR(degrees(RXE_PARAM_PA_TEMP), row.pa, 1);
        EXPECT_NEAR(degrees(RXE_PARAM_AMB_TEMP), row.ambient, 1);
    }
}

TEST_F(Health, AnIdleRadioCoolsDown) {
    ASSERT_EQ(connect(R"({"temperatures": {"pa": {"idle": 30, "seconds": 0.2}},
        "events": [{"at": 0.1, "event": "temperature", "sensor": "pa", "degrees": 100}]})"),
              RXE_OK);
    enable({RXE_PACKET_PA_TEMP_HI_ALARM, RXE_PACKET_PA_TEMP_CRIT_ALARM});
    setLimit(RXE_NVM_PA_HI_TEMP, 131);
    ASSERT_TRUE(waitFor([] { return count(RXE_PACKET_PA_TEMP_HI_ALARM) == 1; }));
    EXPECT_TRUE(eventually([] { return degrees(RXE_PARAM_PA_TEMP) <= 31; }));
    EXPECT_EQ(count(RXE_PACKET_PA_TEMP_HI_ALARM), 1U) << "below the limit when it is time again";
}

TEST_F(Health, AlarmsRepeatSlowlyWhileTheirReasonLasts) {
    const struct {
        const char* legend;
        int pa, ambient;
        std::uint8_t paLimit, ambientLimit;  // as the host writes them
        std::array<std::size_t, 6> alarms;   // PA high, critical and low, ambient high, critical and low
    } cases[] = {
        {"cool", 66, 66, 131, 131, {}},
        {"at the limit", 67, 67, 131, 131, {4, 0, 0, 4, 0, 0}},
        {"critical alone is told", 110, 95, 131, 131, {0, 4, 0, 0, 4, 0}},
        {"no limits", 90, 80, 0, 0, {}},
        {"low, unless a limit is below it", -20, -21, 44, 44, {4, 0, 0, 0, 0, 4}},
        {"one critical without limits", 40, 90, 0, 0, {0, 0, 0, 0, 4, 0}},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.legend);
        const nlohmann::json heat{{"pa", {{"idle", row.pa}, {"rise", 0}, {"critical", 110}}},
                                  {"ambient", {{"idle", row.ambient}, {"rise", 0}, {"critical", 90}}}};
        open("");
        setLimit(RXE_NVM_PA_HI_TEMP, row.paLimit);
        setLimit(RXE_NVM_AMB_HI_TEMP, row.ambientLimit);
        open("\"temperatures\": " + heat.dump());  // which the limits outlive
        enable({RXE_PACKET_PA_TEMP_HI_ALARM, RXE_PACKET_PA_TEMP_CRIT_ALARM, RXE_PACKET_PA_TEMP_LO_ALARM,
                RXE_PACKET_AMB_TEMP_HI_ALARM, RXE_PACKET_AMB_TEMP_CRIT_ALARM, RXE_PACKET_AMB_TEMP_LO_ALARM});
        run({olio(1, 2, 100)}, stopRecord(18000, 0));
        EXPECT_EQ((std::array{count(RXE_PACKET_PA_TEMP_HI_ALARM), count(RXE_PACKET_PA_TEMP_CRIT_ALARM),
                              count(RXE_PACKET_PA_TEMP_LO_ALARM), count(RXE_PACKET_AMB_TEMP_HI_ALARM),
                              count(RXE_PACKET_AMB_TEMP_CRIT_ALARM), count(RXE_PACKET_AMB_TEMP_LO_ALARM)}),
                  row.alarms);
    }
}

// At the connection every channel at full power, then each as it was last sent on.
TEST_F(Health, EchoesFollowWhatTheArraySends) {
    open(R"("model": "QDX4400", "maxTxPower": 36,
        "events": [{"at": 0.1, "event": "pa", "port": 3, "state": "low"}])");
    const auto expectEcho = [](int power, bool third) {
        AAREchoResults echo = {};
        ASSERT_EQ(RXE_getParam(RXE_PARAM_ECHO + 5, &echo), RXE_OK);
        for (int i = 0; i < 14; ++i) {
            const int sent = power - (third && i == 2 ? 300 : 0);
            EXPECT_NEAR(echo.txPwrx10[i], sent - 15, 15) << i;
            EXPECT_NEAR(echo.rxPwrPreEchox10[i], sent - 200, 15) << i;
            EXPECT_NEAR(echo.rxPwrPostEchox10[i], sent - 650, 15) << i;
        }
    };
    expectEcho(360, false);
    OLIO_s record = olio(5897, RXE_STOP_INVENTORY_ROUNDS, 1);
    record.transmitPower = 250;
    run({record}, stopRecord(0, 60));
    expectEcho(250, true);
}

}  // namespace
