// SPDX-License-Identifier: MIT
// Asks the daemon and the software radio for the facts, and shows what the rules make of them.
#include "why.hpp"

#include <unistd.h>
#include <zmq.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <nlohmann/json.hpp>
#include <utility>

#include "account_reply.hpp"
#include "command_words.hpp"
#include "decoding.hpp"
#include "exit_status.hpp"
#include "fates.hpp"
#include "members.hpp"
#include "rules.hpp"
#include "sockets.hpp"
#include "stat_names.hpp"
#include "watch.hpp"

namespace {

using nlohmann::json;

constexpr std::size_t maxEpcDigits = 124;

// How often the radio is looked at while this program listens.
constexpr double lookInterval = 0.5;  // seconds

// The software radio answers between two of its steps.
constexpr const char* usualEngine = "ipc:///tmp/rxe_engine";
constexpr double engineTimeout = 2.0;  // seconds

// How long to wait at the end until the trace is removed; the daemon may have gone meanwhile.
constexpr double removeTimeout = 1.0;  // seconds

int refuse(const std::string& text) {
    std::fprintf(stderr, "twctl: %s\n", text.c_str());
    return exitNoAnswer;
}

// The EPC in lower case. False for what is not one.
bool readEpc(const std::string& typed, std::string* epc) {
    const bool isEpc = !typed.empty() && typed.size() % 2 == 0 && typed.size() <= maxEpcDigits &&
                       typed.find_first_not_of("0123456789abcdefABCDEF") == typed.npos;
    epc->clear();
    for (const char c : typed) {
        epc->push_back(static_cast<char>(std::tolower(static_cast<unsigned char>(c))));
    }
    return isEpc;
}

// ---------------------------------------------------------------- questions

// One question after the other. After the first that fails, the rest are not asked: `status` is
// then the exit status, and what went wrong has been told.
struct questions_s {
    const daemon_s& daemon;
    int status = exitSuccess;

    // The reply without its first word; empty after a failure.
    std::string text(const std::string& request) {
        std::string reply;
        if (status == exitSuccess) {
            status = askDaemon(daemon, request, &reply);
        }
        if (status == exitSuccess && isFailure(reply)) {
            status = printReply(reply);
        }
        return status == exitSuccess ? bodyOf(reply) : "";
    }

    json object(const std::string& request) {
        const std::string body = text(request);
        json value = json::parse(body, nullptr, false);
        if (status == exitSuccess && !value.is_object()) {
            std::fprintf(stderr, "twctl: the reply to %s is not a JSON object: %s\n", request.c_str(),
                         body.c_str());
            status = exitTrouble;
        }
        return value.is_object() ? value : json::object();
    }
};

// The last word of "data_analytics OFF", or of "subscribers 3 but is irrelevant" the second.
std::string secondWord(const std::string& text) {
    const std::size_t begin = std::min(text.find(' '), text.size() - 1) + 1;
    return text.substr(begin, text.find(' ', begin) - begin);
}

// A trace of the daemon, which ends with this object if it began with it.
class trace_c {
  public:
    trace_c(questions_s* questions, const std::string& epc) : daemon(questions->daemon), words(epc) {
        const json list = questions->object("trace list");
        for (const json& row : why::part(list, "traces")) {
            if (why::text(row, "epc") == epc) {
                wasThere = true;
                packets = why::get(row, "packets", std::uint64_t{0});
            }
        }
        if (!wasThere && questions->status == exitSuccess) {
            questions->text("trace add " + epc);
            added = questions->status == exitSuccess;
        }
    }
    // Without a word on failure: a daemon that has ended has no trace left.
    ~trace_c() {
        std::string reply;
        if (added) {
            exchangeText(endpointOf(daemon.endpoint), "trace remove " + words, removeTimeout, &reply);
        }
    }
    trace_c(const trace_c&) = delete;
    trace_c& operator=(const trace_c&) = delete;

    bool wasThere = false;
    std::uint64_t packets = 0;  // that it had at the beginning

