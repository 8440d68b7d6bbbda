// SPDX-License-Identifier: MIT
// Each example of the command reference gives the reply that stands there, and each
// recipe of the cookbook does what it says.
#include "system/exchange.hpp"

namespace {

class Documents : public testing::TestWithParam<example_s> {};

TEST_P(Documents, hold) {
    playExample(GetParam());
}

const auto nameOf = [](const auto& row) { return row.param.name; };
INSTANTIATE_TEST_SUITE_P(Commands, Documents, testing::ValuesIn(examplesOf("commands.md")), nameOf);
INSTANTIATE_TEST_SUITE_P(Why, Documents, testing::ValuesIn(examplesOf("why.md")), nameOf);
INSTANTIATE_TEST_SUITE_P(WhyRules, Documents, testing::ValuesIn(examplesOf("../tests/system/why.txt")),
                         nameOf);
INSTANTIATE_TEST_SUITE_P(Restart, Documents, testing::ValuesIn(examplesOf("restart.md")), nameOf);
INSTANTIATE_TEST_SUITE_P(Cookbook, Documents, testing::ValuesIn(examplesOf("cookbook.md")), nameOf);

TEST(DocumentsTogether, haveAnExampleOfEachCommandAndRecipesWithReports) {
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
    const std::vector<example_s> recipes = examplesOf("cookbook.md");
    EXPECT_GE(recipes.size(), 12U);
    for (const example_s& recipe : recipes) {
        EXPECT_EQ(recipe.mode, recipe.modeFile) << recipe;
        EXPECT_TRUE(nlohmann::json::accept(recipe.mode) && nlohmann::json::accept(recipe.radio)) << recipe;
        EXPECT_NE(std::ranges::find(recipe.lines, "> start"), recipe.lines.end()) << recipe;
    }
}

}  // namespace
