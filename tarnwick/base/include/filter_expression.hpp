// SPDX-License-Identifier: MIT
// The regular expressions of the tag filter. A client sends any expression of the
// ECMAScript grammar as the standard library knows it, and the engine thread tries
// it on each tag: the time and the stack of a match are bounded.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

// Characters of an expression at most. They bound the depth of its brackets too, and
// with it the stack that the library takes to read it: 70 KiB.
inline constexpr std::size_t maxExpressionLength = 133;

// Steps of one match: looks at the text and moves in it, and at the begin of the
// match and of each look ahead one for each state of the expression. A usual filter
// takes some hundreds; all of them take some milliseconds.
inline constexpr std::size_t maxMatchSteps = 20'000;

// Bytes of the stack that a match may have taken at a step.
inline constexpr std::size_t maxMatchStack = 1024 * 1024;

// Never written once it is made.
struct filter_expression_s;
using expression_t = std::shared_ptr<const filter_expression_s>;

// Sets *expression to the compiled text. False, with *expression null, for a text that
// the library refuses, also for needing more than 100,000 states; for one that is
// longer than maxExpressionLength; and for two kinds that the library cannot cope
// with: a number of 19 digits or more, and an empty part, "(?:)" or "a{0}", repeated
// more than about a thousand times. Takes some tens of milliseconds at most. Main thread.
bool compileFilterExpression(const std::string& text, expression_t* expression);

// Whether the whole text matches; an expression that has not matched within
// maxMatchSteps and maxMatchStack does not, nor does null. Engine thread.
bool matchesFilterExpression(const expression_t& expression, std::string_view text);
