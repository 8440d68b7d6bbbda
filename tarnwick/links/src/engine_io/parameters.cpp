// SPDX-License-Identifier: MIT
// Functions for single parameters of the engine. Some lines of the log have the value behind them,
// others do not: users search for these texts.
#include <algorithm>
#include <array>

#include "engine_io/parameter_io.hpp"
#include "engine_io/parameters.hpp"
#include "logger.hpp"
#include "reader_facts.hpp"

namespace {

using rxe_intfc::noteFailure;
using rxe_intfc::refused;
using rxe_intfc::unit;

// Logs one line, writes one record, and logs a failure.
template <unsigned parameter, class Record, class... Parts>
RXE_API_STATUS setLogged(const Record& record, const Parts&... line) {
    logInfo(unit, line...);
    return rxe_intfc::writeParameter<parameter>(record);
}

// The same for a read; *out changes only after success. Without parts there is not a line.
template <unsigned parameter, class Record, class... Parts>
RXE_API_STATUS getLogged(Record* out, const Parts&... line) {
    if constexpr (sizeof...(line) > 0) {
        logInfo(unit, line...);
    }
    Record record{};
    const RXE_API_STATUS status = rxe_intfc::readParameter<parameter>(&record);
    if (status == RXE_OK) {
        *out = record;
    }
    return status;
}

std::uint8_t lowByte(int value) {
    return static_cast<std::uint8_t>(value & 0xFF);
}

bool isCableLossAntenna(int antenna) {
    return antenna >= 0 && static_cast<std::size_t>(antenna) < portTableSize;
}

// The low 16 bits of the radio's answer are the temperature, signed.
template <unsigned parameter, class... Parts>
RXE_API_STATUS getTemperature(std::int16_t* celsius, const Parts&... line) {
    std::uint32_t answer = 0;
    const RXE_API_STATUS status = getLogged<parameter>(&answer, line...);
    if (status == RXE_OK) {
        *celsius = static_cast<std::int16_t>(answer & 0xFFFF);
    }
    return status;
}

}  // namespace

RXE_API_STATUS setRSSIDetectThreshold(std::int8_t dBm) {
    return setLogged<RXE_PARAM_RSSI_THRESHOLD>(dBm, " setting RSSI detect threshold ", dBm);
}

RXE_API_STATUS setGPIODir(std::uint8_t mask) {
    return setLogged<RXE_PARAM_GPIO_DIR>(mask, " Setting GPIO Direction ", mask);
}

RXE_API_STATUS setPeakThreshold(int value) {
    return setLogged<RXE_PARAM_PEAK_THRESHOLD>(lowByte(value), " Setting Peak Threshold to: ", value);
}

RXE_API_STATUS setMonoOrCOM(int value) {
    return setLogged<RXE_PARAM_MONO_OR_COM>(lowByte(value), " Setting monoOrCom to: ", value);
}

RXE_API_STATUS setDynamicRange(std::uint8_t value) {
    return setLogged<RXE_PARAM_DYNAMIC_RANGE>(value, " Setting Dynamic Range");
}

RXE_API_STATUS getDynamicRange(std::uint8_t* value) {
    return getLogged<RXE_PARAM_DYNAMIC_RANGE>(value, " Getting Dynamic Range");
}

RXE_API_STATUS setBlockSize(std::uint8_t words) {
    return setLogged<RXE_PARAM_BLOCK_SIZE>(words, " Setting block size for antenna");
}

RXE_API_STATUS getBlockSize(std::uint8_t* words) {
    return getLogged<RXE_PARAM_BLOCK_SIZE>(words, " Getting block size");
}

RXE_API_STATUS setStaticVDynamic(std::uint8_t value) {
    return setLogged<RXE_PARAM_STATIC_V_DYNAMIC>(value, " Setting Static v Dynamic Threshold ", value);
}

RXE_API_STATUS getStaticVDynamic(std::uint8_t* value) {
    return getLogged<RXE_PARAM_STATIC_V_DYNAMIC>(value, " Getting Static v Dynamic Threshold ");
}

RXE_API_STATUS setAARHeightX10(std::uint16_t tenths) {
    return setLogged<RXE_PARAM_AAR_HEIGHT>(tenths, " Setting AAR Height ", tenths);
}

RXE_API_STATUS getAARHeightX10(std::uint16_t* tenths) {
    return getLogged<RXE_PARAM_AAR_HEIGHT>(tenths, " Getting AAR Height ");
}

RXE_API_STATUS setTagHeightX10(std::uint16_t tenths) {
    return setLogged<RXE_PARAM_TAG_HEIGHT>(tenths, " Setting Tag Height ", tenths);
}

