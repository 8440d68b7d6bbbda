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

namespace {

using rxe_intfc::answerWrite;
using rxe_intfc::hasParameter;
using rxe_intfc::hasWord;
using rxe_intfc::named;
using rxe_intfc::parameter;
using rxe_intfc::readInto;
using rxe_intfc::saysDisable;
using rxe_intfc::section_request_s;
using rxe_intfc::section_s;
using rxe_intfc::textParameter;

void fail(const section_request_s& request, const char* text) {
    *request.reply = text;
}

// ---------------------------------------------------------------------- channels

void readChannel(const section_request_s& request) {
    CHANNEL_s channel{};
    const unsigned id = RXE_PARAM_CHANNEL + static_cast<unsigned>(request.id);
    if (!readInto(request, id, &channel, named("channel", request))) {
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

// A decimal number of dBm as tenths, of which the low 16 bits count; 0 for a text that
// is not a number, and where the tenths are none or beyond a 64-bit integer.
std::uint16_t tenthsOf(const std::string& text) {
    const double tenths = std::strtod(text.c_str(), nullptr) * 10;
    return std::fabs(tenths) < 0x1p63 ? static_cast<std::uint16_t>(std::llround(tenths)) : std::uint16_t{0};
}

void writeChannel(const section_request_s& request) {
    CHANNEL_s channel{};
    channel.enable = saysDisable(request) ? 0 : 1;
    channel.frequency = parameter<std::uint32_t>(request, "frequency");
    channel.maxPower = tenthsOf(textParameter(request, "max_pwr"));
    if (channel.enable != 0 && !hasParameter(request, "frequency")) {
        return fail(request, "Failure: setting channel must include frequency");
    }
    if (channel.enable != 0 && !hasParameter(request, "max_pwr")) {
        return fail(request, "Failure: setting channel must include max_pwr");
    }
    const RXE_API_STATUS status =
        rxe_intfc::writeParameter<RXE_PARAM_CHANNEL>(channel, static_cast<unsigned>(request.id));
    answerWrite(request, status, named("channel", request));
    if (status != RXE_OK) {
        *request.reply += std::string(" (error ") + RXE_strerror(status) + ")";
    }
}

// ----------------------------------------------------------------------- packets

std::string packetText(const section_request_s& request) {
    return sprintfStr("packet %d (0x%04x)", request.id, static_cast<unsigned>(request.id));
}

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

void writePacket(const section_request_s& request) {
    const bool enable = !saysDisable(request);
    if (enable && !hasWord(request, "enable")) {
        return fail(request, "Failure: configrxe packet must include enable or disable");
    }
    const auto id = static_cast<std::uint16_t>(request.id);
    answerWrite(request, enable ? enablePacketType(id) : disablePacketType(id), packetText(request));
}

// -------------------------------------------------------- numbers stored in tenths

// The value as typed goes into the reply, its tenths to the engine. A text that
// is not a number throws; a number that the field cannot hold is refused.
void writeTenths(const section_request_s& request, double most, const std::string& what,
                 RXE_API_STATUS (*set)(int id, long tenths)) {
    const double value = std::stof(request.words.front());
    const double tenths = value * 10;
    RXE_API_STATUS status = rxe_intfc::refused;
    if (tenths > -0.5 && tenths < most + 0.5) {
        status = set(request.id, std::lround(tenths));
    }
    answerWrite(request, status, what + sprintfStr(" to %3.1f", value));
}

template <class Value>
void readTenths(const section_request_s& request, unsigned id, const std::string& what, const char* lead) {
    Value tenths = 0;
    if (readInto(request, id, &tenths, what)) {
        *request.reply = "Success: " + what + lead + sprintfStr("%3.1f", tenths / 10.0);
    }
}

constexpr double mostTenths16 = std::numeric_limits<std::uint16_t>::max();
constexpr double mostTenths8 = std::numeric_limits<std::uint8_t>::max();

std::string cableLossText(const section_request_s& request) {
    return named("cable loss compensation for antenna", request);
}

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
    readTenths<std::uint16_t>(request, RXE_PARAM_AAR_HEIGHT, "aar height", " is set to: ");
}

void writeAARHeight(const section_request_s& request) {
    writeTenths(request, mostTenths16, "aar height",
                [](int, long tenths) { return setAARHeightX10(static_cast<std::uint16_t>(tenths)); });
}

void readTagHeight(const section_request_s& request) {
    readTenths<std::uint16_t>(request, RXE_PARAM_TAG_HEIGHT, "tag height", " is set to: ");
}

void writeTagHeight(const section_request_s& request) {
    writeTenths(request, mostTenths16, "tag height",
                [](int, long tenths) { return setTagHeightX10(static_cast<std::uint16_t>(tenths)); });
}

// --------------------------------------------------------------- single settings

constexpr const char* thresholdText = "static vs dynamic threshold";

void readStaticVDynamic(const section_request_s& request) {
    std::uint8_t value = 0;
    if (readInto(request, RXE_PARAM_STATIC_V_DYNAMIC, &value, thresholdText)) {
        sprintfStr(request.reply, "Success: %s is set to: %d", thresholdText, value);
    }
}

bool isByte(int value) {
    return value >= 0 && value <= std::numeric_limits<std::uint8_t>::max();
}

void writeStaticVDynamic(const section_request_s& request) {
    const int value = std::stoi(request.words.front());
    const RXE_API_STATUS status =
        isByte(value) ? setStaticVDynamic(static_cast<std::uint8_t>(value)) : rxe_intfc::refused;
    answerWrite(request, status, sprintfStr("%s to %d", thresholdText, value));
}

void readHopPerRound(const section_request_s& request) {
    std::uint8_t on = 0;
    if (readInto(request, RXE_PARAM_HOP_PER_ROUND, &on, "hopperround")) {
        *request.reply = on != 0 ? "Success:\nhopperround enabled\n" : "Success:\nhopperround disabled\n";
    }
}

void writeHopPerRound(const section_request_s& request) {
    const bool enable = !saysDisable(request);
    if (enable && !hasWord(request, "enable")) {
        return fail(request, "Failure: setting hopperround requires enable or disable");
    }
    answerWrite(request, enable ? enableHopPerRound() : disableHopPerRound(), "hopperround");
}

void readLastReportFilter(const section_request_s& request) {
    REPORT_FILTER_LAST_REPORT_s filter{};
    if (!readInto(request, RXE_PARAM_LAST_REPORT, &filter, "reportfilter")) {
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
        answerWrite(request, disableLastReportedFilter(), "reportfilter");
        return;
    }
    const std::string type = textParameter(request, "type");
    if (type != "radio" && type != "antenna") {
        return fail(request, "Failure: type must be radion or antenna");
    }
    const auto duration = parameter<std::uint32_t>(request, "duration");
    answerWrite(request, enableLastReportedFilter(type == "radio" ? 0 : 1, duration), "reportfilter");
}

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
        answerWrite(request, setTxDelayInterval(0, 0), "txDelayInterval");
        return;
    }
    const std::string type = textParameter(request, "type");
    if (!hasParameter(request, "type")) {
        return fail(request, "Failure: txDelayInterval must include disable or type");
    }
    if (type != "noReads" && type != "noUniqueReads") {
        return fail(request, "Failure: type must be noReads or noUniqueReads");
    }
    if (!hasParameter(request, "duration")) {
        return fail(request, "Failure: txDelayInterval must include disable or duration");
    }
    const int milliseconds = std::stoi(textParameter(request, "duration"));
    RXE_API_STATUS status = rxe_intfc::refused;
    if (isByte(milliseconds)) {
        status = setTxDelayInterval(type == "noReads" ? 1 : 2, static_cast<std::uint8_t>(milliseconds));
    }
    answerWrite(request, status, "txDelayInterval");
}

