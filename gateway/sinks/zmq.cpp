// SPDX-License-Identifier: MIT
// Type "zmq": a bound PUB socket for local subscribers. Each message is one frame, the body as the daemon
// wrote it, so that whatever reads reports of the form OFF reads these. An entry counts as confirmed
// when it is in the queues of those who are subscribed, be it nobody: ZeroMQ tells no more.
#include <zmq.h>

#include "sink.hpp"
#include "twctl/sockets.hpp"

namespace {

class zmq_sink_c : public sink_c {
  public:
    explicit zmq_sink_c(const sink_config_s& config)
        : sink_c({.window = 1'000, .batch = 1'000, .lastBackOff = std::chrono::seconds(5)}),
          endpoint(config.settings.at("bind")) {}

    std::optional<failure_s> open() override {
        if (hasLiveListener(endpoint)) {
            return failure_s{"process " + std::to_string(listenerOf(endpoint)) + " listens on " + endpoint};
        }
        connection.emplace(openConnection(ZMQ_PUB));
        const int queue = 100'000;  // messages for each subscriber that is slow
        zmq_setsockopt(connection->socket.get(), ZMQ_SNDHWM, &queue, sizeof queue);
        if (zmq_bind(connection->socket.get(), endpoint.c_str()) != 0) {
            const int cause = zmq_errno();
            connection.reset();
            return failure_s{endpoint + ": " + zmq_strerror(cause)};
        }
        file.emplace(endpoint);
        return std::nullopt;
    }

    std::size_t offer(std::span<const entry_s> entries) override {
        for (const entry_s& entry : entries) {
            zmq_send(connection->socket.get(), entry.body.data(), entry.body.size(), ZMQ_DONTWAIT);
        }
        settled.push_back({entries.front().seq, entries.back().seq});
        return entries.size();
    }

    poll_s poll() override { return {.settled = std::exchange(settled, {})}; }

    void close() override {
        settled.clear();
        connection.reset();
        file.reset();
    }

  private:
    std::string endpoint;
    std::optional<connection_s> connection;
    std::optional<bound_file_c> file;
    std::vector<settled_s> settled;
};

}  // namespace

std::vector<std::string> findZmqMistakes(const sink_config_s& config) {
    const std::optional<std::string> file = ipcFile(config.settings.at("bind").get<std::string>());
    constexpr std::size_t longest = 107;  // bytes, of sockaddr_un
    return file && file->size() > longest ? std::vector<std::string>{"bind: the path is too long"}
                                          : std::vector<std::string>();
}

std::unique_ptr<sink_c> makeZmqSink(const sink_config_s& config, sink_context_s) {
    return std::make_unique<zmq_sink_c>(config);
}
