// SPDX-License-Identifier: MIT
// The inputs of the gateway: its configuration, and the frames of a reader, which may be any host of a
// network. No socket and no file is opened.
#include "targets.hpp"

#include <algorithm>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "account.hpp"
#include "config.hpp"
#include "event.hpp"
#include "intake.hpp"

namespace {

bool isLine(std::string_view text) {
    return text.find_first_of(std::string_view("\n\r\0", 3)) == std::string_view::npos;
}

void config(std::string_view input) {
    std::vector<std::string> mistakes;
    const bool isSound = parseConfig(std::string(input), "file", &mistakes).has_value();
    require(isSound == mistakes.empty(), "what is refused has a reason");
    require(std::ranges::all_of(mistakes, isLine), "a mistake is one line");
}

// One frame, as it comes on each of the two channels, and as an event of a sink.
void frame(std::string_view input) {
    for (const judged_frame_s& judged : {judgeTagFrame(input), judgeEventFrame(input)}) {
        require(isLine(judged.body), "a body is one line");
        const bool isBinary =
            input.size() > 2 && !judged.body.empty() && input.find(judged.body) == input.npos;
        require(!isBinary || nlohmann::json::accept(judged.body), "a binary report becomes JSON");
        entry_s entry;
        entry.number = judged.number;
        entry.body = judged.body;
        entry.key = epcOf(entry.body);
        require(entry.key.find_first_not_of("0123456789abcdef") == entry.key.npos, "an EPC is hex");
        const bool isJson = nlohmann::json::accept(entry.body);
        require(!isJson || nlohmann::json::accept(structuredEvent(entry)), "an event of JSON is JSON");
        require(uptimeOf(judged.body) >= -1, "an uptime is not negative");
    }
}

bool isReadBack(const source_account_s& source) {
    const nlohmann::json written = source;
    return nlohmann::json(written.get<source_account_s>()) == written;
}

// Numbers of reports, one byte each; 255 is a heartbeat whose uptime is the next byte.
void numbers(std::string_view input) {
    source_account_s source;
    std::int64_t now = 1'000'000;
    beginBoot(&source, now);
    std::uint64_t heard = 0;
    for (std::size_t i = 0; i < input.size(); ++i, now += 500'000) {
        const auto number = static_cast<std::uint8_t>(input[i]);
        if (number == 255) {
            takeUptime(&source, ++i < input.size() ? static_cast<std::uint8_t>(input[i]) : 0);
            continue;
        }
        ++heard;
        if (takeNumber(&source, number, now) == number_e::restart) {
            const std::int64_t before = source.boot.name;
            heard = 1;
            beginBoot(&source, now);
            require(source.boot.name > before, "each life has a name of its own");
            require(isReadBack(source), "an account is read back as it was");
            require(takeNumber(&source, number, now) != number_e::restart,
                    "a life begins with its first report");
        }
        const boot_account_s& boot = source.boot;
        require(boot.numbered == heard, "each report is counted");
        require(boot.next == boot.first + boot.numbered + boot.missing, "the account closes");
    }
    require(isReadBack(source), "an account is read back as it was");
}

constexpr target_s table[] = {
    {"gateway_config", config, 2048}, {"gateway_frame", frame, 1024}, {"gateway_numbers", numbers, 256}};

}  // namespace

const std::span<const target_s> targets = table;
