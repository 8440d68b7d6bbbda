// SPDX-License-Identifier: MIT
// What the daemon would refuse or pass over in a document, as far as tables tell.
// Nothing that every reader takes is a fault, but for what a reader passes over.
#include <algorithm>
#include <cctype>
#include <nlohmann/json.hpp>
#include <set>
#include <span>
#include <string_view>

#include "document.hpp"
#include "status.hpp"

namespace {

using nlohmann::json;

// The kinds of value that a key takes, as bits.
enum kind_e : unsigned { text = 1, number = 2, object = 4, array = 8 };

struct mode_key_s {
    const char* name;
    unsigned kinds;
};
constexpr mode_key_s modeKeys[] = {
    {"type", text},
    {"mode", text},
    {"antennas", array},
    {"beams", array},
    {"transmitPower", number | array},
    {"environment", text},
    {"linkProfile", number | array},
    {"antennaStopCondition", object | array},
    {"query", object | array},
    {"delayAfterSelects", number},
    {"selects", array},
    {"accesses", array},
    {"filter", object},
    {"radioStopConditions", object},
    {"radioStartConditions", object},
    {"reportFilter", object},
    {"modeSpecificSettings", object},
    {"interval", object},
    {"startTrigger", object},
    {"stopInterval", number},
    {"tagMetaData", array},
    {"rssiFilter", object},
    {"delayBetweenAntennaCycles", object},
};

// No mode may hold both.
constexpr const char* exclusiveKeys[][2] = {
    {"type", "mode"},
    {"antennas", "beams"},
    {"environment", "linkProfile"},
    {"accesses", "reportFilter"},
};

// A place in a document: the keys from the top on, with dots between them. The
// elements of an array, and of the arrays in it, have the place of the array. What
// a place may hold can depend on a word beside it, which then stands behind a
// blank: "accesses.config READ".
struct variant_s {
    const char* place;
    const char* key;  // of the word, in the same object
};
constexpr variant_s variants[] = {
    {"modeSpecificSettings", "type"},
    {"selects.action", "target"},
    {"accesses.config", "type"},
    {"radioStartConditions.gpis", "type"},  // not looked at without it
};

// The keys of an object, by single blanks. One that is not listed may hold any.
struct object_row_s {
    const char* place;
    const char* keys;
};
constexpr const char* gpiKeys = "port signal debounceTime";
constexpr const char* intervalKeys = "unit value";
constexpr const char* triggerKeys = "port signal";
constexpr object_row_s modeObjects[] = {
    {"beams", "azimuth elevation polarization"},
    {"antennaStopCondition", "type value"},
    {"antennaStopCondition.value", gpiKeys},
    {"query", "sel session target tagPopulation"},
    {"selects", "target action membank pointer length mask truncate"},
    {"accesses", "type config"},
    {"accesses.config READ", "membank wordPointer wordCount"},
    {"accesses.config WRITE", "membank wordPointer data blockSize"},
    {"accesses.config ACCESS", "password"},
    {"accesses.config KILL", "password"},
    {"accesses.config LOCK", "actions"},
    {"filter", "value match operation"},
    {"radioStopConditions", "duration antennaCycles tagCount durationAfterNoMoreUniqueTags gpis"},
    {"radioStopConditions.gpis", gpiKeys},
    {"radioStartConditions", "type gpis"},
    {"radioStartConditions.gpis GPI", gpiKeys},
    {"radioStartConditions.gpis GPI_WITH_RESTART", gpiKeys},
    {"reportFilter", "type duration addl_keys"},
    {"modeSpecificSettings INVENTORY", "interval"},
    {"modeSpecificSettings INVENTORY.interval", intervalKeys},
    {"modeSpecificSettings PORTAL", "startTrigger stopInterval"},
    {"modeSpecificSettings PORTAL.startTrigger", triggerKeys},
    {"modeSpecificSettings BEARING", "primaryBeamPolarization"},
    {"modeSpecificSettings PORTAL_DIRECTIONALITY",
     "primaryBeamPolarization aarHeight tagHeight staticVDynamic"},
    {"interval", intervalKeys},
    {"startTrigger", triggerKeys},
    {"tagMetaData", "userDefined antennaPortNames"},
    {"rssiFilter", "threshold"},
    {"delayBetweenAntennaCycles", "type duration"},
};

// The words that may stand at a place, by single blanks.
enum shape_e { oneWord, listOfWords, listOfWordsAndBanks };
struct words_row_s {
    const char* place;
    std::string words;
    shape_e shape = oneWord;
};

constexpr const char* polarizations = "TOTAL THETA PHI RHCP LHCP";
constexpr const char* signals = "HIGH LOW";
constexpr const char* units = "seconds minutes hours days";
constexpr const char* banks = "RESERVED EPC TID USER";
constexpr const char* sessionActions =
    "INVA_INVB INVA_NOTHING NOTHING_INVB FLIPAB_NOTHING INVB_INVA INVB_NOTHING NOTHING_INVA NOTHING_FLIPAB";
const words_row_s modeWords[] = {
    {"type", "SIMPLE INVENTORY PORTAL CONVEYOR CUSTOM BEARING PORTAL_DIRECTIONALITY"},
    {"mode", "simple inventory portal conveyor custom"},
    {"environment", "LOW_INTERFERENCE HIGH_INTERFERENCE VERY_HIGH_INTERFERENCE AUTO_DETECT DEMO"},
    {"beams.polarization", polarizations},
    {"antennaStopCondition.type", "DURATION INVENTORY_COUNT SINGLE_INVENTORY_LIMITED_DURATION GPI"},
    {"antennaStopCondition.value.signal", signals},
    {"query.sel", "ALL NOT_SL SL"},
    {"query.session", "S0 S1 S2 S3"},
    {"query.target", "A B AB"},
    {"selects.target", "S0 S1 S2 S3 SL"},
    {"selects.action SL",
     "ASSERTSL_DEASSERTSL ASSERTSL_NOTHING NOTHING_DEASSERTSL NEGATESL_NOTHING DEASSERTSL_ASSERTSL "
     "DEASSERTSL_NOTHING NOTHING_ASSERTSL NOTHING_NEGATESL"},
    {"selects.action S0", sessionActions},
    {"selects.action S1", sessionActions},
    {"selects.action S2", sessionActions},
    {"selects.action S3", sessionActions},
    {"selects.membank", banks},
    {"accesses.type", "READ WRITE ACCESS LOCK KILL"},
    {"accesses.config READ.membank", banks},
    {"accesses.config WRITE.membank", banks},
    {"accesses.config LOCK.actions",
     "PERMALOCK_USER_BANK WRITE_LOCK_USER_BANK WRITE_UNLOCK_USER_BANK PERMALOCK_TID_BANK "
     "WRITE_LOCK_TID_BANK WRITE_UNLOCK_TID_BANK PERMALOCK_EPC_BANK WRITE_LOCK_EPC_BANK "
     "WRITE_UNLOCK_EPC_BANK PERMALOCK_ACCESS_PASSWORD READ_WRITE_LOCK_ACCESS_PASSWORD "
     "READ_WRITE_UNLOCK_ACCESS_PASSWORD PERMALOCK_KILL_PASSWORD READ_WRITE_LOCK_KILL_PASSWORD "
     "READ_WRITE_UNLOCK_KILL_PASSWORD",
     listOfWords},
    {"filter.match", "prefix suffix regex"},
    {"filter.operation", "include exclude"},
    {"radioStopConditions.gpis.signal", signals},
    {"radioStartConditions.type", "GPI GPI_WITH_RESTART"},
    {"radioStartConditions.gpis GPI.signal", signals},
    {"radioStartConditions.gpis GPI_WITH_RESTART.signal", signals},
    {"reportFilter.type", "RADIO_WIDE PER_ANTENNA"},
    {"reportFilter.addl_keys", "TID", listOfWords},
    {"modeSpecificSettings INVENTORY.interval.unit", units},
    {"modeSpecificSettings PORTAL.startTrigger.signal", signals},
    {"modeSpecificSettings BEARING.primaryBeamPolarization", polarizations},
    {"modeSpecificSettings PORTAL_DIRECTIONALITY.primaryBeamPolarization", polarizations},
    {"interval.unit", units},
    {"startTrigger.signal", signals},
    {"tagMetaData",
     "ANTENNA CHANNEL PC XPC CRC MAC HOSTNAME TAGURI EPCURI HEATMAP RSSI SEEN_COUNT PHASE BEARING LOCATION",
     listOfWordsAndBanks},
    {"delayBetweenAntennaCycles.type", "DISABLED NO_TAGS NO_UNIQUE_TAGS"},
};

constexpr object_row_s eventsObjects[] = {
    {"", "errors warnings heartbeat"},
    {"errors", "antenna radio tarnwick database"},
    {"warnings", "temperature radio_api tarnwick database"},
    {"warnings.temperature", "pa ambient"},
    {"heartbeat", "period stats"},
};

struct rules_s {
    std::span<const object_row_s> objects;
    std::span<const words_row_s> words;
};

unsigned kindOf(const json& value) {
    return value.is_string()   ? text
           : value.is_number() ? number
           : value.is_object() ? object
           : value.is_array()  ? array
                               : 0U;
}

std::string namesOf(unsigned kinds) {
    constexpr std::pair<kind_e, const char*> names[] = {
        {text, "a string"}, {number, "a number"}, {object, "an object"}, {array, "an array"}};
    std::string all;
    for (const auto& [kind, name] : names) {
        if ((kinds & kind) != 0) {
            all += (all.empty() ? "" : " or ") + std::string(name);
        }
    }
    return all;
}

// Each sentence once, however many antennas it is about.
struct faults_s {
    std::vector<std::string> sentences;
    std::set<std::string> told;
};

void tell(const std::string& sentence, faults_s* faults) {
    if (faults->told.insert(sentence).second) {
        faults->sentences.push_back(sentence);
    }
}

// A word as it stands in JSON: without control characters, for the terminal.
std::string quoted(const std::string& word) {
    return json(word).dump();
}

// "accesses.config READ.membank" as "accesses.config.membank", quoted; a word at
// the very end stays, in brackets.
std::string nameOf(std::string_view place) {
    std::string name, word;
    bool inWord = false;
    for (const char c : place) {
        if (c == ' ' || c == '.') {
            inWord = c == ' ';
            word.clear();
        }
        if (inWord) {
            word += c == ' ' ? "" : std::string(1, c);
        } else {
            name += c;
        }
    }
    return "\"" + name + "\"" + (word.empty() ? "" : " (" + word + ")");
}

// Whether one of `list`, by single blanks, is `word`.
bool holds(std::string_view list, std::string_view word) {
    while (!list.empty()) {
        const std::string_view first = list.substr(0, list.find(' '));
        if (first == word) {
            return true;
        }
        list.remove_prefix(std::min(first.size() + 1, list.size()));
    }
    return false;
}

template <class Row>
const Row* rowOf(std::span<const Row> rows, std::string_view place) {
    const auto row =
        std::ranges::find(rows, place, [](const Row& each) { return std::string_view(each.place); });
    return row == rows.end() ? nullptr : &*row;
}

// A bank, whole or by words: "TID", "USER[0-3,7]".
bool isBank(std::string_view word) {
    const std::string_view ranges = word.substr(std::min(word.find('['), word.size()));
    return holds(banks, word.substr(0, word.size() - ranges.size())) &&
           (ranges.empty() ||
            (ranges.size() > 2 && ranges.find_first_not_of("0123456789-,", 1) == ranges.size() - 1 &&
             ranges.ends_with(']')));
}

// The word that decides what stands at a place of this object. The old key "mode"
// says in small letters what "type" says.
std::string decidingWord(const json& parent, const char* key) {
    for (const char* name : {key, "mode"}) {
        if (const auto word = parent.find(name); word != parent.end() && word->is_string()) {
            std::string upper = word->get<std::string>();
            std::ranges::transform(upper, upper.begin(), [](unsigned char c) { return std::toupper(c); });
            return upper;
        }
    }
    return {};
}

std::string placeOf(const std::string& parentPlace, const json& parent, const std::string& key) {
    std::string place = parentPlace + (parentPlace.empty() ? "" : ".") + key;
    const auto* variant = std::ranges::find(variants, place, &variant_s::place);
    return variant == std::end(variants) ? place : place + " " + decidingWord(parent, variant->key);
}

void judge(const rules_s& rules, const json& value, const std::string& place, faults_s* faults);

void judgeObject(const rules_s& rules, const json& value, const std::string& place, faults_s* faults) {
    const auto* row = rowOf(rules.objects, place);
    if (row == nullptr) {
        return;
    }
    for (const auto& [key, member] : value.items()) {
        if (holds(row->keys, key)) {
            judge(rules, member, placeOf(place, value, key), faults);
        } else {
            tell(quoted(key) + " is no key of " + (place.empty() ? "\"events\"" : nameOf(place)) +
                     "; the daemon would pass it over",
                 faults);
        }
    }
}

void judgeWord(const words_row_s& row, const json& value, faults_s* faults) {
    const bool withBanks = row.shape == listOfWordsAndBanks;
    if (value.is_string()) {
        const auto& word = value.get_ref<const std::string&>();
        if (holds(row.words, word) || (withBanks && isBank(word))) {
            return;
        }
    }
    tell((value.is_primitive() ? value.dump() : namesOf(kindOf(value))) + " is no word of " +
             nameOf(row.place) + "; there may stand: " + row.words +
             (withBanks ? ", or a bank as in TID or USER[0-3]" : ""),
         faults);
}

void judge(const rules_s& rules, const json& value, const std::string& place, faults_s* faults) {
    const auto* row = rowOf(rules.words, place);
    if (row != nullptr && row->shape == oneWord) {
        judgeWord(*row, value, faults);
    } else if (value.is_array()) {
        for (const json& element : value) {
            if (row != nullptr && !(element.is_object() && rowOf(rules.objects, place) != nullptr)) {
                judgeWord(*row, element, faults);
            } else {
                judge(rules, element, place, faults);
            }
        }
    } else if (value.is_object()) {
        judgeObject(rules, value, place, faults);
    }
}

}  // namespace

