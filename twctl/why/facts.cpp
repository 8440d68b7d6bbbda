// SPDX-License-Identifier: MIT
#include "facts.hpp"

#include <algorithm>
#include <cstdio>
#include <nlohmann/json.hpp>

#include "beam_grid.hpp"
#include "members.hpp"
#include "mode_keys.hpp"

namespace why {

namespace key = vocabulary::mode_key;
using nlohmann::json;

namespace {

// The value for antenna `index`: the element of a list for each antenna, or the one for all.
const json& valueFor(const json& value, std::size_t index) {
    static const json nothing;
    return !value.is_array() ? value : index < value.size() ? value[index] : nothing;
}

// ---------------------------------------------------------------- the mode

query_s readQuery(const json& value) {
    const query_s usual;
    return {get(value, key::sel, usual.sel), get(value, key::session, usual.session),
            get(value, key::target, usual.target)};
}

select_s readSelect(const json& value) {
    constexpr std::uint32_t longestMask = 255;  // bits
    return {0,
            text(value, key::target),
            text(value, key::action),
            text(value, key::membank),
            get(value, key::pointer, 0U),
            std::min(get(value, key::length, 0U), longestMask),
            text(value, key::mask)};
}

// The radio numbers the selects of one list by their first occurrence, and those of lists for each
// antenna one after the other.
void readSelects(const json& value, std::vector<antenna_s>* antennas) {
    if (!value.is_array() || value.empty()) {
        return;
    }
    const bool perAntenna = value.front().is_array();
    std::vector<json> known;
    int number = 0;
    for (std::size_t i = 0; i < antennas->size(); ++i) {
        for (const json& element : perAntenna ? valueFor(value, i) : value) {
            select_s select = readSelect(element);
            const auto same = std::ranges::find(known, element);
            select.number =
                perAntenna || same == known.end() ? ++number : static_cast<int>(same - known.begin()) + 1;
            if (!perAntenna && same == known.end()) {
                known.push_back(element);
            }
            (*antennas)[i].selects.push_back(std::move(select));
        }
    }
}

std::uint32_t beamNumber(const json& beam) {
    const auto& names = beam_grid::polarizationNames;
    const auto name = std::ranges::find(names, text(beam, key::polarization));
    const auto polarization = static_cast<std::uint32_t>(name - names.begin() + 1) * 1000;
    return static_cast<std::uint32_t>(
        beam_grid::beamOf(get(beam, key::azimuth, -1), get(beam, key::elevation, -1), polarization));
}

std::vector<antenna_s> readAntennas(const json& verbose) {
    std::vector<std::uint32_t> numbers;
    for (const json& port : part(verbose, key::antennas)) {
        numbers.push_back(port.is_number_unsigned() ? port.get<std::uint32_t>() : 0);
    }
    for (const json& beam : part(verbose, key::beams)) {
        numbers.push_back(beamNumber(beam));
    }
    std::vector<antenna_s> antennas(numbers.size());
    for (std::size_t i = 0; i < antennas.size(); ++i) {
        antennas[i].number = numbers[i];
        const json& power = valueFor(part(verbose, key::transmitPower), i);
        antennas[i].power = power.is_number() ? power.get<double>() : 0;
        antennas[i].query = readQuery(valueFor(part(verbose, key::query), i));
    }
    readSelects(part(verbose, key::selects), &antennas);
    return antennas;
}

// An INVENTORY does not show its report filter: each tag once for each antenna and interval.
report_filter_s readReportFilter(const json& verbose) {
    const json& interval = part(part(verbose, key::modeSpecificSettings), key::interval);
    if (interval.is_object()) {
        constexpr std::pair<const char*, std::uint64_t> units[] = {
            {"seconds", 1}, {"minutes", 60}, {"hours", 3600}, {"days", 86400}};
        const auto* unit = std::ranges::find(units, text(interval, key::unit),
                                             [](const auto& row) { return std::string(row.first); });
        return {true,
                get(interval, key::value, std::uint64_t{0}) * (unit == std::end(units) ? 1 : unit->second),
                {}};
    }
    const json& filter = part(verbose, key::reportFilter);
    report_filter_s read{
        text(filter, key::type) == "PER_ANTENNA", get(filter, key::duration, std::uint64_t{0}), {}};
    for (const json& word : part(filter, key::addl_keys)) {
        read.keys.push_back(word.is_string() ? word.get<std::string>() : word.dump());
    }
    return read;
}

std::string gpiText(const json& gpi) {
    return "GPI " + std::to_string(get(gpi, key::port, 0U)) + " " + text(gpi, key::signal);
}

// PORTAL has a trigger and an end of its own.
std::string readStart(const json& verbose) {
    std::string start;
    for (const json& gpi : part(part(verbose, key::radioStartConditions), key::gpis)) {
        start += (start.empty() ? "" : " or ") + gpiText(gpi);
    }
    const json& trigger = part(part(verbose, key::modeSpecificSettings), key::startTrigger);
    return trigger.is_object() ? gpiText(trigger) : start;
}

std::vector<std::string> readStops(const json& verbose) {
    const json& settings = part(verbose, key::modeSpecificSettings);
    const json& conditions = part(verbose, key::radioStopConditions);
    constexpr const char* withoutNewTag = " s without a new tag";
    const struct {
        const json& object;
        const char* key;
        const char* behind;
    } numbers[] = {{conditions, key::duration, " s"},
                   {conditions, key::antennaCycles, " passes over the antennas"},
                   {conditions, key::tagCount, " tags"},
                   {conditions, key::durationAfterNoMoreUniqueTags, withoutNewTag},
                   {settings, key::stopInterval, withoutNewTag}};
    std::vector<std::string> stops;
    for (const auto& row : numbers) {
        if (const auto number = get(row.object, row.key, std::uint64_t{0}); number != 0) {
            const bool isOneTag = number == 1 && row.key == key::tagCount;
            stops.push_back("after " + std::to_string(number) + (isOneTag ? " tag" : row.behind));
        }
    }
    for (const json& gpi : part(conditions, key::gpis)) {
        stops.push_back("at " + gpiText(gpi));
    }
    return stops;
}

// ---------------------------------------------------------------- the scene

std::optional<sight_s> readSight(const json& value) {
    if (!value.is_object()) {
        return std::nullopt;
    }
    return sight_s{get(value, "ago", 0.0), get(value, "antenna", 0U), text(value, "by")};
}

// {"1": true, "2": {"matches": false, "mask": "3034", "tag": "3035"}}
std::map<int, select_verdict_s> readVerdicts(const json& selected) {
    std::map<int, select_verdict_s> verdicts;
    for (const auto& [number, value] : selected.items()) {
        const bool matches = value.is_boolean() ? value.get<bool>() : get(value, "matches", true);
        verdicts[std::atoi(number.c_str())] = {matches, text(value, "mask"), text(value, "tag")};
    }
    return verdicts;
}

}  // namespace

mode_s readMode(const json& verbose) {
    mode_s mode;
    mode.type = text(verbose, key::type);
    mode.antennas = readAntennas(verbose);
    if (const json& filter = part(verbose, key::filter); filter.is_object()) {
        mode.filter = {text(filter, key::value), text(filter, key::match), text(filter, key::operation)};
    }
    mode.reportFilter = readReportFilter(verbose);
    constexpr int noThreshold = -128;
    if (const int weakest = get(part(verbose, key::rssiFilter), key::threshold, noThreshold);
        weakest != noThreshold) {
        mode.weakest = weakest;
    }
    mode.start = readStart(verbose);
    mode.stops = readStops(verbose);
    return mode;
}

scene_s readScene(const json& reply) {
    scene_s scene;
    scene.present = get(reply, "present", false);
    for (const json& row : part(reply, "antennas")) {
        scene.antennas.push_back({get(row, "antenna", 0U), get(row, "connected", false),
                                  get(row, "used", false), get(row, "power", 0.0), get(row, "margin", 0.0),
                                  text(row, "silent")});
    }
    for (const auto& [flag, value] : part(reply, "flags").items()) {
        scene.flags[flag] = value == "B" || value == true;
    }
    for (const auto& [flag, seconds] : part(reply, "quiet").items()) {
        scene.quiet[flag] = seconds.is_number() ? seconds.get<double>() : 0;
    }
    scene.selects = readVerdicts(part(reply, "selected"));
    scene.singulated = readSight(part(reply, "lastSingulated"));
    scene.suppressed = readSight(part(reply, "lastSuppressed"));
    return scene;
}

void readTrace(const json& reply, facts_s* facts) {
    facts->heard = get(reply, "packets", std::uint64_t{0});
    for (const json& row : part(reply, "last")) {
        packet_s packet;
        packet.epc = text(row, "epc");
        packet.fate = text(row, "fate");
        packet.antenna = get(row, "antenna", 0U);
        if (row.contains("peakRssi")) {
            packet.rssi = get(row, "peakRssi", 0);
        }
        packet.form = text(row, "form");
        if (row.contains("eventNum")) {
            packet.eventNum = get(row, "eventNum", std::uint64_t{0});
        }
        packet.listeners = get(row, "listeners", std::uint64_t{0});
        packet.rule = text(row, "rule");
        packet.until = text(row, "until");
        facts->packets.push_back(std::move(packet));
    }
}

// "Tag ID: <key>, Timestamp: 5.1, Time until expiration: -4.750000 seconds". Quirk of the daemon: the
// whole seconds are negative and the fraction, microseconds, counts upwards: 3.25 s are left.
std::optional<held_key_s> findHeldKey(std::string_view tagInfo, std::string_view epc) {
    constexpr std::size_t pcDigits = 4;
    std::optional<held_key_s> longest;
    for (std::size_t begin = 0; begin < tagInfo.size();) {
        const std::size_t end = std::min(tagInfo.find('\n', begin), tagInfo.size());
        const std::string line(tagInfo.substr(begin, end - begin));
        begin = end + 1;
        char tag[1024];
        long seconds = 0, microseconds = 0;
        const int read = std::sscanf(
            line.c_str(), "Tag ID: %1023[^,], Timestamp: %*[0-9.], Time until expiration: -%ld.%ld", tag,
            &seconds, &microseconds);
        const std::string key = read == 3 ? tag : "";
        const double left = static_cast<double>(seconds) - static_cast<double>(microseconds) / 1e6;
        if (key.size() > pcDigits && key.compare(pcDigits, epc.size(), epc) == 0 && left > 0 &&
            (!longest || left > longest->seconds)) {
            longest = {key, left};
        }
    }
    return longest;
}

}  // namespace why
