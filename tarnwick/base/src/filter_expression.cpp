// SPDX-License-Identifier: MIT
#include "filter_expression.hpp"

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <optional>
#include <regex>
#include <utility>

// ------------------------------------------------------------- the bound on a match
//
// Nothing stops the library's matcher from outside. But it works with places of a
// type of ours, and so calls us for what it does with one.

namespace {

// Where the stack stands, in the caller's frame or just below it.
std::uintptr_t stackPlace() {
    return reinterpret_cast<std::uintptr_t>(__builtin_frame_address(0));
}

// Thrown through the matcher, and caught by matchesFilterExpression.
struct out_of_budget_s {};

// What is left to one match. The stack grows down.
struct match_budget_s {
    std::size_t steps = 0;
    std::uintptr_t lowestStack = 0;

    void take() {
        if (steps == 0 || stackPlace() < lowestStack) {
            throw out_of_budget_s{};
        }
        --steps;
    }
};

// Of the match that this thread is at: a place is also made out of nothing.
constinit thread_local match_budget_s budget;

// A place in the text. The library makes one for each state of the expression when a
// match or a look ahead begins, moves one for each group and each repetition that it
// enters, and compares or reads one for all else, but for an alternative.
struct place_s {
    using iterator_category = std::bidirectional_iterator_tag;
    using value_type = char;
    using difference_type = std::ptrdiff_t;
    using pointer = const char*;
    using reference = const char&;

    place_s() { budget.take(); }
    explicit place_s(const char* character) : at(character) {}
    place_s(const place_s&) = default;
    place_s& operator=(const place_s& other) {
        budget.take();
        at = other.at;
        return *this;
    }
    reference operator*() const {
        budget.take();
        return *at;
    }
    bool operator==(const place_s& other) const {
        budget.take();
        return at == other.at;
    }
    place_s& operator++() {
        ++at;
        return *this;
    }
    place_s operator++(int) {
        const place_s before = *this;
        ++at;
        return before;
    }
    place_s& operator--() {
        --at;
        return *this;
    }
    place_s operator--(int) {
        const place_s before = *this;
        --at;
        return before;
    }

    const char* at = nullptr;
};

// Whether a group has matched: all that the library asks at a back-reference to one
// that has not. "(b)?(?:|){40}\1" ends there 2^40 times.
struct matched_s {
    matched_s() = default;
    matched_s(bool matched) : value(matched) {}
    operator bool() const {
        budget.take();
        return value;
    }

    bool value = false;
};

}  // namespace

// What the matcher needs of a group.
template <>
class std::sub_match<place_s> : public std::pair<place_s, place_s> {
  public:
    matched_s matched;
};

// ------------------------------------------------------------------ the expressions

struct filter_expression_s {
    std::regex regex;
};

namespace {

// As the library narrows it.
int countOf(const std::ssub_match& digits) {
    return static_cast<int>(std::stoll(digits.str()));
}

// Whether it is safe to ask the library about the text. It adds up the digits of a number
// beyond what a long holds, and it goes from each empty state to the end of the run
// that it stands in: "(?:){33000}" would take 6 s, where a thousand take 6 ms.
bool libraryCopesWith(const std::string& text) {
    static const std::regex longNumber(R"([{,\\]\d{19})");
    static const std::regex countSyntax(R"(\{(\d+)(,?)(\d*)\})");
    if (text.size() > maxExpressionLength || std::regex_search(text, longNumber)) {
        return false;
    }
    constexpr std::uint64_t mostEmptyParts = 1'000;
    std::uint64_t emptyParts = 0;
    for (std::size_t at = text.find("(?:)"); at != text.npos; at = text.find("(?:)", at + 1)) {
        ++emptyParts;
    }
    std::uint64_t repetitions = 1;
    for (std::sregex_iterator count(text.begin(), text.end(), countSyntax), end; count != end; ++count) {
        const int least = countOf((*count)[1]);
        const int most = count->length(3) != 0 ? countOf((*count)[3]) : least;
        const bool endless = count->length(2) != 0 && count->length(3) == 0;
        emptyParts += most <= 0 && !endless ? 1 : 0;
        repetitions *= static_cast<std::uint64_t>(std::max({least, most, 1}));
        repetitions = std::min(repetitions, mostEmptyParts + 1);
    }
    return emptyParts * repetitions <= mostEmptyParts;
}

// What the library says against the text.
std::optional<std::regex_constants::error_type> compile(const std::string& text, std::regex::flag_type flags,
                                                        std::regex* regex) {
    try {
        regex->assign(text, flags);
        return std::nullopt;
    } catch (const std::regex_error& error) {
        return error.code();
    }
}

}  // namespace

// The library has two matchers. The default one tries one way after the other: on
// 30 digits and "(a*)*b" it would be at work for hours. __polynomial asks for the
// one that follows all ways at once, at a cost of states times digits. It knows no
// back-references, which are too complex for it: an expression with one takes the
// default matcher, and the budget ends it.
bool compileFilterExpression(const std::string& text, expression_t* expression) {
    using namespace std::regex_constants;
    expression->reset();
    if (!libraryCopesWith(text)) {
        return false;
    }
    filter_expression_s compiled;
    auto error = compile(text, ECMAScript | __polynomial, &compiled.regex);
    if (error == error_complexity) {
        error = compile(text, ECMAScript, &compiled.regex);
    }
    if (error) {
        return false;
    }
    *expression = std::make_shared<const filter_expression_s>(std::move(compiled));
    return true;
}

// An alternative is not a step. So between two steps the matcher may go deeper by as
// many as the expression has: fewer than maxMatchSteps / 5, of some 300 bytes each.
bool matchesFilterExpression(const expression_t& expression, std::string_view text) {
    budget = {.steps = maxMatchSteps, .lowestStack = stackPlace() - maxMatchStack};
    try {
        return expression != nullptr &&
               std::regex_match(place_s{text.data()}, place_s{text.data() + text.size()}, expression->regex);
    } catch (const out_of_budget_s&) {
        return false;
    }
}
