// SPDX-License-Identifier: MIT
// Requests, modes, and the stored mode of the last run.
#include <algorithm>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <optional>
#include <stdexcept>

#include "../targets.hpp"
#include "filter_expression.hpp"
#include "mode/language.hpp"
#include "mode_request.hpp"
#include "radio.hpp"
#include "reader.hpp"
#include "requests.hpp"

namespace {

using nlohmann::json;

// Requests in which a text that is not a number ends the process (documented).
constexpr std::string_view deadlyNumbers[] = {"database_reset", "cableLoss",      "aarHeight",
                                              "tagHeight",      "staticVDynamic", "txDelayInterval"};

void ask(std::string_view line) {
    std::string request(line);
    std::string reply;
    if (line.find("sim_bearing") != std::string_view::npos) {
        return;  // a thread of its own
    }
    if (line.find("data_analytics") != std::string_view::npos ||
        line.find("subscribers") != std::string_view::npos) {
        ProcessInternalRequest(&request, &reply);
        return;
    }
    try {
        const int rc = requests::ProcessRequest(&request, &reply);
        const bool isText = reply.starts_with("Success") || reply.starts_with("Failure");
        require(rc != 0 || isText || json::accept(reply), "a reply is a Success, a Failure or JSON");
    } catch (const std::logic_error&) {
        const auto stands = [line](std::string_view word) { return line.find(word) != line.npos; };
        require(std::ranges::any_of(deadlyNumbers, stands), "a request throws nothing");
    }
}

constexpr const char* refusedFileName = "mode_config.json.refused";

std::optional<std::string> contentOf(const char* name) {
    std::ifstream file(name, std::ios::binary);
    if (!file) {
        return std::nullopt;
    }
    return std::string(std::istreambuf_iterator<char>(file), {});
}

// The "mode" of the file; discarded when there is none.
json modeIn(std::string_view text) {
    const json document = json::parse(text, nullptr, false);
    const auto mode = document.is_object() ? document.find("mode") : document.end();
    return mode == document.end() ? json(json::value_t::discarded) : *mode;
}

}  // namespace

// A reader, then a request on each line. All that the engine holds is told once, since
// that takes as long as a hundred other requests.
void requestLine(std::string_view input) {
    constexpr int mostRequests = 16;
    constexpr std::string_view wholeEngine = "configrxe custom";
    newReader(&input);
    bool isTold = false;
    for (int count = 0; !input.empty() && count < mostRequests; ++count) {
        const std::string_view line = takeUntil('\n', &input);
        if (line != wholeEngine || !isTold) {
            ask(line);
        }
        isTold |= line == wholeEngine;
    }
}

// A reader and a mode. A mode that is accepted is accepted again, and each rendering is JSON; one that is
// refused changes neither the mode in force nor the stored one.
void mode(std::string_view input) {
    newReader(&input);
    if (input.empty()) {
        return;
    }
    std::remove(modeFile);
    const std::string before = askMode("as_set") + askMode("verbose");
    const std::string reply = askMode(input);
    if (reply != "Success") {
        require(askMode("as_set") + askMode("verbose") == before, "a refused mode changes nothing");
        require(!contentOf(modeFile), "a refused mode is not stored");
        return;
    }
    constexpr std::string_view success = "Success: ";
    for (const std::string_view rendering : {"", "verbose", "as_set"}) {
        const std::string text = askMode(rendering);
        require(text.starts_with(success) && json::accept(text.substr(success.size())),
                "a mode in force is rendered as JSON");
    }
    require(askMode(input) == "Success", "a mode is taken a second time");
}

// A reader and the file of the last mode, with which it starts twice. Afterwards the mode of the file is
// in force, or is kept beside the default.
void storedMode(std::string_view input) {
    newReader(&input);
    std::remove(refusedFileName);
    std::ofstream(modeFile, std::ios::binary) << input;
    require(initialRXEConfiguration() == RXE_OK, "a stored mode never keeps the reader from starting");
    const std::string inForce = modeInForce();
    const std::optional<std::string> stored = contentOf(modeFile);
    require(stored && !modeIn(*stored).is_discarded(), "a mode is stored for the next start");

    const json simple = {{"type", "SIMPLE"}};
    const json wanted = modeIn(input);
    const bool isKept = contentOf(refusedFileName) == std::string(input);
    const bool isTaken = !wanted.is_discarded() && modeIn(*stored) == wanted;
    require(isTaken || isKept || input.empty() || wanted == simple, "a mode that was stored is not lost");
    require(isTaken || modeIn(*stored) == simple, "in the place of a stored mode stands the default");

    std::remove(refusedFileName);
    require(initialRXEConfiguration() == RXE_OK && modeInForce() == inForce && contentOf(modeFile) == stored,
            "the next start finds the same mode");
    require(!contentOf(refusedFileName), "the next start refuses nothing");
}

// An expression, and on the next line a text to match.
void filter(std::string_view input) {
    const std::string expression(takeUntil('\n', &input));
    expression_t compiled;
    if (compileFilterExpression(expression, &compiled)) {
        constexpr std::size_t mostDigits = 510;  // of an EPC of 255 bytes
        matchesFilterExpression(compiled, input.substr(0, mostDigits));
    }
}
