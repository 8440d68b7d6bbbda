// SPDX-License-Identifier: MIT
// Which antennas are lost and which power amplifiers have failed. Main thread.
#include <algorithm>

#include "engine_io/parameters.hpp"
#include "reader_facts.hpp"
#include "requests.hpp"
#include "requests/report.hpp"
#include "util.hpp"

namespace requests {

// Written here, read by heartbeat and status.
std::array<bool, alarmPorts> disconnected_antenna{};

namespace {

// By port; an entry is never cleared. Written and read by noteAmplifierFailure.
std::array<bool, alarmPorts> problematic_PAs{};

}  // namespace

std::pair<unsigned, unsigned> reportedPorts() {
    const unsigned count = std::min<unsigned>(readerFacts.max_ants, alarmPorts - 1);
    // A reader without ports has the empty range 1 to 0.
    return thisModel().arrayReader && count > 0 ? std::pair{0U, count - 1} : std::pair{1U, count};
}

void noteAntenna(unsigned port, bool disconnected) {
    if (port >= alarmPorts || disconnected_antenna[port] == disconnected) {
        return;
    }
    disconnected_antenna[port] = disconnected;
    std::string text = sprintfStr("Antenna %s on Port %d", disconnected ? "Disconnected" : "Reconnected",
                                  static_cast<int>(port));
    logError(&text, report_error.antenna);
}

void noteAmplifierFailure(unsigned port) {
    if (port >= alarmPorts || problematic_PAs[port]) {
        return;
    }
    problematic_PAs[port] = true;
    std::string text = sprintfStr("Tx (PA) Failure on Port %d", static_cast<int>(port));
    logError(&text, report_error.radio);
}

void updateDisconnectedAntennas() {
    std::array<bool, alarmPorts> connected{};
    if (!readerFacts.rxeAntennaCheckSupported || getAntennaState(connected.data(), alarmPorts) != RXE_OK) {
        return;
    }
    // connected[0] is the first port: antenna 1, or element 0.
    const auto [first, last] = reportedPorts();
    for (unsigned port = first; port <= last; ++port) {
        noteAntenna(port, !connected[port - first]);
    }
}

}  // namespace requests
