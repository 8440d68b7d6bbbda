// SPDX-License-Identifier: MIT
#include "filter_expression.hpp"

#include <iterator>

namespace {

// Thrown by stepping_iterator_s through the library's matcher and caught by
// matchesFilterExpression.
struct out_of_steps_s {};

// A place in the text that counts each look at it.
struct stepping_iterator_s {
    using iterator_category = std::bidirectional_iterator_tag;
    using value_type = char;
    using difference_type = std::ptrdiff_t;
    using pointer = const char*;
    using reference = const char&;

    const char* place = nullptr;
    std::size_t* stepsLeft = nullptr;

    void step() const {
        if (*stepsLeft == 0) {
            throw out_of_steps_s{};
        }
        --*stepsLeft;
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

}  // namespace

// The library has two matchers. The default one tries one way after the other: on
// 30 digits and "(a*)*b" it would be at work for hours. __polynomial asks for the
// one that follows all ways at once, at a cost of states times digits, and drops
// the groups, whose places nobody asks for. It knows no back-references, so an
// expression with one takes the default matcher, and the steps end it.
std::shared_ptr<const std::regex> compileFilterExpression(const std::string& text) {
    using namespace std::regex_constants;
    for (const syntax_option_type flags : {ECMAScript | nosubs | __polynomial, ECMAScript}) {
        try {
            return std::make_shared<const std::regex>(text, flags);
        } catch (const std::regex_error& error) {
            if (error.code() != error_complexity && error.code() != error_backref) {
                return nullptr;
            }
        }
    }
    return nullptr;
}

bool matchesFilterExpression(const std::regex& expression, std::string_view text) {
    std::size_t steps = maxMatchSteps;
    try {
        return std::regex_match(stepping_iterator_s{text.data(), &steps},
                                stepping_iterator_s{text.data() + text.size(), &steps}, expression);
    } catch (const out_of_steps_s&) {
        return false;
    } catch (const std::regex_error&) {
        return false;
    }
}
