// SPDX-License-Identifier: MIT
// The mouths of the daemon: its requests, the radio's packets, its files, the
// management server, and the library that it hands EPCs to.
//
// Nothing here opens an endpoint: the engine is the tests' double, and a
// connection of the daemon goes to __wrap_connect below.
#include "targets.hpp"

#include <sys/socket.h>
#include <sys/timerfd.h>
#include <zmq.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <memory>
#include <nlohmann/json.hpp>
#include <stdexcept>

#include "additional_config.hpp"
#include "filter_expression.hpp"
#include "mode_config.hpp"
#include "radio.hpp"
#include "requests.hpp"
#include "requests/news.hpp"
#include "rm_client.hpp"
#include "rxe_intfc.hpp"
#include "simulator.hpp"
#include "support/engine_double.hpp"
#include "tuvr.h"
#include "zmq_intfc.hpp"

namespace {

using nlohmann::json;

// What the management server answers; without one, nobody listens.
const std::string_view* serverAnswer = nullptr;

// Where tag reports arrive.
void* reports = nullptr;

void openPair(void** one, void** other, const char* endpoint) {
    *one = zmq_socket(context, ZMQ_PAIR);
    *other = zmq_socket(context, ZMQ_PAIR);
    zmq_bind(*one, endpoint);
    zmq_connect(*other, endpoint);
}

// What a process has once.
void openProcess() {
    if (context == nullptr) {
        context = zmq_ctx_new();
        openPair(&main_from_radio_async, &radio_to_main_async.handle, "inproc://news");
        openPair(&reports, &tag_data.handle, "inproc://reports");
        database_timer = timerfd_create(CLOCK_REALTIME, TFD_NONBLOCK);
    }
}

// A reader as it is after its start; the first character of the input, which is
// taken off, says which.
void newReader(std::string_view* input) {
    constexpr const char* models[] = {"PN5100", "PN8200", "QDX4400", "PN5100-ASIC"};
    const char choice = input->empty() ? '0' : input->front();
    input->remove_prefix(input->empty() ? 0 : 1);
    engine_double::reset();
    RXE_setCallback(getPacket);
    openProcess();
    modelName = models[choice & 3];
    max_ants = modelName == models[2] ? 14 : 4;
    max_tx_pwr_x_10 = rxe_max_tx_pwr_x_10 = 300;
    rssiFilterSupported = initial_channel_state = true;
    mode_configuration = {};
    initMode();
    setDefaultMode(&mode_configuration);
    data_analytics_type = DATA_ANALYTICS_OFF;
    tag_data.outside = false;
    resetTagInfoDB();
}

// ---- requests

// Where what is no number ends the process, as clients know it.
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
        const int rc = ProcessRequest(&request, &reply);
        const bool isText = reply.starts_with("Success") || reply.starts_with("Failure");
        require(rc != 0 || isText || json::accept(reply), "a reply is a Success, a Failure or JSON");
    } catch (const std::logic_error&) {
        const auto stands = [line](std::string_view word) { return line.find(word) != line.npos; };
        require(std::ranges::any_of(deadlyNumbers, stands), "a request throws nothing");
    }
}

// A reader, then a request on each line.
void requests(std::string_view input) {
    newReader(&input);
    for (int count = 0; !input.empty() && count < 64; ++count) {
        ask(takeUntil('\n', &input));
    }
}

std::string askMode(std::string_view words) {
    std::vector<std::string> tokens{"mode"};
    if (!words.empty()) {
        tokens.emplace_back(words);
    }
    std::string reply;
    handleModeRequest(&tokens, &reply);
    return reply;
}

// A reader and a mode. A mode that was taken is taken again, and each rendering is JSON.
void mode(std::string_view input) {
    newReader(&input);
    if (askMode(input) != "Success" || input.empty()) {
        return;
    }
    constexpr std::string_view success = "Success: ";
    for (const std::string_view rendering : {"", "verbose", "as_set"}) {
        const std::string reply = askMode(rendering);
        require(reply.starts_with(success) && json::accept(reply.substr(success.size())),
                "a mode in force is rendered as JSON");
    }
    require(askMode(input) == "Success", "a mode is taken a second time");
}

