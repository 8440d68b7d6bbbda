// SPDX-License-Identifier: MIT
// The regular expressions of the tag filter. A client may send any expression of the
// ECMAScript grammar of the standard library, and the engine thread tries it on each tag, so
// the time and the stack of a match are bounded.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

// The most characters of an expression. This also bounds the depth of its brackets, and so
// the stack that the library needs to read it, to 70 KiB.
inline constexpr std::size_t maxExpressionLength = 133;

// The most steps of one match. A step is a look at a character or a move in the text; at the
// beginning of the match and of each look-ahead come as many steps as the expression has
// states. A usual filter takes some hundred steps; all 20,000 take some milliseconds.
inline constexpr std::size_t maxMatchSteps = 20'000;

// The most bytes of stack that a match may use. The engine library determines the stack of its
// callback thread.
inline constexpr std::size_t maxMatchStack = 1024 * 1024;

// A compiled expression. Constant, so any thread may use it.
struct filter_expression_s;
using expression_t = std::shared_ptr<const filter_expression_s>;

// Sets *expression to the compiled text. False, with *expression null, for a text that
//   - the library refuses, also because it needs more than 100,000 states;
//   - is longer than maxExpressionLength;
//   - has a number of 19 digits or more, or repeats an empty part, "(?:)" or "a{0}", more
//     than about a thousand times: the library fails on these or takes seconds.
// Takes some tens of milliseconds at most. Main thread.
bool compileFilterExpression(const std::string& text, expression_t* expression);

// Whether the whole text matches. False when the match would need more than maxMatchSteps or
// maxMatchStack, and for null. Engine thread.
bool matchesFilterExpression(const expression_t& expression, std::string_view text);
