// SPDX-License-Identifier: MIT
// A channel is taken for as long as it may be used. What it was used for is noted when the
// carrier leaves it, and decides when it is free again (channels.hpp).
#include "carrier.hpp"

#include <algorithm>
#include <utility>

#include "clock.hpp"
#include "delivery.hpp"
#include "health.hpp"
#include "rules.hpp"

namespace rxe {
namespace {

constexpr std::int64_t powerUpTime = 1500;  // microseconds from the rise of the field until a tag is ready
constexpr std::int64_t restPoll = 10000;    // microseconds between two looks for a channel that may be used

// Counts the time that the carrier has been on against its channel.
void endUse(run_s* run) {
    const std::int64_t now = run->radio->now;
    if (run->carrierOn && now > run->carrierSince) {
        noteUse({run->channel.frequency, run->carrierSince, now}, &run->radio->channelUses);
        run->carrierSince = now;
    }
}

// Sends one of the four CW packets; those with a time have the engine's clock at the end.
void sendCarrier(const run_s& run, const planned_olio_s& planned, std::uint16_t rawType) {
    byte_writer_s writer = payloadWriter(run.host);
    put(&writer, planned.id, 2);
    put(&writer, planned.olio.transmitAntenna, 2);
    put(&writer, run.channel.frequency, 4);
    if (rawType == RXE_PACKET_CW_ON_TIMED || rawType == RXE_PACKET_CW_OFF_TIMED) {
        put(&writer, static_cast<std::uint64_t>(run.radio->now), 8);
    }
    deliver(run.host, run.radio->now, rawType, writer.size);
}

// Sets the field to the channel. Returns the transmit power, tenths of dBm: the olio's, or
// the channel's own limit when that is less.
std::int16_t tune(run_s* run, const planned_olio_s& planned, field_s* field) {
    const std::int16_t asked = planned.olio.transmitPower;
    const std::int16_t power = powerOn(run->channel, planned.olio);
    if (power < asked) {
        byte_writer_s writer = payloadWriter(run->host);
        put(&writer, planned.id, 2);
        put(&writer, run->channel.frequency, 4);
        put(&writer, static_cast<std::uint16_t>(power), 2);
        deliver(run->host, run->radio->now, RXE_PACKET_CHAN_PWR_LMT, writer.size);
    }
    if (field->carrier.power != power / 10.0 || field->carrier.kilohertz != run->channel.frequency) {
        field->carrier.power = power / 10.0;
        field->carrier.kilohertz = run->channel.frequency;
        field->changes = run->radio->world.changes - 1;  // other tags are in reach: look anew
    }
    return power;
}

// Turns to the next channel that may be used for `least` microseconds, with the carrier off
// while there is none.
bool takeChannel(run_s* run, std::size_t position, std::int64_t least) {
    const radio_s& radio = *run->radio;
    const std::vector<planned_channel_s>& channels = run->plan.channels;
    for (;;) {
        for (std::size_t i = 0; i < channels.size(); ++i) {
            const planned_channel_s& channel = channels[run->nextChannel++ % channels.size()];
            if (channelIsFree(radio.channelUses, channel.frequency, radio.now, least)) {
                run->channel = channel;
                return true;
            }
        }
        if (mustStop(run) || radio.now >= run->olioEnd) {
            return false;
        }
        carrierOff(run, position);
        advance(run->radio, run->host, restPoll);
    }
}

}  // namespace

void carrierOff(run_s* run, std::size_t position) {
    if (!run->carrierOn) {
        return;
    }
    radio_s& radio = *run->radio;
    const planned_olio_s& planned = run->plan.olios[position];
    endUse(run);
    run->carrierOn = false;
    darken(radio.now, &radio.world, &run->olios[position].field);
    if (!run->carrierUntold) {
        sendCarrier(*run, planned, RXE_PACKET_CW_OFF);
    }
    sendCarrier(*run, planned, RXE_PACKET_CW_OFF_TIMED);
    radio.onAir = notOnAir;
}

bool fits(const run_s& run, double microseconds) {
    // Parts of a microsecond add up to one more at the most.
    return run.radio->now + static_cast<std::int64_t>(microseconds) + 2 <= run.channelLimit;
}

bool everFits(const run_s& run, double microseconds) {
    return std::ranges::all_of(run.plan.channels, [&](const planned_channel_s& channel) {
        return static_cast<double>(longestStay(channel.frequency) - powerUpTime) > microseconds + 2;
    });
}

bool hop(run_s* run, std::size_t position, double least) {
    radio_s& radio = *run->radio;
    const planned_olio_s& planned = run->plan.olios[position];
    if (planned.inventory.session == 0) {  // without the carrier all of its flags fall back to A
        run->olios[position].wantsB = planned.inventory.target == 1;
    }
    run->channelOver = false;
    if (run->accessing && run->carrierOn) {
        carrierOff(run, position);
    }
    run->carrierUntold = run->accessing;
    endUse(run);
    if (!takeChannel(run, position, powerUpTime + static_cast<std::int64_t>(least) + 2)) {
        return false;
    }
    const std::int16_t power = tune(run, planned, &run->olios[position].field);
    if (!run->carrierUntold) {
        sendCarrier(*run, planned, RXE_PACKET_CW_ON);
    }
    sendCarrier(*run, planned, RXE_PACKET_CW_ON_TIMED);
    run->carrierOn = true;
    run->carrierSince = radio.now;
    run->channelLimit = channelLimit(radio.channelUses, run->channel.frequency, radio.now);
    radio.onAir = power;
    if (planned.beam) {
        measureEcho(radio, run->channel.number, power, &run->host->params);
    }
    advance(run->radio, run->host, powerUpTime);
    return true;
}

void waitOnAir(run_s* run, std::size_t position, std::int64_t end) {
    const radio_s& radio = *run->radio;
    while (radio.now < end && !stopRequested(*run->host)) {
        if (radio.now >= run->channelLimit) {
            run->hopped = true;
            if (!hop(run, position, timeOfOneTag(run->olios[position]))) {
                return;
            }
        }
        advance(run->radio, run->host, std::min(end, run->channelLimit) - radio.now);
    }
}

void beginAccesses(run_s* run) {
    run->accessing = true;
}

void endAccesses(run_s* run, std::size_t position) {
    run->accessing = false;
    if (std::exchange(run->carrierUntold, false) && run->carrierOn) {
        sendCarrier(*run, run->plan.olios[position], RXE_PACKET_CW_ON);
    }
}

}  // namespace rxe
