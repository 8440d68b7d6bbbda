// SPDX-License-Identifier: MIT
// The engine's records as JSON, for the log and for the document of its state. Numbers that the
// tables do not name show as "unknown: 0x2a".
#include "engine_io/records_json.hpp"

#include <algorithm>
#include <bit>
#include <nlohmann/json.hpp>
#include <span>

#include "engine_io/parameter_io.hpp"
#include "util.hpp"

namespace {

using nlohmann::json;
using rxe_intfc::failWith;

// Numbers of the records and their names. The Gen2 ones are the codes of the commands (EPC Gen2,
// 6.3.2.12.1.1 Select, 6.3.2.12.2.1 Query): an action has the flag of tags that match, a slash, and
// that of the others.
struct value_name_s {
    unsigned value;
    std::string_view name;
};

constexpr value_name_s stopTypes[] = {
    {1, "inventoryRounds"}, {2, "dwellTime"}, {3, "GPIO1-H"}, {4, "GPIO1-L"}, {5, "GPIO2-H"},
    {6, "GPIO2-L"},         {7, "GPIO3-H"},   {8, "GPIO3-L"}, {9, "GPIO4-H"}, {10, "GPIO4-L"},
};
constexpr value_name_s selectTargets[] = {{0, "s0"}, {1, "s1"}, {2, "s2"}, {3, "s3"}, {4, "sl"}};
constexpr value_name_s membanks[] = {{0, "reserved"}, {1, "epc"}, {2, "tid"}, {3, "user"}};
constexpr value_name_s sessionActions[] = {
    {0, "a/b"}, {1, "a/-"}, {2, "-/b"}, {3, "flip/-"}, {4, "b/a"}, {5, "b/-"}, {6, "-/a"}, {7, "-/flip"},
};
constexpr value_name_s slActions[] = {
    {0, "assert/deassert"}, {1, "assert/-"},   {2, "-/deassert"}, {3, "negate/-"},
    {4, "deassert/assert"}, {5, "deassert/-"}, {6, "-/assert"},   {7, "-/negate"},
};
constexpr value_name_s querySels[] = {{0, "all"}, {1, "all"}, {2, "notSl"}, {3, "sl"}};
constexpr value_name_s queryTargets[] = {{0, "a"}, {1, "b"}, {2, "ab"}};
constexpr unsigned protocolGen2 = 1;
constexpr unsigned protocolParallelEncode = 3;
constexpr value_name_s protocols[] = {{protocolGen2, "epcGen2"},
                                      {protocolParallelEncode, "nxpParallelEncode"}};

std::string nameOf(std::span<const value_name_s> names, unsigned value) {
    for (const value_name_s& row : names) {
        if (row.value == value) {
            return std::string(row.name);
        }
    }
    return sprintfStr("unknown: 0x%02x", value);
}

// ["1234","abcd"]
json wordsAsHex(const std::uint16_t* words, std::size_t count) {
    json list = json::array();
    for (std::size_t i = 0; i < count; ++i) {
        list.push_back(sprintfStr("%04x", words[i]));
    }
    return list;
}

// ------------------------------------------------------------------------ accesses

void access_read_to_json(const ACCESS_OP_s* access, json* config) {
    (*config)["membank"] = nameOf(membanks, access->membank);
    (*config)["wordPointer"] = access->wordPointer;
    (*config)["wordCount"] = access->wordCount & 0xFF;
    (*config)["wordCountExpected"] = access->wordCount >> 8;
}

// The field in which other types have their count holds the word that is written.
void access_write_to_json(const ACCESS_OP_s* access, json* config) {
    (*config)["wordPointer"] = access->wordPointer;
    (*config)["membank"] = nameOf(membanks, access->membank);
    (*config)["data"] = sprintfStr("%04x", access->wordCount);
}

void access_password_to_json(const ACCESS_OP_s* access, json* config) {
    (*config)["password"] = sprintfStr("%08x", access->payload);
}

void access_lock_to_json(const ACCESS_OP_s* access, json* config) {
    (*config)["maskAction"] = sprintfStr("%05x", access->payload);
}

void access_longwrite_to_json(const ACCESS_OP_s* access, json* config) {
    (*config)["wordPointer"] = access->wordPointer;
    (*config)["wordCount"] = access->wordCount;
    (*config)["membank"] = nameOf(membanks, access->membank);
    (*config)["data"] =
        wordsAsHex(access->data, std::min<std::size_t>(access->wordCount, std::size(access->data)));
}

// The daemon never writes the types without a function; it shows their names.
struct access_type_s {
    unsigned type;
    std::string_view name;
    void (*toJson)(const ACCESS_OP_s* access, json* config);
};
constexpr access_type_s accessTypes[] = {
    {RXE_ACCESS_READ, "read", access_read_to_json},
    {RXE_ACCESS_WRITE, "write", access_write_to_json},
    {RXE_ACCESS_KILL, "kill", access_password_to_json},
    {RXE_ACCESS_LOCK, "lock", access_lock_to_json},
    {RXE_ACCESS_ACCESS, "access", access_password_to_json},
    {RXE_ACCESS_BLOCK_WRITE, "blockwrite", access_longwrite_to_json},
    {RXE_ACCESS_BLOCK_ERASE, "blockerase", nullptr},
    {RXE_ACCESS_BLOCK_PERMALOCK, "blockpermalock", nullptr},
    {RXE_ACCESS_MULTIWORD_WRITE, "multiwordwrite", access_longwrite_to_json},
    {RXE_ACCESS_AUTHENTICATE, "authenticate", nullptr},
    {RXE_ACCESS_READ_BUFFER, "readbuffer", nullptr},
    {RXE_ACCESS_UNTRACEABLE, "untraceable", nullptr},
    {RXE_ACCESS_CRYPTO10, "crypto10", nullptr},
};

// ------------------------------------------------------------------- start and stop

// The ports that take part, by the bits of the mask (PER_RADIO_STOP_s). `holdTimes`, in ms, has one
// entry for each port of the record.
json gpisOf(std::uint8_t gpiBitMask, std::initializer_list<std::uint16_t> holdTimes) {
    json list = json::array();
    unsigned port = 1;
    for (const std::uint16_t holdTime : holdTimes) {
        if ((gpiBitMask & (1U << (port + 3))) != 0) {
            const bool high = (gpiBitMask & (1U << (port - 1))) != 0;
            list.push_back({{"port", port}, {"signal", high ? "HIGH" : "LOW"}, {"dwellTime", holdTime}});
        }
        ++port;
    }
    return list;
}

void gpisToJson(std::uint8_t gpiBitMask, std::initializer_list<std::uint16_t> holdTimes, json* out) {
    if (gpiBitMask != 0) {
        (*out)["gpis"] = gpisOf(gpiBitMask, holdTimes);
    }
}

template <class Record>
void stopToJson(const Record* stop, json* out) {
    if (stop->duration != 0) {
        (*out)["duration"] = stop->duration;
    }
    if (stop->olioLoops != 0) {
        (*out)["olioLoops"] = stop->olioLoops;
    }
    if (stop->tagCount <= RXE_NO_MORE_UNIQUE_TAGS_BASE) {
        (*out)["tagCount"] = stop->tagCount;
    } else {
        (*out)["noMoreUniqueTags"] = stop->tagCount - RXE_NO_MORE_UNIQUE_TAGS_BASE;
    }
}

// --------------------------------------------------------------------------- olios

// The stop rule of an olio as a list: types above RXE_STOP_ROUNDS_AND_DWELL are two rules.
json stopConditionsOf(const OLIO_s* olio) {
    json list = json::array();
    const auto addStop = [&](std::string_view type, std::uint16_t value) {
        json& stop = list.emplace_back(json::object());
        stop["type"] = type;
        stop["value"] = value;
    };
    if (olio->stopType <= RXE_STOP_ROUNDS_AND_DWELL) {
        addStop(nameOf(stopTypes, olio->stopType), olio->stopValue);
    } else {
        addStop("inventoryRounds", static_cast<std::uint16_t>(olio->stopType - RXE_STOP_ROUNDS_AND_DWELL));
        addStop("dwellTime", olio->stopValue);
    }
    return list;
}

// Reads the records of a mask from the engine into an array, each with its "id". Returns -1 at the
// first that cannot be read.
template <unsigned parameter, class Record>
int readMasked(std::uint32_t mask, int (*toJson)(const Record*, json*), json* out) {
    *out = json::array();
    for (unsigned id = 1; id <= 32; ++id) {
        if ((mask & (1U << (id - 1))) == 0) {
            continue;
        }
        Record record{};
        if (rxe_intfc::readParameter<parameter>(&record, id) != RXE_OK) {
            return -1;
        }
        json& entry = out->emplace_back(json::object());
        entry["id"] = id;
        toJson(&record, &entry);
    }
    return 0;
}

int addOlioDetails(std::string* reply, const OLIO_s* olio, json* out) {
    INVENTORY_OP_s inventory{};
    if (rxe_intfc::readParameter<RXE_PARAM_INVENTORY>(&inventory, olio->inventoryIndex) != RXE_OK) {
        return failWith(reply, "Failure: error getting inventory");
    }
    (*out)["inventory"] = json::object();
    inv_to_json(&inventory, &(*out)["inventory"]);
    if (readMasked<RXE_PARAM_SELECT>(olio->selectBitMask, selectSlot_to_json, &(*out)["selects"]) != 0) {
        return failWith(reply, "Failure: error getting select");
    }
    const auto accessMask = static_cast<std::uint32_t>(olio->accessBitMask & 0xFFFFFFFF);
    if (readMasked<RXE_PARAM_ACCESS>(accessMask, access_to_json, &(*out)["accesses"]) != 0) {
        return failWith(reply, "Failure: error getting access");
    }
    return 0;
}

}  // namespace