// ---------------------------------------------------------------- tag info fields

// Words of this command alone: more fields than the mode language has.
struct field_word_s {
    std::string_view word;
    std::uint32_t bit;
};
constexpr field_word_s fieldWords[] = {
    {"epc", RXE_FIELD_EPC},
    {"rospec", RXE_FIELD_ROSPEC},
    {"specid", RXE_FIELD_SPEC_INDEX},
    {"invparam", RXE_FIELD_INV_PARAM},
    {"antid", RXE_FIELD_ANTENNA_ID},
    {"rssi", RXE_FIELD_RSSI},
    {"chanid", RXE_FIELD_CHANNEL_ID},
    {"1sttime", RXE_FIELD_FIRST_SEEN},
    {"lasttime", RXE_FIELD_LAST_SEEN},
    {"tagcount", RXE_FIELD_TAG_COUNT},
    {"pc", RXE_FIELD_PC},
    {"xpc1", RXE_FIELD_XPC1},
    {"xpc2", RXE_FIELD_XPC2},
    {"crc", RXE_FIELD_CRC},
    {"accessspec", RXE_FIELD_ACCESS_SPEC},
    {"phase", RXE_FIELD_PHASE},
    {"rssilin", RXE_FIELD_RSSI_LIN},
    {"bearing", RXE_FIELD_BEARING},
    {"brandid", RXE_FIELD_BRAND_ID},
    {"location", RXE_FIELD_LOCATION},
};

