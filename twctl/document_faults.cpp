// SPDX-License-Identifier: MIT
// What is wrong with a document, beyond its schema: directions that are not beams,
// expressions that never match, and the one mistake that ends the daemon.
#include <algorithm>
#include <cctype>
#include <nlohmann/json.hpp>

#include "beams.hpp"
#include "document.hpp"
#include "schema.hpp"

namespace {

using nlohmann::json;

// A member that is a whole number from 0 to 32767, or -1.
int smallNumber(const json& object, const char* key) {
    const auto member = object.find(key);
    const bool fits =
        member != object.end() && member->is_number_unsigned() && member->get<std::uint64_t>() <= INT16_MAX;
    return fits ? member->get<int>() : -1;
}

// Directions that are in range but are not those of a beam: with `taken` the ones that a mode
// may name, else the ones that it may not.
void findMissingBeams(const json& mode, bool taken, std::vector<std::string>* faults) {
    const auto beams = mode.find("beams");
    for (std::size_t i = 0; beams != mode.end() && beams->is_array() && i < beams->size(); ++i) {
        const json& beam = (*beams)[i];
        const int azimuth = beam.is_object() ? smallNumber(beam, "azimuth") : -1;
        const int elevation = beam.is_object() ? smallNumber(beam, "elevation") : -1;
        const std::string text = whyNotABeam(azimuth, elevation);
        if (!text.empty() && isDirectionTaken(azimuth, elevation) == taken) {
            faults->push_back("beams[" + std::to_string(i) + "]: " + text);
        }
    }
}

// How many characters the escape sequence at `at` has: "\\x4f", "\\u00e9", "\\cA", "\\D".
std::size_t escapeLength(std::string_view expression, std::size_t at) {
    const char kind = at + 1 < expression.size() ? expression[at + 1] : ' ';
    return kind == 'x' ? 4 : kind == 'u' ? 6 : kind == 'c' ? 3 : 2;
}

bool isCapitalDigit(char c) {
    return c >= 'A' && c <= 'F';
}

// Whether an expression needs a capital digit A to F, outside brackets or in brackets without a
// small letter. EPCs are compared in lower case, so it never matches.
bool hasCapitalHex(std::string_view expression) {
    bool inBrackets = false, capital = false, small = false, negated = false;
    for (std::size_t i = 0; i < expression.size(); ++i) {
        const char c = expression[i];
        if (c == '\\') {
            small = true;  // it may stand for one
            i += escapeLength(expression, i) - 1;
        } else if (!inBrackets && c == '[') {
            inBrackets = true;
            capital = small = false;
            negated = i + 1 < expression.size() && expression[i + 1] == '^';
        } else if (inBrackets && c == ']') {
            inBrackets = false;
            if (capital && !small && !negated) {
                return true;
            }
        } else if (inBrackets) {
            capital |= isCapitalDigit(c);
            small |= std::islower(static_cast<unsigned char>(c)) != 0;
        } else if (isCapitalDigit(c)) {
            return true;
        }
    }
    return false;
}

// The text at a JSON pointer (RFC 6901); empty when there is none or it is not a text.
std::string wordAt(const json& document, const char* pointer) {
    const json::json_pointer path(pointer);
    return document.contains(path) && document.at(path).is_string() ? document.at(path).get<std::string>()
                                                                    : "";
}

}  // namespace

std::vector<std::string> findModeFaults(const json& mode) {
    std::vector<std::string> faults = findSchemaFaults(modeSchemaText, mode);
    findMissingBeams(mode, false, &faults);
    return faults;
}

std::vector<std::string> findModeWarnings(const json& mode) {
    std::vector<std::string> warnings;
    if (wordAt(mode, "/filter/match") == "regex" && hasCapitalHex(wordAt(mode, "/filter/value"))) {
        warnings.emplace_back(
            "filter.value: capital hex digits never match, since EPCs are compared in lower case");
    }
    findMissingBeams(mode, true, &warnings);
    return warnings;
}

std::vector<std::string> findEventsFaults(const json& settings) {
    return findSchemaFaults(eventsSchemaText, settings);
}

bool wouldEndDaemon(const json& settings, std::string* reason) {
    const json::json_pointer path("/heartbeat/stats");
    if (!settings.contains(path) || !settings.at(path).is_array() ||
        std::ranges::all_of(settings.at(path), [](const json& name) { return name.is_string(); })) {
        return false;
    }
    *reason = "heartbeat.stats: an entry that is not a string would end the daemon";
    return true;
}
