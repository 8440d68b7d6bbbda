// SPDX-License-Identifier: MIT
// The table of sinks. "type" in twgate.schema.json has the same words.
#include <algorithm>
#include <array>

#include "sink.hpp"

namespace {

constexpr std::array types{
    sink_type_s{"file", findFileMistakes, makeFileSink},
    sink_type_s{"kafka", findKafkaMistakes, makeKafkaSink},
    sink_type_s{"mqtt", findMqttMistakes, makeMqttSink},
    sink_type_s{"webhook", findWebhookMistakes, makeWebhookSink},
    sink_type_s{"zmq", findZmqMistakes, makeZmqSink},
};

}  // namespace

const sink_type_s* findSinkType(std::string_view name) {
    const auto* const row = std::ranges::find(types, name, &sink_type_s::name);
    return row == types.end() ? nullptr : row;
}
