// SPDX-License-Identifier: MIT
// Packets of the radio, the suppression of duplicates, and the array simulator.
#include <sys/prctl.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdarg>
#include <fstream>
#include <memory>
#include <nlohmann/json.hpp>
#include <thread>

#include "../targets.hpp"
#include "additional_config.hpp"
#include "radio.hpp"
#include "reader.hpp"
#include "simulator.hpp"
#include "support/engine_double.hpp"
#include "zmq_intfc.hpp"

namespace {

using nlohmann::json;

struct packet_type_s {
    std::uint16_t type;
    std::uint16_t mostBytes;  // size of its record, to which the engine double copies the payload
};
constexpr packet_type_s packetTypes[] = {
    {RXE_PACKET_TAG_INFO_CUSTOM, sizeof(TAG_INFO_s)},
    {RXE_PACKET_ACCESS_INFO, sizeof(ACCESS_INFO_s)},
    {RXE_PACKET_PARALLEL_RSSI_DEBUG, sizeof(PARALLEL_RSSI_s)},
    {RXE_PACKET_START_INFO3, sizeof(START_INFO_s)},
    {RXE_PACKET_DB_WARNING, sizeof(DB_WARNING_s)},
    {RXE_PACKET_END_OF_RUN, 4096},
    {RXE_PACKET_ERROR_LOG, 4096},
    {RXE_PACKET_CMD_ONGOING, 4096},
    {RXE_PACKET_ANTENNA_INFO, 4096},
    {RXE_PACKET_CW_ON, 4096},
    {RXE_PACKET_GPIO_INFO, 4096},
    {RXE_PACKET_INV_BEGIN, 4096},
    {RXE_PACKET_ANT_DISCONNECT_ALARM, 4096},
    {RXE_PACKET_AMB_TEMP_HI_ALARM, 4096},
    {RXE_PACKET_AMB_TEMP_CRIT_ALARM, 4096},
    {RXE_PACKET_PA_TEMP_HI_ALARM, 4096},
    {RXE_PACKET_PA_TEMP_CRIT_ALARM, 4096},
    {RXE_PACKET_FWD_PWR_HI_ALARM, 4096},
    {RXE_PACKET_FWD_PWR_LO_ALARM, 4096},
    {RXE_PACKET_DB_ERROR, 4096},
    {RXE_PACKET_ANT_CONNECT_ALARM, 4096},
    {RXE_PACKET_API_ERROR, 4096},
    {RXE_PACKET_INV_END, 4096},
};

// Simulations whose thread has ended. Written by those threads, read by the target's.
std::atomic<unsigned> simulationsEnded{0};

struct at_thread_end_s {
    ~at_thread_end_s() { simulationsEnded.fetch_add(1); }
};

}  // namespace

// A reader, the form of its reports, a mode on the rest of the line; then packets:
//
//   | row of packetTypes: 1 | payload's length, low byte first: 2 | payload |
void packets(std::string_view input) {
    newReader(&input);
    std::string_view setting = takeUntil('\n', &input);
    radio::data_analytics_type = setting.empty() ? 0 : static_cast<std::uint8_t>(setting.front()) % 3;
    sockets::tag_data.outside = radio::data_analytics_type != DATA_ANALYTICS_OFF;
    askMode(setting.substr(setting.empty() ? 0 : 1));
    for (std::size_t row = 0; input.size() >= 3;) {
        const auto at = [&input](std::size_t i) { return static_cast<std::uint8_t>(input[i]); };
        row = at(0) % std::size(packetTypes);
        const std::size_t length = std::min({std::size_t{at(1)} | std::size_t{at(2)} << 8, input.size() - 3,
                                             std::size_t{packetTypes[row].mostBytes}});
        engine_double::deliver(packetTypes[row].type,
                               {reinterpret_cast<const std::uint8_t*>(input.data()) + 3, length});
        input.remove_prefix(3 + length);
        takeNews();
        takeReports();
    }
    engine_double::deliver(RXE_PACKET_INV_BEGIN, {});  // completes a report
    takeReports();
}

// JSON reports, one on each line, through the duplicate suppression; a second apart.
void additionalKeys(std::string_view input) {
    newReader(&input);
    setAddlKeysFilterConfig(!input.empty() && input.front() == '{', 1.5F, 4);
    additional_config::isAddlKeysEnabled = true;
    for (std::int64_t second = 0; !input.empty(); ++second) {
        const json report = json::parse(takeUntil('\n', &input), nullptr, false);
        std::string key;
        if (parse_json_for_addl_key(&report, &key) == 0) {
            report_line(key, {second, 0});
        }
    }
    std::string text;
    require(getCurrentTagInfoDB(&text, true, {}) == 0 && text.starts_with("Success: "),
            "the keys are listed");
}

// The simulator's two files with a NUL between them: the readers, the tags.
void simulatorFiles(std::string_view input) {
    static aar_table_t aars;
    static tag_id_table_t ids;
    static tag_table_t tags;
    static angle_table_t angles;
    const int aarCount = get_aar_info(fileOf(takeUntil('\0', &input)), &aars);
    const int tagCount = get_tag_info(fileOf(input), &ids, &tags);
    get_az(aars, tags, &angles, aarCount, tagCount);
    get_el(aars, tags, &angles, aarCount, tagCount);
    const auto packet =
        std::make_unique<std::uint16_t[]>((sizeof(RXE_packet_s) + maxSimulatedPayload + 1) / 2);
    for (std::size_t i = 0; i < ids.size() && static_cast<int>(i) < tagCount; ++i) {
        if (angles[i][0] != outOfRange) {
            buildTagPacket(ids[i], static_cast<int>(angles[i][0]), -1,
                           reinterpret_cast<RXE_packet_s*>(packet.get()));
        }
    }
}

// A simulation with the two files, until it has sent the tags of one slice or has printed why it
// cannot:
//
//   | array reader: 1, signed | tags a second: 1 | aar.json | 00 | tag.json |
void simulation(std::string_view input) {
    std::string_view array = "2";
    newReader(&array);
    if (input.size() < 2) {
        return;
    }
    const int aar = static_cast<signed char>(input[0]);
    const int rate = static_cast<std::uint8_t>(input[1]);
    input.remove_prefix(2);
    std::ofstream("aar.json", std::ios::binary) << takeUntil('\0', &input);
    std::ofstream("tag.json", std::ios::binary) << input;
    const unsigned ended = simulationsEnded;
    const std::uint64_t sent = radio::packetRxCount.load();
    require(startSimulationThread(aar, rate, 1.5F, 0.5F) == 0, "a simulation is started");
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(10);
    while (simulationsEnded == ended &&
           radio::packetRxCount.load() - sent < static_cast<unsigned>(rate) / 4 &&
           std::chrono::steady_clock::now() < deadline) {
        takeReports();
        std::this_thread::yield();
    }
    require(endSimulations() == 0 && !isSimulationRunning(), "a simulation is ended");
    takeReports();
    takeNews();
}

// The linker puts this in place of the system's for the daemon's own code, where only the thread of a
// simulation calls it, when it begins.
extern "C" int __wrap_prctl(int, ...) {
    thread_local at_thread_end_s end;
    static_cast<void>(end);
    return 0;
}
