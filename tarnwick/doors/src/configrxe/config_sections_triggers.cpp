// SPDX-License-Identifier: MIT
// Sections for what stops and starts the radio as a whole, on readers with two
// ports and with four.
#include <array>

#include "configrxe/config_sections.hpp"
#include "engine_io/olios.hpp"
#include "util.hpp"

namespace {

using rxe_intfc::answerWrite;
using rxe_intfc::hasWord;
using rxe_intfc::parameter;
using rxe_intfc::readInto;
using rxe_intfc::saysDisable;
using rxe_intfc::section_request_s;
using rxe_intfc::section_s;

constexpr std::size_t mostPorts = 4;
using hold_times = std::array<std::uint16_t, mostPorts>;  // ms, by port - 1

std::uint8_t gpioMask(const section_request_s& request) {
    return parameter<std::uint8_t>(request, "gpiobitmask", 0, true);
}

// Of the ports that the reader has; the others stay 0.
hold_times holdTimes(const section_request_s& request, std::size_t ports) {
    constexpr const char* names[mostPorts] = {"gpio1holdtime", "gpio2holdtime", "gpio3holdtime",
                                              "gpio4holdtime"};
    hold_times times{};
    for (std::size_t i = 0; i < ports; ++i) {
        times[i] = parameter<std::uint16_t>(request, names[i]);
    }
    return times;
}

// -------------------------------------------------------------------------- stop

std::string stopGpioLine(std::uint8_t mask, const hold_times& times, std::size_t ports) {
    std::string line = sprintfStr("    after GPIO activity (0x%02x) with hold times: ", mask);
    for (std::size_t i = 0; i < ports; ++i) {
        sprintfStrAppend(&line, "%sgpio%d %d mS", i == 0 ? "" : ", ", static_cast<int>(i + 1), times[i]);
    }
    return line + "\n";
}

void reportTagCount(std::string* lines, std::uint16_t tagCount) {
    if (tagCount > RXE_NO_MORE_UNIQUE_TAGS_BASE) {
        sprintfStrAppend(lines, "    after no more tags read for %d seconds\n",
                         tagCount - RXE_NO_MORE_UNIQUE_TAGS_BASE);
    } else if (tagCount != 0) {
        sprintfStrAppend(lines, "    after %d tags read\n", tagCount);
    }
}

void reportStop(std::string* reply, const auto& stop, const hold_times& times, std::size_t ports) {
    std::string lines;
    if (stop.duration != 0) {
        sprintfStrAppend(&lines, "    after %d mS\n", static_cast<int>(stop.duration));
    }
    reportTagCount(&lines, stop.tagCount);
    if (stop.olioLoops != 0) {
        sprintfStrAppend(&lines, "    after %d olio loops\n", stop.olioLoops);
    }
    if (stop.gpiBitMask != 0) {
        lines += stopGpioLine(stop.gpiBitMask, times, ports);
    }
    *reply = lines.empty() ? "Success: stopconditions are set to autonomous"
                           : "Success: stopconditions:\n" + lines;
}

void readStop(const section_request_s& request) {
    PER_RADIO_STOP_s stop{};
    if (readInto(request, RXE_PARAM_RADIO_STOP, &stop, "stopconditions")) {
        reportStop(request.reply, stop, {stop.holdTime1, stop.holdTime2}, 2);
    }
}

void readStop2(const section_request_s& request) {
    PER_RADIO_STOP2_s stop{};
    if (readInto(request, RXE_PARAM_RADIO_STOP2, &stop, "stopconditions")) {
        reportStop(request.reply, stop, {stop.holdTime1, stop.holdTime2, stop.holdTime3, stop.holdTime4}, 4);
    }
}

RXE_API_STATUS setStop(const section_request_s& request, std::size_t ports) {
    if (hasWord(request, "autonomous")) {
        return setGlobalStopConditions(0, 0, 0, 0, 0, 0, 0, 0);
    }
    const hold_times times = holdTimes(request, ports);
    return setGlobalStopConditions(parameter<std::uint32_t>(request, "time"),
                                   parameter<std::uint16_t>(request, "olioloops"),
                                   parameter<std::uint16_t>(request, "tagcount"), gpioMask(request), times[0],
                                   times[1], times[2], times[3]);
}

template <std::size_t Ports>
void writeStop(const section_request_s& request) {
    answerWrite(request, setStop(request, Ports), "stopconditions");
}

// ------------------------------------------------------------------------- start

void reportStart(std::string* reply, std::uint8_t mask, const hold_times& times, std::size_t ports) {
    *reply = "Success:\n";
    for (std::size_t i = 0; i < ports; ++i) {
        sprintfStrAppend(reply, "     Triggering on GPIO %d is ", static_cast<int>(i + 1));
        if ((mask >> (i + 4) & 1) == 0) {
            *reply += "disabled\n";
            continue;
        }
        *reply += (mask >> i & 1) != 0 ? "enabled HIGH " : "enabled LOW  ";
        sprintfStrAppend(reply, " HoldTime: %d\n", times[i]);
    }
}

void readStart(const section_request_s& request) {
    GPIO_START_s start{};
    if (readInto(request, RXE_PARAM_GPIO_START, &start, "startconditions")) {
        reportStart(request.reply, start.gpiBitMask, {start.holdTime1, start.holdTime2}, 2);
    }
}

void readStart2(const section_request_s& request) {
    GPIO_START2_s start{};
    if (readInto(request, RXE_PARAM_GPIO_START2, &start, "startconditions")) {
        reportStart(request.reply, start.gpiBitMask,
                    {start.holdTime1, start.holdTime2, start.holdTime3, start.holdTime4}, 4);
    }
}

// A disable that fails has always blamed the stop conditions.
template <std::size_t Ports>
void writeStart(const section_request_s& request) {
    if (saysDisable(request)) {
        const RXE_API_STATUS status = setGPIOStart(0, 0, 0, 0, 0);
        answerWrite(request, status, status == RXE_OK ? "startconditions" : "stopconditions");
        return;
    }
    const hold_times times = holdTimes(request, Ports);
    answerWrite(request, setGPIOStart(gpioMask(request), times[0], times[1], times[2], times[3]),
                "startconditions");
}

constexpr section_s stopSection{"stopconditions", nullptr, readStop, writeStop<2>};
constexpr section_s stopSection2{"stopconditions", nullptr, readStop2, writeStop<4>};
constexpr section_s startSection{"startconditions", nullptr, readStart, writeStart<2>};
constexpr section_s startSection2{"startconditions", nullptr, readStart2, writeStart<4>};

}  // namespace

int handleStopConditionsRequest(std::vector<std::string>* tokens, std::size_t index, std::string* reply,
                                bool isPN8200) {
    return serveWithoutId(isPN8200 ? stopSection2 : stopSection, *tokens, index, reply);
}

int handleStartConditionsRequest(std::vector<std::string>* tokens, std::size_t index, std::string* reply) {
    return serveWithoutId(startSection, *tokens, index, reply);
}

int handleStartConditionsRequest2(std::vector<std::string>* tokens, std::size_t index, std::string* reply) {
    return serveWithoutId(startSection2, *tokens, index, reply);
}
