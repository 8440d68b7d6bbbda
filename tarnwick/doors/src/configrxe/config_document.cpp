// SPDX-License-Identifier: MIT
// The document of the engine's state, read back parameter by parameter: this program's own
// memory of what it wrote is not looked at. Main thread, also while the radio runs.
//
//   {"aarHeight":"not supported","accesses":[...],"blockSize":4,"cableLoss":[...],...}
//
// Each getter adds one key and returns 0, or puts a failure text into *reply and returns -1.
#include <algorithm>
#include <nlohmann/json.hpp>

#include "configrxe.hpp"
#include "configrxe/config_ids.hpp"
#include "configrxe_words.hpp"
#include "engine_io/packets.hpp"
#include "engine_io/parameter_io.hpp"
#include "engine_io/parameters.hpp"
#include "engine_io/records_json.hpp"
#include "reader_facts.hpp"
#include "util.hpp"

namespace {

using nlohmann::json;
using rxe_intfc::failWith;
using rxe_intfc::hasFourGPIs;
using rxe_intfc::id_range_s;
using rxe_intfc::readParameter;

// In place of the value of what this reader does not have.
constexpr const char* notSupported = "not supported";

// ---------------------------------------------------------- records that have ids

// kHz, and dBm with one decimal.
int channel_to_json(const CHANNEL_s* channel, json* out) {
    (*out)["frequency"] = channel->frequency;
    (*out)["maxPower"] = channel->maxPower / 10.0;
    return 0;
}

// The records of one kind: their ids, where they stand, and how they are told.
template <class Record>
struct slots_s {
    const id_range_s& range;
    unsigned base;
    const char* failure;  // of a read
    int (*toJson)(const Record* record, json* out);
};
constexpr slots_s<CHANNEL_s> channelSlots{rxe_intfc::channelIds, RXE_PARAM_CHANNEL,
                                          "Failure: error getting channel", channel_to_json};
constexpr slots_s<SELECT_OP_s> selectSlots{rxe_intfc::selectIds, RXE_PARAM_SELECT,
                                           "Failure: error getting select", selectSlot_to_json};
constexpr slots_s<INVENTORY_OP_s> inventorySlots{rxe_intfc::inventoryIds, RXE_PARAM_INVENTORY,
                                                 "Failure: error getting inventory", inv_to_json};
constexpr slots_s<ACCESS_OP_s> accessSlots{rxe_intfc::accessIds, RXE_PARAM_ACCESS,
                                           "Failure: error getting access", access_to_json};
constexpr slots_s<REPORT_FILTER_ID_s> filterSlots{rxe_intfc::filterIds, RXE_PARAM_ID_FILTER,
                                                  "Failure: error getting filter", idFilter_to_json};

template <class Record>
int readSlot(std::string* reply, const slots_s<Record>& slots, int id, Record* record) {
    const RXE_API_STATUS status = rxe_intfc::readParameter(slots.base + static_cast<unsigned>(id), record);
    return status == RXE_OK ? 0 : failWith(reply, slots.failure);
}

template <class Record>
// One record by its id, also a disabled one, of which only the id is shown.
int getSlot(std::string* reply, json* out, int id, const slots_s<Record>& slots) {
    Record record{};
    if (!rxe_intfc::isIn(slots.range, id)) {
        return failWith(reply, slots.range.unsupported);
    }
    if (readSlot(reply, slots, id, &record) != 0) {
        return -1;
    }
    *out = json::object();
    (*out)["id"] = id;
    return record.enable != 0 ? slots.toJson(&record, out) : 0;
}

// The enabled slots of a range under one key.
template <class Record>
int listEnabled(std::string* reply, json* out, const slots_s<Record>& slots, const char* key) {
    json list = json::array();
    for (int id = std::max(slots.range.first, 1); id <= slots.range.last; ++id) {
        Record record{};
        if (readSlot(reply, slots, id, &record) != 0) {
            return -1;
        }
        if (record.enable != 0) {
            json& slot = list.emplace_back(json::object());
            slot["id"] = id;
            slots.toJson(&record, &slot);
        }
    }
    (*out)[key] = std::move(list);
    return 0;
}

// How an olio is told depends on how many are asked for; see getEnabledOlio.
constexpr slots_s<OLIO_s> olioSlots{rxe_intfc::olioIds, RXE_PARAM_OLIO, "Failure: error getting olio",
                                    nullptr};

// Those before the first disabled one: this program fills the ids without a gap.
int getEnabledOlios(std::string* reply, json* out) {
    return getEnabledOlio(reply, out, 0);
}

// Selects and challenges share the slots. A challenge is the one with a crypto suite.
int getEnabledSelects(std::string* reply, json* out) {
    json slots;
    if (listEnabled(reply, &slots, selectSlots, "slots") != 0) {
        return -1;
    }
    (*out)["selects"] = json::array();
    (*out)["challenges"] = json::array();
    for (json& slot : slots["slots"]) {
        const char* key = slot.contains("cryptoSuiteIndex") ? "challenges" : "selects";
        (*out)[key].push_back(std::move(slot));
    }
    return 0;
}

int getEnabledInventories(std::string* reply, json* out) {
    return listEnabled(reply, out, inventorySlots, "inventories");
}

int getEnabledAccesses(std::string* reply, json* out) {
    return listEnabled(reply, out, accessSlots, "accesses");
}

int getEnabledChannels(std::string* reply, json* out) {
    return listEnabled(reply, out, channelSlots, "channels");
}

int getEnabledIDFilters(std::string* reply, json* out) {
    return listEnabled(reply, out, filterSlots, "filters");
}

// ------------------------------------------------------- start, stop and ports

template <class Record, class ToJson>
// A record of its own, whole, as an object under the key.
int getRule(std::string* reply, json* out, unsigned id, const char* key, const char* failure, ToJson toJson) {
    Record record{};
    if (readParameter(id, &record) != RXE_OK) {
        return failWith(reply, failure);
    }
    (*out)[key] = json::object();
    return toJson(&record, &(*out)[key]);
}

int getRadioStopCondition(std::string* reply, json* out) {
    const auto render = [](const auto* record, json* rule) {
        return radioStopCondition_to_json(record, rule);
    };
    constexpr const char* key = "stopConditions";
    constexpr const char* failure = "Failure: error getting radio stop condition";
    return hasFourGPIs() ? getRule<PER_RADIO_STOP2_s>(reply, out, RXE_PARAM_RADIO_STOP2, key, failure, render)
                         : getRule<PER_RADIO_STOP_s>(reply, out, RXE_PARAM_RADIO_STOP, key, failure, render);
}

int getGPIOStart(std::string* reply, json* out) {
    constexpr const char* key = "gpioStart";
    constexpr const char* failure = "Failure: error getting gpioStart";
    return hasFourGPIs()
               ? getRule<GPIO_START2_s>(reply, out, RXE_PARAM_GPIO_START2, key, failure, gpioStart_to_json2)
               : getRule<GPIO_START_s>(reply, out, RXE_PARAM_GPIO_START, key, failure, gpioStart_to_json);
}

// A set bit makes the port an input.
int getGPIODir(std::string* reply, json* out) {
    std::uint8_t mask = 0;
    if (readParameter(RXE_PARAM_GPIO_DIR, &mask) != RXE_OK) {
        return failWith(reply, "Failure: error getting gpioDirections");
    }
    json list = json::array();
    const unsigned ports = thisModel().gpis;
    for (unsigned port = 1; port <= ports; ++port) {
        const bool input = (mask & (1U << (port - 1))) != 0;
        list.push_back({{"port", port}, {"direction", input ? "in" : "out"}});
    }
    (*out)["gpioDirections"] = std::move(list);
    return 0;
}

// ------------------------------------------------------------ packets and fields

// By name; a type that this program does not know by its number, "0x10fe".
int getEnabledPackets(std::string* reply, json* out) {
    json list = json::array();
    for (unsigned word = 0; word < RXE_PACKET_BIT_WORDS; ++word) {
        std::uint32_t bits = 0;
        if (readParameter(RXE_PARAM_PACKET_BITS + word, &bits) != RXE_OK) {
            return failWith(reply, "Failure: error getting packet bitmask");
        }
        for (unsigned bit = 0; bit < 32; ++bit) {
            if ((bits >> bit & 1) != 0) {
                const auto id = static_cast<std::uint16_t>(word * 32 + bit);
                const packet_name_s* row = findPacket(id);
                list.push_back(row != nullptr ? std::string(row->name) : sprintfStr("0x%04x", id));
            }
        }
    }
    (*out)["packets"] = std::move(list);
    return 0;
}

int getCustomFields(std::string* reply, json* out) {
    std::uint32_t mask = 0;
    if (readParameter(RXE_PARAM_CUSTOM_FIELDS, &mask) != RXE_OK) {
        return failWith(reply, "Failure: error getting custom fields");
    }
    (*out)["tagMetaData"] = getCustomFieldNames(mask);
    return 0;
}

// --------------------------------------------------------------- single settings

// A byte that is 0 or not.
int getFlag(std::string* reply, json* out, unsigned id, const char* key, const char* failure) {
    std::uint8_t value = 0;
    if (readParameter(id, &value) != RXE_OK) {
        return failWith(reply, failure);
    }
    (*out)[key] = value != 0;
    return 0;
}

int getHopPerRound(std::string* reply, json* out) {
    return getFlag(reply, out, RXE_PARAM_HOP_PER_ROUND, "hopPerRound", "Failure: error getting hopPerRound");
}

int getHopPerOlio(std::string* reply, json* out) {
    return getFlag(reply, out, RXE_PARAM_HOP_PER_OLIO, "hopPerOlio", "Failure: error getting hopPerOlio");
}

int getTagReportInterval(std::string* reply, json* out) {
    return getRule<REPORT_FILTER_LAST_REPORT_s>(reply, out, RXE_PARAM_LAST_REPORT, "tagReportInterval",
                                                "Failure: error getting tagReportInterval",
                                                lastReportInterval_to_json);
}

int getRSSIDetectFilter(std::string* reply, json* out) {
    if (!readerFacts.rssiFilterSupported) {
        return 0;
    }
    std::int8_t dBm = 0;
    if (readParameter(RXE_PARAM_RSSI_THRESHOLD, &dBm) != RXE_OK) {
        return failWith(reply, "Failure: error getting rssi detect filter");
    }
    (*out)["rssiDetectFilter"] = dBm;
    return 0;
}

// {"type":"noReads","duration":40}, the duration in ms, or "disabled".
int getTxDelayIntervalJson(std::string* reply, json* out) {
    constexpr const char* key = "txDelayInterval";
    if (!readerFacts.txDelayIntervalSupported) {
        (*out)[key] = notSupported;
        return 0;
    }
    std::uint8_t type = 0, duration = 0;
    if (getTxDelayInterval(&type, &duration) != RXE_OK) {
        return failWith(reply, "Failure: error getting txDelayInterval");
    }
    const auto& types = vocabulary::configrxe_words::tx_delay_interval::types;
    const auto* row = std::ranges::find(types, type, &vocabulary::choice_s::value);
    const std::string name =
        row != std::end(types) ? std::string(row->word) : sprintfStr("unknown: 0x%02x", type);
    (*out)[key] = type == 0 ? json("disabled") : json({{"type", name}, {"duration", duration}});
    return 0;
}

// A number that only some readers have, by the reader function of parameters.cpp.
template <class Value>
int getNumber(std::string* reply, json* out, bool supported, RXE_API_STATUS (*get)(Value*), const char* key,
              const char* failure) {
    Value value = 0;
    if (supported && get(&value) != RXE_OK) {
        return failWith(reply, failure);
    }
    (*out)[key] = supported ? json(value) : json(notSupported);
    return 0;
}

// The same for a parameter in tenths, shown in whole units.
int getTenths(std::string* reply, json* out, RXE_API_STATUS (*get)(std::uint16_t*), const char* key,
              const char* failure) {
    const int result = getNumber(reply, out, thisModel().arrayReader, get, key, failure);
    if (result == 0 && thisModel().arrayReader) {
        (*out)[key] = (*out)[key].get<unsigned>() / 10.0;
    }
    return result;
}

int getDelayAfterSelectsJson(std::string* reply, json* out) {
    return getNumber(reply, out, thisModel().showsDelayAfterSelects, getDelayAfterSelectsInterval,
                     "delayAfterSelects", "Failure: error getting delayAfterSelects");
}

int getDynamicRangeJson(std::string* reply, json* out) {
    constexpr const char* names[] = {"LOW", "NORMAL", "HIGH"};
    std::uint8_t value = 0;
    if (readerFacts.dynamicRangeSupported && getDynamicRange(&value) != RXE_OK) {
        return failWith(reply, "Failure: error getting dynamic range");
    }
    (*out)["dynamicRange"] = !readerFacts.dynamicRangeSupported ? notSupported
                             : value < std::size(names)         ? names[value]
                                                                : "UNKNOWN";
    return 0;
}

// [{"antenna":1,"cableLoss":1.5},...] in dB.
int getCableLossJson(std::string* reply, json* out) {
    if (!readerFacts.cableLossSupported) {
        (*out)["cableLoss"] = notSupported;
        return 0;
    }
    json list = json::array();
    for (int antenna = 1; antenna <= readerFacts.max_ants; ++antenna) {
        std::uint8_t tenths = 0;
        if (getCableLossX10(antenna, &tenths) != RXE_OK) {
            return failWith(reply, "Failure: error getting cable loss");
        }
        list.push_back({{"antenna", antenna}, {"cableLoss", tenths / 10.0}});
    }
    (*out)["cableLoss"] = std::move(list);
    return 0;
}

int getAARHeightJson(std::string* reply, json* out) {
    return getTenths(reply, out, getAARHeightX10, "aarHeight", "Failure: error getting aar height");
}

int getTagHeightJson(std::string* reply, json* out) {
    return getTenths(reply, out, getTagHeightX10, "tagHeight", "Failure: error getting tag height");
}

int getStaticVDynamicJson(std::string* reply, json* out) {
    return getNumber(reply, out, thisModel().arrayReader, getStaticVDynamic, "staticVDynamic",
                     "Failure: error getting static v dynamic");
}

int getBlockSizeJson(std::string* reply, json* out) {
    return getNumber(reply, out, true, getBlockSize, "blockSize", "Failure: error getting block size");
}

// In the order in which the engine is asked; the first failure is the reply.
using getter = int (*)(std::string* reply, json* out);
constexpr getter getters[] = {
    getEnabledOlios,        getEnabledSelects,        getEnabledInventories,
    getEnabledAccesses,     getRadioStopCondition,    getEnabledPackets,
    getCustomFields,        getHopPerRound,           getHopPerOlio,
    getEnabledChannels,     getTagReportInterval,     getGPIODir,
    getGPIOStart,           getEnabledIDFilters,      getRSSIDetectFilter,
    getTxDelayIntervalJson, getDelayAfterSelectsJson, getDynamicRangeJson,
    getCableLossJson,       getAARHeightJson,         getTagHeightJson,
    getStaticVDynamicJson,  getBlockSizeJson,
};

}  // namespace

