// SPDX-License-Identifier: MIT
#include "health.hpp"

#include <algorithm>
#include <cmath>
#include <utility>

#include "delivery.hpp"
#include "engine.hpp"
#include "events.hpp"
#include "random.hpp"

namespace rxe {
namespace {

constexpr std::int64_t STEP = 250000;             // microseconds between two looks at the temperatures
constexpr std::int64_t ALARM_INTERVAL = 5000000;  // an alarm repeats at this rate while its reason lasts
constexpr std::int64_t CHECK_UNIT = 100000;       // of the antenna check's interval
constexpr int LOW = -20;                          // degrees that raise the low alarm

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

// The part of full power that this much is, 0 to 1.
double loadOf(std::int16_t power, std::int16_t full) {
    return power == NOT_ON_AIR ? 0 : std::min(1.0, std::pow(10.0, (power - full) / 100.0));
}

void publish(engine_s* engine, const sensor_s& sensor) {
    const double degrees = std::clamp(engine->radio.health.*sensor.degrees, -128.0, 127.0);
    engine->radio.world.*sensor.shown = static_cast<std::int16_t>(std::lround(degrees));
    publishRecord(&engine->params, sensor.parameter, &(engine->radio.world.*sensor.shown));
}

void sendAlarm(engine_s* engine, const sensor_s& sensor, std::int64_t* next) {
    const std::int64_t now = engine->radio.now;
    const int degrees = engine->radio.world.*sensor.shown;
    const int limit = nvmByte(&engine->params, sensor.limit);
    const bool critical = degrees >= (engine->scenario.*sensor.heat).critical;
    const bool high = limit != 0 && degrees >= limit - NVM_DEGREES_OFFSET;
    if (!critical && !high && degrees > LOW) {
        *next = now;
        return;
    }
    if (now < *next) {
        return;
    }
    if (critical) {
        noteHappening(
            engine, std::string(sensor.name) + " temperature critical at " + std::to_string(degrees) + " C");
    }
    *next = now + ALARM_INTERVAL;
    byte_writer_s writer = payloadWriter(engine);
    put(&writer, static_cast<std::uint8_t>(degrees), 1);
    deliver(engine, critical ? sensor.criticalAlarm : high ? sensor.highAlarm : sensor.lowAlarm, writer.size);
}

// Of an array the elements, counted from bit 0, when the array itself is there.
std::uint16_t connectedBits(const world_s& world) {
    const bool isArray = world.model == reader_model_e::QDX4400;
    std::uint16_t bits = 0;
    for (unsigned port = 1; port <= (isArray ? ELEMENTS : MAX_PORTS); ++port) {
        const bool connected = world.antennas[port].connected && (!isArray || world.antennas[0].connected);
        bits = static_cast<std::uint16_t>(bits | (connected ? 1U << (port - 1) : 0U));
    }
    return bits;
}

// Tells the host of an antenna that some enabled olio transmits on.
void sendAntennaAlarm(engine_s* engine, unsigned port, bool connected) {
    for (std::uint16_t id = 1; id <= RXE_MAX_OLIOS; ++id) {
        OLIO_s olio{};
        getParam(&engine->params, static_cast<std::uint16_t>(RXE_PARAM_OLIO + id), &olio);
        if (olio.enable != 0 && olio.transmitAntenna == port) {
            byte_writer_s writer = payloadWriter(engine);
            put(&writer, id, 2);
            put(&writer, port, 2);
            deliver(engine, connected ? RXE_PACKET_ANT_CONNECT_ALARM : RXE_PACKET_ANT_DISCONNECT_ALARM,
                    writer.size);
            return;
        }
    }
}

// At the interval that the host has set; 0, and a firmware without the check,
// never look. Returns when to look again.
std::int64_t checkAntennas(engine_s* engine) {
    health_s& health = engine->radio.health;
    std::uint8_t interval = 0;
    const bool checks =
        getParam(&engine->params, RXE_PARAM_ANTENNA_CHECK, &interval) == RXE_OK && interval != 0;
    if (!checks) {
        return FOR_EVER;
    }
    if (engine->radio.now < health.nextAntennaCheck) {
        return health.nextAntennaCheck;
    }
    health.nextAntennaCheck = engine->radio.now + interval * CHECK_UNIT;
    const std::uint16_t before = std::exchange(health.antennas, connectedBits(engine->radio.world));
    if (before != health.antennas) {
        publishRecord(&engine->params, RXE_PARAM_ANTENNA_STATE, &health.antennas);
    }
    for (unsigned port = 1; port <= MAX_PORTS; ++port) {
        const unsigned bit = 1U << (port - 1);
        if (((before ^ health.antennas) & bit) != 0) {
            sendAntennaAlarm(engine, port, (health.antennas & bit) != 0);
        }
    }
    return health.nextAntennaCheck;
}

}  // namespace

void beginHealth(engine_s* engine) {
    health_s& health = engine->radio.health;
    health = {};
    health.power = NOT_ON_AIR;
    health.pa = engine->scenario.pa.idle;
    health.ambient = health.surroundings = engine->scenario.ambient.idle;
    for (const sensor_s& sensor : sensors) {
        publish(engine, sensor);
    }
    health.antennas = connectedBits(engine->radio.world);
    publishRecord(&engine->params, RXE_PARAM_ANTENNA_STATE, &health.antennas);
    if (hasParameter(engine->params.reader, RXE_PARAM_ECHO)) {
        // The array tries all its channels when it comes up.
        for (std::uint16_t channel = 1; channel <= RXE_MAX_CHANNELS; ++channel) {
            measureEcho(engine, channel, engine->scenario.maxTxPower);
        }
    }
}

void countWork(engine_s* engine) {
    const radio_s& radio = engine->radio;
    health_s& health = engine->radio.health;
    if (health.power != radio.onAir) {
        health.power = radio.onAir;
        health.load = loadOf(radio.onAir, engine->scenario.maxTxPower);
    }
    health.work += health.load * static_cast<double>(radio.now - health.workedUntil);
    health.workedUntil = radio.now;
}

std::int64_t stepHealth(engine_s* engine) {
    radio_s& radio = engine->radio;
    health_s& health = radio.health;
    const std::int64_t antennas = checkAntennas(engine);
    const std::int64_t elapsed = radio.now - health.steppedAt;
    if (elapsed < STEP) {
        return std::min(antennas, health.steppedAt + STEP);
    }
    const double load = health.work / static_cast<double>(elapsed);
    health.work = 0;
    health.steppedAt = radio.now;
    for (std::size_t i = 0; i < sensors.size(); ++i) {
        const sensor_s& sensor = sensors[i];
        const heat_s& heat = engine->scenario.*sensor.heat;
        const double rest = sensor.pa ? heat.idle : health.surroundings;
        const double target = rest + heat.rise * load;
        const double part = 1 - std::exp(-static_cast<double>(elapsed) * 1e-6 / heat.seconds);
        health.*sensor.degrees += (target - health.*sensor.degrees) * part;
        publish(engine, sensor);
        sendAlarm(engine, sensor, &health.nextAlarm[i]);
    }
    return std::min(antennas, radio.now + STEP);
}

void setTemperature(engine_s* engine, bool pa, int degrees) {
    health_s& health = engine->radio.health;
    (pa ? health.pa : health.ambient) = degrees;
    if (!pa) {
        health.surroundings = degrees;
    }
    const std::size_t index = pa ? 0 : 1;
    publish(engine, sensors[index]);
    health.nextAlarm[index] = engine->radio.now;
    sendAlarm(engine, sensors[index], &health.nextAlarm[index]);
}

// About 20 dB below what it sends, and 45 dB below that once it is cancelled;
// an element whose amplifier has failed sends 30 dB less.
void measureEcho(engine_s* engine, std::uint16_t channel, std::int16_t power) {
    random_s random{
        mix64(engine->scenario.seed ^ mix64(channel) ^ static_cast<std::uint64_t>(engine->radio.now))};
    const auto around = [&](int tenths) {
        return static_cast<std::int16_t>(tenths - 15 + static_cast<int>(randomBelow(&random, 31)));
    };
    AAREchoResults echo{};
    for (unsigned i = 0; i < ELEMENTS; ++i) {
        const int sent = power - (engine->radio.world.antennas[i + 1].paFailed ? 300 : 0);
        echo.txPwrx10[i] = around(sent - 15);
        echo.rxPwrPreEchox10[i] = around(sent - 200);
        echo.rxPwrPostEchox10[i] = around(sent - 650);
    }
    // Channel 1 has the first record.
    publishRecord(&engine->params, static_cast<std::uint16_t>(RXE_PARAM_ECHO + channel - 1), &echo);
}

}  // namespace rxe
