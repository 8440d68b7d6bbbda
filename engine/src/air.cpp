// SPDX-License-Identifier: MIT
#include "air.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>

namespace rxe {
namespace {

// Link budget in free space: a 6 dBi antenna, a 2 dBi tag, 3 dB lost between
// circular and linear polarisation, 6 dB in the tag's modulation (Dobkin, The
// RF in RFID). Tags of today wake up at -18 dBm; the receiver hears -84 dBm.
constexpr double READER_GAIN = 6, TAG_GAIN = 2, POLARISATION = 3, MODULATION = 6;
constexpr double TAG_SENSITIVITY = -18, RECEIVER_SENSITIVITY = -84;
constexpr double MID_BAND_METRES = 0.3277;       // wavelength at 915 MHz
constexpr double NEAREST = 0.5, FARTHEST = 4.5;  // metres from any antenna
constexpr double LIGHT_KM = 299792.458;          // per second, so that kHz give metres

// Gen2 error codes (EPC Gen2 v2.0.1, annex I).
constexpr std::uint8_t TAG_NOT_SUPPORTED = 0x01, TAG_MEMORY_OVERRUN = 0x03;

double pathLoss(double metres) {
    return 20 * std::log10(4 * std::numbers::pi * metres / MID_BAND_METRES);
}

void appendWord(std::uint16_t word, std::vector<std::uint8_t>* bytes) {
    bytes->push_back(static_cast<std::uint8_t>(word >> 8));
    bytes->push_back(static_cast<std::uint8_t>(word));
}

// Bank 0: kill and access password, both zero. Bank 1: CRC, PC, EPC.
std::vector<std::uint8_t> bankOf(const tag_s& tag, std::uint8_t bank) {
    std::vector<std::uint8_t> bytes;
    switch (bank) {
        case 0:
            return std::vector<std::uint8_t>(8);
        case 1:
            appendWord(tag.crc, &bytes);
            appendWord(tag.pc, &bytes);
            bytes.insert(bytes.end(), tag.epc.begin(), tag.epc.begin() + tag.epcBits / 8);
            return bytes;
        case 2:
            return tag.tid;
        default:  // these tags have no user memory
            return bytes;
    }
}

access_answer_s tagError(std::uint8_t code) {
    return {RXE_ACCESS_RESULT_TAG_ERROR, {0x01, code}};
}

}  // namespace

std::vector<heard_tag_s> heardTags(const std::vector<tag_s>& tags, const planned_olio_s& planned,
                                   std::int8_t rssiThreshold) {
    std::vector<heard_tag_s> heard;
    if (!planned.connected) {
        return heard;
    }
    const double power = (planned.olio.transmitPower - planned.cableLoss) / 10.0;
    for (std::size_t i = 0; i < tags.size(); ++i) {
        const std::uint64_t place = mix64(tags[i].place ^ planned.olio.transmitAntenna);
        const double metres = NEAREST + (FARTHEST - NEAREST) * unitInterval(place);
        const double oneWay = READER_GAIN + TAG_GAIN - POLARISATION - pathLoss(metres);
        const double atTag = power + oneWay;
        const double atReader = atTag + oneWay - MODULATION - planned.cableLoss / 10.0;
        if (atTag < TAG_SENSITIVITY || atReader < RECEIVER_SENSITIVITY || atReader < rssiThreshold) {
            continue;
        }
        const double turn = unitInterval(mix64(place));
        const double angle = turn * 2 * std::numbers::pi;
        heard.push_back(
            {.tag = static_cast<std::uint32_t>(i),
             .metres = static_cast<float>(metres),
             .rssi = static_cast<std::int8_t>(std::clamp(std::lround(atReader), -128L, 127L)),
             .x = static_cast<std::int16_t>(metres * 10 * std::cos(angle)),
             .y = static_cast<std::int16_t>(metres * 10 * std::sin(angle)),
             .azimuth = static_cast<std::uint16_t>(turn * 3600),
             .elevation = static_cast<std::uint16_t>(std::atan2(metres, 3.0) * 1800 / std::numbers::pi)});
    }
    return heard;
}

float backscatterPhase(float metres, std::uint32_t frequency) {
    const double turns = 2.0 * metres * frequency / LIGHT_KM;
    return static_cast<float>((turns - std::floor(turns)) * 2 * std::numbers::pi);
}

access_answer_s answerAccess(const tag_s& tag, const ACCESS_OP_s& access) {
    if (access.type != RXE_ACCESS_READ) {
        return tagError(TAG_NOT_SUPPORTED);
    }
    const std::vector<std::uint8_t> bank = bankOf(tag, access.membank);
    const std::size_t first = access.wordPointer * 2U;
    const std::size_t words = access.wordCount & 0xFFU;
    if (first >= bank.size() || first + words * 2 > bank.size()) {
        return tagError(TAG_MEMORY_OVERRUN);
    }
    // A word count of 0 asks for the bank to its end.
    const std::size_t end = words == 0 ? bank.size() : first + words * 2;
    return {RXE_ACCESS_RESULT_OK, std::vector<std::uint8_t>(bank.begin() + static_cast<std::ptrdiff_t>(first),
                                                            bank.begin() + static_cast<std::ptrdiff_t>(end))};
}

}  // namespace rxe
