// SPDX-License-Identifier: MIT
#include "population.hpp"

#include <algorithm>
#include <charconv>

#include "crc.hpp"
#include "random.hpp"

namespace rxe {
namespace {

constexpr std::uint8_t HEADER_SGTIN96 = 0x30;
constexpr std::size_t TID_SERIAL_BYTES = 6;

// Bits of the company prefix by partition value, GS1 TDS 1.13 table 14-2; the
// item reference has what is left of 44.
constexpr std::array<unsigned, 7> prefixBits{40, 37, 34, 30, 27, 24, 20};

std::uint64_t toNumber(const std::string& digits) {
    std::uint64_t number = 0;
    std::from_chars(digits.data(), digits.data() + digits.size(), number);
    return number;
}

struct bit_writer_s {
    std::span<std::uint8_t> out;
    std::size_t bit = 0;
};

void putBits(bit_writer_s* writer, std::uint64_t value, unsigned bits) {
    for (unsigned i = bits; i-- > 0; ++writer->bit) {
        if (((value >> i) & 1) != 0) {
            std::uint8_t& byte = writer->out[writer->bit / 8];
            byte = static_cast<std::uint8_t>(byte | 0x80 >> (writer->bit % 8));
        }
    }
}

void putSerial(std::span<std::uint8_t> bytes, std::uint64_t serial) {
    for (auto byte = bytes.rbegin(); byte != bytes.rend() && serial != 0; ++byte) {
        *byte = static_cast<std::uint8_t>(serial);
        serial >>= 8;
    }
}

void writeEpc(const tag_generator_s& generator, std::uint64_t serial, tag_s* tag) {
    if (generator.epcPrefix.empty()) {
        const auto epc = sgtin96(generator.sgtin, serial);
        std::copy(epc.begin(), epc.end(), tag->epc.begin());
        return;
    }
    tag->epcBits = generator.epcBits;
    std::copy(generator.epcPrefix.begin(), generator.epcPrefix.end(), tag->epc.begin());
    putSerial(std::span(tag->epc).first(generator.epcBits / 8U).subspan(generator.epcPrefix.size()), serial);
}

}  // namespace

std::array<std::uint8_t, 12> sgtin96(const sgtin_s& item, std::uint64_t serial) {
    std::array<std::uint8_t, 12> epc{};
    const auto partition = static_cast<unsigned>(12 - item.companyPrefix.size());
    bit_writer_s writer{.out = epc};
    putBits(&writer, HEADER_SGTIN96, 8);
    putBits(&writer, item.filter, 3);
    putBits(&writer, partition, 3);
    putBits(&writer, toNumber(item.companyPrefix), prefixBits[partition]);
    putBits(&writer, toNumber(item.itemReference), 44 - prefixBits[partition]);
    putBits(&writer, serial, 38);
    return epc;
}

void finishTag(tag_s* tag) {
    const std::size_t bytes = tag->epcBits / 8U;
    tag->pc = static_cast<std::uint16_t>((tag->epcBits / 16U) << 11);
    std::array<std::uint8_t, 64> backscatter{static_cast<std::uint8_t>(tag->pc >> 8),
                                             static_cast<std::uint8_t>(tag->pc)};
    std::copy_n(tag->epc.begin(), bytes, backscatter.begin() + 2);
    tag->crc = crc16(std::span(backscatter).first(2 + bytes));
}

std::vector<tag_s> makePopulation(const scenario_s& scenario) {
    std::vector<tag_s> tags(scenario.tags.count);
    for (std::size_t i = 0; i < tags.size(); ++i) {
        tag_s& tag = tags[i];
        const std::uint64_t serial = scenario.tags.firstSerial + i;
        writeEpc(scenario.tags, serial, &tag);
        finishTag(&tag);
        tag.tid = scenario.tags.tidPrefix;
        tag.tid.resize(tag.tid.size() + TID_SERIAL_BYTES);
        putSerial(std::span(tag.tid).last(TID_SERIAL_BYTES), serial);
        tag.place = mix64(scenario.seed ^ mix64(i + 1));
    }
    return tags;
}

}  // namespace rxe
