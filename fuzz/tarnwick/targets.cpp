// SPDX-License-Identifier: MIT
// The targets of the daemon, and two small ones: the EPC URI library, and texts from outside in the
// log.
#include "../targets.hpp"

#include <algorithm>
#include <cstring>
#include <memory>
#include <string>

#include "logger.hpp"
#include "reader.hpp"
#include "tuvr.h"

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

// A text from outside, as a part of a line of the log.
void logText(std::string_view input) {
    std::string line = "before ";
    logger_detail::append(line, escaped_s{input});
    require(std::ranges::none_of(line, [](unsigned char byte) { return byte < ' ' || byte == 0x7F; }),
            "a text of others cannot end a line");
    require(line.size() < 4 * 1024 + 100, "a text of others is cut");
}

namespace {

constexpr target_s table[] = {
    {"requests", requestLine, 2048},
    {"mode", mode, 2048},
    {"mode_file", storedMode, 2048},
    {"filter", filter, 1024},
    {"packets", packets, 2048},
    {"additional_keys", additionalKeys, 1024},
    {"simulator_files", simulatorFiles, 1024},
    {"simulation", simulation, 1024},
    {"server_reply", serverReply, 7168},
    {"envelopes", envelopes, 512},
    {"subscription_stream", subscriptionStream, 512},
    {"peers", peers, 512},
    {"epc_uri", epcUri, 256},
    {"log_text", logText, 4608},
};

}  // namespace

const std::span<const target_s> targets = table;

// The linker puts these in place of the system's and of libzmq's for the daemon's own code: a target does
// not wait for the disk or for time, and opens no endpoint that a daemon or another target could share.
namespace {

bool isWithinProcess(const char* endpoint) {
    return std::string_view(endpoint).starts_with("inproc://");
}

}  // namespace

extern "C" {
int __real_zmq_bind(void* socket, const char* endpoint);
int __real_zmq_connect(void* socket, const char* endpoint);

int __wrap_zmq_bind(void* socket, const char* endpoint) {
    return isWithinProcess(endpoint) ? __real_zmq_bind(socket, endpoint) : 0;
}
int __wrap_zmq_connect(void* socket, const char* endpoint) {
    return isWithinProcess(endpoint) ? __real_zmq_connect(socket, endpoint) : 0;
}
int __wrap_fsync(int) {
    return 0;
}
int __wrap_usleep(useconds_t) {
    return 0;
}
}
