// SPDX-License-Identifier: MIT
#include "scenario.hpp"

#include <cmath>
#include <cstdlib>
#include <utility>

#include "files.hpp"

namespace rxe {
namespace {

using top_key_t = key_s<scenario_s>;

constexpr std::size_t maxGroups = 1000, maxEvents = 100000, maxFailing = 1000;
constexpr std::size_t maxFile = 32U << 20;  // bytes, more than the longest lists of tags and events take
constexpr std::size_t maxEndpoint = 100;    // a socket's file name has 107 bytes

constexpr std::array clockWords{word_s<bool>{"real", false}, word_s<bool>{"fast", true}};
constexpr std::array levelWords{word_s<bool>{"low", false}, word_s<bool>{"high", true}};
constexpr std::array modelWords{
    word_s<reader_model_e>{"any", reader_model_e::ANY},
    word_s<reader_model_e>{"PN5100", reader_model_e::PN5100},
    word_s<reader_model_e>{"PN8200", reader_model_e::PN8200},
    word_s<reader_model_e>{"QDX4400", reader_model_e::QDX4400},
};

// --- Antennas: numbers of those that are connected, or objects that say more.

// `placed`: the object names a place, so the usual one does not count.
struct listed_antenna_s {
    std::uint16_t port = 0;
    antenna_s antenna;
    bool placed = false;
};

constexpr std::array antennaKeys{
    key_s<listed_antenna_s>{
        "port", [](const json_t& v, listed_antenna_s* a) { return takeInteger(v, 0, maxPorts, &a->port); },
        true},
    key_s<listed_antenna_s>{"position",
                            [](const json_t& v, listed_antenna_s* a) {
                                a->placed = true;
                                return takePlace(v, &a->antenna.place);
                            }},
    key_s<listed_antenna_s>{"gain",
                            [](const json_t& v, listed_antenna_s* a) {
                                double dbi = 0;
                                refusal_s refusal = takeNumber(v, -20, 20, &dbi);
                                a->antenna.gain = static_cast<float>(dbi);
                                return refusal;
                            }},
    key_s<listed_antenna_s>{
        "connected", [](const json_t& v, listed_antenna_s* a) { return takeBool(v, &a->antenna.connected); }},
};

// A bare number is a port at its usual place.
refusal_s takeAntenna(const json_t& value, listed_antenna_s* listed) {
    return value.is_object() ? takeKeys(value, antennaKeys, listed)
                             : takeInteger(value, 1, maxPorts, &listed->port);
}

// An antenna that is listed replaces the usual one, except for the place if it has none of its own.
refusal_s takeAntennas(const json_t& value, scenario_s* scenario) {
    std::vector<listed_antenna_s> list;
    if (refusal_s refusal = takeElements(value, maxPorts + 1, takeAntenna, &list)) {
        return refusal;
    }
    std::array<bool, maxPorts + 1>& met = scenario->listedAntennas.emplace();
    for (std::size_t i = 0; i < list.size(); ++i) {
        const std::uint16_t port = list[i].port;
        if (std::exchange(met[port], true)) {
            return {"names port " + std::to_string(port) + " again", "[" + std::to_string(i) + "]"};
        }
        const place_s usual = scenario->world.antennas[port].place;
        scenario->world.antennas[port] = list[i].antenna;
        if (!list[i].placed) {
            scenario->world.antennas[port].place = usual;
        }
    }
    return {};
}

// Of ports only the listed ones are connected, of an array's elements also those that are not
// listed.
void settleAntennas(scenario_s* scenario) {
    if (!scenario->listedAntennas || scenario->world.model == reader_model_e::QDX4400) {
        return;
    }
    for (std::size_t port = 1; port <= maxPorts; ++port) {
        antenna_s& antenna = scenario->world.antennas[port];
        antenna.connected = antenna.connected && (*scenario->listedAntennas)[port];
    }
}

// Levels from port 1 on; ports that are not listed are low.
refusal_s takeGpi(const json_t& value, scenario_s* scenario) {
    std::vector<std::uint8_t> levels;
    refusal_s refusal = takeElements(
        value, maxGpis,
        [](const json_t& element, std::uint8_t* high) {
            bool level = false;
            refusal_s wrong = takeWord(element, levelWords, &level);
            *high = level ? 1 : 0;
            return wrong;
        },
        &levels);
    for (std::size_t i = 0; i < levels.size(); ++i) {
        scenario->world.gpis[i].high = levels[i] != 0;
    }
    return refusal;
}

// --- Temperatures

constexpr std::array heatKeys{
    key_s<heat_s>{"idle", [](const json_t& v, heat_s* h) { return takeNumber(v, -128, 127, &h->idle); }},
    key_s<heat_s>{"rise", [](const json_t& v, heat_s* h) { return takeNumber(v, 0, 200, &h->rise); }},
    key_s<heat_s>{"seconds", [](const json_t& v, heat_s* h) { return takeNumber(v, 0.1, 1e6, &h->seconds); }},
    key_s<heat_s>{"critical",
                  [](const json_t& v, heat_s* h) { return takeInteger(v, -128, 127, &h->critical); }},
};

// A bare number is a temperature that does not rise when the radio transmits.
refusal_s takeHeat(const json_t& value, heat_s* heat) {
    if (value.is_object()) {
        return takeKeys(value, heatKeys, heat);
    }
    heat->rise = 0;
    return takeNumber(value, -128, 127, &heat->idle);
}

constexpr std::array temperatureKeys{
    top_key_t{"pa", [](const json_t& v, scenario_s* s) { return takeHeat(v, &s->pa); }},
    top_key_t{"ambient", [](const json_t& v, scenario_s* s) { return takeHeat(v, &s->ambient); }},
};

// --- The air

constexpr std::array airKeys{
    key_s<air_s>{"exponent", [](const json_t& v, air_s* a) { return takeNumber(v, 1, 6, &a->exponent); }},
    key_s<air_s>{"shadow", [](const json_t& v, air_s* a) { return takeNumber(v, 0, 20, &a->shadowDb); }},
    key_s<air_s>{"fade", [](const json_t& v, air_s* a) { return takeNumber(v, 0, 20, &a->fadeDb); }},
    key_s<air_s>{"errors", [](const json_t& v, air_s* a) { return takeBool(v, &a->errors); }},
};

constexpr std::array databaseKeys{
    top_key_t{"capacity", [](const json_t& v,
                             scenario_s* s) { return takeInteger(v, 1, 10000000, &s->world.dbCapacity); }},
};

refusal_s takeRate(const json_t& value, scenario_s* scenario) {
    return takeNumber(value, 1, 100000, &scenario->tagsPerSecond);
}

refusal_s takePower(const json_t& value, scenario_s* scenario) {
    double dbm = 0;
    refusal_s refusal = takeNumber(value, 0, 40, &dbm);
    if (!refusal) {
        scenario->maxTxPower = static_cast<std::int16_t>(std::lround(dbm * 10));
    }
    return refusal;
}

// Checks the socket's name as well, so that the error names the key.
refusal_s takeControl(const json_t& value, scenario_s* scenario) {
    std::string endpoint;
    const refusal_s refusal = takeText(value, maxEndpoint, &endpoint);
    if (refusal || (endpoint != "none" && (!endpoint.starts_with("ipc:///") || endpoint.size() < 8))) {
        return {R"(must be "none" or "ipc://" and the full name of a file, of at most 100 characters)", {}};
    }
    scenario->control = endpoint;
    return {};
}

// One tag or group, or an array of them.
refusal_s takeAllTags(const json_t& value, scenario_s* scenario) {
    if (!value.is_array()) {
        tag_group_s group;
        refusal_s refusal = takeTags(value, &group);
        scenario->groups = {group};
        return refusal;
    }
    return takeElements(value, maxGroups, takeTags, &scenario->groups);
}

// The keys of the file.
constexpr std::array topKeys{
    top_key_t{"library", [](const json_t& v, scenario_s* s) { return takeVersion(v, &s->library); }},
    top_key_t{"firmware", [](const json_t& v, scenario_s* s) { return takeVersion(v, &s->firmware); }},
    top_key_t{"model",
              [](const json_t& v, scenario_s* s) { return takeWord(v, modelWords, &s->world.model); }},
    top_key_t{"seed",
              [](const json_t& v, scenario_s* s) {
                  return takeInteger(v, 0, std::numeric_limits<std::int64_t>::max(), &s->seed);
              }},
    top_key_t{"clock", [](const json_t& v, scenario_s* s) { return takeWord(v, clockWords, &s->fastClock); }},
    top_key_t{"tagsPerSecond", takeRate},
    top_key_t{"maxTxPower", takePower},
    top_key_t{"antennas", takeAntennas},
    top_key_t{"gpi", takeGpi},
    top_key_t{"air", [](const json_t& v, scenario_s* s) { return takeKeys(v, airKeys, &s->world.air); }},
    top_key_t{"temperatures", [](const json_t& v, scenario_s* s) { return takeKeys(v, temperatureKeys, s); }},
    top_key_t{"database", [](const json_t& v, scenario_s* s) { return takeKeys(v, databaseKeys, s); }},
    top_key_t{"control", takeControl},
    top_key_t{"tags", takeAllTags},
    top_key_t{"events",
              [](const json_t& v, scenario_s* s) {
                  return takeElements(
                      v, maxEvents,
                      [](const json_t& element, timed_event_s* e) { return takeEvent(element, true, e); },
                      &s->events);
              }},
    top_key_t{"failing", [](const json_t& v,
                            scenario_s* s) { return takeElements(v, maxFailing, takeFailing, &s->failing); }},
};

// The tags of the built-in scenario: 24 at rest, and fifteen new ones a second that pass a doorway
// at 1.2 m/s.
std::vector<tag_group_s> builtInTags() {
    tag_group_s lying;
    lying.count = 24;
    tag_group_s passing;
    passing.count = 15;
    passing.naming.item.itemReference = "812346";
    passing.naming.firstSerial = 1;
    passing.placement = {.from = {-0.6F, -3, 0.3F}, .to = {0.6F, -1.8F, 1.5F}};
    passing.pattern.velocity = {0, 1.2F, 0};
    passing.arrivals = {.first = 0, .every = 1000000, .stay = 5000000};
    return {lying, passing};
}

}  // namespace

place_s usualPlace(unsigned port) {
    const unsigned corner = (port - 1) % 4;
    return {corner < 2 ? -1.5F : 1.5F, 3.0F * static_cast<float>((port - 1) / 4),
            corner % 2 == 0 ? 1.0F : 2.0F};
}

scenario_s::scenario_s() : groups(builtInTags()) {
    world.antennas[0].place = {0, 0, 4};  // the array hangs from the ceiling
    for (unsigned port = 1; port <= maxPorts; ++port) {
        world.antennas[port].place = usualPlace(port);
    }
}

bool loadScenario(scenario_s* scenario, std::string* error) {
    *scenario = {};
    const char* const path = std::getenv("RXE_SCENARIO");
    if (path == nullptr || *path == '\0') {
        return true;
    }
    const std::string who = std::string("RXE_SCENARIO: ") + path + ": ";
    std::string text;
    if (const std::string fault = readFile(path, maxFile, &text); !fault.empty()) {
        *error = who + fault;
        return false;
    }
    const json_t document = json_t::parse(text, nullptr, false);
    if (document.is_discarded()) {
        *error = who + "is not valid JSON";
        return false;
    }
    scenario_s loaded;
    loaded.groups = {loaded.groups.front()};  // a file without "tags" has the tags at rest only
    if (const refusal_s refusal = takeKeys(document, topKeys, &loaded)) {
        *error = who + lineOf(refusal);
        return false;
    }
    settleAntennas(&loaded);
    *scenario = std::move(loaded);
    return true;
}

}  // namespace rxe