std::vector<std::string> findModeFaults(const json& mode) {
    const rules_s rules{modeObjects, modeWords};
    faults_s faults;
    if (!mode.contains("type") && !mode.contains("mode")) {
        tell("\"type\" is missing", &faults);
    }
    for (const auto& [key, value] : mode.items()) {
        const auto* row = std::ranges::find(modeKeys, key, &mode_key_s::name);
        if (row == std::end(modeKeys)) {
            tell(quoted(key) + " is no key of a mode; the daemon would pass it over", &faults);
        } else if ((kindOf(value) & row->kinds) == 0) {
            tell("\"" + key + "\" must be " + namesOf(row->kinds), &faults);
        } else {
            judge(rules, value, placeOf("", mode, key), &faults);
        }
    }
    for (const auto& [first, second] : exclusiveKeys) {
        if (mode.contains(first) && mode.contains(second)) {
            tell("\"" + std::string(first) + "\" and \"" + second + "\" exclude each other", &faults);
        }
    }
    return faults.sentences;
}

std::vector<std::string> findEventsFaults(const json& settings) {
    static const words_row_s words[] = {{"heartbeat.stats", statusNames(), listOfWords}};
    faults_s faults;
    judgeObject({eventsObjects, words}, settings, "", &faults);
    return faults.sentences;
}

bool wouldEndDaemon(const json& settings, std::string* reason) {
    const json::json_pointer path("/heartbeat/stats");
    if (!settings.contains(path) || !settings.at(path).is_array() ||
        std::ranges::all_of(settings.at(path), [](const json& name) { return name.is_string(); })) {
        return false;
    }
    *reason = "\"stats\" holds what is no string, which would end the daemon";
    return true;
}
