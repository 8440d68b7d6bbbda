// SPDX-License-Identifier: MIT
#include <sstream>
#include <tuple>

#include "radio_fixture.hpp"

namespace {

// Steps: a number is a message of so many bytes, "i" and a number an immediate
// one, "13x" 13 messages of one byte, "t" a tick, "f" a flush. What is sent: the
// sizes of a message's frames with "+" between them; the 13 are left out.
// The rate of a tick is the count since the tick before, doubled.
const std::tuple<const char*, const char*, const char*, const char*> cases[] = {
    // legend, steps, tag_data, gpio_led
    {"24 a second: single frames", "12x t 9 9 f", "9 9 ", "9 9 "},
    {"26 a second: one batch, ended by the flush", "13x t 9 8 f f", "9+8+0 ", "9+8+0 "},
    {"1500 bytes take one more frame", "13x t 1500 9 8 f", "1500+9+8 ", "1500+9+8 "},
    {"1501 bytes end with the next frame", "13x t 1501 9 f", "1501+9 ", "1501+9 "},
    {"a lower rate ends the batch; only tag_data has an empty message", "13x t 9 t 8 f", "9+8 0 ", "9+8 "},
    {"an immediate message closes the batch, stands alone", "13x t 9 i7 8 f", "9+0 7 8+0 ", "9+8+0 "},
};

void run(const char* steps) {
    std::istringstream words(steps);
    for (std::string word; words >> word;) {
        if (word == "t") {
            do_background_activity_radio_thread();
        } else if (word == "f") {
            flush_zmq_sockets();
        } else if (word[0] == 'i') {
            send_tag_data_message(std::string(std::stoul(word.substr(1)), 'm'), true);
        } else {
            const bool many = word.back() == 'x';
            const unsigned long number = std::stoul(word);
            for (unsigned long i = 0; i < (many ? number : 1); ++i) {
                const std::string message(many ? 1 : number, 'm');
                send_gpio_led_message(message);
                send_tag_data_message(message, false);
            }
        }
    }
}

std::string sent(void* socket) {
    std::string sizes;
    for (const message_t& message : received(socket)) {
        std::string frames;
        for (const std::string& frame : message) {
            frames += (frames.empty() ? "" : "+") + std::to_string(frame.size());
        }
        sizes += frames == "1" ? "" : frames + " ";
    }
    return sizes;
}

using RadioChannels = RadioTest;

TEST_F(RadioChannels, BatchByTheMeasuredRate) {
    for (const auto& [legend, steps, tagData, gpioLed] : cases) {
        SCOPED_TRACE(legend);
        run("t t f");
        received(data);
        received(lines);
        run(steps);
        EXPECT_EQ(sent(data), tagData);
        EXPECT_EQ(sent(lines), gpioLed);
    }
}

// The engine thread cannot be woken to flush: it looks at its next status packet
// whether the radio thread has ticked since.
TEST_F(RadioChannels, StatusPacketFlushesOnceForEachTick) {
    run("13x t");
    deliver(0x0B01);
    run("9");
    deliver(0x0B01);
    EXPECT_EQ(sent(data), "") << "no tick since the last look";
    run("t");
    deliver(0x0B01);
    EXPECT_EQ(sent(data), "9+0 ");
}

}  // namespace
