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
         {"a{124}", "(.?){124}", "(a|ab|b)+(?=)", "(?!b)(?=.*a{9})[0-9a-f]{124}", "(aa)\\1*", "[^\\W_]+\\b",
          "()a(?:){9}.*", ".{0,60}[0-9a-f]{0,60}a{0,40}", "(?:){40000}a*", "(a{0,0}){40000}a+",
          "a{0,99999999999999999999}", "(a)\\1{60}a{0,9}\\1{60}a*", "()\\1(a?a?){100}.*", "((a?){40}){9}"}},
        {"does not match",
         {"(a)\\1{122}b", "(a*)*b", "((((a|a)*)*)*)*b", "(.*)(.*)(.*)(.*)(.*)(.*)(.*)(.*)\\1b", "(a*)*\\1b",
          "()\\1((z?){200}.)*", "a{125}", "a{99999}", "a{99999,}"}},
        // Expressions as well, of which some would match if that did not cost too much.
        {"does not match",
         {"()\\1((a?){99}){99}.*", "((((?:){99})*{99}){99}a?){999}", "(((a{100}){100}){100}){100}",
          "((((?=)){511}){16}a)*", "((((?=)){511}){16}a)*|(b{300}){150}", "(((?=)a?){511}){2}|(b{300}){150}",
          "((((?=)){100}){5}a)*|(b{300}){30}", "(a)\\1((((?=)){99}|a)*)*b"}},
        {"does not compile",
         {"(a)\\2", "(a)\\4294967297", "a{2,1}", "a{999,998}", "(?:){40000}(",
          "((((?:){99}){99}){99}){999}{2,1}", "a{9", "[z-a]", "*", "\\", "[", "[[:", "[[:a"}}};
    const auto begin = std::chrono::steady_clock::now();
    for (const auto& [outcome, expressions] : outcomes) {
        for (const char* text : expressions) {
            expression_t expression;
            const std::string seen = !compileFilterExpression(text, &expression) ? "does not compile"
                                     : matchesFilterExpression(expression, std::string(124, 'a'))
                                         ? "matches"
                                         : "does not match";
            EXPECT_EQ(seen, outcome) << text;
        }
    }
    // What only looks like a count.
    for (const auto& [text, match] : {std::pair{"[{999}]{3}\\c{?", "999"}, {"[[.a.]{999}]*", "a999"}}) {
        expression_t expression;
        EXPECT_TRUE(compileFilterExpression(text, &expression) && matchesFilterExpression(expression, match))
            << text;
    }
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(5));
}

}  // namespace