// The record has the power in tenths of dBm, the JSON in dBm.
int olio_to_json(std::string* reply, const OLIO_s* olio, json* out, bool verbose) {
    (*out)["transmitAntenna"] = olio->transmitAntenna;
    (*out)["receiveAntenna"] = olio->receiveAntenna;
    (*out)["transmitPower"] = olio->transmitPower / 10.0;
    (*out)["linkProfileIndex"] = olio->linkProfileIndex;
    (*out)["stopConditions"] = stopConditionsOf(olio);
    if (verbose) {
        return addOlioDetails(reply, olio, out);
    }
    (*out)["inventoryIndex"] = olio->inventoryIndex;
    (*out)["selectBitMask"] = sprintfStr("0x%08x", olio->selectBitMask);
    (*out)["accessBitMask"] = sprintfStr("0x%llx", static_cast<unsigned long long>(olio->accessBitMask));
    return 0;
}

int select_to_json(const SELECT_OP_s* select, json* out) {
    constexpr unsigned targetSL = 4;
    const std::span<const value_name_s> actions = select->target == targetSL ? slActions : sessionActions;
    (*out)["target"] = nameOf(selectTargets, select->target);
    (*out)["action"] = nameOf(actions, select->action);
    (*out)["membank"] = nameOf(membanks, select->membank);
    (*out)["bitPointer"] = select->pointer;
    (*out)["bitLength"] = select->length;
    std::string mask;
    appendHex(select->mask, static_cast<std::size_t>((select->length + 7) / 8), &mask);
    (*out)["mask"] = std::move(mask);
    return 0;
}

