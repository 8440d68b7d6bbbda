// SPDX-License-Identifier: MIT
// Olios and the rules around them: when the radio starts and stops, and which
// fields its tag packets carry.
#include <nlohmann/json.hpp>

#include "engine_io/olios.hpp"
#include "engine_io/packets.hpp"
#include "engine_io/parameter_io.hpp"
#include "engine_io/records_json.hpp"
#include "logger.hpp"
#include "reader_facts.hpp"

// The records that the engine has accepted. Main thread: the alarms that name an olio are handled
// there too.
constinit std::array<OLIO_s, olioTableSize> rxe_intfc::olios{};

namespace {

using rxe_intfc::hasFourGPIs;
using rxe_intfc::olios;
using rxe_intfc::tenthsText;
using rxe_intfc::unit;
using rxe_intfc::writeParameter;

// Limits the power, in tenths of dBm, to what the radio can. A mode that asks for more is still
// applied, with a warning.
std::int16_t limitedPower(std::int16_t txPowerX10) {
    if (txPowerX10 <= readerFacts.rxe_max_tx_pwr_x_10) {
        return txPowerX10;
    }
    logCountedWarning(unit, " Requested RXE transmit level too high (", tenthsText(txPowerX10),
                      " dbm). Limiting to ", tenthsText(readerFacts.rxe_max_tx_pwr_x_10), " dbm.");
    return readerFacts.rxe_max_tx_pwr_x_10;
}

// Quirk: the line has the JSON behind the id without a blank.
void logOlio(std::uint16_t id, const OLIO_s* olio) {
    nlohmann::json rendered = nlohmann::json::object();
    std::string reason;
    if (olio_to_json(&reason, olio, &rendered, false) == 0) {
        logInfo(unit, " Setting Olio: ", id, rendered.dump());
    } else {
        logInfo(unit, " Setting Olio: ", id, "(but failed to get olio json obj: ", reason, ")");
    }
}

constexpr std::string_view stopLine = " Setting Radio Stop Conditions ";
constexpr std::string_view startLine = " Setting GPIO Start ";

constexpr auto stopToJson = [](const auto* record, nlohmann::json* out) {
    radioStopCondition_to_json(record, out);
};

// Writes a record of a start or stop rule; `line` and the record as JSON go to the log.
template <unsigned parameter>
RXE_API_STATUS writeRule(auto record, std::string_view line, auto toJson) {
    nlohmann::json rendered = nlohmann::json::object();
    toJson(&record, &rendered);
    logInfo(unit, line, rendered.dump());
    return writeParameter<parameter>(record);
}

}  // namespace

RXE_API_STATUS setOlio(std::uint16_t id, const OLIO_s& olio) {
    if (id >= olios.size()) {
        return rxe_intfc::noteFailure(rxe_intfc::refused, " olio id not supported");
    }
    OLIO_s record = olio;
    record.transmitPower = limitedPower(olio.transmitPower);
    logOlio(id, &record);
    const RXE_API_STATUS status = writeParameter<RXE_PARAM_OLIO>(record, id);
    if (status == RXE_OK) {
        olios[id] = record.enable != 0 ? record : OLIO_s{};
    }
    return status;
}

RXE_API_STATUS disableOlios() {
    logInfo(unit, " Disable All Olios");
    return writeParameter<RXE_PARAM_OLIO>(OLIO_s{});
}

std::uint16_t getTxAntForOlio(std::uint16_t id) {
    return id < olios.size() ? olios[id].transmitAntenna : 0;
}

RXE_API_STATUS setGlobalStopConditions(std::uint32_t duration, std::uint16_t olioLoops,
                                       std::uint16_t tagCount, std::uint8_t gpiBitMask, std::uint16_t hold1,
                                       std::uint16_t hold2, std::uint16_t hold3, std::uint16_t hold4) {
    const auto fill = [&](auto record) {
        record.duration = duration;
        record.olioLoops = olioLoops;
        record.tagCount = tagCount;
        record.gpiBitMask = gpiBitMask;
        record.holdTime1 = hold1;
        record.holdTime2 = hold2;
        return record;
    };
    if (!hasFourGPIs()) {
        return writeRule<RXE_PARAM_RADIO_STOP>(fill(PER_RADIO_STOP_s{}), stopLine, stopToJson);
    }
    PER_RADIO_STOP2_s record = fill(PER_RADIO_STOP2_s{});
    record.holdTime3 = hold3;
    record.holdTime4 = hold4;
    return writeRule<RXE_PARAM_RADIO_STOP2>(record, stopLine, stopToJson);
}

RXE_API_STATUS setGPIOStart(std::uint8_t gpiBitMask, std::uint16_t hold1, std::uint16_t hold2,
                            std::uint16_t hold3, std::uint16_t hold4) {
    if (!hasFourGPIs()) {
        const GPIO_START_s record{
            .gpiBitMask = gpiBitMask, .reserved1 = 0, .holdTime1 = hold1, .holdTime2 = hold2};
        return writeRule<RXE_PARAM_GPIO_START>(record, startLine, gpioStart_to_json);
    }
    const GPIO_START2_s record{.gpiBitMask = gpiBitMask,
                               .reserved1 = 0,
                               .holdTime1 = hold1,
                               .holdTime2 = hold2,
                               .holdTime3 = hold3,
                               .holdTime4 = hold4};
    return writeRule<RXE_PARAM_GPIO_START2>(record, startLine, gpioStart_to_json2);
}

RXE_API_STATUS setCustomFields(std::uint32_t mask) {
    // The mask that the engine last accepted from here. Main thread.
    static std::uint32_t lastMask = 0;
    if (mask == lastMask) {
        return RXE_OK;
    }
    logInfo(unit, " Setting Custom Fields ", nlohmann::json(getCustomFieldNames(mask)).dump());
    const RXE_API_STATUS status = writeParameter<RXE_PARAM_CUSTOM_FIELDS>(mask);
    if (status == RXE_OK) {
        lastMask = mask;
    }
    return status;
}