RXE_API_STATUS getTagHeightX10(std::uint16_t* tenths) {
    return getLogged<RXE_PARAM_TAG_HEIGHT>(tenths, " Getting Tag Height ");
}

RXE_API_STATUS setDelayAfterSelectsInterval(std::uint16_t value) {
    return setLogged<RXE_PARAM_DELAY_AFTER_SELECTS>(value, " Setting Delay After Selects duration");
}

RXE_API_STATUS getDelayAfterSelectsInterval(std::uint16_t* value) {
    return getLogged<RXE_PARAM_DELAY_AFTER_SELECTS>(value, " Getting Delay After Selects duration");
}

// The type is the low byte of the parameter, the duration the high byte.
RXE_API_STATUS setTxDelayInterval(std::uint8_t type, std::uint8_t duration) {
    const auto word = static_cast<std::uint16_t>(type + duration * 256);
    return setLogged<RXE_PARAM_TX_DELAY_INTERVAL>(word, " Setting Transmit Delay Interval");
}

RXE_API_STATUS getTxDelayInterval(std::uint8_t* type, std::uint8_t* duration) {
    std::uint16_t word = 0;
    const RXE_API_STATUS status =
        getLogged<RXE_PARAM_TX_DELAY_INTERVAL>(&word, " Getting Transmit Delay Interval");
    if (status == RXE_OK) {
        *type = static_cast<std::uint8_t>(word & 0xFF);
        *duration = static_cast<std::uint8_t>(word >> 8);
    }
    return status;
}

RXE_API_STATUS setCableLossX10(int antenna, std::uint8_t tenths) {
    if (!isCableLossAntenna(antenna)) {
        return noteFailure(refused, " antenna out of range");
    }
    logInfo(unit, " Setting Cable Loss for antenna ", antenna);
    return rxe_intfc::writeParameter<RXE_PARAM_CABLE_LOSS>(tenths, static_cast<unsigned>(antenna));
}

RXE_API_STATUS getCableLossX10(int antenna, std::uint8_t* tenths) {
    if (!isCableLossAntenna(antenna)) {
        return noteFailure(refused, " antenna out of range");
    }
    logInfo(unit, " Getting Cable Loss for antenna ", antenna);
    std::uint8_t record = 0;
    const RXE_API_STATUS status =
        rxe_intfc::readParameter<RXE_PARAM_CABLE_LOSS>(&record, static_cast<unsigned>(antenna));
    if (status == RXE_OK) {
        *tenths = record;
    }
    return status;
}

RXE_API_STATUS enableHopPerRound() {
    return setLogged<RXE_PARAM_HOP_PER_ROUND>(std::uint8_t{1}, " Enabling Hop Per Round");
}

RXE_API_STATUS disableHopPerRound() {
    return setLogged<RXE_PARAM_HOP_PER_ROUND>(std::uint8_t{0}, " Disabling Hop Per Round");
}

RXE_API_STATUS enableLastReportedFilter(std::uint8_t type, std::uint32_t duration) {
    const REPORT_FILTER_LAST_REPORT_s record{
        .enable = 1, .type = type, .reserved2 = {}, .duration = duration};
    return setLogged<RXE_PARAM_LAST_REPORT>(record, " Enabling last reported filter: ", type, " ", duration);
}

RXE_API_STATUS disableLastReportedFilter() {
    return setLogged<RXE_PARAM_LAST_REPORT>(REPORT_FILTER_LAST_REPORT_s{}, " Disabling last reported filter");
}

// The library does not resume anything here: the status alone counts.
bool isStartOngoing() {
    return RXE_resume() != RXE_NO_START_ONGOING;
}

RXE_API_STATUS getPATemp(std::int16_t* celsius) {
    return getTemperature<RXE_PARAM_PA_TEMP>(celsius, " Getting PA Temperature");
}

RXE_API_STATUS getAmbTemp(std::int16_t* celsius) {
    return getTemperature<RXE_PARAM_AMB_TEMP>(celsius);
}

// The word has 16 bits that count: bit i is antenna i+1, or element i of the array reader.
RXE_API_STATUS getAntennaState(bool* connected, int count) {
    std::uint32_t bits = 0;
    const RXE_API_STATUS status =
        getLogged<RXE_PARAM_ANTENNA_STATE>(&bits, " Getting Antenna Connection State");
    if (status == RXE_OK) {
        for (int i = 0; i < std::min(count, 16); ++i) {
            connected[i] = ((bits >> i) & 1) != 0;
        }
    }
    return status;
}
