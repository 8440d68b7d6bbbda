// SPDX-License-Identifier: MIT
// Sections with an id whose records belong to olios: selects, inventory sets,
// accesses, id filters and the olios themselves.
//
// Quirk: the widths and blanks of the reports differ from section to section. Scripts
// parse them as they are.
#include <algorithm>
#include <array>
#include <nlohmann/json.hpp>

#include "configrxe/config_sections.hpp"
#include "engine_io/olios.hpp"
#include "engine_io/operations.hpp"
#include "engine_io/parameter_io.hpp"
#include "engine_io/records_json.hpp"
#include "util.hpp"

namespace rxe_intfc {

namespace word = vocabulary::configrxe_words;

namespace {

constexpr std::size_t maskBytes = sizeof(SELECT_OP_s::mask);
static_assert(maskBytes == sizeof(REPORT_FILTER_ID_s::mask));

// The number of the record's parameter.
unsigned idOf(unsigned base, const section_request_s& request) {
    return base + static_cast<unsigned>(request.id);
}

// As the setters take it; no range of ids here needs more than eight bits.
std::uint8_t byteId(const section_request_s& request) {
    return static_cast<std::uint8_t>(request.id);
}

// As the records have it.
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

// S0 to S3 are the inventoried flags, SL is the selected flag; 5 to 7 are reserved (EPC Gen2,
// 6.3.2.12.1.1).
std::string_view targetText(unsigned target) {
    constexpr std::string_view texts[] = {"S0", "S1", "S2", "S3", "SL", "RFU", "RFU", "RFU"};
    return target < std::size(texts) ? texts[target] : std::string_view("Unknown");
}

std::string_view membankText(unsigned membank) {
    constexpr std::string_view texts[] = {"RFU", "EPC", "TID", "User"};
    return membank < std::size(texts) ? texts[membank] : std::string_view("Unknown");
}

}  // namespace

// select    2:
//              target: 4 (SL)
//              action: 1
//              membank: 2 (TID)
//              pointer: bit 32
//              length: 36 bits
//              mask: a1b2c3d4 e5
//              no truncation
void readSelect(const section_request_s& request) {
    SELECT_OP_s select{};
    if (!readInto(request, idOf(RXE_PARAM_SELECT, request), &select)) {
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
    const std::string text = textParameter(request, word::select::mask);
    if (text.size() > longestText) {
        return fail(request, "Failure: mask is too long");
    }
    SELECT_OP_s select{};
    select.enable = enableOf(request);
    select.target = parameter<std::uint8_t>(request, word::select::target);
    select.action = parameter<std::uint8_t>(request, word::select::action);
    select.membank = parameter<std::uint8_t>(request, word::select::membank);
    select.pointer = parameter<std::uint16_t>(request, word::select::pointer);
    select.length = parameter<std::uint8_t>(request, word::select::length);
    select.truncate = parameter<std::uint16_t>(request, word::select::truncate);
    std::ranges::copy(maskOf(text), select.mask);
    answerWrite(request, setSelect(byteId(request), select));
}

// -------------------------------------------------------------------- id filters

void readIDFilter(const section_request_s& request) {
    REPORT_FILTER_ID_s filter{};
    if (!readInto(request, idOf(RXE_PARAM_ID_FILTER, request), &filter)) {
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
    const std::string text = textParameter(request, word::id_filter::mask);
    const auto length = parameter<std::uint16_t>(request, word::id_filter::length);
    if (text.size() > 2 * maskBytes || length > 8 * maskBytes) {
        return fail(request, "Failure: mask is too long");
    }
    const auto bytes = static_cast<std::uint16_t>((length + 7) / 8);
    answerWrite(request,
                setIDFilter(byteId(request), enableOf(request),
                            parameter<std::uint16_t>(request, word::id_filter::startIdx), length,
                            maskOf(text).data(), bytes),
                "select " + std::to_string(request.id));  // quirk: the words of another section
}

// ---------------------------------------------------------------- inventory sets

// inventory    2: ignore ~SL, S1-A,initial Q: 4
//
// Quirk: each `sel` other than 2 shows as "ignore SL", also one that does not look at SL.
void readInventory(const section_request_s& request) {
    INVENTORY_OP_s inventory{};
    if (!readInto(request, idOf(RXE_PARAM_INVENTORY, request), &inventory)) {
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
    answerWrite(request,
                setInvParams(byteId(request), enableOf(request), choiceValue(request, word::inventory::sel),
                             parameter<std::uint8_t>(request, word::inventory::session),
                             choiceValue(request, word::inventory::target),
                             parameter<std::uint8_t>(request, word::inventory::initialQ)));
}

// ---------------------------------------------------------------------- accesses

namespace {

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

}  // namespace

void readAccess(const section_request_s& request) {
    ACCESS_OP_s access{};
    if (!readInto(request, idOf(RXE_PARAM_ACCESS, request), &access)) {
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

// Without this program's memory of accesses: the mode in force does not report what they give.
void writeAccess(const section_request_s& request) {
    ACCESS_OP_s access{};
    if (!saysDisable(request)) {
        if (choiceOf(request, word::access::type) == nullptr) {
            *request.reply = hasParameter(request, word::access::type)
                                 ? "Failure: setting access type only supports read"
                                 : "Failure: setting access requires type";
            return;
        }
        access.enable = 1;
    }
    const auto words = parameter<std::uint8_t>(request, word::access::wordCount);
    static_assert(word::access::types[0].value == RXE_ACCESS_READ);
    access.type = RXE_ACCESS_READ;
    access.membank = parameter<std::uint8_t>(request, word::access::membank);
    access.wordPointer = parameter<std::uint16_t>(request, word::access::startWord);
    access.wordCount = static_cast<std::uint16_t>(words | (words << 8));  // asked for and expected
    access.criteriaIdx = parameter<std::uint8_t>(request, word::access::criteriaIdx);
    access.stopCount = parameter<std::uint16_t>(request, word::access::stopCount);
    answerWrite(request, writeParameter<RXE_PARAM_ACCESS>(access, static_cast<unsigned>(request.id)));
}

// ------------------------------------------------------------------------- olios

namespace {

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

}  // namespace

// olio    3:
//           tx_beam: 3, rx_beam: 3
//           tx_pwr: 30.5 dbm
//           lp: 508
//           select_bitmask: 0x00000001
//           inv_param: 1
//           access_bitmask : 0x00000000 00000001
//           stop after 500 mS
void readOlio(const section_request_s& request) {
    // Receive beams from here up name a secondary beam set in their low byte.
    constexpr int secondaryBeams = 0xFF00;
    OLIO_s olio{};
    if (!readInto(request, idOf(RXE_PARAM_OLIO, request), &olio)) {
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
    *reply += "          tx_pwr: " + tenthsText(olio.transmitPower) + " dbm\n";
    sprintfStrAppend(reply, "          lp: %d\n", olio.linkProfileIndex);
    sprintfStrAppend(reply, "          select_bitmask: 0x%08x\n", olio.selectBitMask);
    sprintfStrAppend(reply, "          inv_param: %d\n", olio.inventoryIndex);
    sprintfStrAppend(reply, "          access_bitmask : 0x%08x %08x\n",
                     static_cast<unsigned>(olio.accessBitMask >> 32),
                     static_cast<unsigned>(olio.accessBitMask & 0xFFFFFFFF));
    reportOlioStop(reply, olio);
}

namespace {

static_assert(word::olio::stopTypes[0].value == RXE_STOP_INVENTORY_ROUNDS &&
              word::olio::stopTypes[1].value == RXE_STOP_DWELL_TIME);

// Whole dBm as tenths.
std::int16_t powerX10(const section_request_s& request) {
    return static_cast<std::int16_t>(parameter<std::int16_t>(request, word::olio::txPower) * 10);
}

void disableOlio(const section_request_s& request) {
    if (request.id != 0) {
        const auto id = static_cast<std::uint16_t>(request.id);
        answerWrite(request, setOlio(id, {}));
        return;
    }
    const RXE_API_STATUS status = disableOlios();
    answerWrite(request, status);
    if (status == RXE_OK) {
        *request.reply = "Success: disabled all olios";
    }
}

}  // namespace

// Through setOlio, which lowers the power to the reader's limit and remembers the olio. The
// accesses of an olio cannot be set here.
void writeOlio(const section_request_s& request) {
    if (saysDisable(request)) {
        disableOlio(request);
        return;
    }
    const std::uint8_t stopType = choiceValue(request, word::olio::stopType);
    if (!hasParameter(request, word::olio::txBeam)) {
        return fail(request, "Failure: setting olio must include tx_beam");
    }
    if (stopType == 0) {
        return fail(request, "Failure: setting olio stop_type must be inventory or time");
    }
    const auto txBeam = parameter<std::uint16_t>(request, word::olio::txBeam);
    OLIO_s olio{};
    olio.enable = 1;
    olio.transmitAntenna = txBeam;
    olio.receiveAntenna = parameter<std::uint16_t>(request, word::olio::rxBeam, txBeam, true);
    olio.stopType = stopType;
    olio.stopValue = parameter<std::uint16_t>(request, word::olio::stopValue);
    olio.transmitPower = powerX10(request);
    olio.selectBitMask = parameter<std::uint32_t>(request, word::olio::selectBitmask, 0, true);
    olio.inventoryIndex = parameter<std::uint8_t>(request, word::olio::invParam);
    olio.linkProfileIndex = parameter<std::uint16_t>(request, word::olio::linkProfile);
    answerWrite(request, setOlio(static_cast<std::uint16_t>(request.id), olio));
}

}  // namespace rxe_intfc
