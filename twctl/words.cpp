// SPDX-License-Identifier: MIT
#include "words.hpp"

#include <algorithm>
#include <regex>
#include <sstream>

#include "sockets.hpp"
#include "status.hpp"
#include "watch.hpp"

namespace {

// The letters that stand for a value. The daemon takes a text where it expects a
// number for 0, or ends on it, so none leaves from here.
struct value_word_s {
    const char* word;
    const char* pattern;
};
constexpr value_word_s valueWords[] = {
    {"N", "-?[0-9]{1,10}([.][0-9]{1,6})?|0[xX][0-9a-fA-F]{1,8}"},
    {"BYTE", "[0-9]{1,3}"},
    {"HEX", "[0-9a-fA-F]+"},
    {"HH:MM", "[0-9]{1,2}:[0-9]{1,2}"},
};

constexpr const char* holdTimes = "gpio1holdtime=N gpio2holdtime=N gpio3holdtime=N gpio4holdtime=N";

std::vector<word_rule_s> makeRules() {
    std::string channelNames;
    for (const channel_s& channel : channels) {
        channelNames += std::string(channelNames.empty() ? "" : " ") + channel.name;
    }
    return {
        {"start", "doNotPersistState sim sim_bearing"},
        {"start sim", "N", false, "reads per second"},
        {"start sim_bearing", "N", false, "tags per second"},
        {"start sim_bearing N", "N", false, "number of the array reader, from 0"},
        {"start sim_bearing N N", "std_az=N std_el=N", true},
        {"data_analytics", "OFF STRING BINARY"},
        {"database_reset", "time=HH:MM"},
        {"error", "radioErrorLog"},
        {"logging", "radioPacketLog=ON|OFF"},
        {"peak_threshold", "N"},
        {"subscribers", "N"},
        {"tag_info", "v verbose"},
        {"configrxe", "custom shadow"},
        {"configrxe shadow", "enable disable"},
        {"configrxe custom",
         "olio select access id_filter inventory packet channel cableLoss hopperround taginfofields "
         "stopconditions startconditions reportfilter txDelayInterval aarHeight tagHeight staticVDynamic"},
        {"configrxe custom olio", "N"},
        {"configrxe custom olio N",
         "disable tx_beam=N rx_beam=N stop_type=inventory|time stop_value=N tx_pwr=N select_bitmask=N "
         "inv_param=N lp=N",
         true},
        {"configrxe custom select", "N"},
        {"configrxe custom select N",
         "disable target=N action=N membank=N pointer=N length=N truncate=N mask=HEX", true},
        {"configrxe custom access", "N"},
        {"configrxe custom access N",
         "disable type=read membank=N startWord=N wordCount=N accessCriteriaIdx=N stopCount=N", true},
        {"configrxe custom id_filter", "N"},
        {"configrxe custom id_filter N", "disable startIdx=N length=N mask=HEX", true},
        {"configrxe custom inventory", "N"},
        {"configrxe custom inventory N", "disable sel=ignore|~SL|SL session=N target=A|B|AB|a|b|ab initq=N",
         true},
        {"configrxe custom packet", "N"},
        {"configrxe custom packet N", "enable disable"},
        {"configrxe custom channel", "N"},
        {"configrxe custom channel N", "disable frequency=N max_pwr=N", true},
        {"configrxe custom cableLoss", "N"},
        {"configrxe custom cableLoss N", "N"},
        {"configrxe custom hopperround", "enable disable"},
        {"configrxe custom taginfofields",
         "epc rospec specid invparam antid rssi chanid 1sttime lasttime tagcount pc xpc1 xpc2 crc "
         "accessspec phase rssilin bearing brandid location",
         true},
        {"configrxe custom stopconditions",
         std::string("autonomous time=N tagcount=N olioloops=N gpiobitmask=N ") + holdTimes, true},
        {"configrxe custom startconditions", std::string("disable gpiobitmask=N ") + holdTimes, true},
        {"configrxe custom reportfilter", "disabled type=radio|antenna duration=N", true},
        {"configrxe custom txDelayInterval", "disable type=noReads|noUniqueReads duration=BYTE", true},
        {"configrxe custom aarHeight", "N"},
        {"configrxe custom tagHeight", "N"},
        {"configrxe custom staticVDynamic", "BYTE"},
        {"mode", "show verbose as-set set check"},
        {"events", "show set check"},
        {"status", statusNames(), true},
        {"watch", channelNames},
        {"beam", "N"},
        {"beam N", "N"},
        {"beam N N", "TOTAL THETA PHI RHCP LHCP"},
        {"engine", "gpi antenna pa temperature fail enter move leave database error apiError fault"},
        {"engine gpi", "N"},
        {"engine gpi N", "low high"},
        {"engine antenna", "N"},
        {"engine antenna N", "lost back"},
        {"engine pa", "N"},
        {"engine pa N", "low high good"},
        {"engine temperature", "pa ambient"},
        {"engine database", "warning full"},
    };
}

bool isOf(const std::string& expected, const std::string& word) {
    for (const value_word_s& value : valueWords) {
        if (expected == value.word) {
            return std::regex_match(word, std::regex(value.pattern));
        }
    }
    return expected == word;
}

// The fixed part of a word, up to its "=", and what may follow, between bars.
struct word_parts_s {
    std::string fixed;
    std::vector<std::string> values;  // empty: the fixed part is the whole word
};

word_parts_s partsOf(const std::string& expected) {
    const std::size_t equals = expected.find('=');
    if (equals == std::string::npos) {
        return {expected, {}};
    }
    word_parts_s parts{expected.substr(0, equals + 1), {}};
    std::istringstream values(expected.substr(equals + 1));
    for (std::string value; std::getline(values, value, '|');) {
        parts.values.push_back(value);
    }
    return parts;
}

bool isValueWord(const std::string& text) {
    return std::ranges::find(valueWords, text, [](const value_word_s& row) {
               return std::string(row.word);
           }) != std::end(valueWords);
}

bool matches(const std::string& expected, const std::string& word) {
    const word_parts_s parts = partsOf(expected);
    if (parts.values.empty()) {
        return isOf(expected, word);
    }
    return word.starts_with(parts.fixed) && std::ranges::any_of(parts.values, [&](const std::string& value) {
               return isOf(value, word.substr(parts.fixed.size()));
           });
}

// Whether the rule tells what follows `words`: its path is all of them, or, when
// it repeats, the first of them.
bool appliesTo(const word_rule_s& rule, const std::vector<std::string>& words) {
    const std::vector<std::string> path = splitWords(rule.path);
    if (path.size() > words.size() || (path.size() < words.size() && !rule.repeated)) {
        return false;
    }
    return std::equal(path.begin(), path.end(), words.begin(), isOf);
}

}  // namespace

