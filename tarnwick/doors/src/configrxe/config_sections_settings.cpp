// SPDX-License-Identifier: MIT
// Sections for channels, packets, cable loss and the settings without an id.
#include <array>
#include <cmath>
#include <cstdlib>
#include <limits>

#include "configrxe/config_sections.hpp"
#include "engine_io/packets.hpp"
#include "engine_io/parameter_io.hpp"
#include "engine_io/parameters.hpp"
#include "util.hpp"

namespace rxe_intfc {

namespace word = vocabulary::configrxe_words;

// ---------------------------------------------------------------------- channels

// channel    3:
//           frequency (kHz):  915250
//           maxPwrValue (dbm): 30.5
void readChannel(const section_request_s& request) {
    CHANNEL_s channel{};
    const unsigned id = RXE_PARAM_CHANNEL + static_cast<unsigned>(request.id);
    if (!readInto(request, id, &channel)) {
        return;
    }
    sprintfStr(request.reply, "Success:\nchannel %4d:\n", request.id);
    if (channel.enable == 0) {
        *request.reply += "disabled";
        return;
    }
    sprintfStrAppend(request.reply, "          frequency (kHz):  %d\n", static_cast<int>(channel.frequency));
    sprintfStrAppend(request.reply, "          maxPwrValue (dbm): %d.%d", channel.maxPower / 10,
                     channel.maxPower % 10);
}

namespace {

// A decimal number of dBm as tenths, of which the low 16 bits count; 0 for a text that
// is not a number, and where the tenths are none or beyond a 64-bit integer.
std::uint16_t tenthsOf(const std::string& text) {
    const double tenths = std::strtod(text.c_str(), nullptr) * 10;
    return std::fabs(tenths) < 0x1p63 ? static_cast<std::uint16_t>(std::llround(tenths)) : std::uint16_t{0};
}

}  // namespace

// The record is written whole: what the request does not name becomes 0.
void writeChannel(const section_request_s& request) {
    CHANNEL_s channel{};
    channel.enable = saysDisable(request) ? 0 : 1;
    channel.frequency = parameter<std::uint32_t>(request, word::channel::frequency);
    channel.maxPower = tenthsOf(textParameter(request, word::channel::maxPower));
    if (channel.enable != 0 && !hasParameter(request, word::channel::frequency)) {
        return fail(request, "Failure: setting channel must include frequency");
    }
    if (channel.enable != 0 && !hasParameter(request, word::channel::maxPower)) {
        return fail(request, "Failure: setting channel must include max_pwr");
    }
    const RXE_API_STATUS status =
        writeParameter<RXE_PARAM_CHANNEL>(channel, static_cast<unsigned>(request.id));
    answerWrite(request, status);
    if (status != RXE_OK) {
        *request.reply += std::string(" (error ") + RXE_strerror(status) + ")";
    }
}

// ----------------------------------------------------------------------- packets

namespace {

// "packet 4352 (0x1100)"
std::string packetText(const section_request_s& request) {
    return sprintfStr("packet %d (0x%04x)", request.id, static_cast<unsigned>(request.id));
}

}  // namespace

// The engine has a bit for each type, 32 of them in a parameter. An id beyond them is a failed
// read, without a question to the engine.
void readPacket(const section_request_s& request) {
    std::uint32_t bits = 0;
    const auto id = static_cast<unsigned>(request.id);
    if (request.id < 0 || request.id / 32 >= RXE_PACKET_BIT_WORDS) {
        *request.reply = "Failure: getting " + packetText(request);
        return;
    }
    if (!readInto(request, RXE_PARAM_PACKET_BITS + id / 32, &bits, packetText(request))) {
        return;
    }
    sprintfStr(request.reply, "Success:\npacket %4d (0x%04x): ", request.id, id);
    *request.reply += (bits >> (id & 31) & 1) != 0 ? "enabled" : "disabled";
}

// Goes through this program's own list of enabled packets, so that the next mode knows of it.
// Quirk: the id keeps its low 16 bits.
void writePacket(const section_request_s& request) {
    const bool enable = !saysDisable(request);
    if (enable && !hasWord(request, word::enable)) {
        return fail(request, "Failure: configrxe packet must include enable or disable");
    }
    const auto id = static_cast<std::uint16_t>(request.id);
    answerWrite(request, enable ? enablePacketType(id) : disablePacketType(id), packetText(request));
}

// -------------------------------------------------------- numbers stored in tenths

namespace {

// The value as typed goes into the reply, its tenths to the engine. A text that
// is not a number throws; a number that the field cannot hold is refused.
void writeTenths(const section_request_s& request, double most, const std::string& what,
                 RXE_API_STATUS (*set)(int id, long tenths)) {
    const double value = std::stof(request.words.front());
    const double tenths = value * 10;
    RXE_API_STATUS status = refused;
    if (tenths > -0.5 && tenths < most + 0.5) {
        status = set(request.id, std::lround(tenths));
    }
    answerWrite(request, status, what + sprintfStr(" to %3.1f", value));
}

void readHeight(const section_request_s& request, unsigned id, const std::string& what) {
    std::uint16_t tenths = 0;
    if (readInto(request, id, &tenths, what)) {
        *request.reply = "Success: " + what + sprintfStr(" is set to: %3.1f", tenths / 10.0);
    }
}

constexpr double mostTenths16 = std::numeric_limits<std::uint16_t>::max();
constexpr double mostTenths8 = std::numeric_limits<std::uint8_t>::max();

// In place of "cableLoss 1".
std::string cableLossText(const section_request_s& request) {
    return "cable loss compensation for antenna " + std::to_string(request.id);
}

}  // namespace

void readCableLoss(const section_request_s& request) {
    std::uint8_t tenths = 0;
    if (getCableLossX10(request.id, &tenths) != RXE_OK) {
        *request.reply = "Failure: getting " + cableLossText(request);
        return;
    }
    *request.reply = "Success: " + cableLossText(request) + sprintfStr(": %3.1f", tenths / 10.0);
}

void writeCableLoss(const section_request_s& request) {
    writeTenths(request, mostTenths8, cableLossText(request),
                [](int id, long tenths) { return setCableLossX10(id, static_cast<std::uint8_t>(tenths)); });
}

void readAARHeight(const section_request_s& request) {
    readHeight(request, RXE_PARAM_AAR_HEIGHT, "aar height");
}

void writeAARHeight(const section_request_s& request) {
    writeTenths(request, mostTenths16, "aar height",
                [](int, long tenths) { return setAARHeightX10(static_cast<std::uint16_t>(tenths)); });
}

void readTagHeight(const section_request_s& request) {
    readHeight(request, RXE_PARAM_TAG_HEIGHT, "tag height");
}

void writeTagHeight(const section_request_s& request) {
    writeTenths(request, mostTenths16, "tag height",
                [](int, long tenths) { return setTagHeightX10(static_cast<std::uint16_t>(tenths)); });
}

// --------------------------------------------------------------- single settings

namespace {

constexpr const char* thresholdText = "static vs dynamic threshold";

}  // namespace

void readStaticVDynamic(const section_request_s& request) {
    std::uint8_t value = 0;
    if (readInto(request, RXE_PARAM_STATIC_V_DYNAMIC, &value, thresholdText)) {
        sprintfStr(request.reply, "Success: %s is set to: %d", thresholdText, value);
    }
}

namespace {

// Whether an 8-bit field holds the number.
bool isByte(int value) {
    return value >= 0 && value <= std::numeric_limits<std::uint8_t>::max();
}

}  // namespace

void writeStaticVDynamic(const section_request_s& request) {
    const int value = std::stoi(request.words.front());
    const RXE_API_STATUS status =
        isByte(value) ? setStaticVDynamic(static_cast<std::uint8_t>(value)) : refused;
    answerWrite(request, status, sprintfStr("%s to %d", thresholdText, value));
}

void readHopPerRound(const section_request_s& request) {
    std::uint8_t on = 0;
    if (readInto(request, RXE_PARAM_HOP_PER_ROUND, &on)) {
        *request.reply = on != 0 ? "Success:\nhopperround enabled\n" : "Success:\nhopperround disabled\n";
    }
}

// "disable" wins where both words stand.
void writeHopPerRound(const section_request_s& request) {
    const bool enable = !saysDisable(request);
    if (enable && !hasWord(request, word::enable)) {
        return fail(request, "Failure: setting hopperround requires enable or disable");
    }
    answerWrite(request, enable ? enableHopPerRound() : disableHopPerRound());
}

void readLastReportFilter(const section_request_s& request) {
    REPORT_FILTER_LAST_REPORT_s filter{};
    if (!readInto(request, RXE_PARAM_LAST_REPORT, &filter)) {
        return;
    }
    if (filter.enable == 0) {
        *request.reply = "Success: reportfilter is disabled";
        return;
    }
    // A signed number: the duration of a filter for ever shows as -1.
    sprintfStr(request.reply, "Success: reportfilter:\n    %s every %d seconds\n",
               filter.type == 0 ? "radio wide" : "per antenna", static_cast<int>(filter.duration));
}

void writeLastReportFilter(const section_request_s& request) {
    if (saysDisable(request)) {
        answerWrite(request, disableLastReportedFilter());
        return;
    }
    const vocabulary::choice_s* type = choiceOf(request, word::report_filter::type);
    if (type == nullptr) {
        return fail(request, "Failure: type must be radion or antenna");
    }
    const auto duration = parameter<std::uint32_t>(request, word::report_filter::duration);
    answerWrite(request, enableLastReportedFilter(type->value, duration));
}

// Quirk: "milliSeconds" and "milliseconds", by type.
void readTxDelayInterval(const section_request_s& request) {
    std::uint8_t type = 0, duration = 0;
    if (getTxDelayInterval(&type, &duration) != RXE_OK) {
        return fail(request, "Failure: getting txDelayInterval");
    }
    *request.reply = type == 0 ? "Success: txDelayInterval is disabled" : "Success: txDelayInterval:\n";
    if (type == 1) {
        sprintfStrAppend(request.reply, "    delay %d milliSeconds when no reads", duration);
    } else if (type == 2) {
        sprintfStrAppend(request.reply, "    delay %d milliseconds when no unique reads", duration);
    }
}

void writeTxDelayInterval(const section_request_s& request) {
    if (saysDisable(request)) {
        answerWrite(request, setTxDelayInterval(0, 0));
        return;
    }
    namespace words = word::tx_delay_interval;
    if (!hasParameter(request, words::type)) {
        return fail(request, "Failure: txDelayInterval must include disable or type");
    }
    const std::uint8_t type = choiceValue(request, words::type);
    if (type == 0) {
        return fail(request, "Failure: type must be noReads or noUniqueReads");
    }
    if (!hasParameter(request, words::duration)) {
        return fail(request, "Failure: txDelayInterval must include disable or duration");
    }
    const int milliseconds = std::stoi(textParameter(request, words::duration));
    RXE_API_STATUS status = refused;
    if (isByte(milliseconds)) {
        status = setTxDelayInterval(type, static_cast<std::uint8_t>(milliseconds));
    }
    answerWrite(request, status);
}

// ---------------------------------------------------------------- tag info fields

namespace {

// Words of this command alone: more fields than the mode language has.
// The n-th word is bit n: RXE_FIELD_EPC is the first, RXE_FIELD_LOCATION the last.
static_assert(RXE_FIELD_EPC == 1U &&
              RXE_FIELD_LOCATION == 1U << (std::size(word::tag_info_fields::arguments) - 1));

}  // namespace

// taginfofields: (0x00008021)
// Enabled Fields:
//     epc
//     rssi
//     phase
void readTagInfoFields(const section_request_s& request) {
    std::uint32_t mask = 0;
    if (!readInto(request, RXE_PARAM_CUSTOM_FIELDS, &mask)) {
        return;
    }
    sprintfStr(request.reply, "Success: taginfofields: (0x%08x)\nEnabled Fields:\n", mask);
    std::uint32_t bit = 1;
    for (const vocabulary::argument_s& field : word::tag_info_fields::arguments) {
        if ((mask & bit) != 0) {
            request.reply->append("    ").append(field.name).append("\n");
        }
        bit <<= 1;
    }
}

// The mask is written as it is, behind the back of setCustomFields, which remembers its own.
void writeTagInfoFields(const section_request_s& request) {
    std::uint32_t mask = 0;
    std::uint32_t bit = 1;
    for (const vocabulary::argument_s& field : word::tag_info_fields::arguments) {
        mask |= hasWord(request, field) ? bit : 0;
        bit <<= 1;
    }
    answerWrite(request, writeParameter<RXE_PARAM_CUSTOM_FIELDS>(mask));
}

}  // namespace rxe_intfc