// What stands in the file of the last mode.
void modeFile(std::string_view input) {
    newReader(&input);
    std::ofstream("mode_config.json") << input;
    require(!askMode("as_set").empty(), "a request has a reply");
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

// ---- the radio

struct packet_type_s {
    std::uint16_t type;
    std::uint16_t mostBytes;  // the double copies a payload to the record of its type
};
constexpr packet_type_s packetTypes[] = {
    {0x0805, sizeof(TAG_INFO_s)},
    {0x0B0C, sizeof(ACCESS_INFO_s)},
    {0x0A8E, sizeof(PARALLEL_RSSI_s)},
    {0x0A91, sizeof(START_INFO_s)},
    {0x0B8D, sizeof(DB_WARNING_s)},
    {0x0801, 4096},
    {0x0810, 4096},
    {0x0B01, 4096},
    {0x0B03, 4096},
    {0x0B04, 4096},
    {0x0B08, 4096},
    {0x0B09, 4096},
    {0x0B81, 4096},
    {0x0B82, 4096},
    {0x0B83, 4096},
    {0x0B85, 4096},
    {0x0B86, 4096},
    {0x0B88, 4096},
    {0x0B89, 4096},
    {0x0B8E, 4096},
    {0x0B91, 4096},
    {0x0BFF, 4096},
    {0x0B0A, 4096},
};

void takeNews() {
    int ready = 0;
    std::size_t size = sizeof ready;
    while (zmq_getsockopt(main_from_radio_async, ZMQ_EVENTS, &ready, &size) == 0 &&
           (ready & ZMQ_POLLIN) != 0) {
        handleRadioNews();
    }
}

void takeReports() {
    zmq_msg_t frame;
    zmq_msg_init(&frame);
    while (zmq_msg_recv(&frame, reports, ZMQ_DONTWAIT) >= 0) {
        std::string_view text(static_cast<const char*>(zmq_msg_data(&frame)), zmq_msg_size(&frame));
        text.remove_prefix(
            data_analytics_type == DATA_ANALYTICS_STRING ? std::min<std::size_t>(4, text.size()) : 0);
        require(data_analytics_type == DATA_ANALYTICS_BINARY || text.empty() || json::accept(text),
                "a report is JSON");
    }
    zmq_msg_close(&frame);
}

// A reader, the form of its reports, a mode on the rest of the line; then packets:
//
//   | row of packetTypes: 1 | payload's length, low byte first: 2 | payload |
void packets(std::string_view input) {
    newReader(&input);
    std::string_view setting = takeUntil('\n', &input);
    data_analytics_type = setting.empty() ? 0 : static_cast<std::uint8_t>(setting.front()) % 3;
    tag_data.outside = data_analytics_type != DATA_ANALYTICS_OFF;
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
    engine_double::deliver(0x0B09, {});  // completes a report
    takeReports();
}

// JSON reports, one on each line, through the duplicate suppression; a second apart.
void additionalKeys(std::string_view input) {
    newReader(&input);
    setAddlKeysFilterConfig(!input.empty() && input.front() == '{', 1.5F, 4);
    isAddlKeysEnabled = true;
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
    isAddlKeysEnabled = false;
}

// ---- files, the server, the library

// The array simulator's two files: its rooms, or with other keys its tags.
void simulatorFiles(std::string_view input) {
    static aar_table_t aars;
    static tag_id_table_t ids;
    static tag_table_t tags;
    static angle_table_t angles;
    const int aarCount = get_aar_info(fileOf(input), &aars);
    const int tagCount = get_tag_info(fileOf(input), &ids, &tags);
    get_az(aars, tags, &angles, std::min(aarCount, 2), std::min(tagCount, 2));
    get_el(aars, tags, &angles, std::min(aarCount, 2), std::min(tagCount, 2));
    const auto packet =
        std::make_unique<std::uint16_t[]>((sizeof(RXE_packet_s) + maxSimulatedPayload + 1) / 2);
    for (std::size_t i = 0; i < ids.size() && static_cast<int>(i) < tagCount; ++i) {
        buildTagPacket(ids[i], static_cast<int>(angles[0][0]), -1,
                       reinterpret_cast<RXE_packet_s*>(packet.get()));
    }
}

// An answer of the management server, to every question.
void serverReply(std::string_view input) {
    serverAnswer = &input;
    std::string text, other;
    int a = 0, b = 0, c = 0;
    float width = 0;
    getModel(&text);
    getReaderDetails(&text, &other);
    getReaderDetails(&a, &b, &c);
    getActiveStandardName(&text);
    getActiveRegionNameAndChannelWidth(&text, &width);
    getCableLossCompensation(1, &a, &b);
    serverAnswer = nullptr;
}

// The room for the URI in one byte, and the digits.
void epcUri(std::string_view input) {
    const std::size_t room = input.empty() ? 0 : static_cast<std::uint8_t>(input.front());
    const std::string digits(input.substr(input.empty() ? 0 : 1));
    for (const auto convert : {tuvr_hexToEpcTagUri, tuvr_hexToEpcUri}) {
        const auto buffer = std::make_unique<char[]>(room);
        std::memset(buffer.get(), '?', room);
        const int rc = convert(digits.c_str(), static_cast<int>(room), buffer.get());
        const std::string_view written(buffer.get(), room);
        require(rc != 0 || (written.starts_with("urn:epc:") && written.find('\0') != written.npos),
                "a URI ends within its buffer");
        require(rc == 0 || written.find_first_not_of('?') == written.npos,
                "a failure leaves the buffer alone");
    }
}

constexpr target_s table[] = {
    {"requests", requests},
    {"mode", mode},
    {"mode_file", modeFile},
    {"filter", filter},
    {"packets", packets},
    {"additional_keys", additionalKeys},
    {"simulator_files", simulatorFiles},
    {"server_reply", serverReply},
    {"epc_uri", epcUri},
};

}  // namespace

const std::span<const target_s> targets = table;

// The linker puts these in the place of the system's for the daemon's own code.
extern "C" {
int __wrap_connect(int, const sockaddr*, socklen_t) {
    errno = ECONNREFUSED;
    return serverAnswer == nullptr ? -1 : 0;
}
ssize_t __wrap_send(int, const void*, std::size_t size, int) {
    return static_cast<ssize_t>(size);
}
ssize_t __wrap_recv(int, void* buffer, std::size_t size, int) {
    return static_cast<ssize_t>(serverAnswer->copy(static_cast<char*>(buffer), size));
}
}
