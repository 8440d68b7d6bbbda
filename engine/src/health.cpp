// SPDX-License-Identifier: MIT
#include "health.hpp"

#include <algorithm>
#include <cmath>
#include <utility>

#include "delivery.hpp"
#include "random.hpp"
#include "timeline.hpp"

namespace rxe {
namespace {

constexpr std::int64_t stepInterval = 250000;    // microseconds between two looks at the temperatures
constexpr std::int64_t alarmInterval = 5000000;  // an alarm repeats at this rate while its reason lasts
constexpr std::int64_t checkUnit = 100000;       // of the antenna check's interval
constexpr std::uint64_t warningPercent = 90;     // of the database's capacity
constexpr int lowLimit = -20;                    // degrees that raise the low alarm

// The differences between the two temperatures: members, parameter ids, alarms.
struct sensor_s {
    bool pa;
    double health_s::*degrees;
    std::int16_t world_s::*shown;
    heat_s scenario_s::*heat;
    std::uint16_t parameter;
    std::uint16_t limit;  // id of the NVM parameter
    std::uint16_t highAlarm;
    std::uint16_t criticalAlarm;
    std::uint16_t lowAlarm;
    const char* name;
};

constexpr std::array sensors{
    sensor_s{true, &health_s::pa, &world_s::paTemp, &scenario_s::pa, RXE_PARAM_PA_TEMP, RXE_NVM_PA_HI_TEMP,
             RXE_PACKET_PA_TEMP_HI_ALARM, RXE_PACKET_PA_TEMP_CRIT_ALARM, RXE_PACKET_PA_TEMP_LO_ALARM, "PA"},
    sensor_s{false, &health_s::ambient, &world_s::ambTemp, &scenario_s::ambient, RXE_PARAM_AMB_TEMP,
             RXE_NVM_AMB_HI_TEMP, RXE_PACKET_AMB_TEMP_HI_ALARM, RXE_PACKET_AMB_TEMP_CRIT_ALARM,
             RXE_PACKET_AMB_TEMP_LO_ALARM, "ambient"},
};

// The share of full power, 0 to 1, in milliwatts; both in tenths of dBm.
double loadOf(std::int16_t power, std::int16_t full) {
    return power == notOnAir ? 0 : std::min(1.0, std::pow(10.0, (power - full) / 100.0));
}

// Shows the temperature to the host in whole degrees, cut to a signed byte's range.
void publish(const sensor_s& sensor, radio_s* radio, params_s* params) {
    const double degrees = std::clamp(radio->health.*sensor.degrees, -128.0, 127.0);
    radio->world.*sensor.shown = static_cast<std::int16_t>(std::lround(degrees));
    publishRecord(params, sensor.parameter, &(radio->world.*sensor.shown));
}

// Sends the alarm that is due, critical before high before low, and at most one in an interval.
// When the reason has gone the next alarm comes at once.
void sendAlarm(radio_s* radio, host_s* host, const sensor_s& sensor, std::int64_t* next) {
    const std::int64_t now = radio->now;
    const int degrees = radio->world.*sensor.shown;
    const int limit = nvmByte(&host->params, sensor.limit);
    const bool critical = degrees >= (radio->scenario.*sensor.heat).critical;
    const bool high = limit != 0 && degrees >= limit - nvmDegreesOffset;
    if (!critical && !high && degrees > lowLimit) {
        *next = now;
        return;
    }
    if (now < *next) {
        return;
    }
    if (critical) {
        noteHappening(now,
                      std::string(sensor.name) + " temperature critical at " + std::to_string(degrees) + " C",
                      &radio->timeline);
    }
    *next = now + alarmInterval;
    byte_writer_s writer = payloadWriter(host);
    put(&writer, static_cast<std::uint8_t>(degrees), 1);
    deliver(host, now,
            critical ? sensor.criticalAlarm
            : high   ? sensor.highAlarm
                     : sensor.lowAlarm,
            writer.size);
}

// Bit n-1: port n is connected. For an array bit n is element n, and all are 0 when the array
// itself is lost.
std::uint16_t connectedBits(const world_s& world) {
    const bool isArray = world.model == reader_model_e::QDX4400;
    std::uint16_t bits = 0;
    for (unsigned port = 1; port <= (isArray ? arrayElements : maxPorts); ++port) {
        const bool connected = world.antennas[port].connected && (!isArray || world.antennas[0].connected);
        bits = static_cast<std::uint16_t>(bits | (connected ? 1U << (port - 1) : 0U));
    }
    return bits;
}

// Tells the host that an antenna is lost or back, by the first enabled olio that transmits there;
// without such an olio there is nothing to tell.
void sendAntennaAlarm(host_s* host, std::int64_t now, unsigned port, bool connected) {
    for (std::uint16_t id = 1; id <= RXE_MAX_OLIOS; ++id) {
        OLIO_s olio{};
        getParam(&host->params, static_cast<std::uint16_t>(RXE_PARAM_OLIO + id), &olio);
        if (olio.enable != 0 && olio.transmitAntenna == port) {
            byte_writer_s writer = payloadWriter(host);
            put(&writer, id, 2);
            put(&writer, port, 2);
            deliver(host, now, connected ? RXE_PACKET_ANT_CONNECT_ALARM : RXE_PACKET_ANT_DISCONNECT_ALARM,
                    writer.size);
            return;
        }
    }
}

// Checks the antennas at the interval that the host has set; never when it is 0 or the firmware
// does not have the check. Returns when to check again.
std::int64_t checkAntennas(radio_s* radio, host_s* host) {
    health_s& health = radio->health;
    std::uint8_t interval = 0;
    const bool checks =
        getParam(&host->params, RXE_PARAM_ANTENNA_CHECK, &interval) == RXE_OK && interval != 0;
    if (!checks) {
        return forEver;
    }
    if (radio->now < health.nextAntennaCheck) {
        return health.nextAntennaCheck;
    }
    health.nextAntennaCheck = radio->now + interval * checkUnit;
    const std::uint16_t before = std::exchange(health.antennas, connectedBits(radio->world));
    if (before != health.antennas) {
        publishRecord(&host->params, RXE_PARAM_ANTENNA_STATE, &health.antennas);
    }
    for (unsigned port = 1; port <= maxPorts; ++port) {
        const unsigned bit = 1U << (port - 1);
        if (((before ^ health.antennas) & bit) != 0) {
            sendAntennaAlarm(host, radio->now, port, (health.antennas & bit) != 0);
        }
    }
    return health.nextAntennaCheck;
}

}  // namespace

void beginHealth(radio_s* radio, params_s* params) {
    health_s& health = radio->health;
    health = {};
    health.power = notOnAir;
    health.pa = radio->scenario.pa.idle;
    health.ambient = health.surroundings = radio->scenario.ambient.idle;
    for (const sensor_s& sensor : sensors) {
        publish(sensor, radio, params);
    }
    health.antennas = connectedBits(radio->world);
    publishRecord(params, RXE_PARAM_ANTENNA_STATE, &health.antennas);
    if (hasParameter(params->reader, RXE_PARAM_ECHO)) {
        // The array tries all its channels when it comes up.
        for (std::uint16_t channel = 1; channel <= RXE_MAX_CHANNELS; ++channel) {
            measureEcho(*radio, channel, radio->scenario.maxTxPower, params);
        }
    }
}

void countWork(radio_s* radio) {
    health_s& health = radio->health;
    if (health.power != radio->onAir) {
        health.power = radio->onAir;
        health.load = loadOf(radio->onAir, radio->scenario.maxTxPower);
    }
    health.work += health.load * static_cast<double>(radio->now - health.workedUntil);
    health.workedUntil = radio->now;
}

// Each temperature moves towards its target by the same share in the same time, whatever the
// time between two steps (a first-order lag).
std::int64_t stepHealth(radio_s* radio, host_s* host) {
    health_s& health = radio->health;
    const std::int64_t antennas = checkAntennas(radio, host);
    const std::int64_t elapsed = radio->now - health.steppedAt;
    // The antenna check has an interval of its own, and may be due earlier.
    if (elapsed < stepInterval) {
        return std::min(antennas, health.steppedAt + stepInterval);
    }
    const double load = health.work / static_cast<double>(elapsed);
    health.work = 0;
    health.steppedAt = radio->now;
    for (std::size_t i = 0; i < sensors.size(); ++i) {
        const sensor_s& sensor = sensors[i];
        const heat_s& heat = radio->scenario.*sensor.heat;
        const double rest = sensor.pa ? heat.idle : health.surroundings;
        const double target = rest + heat.rise * load;
        const double part = 1 - std::exp(-static_cast<double>(elapsed) * 1e-6 / heat.seconds);
        health.*sensor.degrees += (target - health.*sensor.degrees) * part;
        publish(sensor, radio, &host->params);
        sendAlarm(radio, host, sensor, &health.nextAlarm[i]);
    }
    return std::min(antennas, radio->now + stepInterval);
}

void setTemperature(radio_s* radio, host_s* host, bool pa, int degrees) {
    health_s& health = radio->health;
    (pa ? health.pa : health.ambient) = degrees;
    if (!pa) {
        health.surroundings = degrees;
    }
    const std::size_t index = pa ? 0 : 1;
    publish(sensors[index], radio, &host->params);
    health.nextAlarm[index] = radio->now;
    sendAlarm(radio, host, sensors[index], &health.nextAlarm[index]);
}

// About 20 dB below what it sends, and 45 dB below that once it is cancelled;
// an element whose amplifier has failed sends 30 dB less.
void measureEcho(const radio_s& radio, std::uint16_t channel, std::int16_t power, params_s* params) {
    // A series of its own, so that a measurement leaves the radio's draws as they are.
    random_s random{mix64(radio.scenario.seed ^ mix64(channel) ^ static_cast<std::uint64_t>(radio.now))};
    const auto around = [&](int tenths) {
        return static_cast<std::int16_t>(tenths - 15 + static_cast<int>(randomBelow(&random, 31)));
    };
    AAREchoResults echo{};
    for (unsigned i = 0; i < arrayElements; ++i) {
        const int sent = power - (radio.world.antennas[i + 1].paFailed ? 300 : 0);
        echo.txPwrx10[i] = around(sent - 15);
        echo.rxPwrPreEchox10[i] = around(sent - 200);
        echo.rxPwrPostEchox10[i] = around(sent - 650);
    }
    // Channel 1 has the first record.
    publishRecord(params, static_cast<std::uint16_t>(RXE_PARAM_ECHO + channel - 1), &echo);
}

void warnOfDatabase(radio_s* radio, host_s* host, bool noRoom) {
    reported_s& reported = radio->reported;
    const std::uint64_t capacity = radio->world.dbCapacity, used = usedRoom(reported);
    if (!reported.warned && used * 100 >= capacity * warningPercent) {
        reported.warned = true;
        byte_writer_s writer = payloadWriter(host);
        put(&writer, used, 4);
        put(&writer, capacity - used, 4);
        deliver(host, radio->now, RXE_PACKET_DB_WARNING, writer.size);
    }
    if (noRoom && !reported.full) {
        reported.full = true;
        deliver(host, radio->now, RXE_PACKET_DB_ERROR, 0);
    }
}

}  // namespace rxe
