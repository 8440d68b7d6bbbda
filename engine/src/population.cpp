// SPDX-License-Identifier: MIT
#include "population.hpp"

#include <algorithm>
#include <charconv>
#include <limits>

#include "crc.hpp"
#include "random.hpp"

namespace rxe {
namespace {

constexpr std::size_t tidSerialBytes = 6;
constexpr unsigned serialBits = 38;

// Bits of the company prefix by partition value (GS1 TDS 1.13, table 14-2).
constexpr std::array<unsigned, 7> prefixBits{40, 37, 34, 30, 27, 24, 20};

// The layout behind the partition value: company prefix and reference take `together` bits and
// have `digits` digits together; a serial number of `serialBits` follows. In a scheme without a
// reference the serial number takes its place, and zeros follow. `digits` is 0 for a serial
// number that only its bits limit.
struct scheme_s {
    scheme_e scheme;
    std::uint8_t header;
    unsigned together;
    std::size_t digits;
    bool hasReference;
};

constexpr std::array schemes{
    scheme_s{scheme_e::SGTIN_96, 0x30, 44, 13, true},
    scheme_s{scheme_e::GRAI_96, 0x33, 44, 12, true},
    scheme_s{scheme_e::SSCC_96, 0x31, 58, 17, false},
    scheme_s{scheme_e::GIAI_96, 0x34, 82, 0, false},
};

// The row of a scheme; PREFIX does not have one.
const scheme_s& rowOf(scheme_e scheme) {
    return *std::ranges::find(schemes, scheme, &scheme_s::scheme);
}

std::uint64_t toNumber(const std::string& digits) {
    std::uint64_t number = 0;
    std::from_chars(digits.data(), digits.data() + digits.size(), number);
    return number;
}

// Writes numbers of any length, most significant bit first, into zeros.
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

// Writes the serial number to the end of the bytes; the bytes in front of it keep their values.
void putSerial(std::span<std::uint8_t> bytes, std::uint64_t serial) {
    for (auto byte = bytes.rbegin(); byte != bytes.rend() && serial != 0; ++byte) {
        *byte = static_cast<std::uint8_t>(serial);
        serial >>= 8;
    }
}

void putWord(std::uint16_t word, std::uint8_t* bytes) {
    bytes[0] = static_cast<std::uint8_t>(word >> 8);
    bytes[1] = static_cast<std::uint8_t>(word);
}

// 0 for a company prefix of 12 digits to 6 for one of 6 (GS1 TDS 1.13, table 14-2).
unsigned partitionOf(const naming_s& naming) {
    return static_cast<unsigned>(12 - naming.item.companyPrefix.size());
}

// Header, filter, partition, company prefix, reference, serial number.
std::array<std::uint8_t, 12> epc96(const scheme_s& scheme, const sgtin_s& item, std::uint64_t serial) {
    std::array<std::uint8_t, 12> epc{};
    const auto partition = static_cast<unsigned>(12 - item.companyPrefix.size());
    bit_writer_s writer{.out = epc};
    putBits(&writer, scheme.header, 8);
    putBits(&writer, item.filter, 3);
    putBits(&writer, partition, 3);
    putBits(&writer, toNumber(item.companyPrefix), prefixBits[partition]);
    if (scheme.hasReference) {
        putBits(&writer, toNumber(item.itemReference), scheme.together - prefixBits[partition]);
        putBits(&writer, serial, serialBits);
    } else {
        putBits(&writer, serial, scheme.together - prefixBits[partition]);
    }
    return epc;
}

// Whole numbers, exact up to 2^64.
std::uint64_t powerOf(std::uint64_t base, std::size_t exponent) {
    std::uint64_t power = 1;
    for (std::size_t i = 0; i < exponent; ++i) {
        power *= base;
    }
    return power;
}

// The point at the share `part`, 0 to 1, of the way.
float between(float from, float to, double part) {
    return static_cast<float>(from + (to - from) * part);
}

// 0 to 1: where the `index`th of `count` equal steps from end to end is; 0.5 for a single one.
double stepOf(std::uint64_t index, std::uint64_t count) {
    return count < 2 ? 0.5 : static_cast<double>(index) / static_cast<double>(count - 1);
}

// `inArrival` counts the tags of one arrival, `random` is drawn anew for each tag.
place_s placeIn(const placement_s& placement, std::uint64_t inArrival, std::uint64_t count,
                std::uint64_t random) {
    std::array<double, 3> part{};
    if (placement.kind == placement_e::LINE) {
        part.fill(stepOf(inArrival, count));
    } else if (placement.kind == placement_e::GRID) {
        const std::uint64_t layer = std::uint64_t{placement.columns} * placement.rows;
        part = {stepOf(inArrival % placement.columns, placement.columns),
                stepOf(inArrival / placement.columns % placement.rows, placement.rows),
                stepOf(inArrival / layer, (count + layer - 1) / layer)};
    } else {
        for (double& axis : part) {
            random = mix64(random);
            axis = unitInterval(random);
        }
    }
    return {between(placement.from.x, placement.to.x, part[0]),
            between(placement.from.y, placement.to.y, part[1]),
            between(placement.from.z, placement.to.z, part[2])};
}

}  // namespace

std::array<std::uint8_t, 12> sgtin96(const sgtin_s& item, std::uint64_t serial) {
    return epc96(schemes.front(), item, serial);
}

std::vector<std::uint8_t> epcOf(const naming_s& naming, std::uint64_t serial) {
    if (naming.scheme == scheme_e::PREFIX) {
        std::vector<std::uint8_t> epc = naming.epcPrefix;
        epc.resize(naming.epcBits / 8U);
        putSerial(std::span(epc).subspan(naming.epcPrefix.size()), serial);
        return epc;
    }
    const auto epc = epc96(rowOf(naming.scheme), naming.item, serial);
    return {epc.begin(), epc.end()};
}

std::uint64_t serialEnd(const naming_s& naming) {
    if (naming.scheme == scheme_e::PREFIX) {
        const std::size_t bits =
            naming.epcBits - std::min<std::size_t>(naming.epcBits, naming.epcPrefix.size() * 8);
        return bits < 64 ? std::uint64_t{1} << bits : std::numeric_limits<std::uint64_t>::max();
    }
    const scheme_s& row = rowOf(naming.scheme);
    if (row.hasReference) {
        return std::uint64_t{1} << serialBits;
    }
    return row.digits == 0 ? std::uint64_t{1} << (row.together - prefixBits[partitionOf(naming)])
                           : powerOf(10, row.digits - naming.item.companyPrefix.size());
}

std::size_t referenceDigits(const naming_s& naming) {
    if (naming.scheme == scheme_e::PREFIX || !rowOf(naming.scheme).hasReference) {
        return 0;
    }
    return rowOf(naming.scheme).digits - naming.item.companyPrefix.size();
}

void setEpc(std::span<const std::uint8_t> epc, tag_s* tag) {
    std::vector<std::uint8_t>& bank = tag->banks[BANK_EPC];
    bank.assign(epcBankBytes, 0);
    std::ranges::copy(epc, bank.begin() + epcOffset);
    const unsigned userMemory = tag->banks[BANK_USER].empty() ? 0 : 0x0400;
    const unsigned extended = tag->xpc1 == 0 ? 0 : 0x0200;
    putWord(static_cast<std::uint16_t>(epc.size() / 2 << 11 | userMemory | extended | tag->numbering),
            &bank[2]);
    putWord(crc16(std::span<const std::uint8_t>(bank).subspan(2, 2 + epc.size())), bank.data());
}

tag_s makeTag(const scenario_s& scenario, std::size_t groupIndex, std::uint64_t number, std::int64_t enters) {
    const tag_group_s& group = scenario.groups[groupIndex];
    tag_s tag = group.pattern;
    const std::uint64_t serial =
        (group.naming.firstSerial + number) % std::max<std::uint64_t>(serialEnd(group.naming), 1);
    if (tag.banks[BANK_TID].empty()) {
        tag.banks[BANK_TID] = group.naming.tidPrefix;
        tag.banks[BANK_TID].resize(group.naming.tidPrefix.size() + tidSerialBytes);
        putSerial(std::span(tag.banks[BANK_TID]).last(tidSerialBytes), serial);
    }
    // After the other banks, since the PC has a bit for USER memory.
    setEpc(group.epc.empty() ? epcOf(group.naming, serial) : group.epc, &tag);
    // Depends on seed, group and number alone, so that a tag has the same place in each run.
    const std::uint64_t random = mix64(scenario.seed ^ mix64(std::uint64_t{groupIndex} << 40 ^ (number + 1)));
    tag.place = placeIn(group.placement, number % group.count, group.count, random);
    tag.placedAt = tag.enters = enters;
    tag.leaves = group.arrivals.stay > forEver - enters ? forEver : enters + group.arrivals.stay;
    return tag;
}

world_s makeWorld(const scenario_s& scenario) {
    world_s world = scenario.world;
    for (std::size_t i = 0; i < scenario.groups.size(); ++i) {
        const tag_group_s& group = scenario.groups[i];
        if (group.arrivals.every != 0) {
            continue;
        }
        for (std::uint64_t number = 0; number < group.count; ++number) {
            tag_s tag = makeTag(scenario, i, number, group.arrivals.first);
            tag.id = ++world.tagsMade;
            world.tags.push_back(std::move(tag));
        }
    }
    return world;
}

}  // namespace rxe
