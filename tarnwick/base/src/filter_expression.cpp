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
// The library does not have a way to stop its matcher. But the matcher works with iterators: with an
// iterator of the type below it calls the functions below, which count steps and throw.

namespace {

// The present depth of the stack: an address in the caller's frame or just below it.
std::uintptr_t stackPlace() {
    return reinterpret_cast<std::uintptr_t>(__builtin_frame_address(0));
}

// Thrown through the matcher, and caught by matchesFilterExpression.
struct out_of_budget_s {};

// The steps and the stack that one match may still use. The stack grows down.
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

// For the match that this thread runs. It is not a member of place_s, since the library also makes
// iterators by the default constructor.
constinit thread_local match_budget_s budget;

// An iterator over the text. The library makes one for each state of the expression when a match or a
// look-ahead begins, assigns one for each group and each repetition that it enters, and compares or
// reads one for everything else, except for an alternative.
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

// Whether a group has matched. At a back-reference to a group that has not, the library asks only this,
// so it counts as a step: "(b)?(?:|){40}\1" asks 2^40 times.
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

// The members of a group that the matcher uses.
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

// The count in the type to which the library narrows it.
int countOf(const std::ssub_match& digits) {
    return static_cast<int>(std::stoll(digits.str()));
}

// Whether the library can compile the text safely. It overflows on a number that a long cannot hold,
// and from each empty state it walks to the end of the run of empty states: "(?:){33000}" would take
// 6 s, a thousand of them take 6 ms.
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

// The error with which the library refuses the text; nothing when it accepts it.
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

// The library has two matchers. The default one tries one alternative after the other: on 30 digits
// "(a*)*b" would take it hours. __polynomial selects the one that follows all alternatives at once, at
// a cost of states times digits. That one does not have back-references (error_complexity), so an
// expression with one gets the default matcher, which the budget stops.
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

// An alternative is not a step. So between two steps the recursion may grow by as many calls as the
// expression has alternatives: fewer than maxMatchSteps / 5, of some 300 bytes each.
bool matchesFilterExpression(const expression_t& expression, std::string_view text) {
    budget = {.steps = maxMatchSteps, .lowestStack = stackPlace() - maxMatchStack};
    try {
        return expression != nullptr &&
               std::regex_match(place_s{text.data()}, place_s{text.data() + text.size()}, expression->regex);
    } catch (const out_of_budget_s&) {
        return false;
    }
}
