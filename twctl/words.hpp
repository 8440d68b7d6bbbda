// SPDX-License-Identifier: MIT
// The words of the subcommands: what may stand behind what. Help, completion and the check
// before a request leaves walk the same table. What the daemon takes comes from the headers in
// words/, the rest are words of the client.
#pragma once

#include <string>
#include <string_view>
#include <vector>

// `path` are the words so far, `next` those that may follow, by single blanks:
//
//   path  configrxe custom packet N
//   next  enable disable
//
// A word is itself, "name=" and its values with bars between them, or one of the
// capital letters that stand for a value: N a number, BYTE a small one, HEX
// digits, HH:MM a time of day.
struct word_rule_s {
    std::string path;
    std::string next;
    bool repeated = false;  // any number of them, in any order
    std::string meaning{};  // of a number, for the help; empty where the path tells
};
const std::vector<word_rule_s>& wordRules();

// The words that may stand behind `words`; empty when none may.
std::vector<std::string> wordsAfter(const std::vector<std::string>& words);

// Whether every word from the second on may stand where it does. If not,
// `reason` is a sentence about the first that may not.
bool areWordsGood(const std::vector<std::string>& words, std::string* reason);

// What a person may type behind `words`: each word up to where its value begins.
std::vector<std::string> completionsAfter(const std::vector<std::string>& words);

// The words behind `line`, in lines that fit a terminal, the further ones behind `indent`.
std::string foldWords(std::string line, const std::vector<std::string>& words, const char* indent);

// The rules of a subcommand, a line each, for its help.
std::string describeWords(std::string_view command);

std::vector<std::string> splitWords(std::string_view text);
