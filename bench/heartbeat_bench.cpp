// SPDX-License-Identifier: MIT
// The cost of a heartbeat with 14 ports while the radio is busy, and how often it asks the radio: never,
// except for the echo of the array reader.
//
// Exit status 1 when an aim is missed.
#include <array>
#include <cstdio>
#include <string>

#include "../tarnwick/doors/src/requests/report.hpp"
#include "engine_io/channels.hpp"
#include "measure.hpp"
#include "radio.hpp"
#include "reader_facts.hpp"
#include "requests.hpp"

namespace {

constexpr double aimSeconds = 1e-3;
constexpr int rounds = 2000;

std::uint64_t questions = 0;

struct model_s {
    const char* name;
    std::uint64_t questions;  // of one heartbeat
};
constexpr std::array models{model_s{"PN8200", 0}, model_s{"QDX4400", 1}};

}  // namespace

// The engine's operations that ask the radio. These take the place of the library's.
extern "C" RXE_API_STATUS RXE_getParam(unsigned short, void*) {
    ++questions;
    return RXE_OK;
}
extern "C" RXE_API_STATUS RXE_resume() {
    ++questions;
    return RXE_OK;
}

int main() {
    bool good = true;
    readerFacts.max_ants = 14;
    requests::current_amb_temp = 40;  // as the radio has told by itself; it would be asked otherwise
    readerFacts.rxeAntennaCheckSupported = true;
    current_channels[0].enable = 1;
    for (const model_s& model : models) {
        setModelName(model.name);
        std::string text;
        requests::getHeartbeat(&text);  // the first one asks, since no packet has come
        questions = 0;
        std::vector<double> seconds;
        for (int i = 0; i < rounds; ++i) {
            radio::packetRxCount += 1000;
            seconds.push_back(secondsOf([&text] { requests::getHeartbeat(&text); }));
        }
        const double usual = median(seconds);
        const bool met = usual < aimSeconds && questions == model.questions * rounds;
        std::printf("%-8s %6.1f us, aim %.0f, %zu bytes, %.2f questions to the radio  %s\n", model.name,
                    usual * 1e6, aimSeconds * 1e6, text.size(), static_cast<double>(questions) / rounds,
                    met ? "met" : "MISSED");
        good = good && met;
    }
    return good ? 0 : 1;
}
