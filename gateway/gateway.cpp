// SPDX-License-Identifier: MIT
// The main thread starts and ends the others, and answers the status socket.
//
//   intake ──► spool's writer ──► one sender for each sink
#include "gateway.hpp"

#include <signal.h>
#include <spdlog/spdlog.h>
#include <sys/signalfd.h>
#include <sysexits.h>
#include <systemd/sd-daemon.h>
#include <unistd.h>
#include <zmq.h>

#include <algorithm>
#include <cstdio>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>

#include "config.hpp"
#include "http/http.hpp"
#include "intake.hpp"
#include "sender.hpp"
#include "spool.hpp"
#include "status.hpp"
#include "twctl/sockets.hpp"

namespace {

using namespace std::chrono_literals;
using steady_t = std::chrono::steady_clock;

constexpr auto drainWithin = 5s;
constexpr auto settleWithin = 2s;     // of a sink that changes, what is in flight
constexpr long tick = 1'000;          // ms
constexpr long shortTick = 20;        // ms, while senders end
constexpr auto silenceAllowed = 20s;  // of a thread, before the watchdog is no longer fed

// Descriptor for SIGTERM, SIGINT and SIGHUP, which are blocked for all threads to come.
int openGatewaySignals() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    sigaddset(&signals, SIGHUP);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    return signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK);
}

// A thread that is expected to count on.
struct pulse_watch_s {
    std::uint64_t last = 0;
    steady_t::time_point at = steady_t::now();

    bool beats(std::uint64_t now) {
        if (now != last) {
            last = now;
            at = steady_t::now();
        }
        return steady_t::now() - at < silenceAllowed;
    }
};

class gateway_c {
  public:
    int run(const std::string& file);

  private:
    bool start();
    bool openStatus(const std::string& endpoint);
    void loop();
    void reload();
    void finishReload();
    bool applySources(const config_s& next);
    void endSenders(const config_s& next);
    void startSenders();
    nlohmann::json statusNow();
    void answerStatus();
    void tellHttp(bool intakeBeats, bool spoolBeats);
    void feedWatchdog();
    void end();

    std::string configFile;
    config_s config;
    descriptor_s signals;
    spool_c spool;
    http_c http;
    intake_c intake{&spool, &http.picture};
    std::unique_ptr<spool_reader_c> reader;
    std::map<std::string, std::unique_ptr<sender_c>> senders;        // by the sink's name
    std::map<std::string, std::unique_ptr<sender_c>> endingSenders;  // which a reload waits for
    bool isReloading = false;
    bool reloadWanted = false;
    std::optional<connection_s> statusSocket;
    std::unique_ptr<bound_file_c> statusFile;
    pulse_watch_s intakePulse, spoolPulse;
    steady_t::time_point toldHttp{};
};

void tellMistakes(const std::vector<std::string>& mistakes) {
    for (const std::string& mistake : mistakes) {
        std::fprintf(stderr, "twgate: %s\n", mistake.c_str());
    }
}

int gateway_c::run(const std::string& file) {
    configFile = file;
    std::vector<std::string> mistakes;
    const std::optional<config_s> read = readConfig(file, &mistakes);
    if (!read) {
        tellMistakes(mistakes);
        return EX_CONFIG;
    }
    config = *read;
    signals.fd = openGatewaySignals();
    signal(SIGPIPE, SIG_IGN);  // a peer that has gone is an error of the write
    if (!start()) {
        http.stop();
        intake.close();
        senders.clear();
        spool.stop();
        return 1;
    }
    sd_notify(0, "READY=1");
    spdlog::info("running");
    loop();
    end();
    return 0;
}

