// SPDX-License-Identifier: MIT
// The file of what receivers refuse for good.
#include "dead_letter.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>

#include "gateway/program.hpp"

using testing::HasSubstr;

TEST(DeadLetter, KeepsWholeLinesWithinItsLimitAndSaysWhenItCannot) {
    const temp_dir_s directory;
    const sink_config_s config{.name = "erp",
                               .type = "webhook",
                               .deadLetterFile = directory.path / "folder/dead",
                               .deadLetterBytes = 1'000,  // two lines
                               .settings = {}};
    entry_s entry;
    entry.boot = 7;
    entry.number = 9;
    entry.body = reportText(9);
    dead_letter_c dead(config);
    EXPECT_THAT(dead.keep(entry, "x"), testing::Optional(HasSubstr("folder/dead: No such file")));
    std::filesystem::create_directory(directory.path / "folder");
    writeTextFile(config.deadLetterFile, "{}\n{\"half");  // as a kill leaves it

    signal(SIGXFSZ, SIG_IGN);  // the limit is an error of the write, in the middle of the line
    for (const bool isLimited : {true, false}) {
        const rlimit limit{isLimited ? 100 : RLIM_INFINITY, RLIM_INFINITY};
        ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
        EXPECT_EQ(dead.keep(entry, "said \"no\"\n").has_value(), isLimited);
        EXPECT_EQ(readTextFile(config.deadLetterFile).size() == 3, isLimited);
    }
    const std::string text = readTextFile(config.deadLetterFile);
    const nlohmann::json letter = nlohmann::json::parse(text.substr(text.find('\n')));
    EXPECT_EQ(letter.at("sink").dump() + letter.at("reason").dump(), R"("erp""said \"no\"\n")");
    EXPECT_EQ(letter.at("event").at("id"), "7/9");

    for (int i = 0; i < 4; ++i) {
        EXPECT_EQ(dead.keep(entry, std::to_string(i)), std::nullopt);
    }
    EXPECT_THAT(readTextFile(config.deadLetterFile + ".1"),
                testing::AllOf(HasSubstr(R"("1")"), HasSubstr(R"("2")")));
    EXPECT_THAT(readTextFile(config.deadLetterFile),
                testing::AllOf(HasSubstr(R"("3")"), testing::EndsWith("}\n")));
}
