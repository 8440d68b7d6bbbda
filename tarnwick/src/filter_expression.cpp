// SPDX-License-Identifier: MIT
#include "filter_expression.hpp"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <iterator>
#include <limits>
#include <vector>

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
    std::size_t steps;
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

constexpr std::string_view decimalDigits = "0123456789";

bool isReference(std::string_view text) {
    return text.size() > 1 && text[0] == '\\' && text[1] != '0' && decimalDigits.find(text[1]) != text.npos;
}

// The library keeps the number of a back-reference in an int, and takes "\4294967297"
// for "\1". No expression has so many groups, nor as many as this one says.
constexpr std::string_view noGroup = "\\999999999";

// Where the atom at `at` ends: an escape ("\{", "\c{", "\12"), a bracket expression
// ("[^\]{9}]", "[[:alpha:]{9}]") or any one character.
std::size_t endOfAtom(std::string_view text, std::size_t at) {
    if (isReference(text.substr(at))) {
        return std::min(text.find_first_not_of(decimalDigits, at + 1), text.size());
    }
    if (text[at] == '\\') {
        return at + (text.substr(at, 2) == "\\c" ? 3 : 2);
    }
    if (text[at] != '[') {
        return at + 1;
    }
    for (++at; at < text.size() && text[at] != ']';) {
        const bool named = text[at] == '[' && at + 1 < text.size() && text.find_first_of(":.=", at) == at + 1;
        const std::size_t close = named ? text.find(std::string{text[at + 1], ']'}, at + 2) : text.npos;
        at = close != text.npos ? close + 2 : text[at] == '\\' ? endOfAtom(text, at) : at + 1;
    }
    return at + 1;
}

std::size_t countOf(const std::csub_match& digits) {
    std::size_t count = 0;
    const bool tooLarge =
        std::from_chars(digits.first, digits.second, count).ec == std::errc::result_out_of_range;
    return tooLarge ? std::numeric_limits<std::size_t>::max() : count;
}

constexpr std::size_t unfoldingLimit = maxUnfoldedLength + 1;

// What an expression has with its counts written out, each at most unfoldingLimit.
struct size_s {
    std::size_t characters = 0;
    std::size_t lookaheads = 0;
};

// `size`, of which what is beyond `front` stands there so many times.
size_s repeated(const size_s& size, const size_s& front, std::size_t times) {
    const auto repeat = [times](std::size_t all, std::size_t unrepeated) {
        return std::min(unrepeated + (all - unrepeated) * times, unfoldingLimit);
    };
    return {repeat(size.characters, front.characters), repeat(size.lookaheads, front.lookaheads)};
}

struct unfolding_s {
    std::string text;
    size_s size;
};

// The expression with no count ("{3}", "{2,}", "{2,7}") above `most`. A wrong one
// stays wrong.
unfolding_s limitCounts(std::string_view text, std::size_t most) {
    static const std::regex countSyntax(R"(\{(\d+)(,?)(\d*)\})");
    unfolding_s limited;
    std::vector<size_s> groups;  // what stands in front of each open one
    size_s front;                // what stands in front of what a count or "*" repeats
    for (std::size_t at = 0; at < text.size();) {
        std::cmatch count;
        if (std::regex_search(text.data() + at, text.data() + text.size(), count, countSyntax,
                              std::regex_constants::match_continuous)) {
            const std::size_t least = countOf(count[1]);
            const std::size_t last = count.length(3) != 0 ? countOf(count[3]) : least;
            const std::string upper = count.length(3) != 0 ? std::to_string(std::min(last, most)) : "";
            limited.text += least > last
                                ? "{1,0}"
                                : "{" + std::to_string(std::min(least, most)) + count.str(2) + upper + "}";
            limited.size = repeated(limited.size, front, std::clamp<std::size_t>(last, 1, most));
            at += static_cast<std::size_t>(count.length());
            continue;
        }
        if (text[at] == '{') {  // no count; the library would add up its digits beyond a long
            limited.text += '{';
            return limited;
        }
        if (std::string_view("*+?").find(text[at]) == std::string_view::npos) {
            front = limited.size;
        }
        if (text[at] == '(') {
            groups.push_back(front);
            limited.size.lookaheads += text.substr(at, 3) == "(?=" || text.substr(at, 3) == "(?!" ? 1 : 0;
        } else if (text[at] == ')' && !groups.empty()) {
            front = groups.back();
            groups.pop_back();
        }
        const std::string_view atom = text.substr(at, endOfAtom(text, at) - at);
        limited.text += isReference(atom) && atom.size() > noGroup.size() ? noGroup : atom;
        limited.size.characters = std::min(limited.size.characters + atom.size(), unfoldingLimit);
        at += atom.size();
    }
    return limited;
}

// Whether a part of the expression can never take a digit: an empty group or a
// count of 0. The library follows a run of such parts from each of them to its end:
// 20,000 of them, "(?:){20000}", would keep the main thread for seconds.
bool hasEmptyPart(const std::string& text) {
    static const std::regex emptyPart(R"(\(\)|\(\?:\)|\{0+(,0+)?\})");
    return std::regex_search(text, emptyPart);
}

// Steps of a match. Between two of them it may begin to look ahead in each place once.
std::size_t stepsFor(const size_s& size) {
    const std::size_t marks = std::max<std::size_t>(size.lookaheads * size.characters, 1);
    return size.lookaheads == 0 ? maxMatchSteps : std::min(maxMatchSteps, maxLookaheadMarks / marks);
}

// Null where the library throws.
expression_t compiled(const unfolding_s& unfolding, std::regex::flag_type flags) {
    try {
        return std::make_shared<const filter_expression_s>(std::regex(unfolding.text, flags),
                                                           stepsFor(unfolding.size));
    } catch (const std::regex_error&) {
        return nullptr;
    }
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
//
// A count above the digits of the longest EPC says the same as one just above them,
// so that "a{99999}" stays small, and only counts of counts are left to be too many.
bool compileFilterExpression(const std::string& text, expression_t* expression) {
    using namespace std::regex_constants;
    expression->reset();
    // With no count above 1 the grammar is the same and nothing is costly.
    if (compiled(limitCounts(text, 1), ECMAScript) == nullptr) {
        return false;
    }
    const unfolding_s unfolding = limitCounts(text, maxEpcDigits + 1);
    const bool isLong = unfolding.size.characters == unfoldingLimit;
    if (isLong && (unfolding.size.lookaheads != 0 || hasEmptyPart(unfolding.text))) {
        return true;
    }
    *expression = compiled(unfolding, ECMAScript | nosubs | __polynomial);
    if (*expression == nullptr && !isLong) {
        *expression = compiled(unfolding, ECMAScript);
    }
    return true;
}

bool matchesFilterExpression(const expression_t& expression, std::string_view text) {
    if (expression == nullptr) {
        return false;
    }
    match_budget_s budget{expression->steps};
    try {
        return std::regex_match(stepping_iterator_s{text.data(), &budget},
                                stepping_iterator_s{text.data() + text.size(), &budget}, expression->regex);
    } catch (const out_of_budget_s&) {
        return false;
    } catch (const std::regex_error&) {
        return false;
    }
}
