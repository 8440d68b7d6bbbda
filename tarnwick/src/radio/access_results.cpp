// SPDX-License-Identifier: MIT
// What became of the accesses of a tag. The radio reads the tag first, then works
// through its accesses and tells each outcome in an ACCESS_INFO packet; here they
// join the pending report, and here it is decided that the report is complete.
//
// A mode that reads tag memory as metadata has a member of "data" for each range
// of words, the memory key. A mode with accesses of the client has one text for
// each of them in the array "accessResults", in their order.
#include <algorithm>
#include <array>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

#include "mode_config.hpp"
#include "radio.hpp"
#include "radio_state.hpp"
#include "rxe_intfc.hpp"
#include "util.hpp"

using nlohmann::json;

std::uint8_t prev_access_idx = noAccessYet;
std::uint8_t current_access_idx = 0;

namespace {

// Radio operations that have succeeded in the access at hand. Engine thread.
std::uint8_t multi_part_access_count = 0;

// Reports are prepared for the ids up to 63. An access with the last id, 64, has
// no slot of its own and always ends the report.
constexpr std::size_t preparedAccesses = 63;
constexpr std::uint8_t lastAccess = 64;

constexpr std::string_view notAttempted = "Not Attempted";
constexpr std::string_view succeeded = "SUCCESS";
constexpr std::string_view wordsMismatch =
    "Error: received number of words did not match expected number of words";

struct code_text_s {
    std::uint8_t code;
    std::string_view text;
};

// Results of an access other than success. The text stands behind "Error: " or its
// longer form for accesses of several operations.
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

// An outcome that has come, and what was asked for.
struct outcome_s {
    const ACCESS_INFO_s* info;
    const ACCESS_OP_s* op;
    std::size_t dataLength;  // bytes of info->data that are there
    bool asMetadata;         // the mode reads tag memory as metadata
    std::string key;         // memory key of a read in such a mode, otherwise empty
};

// Words to read or write, 0 to 255. The high byte of a read is another count.
unsigned wordCountOf(const ACCESS_OP_s& op) {
    return op.wordCount & 0xFF;
}

// "USER", "USER[4]" or "EPC[2-7]".
std::string memoryKey(const ACCESS_OP_s& op) {
    std::string key;
    if (op.membank < EPC_GEN2_MB_strings.size()) {
        key = EPC_GEN2_MB_strings[op.membank];
    }
    const unsigned count = wordCountOf(op);
    if (count != 0 || op.wordPointer != 0) {
        key += '[' + std::to_string(op.wordPointer);
        if (count > 1) {
            key += '-' + std::to_string(op.wordPointer + count - 1);
        }
        key += ']';
    }
    return key;
}

// Writes a slot of "accessResults"; slots fill without gaps. Returns -1 if refused,
// 1 if this was the last slot of the array, 0 otherwise.
int add_to_access_results(std::string_view text, std::size_t index) {
    json& data = reportData();
    auto results = data.find("accessResults");
    if (results == data.end()) {
        if (index != 0) {
            return -1;
        }
        results = data.emplace("accessResults", json::array()).first;
    }
    if (!results->is_array() || index > results->size()) {
        return -1;
    }
    (*results)[index] = text;
    return index + 1 == results->size() ? 1 : 0;
}

// Fills the next slot. True when the report has to leave: the slot was the last
// one, or was refused.
bool storeInNextSlot(std::string_view text) {
    return add_to_access_results(text, current_access_idx++) != 0;
}

// A failure of an access other than a read has the empty key among the metadata.
bool store(const outcome_s& outcome, std::string_view text) {
    if (outcome.asMetadata) {
        reportData()[outcome.key] = text;
        return false;
    }
    return storeInNextSlot(text);
}

// ---- success: each returns true when the report is complete ------------------

bool onRead(const outcome_s& outcome) {
    const unsigned expected = wordCountOf(*outcome.op);
    if (expected != 0 && expected != outcome.dataLength / 2) {
        store(outcome, wordsMismatch);
        return true;
    }
    std::string words;
    appendHex(outcome.info->data, outcome.dataLength, &words);
    const bool full = store(outcome, words);
    return outcome.asMetadata ? ++tagMemoryCount == accessParamsEnabledCount : full;
}

bool onSingleOperation(const outcome_s&) {
    return storeInNextSlot(succeeded);
}

// Radio operations that a write takes.
unsigned partsOfBlockWrite(const ACCESS_OP_s& op) {
    std::uint8_t blockSize = 0;
    getModeBlockSize(&blockSize);
    return wordCountOf(op) / std::max<unsigned>(blockSize, 1);
}

bool onPart(unsigned parts) {
    if (++multi_part_access_count != parts) {
        return false;
    }
    prev_access_idx = noAccessYet;  // the next packet begins to count anew
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
    access_row_s{RXE_ACCESS_BLOCK_WRITE, true,
                 [](const outcome_s& outcome) { return onPart(partsOfBlockWrite(*outcome.op)); }},
    access_row_s{RXE_ACCESS_MULTIWORD_WRITE, true,
                 [](const outcome_s& outcome) { return onPart(wordCountOf(*outcome.op)); }},
};

// ---- failure -----------------------------------------------------------------

void appendHexByte(std::uint8_t byte, std::string* text) {
    *text += " 0x";
    appendHex(&byte, 1, text);
}

// The count is one of radio operations, whatever the text calls it. A general
// error that is not counted has two blanks before its number.
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

// The access of an id that a packet names, or null when there is none.
const ACCESS_OP_s* enabledAccess(std::uint8_t id) {
    return id < enabledAccessOps.size() && enabledAccessOps[id].enable != 0 ? &enabledAccessOps[id] : nullptr;
}

void noteAccess(std::uint8_t id) {
    if (id != prev_access_idx) {
        prev_access_idx = id;
        multi_part_access_count = 0;
    }
}

// Puts the outcome into the report. True when the report is complete.
bool takeOutcome(const ACCESS_INFO_s& info) {
    noteAccess(info.accessId);
    const ACCESS_OP_s* op = enabledAccess(info.accessId);
    if (op == nullptr) {
        return true;
    }
    outcome_s outcome{.info = &info,
                      .op = op,
                      .dataLength = std::min<std::size_t>(info.dataLength, sizeof info.data),
                      .asMetadata = isTagDataMemoryEnabled(nullptr),
                      .key = {}};
    if (outcome.asMetadata && op->type == RXE_ACCESS_READ) {
        outcome.key = memoryKey(*op);
    }
    const auto* row = std::ranges::find(accessRows, op->type, &access_row_s::type);
    const bool known = row != accessRows.end();
    if (info.result != RXE_ACCESS_RESULT_OK) {
        store(outcome, failureText(outcome, known && row->multiPart));
        return true;
    }
    return (known && row->onSuccess(outcome)) || info.accessId == lastAccess;
}

}  // namespace

void prepare_access_results(std::uint16_t olio) {
    const std::uint64_t mask = olio < enabledAccessOpsPerOlio.size() ? enabledAccessOpsPerOlio[olio] : 0;
    const bool asMetadata = isTagDataMemoryEnabled(nullptr);
    std::size_t slot = 0;
    for (std::size_t id = 1; id <= preparedAccesses; ++id) {
        const ACCESS_OP_s& op = enabledAccessOps[id];
        if (op.enable == 0 || (mask >> (id - 1) & 1) == 0) {
            continue;
        }
        if (!asMetadata) {
            add_to_access_results(notAttempted, slot++);
        } else if (op.enable == 1) {
            reportData()[memoryKey(op)] = notAttempted;
        } else {
            break;
        }
    }
}

// An outcome that comes without a pending report belongs to a tag that the filter
// has dropped, or to a report that has left.
int process_access_info_packet(RXE_packet_s* packet) {
    if (!isReportPending()) {
        return 0;
    }
    ACCESS_INFO_s info{};
    if (RXE_formatPayloadToStruct(packet, &info) != RXE_OK || takeOutcome(info)) {
        send_out_tag_data();
    }
    return 0;
}
