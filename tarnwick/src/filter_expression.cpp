// SPDX-License-Identifier: MIT
#include "filter_expression.hpp"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <iterator>

namespace {

// Thrown by stepping_iterator_s through the library's matcher and caught by
// matchesFilterExpression.
struct out_of_budget_s {};

// Where the stack stands, in the caller's frame or just below it.
std::uintptr_t stackPlace() {
    return reinterpret_cast<std::uintptr_t>(__builtin_frame_address(0));
}

// What is left to one match. The stack grows down.
struct match_budget_s {
    std::size_t steps = maxMatchSteps;
    std::uintptr_t lowestStack = stackPlace() - maxMatchStack;
};

// A place in the text that counts each look at it.
struct stepping_iterator_s {
    using iterator_category = std::bidirectional_iterator_tag;
    using value_type = char;
    using difference_type = std::ptrdiff_t;
    using pointer = const char*;
    using reference = const char&;

    const char* place = nullptr;
    match_budget_s* budget = nullptr;

    void step() const {
        if (budget->steps == 0 || stackPlace() < budget->lowestStack) {
            throw out_of_budget_s{};
        }
        --budget->steps;
    }
    reference operator*() const {
        step();
        return *place;
    }
    bool operator==(const stepping_iterator_s& other) const {
        step();
        return place == other.place;
    }
    stepping_iterator_s& operator++() {
        ++place;
        return *this;
    }
    stepping_iterator_s operator++(int) {
        const stepping_iterator_s before = *this;
        ++place;
        return before;
    }
    stepping_iterator_s& operator--() {
        --place;
        return *this;
    }
    stepping_iterator_s operator--(int) {
        const stepping_iterator_s before = *this;
        --place;
        return before;
    }
};

// An upper bound for the length of an expression whose counts ("{3}", "{2,7}") are
// written out, or anything above `limit`.
std::size_t unfoldedLength(std::string_view text, std::size_t limit) {
    std::size_t length = text.size();
    for (std::size_t at = text.find_first_of("{,"); at != text.npos && length <= limit;
         at = text.find_first_of("{,", at + 1)) {
        std::size_t count = 1;
        const char* end = text.data() + text.size();
        if (std::from_chars(text.data() + at + 1, end, count).ec == std::errc::result_out_of_range) {
            return limit + 1;
        }
        length *= std::clamp<std::size_t>(count, 1, limit + 1);
    }
    return length;
}

// Whether a part of the expression can never take a digit: an empty group or a
// count of 0. The library follows a run of such parts from each of them to its end:
// 20,000 of them, "(?:){20000}", would keep the main thread for seconds.
bool hasEmptyPart(const std::string& text) {
    static const std::regex emptyPart(R"(\(\)|\(\?:\)|\{0+(,0+)?\})");
    return std::regex_search(text, emptyPart);
}

}  // namespace

// The library has two matchers. The default one tries one way after the other: on
// 30 digits and "(a*)*b" it would be at work for hours. __polynomial asks for the
// one that follows all ways at once, at a cost of states times digits, and drops
// the groups, whose places nobody asks for. It knows no back-references, so an
// expression with one takes the default matcher, and the budget ends it. That
// matcher goes one call deeper for each state on its way, some 100 bytes of the
// engine thread's stack; between two looks at the text, where nothing can end it,
// only the length of the expression bounds the way.
std::shared_ptr<const std::regex> compileFilterExpression(const std::string& text) {
    using namespace std::regex_constants;
    const bool isLong = unfoldedLength(text, maxUnfoldedLength) > maxUnfoldedLength;
    if (isLong && hasEmptyPart(text)) {
        return nullptr;
    }
    for (const syntax_option_type flags : {ECMAScript | nosubs | __polynomial, ECMAScript}) {
        try {
            return std::make_shared<const std::regex>(text, flags);
        } catch (const std::regex_error& error) {
            if (error.code() != error_complexity && error.code() != error_backref) {
                return nullptr;
            }
        }
        if (isLong) {
            return nullptr;
        }
    }
    return nullptr;
}

bool matchesFilterExpression(const std::regex& expression, std::string_view text) {
    match_budget_s budget;
    try {
        return std::regex_match(stepping_iterator_s{text.data(), &budget},
                                stepping_iterator_s{text.data() + text.size(), &budget}, expression);
    } catch (const out_of_budget_s&) {
        return false;
    } catch (const std::regex_error&) {
        return false;
    }
}
