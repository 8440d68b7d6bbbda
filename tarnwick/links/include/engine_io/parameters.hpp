// SPDX-License-Identifier: MIT
// The typed face of single engine parameters. Main thread.
#pragma once

#include <cstdint>

#include "rxe.h"

// Each writer logs one line, writes one parameter, and on failure logs the
// status and returns it. Each reader copies to its output only after success.

RXE_API_STATUS setRSSIDetectThreshold(std::int8_t dBm);
RXE_API_STATUS setGPIODir(std::uint8_t mask);
RXE_API_STATUS setPeakThreshold(int value);  // low byte
RXE_API_STATUS setMonoOrCOM(int value);      // low byte
RXE_API_STATUS setDynamicRange(std::uint8_t value);
RXE_API_STATUS getDynamicRange(std::uint8_t* value);
RXE_API_STATUS setBlockSize(std::uint8_t words);
RXE_API_STATUS getBlockSize(std::uint8_t* words);
RXE_API_STATUS setStaticVDynamic(std::uint8_t value);
RXE_API_STATUS getStaticVDynamic(std::uint8_t* value);
RXE_API_STATUS setAARHeightX10(std::uint16_t tenths);
RXE_API_STATUS getAARHeightX10(std::uint16_t* tenths);
RXE_API_STATUS setTagHeightX10(std::uint16_t tenths);
RXE_API_STATUS getTagHeightX10(std::uint16_t* tenths);
RXE_API_STATUS setDelayAfterSelectsInterval(std::uint16_t value);
RXE_API_STATUS getDelayAfterSelectsInterval(std::uint16_t* value);
// Type 0 disabled, 1 no reads, 2 no unique reads; duration in ms.
RXE_API_STATUS setTxDelayInterval(std::uint8_t type, std::uint8_t duration);
RXE_API_STATUS getTxDelayInterval(std::uint8_t* type, std::uint8_t* duration);
RXE_API_STATUS setCableLossX10(int antenna, std::uint8_t tenths);
RXE_API_STATUS getCableLossX10(int antenna, std::uint8_t* tenths);
RXE_API_STATUS enableHopPerRound();
RXE_API_STATUS disableHopPerRound();
// Type 0 radio wide, 1 per antenna; duration in seconds.
RXE_API_STATUS enableLastReportedFilter(std::uint8_t type, std::uint32_t duration);
RXE_API_STATUS disableLastReportedFilter();

// Whether a start is under way in the engine.
bool isStartOngoing();

// Degrees Celsius.
RXE_API_STATUS getPATemp(std::int16_t* celsius);
RXE_API_STATUS getAmbTemp(std::int16_t* celsius);

// Connected bits into connected[0] to connected[count - 1]; 16 at most.
RXE_API_STATUS getAntennaState(bool* connected, int count);
