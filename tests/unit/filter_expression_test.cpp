// SPDX-License-Identifier: MIT
// What an expression may do to the reader: the time of a match and the time and
// memory of a compilation have a bound.
#include "filter_expression.hpp"

#include <gtest/gtest.h>

#include <chrono>

namespace {

// A single one of the costly expressions would take hours, 10 MB of the stack or, in
// the library, 6 s.
TEST(FilterExpression, CostsAreBounded) {
    using list_t = std::vector<const char*>;
    const std::pair<const char*, list_t> outcomes[] = {
        {"matches",
         {"a{124}", "(.?){124}", "(a|ab|b)+(?=)", "(aa)\\1*", "[^\\W_]+\\b", "()a(?:){9}.*",
          ".{0,60}[0-9a-f]{0,60}a{0,40}"}},
        {"does not match",
         {"(a)\\1{122}b", "(a*)*b", "((((a|a)*)*)*)*b", "(.*)(.*)(.*)(.*)(.*)(.*)(.*)(.*)\\1b", "(a*)*\\1b",
          "()\\1((z?){200}.)*", "a{9999}"}},
        {"does not compile",
         {"()\\1(a?){14000}", "(?:){40000}", "(a{0,0}){40000}", "(((a{100}){100}){100}){100}", "a{99999}",
          "(a)\\2", "a{2,1}", "[z-a]", "*"}}};
    const auto begin = std::chrono::steady_clock::now();
    for (const auto& [outcome, expressions] : outcomes) {
        for (const char* text : expressions) {
            const auto expression = compileFilterExpression(text);
            const std::string seen = expression == nullptr ? "does not compile"
                                     : matchesFilterExpression(*expression, std::string(124, 'a'))
                                         ? "matches"
                                         : "does not match";
            EXPECT_EQ(seen, outcome) << text;
        }
    }
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(60));
}

}  // namespace