const std::vector<word_rule_s>& wordRules() {
    static const std::vector<word_rule_s> rules = makeRules();
    return rules;
}

std::vector<std::string> wordsAfter(const std::vector<std::string>& words) {
    for (const word_rule_s& rule : wordRules()) {
        if (appliesTo(rule, words)) {
            return splitWords(rule.next);
        }
    }
    return {};
}

bool areWordsGood(const std::vector<std::string>& words, std::string* reason) {
    for (std::size_t i = 1; i < words.size(); ++i) {
        const std::vector<std::string> before(words.begin(), words.begin() + static_cast<std::ptrdiff_t>(i));
        const std::vector<std::string> expected = wordsAfter(before);
        const auto fits = [&](const std::string& word) { return matches(word, words[i]); };
        if (!std::ranges::any_of(expected, fits)) {
            *reason = "unexpected argument \"" + words[i] + "\" after \"" + joinWords(before) + "\"" +
                      (expected.empty() ? ", which is complete" : "; expected " + joinWords(expected));
            return false;
        }
    }
    return true;
}

std::vector<std::string> completionsAfter(const std::vector<std::string>& words) {
    std::vector<std::string> texts;
    for (const std::string& expected : wordsAfter(words)) {
        const word_parts_s parts = partsOf(expected);
        const bool open = !parts.values.empty() && isValueWord(parts.values.front());
        if (open || (parts.values.empty() && !isValueWord(expected))) {
            texts.push_back(parts.fixed);
        }
        for (const std::string& value : parts.values) {
            if (!open) {
                texts.push_back(parts.fixed + value);
            }
        }
    }
    return texts;
}

std::string foldWords(std::string line, const std::vector<std::string>& words, const char* indent) {
    constexpr std::size_t width = 78;
    std::string text;
    for (const std::string& word : words) {
        if (line.size() + 1 + word.size() > width) {
            text += line + "\n";
            line = indent;
        }
        line += " " + word;
    }
    return text + line;
}

std::string describeWords(std::string_view command) {
    std::string text;
    for (const word_rule_s& rule : wordRules()) {
        if (splitWords(rule.path).front() == command) {
            const std::string path = "  " + rule.path + (rule.repeated ? " any of:" : " one of:");
            text += foldWords(path, splitWords(rule.next), "        ") +
                    (rule.meaning.empty() ? "" : ", " + rule.meaning) + "\n";
        }
    }
    return text;
}

std::vector<std::string> splitWords(std::string_view text) {
    std::istringstream stream{std::string(text)};
    std::vector<std::string> words;
    for (std::string word; stream >> word;) {
        words.push_back(word);
    }
    return words;
}