bool gateway_c::start() {
    std::string error;
    if (!openStatus(config.status)) {
        return false;
    }
    if (!spool.open(config.spool, &error)) {
        spdlog::error("{}", error);
        return false;
    }
    spool.watchPresence(
        [this](const std::vector<new_entry_s>& entries) { http.picture.takePresence(entries); });
    spool.start();
    reader = std::make_unique<spool_reader_c>(&spool);
    // A new sink gets all that comes, so it is known before anything does.
    spool.setSinks(config.sinks);
    if (!http.prepare(config, &error) || !intake.open(config.sources, &error)) {
        spdlog::error("{}", error);
        return false;
    }
    startSenders();
    http.commit(config);
    tellHttp(true, true);
    return true;
}

bool gateway_c::openStatus(const std::string& endpoint) {
    if (hasLiveListener(endpoint)) {
        spdlog::error("{}: process {} listens there", endpoint, listenerOf(endpoint));
        return false;
    }
    statusSocket.emplace(openConnection(ZMQ_REP));
    if (zmq_bind(statusSocket->socket.get(), endpoint.c_str()) != 0) {
        spdlog::error("{}: {}", endpoint, zmq_strerror(zmq_errno()));
        return false;
    }
    statusFile = std::make_unique<bound_file_c>(endpoint);
    return true;
}

void gateway_c::loop() {
    for (;;) {
        zmq_pollitem_t items[] = {{nullptr, signals.fd, ZMQ_POLLIN, 0},
                                  {statusSocket->socket.get(), 0, ZMQ_POLLIN, 0}};
        zmq_poll(items, 2, isReloading ? shortTick : tick);
        signalfd_siginfo signal{};
        while (read(signals.fd, &signal, sizeof signal) == sizeof signal) {
            if (signal.ssi_signo != SIGHUP) {
                return;
            }
            reloadWanted = true;
        }
        if (isReloading) {
            finishReload();
        }
        if (!isReloading && std::exchange(reloadWanted, false)) {
            reload();
        }
        if ((items[1].revents & ZMQ_POLLIN) != 0) {
            answerStatus();
        }
        feedWatchdog();
    }
}

// A configuration that cannot be used changes nothing.
void gateway_c::reload() {
    sd_notify(0, "RELOADING=1");
    std::vector<std::string> mistakes;
    const std::optional<config_s> next = readConfig(configFile, &mistakes);
    if (next && next->spool.directory != config.spool.directory) {
        mistakes.emplace_back("spool.directory: changes only with a restart");
    }
    if (next && next->status != config.status) {
        mistakes.emplace_back("status: changes only with a restart");
    }
    std::string error;
    if (mistakes.empty() && !http.prepare(*next, &error)) {
        mistakes.push_back(error);
    }
    if (mistakes.empty() && applySources(*next)) {
        spool.configure(next->spool);
        endSenders(*next);
        http.commit(*next);
        toldHttp = {};  // what has changed shows at once
        config = *next;
        isReloading = true;
        return;
    }
    for (const std::string& mistake : mistakes) {
        spdlog::error("{}: {}", configFile, mistake);
    }
    spdlog::error("{}: the old configuration stays in force", configFile);
    sd_notify(0, "READY=1");
}

// A sink that has changed begins when the old one has ended: both may be the same client to a server.
void gateway_c::finishReload() {
    const auto ended =
        std::ranges::count_if(endingSenders, [](const auto& row) { return row.second->hasEnded(); });
    if (static_cast<std::size_t>(ended) < endingSenders.size()) {
        return;
    }
    endingSenders.clear();
    spool.setSinks(config.sinks);
    startSenders();
    isReloading = false;
    spdlog::info("{}: the new configuration is in force", configFile);
    sd_notify(0, "READY=1");
}

bool gateway_c::applySources(const config_s& next) {
    std::string error;
    if (next.sources == config.sources || intake.open(next.sources, &error)) {
        return true;
    }
    spdlog::error("{}", error);
    return false;
}

