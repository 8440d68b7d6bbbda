// SPDX-License-Identifier: MIT
// News of the radio side: what the engine reported and the main thread alone
// may log and publish.
#include "logger.hpp"
#include "requests/news.hpp"
#include "zmq_intfc.hpp"

#include <zmq.h>

#include <string>
#include <vector>

namespace {

// Takes a whole message, so that the next one begins with its topic.
std::vector<std::string> receiveFrames(void* socket) {
    std::vector<std::string> frames;
    std::string frame;
    do {
        if (zmq_recv_string(socket, &frame) != 0) {
            break;
        }
        frames.push_back(frame);
    } while (hasMoreFrames(socket));
    return frames;
}

}  // namespace

bool hasMoreFrames(void* socket) {
    int more = 0;
    std::size_t size = sizeof more;
    return zmq_getsockopt(socket, ZMQ_RCVMORE, &more, &size) == 0 && more != 0;
}

void handleRadioNews() {
    const std::vector<std::string> frames = receiveFrames(main_from_radio_async);
    if (!frames.empty()) {
        logDebug("requests", " radio news: ", frames.front());
    }
}
