// SPDX-License-Identifier: MIT
// The words of a request are few, so each look at one walks through all of them.
#include "configrxe/config_request.hpp"

#include <algorithm>
#include <cstdlib>

#include "engine_io/parameter_io.hpp"
#include "util.hpp"

namespace rxe_intfc {

using vocabulary::argument_s;
using vocabulary::choice_s;
using vocabulary::configrxe_words::id_e;

// "disabled" and "disable=1" count as well.
bool saysDisable(const section_request_s& request) {
    return std::ranges::any_of(request.words, [](const std::string& word) {
        return word.starts_with(vocabulary::configrxe_words::disable.name);
    });
}

bool hasWord(const section_request_s& request, const argument_s& argument) {
    return std::ranges::find(request.words, argument.name) != request.words.end();
}

// Of "12kHz" it is 12.
std::int64_t numberOf(const std::string& text, bool hex) {
    const bool prefixed = text.starts_with("0x") || text.starts_with("0X");
    return std::strtoll(text.c_str(), nullptr, hex && prefixed ? 16 : 10);
}

std::int64_t wholeParameter(const section_request_s& request, const argument_s& argument, std::int64_t absent,
                            bool hex) {
    return hasParameter(request, argument) ? numberOf(textParameter(request, argument), hex) : absent;
}

bool hasParameter(const section_request_s& request, const argument_s& argument) {
    std::string unread;
    return getParamValue(std::string(argument.name), &request.words, &unread) == 0;
}

std::string textParameter(const section_request_s& request, const argument_s& argument) {
    std::string value;
    getParamValue(std::string(argument.name), &request.words, &value);
    return value;
}

// Capital letters count.
const choice_s* choiceOf(const section_request_s& request, const argument_s& argument) {
    const auto row = std::ranges::find(argument.choices, textParameter(request, argument), &choice_s::word);
    return row == argument.choices.end() ? nullptr : &*row;
}

std::uint8_t choiceValue(const section_request_s& request, const argument_s& argument) {
    const choice_s* choice = choiceOf(request, argument);
    return choice == nullptr ? std::uint8_t{0} : choice->value;
}

// "olio 3", or "hopperround".
std::string itemOf(const section_request_s& request) {
    std::string item(request.section.word);
    return request.section.id == id_e::none ? item : item + " " + std::to_string(request.id);
}

bool readInto(const section_request_s& request, unsigned parameterId, void* record, const std::string& what) {
    if (readParameter(parameterId, record) == RXE_OK) {
        return true;
    }
    *request.reply = "Failure: getting " + what;
    return false;
}

bool readInto(const section_request_s& request, unsigned parameterId, void* record) {
    return readInto(request, parameterId, record, itemOf(request));
}

void answerWrite(const section_request_s& request, RXE_API_STATUS status, const std::string& what) {
    *request.reply = (status == RXE_OK ? "Success: setting " : "Failure: setting ") + what;
}

void answerWrite(const section_request_s& request, RXE_API_STATUS status) {
    answerWrite(request, status, itemOf(request));
}

void fail(const section_request_s& request, const char* text) {
    *request.reply = text;
}

}  // namespace rxe_intfc
