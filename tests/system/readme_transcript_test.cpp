// SPDX-License-Identifier: MIT
// twctl and a real daemon: the session in the README, typed into a shell line by
// line, and the words of both.
#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>

#include "support/reader.hpp"

namespace {

using lines_t = std::vector<std::string>;

struct step_s {
    std::string command;
    lines_t output;
};

lines_t linesOf(const std::string& text) {
    std::istringstream stream(text);
    lines_t lines;
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    return lines;
}

std::vector<step_s> sessionOf(const std::string& readme) {
    const std::size_t begin = readme.find("<!-- session begins -->");
    const std::size_t end = readme.find("<!-- session ends -->");
    std::vector<step_s> steps;
    if (begin == std::string::npos || end == std::string::npos) {
        return steps;
    }
    for (const std::string& line : linesOf(readme.substr(begin, end - begin))) {
        if (line.starts_with("$ ")) {
            steps.push_back({line.substr(2), {}});
        } else if (!steps.empty() && line != "```") {
            steps.back().output.push_back(line);
        }
    }
    return steps;
}

// "..." stands for any part of a line.
bool matches(std::string_view pattern, std::string_view text) {
    const std::size_t dots = pattern.find("...");
    if (dots == pattern.npos) {
        return pattern == text;
    }
    if (text.substr(0, dots) != pattern.substr(0, dots)) {
        return false;
    }
    for (std::size_t at = dots; at <= text.size(); ++at) {
        if (matches(pattern.substr(dots + 3), text.substr(at))) {
            return true;
        }
    }
    return false;
}

// A line "..." stands for any lines.
bool matchesAll(const lines_t& patterns, const lines_t& lines, std::size_t p = 0, std::size_t l = 0) {
    if (p == patterns.size()) {
        return l == lines.size();
    }
    if (patterns[p] == "...") {
        return matchesAll(patterns, lines, p + 1, l) ||
               (l < lines.size() && matchesAll(patterns, lines, p, l + 1));
    }
    return l < lines.size() && matches(patterns[p], lines[l]) && matchesAll(patterns, lines, p + 1, l + 1);
}

// The programs that are started in the background end with the shell, however it ends.
const char* const preamble = "PATH='" TARNWICK_BIN_DIR
                             "':$PATH\n"
                             "rm_server() { exec setpriv --pdeathsig KILL rm_server \"$@\"; }\n"
                             "tarnwick() { exec setpriv --pdeathsig KILL tarnwick \"$@\"; }\n"
                             "trap 'kill $(jobs -p) 2> /dev/null; wait' EXIT\n";

lines_t completionsOf(const std::string& line) {
    process_s client(TARNWICK_BIN_DIR "/twctl", {{"complete", line}, {}, {}});
    EXPECT_EQ(client.waitForExit(), 0);
    return linesOf(client.output());
}

}  // namespace

TEST(ReadmeTranscript, RunsAsItIsWritten) {
    const std::vector<step_s> steps = sessionOf(readTextFile(TARNWICK_SOURCE_DIR "/README.md"));
    ASSERT_GT(steps.size(), 20U);
    std::filesystem::remove(replyFile);
    const temp_dir_s directory;
    process_s shell("bash", {{"--norc"}, {}, directory.path});
    shell.write(preamble);
    std::size_t seen = 0;
    for (std::size_t i = 0; i < steps.size(); ++i) {
        // The mark comes behind the output; the status stays for an "echo $?".
        const std::string mark = "=== step " + std::to_string(i) + " ===\n";
        shell.write(steps[i].command + "\n(status=$?; printf '" + mark.substr(0, mark.size() - 1) +
                    "\\n'; exit $status)\n");
        ASSERT_TRUE(shell.waitForOutput(mark)) << steps[i].command << "\n" << shell.output().substr(seen);
        const std::string output = shell.output();
        const std::size_t end = output.find(mark, seen);
        const std::string shown = output.substr(seen, end - seen);
        EXPECT_TRUE(matchesAll(steps[i].output, linesOf(shown))) << "$ " << steps[i].command << "\n" << shown;
        seen = end + mark.size();
    }
    shell.closeInput();
    EXPECT_EQ(shell.waitForExit(), 0);
}

TEST(ReadmeTranscript, TheClientKnowsTheDaemonsWords) {
    reader_s reader;
    const lines_t help = linesOf(ask("help"));  // "Success:", then each name and its purpose
    const lines_t subcommands = completionsOf("twctl ");
    ASSERT_GT(help.size(), 30U);
    for (std::size_t i = 1; i < help.size(); i += 2) {
        if (help[i] != "test") {  // it does nothing
            EXPECT_NE(std::ranges::find(subcommands, help[i]), subcommands.end()) << help[i];
        }
    }
    const lines_t sections = completionsOf("twctl configrxe custom ");
    ASSERT_EQ(sections.size(), 17U);
    for (const std::string& section : sections) {
        EXPECT_NE(ask("configrxe custom " + section + " 1"), "Success")
            << section;  // the reply to an unknown one
    }
    EXPECT_EQ(reader.exit(), 0);
}
