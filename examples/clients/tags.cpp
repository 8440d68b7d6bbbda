// SPDX-License-Identifier: MIT
// tags [host [number]]: prints the tag reports of a reader in the network: all of them, or
// the share of the subscriber with this number, from 1 to what `subscribers` was set to.
//
// Takes JSON from tcp port 5160 (data_analytics STRING). Needs cppzmq-dev and
// nlohmann-json3-dev: g++ -std=c++20 tags.cpp -o tags -lzmq. SIGINT or SIGTERM ends it. A
// line is: time, EPC, antenna, RSSI in dBm; "-" for what a report does not have.
#include <csignal>
#include <iostream>
#include <nlohmann/json.hpp>
#include <zmq_addon.hpp>

volatile std::sig_atomic_t ended = 0;

// Prints one report. `expected` is its number, -1 for any, and becomes the next one's. A
// share has only some of the numbers, so a loss shows only when all reports are taken.
void take(const std::string& frame, bool takesAll, long long& expected) try {
    const nlohmann::json report = nlohmann::json::parse(frame.substr(4));  // behind the header
    const nlohmann::json& data = report.at("data");
    const long long number = data.at("eventNum");
    if (number < expected) {
        std::cerr << "the daemon has restarted\n";
    } else if (takesAll && expected >= 0 && number > expected) {
        std::cerr << number - expected << " reports lost before number " << number << "\n";
    }
    expected = number + 1;
    const auto shown = [&](const char* key) { return data.contains(key) ? data[key].dump() : "-"; };
    std::cout << report.at("timestamp").get<std::string>() << " " << data.at("idHex").get<std::string>()
              << " " << shown("antenna") << " " << shown("peakRssi") << std::endl;
} catch (const std::exception& fault) {
    std::cerr << "not a JSON report (is data_analytics STRING?): " << fault.what() << "\n";
}

int main(int argc, char** argv) try {
    const int share = argc > 2 ? std::atoi(argv[2]) : 0;  // 0: everything
    const std::string number{static_cast<char>(share), static_cast<char>(share >> 8)};
    std::signal(SIGINT, [](int) { ended = 1; });
    std::signal(SIGTERM, [](int) { ended = 1; });
    zmq::context_t context;
    zmq::socket_t reports(context, zmq::socket_type::sub);
    reports.set(zmq::sockopt::rcvhwm, 100'000);      // messages that may wait while we are busy
    reports.set(zmq::sockopt::heartbeat_ivl, 2000);  // ms; finds a dead link, and connects again
    reports.set(zmq::sockopt::rcvtimeo, 5000);       // ms
    reports.set(zmq::sockopt::subscribe, share == 0 ? "" : number);
    reports.connect("tcp://" + std::string(argc > 1 ? argv[1] : "127.0.0.1") + ":5160");
    for (long long expected = -1; ended == 0;) {
        std::vector<zmq::message_t> message;  // a report in each frame; an empty one only ends a batch
        if (!zmq::recv_multipart(reports, std::back_inserter(message))) {
            std::cerr << "no report for 5 s\n";
        }
        for (const zmq::message_t& frame : message) {
            frame.empty() ? void() : take(frame.to_string(), share == 0, expected);
        }
    }
} catch (const zmq::error_t& fault) {
    std::cerr << (ended == 0 ? fault.what() : "ended by a signal") << "\n";
    return ended == 0 ? 1 : 0;
}