// Of the sinks that have changed or gone.
void gateway_c::endSenders(const config_s& next) {
    for (auto sender = senders.begin(); sender != senders.end();) {
        const auto before = std::ranges::find(config.sinks, sender->first, &sink_config_s::name);
        if (std::ranges::find(next.sinks, *before) != next.sinks.end()) {
            ++sender;
            continue;
        }
        sender->second->drain(steady_t::now() + settleWithin, false);
        endingSenders[sender->first] = std::move(sender->second);
        sender = senders.erase(sender);
    }
}

// Of the sinks that have none.
void gateway_c::startSenders() {
    const spool_account_s account = spool.account();
    for (const sink_config_s& sink : config.sinks) {
        const auto own = std::ranges::find(account.sinks, sink.name, &sink_account_s::name);
        if (!senders.contains(sink.name)) {
            senders[sink.name] = std::make_unique<sender_c>(sink, *own, &spool);
        }
    }
}

nlohmann::json gateway_c::statusNow() {
    std::map<std::string, sender_status_s> states;
    for (const auto& [name, sender] : senders) {
        states[name] = sender->status();
    }
    for (const auto& [name, sender] : endingSenders) {
        states[name] = {.trouble = "its settings change", .inFlight = sender->status().inFlight};
    }
    nlohmann::json document = statusDocument(spool.account(), states, reader.get());
    document["version"] = TARNWICK_VERSION;
    return document;
}

void gateway_c::tellHttp(bool intakeBeats, bool spoolBeats) {
    if (!http.isOn() || steady_t::now() - toldHttp < std::chrono::milliseconds(tick)) {
        return;
    }
    toldHttp = steady_t::now();
    nlohmann::json document = statusNow();
    health_s health{.reasons = statusTroubles(document), .stuck = {}};
    if (!intakeBeats) {
        health.stuck.emplace_back("the intake is stuck");
    }
    if (!spoolBeats) {
        health.stuck.emplace_back("the spool is stuck");
    }
    http.picture.takeStatus(std::move(document), std::move(health));
}

void gateway_c::answerStatus() {
    zmq_msg_t request;
    zmq_msg_init(&request);
    void* const socket = statusSocket->socket.get();
    while (zmq_msg_recv(&request, socket, ZMQ_DONTWAIT) >= 0 && zmq_msg_more(&request) != 0) {
    }
    zmq_msg_close(&request);
    const std::string reply = statusNow().dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
    zmq_send(socket, reply.data(), reply.size(), ZMQ_DONTWAIT);
}

void gateway_c::feedWatchdog() {
    const bool intakeBeats = intakePulse.beats(intake.pulse());
    const bool spoolBeats = spoolPulse.beats(spool.pulse());
    if (intakeBeats && spoolBeats) {
        sd_notify(0, "WATCHDOG=1");
    }
    tellHttp(intakeBeats, spoolBeats);
}

// The other way round than the start: what came is committed, what is committed is delivered as far as
// the time allows, and the cursors are committed.
void gateway_c::end() {
    const auto deadline = steady_t::now() + drainWithin;
    sd_notify(0, "STOPPING=1");
    spdlog::info("ending");
    http.stop();
    intake.close();
    spool.flush();
    for (const auto& [name, sender] : senders) {
        sender->drain(deadline, true);
    }
    for (const auto& [name, sender] : senders) {
        sender->join();
    }
    for (const auto& [name, sender] : endingSenders) {
        sender->join();
    }
    reader.reset();
    endingSenders.clear();
    senders.clear();
    spool.stop();
    for (const sink_account_s& sink : spool.account().sinks) {
        if (sink.pending() > 0) {
            spdlog::info("sink {}: {} entries wait in the spool", sink.name, sink.pending());
        }
    }
}

}  // namespace

int runGateway(const std::string& configFile) {
    return gateway_c().run(configFile);
}

int checkConfig(const std::string& configFile) {
    std::vector<std::string> mistakes;
    if (readConfig(configFile, &mistakes)) {
        std::printf("%s: no mistakes found\n", configFile.c_str());
        return 0;
    }
    tellMistakes(mistakes);
    return EX_CONFIG;
}
