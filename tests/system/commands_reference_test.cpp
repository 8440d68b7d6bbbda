// SPDX-License-Identifier: MIT
// Each example of the command reference gives the reply that stands there.
#include "system/exchange.hpp"

namespace {

class CommandsExamples : public testing::TestWithParam<example_s> {};

TEST_P(CommandsExamples, holds) {
    playExample(GetParam());
}

INSTANTIATE_TEST_SUITE_P(Docs, CommandsExamples, testing::ValuesIn(examplesOf("commands.md")),
                         [](const auto& row) { return row.param.name; });

TEST(CommandsReference, hasAnExampleOfEachCommand) {
    std::string requests;
    std::vector<std::string> help;
    for (const example_s& example : examplesOf("commands.md")) {
        help = example.name == "help_1" ? example.lines : help;
        for (const std::string& line : example.lines) {
            requests += line + " \n";
        }
    }
    ASSERT_EQ(help.size(), 2 + 2 * 17U);  // request, "Success:", name and text of each
    for (std::size_t i = 2; i < help.size(); i += 2) {
        EXPECT_NE(requests.find("> " + help[i] + " "), std::string::npos) << help[i];
    }
}

}  // namespace
