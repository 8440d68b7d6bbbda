// SPDX-License-Identifier: MIT
// twctl and a real daemon: the session in the README, typed into a shell line by
// line, and the words of both.
#include "system/exchange.hpp"
#include "twctl/peer.hpp"

namespace {

using lines_t = std::vector<std::string>;

using step_t = std::pair<std::string, std::string>;  // a command, and its output as a regular expression

lines_t linesOf(const std::string& text) {
    std::istringstream stream(text);
    lines_t lines;
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    return lines;
}

// A line "..." stands for any lines, within a line "..." for any part of it.
std::vector<step_t> sessionOf(const std::string& readme) {
    const std::size_t begin = readme.find("<!-- session begins -->");
    std::vector<step_t> steps;
    for (const std::string& line :
         linesOf(readme.substr(begin, readme.find("<!-- session ends -->") - begin))) {
        if (line.starts_with("$ ")) {
            steps.push_back({line.substr(2), ""});
        } else if (!steps.empty() && line != "```") {
            const std::string part = std::regex_replace(literal(line), std::regex(R"((\\\.){3})"), ".*");
            steps.back().second += line == "..." ? "(.*\n)*" : part + "\n";
        }
    }
    return steps;
}

// The programs that are started in the background end with the shell, however it ends.
const char* const preamble = "PATH='" TARNWICK_BIN_DIR
                             "':$PATH\n"
                             "rm_server() { exec setpriv --pdeathsig KILL rm_server \"$@\"; }\n"
                             "tarnwick() { exec setpriv --pdeathsig KILL tarnwick \"$@\"; }\n"
                             "trap 'kill $(jobs -p) 2> /dev/null; wait' EXIT\n";

}  // namespace

TEST(ReadmeTranscript, RunsAsItIsWritten) {
    const std::vector<step_t> steps = sessionOf(readTextFile(TARNWICK_SOURCE_DIR "/README.md"));
    ASSERT_GT(steps.size(), 20U);
    std::filesystem::remove(replyFile);
    const temp_dir_s directory;
    process_s shell("bash", {{"--norc"}, {}, directory.path});
    shell.write(preamble);
    std::size_t seen = 0;
    for (const auto& [command, output] : steps) {
        // The mark comes behind the output; the status stays for an "echo $?".
        const std::string mark = "=== step behind " + std::to_string(seen) + " ===\n";
        shell.write(command + "\n(status=$?; printf '" + mark + "'; exit $status)\n");
        ASSERT_TRUE(shell.waitForOutput(mark)) << command << "\n" << shell.output().substr(seen);
        const std::string all = shell.output();
        const std::string shown = all.substr(seen, all.find(mark, seen) - seen);
        EXPECT_TRUE(std::regex_match(shown, std::regex(output))) << "$ " << command << "\n" << shown;
        seen += shown.size() + mark.size();
    }
    shell.closeInput();
    EXPECT_EQ(shell.waitForExit(), 0);
}

TEST(ReadmeTranscript, TheClientKnowsTheDaemonsWords) {
    reader_s reader;
    const lines_t help = linesOf(ask("help"));  // "Success:", then each name and its purpose
    const lines_t subcommands = linesOf(outputOf(twctlProgram, {"complete", "twctl "}));
    ASSERT_GT(help.size(), 30U);
    for (std::size_t i = 1; i < help.size(); i += 2) {
        EXPECT_EQ(std::ranges::count(subcommands, help[i]), 1) << help[i];
    }
    // What the daemon tells of itself, its names of statistics too, is without a fault.
    const std::string events = outputOf(twctlProgram, {"events"});
    EXPECT_EQ(outputOf(twctlProgram, {"events", "set", events}), "Success\n");
    ask("error radioErrorLog");
    EXPECT_TRUE(eventually([] {
        const std::string status = outputOf(twctlProgram, {"status"});
        return std::regex_search(status, std::regex("\nlast alarms    [0-9T:.-]+Z ERROR RXE Error: "));
    }));
    EXPECT_EQ(reader.exit(), 0);
}
