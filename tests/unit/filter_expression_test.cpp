// SPDX-License-Identifier: MIT
// What an expression may do to the reader: the time of a match and the time and
// memory of a compilation have a bound.
#include "filter_expression.hpp"

#include <gtest/gtest.h>

#include <chrono>

namespace {

TEST(FilterExpression, CostsAreBounded) {
    const std::string digits(124, 'a');
    const struct {
        const char* expression;
        bool compiles, matches;
    } rows[] = {
        {"a{124}", true, true},
        {"(.?){124}", true, true},
        {"(a|ab|b)+(?=)", true, true},
        {"(aa)\\1*", true, true},
        {"(a)\\1{122}b", true, false},
        {"[^\\W_]+\\b", true, true},
        {"(a*)*b", true, false},
        {"((((a|a)*)*)*)*b", true, false},
        {"(.*)(.*)(.*)(.*)(.*)(.*)(.*)(.*)\\1b", true, false},
        {"(a*)*\\1b", true, false},
        {"()\\1((z?){200}.)*", true, false},  // would take 10 MB of the stack
        {"()\\1(a?){14000}", false, false},
        {"a{9999}", true, false},
        {"(?:){40000}", false, false},  // 6 s in the library
        {"(a{0,0}){40000}", false, false},
        {"()a(?:){9}.*", true, true},
        {".{0,60}[0-9a-f]{0,60}a{0,40}", true, true},
        {"(((a{100}){100}){100}){100}", false, false},
        {"a{99999}", false, false},
        {"(a)\\2", false, false},
        {"a{2,1}", false, false},
        {"[z-a]", false, false},
        {"*", false, false},
    };
    const auto begin = std::chrono::steady_clock::now();
    for (const auto& row : rows) {
        SCOPED_TRACE(row.expression);
        const auto expression = compileFilterExpression(row.expression);
        ASSERT_EQ(expression != nullptr, row.compiles);
        if (expression != nullptr) {
            EXPECT_EQ(matchesFilterExpression(*expression, digits), row.matches);
        }
    }
    // A single one of the bad rows would take hours.
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(60));
}

}  // namespace