int getFullCustomConfig(std::string* reply) {
    json document = json::object();
    for (const getter get : getters) {
        if (get(reply, &document) != 0) {
            return -1;
        }
    }
    *reply = document.dump();
    return 0;
}

int getChannel(std::string* reply, json* out, int id) {
    return getSlot(reply, out, id, channelSlots);
}

int getSelect(std::string* reply, json* out, int id) {
    return getSlot(reply, out, id, selectSlots);
}

int getInventory(std::string* reply, json* out, int id) {
    return getSlot(reply, out, id, inventorySlots);
}

int getAccess(std::string* reply, json* out, int id) {
    return getSlot(reply, out, id, accessSlots);
}

int getIDFilter(std::string* reply, json* out, int id) {
    return getSlot(reply, out, id, filterSlots);
}

// The olios of the document, or one alone with what its masks stand for.
int getEnabledOlio(std::string* reply, json* out, int id) {
    const bool all = id == 0;
    if (!all && !rxe_intfc::isIn(rxe_intfc::olioIds, id)) {
        return failWith(reply, rxe_intfc::olioIds.unsupported);
    }
    const int last = all ? rxe_intfc::olioIds.last - 1 : id;
    json list = json::array();
    for (int current = all ? rxe_intfc::olioIds.first : id; current <= last; ++current) {
        OLIO_s olio{};
        if (readSlot(reply, olioSlots, current, &olio) != 0) {
            return -1;
        }
        if (olio.enable == 0) {
            break;
        }
        json& entry = list.emplace_back(json::object());
        entry["id"] = current;
        if (olio_to_json(reply, &olio, &entry, !all) != 0) {
            return -1;
        }
    }
    (*out)["olios"] = std::move(list);
    return 0;
}

int getPeakThreshold(std::string* reply, json* out) {
    std::uint8_t value = 0;
    if (readParameter(RXE_PARAM_PEAK_THRESHOLD, &value) != RXE_OK) {
        return failWith(reply, "Failure: error getting peak threshold");
    }
    (*out)["peakThreshold"] = value;
    return 0;
}

// How the array reader estimates a bearing. Quirk: "unkonwn".
int getMonoOrCOM(std::string* reply, json* out) {
    constexpr const char* texts[] = {"monopulse for az and el", "monopulse for el/COM and az",
                                     "monopulse for az/COM and el", "COM for az and el"};
    std::uint8_t value = 0;
    if (readParameter(RXE_PARAM_MONO_OR_COM, &value) != RXE_OK) {
        return failWith(reply, "Failure: error getting Monopulse or COM value");
    }
    (*out)["monoOrCom"] = value < std::size(texts) ? texts[value] : sprintfStr("%d (unkonwn)", value);
    return 0;
}
