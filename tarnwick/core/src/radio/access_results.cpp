// SPDX-License-Identifier: MIT
// The results of the accesses on a tag. The radio reads the tag first, then does its accesses and
// sends the result of each in an ACCESS_INFO packet. These functions add the results to the pending
// report, and release it when it is complete.
//
// A mode that reads tag memory as metadata has a member of "data" for each range
// of words, the memory key. A mode with accesses of the client has one text for
// each of them in the array "accessResults", in their order.
#include <algorithm>
#include <array>
#include <bit>
#include <cstdio>
#include <string>
#include <string_view>

#include "radio.hpp"
#include "radio/report_plan.hpp"
#include "radio_state.hpp"
#include "util.hpp"

std::uint8_t radio::prev_access_idx = radio::noAccessYet;
std::uint8_t radio::current_access_idx = 0;

namespace {

// Radio operations that have succeeded in the present access. Engine thread.
std::uint8_t multi_part_access_count = 0;

// Reports are prepared for the ids up to 63. Quirk: an access with the last id, 64, does not have
// a slot of its own and always ends the report.
constexpr std::uint64_t preparedAccesses = (std::uint64_t{1} << 63) - 1;  // a mask, as of an olio
constexpr std::uint8_t lastAccess = 64;

constexpr std::string_view notAttempted = "Not Attempted";
constexpr std::string_view succeeded = "SUCCESS";
constexpr std::string_view wordsMismatch =
    "Error: received number of words did not match expected number of words";

struct code_text_s {
    std::uint8_t code;
    std::string_view text;
};

// Results of an access other than success. The text follows "Error: ", or its longer form for
// accesses of several operations.
constexpr std::array resultTexts{
    code_text_s{RXE_ACCESS_RESULT_TAG_ERROR, "tag returned error code"},
    code_text_s{RXE_ACCESS_RESULT_NO_RESPONSE, "Tag did not respond"},
    code_text_s{RXE_ACCESS_RESULT_CRC_ERROR, "CRC error in tag response"},
};
constexpr std::string_view generalError = "General Error";

// Error codes of a tag's reply (EPC Gen2 air interface, annex I).
constexpr std::array tagErrorTexts{
    code_text_s{0, "Other Error"},
    code_text_s{1, "Not Supported"},
    code_text_s{2, "Insufficient privileges"},
    code_text_s{3, "Memory overrun"},
    code_text_s{4, "Memory locked"},
    code_text_s{5, "Crypto suite error"},
    code_text_s{6, "Command not encapsulated"},
    code_text_s{7, "ResponseBuffer overflow"},
    code_text_s{8, "Security timeout"},
    code_text_s{11, "Insufficient power"},
    code_text_s{15, "Non-specific error"},
};
constexpr std::string_view unknownTagError = "Unknown error";

template <std::size_t rows>
std::string_view textOf(const std::array<code_text_s, rows>& table, std::uint8_t code,
                        std::string_view otherwise) {
    const auto* row = std::ranges::find(table, code, &code_text_s::code);
    return row != table.end() ? row->text : otherwise;
}

// A result, and the access that it belongs to.
struct outcome_s {
    const ACCESS_INFO_s* info;
    const planned_access_s* access;
    std::size_t dataLength;  // bytes of info->data that are there
    std::string_view key;    // memory key of a read as metadata, otherwise empty
};

// Fills the next slot of "accessResults". True when the report must leave: the slot was the last
// one, or was refused.
bool storeInNextSlot(std::string_view text) {
    return add_to_access_results(text, radio::current_access_idx++) != 0;
}

// Puts the text into the report. Quirk: in a mode that reads memory as metadata, the failure of an
// access other than a read goes to the member with the empty key.
bool store(const outcome_s& outcome, std::string_view text) {
    if (reportPlan().readsAsMetadata) {
        setLateText(outcome.key, text);
        return false;
    }
    return storeInNextSlot(text);
}

// ---- success: each returns true when the report is complete ------------------

bool onRead(const outcome_s& outcome) {
    static std::string words;  // static to keep its memory; engine thread
    const unsigned expected = outcome.access->words;
    if (expected != 0 && expected != outcome.dataLength / 2) {
        store(outcome, wordsMismatch);
        return true;
    }
    words.clear();
    appendHex(outcome.info->data, outcome.dataLength, &words);
    const bool full = store(outcome, words);
    const report_plan_s& plan = reportPlan();
    return plan.readsAsMetadata ? ++radio::tagMemoryCount == plan.enabledAccesses : full;
}

bool onSingleOperation(const outcome_s&) {
    return storeInNextSlot(succeeded);
}

bool onPart(const outcome_s& outcome) {
    if (++multi_part_access_count != outcome.access->parts) {
        return false;
    }
    radio::prev_access_idx = radio::noAccessYet;  // the count of the next packet begins at 0
    return storeInNextSlot(succeeded);
}

struct access_row_s {
    std::uint8_t type;
    bool multiPart;
    bool (*onSuccess)(const outcome_s& outcome);
};
constexpr std::array accessRows{
    access_row_s{RXE_ACCESS_READ, false, onRead},
    access_row_s{RXE_ACCESS_WRITE, false, onSingleOperation},
    access_row_s{RXE_ACCESS_KILL, false, onSingleOperation},
    access_row_s{RXE_ACCESS_LOCK, false, onSingleOperation},
    access_row_s{RXE_ACCESS_ACCESS, false, onSingleOperation},
    access_row_s{RXE_ACCESS_BLOCK_WRITE, true, onPart},
    access_row_s{RXE_ACCESS_MULTIWORD_WRITE, true, onPart},
};

// ---- failure -----------------------------------------------------------------

void appendHexByte(std::uint8_t byte, std::string* text) {
    *text += " 0x";
    appendHex(&byte, 1, text);
}

// Quirk: the text says words, and the count is of radio operations. Quirk: without a count a
// general error has two blanks before its number.
std::string failureText(const outcome_s& outcome, bool multiPart) {
    const ACCESS_INFO_s& info = *outcome.info;
    std::string text = "Error: ";
    if (multiPart) {
        text = "Error after " + std::to_string(multi_part_access_count) + " successful words written: ";
    }
    const std::string_view meaning = textOf(resultTexts, info.result, generalError);
    text += meaning;
    if (meaning == generalError) {
        text += multiPart ? "" : " ";
        appendHexByte(info.result, &text);
    } else if (info.result == RXE_ACCESS_RESULT_TAG_ERROR && outcome.dataLength >= 2) {
        const std::uint8_t code = info.data[1];
        appendHexByte(code, &text);
        text.append(" = ").append(textOf(tagErrorTexts, code, unknownTagError));
    }
    return text;
}

// The enabled access with this id, or null.
const planned_access_s* enabledAccess(std::uint8_t id) {
    const auto& access = reportPlan().access;
    return id < access.size() && access[id].enable != 0 ? &access[id] : nullptr;
}

void noteAccess(std::uint8_t id) {
    if (id != radio::prev_access_idx) {
        radio::prev_access_idx = id;
        multi_part_access_count = 0;
    }
}

// Puts the outcome into the report. True when the report is complete.
bool takeOutcome(const ACCESS_INFO_s& info) {
    noteAccess(info.accessId);
    const planned_access_s* access = enabledAccess(info.accessId);
    if (access == nullptr) {
        return true;
    }
    const outcome_s outcome{
        .info = &info,
        .access = access,
        .dataLength = std::min<std::size_t>(info.dataLength, sizeof info.data),
        .key = access->type == RXE_ACCESS_READ ? std::string_view(access->memoryKey) : std::string_view("")};
    const auto* row = std::ranges::find(accessRows, access->type, &access_row_s::type);
    const bool known = row != accessRows.end();
    if (info.result != RXE_ACCESS_RESULT_OK) {
        store(outcome, failureText(outcome, known && row->multiPart));
        return true;
    }
    return (known && row->onSuccess(outcome)) || info.accessId == lastAccess;
}

}  // namespace

void prepare_access_results(std::uint16_t olio) {
    const report_plan_s& plan = reportPlan();
    const std::uint64_t ofOlio = olio < plan.accessesOfOlio.size() ? plan.accessesOfOlio[olio] : 0;
    std::size_t slot = 0;
    for (std::uint64_t rest = ofOlio & plan.accessMask & preparedAccesses; rest != 0; rest &= rest - 1) {
        const planned_access_s& access = plan.access[static_cast<std::size_t>(std::countr_zero(rest)) + 1];
        if (!plan.readsAsMetadata) {
            add_to_access_results(notAttempted, slot++);
        } else if (access.enable == 1) {
            setLateText(access.memoryKey, notAttempted);
        } else {
            break;
        }
    }
}

// Without a pending report the result belongs to a tag that the filter has dropped, or to a report
// that has left: it is then ignored.
int process_access_info_packet(RXE_packet_s* packet) {
    if (!isReportPending()) {
        return 0;
    }
    alignas(recordAlignment) ACCESS_INFO_s info;
    zeroRecord(&info, sizeof info);
    if (RXE_formatPayloadToStruct(packet, &info) != RXE_OK || takeOutcome(info)) {
        send_out_tag_data();
    }
    return 0;
}
