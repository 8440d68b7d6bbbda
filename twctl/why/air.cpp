// SPDX-License-Identifier: MIT
#include "air.hpp"

#include <algorithm>
#include <array>
#include <optional>
#include <vector>

#include "filter_expression.hpp"

namespace why {

namespace {

// The EPC begins at bit 20h of its bank, behind CRC and PC.
constexpr std::uint32_t firstEpcBit = 0x20;
bool isWhole(const facts_s& facts) {
    return facts.epc.size() >= usualDigits || (facts.scene && facts.scene->present);
}

std::string lower(std::string text) {
    std::ranges::transform(text, text.begin(),
                           [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

// Bit `index` of hexadecimal digits, the first one most significant; false beyond their end.
bool bitOf(const std::string& digits, std::size_t index) {
    constexpr std::string_view values = "0123456789abcdef";
    const std::size_t value =
        index / 4 < digits.size() ? values.find(static_cast<char>(std::tolower(digits[index / 4]))) : 0;
    return value != values.npos && (value >> (3 - index % 4) & 1) != 0;
}

// ---------------------------------------------------------------- a mask against the tag

// Whether a mask matches: nothing when the EPC alone does not tell.
struct match_s {
    std::optional<bool> matches;
    std::string differing;  // "mask 3035, tag 3034: bit 47 differs"
};

std::string differenceText(const select_s& select, const std::string& mask, const std::string& tag) {
    constexpr std::size_t mostShown = 8;
    std::string bits;
    std::size_t count = 0;
    for (std::uint32_t i = 0; i < select.length; ++i) {
        if (bitOf(mask, i) != bitOf(tag, i) && ++count <= mostShown) {
            bits += (bits.empty() ? "" : ", ") + std::to_string(select.pointer + i);
        }
    }
    const std::string more = count > mostShown ? " and " + std::to_string(count - mostShown) + " more" : "";
    return "mask " + mask + ", tag " + (tag.empty() ? "too short" : tag) +
           (count == 0 ? ""
                       : ": bit" + std::string(count > 1 ? "s " : " ") + bits + more +
                             (count > 1 ? " differ" : " differs"));
}

// The digits of the EPC from bit `pointer` of its bank on, as many as the mask has.
std::string epcDigits(const std::string& epc, std::uint32_t pointer, std::uint32_t length) {
    std::string digits;
    for (std::uint32_t i = 0; i < length; i += 4) {
        int value = 0;
        for (std::uint32_t bit = i; bit < i + 4; ++bit) {
            value = value << 1 | (bit < length && bitOf(epc, pointer - firstEpcBit + bit) ? 1 : 0);
        }
        digits += "0123456789abcdef"[value];
    }
    return digits;
}

match_s matchOf(const select_s& select, const facts_s& facts) {
    if (facts.scene) {
        if (const auto verdict = facts.scene->selects.find(select.number);
            verdict != facts.scene->selects.end()) {
            return {verdict->second.matches,
                    differenceText(select, verdict->second.mask, verdict->second.tag)};
        }
    }
    const std::size_t end = std::size_t{select.pointer} + select.length;
    const bool known =
        select.bank == "EPC" && select.pointer >= firstEpcBit && end <= firstEpcBit + facts.epc.size() * 4;
    if (select.length == 0) {
        return {true, ""};
    }
    if (!known) {
        return {};
    }
    const std::string tag = epcDigits(facts.epc, select.pointer, select.length);
    for (std::uint32_t i = 0; i < select.length; ++i) {
        if (bitOf(select.mask, i) != bitOf(tag, i)) {
            return {false, differenceText(select, lower(select.mask), tag)};
        }
    }
    return {true, ""};
}

// ---------------------------------------------------------------- flags

// What one half of an action does to a flag: for a session true is B, for SL it is asserted.
enum class effect_e { none, clear, set, flip };
struct effect_s {
    std::string_view word;
    effect_e effect;
};
constexpr std::array effects{
    effect_s{"NOTHING", effect_e::none},  effect_s{"INVA", effect_e::clear},
    effect_s{"INVB", effect_e::set},      effect_s{"FLIPAB", effect_e::flip},
    effect_s{"ASSERTSL", effect_e::set},  effect_s{"DEASSERTSL", effect_e::clear},
    effect_s{"NEGATESL", effect_e::flip},
};

effect_e effectOf(std::string_view half) {
    const auto* row = std::ranges::find(effects, half, &effect_s::word);
    return row == effects.end() ? effect_e::none : row->effect;
}

// "INVA_INVB": the first half is for tags that match.
effect_e effectOn(const select_s& select, bool matches) {
    const std::string_view action = select.action;
    const std::size_t split = std::min(action.find('_'), action.size());
    return effectOf(matches ? action.substr(0, split) : action.substr(std::min(split + 1, action.size())));
}

// A flag behind all Selects of a round. A tag that was not read lately has false: A, or not SL.
struct flag_s {
    std::optional<bool> value = false;  // nothing: not known
    bool touched = false;               // a Select has set it to a value of its own
    std::string because = "the mode has no select that sets it";
};

// "select 1 (EPC bits 32 to 47)"
std::string nameOf(const select_s& select) {
    return "select " + std::to_string(select.number) + " (" + select.bank +
           (select.length == 0 ? std::string()
                               : " bits " + std::to_string(select.pointer) + " to " +
                                     std::to_string(select.pointer + select.length - 1)) +
           ")";
}

// ", which sets S1 to B"
std::string effectText(const select_s& select, effect_e effect) {
    const bool isSL = select.target == "SL";
    switch (effect) {
        case effect_e::clear:
            return isSL ? ", which deasserts SL" : ", which sets " + select.target + " to A";
        case effect_e::set:
            return isSL ? ", which asserts SL" : ", which sets " + select.target + " to B";
        case effect_e::flip:
            return ", which turns " + select.target + " over";
        case effect_e::none:
            break;
    }
    return "";
}

// The flag after one more Select.
flag_s after(const select_s& select, const facts_s& facts, flag_s flag) {
    const match_s match = matchOf(select, facts);
    if (!match.matches && effectOn(select, true) != effectOn(select, false)) {
        return {std::nullopt, true,
                "whether " + nameOf(select) + " matches cannot be told from the EPC alone"};
    }
    const effect_e effect = effectOn(select, match.matches.value_or(true));
    if (match.matches && (effect != effect_e::none || !flag.touched)) {
        flag.because = nameOf(select) +
                       (*match.matches ? " matches" : " does not match: " + match.differing) +
                       effectText(select, effect);
    }
    if (effect == effect_e::flip && flag.value) {
        flag.value = !*flag.value;
    } else if (effect == effect_e::set || effect == effect_e::clear) {
        flag.value = effect == effect_e::set;
        flag.touched = true;
    }
    return flag;
}

flag_s flagBehind(const antenna_s& antenna, const std::string& target, const facts_s& facts) {
    flag_s flag;
    for (const select_s& select : antenna.selects) {
        flag = select.target == target ? after(select, facts, flag) : flag;
    }
    return flag;
}

// A flag as the Query of an antenna wants it.
struct wish_s {
    std::string target;
    bool value;
    std::string asks;  // "S1 at A"
};

std::vector<wish_s> wishesOf(const query_s& query) {
    std::vector<wish_s> wishes;
    if (query.sel != "ALL") {
        wishes.push_back({"SL", query.sel == "SL", query.sel == "SL" ? "SL asserted" : "SL deasserted"});
    }
    if (query.target != "AB") {
        wishes.push_back({query.session, query.target == "B", query.session + " at " + query.target});
    }
    return wishes;
}

selection_s selectionBy(const antenna_s& antenna, const facts_s& facts) {
    selection_s selection;
    for (const wish_s& wish : wishesOf(antenna.query)) {
        const flag_s flag = flagBehind(antenna, wish.target, facts);
        const asked_e asked = !flag.value                 ? asked_e::unknown
                              : *flag.value == wish.value ? asked_e::yes
                                                          : asked_e::no;
        if (asked > selection.asked) {
            selection = {asked, "the query asks for tags with " + wish.asks + ", and " + flag.because};
        }
    }
    return selection;
}

bool hasPrefix(const facts_s& facts) {
    return facts.mode.filter && facts.mode.filter->match == "prefix";
}

}  // namespace

std::string filterText(const filter_s& filter) {
    return filter.operation + " " + filter.match + " " + filter.value;
}

bool filterRefuses(const facts_s& facts) {
    if (!facts.mode.filter) {
        return false;
    }
    const filter_s& filter = *facts.mode.filter;
    const std::string value = lower(filter.value);
    const bool include = filter.operation == "include";
    if (filter.match == "prefix") {
        const std::size_t common = std::min(value.size(), facts.epc.size());
        const bool known = value.size() <= facts.epc.size() || isWhole(facts);
        const bool differs = facts.epc.compare(0, common, value, 0, common) != 0;
        return differs ? include : known && (value.size() <= facts.epc.size()) != include;
    }
    if (!isWhole(facts)) {
        return false;
    }
    if (filter.match == "suffix") {
        return facts.epc.ends_with(value) != include;
    }
    expression_t expression;
    return compileFilterExpression(filter.value, &expression) &&
           matchesFilterExpression(expression, facts.epc) != include;
}

// A prefix filter makes Select and Query itself; filterRefuses() judges it.
selection_s selectionOf(const facts_s& facts) {
    selection_s best{asked_e::no, ""};
    for (const antenna_s& antenna : facts.mode.antennas) {
        const selection_s selection = hasPrefix(facts) ? selection_s{} : selectionBy(antenna, facts);
        best = best.text.empty() || selection.asked < best.asked ? selection : best;
    }
    return facts.mode.antennas.empty() ? selection_s{} : best;
}

bool isSetAnew(const antenna_s& antenna, const facts_s& facts) {
    return hasPrefix(facts) || antenna.query.target == "AB" ||
           flagBehind(antenna, antenna.query.session, facts).touched;
}

}  // namespace why
