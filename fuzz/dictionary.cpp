// SPDX-License-Identifier: MIT
// Writes a dictionary for libFuzzer: what the input of a target is made of.
//
//   fuzz_dictionary SCHEMA               keys and words of a JSON document
//   fuzz_dictionary SCHEMA --requests    the same, and the words of all requests
//
// On standard output, a quoted entry a line, sorted. Exit status 1 for a schema without words.
#include <cstdio>
#include <fstream>
#include <nlohmann/json.hpp>
#include <set>
#include <span>
#include <string>

#include "command_words.hpp"
#include "configrxe_words.hpp"
#include "stat_names.hpp"

namespace {

using nlohmann::json;
using entries_t = std::set<std::string>;

std::string quoted(const std::string& text) {
    return "\"" + text + "\"";
}

// Texts behind "enum" and "const".
void addWords(const json& values, entries_t* entries) {
    for (const json& value : values.is_array() ? values : json::array({values})) {
        if (value.is_string()) {
            entries->insert(quoted(value));
        }
    }
}

// The keys of all members that the schema knows and all fixed texts, at any depth.
void addSchema(const json& schema, entries_t* entries) {
    for (const auto& [keyword, value] : schema.items()) {
        if (keyword == "properties" && value.is_object()) {
            for (const auto& [key, member] : value.items()) {
                entries->insert(quoted(key) + ":");
                addSchema(member, entries);
            }
        } else if (keyword == "enum" || keyword == "const") {
            addWords(value, entries);
        } else if (value.is_structured()) {
            addSchema(value, entries);
        }
    }
}

void addArguments(std::span<const vocabulary::argument_s> arguments, entries_t* entries) {
    for (const vocabulary::argument_s& argument : arguments) {
        const bool complete = argument.value == vocabulary::value_e::none;
        if (!argument.name.empty()) {
            entries->insert(std::string(argument.name) + (complete ? "" : "="));
        }
        for (const vocabulary::choice_s& choice : argument.choices) {
            entries->emplace(choice.word);
        }
    }
}

void addRequests(entries_t* entries) {
    namespace words = vocabulary::configrxe_words;
    for (const std::span<const vocabulary::command_s> table :
         {std::span<const vocabulary::command_s>(vocabulary::commands),
          std::span<const vocabulary::command_s>(vocabulary::unlistedCommands)}) {
        for (const vocabulary::command_s& command : table) {
            entries->emplace(command.word);
            addArguments(command.arguments, entries);
        }
    }
    addArguments(vocabulary::simBearingArguments, entries);
    addArguments(words::enableOrDisable, entries);
    entries->emplace(words::custom);
    entries->emplace(words::shadow);
    for (const words::section_s& section : words::sections) {
        entries->emplace(section.word);
        addArguments(section.arguments, entries);
    }
    entries->insert(std::begin(vocabulary::stats), std::end(vocabulary::stats));
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fprintf(stderr, "fuzz_dictionary SCHEMA [--requests]\n");
        return 1;
    }
    std::ifstream file(argv[1]);
    entries_t entries;
    addSchema(json::parse(file, nullptr, false), &entries);
    if (entries.empty()) {
        std::fprintf(stderr, "fuzz_dictionary: no words in %s\n", argv[1]);
        return 1;
    }
    if (argc > 2 && argv[2] == std::string("--requests")) {
        addRequests(&entries);
    }
    // Numbers at the edge of a type, and a range of words of a memory bank.
    entries.insert({"-1", "4294967295", "1e300", "nan", "0x", "[0-3,7]"});
    for (const std::string& entry : entries) {
        std::printf("%s\n", json(entry).dump().c_str());  // libFuzzer's escapes are among JSON's
    }
    return 0;
}
