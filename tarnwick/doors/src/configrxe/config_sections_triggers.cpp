// SPDX-License-Identifier: MIT
// Sections for what stops and starts the radio as a whole, on readers with two
// ports and with four.
#include <array>

#include "configrxe/config_sections.hpp"
#include "engine_io/olios.hpp"
#include "engine_io/parameter_io.hpp"
#include "util.hpp"

namespace rxe_intfc {

namespace word = vocabulary::configrxe_words;

namespace {

using hold_times = std::array<std::uint16_t, std::size(word::gpio::holdTimes)>;  // ms, by port - 1

// Inputs of this reader.
std::size_t ports() {
    return hasFourGPIs() ? 4 : 2;
}

std::uint8_t gpioMask(const section_request_s& request) {
    return parameter<std::uint8_t>(request, word::gpio::bitmask, 0, true);
}

// Of the ports that this reader has; the others stay 0.
hold_times holdTimes(const section_request_s& request) {
    hold_times times{};
    for (std::size_t i = 0; i < ports(); ++i) {
        times[i] = parameter<std::uint16_t>(request, word::gpio::holdTimes[i]);
    }
    return times;
}

// -------------------------------------------------------------------------- stop

// "    after GPIO activity (0x11) with hold times: gpio1 20 mS, gpio2 0 mS"
std::string stopGpioLine(std::uint8_t mask, const hold_times& times) {
    std::string line = sprintfStr("    after GPIO activity (0x%02x) with hold times: ", mask);
    for (std::size_t i = 0; i < ports(); ++i) {
        sprintfStrAppend(&line, "%sgpio%d %d mS", i == 0 ? "" : ", ", static_cast<int>(i + 1), times[i]);
    }
    return line + "\n";
}

// A count above the base is a time in seconds instead.
void reportTagCount(std::string* lines, std::uint16_t tagCount) {
    if (tagCount > RXE_NO_MORE_UNIQUE_TAGS_BASE) {
        sprintfStrAppend(lines, "    after no more tags read for %d seconds\n",
                         tagCount - RXE_NO_MORE_UNIQUE_TAGS_BASE);
    } else if (tagCount != 0) {
        sprintfStrAppend(lines, "    after %d tags read\n", tagCount);
    }
}

// stopconditions:
//     after 1000 mS
//     after 50 tags read
//     after 2 olio loops
//
// A condition that is 0 has no line.
void reportStop(std::string* reply, const auto& stop, const hold_times& times) {
    std::string lines;
    if (stop.duration != 0) {
        sprintfStrAppend(&lines, "    after %d mS\n", static_cast<int>(stop.duration));
    }
    reportTagCount(&lines, stop.tagCount);
    if (stop.olioLoops != 0) {
        sprintfStrAppend(&lines, "    after %d olio loops\n", stop.olioLoops);
    }
    if (stop.gpiBitMask != 0) {
        lines += stopGpioLine(stop.gpiBitMask, times);
    }
    *reply = lines.empty() ? "Success: stopconditions are set to autonomous"
                           : "Success: stopconditions:\n" + lines;
}

void readStopOfTwo(const section_request_s& request) {
    PER_RADIO_STOP_s stop{};
    if (readInto(request, RXE_PARAM_RADIO_STOP, &stop)) {
        reportStop(request.reply, stop, {stop.holdTime1, stop.holdTime2});
    }
}

void readStopOfFour(const section_request_s& request) {
    PER_RADIO_STOP2_s stop{};
    if (readInto(request, RXE_PARAM_RADIO_STOP2, &stop)) {
        reportStop(request.reply, stop, {stop.holdTime1, stop.holdTime2, stop.holdTime3, stop.holdTime4});
    }
}

}  // namespace

void readStopConditions(const section_request_s& request) {
    hasFourGPIs() ? readStopOfFour(request) : readStopOfTwo(request);
}

// The record is written whole: a condition that the request does not name goes.
void writeStopConditions(const section_request_s& request) {
    namespace words = word::stop_conditions;
    if (hasWord(request, words::autonomous)) {
        answerWrite(request, setGlobalStopConditions(0, 0, 0, 0, 0, 0, 0, 0));
        return;
    }
    const hold_times times = holdTimes(request);
    answerWrite(request, setGlobalStopConditions(parameter<std::uint32_t>(request, words::time),
                                                 parameter<std::uint16_t>(request, words::olioLoops),
                                                 parameter<std::uint16_t>(request, words::tagCount),
                                                 gpioMask(request), times[0], times[1], times[2], times[3]));
}

// ------------------------------------------------------------------------- start

namespace {

//      Triggering on GPIO 1 is enabled HIGH  HoldTime: 20
//      Triggering on GPIO 2 is disabled
void reportStart(std::string* reply, std::uint8_t mask, const hold_times& times) {
    *reply = "Success:\n";
    for (std::size_t i = 0; i < ports(); ++i) {
        sprintfStrAppend(reply, "     Triggering on GPIO %d is ", static_cast<int>(i + 1));
        if ((mask >> (i + 4) & 1) == 0) {
            *reply += "disabled\n";
            continue;
        }
        *reply += (mask >> i & 1) != 0 ? "enabled HIGH " : "enabled LOW  ";
        sprintfStrAppend(reply, " HoldTime: %d\n", times[i]);
    }
}

void readStartOfTwo(const section_request_s& request) {
    GPIO_START_s start{};
    if (readInto(request, RXE_PARAM_GPIO_START, &start)) {
        reportStart(request.reply, start.gpiBitMask, {start.holdTime1, start.holdTime2});
    }
}

void readStartOfFour(const section_request_s& request) {
    GPIO_START2_s start{};
    if (readInto(request, RXE_PARAM_GPIO_START2, &start)) {
        reportStart(request.reply, start.gpiBitMask,
                    {start.holdTime1, start.holdTime2, start.holdTime3, start.holdTime4});
    }
}

}  // namespace

void readStartConditions(const section_request_s& request) {
    hasFourGPIs() ? readStartOfFour(request) : readStartOfTwo(request);
}

// Quirk: a disable that fails names the stop conditions.
void writeStartConditions(const section_request_s& request) {
    if (!saysDisable(request)) {
        const hold_times times = holdTimes(request);
        answerWrite(request, setGPIOStart(gpioMask(request), times[0], times[1], times[2], times[3]));
        return;
    }
    const RXE_API_STATUS status = setGPIOStart(0, 0, 0, 0, 0);
    answerWrite(request, status,
                std::string((status == RXE_OK ? request.section : word::stop_conditions::section).word));
}

}  // namespace rxe_intfc
