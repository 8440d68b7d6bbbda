// SPDX-License-Identifier: MIT
// Sections with an id whose records belong to olios: selects, inventory sets,
// accesses, id filters and the olios themselves.
//
// Quirk: the widths and blanks of the reports differ from section to section, and the
// id_filter section answers with the words of another. Scripts parse them as they are.
#include <algorithm>
#include <nlohmann/json.hpp>
#include <span>

#include "configrxe/config_sections.hpp"
#include "engine_io/olios.hpp"
#include "engine_io/operations.hpp"
#include "engine_io/parameter_io.hpp"
#include "engine_io/records_json.hpp"
#include "util.hpp"

namespace {

using rxe_intfc::answerWrite;
using rxe_intfc::hasParameter;
using rxe_intfc::named;
using rxe_intfc::parameter;
using rxe_intfc::readInto;
using rxe_intfc::saysDisable;
using rxe_intfc::section_request_s;
using rxe_intfc::textParameter;

constexpr std::size_t maskBytes = sizeof(SELECT_OP_s::mask);
static_assert(maskBytes == sizeof(REPORT_FILTER_ID_s::mask));

unsigned idOf(unsigned base, const section_request_s& request) {
    return base + static_cast<unsigned>(request.id);
}

std::uint8_t byteId(const section_request_s& request) {
    return static_cast<std::uint8_t>(request.id);
}

std::uint8_t enableOf(const section_request_s& request) {
    return saysDisable(request) ? 0 : 1;
}

// ------------------------------------------------------------------------- masks

// Digits pair up from the left; an odd one at the end is a high digit. What does
// not fit is left out.
std::array<std::uint8_t, maskBytes> maskOf(std::string_view text) {
    if (text.starts_with("0x") || text.starts_with("0X")) {
        text.remove_prefix(2);
    }
    std::array<std::uint8_t, maskBytes> mask{};
    for (std::size_t i = 0; i < mask.size() && 2 * i < text.size(); ++i) {
        mask[i] = hex2int(text[2 * i], 2 * i + 1 < text.size() ? text[2 * i + 1] : '0');
    }
    return mask;
}

// The lines that selects and id filters share, without the mask's line end.
void reportMask(std::string* reply, int pointer, int length, const std::uint8_t* mask) {
    sprintfStrAppend(reply, "             pointer: bit %d \n", pointer);
    sprintfStrAppend(reply, "             length: %d bits\n", length);
    *reply += "             mask: ";
    const std::size_t bytes = std::min((static_cast<std::size_t>(length) + 7) / 8, maskBytes);
    for (std::size_t i = 0; i < bytes; ++i) {
        sprintfStrAppend(reply, i % 4 == 3 ? "%02x " : "%02x", mask[i]);
    }
    *reply += "\n";
}

// ----------------------------------------------------------------------- selects

std::string_view targetText(unsigned target) {
    constexpr std::string_view texts[] = {"S0", "S1", "S2", "S3", "SL", "RFU", "RFU", "RFU"};
    return target < std::size(texts) ? texts[target] : std::string_view("Unknown");
}

std::string_view membankText(unsigned membank) {
    constexpr std::string_view texts[] = {"RFU", "EPC", "TID", "User"};
    return membank < std::size(texts) ? texts[membank] : std::string_view("Unknown");
}

void readSelect(const section_request_s& request) {
    SELECT_OP_s select{};
    if (!readInto(request, idOf(RXE_PARAM_SELECT, request), &select, named("select", request))) {
        return;
    }
    std::string* reply = request.reply;
    sprintfStr(reply, "Success:\nselect %4d:\n", request.id);
    if (select.enable != 1) {
        *reply += select.enable == 0 ? "disabled" : "Not Select";
        return;
    }
    sprintfStrAppend(reply, "             target: %d (", select.target);
    *reply += targetText(select.target);
    sprintfStrAppend(reply, ")\n             action: %d\n", select.action);
    sprintfStrAppend(reply, "             membank: %d (", select.membank);
    *reply += membankText(select.membank);
    *reply += ")\n";
    reportMask(reply, select.pointer, select.length, select.mask);
    if (select.truncate != 0) {
        sprintfStrAppend(reply, "             truncate: %d bit expected\n", select.truncate);
    } else {
        *reply += "             no truncation\n";
    }
}

void writeSelect(const section_request_s& request) {
    constexpr std::size_t longestText = 2 * maskBytes + 1;
    const std::string text = textParameter(request, "mask");
    if (text.size() > longestText) {
        *request.reply = "Failure: mask is too long";
        return;
    }
    SELECT_OP_s select{};
    select.enable = enableOf(request);
    select.target = parameter<std::uint8_t>(request, "target");
    select.action = parameter<std::uint8_t>(request, "action");
    select.membank = parameter<std::uint8_t>(request, "membank");
    select.pointer = parameter<std::uint16_t>(request, "pointer");
    select.length = parameter<std::uint8_t>(request, "length");
    select.truncate = parameter<std::uint16_t>(request, "truncate");
    std::ranges::copy(maskOf(text), select.mask);
    answerWrite(request, setSelect(byteId(request), select), named("select", request));
}

// -------------------------------------------------------------------- id filters

void readIDFilter(const section_request_s& request) {
    REPORT_FILTER_ID_s filter{};
    if (!readInto(request, idOf(RXE_PARAM_ID_FILTER, request), &filter, named("id_filter", request))) {
        return;
    }
    sprintfStr(request.reply, "Success:\nid_filter %4d:\n", request.id);
    if (filter.enable == 0) {
        *request.reply += "disabled";
        return;
    }
    reportMask(request.reply, filter.bitPointer, filter.bitLength, filter.mask);
}

void writeIDFilter(const section_request_s& request) {
    const std::string text = textParameter(request, "mask");
    const auto length = parameter<std::uint16_t>(request, "length");
    if (text.size() > 2 * maskBytes || length > 8 * maskBytes) {
        *request.reply = "Failure: mask is too long";
        return;
    }
    const auto bytes = static_cast<std::uint16_t>((length + 7) / 8);
    answerWrite(request,
                setIDFilter(byteId(request), enableOf(request), parameter<std::uint16_t>(request, "startIdx"),
                            length, maskOf(text).data(), bytes),
                named("select", request));
}

// ---------------------------------------------------------------- inventory sets

struct word_value_s {
    std::string_view word;
    std::uint8_t value;
};
constexpr word_value_s selWords[] = {{"ignore", 0}, {"~SL", 2}, {"SL", 3}};
constexpr word_value_s targetWords[] = {{"A", 0}, {"a", 0}, {"B", 1}, {"b", 1}, {"AB", 2}, {"ab", 2}};

// 0 for a word that is none of them, as for a missing one.
std::uint8_t valueOf(std::span<const word_value_s> words, const std::string& word) {
    const auto row = std::ranges::find(words, word, &word_value_s::word);
    return row == words.end() ? std::uint8_t{0} : row->value;
}

void readInventory(const section_request_s& request) {
    INVENTORY_OP_s inventory{};
    if (!readInto(request, idOf(RXE_PARAM_INVENTORY, request), &inventory, named("inventory", request))) {
        return;
    }
    std::string* reply = request.reply;
    sprintfStr(reply, "Success:\ninventory %4d: ", request.id);
    if (inventory.enable == 0 || inventory.protocol != 1) {
        *reply += inventory.enable == 0 ? "disabled" : "Not C1G2";
        return;
    }
    *reply += inventory.sel == 2 ? "ignore ~SL, " : "ignore SL, ";
    sprintfStrAppend(reply, "S%d-", inventory.session);
    *reply += inventory.target == 0 ? "A," : inventory.target == 1 ? "B," : "AB,";
    sprintfStrAppend(reply, "initial Q: %d\n", inventory.initialQ);
}

void writeInventory(const section_request_s& request) {
    answerWrite(
        request,
        setInvParams(byteId(request), enableOf(request), valueOf(selWords, textParameter(request, "sel")),
                     parameter<std::uint8_t>(request, "session"),
                     valueOf(targetWords, textParameter(request, "target")),
                     parameter<std::uint8_t>(request, "initq")),
        named("inventory", request));
}

// ---------------------------------------------------------------------- accesses

// As JSON where the record's fields are known, else its name, else its number.
std::string accessText(const ACCESS_OP_s* access) {
    nlohmann::json rendered = nlohmann::json::object();
    access_to_json(access, &rendered);
    if (rendered.contains("config")) {
        return rendered.dump();
    }
    const auto type = rendered["type"].get<std::string>();
    return type.starts_with("unknown") ? std::to_string(access->type) : type;
}

void readAccess(const section_request_s& request) {
    ACCESS_OP_s access{};
    if (!readInto(request, idOf(RXE_PARAM_ACCESS, request), &access, named("access", request))) {
        return;
    }
    sprintfStr(request.reply, "Success:\naccess %4d:\n", request.id);
    if (access.enable == 0) {
        *request.reply += "disabled";
        return;
    }
    *request.reply += accessText(&access);
    sprintfStrAppend(request.reply, "\n            accessCriteriaIdx: %d\n", access.criteriaIdx);
    sprintfStrAppend(request.reply, "             stopCount: %d\n", access.stopCount);
}

void writeAccess(const section_request_s& request) {
    ACCESS_OP_s access{};
    const std::string type = textParameter(request, "type");
    if (!saysDisable(request)) {
        if (type != "read") {
            *request.reply = hasParameter(request, "type") ? "Failure: setting access type only supports read"
                                                           : "Failure: setting access requires type";
            return;
        }
        access.enable = 1;
    }
    const auto words = parameter<std::uint8_t>(request, "wordCount");
    access.type = RXE_ACCESS_READ;
    access.membank = parameter<std::uint8_t>(request, "membank");
    access.wordPointer = parameter<std::uint16_t>(request, "startWord");
    access.wordCount = static_cast<std::uint16_t>(words | (words << 8));  // asked for and expected
    access.criteriaIdx = parameter<std::uint8_t>(request, "accessCriteriaIdx");
    access.stopCount = parameter<std::uint16_t>(request, "stopCount");
    answerWrite(request,
                rxe_intfc::writeParameter<RXE_PARAM_ACCESS>(access, static_cast<unsigned>(request.id)),
                named("access", request));
}

// ------------------------------------------------------------------------- olios

void reportOlioStop(std::string* reply, const OLIO_s& olio) {
    if (olio.stopType == RXE_STOP_INVENTORY_ROUNDS && olio.stopValue == 1) {
        *reply += "          stop after 1 inventory round\n";
    } else if (olio.stopType == RXE_STOP_INVENTORY_ROUNDS) {
        sprintfStrAppend(reply, "          stop after %d inventory rounds\n", olio.stopValue);
    } else if (olio.stopType == RXE_STOP_DWELL_TIME) {
        sprintfStrAppend(reply, "          stop after %d mS\n", olio.stopValue);
    } else {
        sprintfStrAppend(reply, "          stop condition %d, stop value %d\n", olio.stopType,
                         olio.stopValue);
    }
}

void readOlio(const section_request_s& request) {
    // Receive beams from here up name a secondary beam set in their low byte.
    constexpr int secondaryBeams = 0xFF00;
    OLIO_s olio{};
    if (!readInto(request, idOf(RXE_PARAM_OLIO, request), &olio, named("olio", request))) {
        return;
    }
    std::string* reply = request.reply;
    sprintfStr(reply, "Success:\nolio %4d:\n", request.id);
    if (olio.enable == 0) {
        *reply += "disabled";
        return;
    }
    sprintfStrAppend(reply, "          tx_beam: %d,", olio.transmitAntenna);
    if (olio.receiveAntenna < secondaryBeams) {
        sprintfStrAppend(reply, " rx_beam: %d\n", olio.receiveAntenna);
    } else {
        sprintfStrAppend(reply, " rx_beam: %d (secondary beam set %d)\n", olio.receiveAntenna,
                         olio.receiveAntenna - secondaryBeams);
    }
    *reply += "          tx_pwr: " + rxe_intfc::tenthsText(olio.transmitPower) + " dbm\n";
    sprintfStrAppend(reply, "          lp: %d\n", olio.linkProfileIndex);
    sprintfStrAppend(reply, "          select_bitmask: 0x%08x\n", olio.selectBitMask);
    sprintfStrAppend(reply, "          inv_param: %d\n", olio.inventoryIndex);
    sprintfStrAppend(reply, "          access_bitmask : 0x%08x %08x\n",
                     static_cast<unsigned>(olio.accessBitMask >> 32),
                     static_cast<unsigned>(olio.accessBitMask & 0xFFFFFFFF));
    reportOlioStop(reply, olio);
}

// 0 for a word that is not a stop type.
std::uint8_t stopTypeOf(const std::string& word) {
    constexpr word_value_s words[] = {{"inventory", RXE_STOP_INVENTORY_ROUNDS},
                                      {"time", RXE_STOP_DWELL_TIME}};
    return valueOf(words, word);
}

// Whole dBm as tenths.
std::int16_t powerX10(const section_request_s& request) {
    return static_cast<std::int16_t>(parameter<std::int16_t>(request, "tx_pwr") * 10);
}

void disableOlio(const section_request_s& request) {
    if (request.id != 0) {
        const auto id = static_cast<std::uint16_t>(request.id);
        answerWrite(request, setOlio(id, {}), named("olio", request));
        return;
    }
    const RXE_API_STATUS status = disableOlios();
    answerWrite(request, status, named("olio", request));
    if (status == RXE_OK) {
        *request.reply = "Success: disabled all olios";
    }
}

void writeOlio(const section_request_s& request) {
    if (saysDisable(request)) {
        disableOlio(request);
        return;
    }
    const std::uint8_t stopType = stopTypeOf(textParameter(request, "stop_type"));
    if (!hasParameter(request, "tx_beam")) {
        *request.reply = "Failure: setting olio must include tx_beam";
        return;
    }
    if (stopType == 0) {
        *request.reply = "Failure: setting olio stop_type must be inventory or time";
        return;
    }
    OLIO_s olio{};
    olio.enable = 1;
    olio.transmitAntenna = parameter<std::uint16_t>(request, "tx_beam");
    olio.receiveAntenna = parameter<std::uint16_t>(request, "rx_beam", olio.transmitAntenna, true);
    olio.stopType = stopType;
    olio.stopValue = parameter<std::uint16_t>(request, "stop_value");
    olio.transmitPower = powerX10(request);
    olio.selectBitMask = parameter<std::uint32_t>(request, "select_bitmask", 0, true);
    olio.inventoryIndex = parameter<std::uint8_t>(request, "inv_param");
    olio.linkProfileIndex = parameter<std::uint16_t>(request, "lp");
    answerWrite(request, setOlio(static_cast<std::uint16_t>(request.id), olio), named("olio", request));
}

constexpr rxe_intfc::section_s selectSection{"select", &rxe_intfc::selectIds, readSelect, writeSelect};
constexpr rxe_intfc::section_s idFilterSection{"id_filter", &rxe_intfc::filterIds, readIDFilter,
                                               writeIDFilter};
constexpr rxe_intfc::section_s inventorySection{"inventory", &rxe_intfc::inventoryIds, readInventory,
                                                writeInventory};
constexpr rxe_intfc::section_s accessSection{"access", &rxe_intfc::accessIds, readAccess, writeAccess};
constexpr rxe_intfc::section_s olioSection{"olio", &rxe_intfc::olioIds, readOlio, writeOlio};

}  // namespace

int handleSelectRequest(std::vector<std::string>* tokens, std::size_t index, std::string* reply) {
    return serveWithId(selectSection, *tokens, index, reply);
}

int handleIDFilterRequest(std::vector<std::string>* tokens, std::size_t index, std::string* reply) {
    return serveWithId(idFilterSection, *tokens, index, reply);
}

int handleInventoryRequest(std::vector<std::string>* tokens, std::size_t index, std::string* reply) {
    return serveWithId(inventorySection, *tokens, index, reply);
}

int handleAccessRequest(std::vector<std::string>* tokens, std::size_t index, std::string* reply) {
    return serveWithId(accessSection, *tokens, index, reply);
}

int handleOlioRequest(std::vector<std::string>* tokens, std::size_t index, std::string* reply) {
    return serveWithId(olioSection, *tokens, index, reply);
}
