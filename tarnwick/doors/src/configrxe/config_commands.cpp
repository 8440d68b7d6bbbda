// SPDX-License-Identifier: MIT
// The text command "configrxe": its words, and what its sections share.
#include <algorithm>
#include <cstdlib>

#include "configrxe.hpp"
#include "configrxe/config_sections.hpp"
#include "engine_io/parameter_io.hpp"
#include "logger.hpp"
#include "util.hpp"

namespace {

int stopConditions(std::vector<std::string>* tokens, std::size_t index, std::string* reply) {
    return handleStopConditionsRequest(tokens, index, reply, rxe_intfc::hasFourGPIs());
}

int startConditions(std::vector<std::string>* tokens, std::size_t index, std::string* reply) {
    return rxe_intfc::hasFourGPIs() ? handleStartConditionsRequest2(tokens, index, reply)
                                    : handleStartConditionsRequest(tokens, index, reply);
}

struct section_word_s {
    std::string_view word;
    section_handler handler;
};
constexpr section_word_s sections[] = {
    {"olio", handleOlioRequest},
    {"select", handleSelectRequest},
    {"access", handleAccessRequest},
    {"id_filter", handleIDFilterRequest},
    {"inventory", handleInventoryRequest},
    {"packet", handlePacketRequest},
    {"hopperround", handleHopPerRoundRequest},
    {"taginfofields", handleTagInfoFieldsRequest},
    {"stopconditions", stopConditions},
    {"channel", handleChannelRequest},
    {"startconditions", startConditions},
    {"reportfilter", handleLastReportFilterRequest},
    {"txDelayInterval", handleTxDelayIntervalRequest},
    {"cableLoss", handleCableLossRequest},
    {"aarHeight", handleAARHeightRequest},
    {"tagHeight", handleTagHeightRequest},
    {"staticVDynamic", handleStaticVDynamicRequest},
};

// An unknown section changes nothing and leaves the reply at "Success".
int handleCustomRequest(std::vector<std::string>* tokens, std::string* reply) {
    constexpr std::size_t sectionIndex = 2;
    if (tokens->size() <= sectionIndex) {
        getFullCustomConfig(reply);
        return 0;
    }
    const auto* section = std::ranges::find(sections, (*tokens)[sectionIndex], &section_word_s::word);
    return section == std::end(sections) ? 0 : section->handler(tokens, sectionIndex, reply);
}

void run(const rxe_intfc::section_s& section, const rxe_intfc::section_request_s& request,
         std::string_view detail) {
    if (request.words.empty()) {
        section.read(request);
        return;
    }
    logInfo(rxe_intfc::unit, " setting ", section.logName, detail);
    section.write(request);
}

}  // namespace

int configRXEHandler(std::vector<std::string>* tokens, std::string* reply) {
    *reply = "Success";
    if (tokens->size() < 2) {
        *reply = "Failure: command requires additional parameters";
    } else if ((*tokens)[1] == "custom") {
        return handleCustomRequest(tokens, reply);
    } else if ((*tokens)[1] == "shadow") {
        return handleShadowRequest(tokens, reply);
    } else {
        *reply = "Failure: command not supported";
    }
    return 0;
}

namespace rxe_intfc {

int serveWithId(const section_s& section, const std::vector<std::string>& tokens, std::size_t index,
                std::string* reply, bool hexIds) {
    if (tokens.size() < index + 2) {
        *reply = "Failure: need more parameters";
        return 0;
    }
    const section_request_s request{
        .id = static_cast<int>(numberOf(tokens[index + 1], hexIds)),
        .words = {tokens.begin() + static_cast<std::ptrdiff_t>(index) + 2, tokens.end()},
        .reply = reply};
    const bool wholeRange = request.id == 0 && saysDisable(request);
    if (section.ids != nullptr && !wholeRange && !isIn(*section.ids, request.id)) {
        *reply = section.ids->unsupported;
        return 0;
    }
    run(section, request, sprintfStr(" %d", request.id));
    return 0;
}

int serveWithoutId(const section_s& section, const std::vector<std::string>& tokens, std::size_t index,
                   std::string* reply) {
    const section_request_s request{
        .id = 0,
        .words = {tokens.begin() + static_cast<std::ptrdiff_t>(index) + 1, tokens.end()},
        .reply = reply};
    run(section, request, "");
    return 0;
}

bool saysDisable(const section_request_s& request) {
    return std::ranges::any_of(request.words,
                               [](const std::string& word) { return word.starts_with("disable"); });
}

bool hasWord(const section_request_s& request, std::string_view word) {
    return std::ranges::find(request.words, word) != request.words.end();
}

std::int64_t numberOf(const std::string& text, bool hex) {
    const bool prefixed = text.starts_with("0x") || text.starts_with("0X");
    return std::strtoll(text.c_str(), nullptr, hex && prefixed ? 16 : 10);
}

std::int64_t wholeParameter(const section_request_s& request, const char* name, std::int64_t absent,
                            bool hex) {
    std::string value;
    return getParamValue(name, &request.words, &value) == 0 ? numberOf(value, hex) : absent;
}

bool hasParameter(const section_request_s& request, const char* name) {
    std::string unread;
    return getParamValue(name, &request.words, &unread) == 0;
}

std::string textParameter(const section_request_s& request, const char* name) {
    std::string value;
    getParamValue(name, &request.words, &value);
    return value;
}

bool readInto(const section_request_s& request, unsigned parameterId, void* record, const std::string& what) {
    if (readParameter(parameterId, record) == RXE_OK) {
        return true;
    }
    *request.reply = "Failure: getting " + what;
    return false;
}

void answerWrite(const section_request_s& request, RXE_API_STATUS status, const std::string& what) {
    *request.reply = (status == RXE_OK ? "Success: setting " : "Failure: setting ") + what;
}

std::string named(const char* word, const section_request_s& request) {
    return sprintfStr("%s %d", word, request.id);
}

}  // namespace rxe_intfc
