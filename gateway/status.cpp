// SPDX-License-Identifier: MIT
#include "status.hpp"

#include <spdlog/fmt/fmt.h>

#include <algorithm>
#include <cstdio>
#include <nlohmann/json.hpp>

#include "twctl/sockets.hpp"

namespace {

using nlohmann::json;

constexpr double timeout = 5.0;  // s
constexpr double million = 1e6;
enum verdict_e { allWell = 0, notWell = 1, noAnswer = 2 };

json stateOf(const sink_account_s& sink, const sender_status_s& state, spool_reader_c* reader) {
    json document = sink;
    const std::optional<std::int64_t> oldest = reader->oldestPending(sink);
    const double age =
        oldest ? std::max(0.0, static_cast<double>(nowMicroseconds() - *oldest) / million) : 0.0;
    document["oldestAge"] = age;
    document["inFlight"] = state.inFlight;
    document["state"] = !state.up ? "down" : age > behindAfter ? "behind" : "up";
    document["trouble"] = state.trouble;
    return document;
}

// "; the last reports 9 to 10 at 2026-..."
std::string lastGapText(const json& source) {
    const json& gaps = source.at("lastGaps");
    if (gaps.empty()) {
        return {};
    }
    const json& gap = gaps.back();
    return fmt::format("; the last of reports {} to {}, at {}", gap.at(0).get<std::uint64_t>(),
                       gap.at(1).get<std::uint64_t>(), utcText(gap.at(2).get<std::int64_t>()));
}

std::string sourceText(const json& source) {
    const auto count = [&](const char* key) { return source.at(key).get<std::uint64_t>(); };
    return fmt::format(
        "source {}\n"
        "  heard {} = taken {} + refused {}; {} frames were no reports\n"
        "  missing {} in {} gaps{}; {} restarts of the daemon\n",
        source.at("reader").get<std::string>(), count("heard"), count("taken"), count("refused"),
        count("notReports"), count("missing"), count("gaps"), lastGapText(source), count("restarts"));
}

std::string sinkText(const json& sink) {
    const auto count = [&](const char* key) { return sink.at(key).get<std::uint64_t>(); };
    const auto text = [&](const char* key) { return sink.at(key).get<std::string>(); };
    const std::string trouble = text("trouble");
    return fmt::format(
        "sink {}: {}{}{}\n"
        "  taken {} = confirmed {} + set aside {} + dropped {} + pending {}, the oldest of {:.1f} s\n"
        "  delivered {}, {} of them again; {} in flight\n",
        text("name"), text("state"), trouble.empty() ? "" : ", ", trouble, count("taken"), count("confirmed"),
        count("setAside"), count("dropped"), count("pending"), sink.at("oldestAge").get<double>(),
        count("delivered"), count("retried"), count("inFlight"));
}

std::string presenceText(const json& presence) {
    const auto count = [&](const char* key) { return presence.at(key).get<std::uint64_t>(); };
    return fmt::format("presence: arrived {} = present {} + departed {}, {} of them early; moved {}\n",
                       count("arrived"), count("present"), count("departed"), count("early"), count("moved"));
}

}  // namespace

json statusDocument(const spool_account_s& account, const std::map<std::string, sender_status_s>& states,
                    spool_reader_c* reader) {
    json sinks = json::array();
    for (const sink_account_s& sink : account.sinks) {
        const auto state = states.find(sink.name);
        sinks.push_back(stateOf(sink, state == states.end() ? sender_status_s() : state->second, reader));
    }
    json document = {
        {"sources", account.sources},
        {"sinks", sinks},
        {"spool", {{"entries", account.entries}, {"bytes", account.bytes}, {"trouble", account.trouble}}}};
    if (account.presence) {
        document["presence"] = *account.presence;
    }
    return document;
}

std::string statusText(const json& document) {
    std::string text;
    for (const json& source : document.at("sources")) {
        text += sourceText(source);
    }
    for (const json& sink : document.at("sinks")) {
        text += sinkText(sink);
    }
    if (document.contains("presence")) {
        text += presenceText(document.at("presence"));
    }
    const json& spool = document.at("spool");
    const std::string trouble = spool.at("trouble");
    return text + fmt::format("spool: {} entries, {} bytes{}{}\n", spool.at("entries").get<std::uint64_t>(),
                              spool.at("bytes").get<std::uint64_t>(),
                              trouble.empty() ? "" : "; cannot be written: ", trouble);
}

std::vector<std::string> statusTroubles(const json& document) {
    std::vector<std::string> troubles;
    const auto text = [](const json& object, const char* key) { return object.at(key).get<std::string>(); };
    if (const std::string trouble = text(document.at("spool"), "trouble"); !trouble.empty()) {
        troubles.push_back("the spool cannot be written: " + trouble);
    }
    for (const json& sink : document.at("sinks")) {
        if (const std::string state = text(sink, "state"); state != "up") {
            const std::string trouble = text(sink, "trouble");
            troubles.push_back("sink " + text(sink, "name") + ": " + state + (trouble.empty() ? "" : ", ") +
                               trouble);
        }
    }
    return troubles;
}

int statusVerdict(const json& document) {
    return statusTroubles(document).empty() ? allWell : notWell;
}

int printStatus(const std::string& endpoint, bool asJson) {
    std::string reply;
    const exchange_e outcome = exchangeText(endpoint, "status", timeout, &reply);
    if (outcome != exchange_e::answered) {
        if (outcome == exchange_e::silence) {
            std::fprintf(stderr, "twgate: no reply within %.0f s on %s: is twgate running?\n", timeout,
                         endpoint.c_str());
        }
        return noAnswer;
    }
    try {
        const json document = json::parse(reply);
        std::fputs((asJson ? reply + "\n" : statusText(document)).c_str(), stdout);
        return statusVerdict(document);
    } catch (const json::exception& error) {
        std::fprintf(stderr, "twgate: %s: the reply is not a status: %s\n", endpoint.c_str(), error.what());
        return noAnswer;
    }
}
