// SPDX-License-Identifier: MIT
// Each recipe of the cookbook does what it says.
#include "system/exchange.hpp"

namespace {

class Cookbook : public testing::TestWithParam<example_s> {};

TEST_P(Cookbook, holds) {
    playExample(GetParam());
}

INSTANTIATE_TEST_SUITE_P(Docs, Cookbook, testing::ValuesIn(examplesOf("cookbook.md")),
                         [](const auto& row) { return row.param.name; });

TEST(CookbookRecipes, areModesWithReports) {
    const std::vector<example_s> recipes = examplesOf("cookbook.md");
    EXPECT_GE(recipes.size(), 12U);
    for (const example_s& recipe : recipes) {
        EXPECT_TRUE(nlohmann::json::accept(recipe.mode)) << recipe;
        EXPECT_NE(std::ranges::find(recipe.lines, "> start"), recipe.lines.end()) << recipe;
    }
}

}  // namespace
