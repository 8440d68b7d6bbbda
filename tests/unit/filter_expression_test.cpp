// SPDX-License-Identifier: MIT
// What is an expression, and what one may do to the reader: the time and the stack of
// a match have a bound.
#include "filter_expression.hpp"

#include <gtest/gtest.h>

#include <vector>

namespace {

// Each of the costly expressions would take hours, 10 MB of the stack or, in the
// library, 6 s.
TEST(FilterExpression, CostsAreBounded) {
    const std::string tooLong(maxExpressionLength + 1, 'a');
    const std::pair<const char*, std::vector<std::string>> outcomes[] = {
        {"matches",
         {"a{124}", "(a|ab|b)+(?=)", "(?!b)(?=.*a{9})[0-9a-f]{124}", "(aa)\\1*", "[^\\W_]+\\b",
          "()a(?:){9}.*", "(?:){1000}a*", "(a)\\1{60}a{0,9}\\1{60}a*",
          std::string(30, '(') + "a*" + std::string(30, ')')}},
        {"does not match",
         {"(a)\\1{122}b", "(a*)*b", "((((a|a)*)*)*)*b", "(.*)(.*)(.*)(.*)(.*)(.*)(.*)(.*)\\1b", "(a*)*\\1b",
          "()\\1((z?){200}.)*", "(b)?(?:|){40}\\1", "(a)\\1((?:|){3800}a)*", "(?:|){16000}", "(a{0,}){1500}",
          "((((?=)){511}){16}a)*", "(a)\\1((((?=)){99}|a)*)*b", "a{125}"}},
        {"does not compile",
         {"(a)\\2", "a{2,1}", "a{9", "[z-a]", "(", "*", "\\", "[", "[[:", "[[:a", "a{99999}",
          "(a?){1000}{1000}", "a{99999999999999999999}", "()\\10000000000000000000", "(?:){33000}",
          "(?:a{0}){99}{99}", tooLong}}};
    for (const auto& [outcome, expressions] : outcomes) {
        for (const std::string& text : expressions) {
            expression_t expression;
            const std::string seen = !compileFilterExpression(text, &expression) ? "does not compile"
                                     : matchesFilterExpression(expression, std::string(124, 'a'))
                                         ? "matches"
                                         : "does not match";
            EXPECT_EQ(seen, outcome) << text;
        }
    }
}

}  // namespace