void readTagInfoFields(const section_request_s& request) {
    std::uint32_t mask = 0;
    if (!readInto(request, RXE_PARAM_CUSTOM_FIELDS, &mask, "taginfofields")) {
        return;
    }
    sprintfStr(request.reply, "Success: taginfofields: (0x%08x)\nEnabled Fields:\n", mask);
    for (const field_word_s& field : fieldWords) {
        if ((mask & field.bit) != 0) {
            request.reply->append("    ").append(field.word).append("\n");
        }
    }
}

void writeTagInfoFields(const section_request_s& request) {
    std::uint32_t mask = 0;
    for (const field_word_s& field : fieldWords) {
        mask |= hasWord(request, field.word) ? field.bit : 0;
    }
    answerWrite(request, rxe_intfc::writeParameter<RXE_PARAM_CUSTOM_FIELDS>(mask), "taginfofields");
}

constexpr section_s channelSection{"channel", &rxe_intfc::channelIds, readChannel, writeChannel};
constexpr section_s packetSection{"packet", nullptr, readPacket, writePacket};
constexpr section_s cableLossSection{"cableLoss", nullptr, readCableLoss, writeCableLoss};
constexpr section_s aarHeightSection{"aarHeight", nullptr, readAARHeight, writeAARHeight};
constexpr section_s tagHeightSection{"tagHeight", nullptr, readTagHeight, writeTagHeight};
constexpr section_s thresholdSection{"staticVDynamic", nullptr, readStaticVDynamic, writeStaticVDynamic};
constexpr section_s hopSection{"hopperround", nullptr, readHopPerRound, writeHopPerRound};
constexpr section_s reportSection{"reportfilter", nullptr, readLastReportFilter, writeLastReportFilter};
constexpr section_s delaySection{"txDelayInterval", nullptr, readTxDelayInterval, writeTxDelayInterval};
constexpr section_s fieldsSection{"taginfofields", nullptr, readTagInfoFields, writeTagInfoFields};

}  // namespace

int handleChannelRequest(std::vector<std::string>* tokens, std::size_t index, std::string* reply) {
    return serveWithId(channelSection, *tokens, index, reply);
}

int handlePacketRequest(std::vector<std::string>* tokens, std::size_t index, std::string* reply) {
    return serveWithId(packetSection, *tokens, index, reply, true);
}

int handleCableLossRequest(std::vector<std::string>* tokens, std::size_t index, std::string* reply) {
    return serveWithId(cableLossSection, *tokens, index, reply);
}

int handleAARHeightRequest(std::vector<std::string>* tokens, std::size_t index, std::string* reply) {
    return serveWithoutId(aarHeightSection, *tokens, index, reply);
}

int handleTagHeightRequest(std::vector<std::string>* tokens, std::size_t index, std::string* reply) {
    return serveWithoutId(tagHeightSection, *tokens, index, reply);
}

int handleStaticVDynamicRequest(std::vector<std::string>* tokens, std::size_t index, std::string* reply) {
    return serveWithoutId(thresholdSection, *tokens, index, reply);
}

int handleHopPerRoundRequest(std::vector<std::string>* tokens, std::size_t index, std::string* reply) {
    return serveWithoutId(hopSection, *tokens, index, reply);
}

int handleLastReportFilterRequest(std::vector<std::string>* tokens, std::size_t index, std::string* reply) {
    return serveWithoutId(reportSection, *tokens, index, reply);
}

int handleTxDelayIntervalRequest(std::vector<std::string>* tokens, std::size_t index, std::string* reply) {
    return serveWithoutId(delaySection, *tokens, index, reply);
}

int handleTagInfoFieldsRequest(std::vector<std::string>* tokens, std::size_t index, std::string* reply) {
    return serveWithoutId(fieldsSection, *tokens, index, reply);
}
