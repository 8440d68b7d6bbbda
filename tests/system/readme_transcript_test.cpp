// SPDX-License-Identifier: MIT
// twctl and a real daemon: the session in the README, typed into a shell line by
// line, and the words of both.
#include <span>

#include "system/exchange.hpp"

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
    const std::size_t begin = std::min(readme.find("<!-- session begins -->"), readme.size());
    std::vector<step_s> steps;
    for (const std::string& line :
         linesOf(readme.substr(begin, readme.find("<!-- session ends -->") - begin))) {
        if (line.starts_with("$ ")) {
            steps.push_back({line.substr(2), {}});
        } else if (!steps.empty() && line != "```") {
            steps.back().output.push_back(line);
        }
    }
    return steps;
}

// A line "..." stands for any lines, within a line "..." for any part of it.
bool fits(std::span<const std::string> patterns, std::span<const std::string> lines) {
    if (patterns.empty()) {
        return lines.empty();
    }
    if (patterns[0] == "..." && fits(patterns.subspan(1), lines)) {
        return true;
    }
    const std::string pattern = std::regex_replace(patterns[0], std::regex("\\.\\.\\."), "*");
    return !lines.empty() && textFits(pattern, lines[0]) &&
           fits(patterns.subspan(pattern == "*" ? 0 : 1), lines.subspan(1));
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
        shell.write(steps[i].command + "\n(status=$?; printf '" + mark + "'; exit $status)\n");
        ASSERT_TRUE(shell.waitForOutput(mark)) << steps[i].command << "\n" << shell.output().substr(seen);
        const std::string output = shell.output();
        const std::string shown = output.substr(seen, output.find(mark, seen) - seen);
        EXPECT_TRUE(fits(steps[i].output, linesOf(shown))) << "$ " << steps[i].command << "\n" << shown;
        seen += shown.size() + mark.size();
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
        const auto found = std::ranges::find(subcommands, help[i]);
        EXPECT_TRUE(found != subcommands.end() || help[i] == "test") << help[i];  // it does nothing
    }
    const lines_t sections = completionsOf("twctl configrxe custom ");
    ASSERT_EQ(sections.size(), 17U);
    for (const std::string& section : sections) {  // "Success" is the reply to an unknown one
        EXPECT_NE(ask("configrxe custom " + section + " 1"), "Success") << section;
    }
    EXPECT_EQ(reader.exit(), 0);
}
