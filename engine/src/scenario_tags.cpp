// SPDX-License-Identifier: MIT
// The "tags" of a scenario: single tags and groups of them.
#include <cmath>

#include "population.hpp"
#include "scenario.hpp"

namespace rxe {
namespace {

using group_key_t = key_s<tag_group_s>;

constexpr double farthestPlace = 1000;  // metres, either way
constexpr double longestTime = 1e6;     // seconds
constexpr std::size_t maxTidBytes = 32, maxUserBytes = 8192, maxEpcBytes = 62;
constexpr std::int64_t maxTags = 100000;

// A field that can be locked, as a scenario names it.
struct lock_field_s {
    std::string_view name;
    lock_e bit;
};
constexpr std::array lockFields{
    lock_field_s{"kill", LOCK_KILL}, lock_field_s{"access", LOCK_ACCESS}, lock_field_s{"epc", LOCK_EPC},
    lock_field_s{"tid", LOCK_TID},   lock_field_s{"user", LOCK_USER},
};

// Lock and permalock bit of a field, the lock bit as 2.
constexpr std::array lockWords{
    word_s<unsigned>{"unlocked", 0},
    word_s<unsigned>{"locked", 2},
    word_s<unsigned>{"permaunlocked", 1},
    word_s<unsigned>{"permalocked", 3},
};

// Fields that are not named stay unlocked.
refusal_s takeLocks(const json_t& value, std::uint16_t* locks) {
    if (!value.is_object()) {
        return {"must be an object", {}};
    }
    std::uint16_t taken = 0;
    for (const auto& [name, word] : value.items()) {
        const auto field = std::ranges::find(lockFields, std::string_view(name), &lock_field_s::name);
        if (field == lockFields.end()) {
            std::vector<std::string_view> known;
            std::ranges::transform(lockFields, std::back_inserter(known), &lock_field_s::name);
            return unknownKey(name, known);
        }
        unsigned bits = 0;
        if (refusal_s refusal = takeWord(word, lockWords, &bits)) {
            return under(name, std::move(refusal));
        }
        taken = static_cast<std::uint16_t>(taken | (field->bit * bits) / 2);
    }
    *locks = taken;
    return {};
}

// `offset`: where the password stands in the RESERVED bank, 0 or 4.
refusal_s takePassword(const json_t& value, std::size_t offset, tag_s* tag) {
    std::uint32_t password = 0;
    refusal_s refusal = takeWord32(value, &password);
    for (std::size_t i = 0; i < 4; ++i) {
        tag->banks[BANK_RESERVED][offset + i] = static_cast<std::uint8_t>(password >> (24 - 8 * i));
    }
    return refusal;
}

// XPC_W1, or both words.
refusal_s takeXpc(const json_t& value, tag_s* tag) {
    std::vector<std::uint8_t> bytes;
    refusal_s refusal = takeHex(value, 2, 4, 2, &bytes);
    if (!refusal) {
        bytes.resize(4);
        tag->xpc1 = static_cast<std::uint16_t>(bytes[0] << 8 | bytes[1]);
        tag->xpc2 = static_cast<std::uint16_t>(bytes[2] << 8 | bytes[3]);
    }
    return refusal;
}

// An ISO tag: the toggle bit says so, and the AFI stands beside it.
refusal_s takeAfi(const json_t& value, tag_s* tag) {
    std::uint8_t afi = 0;
    refusal_s refusal = takeInteger(value, 0, 255, &afi);
    tag->numbering = static_cast<std::uint16_t>(0x100 | afi);
    return refusal;
}

// dBm, -40 to 0.
refusal_s takeSensitivity(const json_t& value, tag_s* tag) {
    double dbm = 0;
    refusal_s refusal = takeNumber(value, -40, 0, &dbm);
    if (!refusal) {
        tag->sensitivity = static_cast<float>(dbm);
    }
    return refusal;
}

// Keys of single tags and of groups.
constexpr std::array memoryKeys{
    group_key_t{"user",
                [](const json_t& v, tag_group_s* g) {
                    return takeHex(v, 2, maxUserBytes, 2, &g->pattern.banks[BANK_USER]);
                }},
    group_key_t{"killPassword",
                [](const json_t& v, tag_group_s* g) { return takePassword(v, 0, &g->pattern); }},
    group_key_t{"accessPassword",
                [](const json_t& v, tag_group_s* g) { return takePassword(v, 4, &g->pattern); }},
    group_key_t{"locks", [](const json_t& v, tag_group_s* g) { return takeLocks(v, &g->pattern.locks); }},
    group_key_t{"xpc", [](const json_t& v, tag_group_s* g) { return takeXpc(v, &g->pattern); }},
    group_key_t{"afi", [](const json_t& v, tag_group_s* g) { return takeAfi(v, &g->pattern); }},
    group_key_t{"sensitivity",
                [](const json_t& v, tag_group_s* g) { return takeSensitivity(v, &g->pattern); }},
    group_key_t{"velocity",
                [](const json_t& v, tag_group_s* g) { return takePlace(v, &g->pattern.velocity); }},
};

// When a tag of the scenario enters and leaves.
constexpr std::array timeKeys{
    group_key_t{"enter", [](const json_t& v,
                            tag_group_s* g) { return takeSeconds(v, 0, longestTime, &g->arrivals.first); }},
    group_key_t{"leave", [](const json_t& v,
                            tag_group_s* g) { return takeSeconds(v, 0, longestTime, &g->pattern.leaves); }},
};

// Keys of a single tag only. Its place is a box without extent.
constexpr std::array identityKeys{
    group_key_t{"epc", [](const json_t& v, tag_group_s* g) { return takeEpc(v, &g->epc); }, true},
    group_key_t{"tid",
                [](const json_t& v, tag_group_s* g) {
                    return takeHex(v, 4, maxTidBytes, 2, &g->pattern.banks[BANK_TID]);
                }},
    group_key_t{"position",
                [](const json_t& v, tag_group_s* g) {
                    refusal_s refusal = takePlace(v, &g->placement.from);
                    g->placement.to = g->placement.from;
                    return refusal;
                }},
};

// The key of a tag that enters by an event: how long it stays.
constexpr std::array stayKeys{
    group_key_t{"stay", [](const json_t& v,
                           tag_group_s* g) { return takeSeconds(v, 0.001, longestTime, &g->arrivals.stay); }},
};

constexpr std::array placementWords{
    word_s<placement_e>{"random", placement_e::RANDOM},
    word_s<placement_e>{"line", placement_e::LINE},
    word_s<placement_e>{"grid", placement_e::GRID},
};

constexpr std::array placementKeys{
    key_s<placement_s>{
        "type", [](const json_t& v, placement_s* p) { return takeWord(v, placementWords, &p->kind); }, true},
    key_s<placement_s>{"from", [](const json_t& v, placement_s* p) { return takePlace(v, &p->from); }},
    key_s<placement_s>{"to", [](const json_t& v, placement_s* p) { return takePlace(v, &p->to); }},
    key_s<placement_s>{
        "columns", [](const json_t& v, placement_s* p) { return takeInteger(v, 1, 100000, &p->columns); }},
    key_s<placement_s>{"rows",
                       [](const json_t& v, placement_s* p) { return takeInteger(v, 1, 100000, &p->rows); }},
};

constexpr std::array arrivalKeys{
    key_s<arrivals_s>{
        "every", [](const json_t& v, arrivals_s* a) { return takeSeconds(v, 0.001, longestTime, &a->every); },
        true},
    key_s<arrivals_s>{
        "first", [](const json_t& v, arrivals_s* a) { return takeSeconds(v, 0, longestTime, &a->first); }},
    key_s<arrivals_s>{
        "jitter", [](const json_t& v, arrivals_s* a) { return takeSeconds(v, 0, longestTime, &a->jitter); }},
    key_s<arrivals_s>{
        "stay", [](const json_t& v, arrivals_s* a) { return takeSeconds(v, 0.001, longestTime, &a->stay); },
        true},
    key_s<arrivals_s>{
        "limit", [](const json_t& v, arrivals_s* a) { return takeInteger(v, 1, 1000000000, &a->limit); }},
};

constexpr std::array schemeWords{
    word_s<scheme_e>{"sgtin-96", scheme_e::SGTIN_96}, word_s<scheme_e>{"sscc-96", scheme_e::SSCC_96},
    word_s<scheme_e>{"grai-96", scheme_e::GRAI_96},   word_s<scheme_e>{"giai-96", scheme_e::GIAI_96},
    word_s<scheme_e>{"prefix", scheme_e::PREFIX},
};

// Whole words, since the PC tells the length in words.
refusal_s takeEpcBits(const json_t& value, tag_group_s* group) {
    refusal_s refusal = takeInteger(value, 16, 496, &group->naming.epcBits);
    if (!refusal && group->naming.epcBits % 16 != 0) {
        return {"must be a multiple of 16", {}};
    }
    return refusal;
}

// Keys of groups only. Each is taken with any scheme; checkNaming checks them together.
constexpr std::array groupKeys{
    group_key_t{"count",
                [](const json_t& v, tag_group_s* g) { return takeInteger(v, 0, maxTags, &g->count); }},
    group_key_t{"scheme",
                [](const json_t& v, tag_group_s* g) { return takeWord(v, schemeWords, &g->naming.scheme); }},
    group_key_t{
        "companyPrefix",
        [](const json_t& v, tag_group_s* g) { return takeDigits(v, 6, 12, &g->naming.item.companyPrefix); }},
    group_key_t{
        "itemReference",
        [](const json_t& v, tag_group_s* g) { return takeDigits(v, 0, 7, &g->naming.item.itemReference); }},
    group_key_t{"filter",
                [](const json_t& v, tag_group_s* g) { return takeInteger(v, 0, 7, &g->naming.item.filter); }},
    group_key_t{"epcPrefix",
                [](const json_t& v, tag_group_s* g) {
                    g->naming.scheme = scheme_e::PREFIX;
                    return takeHex(v, 1, 60, 1, &g->naming.epcPrefix);
                }},
    group_key_t{"epcBits", takeEpcBits},
    group_key_t{"firstSerial",
                [](const json_t& v, tag_group_s* g) {
                    return takeInteger(v, 0, std::numeric_limits<std::int64_t>::max() / 2,
                                       &g->naming.firstSerial);
                }},
    group_key_t{"tidPrefix",
                [](const json_t& v, tag_group_s* g) { return takeHex(v, 2, 26, 2, &g->naming.tidPrefix); }},
    group_key_t{"placement",
                [](const json_t& v, tag_group_s* g) { return takeKeys(v, placementKeys, &g->placement); }},
    group_key_t{"arrivals",
                [](const json_t& v, tag_group_s* g) { return takeKeys(v, arrivalKeys, &g->arrivals); }},
};

// Joins tables at compile time.
template <std::size_t... Counts>
constexpr auto joined(const std::array<group_key_t, Counts>&... tables) {
    std::array<group_key_t, (Counts + ...)> all{};
    auto* at = all.begin();
    ((at = std::copy(tables.begin(), tables.end(), at)), ...);
    return all;
}

constexpr auto singleTable = joined(identityKeys, memoryKeys, timeKeys);
constexpr auto groupTable = joined(groupKeys, memoryKeys, timeKeys);
constexpr auto enteringTable = joined(identityKeys, memoryKeys, stayKeys);

// Rules between keys. A refusal names the key that has to change.
refusal_s checkNaming(const tag_group_s& group) {
    const naming_s& naming = group.naming;
    if (naming.scheme == scheme_e::PREFIX && naming.epcPrefix.empty()) {
        return {"is missing", "epcPrefix"};
    }
    if (naming.scheme == scheme_e::PREFIX && naming.epcPrefix.size() * 8 > naming.epcBits) {
        return {"is longer than \"epcBits\"", "epcPrefix"};
    }
    const std::size_t digits = referenceDigits(naming);
    const bool needsReference = naming.scheme == scheme_e::SGTIN_96 || naming.scheme == scheme_e::GRAI_96;
    if (needsReference && naming.item.itemReference.size() != digits) {
        return {"must have " + std::to_string(digits) + " digits with this \"companyPrefix\" and \"scheme\"",
                "itemReference"};
    }
    const std::uint64_t end = serialEnd(naming);
    if (naming.firstSerial > end || group.count > end - naming.firstSerial) {
        return {"leaves no room for \"count\" serial numbers, which end at " + std::to_string(end - 1),
                "firstSerial"};
    }
    return {};
}

// Checks "enter" and "leave" against "arrivals", and turns "leave" into the length of the stay.
refusal_s checkTimes(const json_t& value, tag_group_s* group) {
    const bool streams = group->arrivals.every != 0;
    if (streams && value.contains("enter")) {
        return {"does not go with \"arrivals\", which has \"first\"", "enter"};
    }
    if (streams && value.contains("leave")) {
        return {"does not go with \"arrivals\", which has \"stay\"", "leave"};
    }
    if (group->pattern.leaves != forEver) {
        if (group->pattern.leaves <= group->arrivals.first) {
            return {"must be later than \"enter\"", "leave"};
        }
        group->arrivals.stay = group->pattern.leaves - group->arrivals.first;
    }
    return {};
}

}  // namespace

refusal_s takePlace(const json_t& value, place_s* place) {
    if (!value.is_array() || value.size() != 3) {
        return {"must be an array of three numbers: x, y, z", {}};
    }
    float* const axes[] = {&place->x, &place->y, &place->z};
    for (std::size_t i = 0; i < 3; ++i) {
        double metres = 0;
        if (refusal_s refusal = takeNumber(value[i], -farthestPlace, farthestPlace, &metres)) {
            return under("[" + std::to_string(i) + "]", std::move(refusal));
        }
        *axes[i] = static_cast<float>(metres);
    }
    return {};
}

refusal_s takeEpc(const json_t& value, std::vector<std::uint8_t>* epc) {
    return takeHex(value, 2, maxEpcBytes, 2, epc);
}

refusal_s takeTags(const json_t& value, tag_group_s* group) {
    const bool single = value.is_object() && value.contains("epc");
    refusal_s refusal = single ? takeKeys(value, singleTable, group) : takeKeys(value, groupTable, group);
    if (!refusal && !single) {
        refusal = checkNaming(*group);
    }
    return refusal ? refusal : checkTimes(value, group);
}

refusal_s takeEnteringTag(const json_t& value, tag_group_s* group) {
    return takeKeys(value, enteringTable, group);
}

}  // namespace rxe
