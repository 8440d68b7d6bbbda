// SPDX-License-Identifier: MIT
// The two outbound channels, tag_data and gpio_led, and the tick that determines
// when they batch. The radio thread only measures. It cannot end a batch that the
// engine thread has opened, so it counts ticks, and the engine thread flushes at
// its next status packet.
#include <zmq.h>

#include "radio.hpp"
#include "radio/report_plan.hpp"
#include "radio/tag_account.hpp"
#include "radio_state.hpp"
#include "util.hpp"
#include "zmq_intfc.hpp"

namespace {

// Above this many messages a second a channel gathers messages in batches. The first message that
// comes when a batch has more than this many bytes ends the batch.
constexpr int maxMessagesPerSecond = 25;
constexpr int maxBatchBytes = 1500;

// Messages completed on tag_data since the start; the number wraps, only differences count.
// Written by the engine thread, read by the radio thread.
std::atomic<std::uint32_t> tag_data_msg_count{0};
// The same at the last tick. Radio thread.
std::uint32_t tag_data_prev_msg_count = 0;
// Messages a second at the last tick. Written by the radio thread, read by
// the engine thread.
std::atomic<std::int32_t> tag_data_msg_count_last_second{0};
// Bytes in the open multipart message on tag_data, 0 when none is open. Engine thread.
std::int32_t current_tag_data_msg_size = 0;
// Whether that message is for outside subscribers. Engine thread.
bool current_tag_data_msg_outside = false;

// The same for gpio_led. The main thread writes here too, so the count and the
// size change only in a turn at the socket.
std::atomic<std::uint32_t> gpio_led_msg_count{0};
std::uint32_t gpio_led_prev_msg_count = 0;
std::atomic<std::int32_t> gpio_led_msg_count_last_second{0};
std::int32_t current_gpio_led_msg_size = 0;

// Ticks since start. Written by the radio thread, read by the engine thread.
std::atomic<std::uint32_t> background_activity_count{0};
// The count at the engine thread's last flush. Engine thread.
std::uint32_t do_background_activity_rxe_thread_prev_background_activity_count = 0;

constexpr auto relaxed = std::memory_order_relaxed;

// Sends a prefix and the present time behind it. The main thread and the engine thread call it, so
// the texts are local.
void sendTimedLine(std::string line) {
    timeval now{};
    gettimeofday(&now, nullptr);
    std::string timeText;
    getISOString(&now, &timeText);
    line += timeText;
    send_gpio_led_message(line);
}

// Runs in a turn at gpio_led. The turn covers the choice between batch and single frame, the send
// and the new size, so that these stay consistent when two threads send lines.
void sendLine(std::string_view line) {
    const bool batch = gpio_led_slow_down() && current_gpio_led_msg_size <= maxBatchBytes;
    void* const handle = sockets::gpio_led.handle;
    countMessage(&sockets::gpio_led,
                 handle != nullptr && zmq_send(handle, line.data(), line.size(),
                                               ZMQ_DONTWAIT | (batch ? ZMQ_SNDMORE : 0)) >= 0);
    if (batch) {
        current_gpio_led_msg_size += static_cast<std::int32_t>(line.size());
    } else {
        current_gpio_led_msg_size = 0;
        countOne(&gpio_led_msg_count);
    }
}

// Ends an open batch on gpio_led with an empty frame. In a turn at gpio_led.
void endLines() {
    if (current_gpio_led_msg_size == 0) {
        return;
    }
    if (sockets::gpio_led.handle != nullptr) {
        zmq_send(sockets::gpio_led.handle, "", 0, ZMQ_DONTWAIT);
    }
    current_gpio_led_msg_size = 0;
}

// Main and engine threads.
void closeGpioLedBatch() {
    sockets::gpio_led.turn.doOrLeave(
        endLines, [](left_send_s& left) { left.send = [](const left_send_s&) { endLines(); }; });
}

// Ends an open batch on tag_data in the same way; a batch whose socket was closed does not get an
// end. Engine thread.
void closeTagDataBatch() {
    sendTagData(current_tag_data_msg_outside, "", 0, 0);
    current_tag_data_msg_size = 0;
}

// Computes the rate of one channel, in messages a second: the count of half a second, doubled.
void measureRate(const std::atomic<std::uint32_t>& count, std::uint32_t* previous,
                 std::atomic<std::int32_t>* rate) {
    const std::uint32_t now = count.load(relaxed);
    rate->store(static_cast<std::int32_t>((now - *previous) * 2), relaxed);
    *previous = now;
}

}  // namespace

send_result_e send_tag_data_message(std::string_view message, bool immediate, bool outside) {
    const auto send = [&](int flags) {
        return sendTagData(outside, message.data(), message.size(), flags, &radio::reportOwner);
    };
    if (immediate) {
        if (current_tag_data_msg_size != 0) {
            closeTagDataBatch();
        }
        countOne(&tag_data_msg_count);
        return send(0);
    }
    if (!tag_data_slow_down()) {
        // The size stays as it is. Quirk: a batch that was open ends with this frame, and
        // the next flush then sends one empty message, which readers skip.
        countOne(&tag_data_msg_count);
        return send(0);
    }
    if (current_tag_data_msg_size <= maxBatchBytes) {
        current_tag_data_msg_outside = outside;
        current_tag_data_msg_size += static_cast<std::int32_t>(message.size());
        return send(ZMQ_SNDMORE);
    }
    current_tag_data_msg_size = 0;
    countOne(&tag_data_msg_count);
    return send(0);
}

int send_gpio_led_message(std::string_view message) {
    sockets::gpio_led.turn.doOrLeave([&] { sendLine(message); },
                                     [&](left_send_s& left) {
                                         left.text.assign(message);
                                         left.send = [](const left_send_s& it) { sendLine(it.text); };
                                     });
    return 0;
}

void flush_zmq_sockets() {
    closeGpioLedBatch();
    if (current_tag_data_msg_size > 0) {
        closeTagDataBatch();
    }
}

void do_background_activity_radio_thread() {
    measureRate(gpio_led_msg_count, &gpio_led_prev_msg_count, &gpio_led_msg_count_last_second);
    measureRate(tag_data_msg_count, &tag_data_prev_msg_count, &tag_data_msg_count_last_second);
    background_activity_count.fetch_add(1, relaxed);
}

void do_background_activity_rxe_thread() {
    const std::uint32_t count = background_activity_count.load(relaxed);
    if (count == do_background_activity_rxe_thread_prev_background_activity_count) {
        return;
    }
    flush_zmq_sockets();
    do_background_activity_rxe_thread_prev_background_activity_count = count;
}

bool tag_data_slow_down() {
    return tag_data_msg_count_last_second.load(relaxed) > maxMessagesPerSecond;
}

bool gpio_led_slow_down() {
    return gpio_led_msg_count_last_second.load(relaxed) > maxMessagesPerSecond;
}

bool waitingForMoreTagData() {
    const report_plan_s& plan = reportPlan();
    return plan.switches.reportHeatmap || plan.accesses;
}

void send_GPI_message(int port, int state) {
    sendTimedLine("GPI_" + std::to_string(port) + (state != 0 ? "_H," : "_L,"));
}

void send_radio_start_message() {
    sendTimedLine("RADIO_START,");
}

// A status packet, which flushes, does not follow a stop. So this line, which may open or join a
// batch, ends it too.
void send_radio_stop_message() {
    sendTimedLine("RADIO_STOP,");
    closeGpioLedBatch();
}