// Quirk: a last byte of which the mask has only some bits is left out.
int idFilter_to_json(const REPORT_FILTER_ID_s* filter, json* out) {
    (*out)["bitPointer"] = filter->bitPointer;
    (*out)["bitLength"] = filter->bitLength;
    std::string mask;
    appendHex(filter->mask, std::min<std::size_t>(filter->bitLength / 8, sizeof(filter->mask)), &mask);
    (*out)["mask"] = std::move(mask);
    return 0;
}

int inv_to_json(const INVENTORY_OP_s* inventory, json* out) {
    (*out)["protocol"] = nameOf(protocols, inventory->protocol);
    if (inventory->protocol == protocolGen2) {
        (*out)["queryConfig"] = {{"sel", nameOf(querySels, inventory->sel)},
                                 {"session", sprintfStr("s%d", inventory->session)},
                                 {"target", nameOf(queryTargets, inventory->target)},
                                 {"initialQ", inventory->initialQ}};
    } else if (inventory->protocol == protocolParallelEncode) {
        const std::size_t words = std::min<std::size_t>(inventory->wordCount, std::size(inventory->data));
        (*out)["blockWriteConfig"] = {{"membank", nameOf(membanks, inventory->membank)},
                                      {"wordPointer", inventory->wordPointer},
                                      {"data", wordsAsHex(inventory->data, words)}};
    }
    return 0;
}

