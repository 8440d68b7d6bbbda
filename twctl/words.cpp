// SPDX-License-Identifier: MIT
// The rules of the commands are made from the headers in words/; what only the client knows is
// in addOwnRules().
#include "words.hpp"

#include <algorithm>
#include <array>
#include <iterator>
#include <regex>
#include <span>
#include <sstream>

#include "beam_grid.hpp"
#include "command_words.hpp"
#include "configrxe_words.hpp"
#include "sockets.hpp"
#include "status.hpp"
#include "watch.hpp"

namespace {

using vocabulary::argument_s;
using vocabulary::value_e;

// The letters that stand for a value. The daemon reads 0 from a text that is not a number, or
// ends on it, so such a text is not sent.
struct value_word_s {
    value_e value;
    const char* word;
    const char* pattern;
};
constexpr value_word_s valueWords[] = {
    {value_e::number, "N", "-?[0-9]{1,10}([.][0-9]{1,6})?|0[xX][0-9a-fA-F]{1,8}"},
    {value_e::byte, "BYTE", "[0-9]{1,3}"},
    {value_e::hex, "HEX", "[0-9a-fA-F]+"},
    {value_e::timeOfDay, "HH:MM", "[0-9]{1,2}:[0-9]{1,2}"},
};

// An argument as the rules have it: "disable", "lp=N", "stop_type=inventory|time", "N".
std::string ruleWordOf(const argument_s& argument) {
    std::string text(argument.name);
    text += text.empty() || argument.value == value_e::none ? "" : "=";
    for (const vocabulary::choice_s& choice : argument.choices) {
        text += (choice.word == argument.choices.front().word ? "" : "|") + std::string(choice.word);
    }
    const auto* row = std::ranges::find(valueWords, argument.value, &value_word_s::value);
    return row == std::end(valueWords) ? text : text + row->word;
}

std::string ruleWordsOf(std::span<const argument_s> arguments) {
    std::vector<std::string> words;
    for (const argument_s& argument : arguments) {
        words.push_back(ruleWordOf(argument));
    }
    return joinWords(words);
}

// The names of a table's rows.
template <class Table, class Name>
std::string namesOf(const Table& table, Name name) {
    std::vector<std::string> names;
    for (const auto& row : table) {
        names.emplace_back(row.*name);
    }
    return joinWords(names);
}

// "mode" has subcommands of its own here, below. What follows the words of "start" and "trace" is a
// word of its own, not a part of them.
void addCommandRules(std::vector<word_rule_s>* rules) {
    for (const vocabulary::command_s& command : vocabulary::commands) {
        if (!command.arguments.empty() && command.word != vocabulary::mode.word) {
            rules->push_back({std::string(command.word), ruleWordsOf(command.arguments)});
        }
    }
    const std::string start(vocabulary::start.word);
    const std::string sim = joinWords({start, ruleWordOf(vocabulary::sim)});
    const std::string simBearing = joinWords({start, ruleWordOf(vocabulary::simBearing)});
    rules->push_back({sim, "N", false, "reads per second"});
    rules->push_back({simBearing, "N", false, "tags per second"});
    rules->push_back({simBearing + " N", "N", false, "number of the array reader, from 0"});
    rules->push_back({simBearing + " N N", ruleWordsOf(vocabulary::simBearingArguments), true});
    const std::string trace(vocabulary::trace.word);
    rules->push_back({trace, namesOf(vocabulary::traceArguments, &argument_s::name)});
    for (const argument_s& argument : vocabulary::traceArguments) {
        if (argument.value == value_e::hex) {
            rules->push_back({joinWords({trace, std::string(argument.name)}), "HEX"});
        }
    }
}

void addConfigrxeRules(std::vector<word_rule_s>* rules) {
    namespace words = vocabulary::configrxe_words;
    const std::string command(vocabulary::configrxe.word);
    const std::string custom = command + " " + std::string(words::custom);
    const std::string shadow = command + " " + std::string(words::shadow);
    rules->push_back({command, std::string(words::custom) + " " + std::string(words::shadow)});
    rules->push_back({shadow, ruleWordsOf(words::enableOrDisable)});
    rules->push_back({custom, namesOf(words::sections, &words::section_s::word)});
    for (const words::section_s& section : words::sections) {
        std::string path = custom + " " + std::string(section.word);
        if (section.id != words::id_e::none) {
            rules->push_back({path, "N"});
            path += " N";
        }
        rules->push_back({path, ruleWordsOf(section.arguments), section.repeated});
    }
}

// What the daemon does not know as a request: the client's own subcommands.
void addOwnRules(std::vector<word_rule_s>* rules) {
    const word_rule_s own[] = {
        {"mode", "show verbose as-set set check"},
        {"events", "show set check"},
        {"status", statusNames(), true},
        {"watch", namesOf(channels, &channel_s::name)},
        {"beam", "N"},
        {"beam N", "N"},
        {"beam N N", joinWords({beam_grid::polarizationNames.begin(), beam_grid::polarizationNames.end()})},
        {"engine",
         "gpi antenna pa temperature fail enter move leave database error apiError fault tag failing"},
        {"engine gpi", "N"},
        {"engine gpi N", "low high"},
        {"engine antenna", "N"},
        {"engine antenna N", "lost back"},
        {"engine pa", "N"},
        {"engine pa N", "low high good"},
        {"engine temperature", "pa ambient"},
        {"engine database", "warning full"},
    };
    rules->insert(rules->end(), std::begin(own), std::end(own));
}

std::vector<word_rule_s> makeRules() {
    std::vector<word_rule_s> rules;
    addCommandRules(&rules);
    addConfigrxeRules(&rules);
    addOwnRules(&rules);
    return rules;
}

// Whether a typed word is the expected one, or a value that the expected letters stand for.
bool isOf(const std::string& expected, const std::string& word) {
    // Compiled once: that takes longer than everything else that is done with a word.
    static const auto patterns = [] {
        std::array<std::regex, std::size(valueWords)> compiled;
        std::ranges::transform(
            valueWords, compiled.begin(), [](const char* text) { return std::regex(text); },
            &value_word_s::pattern);
        return compiled;
    }();
    for (std::size_t i = 0; i < patterns.size(); ++i) {
        if (expected == valueWords[i].word) {
            return std::regex_match(word, patterns[i]);
        }
    }
    return expected == word;
}

// The fixed part of a word, up to its "=", and what may follow, between bars.
struct word_parts_s {
    std::string fixed;
    std::vector<std::string> values;  // empty: the fixed part is the whole word
};

// "stop_type=inventory|time" is the fixed part "stop_type=" and two values.
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

// The same as isOf for a word of a rule, with its value.
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
