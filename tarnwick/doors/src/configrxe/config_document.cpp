// SPDX-License-Identifier: MIT
// The document of the engine's state, and the single parameters in it.
#include <nlohmann/json.hpp>

#include "configrxe.hpp"
#include "configrxe/config_json.hpp"
#include "configrxe/config_lists.hpp"
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
using rxe_intfc::readParameter;

constexpr const char* notSupported = "not supported";

// ------------------------------------------------------- start, stop and ports

template <class Record, class ToJson>
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
    const std::string name = type == 1   ? "noReads"
                             : type == 2 ? "noUniqueReads"
                                         : sprintfStr("unknown: 0x%02x", type);
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
    rxe_intfc::getEnabledOlios,
    rxe_intfc::getEnabledSelects,
    rxe_intfc::getEnabledInventories,
    rxe_intfc::getEnabledAccesses,
    getRadioStopCondition,
    getEnabledPackets,
    getCustomFields,
    getHopPerRound,
    getHopPerOlio,
    rxe_intfc::getEnabledChannels,
    getTagReportInterval,
    getGPIODir,
    getGPIOStart,
    rxe_intfc::getEnabledIDFilters,
    getRSSIDetectFilter,
    getTxDelayIntervalJson,
    getDelayAfterSelectsJson,
    getDynamicRangeJson,
    getCableLossJson,
    getAARHeightJson,
    getTagHeightJson,
    getStaticVDynamicJson,
    getBlockSizeJson,
};

}  // namespace

int lastReportInterval_to_json(const REPORT_FILTER_LAST_REPORT_s* filter, json* out) {
    (*out)["duration"] = filter->duration;
    (*out)["type"] = filter->type == 0 ? "radioWide" : "perOlio";
    return 0;
}

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

int getPeakThreshold(std::string* reply, json* out) {
    std::uint8_t value = 0;
    if (readParameter(RXE_PARAM_PEAK_THRESHOLD, &value) != RXE_OK) {
        return failWith(reply, "Failure: error getting peak threshold");
    }
    (*out)["peakThreshold"] = value;
    return 0;
}

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