  private:
    const daemon_s& daemon;
    std::string words;
    bool added = false;
};

// ---------------------------------------------------------------- facts

constexpr const auto& undecodedFate =
    vocabulary::fates[static_cast<std::size_t>(vocabulary::fate_e::notDecoded)];

// What the counters were at one moment.
struct counters_s {
    bool active = false;
    std::uint64_t reads = 0, radioPackets = 0, undecoded = 0, unheard = 0;
};

// The counters, and in `*status` and `*account` the replies that they come from.
counters_s readCounters(questions_s* questions, json* status, account_s* account) {
    *status = questions->object(
        joinWords({"status", std::string(vocabulary::radioConnection), std::string(vocabulary::radioActivity),
                   std::string(vocabulary::numRadioPacketsRxed), std::string(vocabulary::antennas)}));
    if (questions->status == exitSuccess) {
        askAccount(questions->daemon, account, &questions->status);
    }
    return {why::text(*status, vocabulary::radioActivity) == vocabulary::active, account->tagPackets,
            why::get(*status, vocabulary::numRadioPacketsRxed, std::uint64_t{0}),
            countAt(why::part(account->members, "fates"), undecodedFate.name),
            countAt(account->members, "unheard")};
}

// Waits until `seconds` are over, a signal comes, or the radio has stopped, after which no more is
// to be heard. Returns how long that was, in seconds.
double listenFor(double seconds, int signals, questions_s* questions) {
    const auto begin = std::chrono::steady_clock::now();
    const deadline_t deadline = deadlineIn(seconds);
    const auto passed = [&] {
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
    };
    while (questions->status == exitSuccess && millisecondsLeft(deadline) > 0) {
        zmq_pollitem_t item{nullptr, signals, ZMQ_POLLIN, 0};
        const long wait = std::min(millisecondsLeft(deadline), static_cast<long>(lookInterval * 1000));
        const bool signalled = zmq_poll(&item, 1, wait) > 0;
        const json status = questions->object("status radioActivity");
        if (signalled || why::text(status, vocabulary::radioActivity) != vocabulary::active) {
            return passed();
        }
    }
    return seconds;
}

// "python3, process 1234": who has bound the endpoint of form OFF.
std::string consumerText() {
    const pid_t pid = listenerOf(channels.front().endpoint);
    if (pid <= 0) {
        return "";
    }
    std::ifstream file("/proc/" + std::to_string(pid) + "/comm");
    std::string name;
    std::getline(file, name);
    return (name.empty() ? "" : name + ", ") + "process " + std::to_string(pid);
}

// The state of each port. An array reader tells of its elements, counted from 0, which say nothing
// about its beams.
std::map<std::uint32_t, bool> portsOf(const json& status) {
    std::map<std::uint32_t, bool> ports;
    const json& antennas = why::part(status, vocabulary::antennas);
    if (antennas.is_object() && !antennas.contains("0")) {
        for (const auto& [port, state] : antennas.items()) {
            ports[static_cast<std::uint32_t>(std::atoi(port.c_str()))] = state == vocabulary::connected;
        }
    }
    return ports;
}

// Only where somebody listens on the control socket; an answer that is not JSON is not used. The
// engine knows whole EPCs only: that it has no tag with the first digits of some says nothing.
// That an engine which was named does not answer is told.
std::optional<why::scene_s> askEngine(const std::string& named, const std::string& epc) {
    if (named == "none") {
        return std::nullopt;
    }
    const std::string endpoint = endpointOf(named.empty() ? usualEngine : named);
    std::string answer;
    if (!hasLiveListener(endpoint) ||
        exchangeText(endpoint, "tag " + epc, engineTimeout, &answer) != exchange_e::answered) {
        if (!named.empty()) {
            refuse(named + ": no software radio answers there, so its scene is left out");
        }
        return std::nullopt;
    }
    const json reply = json::parse(answer, nullptr, false);
    const why::scene_s scene = reply.is_object() ? why::readScene(reply) : why::scene_s{};
    const bool isTold = reply.is_object() && (scene.present || epc.size() >= why::usualDigits);
    return isTold ? std::optional(scene) : std::nullopt;
}

// Whether there is anything to explain. If not, that is told.
bool canExplain(const json& status, const account_s& account) {
    if (why::text(status, vocabulary::radioConnection) != vocabulary::connected) {
        refuse(
            "the daemon runs without a radio, so it cannot hear a tag; look into its log, and start it "
            "without --no_rxe");
        return false;
    }
    if (why::get(account.members, "simulation", false)) {
        refuse("a simulation makes up the reads, so no tag can be heard; twctl stop ends it");
        return false;
    }
    return true;
}

// Gathers all facts. An exit status other than success has been explained.
int gather(const daemon_s& daemon, const why_s& why, int signals, why::facts_s* facts) {
    questions_s questions{daemon};
    json status;
    account_s account{};
    const counters_s before = readCounters(&questions, &status, &account);
    if (questions.status != exitSuccess) {
        return questions.status;
    }
    if (!canExplain(status, account)) {
        return exitNoAnswer;
    }
    facts->mode = why::readMode(questions.object("mode verbose"));
    const trace_c trace(&questions, facts->epc);
    facts->seconds = before.active ? listenFor(why.seconds, signals, &questions) : 0;

    const json traced = questions.object("trace show " + facts->epc);
    const counters_s after = readCounters(&questions, &status, &account);
    facts->form = secondWord(questions.text(std::string(vocabulary::dataAnalytics.word)));
    facts->subscribers = static_cast<std::uint32_t>(
        std::atoi(secondWord(questions.text(std::string(vocabulary::subscribers.word))).c_str()));
    if (!facts->mode.reportFilter.keys.empty()) {
        facts->held = why::findHeldKey(questions.text("tag_info v"), facts->epc);
    }
    why::readTrace(traced, facts);
    facts->since = trace.wasThere ? why::text(traced, "since") : "";
    facts->heardBefore = trace.packets;
    facts->areKept = !trace.wasThere && after.unheard == before.unheard;
    facts->wasActive = before.active;
    facts->isActive = after.active;
    facts->hasRead = after.reads > 0;
    facts->reads = after.reads - before.reads;
    facts->undecoded = after.undecoded - before.undecoded;
    facts->radioPackets = after.radioPackets - before.radioPackets;
    facts->consumer = consumerText();
    facts->ports = portsOf(status);
    facts->scene = askEngine(why.engine, facts->epc);
    return questions.status;
}

// ---------------------------------------------------------------- output

int showJson(const why::facts_s& facts, const std::vector<why::reason_s>& reasons) {
    nlohmann::ordered_json rows = nlohmann::ordered_json::array();
    for (const why::reason_s& reason : reasons) {
        rows.push_back({{"rule", reason.rule}, {"text", reason.text}, {"remedy", reason.remedy}});
    }
    return printText(nlohmann::ordered_json{{"epc", facts.epc},
                                            {"heard", facts.heard},
                                            {"reported", why::isReported(facts)},
                                            {"reasons", std::move(rows)}}
                         .dump(-1, ' ', false, json::error_handler_t::replace));
}

int showText(const why::facts_s& facts, const std::vector<why::reason_s>& reasons) {
    std::string text = facts.epc + ": " + why::summary(facts);
    for (const why::reason_s& reason : reasons) {
        text += "\n- " + decodeTextFrame(reason.text) + "\n  " + reason.remedy;
    }
    return printText(text);
}

}  // namespace

int runWhy(const daemon_s& daemon, const why_s& why) {
    why::facts_s facts;
    if (!readEpc(why.epc, &facts.epc)) {
        return refuse(
            "\"" + why.epc +
            "\" is not an EPC or its beginning: hexadecimal digits, two for each byte, at most 62 bytes");
    }
    const descriptor_s signals{openSignals()};
    const int status = gather(daemon, why, signals.fd, &facts);
    if (status != exitSuccess) {
        return status;
    }
    const std::vector<why::reason_s> reasons = why::explain(facts);
    return why.json ? showJson(facts, reasons) : showText(facts, reasons);
}
