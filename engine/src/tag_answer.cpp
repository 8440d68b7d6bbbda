// SPDX-License-Identifier: MIT
// Powers are means, without the fading of a moment, on the channel that carries farthest.
#include "tag_answer.hpp"

#include <algorithm>
#include <cmath>
#include <map>
#include <span>

#include "field.hpp"
#include "gen2.hpp"
#include "olios.hpp"
#include "run_state.hpp"

namespace rxe {
namespace {

constexpr std::size_t mostAntennas = 64;
constexpr unsigned sessions = 4;
constexpr std::array<const char*, BANK_COUNT> bankNames{"RESERVED", "EPC", "TID", "USER"};

std::string hexOf(std::span<const std::uint8_t> bytes) {
    constexpr char digits[] = "0123456789abcdef";
    std::string text;
    for (const std::uint8_t byte : bytes) {
        text += {digits[byte >> 4], digits[byte & 15]};
    }
    return text;
}

// Zero has no sign, so that people do not read "-0.0".
double rounded(double value, double steps) {
    return std::round(value * steps) / steps + 0.0;
}
// dB and dBm to a tenth, metres to a millimetre, microseconds as seconds to a millisecond.
double decibels(double value) {
    return rounded(value, 10);
}
double metres(double value) {
    return rounded(value, 1000);
}
double seconds(std::int64_t microseconds) {
    return rounded(static_cast<double>(microseconds) * 1e-6, 1000);
}

// --- Antennas

// An antenna and the tag, with the olio that reaches the tag best.
struct view_s {
    bool used = false;
    silence_e silence = silence_e::NONE;
    lit_tag_s lit = {};
    // dB above the sensitivity of the tag or, when that is less, of the receiver.
    double margin = 0;
};
using views_t = std::map<std::uint16_t, view_s>;  // by antenna

// The channel that carries farthest: that with the most power, of several the lowest.
planned_channel_s farthest(const plan_s& plan, const OLIO_s& olio) {
    const auto worse = [&](const planned_channel_s& a, const planned_channel_s& b) {
        const int powerA = powerOn(a, olio), powerB = powerOn(b, olio);
        return powerA != powerB ? powerA < powerB : a.frequency > b.frequency;
    };
    const auto best = std::ranges::max_element(plan.channels, worse);
    return best == plan.channels.end() ? planned_channel_s{.frequency = carrier_s{}.kilohertz} : *best;
}

// Adds what the olio sees of the tag, unless the antenna is there with a better view. An antenna that
// the reader does not have is left out.
void look(const radio_s& radio, const plan_s& plan, const planned_olio_s& planned, std::uint32_t index,
          views_t* views) {
    active_olio_s olio = activate(radio.world, plan, planned);
    carrier_s& carrier = olio.field.carrier;
    const planned_channel_s channel = farthest(plan, planned.olio);
    carrier.power = powerOn(channel, planned.olio) / 10.0;
    carrier.kilohertz = channel.frequency;
    view_s view{.used = planned.id != 0, .silence = silenceOf(radio.world, carrier)};
    if (view.silence == silence_e::NO_ANTENNA) {
        return;
    }
    view.lit = lightOn(radio.world, carrier, index, radio.now);
    view.margin = std::min<double>(view.lit.margin, view.lit.path.atReader - olio.sensitivity);
    const auto [known, isNew] = views->emplace(planned.olio.transmitAntenna, view);
    if (!isNew && known->second.margin < view.margin) {
        known->second = view;
    }
}

// The ports of the reader that the scenario lists, and all antennas that enabled olios transmit on.
// An unused one is seen with full power, as olio 0.
views_t viewsOf(const radio_s& radio, const plan_s& plan, std::uint32_t index, params_s* params) {
    views_t views;
    for (const planned_olio_s& planned : plan.olios) {
        look(radio, plan, planned, index, &views);
    }
    const auto& listed = radio.scenario.listedAntennas;
    for (std::uint16_t port = 1; port <= antennaPorts(*params); ++port) {
        if (views.contains(port) || (listed && !(*listed)[port]) || isBeam(radio.world.model, port)) {
            continue;
        }
        OLIO_s olio{};
        olio.transmitAntenna = olio.receiveAntenna = port;
        olio.transmitPower = radio.scenario.maxTxPower;
        planned_olio_s unused;
        {
            const std::lock_guard lock(params->mutex);
            unused = planOlio(radio.world, *params, 0, olio);
        }
        look(radio, plan, unused, index, &views);
    }
    return views;
}

json_t toldAntennas(const views_t& views) {
    std::vector<const views_t::value_type*> strongest;
    for (const auto& each : views) {
        strongest.push_back(&each);
    }
    if (strongest.size() > mostAntennas) {
        const auto power = [](const views_t::value_type* each) { return each->second.lit.path.atTag; };
        std::ranges::stable_sort(strongest, std::ranges::greater(), power);
        strongest.resize(mostAntennas);
        std::ranges::sort(strongest, {}, [](const views_t::value_type* each) { return each->first; });
    }
    json_t told = json_t::array();
    for (const auto* each : strongest) {
        const auto& [antenna, view] = *each;
        json_t row{{"antenna", antenna},
                   {"connected", view.silence != silence_e::LOST},
                   {"used", view.used},
                   {"power", decibels(view.lit.path.atTag)},
                   {"margin", decibels(view.margin)},
                   {"rssi", decibels(view.lit.path.atReader)}};
        if (view.silence == silence_e::AMPLIFIER) {
            row["silent"] = "its amplifier has failed";
        } else if (view.silence == silence_e::DEAF) {
            row["silent"] = "the antenna that listens is not there";
        }
        told.push_back(std::move(row));
    }
    return told;
}

// --- Flags

// The field that gives the tag power now; null when it has none.
const field_s* fieldAround(const radio_s& radio, std::uint32_t index) {
    if (radio.run == nullptr || !radio.run->carrierOn) {
        return nullptr;
    }
    for (const active_olio_s& olio : radio.run->olios) {
        for (lit_tag_s lit : olio.field.lit) {
            if (lit.index == index && stillLit(radio.world, olio.field.carrier, radio.now, &lit)) {
                return &olio.field;
            }
        }
    }
    return nullptr;
}

// Whether the run under way gives the tag power again and again. One that waits for its start trigger
// has not had a round yet.
bool staysPowered(const radio_s& radio, const views_t& views) {
    const bool transmits = radio.run != nullptr && radio.run->rounds > 0;
    return transmits && std::ranges::any_of(views, [](const auto& each) {
               return each.second.used && each.second.silence == silence_e::NONE &&
                      each.second.lit.margin >= 0;
           });
}

// The tag as it would answer now. What has run down is otherwise noted when it has power again.
tag_s broughtUpToDate(const radio_s& radio, const field_s* field, tag_s tag) {
    if (field != nullptr) {
        runDown(*field, radio.run->carrierSince, radio.now, &tag);
    } else {  // later than it had power, so that session 0 counts as run down at once
        powerUp(std::max(radio.now, tag.poweredUntil + 1), &tag);
    }
    return tag;
}

void addFlags(const radio_s& radio, const tag_s& tag, bool powered, json_t* told) {
    json_t flags{{"SL", tag.sl}}, quiet = json_t::object();
    for (unsigned session = 0; session < sessions; ++session) {
        const std::string name = "S" + std::to_string(session);
        const bool b = inventoriedB(tag, session, radio.now);
        flags[name] = b ? "B" : "A";
        const std::int64_t end = fallsBackAt(tag, session, powered);
        if (b && end != forEver) {
            quiet[name] = seconds(end - radio.now);
        }
    }
    (*told)["flags"] = std::move(flags);
    (*told)["quiet"] = std::move(quiet);
}

// --- Selects and the past

// By number. What does not match is told with the bits of mask and tag.
json_t toldSelects(const plan_s& plan, const tag_s& tag) {
    json_t told = json_t::object();
    for (const planned_select_s& planned : plan.selects) {
        const SELECT_OP_s& select = planned.select;
        if (select.enable != 1) {  // a Challenge, which does not have a mask
            continue;
        }
        json_t& row = told[std::to_string(planned.id)];
        if (matches(select, tag)) {
            row = true;
            continue;
        }
        const unsigned bank = select.membank & 3U;
        row = {{"matches", false},
               {"bank", bankNames[bank]},
               {"pointer", select.pointer},
               {"length", select.length},
               {"mask", hexOf(bitsOf(select.mask, 0, select.length))},
               {"tag", hexOf(bitsOf(tag.banks[bank], select.pointer, select.length))}};
    }
    return told;
}

const char* nameOf(suppressor_e by) {
    switch (by) {
        case suppressor_e::LEVEL_FILTER:
            return "level filter";
        case suppressor_e::ID_FILTER:
            return "id filter";
        case suppressor_e::REPORT_FILTER:
            return "report filter";
    }
    return "";
}

void addPast(const radio_s& radio, std::uint32_t index, json_t* told) {
    const std::vector<history_s>& histories = radio.world.histories;
    const bool known = index < histories.size() && histories[index].id == radio.world.tags[index].id;
    const history_s past = known ? histories[index] : history_s{};
    (*told)["lastSingulated"] = nullptr;
    (*told)["lastSuppressed"] = nullptr;
    if (past.singulatedAt != never) {
        (*told)["lastSingulated"] = {{"ago", seconds(radio.now - past.singulatedAt)},
                                     {"antenna", past.singulatedOn}};
    }
    if (past.suppressedAt != never) {
        (*told)["lastSuppressed"] = {{"ago", seconds(radio.now - past.suppressedAt)},
                                     {"antenna", past.suppressedOn},
                                     {"by", nameOf(past.suppressedBy)}};
    }
}

}  // namespace

std::string tellOfTag(const radio_s& radio, const std::vector<std::uint8_t>& epc, params_s* params) {
    const std::vector<std::uint32_t> found = findTags(radio.world, epc, radio.now);
    json_t told{{"epc", hexOf(epc)}, {"present", !found.empty()}};
    if (found.empty()) {
        return told.dump();
    }
    if (found.size() > 1) {
        told["same"] = found.size();
    }
    const std::uint32_t index = found.front();
    const plan_s plan = gatherPlan(radio.world, params);
    const views_t views = viewsOf(radio, plan, index, params);
    const field_s* const field = fieldAround(radio, index);
    const tag_s tag = broughtUpToDate(radio, field, radio.world.tags[index]);
    const place_s place = placeAt(tag, radio.now);
    told["position"] = {metres(place.x), metres(place.y), metres(place.z)};
    told["antennas"] = toldAntennas(views);
    addFlags(radio, tag, field != nullptr || staysPowered(radio, views), &told);
    told["selected"] = toldSelects(plan, tag);
    addPast(radio, index, &told);
    return told.dump();
}

}  // namespace rxe
