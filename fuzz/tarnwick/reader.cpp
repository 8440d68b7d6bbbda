// SPDX-License-Identifier: MIT
#include "reader.hpp"

#include <sys/timerfd.h>
#include <zmq.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <vector>

#include "../targets.hpp"
#include "additional_config.hpp"
#include "apply/apply.hpp"
#include "engine_io/channels.hpp"
#include "mode/defaults.hpp"
#include "mode_request.hpp"
#include "radio.hpp"
#include "requests.hpp"
#include "requests/news.hpp"
#include "support/engine_double.hpp"
#include "tw_msg.pb.h"
#include "zmq_intfc.hpp"

namespace {

// The socket at which tag reports arrive. Made once.
void* reports = nullptr;

void openPair(void** one, void** other, const char* endpoint) {
    *one = zmq_socket(sockets::context, ZMQ_PAIR);
    *other = zmq_socket(sockets::context, ZMQ_PAIR);
    zmq_bind(*one, endpoint);
    zmq_connect(*other, endpoint);
}

// The parts that a process has once.
void openProcess() {
    if (sockets::context == nullptr) {
        sockets::context = zmq_ctx_new();
        openPair(&sockets::main_from_radio_async, &sockets::radio_to_main_async.handle, "inproc://news");
        openPair(&reports, &sockets::tag_data.handle, "inproc://reports");
        requests::database_timer = timerfd_create(CLOCK_REALTIME, TFD_NONBLOCK);
    }
}

}  // namespace

void newReader(std::string_view* input) {
    constexpr const char* models[] = {"PN5100", "PN8200", "QDX4400", "PN5100-ASIC"};
    const char choice = input->empty() ? '0' : input->front();
    input->remove_prefix(input->empty() ? 0 : 1);
    engine_double::reset();
    if (additional_config::isAddlKeysEnabled.exchange(false)) {  // empties 3 MiB, so only when it was used
        resetTagInfoDB();
    }
    RXE_setCallback(getPacket);
    openProcess();
    setModelName(models[choice & 3]);
    readerFacts.max_ants = readerFacts.modelName == models[2] ? 14 : 4;
    readerFacts.max_tx_pwr_x_10 = readerFacts.rxe_max_tx_pwr_x_10 = 300;
    readerFacts.rssiFilterSupported = initial_channel_state = true;
    mode_configuration = {};
    initMode();
    setDefaultMode(&mode_configuration);
    publishReportPlan(mode_configuration, toldAccesses);
    radio::data_analytics_type = DATA_ANALYTICS_OFF;
    sockets::tag_data.outside = false;
}

std::string askMode(std::string_view word) {
    std::vector<std::string> tokens{"mode"};
    if (!word.empty()) {
        tokens.emplace_back(word);
    }
    std::string reply;
    handleModeRequest(&tokens, &reply);
    return reply;
}

std::string modeInForce() {
    constexpr std::string_view success = "Success: ";
    const std::string reply = askMode("as_set");
    require(reply.starts_with(success) && nlohmann::json::accept(reply.substr(success.size())),
            "a mode is in force, and is JSON");
    return reply.substr(success.size());
}

void takeNews() {
    int ready = 0;
    std::size_t size = sizeof ready;
    while (zmq_getsockopt(sockets::main_from_radio_async, ZMQ_EVENTS, &ready, &size) == 0 &&
           (ready & ZMQ_POLLIN) != 0) {
        requests::handleRadioNews();
    }
}

namespace {

// The frame's report, JSON or the binary message by the header's third byte, written anew.
std::string asALibraryWritesIt(std::string_view frame) {
    if (radio::data_analytics_type == DATA_ANALYTICS_OFF) {
        return nlohmann::json::parse(frame, nullptr, false).dump();
    }
    constexpr std::size_t kind = 2, headerBytes = 4;
    const std::string header(frame.substr(0, headerBytes));
    const std::string_view report = frame.substr(header.size());
    if (header.size() == headerBytes && header[kind] != 0) {
        velmo::tag_data_report message;
        message.ParseFromArray(report.data(), static_cast<int>(report.size()));
        return header + message.SerializeAsString();
    }
    return header + nlohmann::json::parse(report, nullptr, false).dump();
}

}  // namespace

void takeReports() {
    zmq_msg_t frame;
    zmq_msg_init(&frame);
    while (zmq_msg_recv(&frame, reports, ZMQ_DONTWAIT) >= 0) {
        const std::string_view text(static_cast<const char*>(zmq_msg_data(&frame)), zmq_msg_size(&frame));
        // An empty frame ends a batch.
        require(text.empty() || text == asALibraryWritesIt(text), "a report is what a library writes of it");
    }
    zmq_msg_close(&frame);
}
