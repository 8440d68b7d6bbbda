// SPDX-License-Identifier: MIT
// The regular expressions of the tag filter. A client may send any expression of
// the ECMAScript grammar, and the engine thread tries it on each tag: the memory
// of an expression, and the time and the stack of a match are bounded.
#pragma once

#include <cstddef>
#include <memory>
#include <regex>
#include <string>
#include <string_view>

// Looks at the text, tests for its end included, that one match may take. An
// expression of a usual filter takes some hundreds.
inline constexpr std::size_t maxMatchSteps = 200'000;

// Bytes of the stack that a match may have taken when it looks at the text.
inline constexpr std::size_t maxMatchStack = 1024 * 1024;

// Characters of an expression with its counts ("{3}", "{2,7}") written out, where it
// has a back-reference or a part that can take no digit, such as "()" or "a{0}". For
// those the library's time or stack would grow out of all bounds.
inline constexpr std::size_t maxUnfoldedLength = 10'000;

// Digits of an EPC at most: 255 bytes.
inline constexpr std::size_t maxEpcDigits = 510;

// Where an expression looks ahead ("(?=", "(?!"): marks that all its looks may set up.
// The library sets one up for each of its states each time it begins to look ahead.
inline constexpr std::size_t maxLookaheadMarks = 20'000'000;

// Never written once it is made.
struct filter_expression_s {
    std::regex regex;
    std::size_t steps;  // that a match may take, at most maxMatchSteps
};

// Null matches nothing.
using expression_t = std::shared_ptr<const filter_expression_s>;

// Sets *expression to the compiled text, or to null where that would cost too much:
// beyond maxUnfoldedLength, or more states than the library allows (100,000). Takes
// some tens of milliseconds at most. False for a text that is no expression. Main
// thread.
bool compileFilterExpression(const std::string& text, expression_t* expression);

// Whether the whole text matches; an expression that has not matched within
// maxMatchSteps and maxMatchStack does not. Nothing is thrown. Engine thread.
bool matchesFilterExpression(const expression_t& expression, std::string_view text);
