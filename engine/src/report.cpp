// SPDX-License-Identifier: MIT
#include "report.hpp"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <numbers>

#include "delivery.hpp"
#include "health.hpp"

namespace rxe {
namespace {

constexpr double degree = std::numbers::pi / 180;
// Degrees. The error of a bearing: `bestBearing` at a strong signal, both together at the
// weakest one that is decoded.
constexpr double bestBearing = 1.0, worstBearing = 10.0;
constexpr float massDepth = 10;      // dB below the strongest beam that still count for the centre of mass
constexpr double staticFloor = -84;  // dBm that a static peak threshold counts from
constexpr int beamConfidence = 25;   // of the beam's own direction, where only one beam listened

struct tag_packet_s {
    std::uint16_t rawType;
    std::uint32_t fields;  // 0: those that the host has asked for
};

// Each kind of tag packet that the host has enabled is sent for each read, in this order.
constexpr std::array tagPackets{
    tag_packet_s{RXE_PACKET_TAG_INFO_CUSTOM, 0},
    tag_packet_s{RXE_PACKET_TAG_INFO_SHORT, RXE_FIELD_EPC},
    tag_packet_s{RXE_PACKET_TAG_INFO_LONG, RXE_FIELD_EPC | RXE_FIELD_PC | RXE_FIELD_CRC |
                                               RXE_FIELD_ANTENNA_ID | RXE_FIELD_RSSI | RXE_FIELD_CHANNEL_ID |
                                               RXE_FIELD_TAG_COUNT},
    tag_packet_s{RXE_PACKET_TAG_INFO_COMPLETE, allFields},
};

// A confidence, cut to 0 to 100.
std::uint8_t percent(double value) {
    return static_cast<std::uint8_t>(std::clamp(std::lround(value), 0L, 100L));
}

// Where the levels on the beams around the strongest have their centre of mass:
// a tag beyond the outermost ring is drawn inwards.
direction_s centreOfMass(const beam_s& listening, direction_s seen) {
    const std::vector<std::uint16_t> beams = heatMapBeams(listening.polarisation);
    const auto lossOf = [&](std::uint16_t id) { return beamLoss(beamOf(id), seen); };
    const float least = lossOf(std::ranges::min(beams, {}, lossOf));
    double x = 0, y = 0, down = 0;
    for (const std::uint16_t id : beams) {
        const beam_s beam = beamOf(id);
        const float loss = beamLoss(beam, seen);
        const double mass = loss > least + massDepth ? 0 : std::pow(10, -loss / 10);
        const double out = std::sin(beam.elevation * degree);
        x += mass * out * std::cos(beam.azimuth * degree);
        y += mass * out * std::sin(beam.azimuth * degree);
        down += mass * std::cos(beam.elevation * degree);
    }
    return directionTo({}, {static_cast<float>(x), static_cast<float>(y), static_cast<float>(-down)});
}

// Whether a level stands out far enough for a bearing: by the peak threshold
// above what the link decodes, or above a fixed level.
bool isPeak(const plan_s& plan, const active_olio_s& olio, float level) {
    return level >= (plan.staticThreshold ? staticFloor : olio.sensitivity) + plan.peakThreshold;
}

// Works out bearing and location. With all beams of a polarisation listening the bearing comes
// from the tag's direction, with an error; otherwise it is the beam's own direction.
void findBearing(run_s* run, const active_olio_s& olio, const sighting_s& sighting, tag_read_s* read) {
    const carrier_s& carrier = olio.field.carrier;
    const beam_s& beam = carrier.allBeams ? carrier.direction : carrier.listening;
    double azimuth = beam.azimuth, elevation = beam.elevation;
    std::uint8_t confidence = beamConfidence;
    if (carrier.allBeams && isPeak(run->plan, olio, sighting.level)) {
        random_s* const random = &run->radio->random;
        const direction_s seen = run->plan.centreOfMass
                                     ? centreOfMass(carrier.listening, sighting.lit.path.seen)
                                     : sighting.lit.path.seen;
        const double snr = std::max(0.0, sighting.level - olio.sensitivity);
        const double error = bestBearing + worstBearing * std::pow(10, -snr / 20);
        elevation = std::abs(static_cast<double>(seen.elevation) + error * normal(random));
        // The closer to straight down, the less an azimuth means.
        const double spread = error / std::max(std::sin(elevation * degree), 0.1);
        azimuth = std::fmod(static_cast<double>(seen.azimuth) + spread * normal(random) + 720, 360);
        confidence = percent(40 + 2 * snr);
    }
    read->azimuth = static_cast<std::uint16_t>(azimuth * 10);
    read->elevation = static_cast<std::uint16_t>(elevation * 10);
    read->azimuthConf = read->elevationConf = confidence;
    // How far the plane of the tags lies below the array: by the host's heights, in tenths of its
    // unit, or when it has set none the floor, in tenths of a metre.
    const double height = run->plan.arrayHeight != 0
                              ? run->plan.arrayHeight - run->plan.tagHeight
                              : static_cast<double>(run->radio->world.antennas[0].place.z) * 10;
    const double out = std::clamp(height * std::tan(std::min(elevation, 80.0) * degree), -32000.0, 32000.0);
    read->locationX = static_cast<std::int16_t>(out * std::cos(azimuth * degree));
    read->locationY = static_cast<std::int16_t>(out * std::sin(azimuth * degree));
    read->locConf = confidence;
}

// Sends the tag packets that the host wants and counts the read once.
void sendTag(run_s* run, const tag_read_s& read) {
    for (const tag_packet_s& packet : tagPackets) {
        if (wanted(*run->host, packet.rawType)) {
            const std::uint32_t fields = packet.fields == 0 ? run->plan.fields : packet.fields;
            deliver(run->host, run->radio->now, packet.rawType,
                    encodeTag(read, fields, payloadRoom(run->host)));
        }
    }
    ++run->reads;
}

// The level on every beam of the heat map, from the one that was heard.
void sendLevels(run_s* run, const active_olio_s& olio, const sighting_s& sighting) {
    if (!olio.field.carrier.beam || !wanted(*run->host, RXE_PACKET_PARALLEL_RSSI_DEBUG)) {
        return;
    }
    const std::vector<std::uint16_t> beams = heatMapBeams(olio.field.carrier.listening.polarisation);
    byte_writer_s writer = payloadWriter(run->host);
    put(&writer, beams.size(), 2);
    for (const std::uint16_t id : beams) {
        const float level =
            sighting.level + sighting.lit.path.listeningLoss - beamLoss(beamOf(id), sighting.lit.path.seen);
        put(&writer, id, 2);
        put(&writer, std::bit_cast<std::uint32_t>(level), 4);
    }
    deliver(run->host, run->radio->now, RXE_PACKET_PARALLEL_RSSI_DEBUG, writer.size);
}

}  // namespace

bool reportTag(run_s* run, std::size_t position, const sighting_s& sighting) {
    radio_s& radio = *run->radio;
    const planned_olio_s& planned = run->plan.olios[position];
    const active_olio_s& olio = run->olios[position];
    const backscatter_s& reply = sighting.reply;
    const tag_key_t key = keyOf({reply.epc, (reply.epcBits + 7U) / 8});
    const seen_e seen = noteSeen(key, radio.world.dbCapacity, &radio.reported);
    ++run->passReads;
    const std::uint16_t antenna = planned.olio.transmitAntenna;
    const std::uint32_t tag = sighting.lit.index;
    noteSingulated(antenna, tag, radio.now, &radio.world);
    if (seen == seen_e::NEW) {  // with NO_ROOM nothing is known about earlier reads
        ++run->passUniques;
        run->lastUnique = radio.now;
    }
    if (seen != seen_e::KNOWN) {
        warnOfDatabase(run->radio, run->host, seen == seen_e::NO_ROOM);
    }
    if (!passesIdFilters(run->plan.idFilters, reply.epc, reply.epcBits)) {
        noteSuppressed(suppressor_e::ID_FILTER, antenna, tag, radio.now, &radio.world);
        return false;
    }
    const report_state_s* const state =
        passesLastReport(run->plan.lastReport, key, planned.id, radio.now, &radio.reported);
    if (state == nullptr) {
        noteSuppressed(suppressor_e::REPORT_FILTER, antenna, tag, radio.now, &radio.world);
        return false;
    }
    const auto rssi = static_cast<std::int8_t>(std::clamp(std::lround(sighting.level), -128L, 127L));
    tag_read_s read{.epc = reply.epc,
                    .epcBits = reply.epcBits,
                    .firstSeen = static_cast<std::uint64_t>(state->firstSeen),
                    .lastSeen = static_cast<std::uint64_t>(radio.now),
                    .roSpec = planned.id,
                    .specIndex = 1,
                    .invParam = planned.olio.inventoryIndex,
                    .antenna = antenna,
                    .channel = run->channel.number,
                    .rssiLin = std::pow(10.0F, sighting.level / 10),
                    .phase = backscatterPhase(sighting.lit.path.metres, run->channel.frequency, antenna),
                    .tagCount = static_cast<std::uint16_t>(std::min(state->merged, 0xFFFFU)),
                    .pc = reply.pc,
                    .xpc1 = reply.xpc1,
                    .xpc2 = reply.xpc2,
                    .crc = reply.crc,
                    .rssi = rssi};
    if (olio.field.carrier.beam) {
        findBearing(run, olio, sighting, &read);
    }
    sendTag(run, read);
    sendLevels(run, olio, sighting);
    return true;
}

void reportFake(run_s* run, const tag_s& tag) {
    const backscatter_s reply = backscatterOf(tag);
    const auto now = static_cast<std::uint64_t>(run->radio->now);
    sendTag(run, {.epc = reply.epc,
                  .epcBits = reply.epcBits,
                  .firstSeen = now,
                  .lastSeen = now,
                  .antenna = 1,
                  .pc = reply.pc,
                  .crc = reply.crc,
                  .rssi = -50});
}

}  // namespace rxe
