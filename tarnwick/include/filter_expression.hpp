// SPDX-License-Identifier: MIT
// The regular expressions of the tag filter. A client may send any expression of
// the ECMAScript grammar, and the engine thread tries it on each tag: both the
// memory of an expression and the time of a match are bounded.
#pragma once

#include <cstddef>
#include <memory>
#include <regex>
#include <string>
#include <string_view>

// Looks at the text, tests for its end included, that one match may take. An
// expression of a usual filter takes some hundreds.
inline constexpr std::size_t maxMatchSteps = 200'000;

// The compiled expression, or null for a text that is none. An expression that
// unfolds to more states than the library allows (100,000) is none either. Main
// thread.
std::shared_ptr<const std::regex> compileFilterExpression(const std::string& text);

// Whether the whole text matches; an expression that has not matched after
// maxMatchSteps does not. Nothing is thrown. Engine thread.
bool matchesFilterExpression(const std::regex& expression, std::string_view text);