// {"type":"read","config":{...}}; a type that the daemon never writes does not have a "config".
int access_to_json(const ACCESS_OP_s* access, json* out) {
    const auto* row = std::ranges::find(accessTypes, access->type, &access_type_s::type);
    if (row == std::end(accessTypes)) {
        (*out)["type"] = sprintfStr("unknown: 0x%02x", access->type);
    } else {
        (*out)["type"] = row->name;
        if (row->toJson != nullptr) {
            row->toJson(access, &(*out)["config"]);
        }
    }
    if (access->criteriaIdx != 0) {
        (*out)["criteriaIdx"] = access->criteriaIdx;
    }
    if (access->stopCount != 0) {
        (*out)["stopCount"] = access->stopCount;
    }
    return 0;
}

int selectSlot_to_json(const SELECT_OP_s* select, json* out) {
    if (select->enable <= 1) {
        return select_to_json(select, out);
    }
    const auto challenge = std::bit_cast<CHALLENGE_OP_s>(*select);
    return challenge_to_json(&challenge, out);
}

int challenge_to_json(const CHALLENGE_OP_s* challenge, json* out) {
    (*out)["includeResponseLength"] = challenge->includeResponseLength != 0;
    (*out)["immediateResponse"] = challenge->immediateResponse != 0;
    (*out)["cryptoSuiteIndex"] = challenge->cryptoSuiteIndex;
    (*out)["bitLength"] = challenge->bitLength;
    const std::size_t bytes = (challenge->bitLength + std::size_t{7}) / 8;
    std::string message;
    appendHex(challenge->message, std::min(bytes, sizeof(challenge->message)), &message);
    (*out)["message"] = std::move(message);
    return 0;
}

int radioStopCondition_to_json(const PER_RADIO_STOP_s* stop, json* out) {
    stopToJson(stop, out);
    gpisToJson(stop->gpiBitMask, {stop->holdTime1, stop->holdTime2}, out);
    return 0;
}

int radioStopCondition_to_json(const PER_RADIO_STOP2_s* stop, json* out) {
    stopToJson(stop, out);
    gpisToJson(stop->gpiBitMask, {stop->holdTime1, stop->holdTime2, stop->holdTime3, stop->holdTime4}, out);
    return 0;
}

int gpioStart_to_json(const GPIO_START_s* start, json* out) {
    gpisToJson(start->gpiBitMask, {start->holdTime1, start->holdTime2}, out);
    return 0;
}

int gpioStart_to_json2(const GPIO_START2_s* start, json* out) {
    gpisToJson(start->gpiBitMask, {start->holdTime1, start->holdTime2, start->holdTime3, start->holdTime4},
               out);
    return 0;
}

int lastReportInterval_to_json(const REPORT_FILTER_LAST_REPORT_s* filter, json* out) {
    (*out)["duration"] = filter->duration;
    (*out)["type"] = filter->type == 0 ? "radioWide" : "perOlio";
    return 0;
}

namespace rxe_intfc {

int failWith(std::string* reply, const char* text) {
    *reply = text;
    return -1;
}

}  // namespace rxe_intfc
