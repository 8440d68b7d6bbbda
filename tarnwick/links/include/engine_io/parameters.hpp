// SPDX-License-Identifier: MIT
// Functions for single parameters of the engine. Main thread.
//
// Each writer logs one line and writes one parameter. Each reader logs one line, if any, and reads
// one parameter; it copies to its output only after success. When the engine refuses, both log the
// status and return it; 0 is success. The ranges are those of the engine, which refuses other values.
#pragma once

#include <cstdint>

#include "rxe.h"

// The radio ignores replies that are weaker; -128 turns the threshold off.
RXE_API_STATUS setRSSIDetectThreshold(std::int8_t dBm);
// A bit for each GPIO port, 1 for an input.
RXE_API_STATUS setGPIODir(std::uint8_t mask);

// The level that a bearing needs, in a unit of the radio. The engine gets the low byte.
RXE_API_STATUS setPeakThreshold(int value);
// How azimuth and elevation are computed: 0 by monopulse, 3 by the centre of mass, 1 and 2 one by
// each. The engine gets the low byte.
RXE_API_STATUS setMonoOrCOM(int value);

// Of the receiver: 0 low, 1 normal, 2 high.
RXE_API_STATUS setDynamicRange(std::uint8_t value);
RXE_API_STATUS getDynamicRange(std::uint8_t* value);

// Words of one operation of a block write; 0 counts as 1.
RXE_API_STATUS setBlockSize(std::uint8_t words);
RXE_API_STATUS getBlockSize(std::uint8_t* words);

// Array reader: the threshold between static and moving tags, and the heights of the reader and of
// the tags.
RXE_API_STATUS setStaticVDynamic(std::uint8_t value);
RXE_API_STATUS getStaticVDynamic(std::uint8_t* value);
RXE_API_STATUS setAARHeightX10(std::uint16_t tenths);
RXE_API_STATUS getAARHeightX10(std::uint16_t* tenths);
RXE_API_STATUS setTagHeightX10(std::uint16_t tenths);
RXE_API_STATUS getTagHeightX10(std::uint16_t* tenths);

// Microseconds between the Selects and the Query of a round.
RXE_API_STATUS setDelayAfterSelectsInterval(std::uint16_t value);
RXE_API_STATUS getDelayAfterSelectsInterval(std::uint16_t* value);

// The rest between two passes over the olios, in ms. Type 0: none; 1: after a pass without a read;
// 2: after a pass without a new tag.
RXE_API_STATUS setTxDelayInterval(std::uint8_t type, std::uint8_t duration);
RXE_API_STATUS getTxDelayInterval(std::uint8_t* type, std::uint8_t* duration);

// Loss of an antenna's cable in tenths of a dB. An antenna outside 0 to 15 is refused with status
// 1.
RXE_API_STATUS setCableLossX10(int antenna, std::uint8_t tenths);
RXE_API_STATUS getCableLossX10(int antenna, std::uint8_t* tenths);

// Whether the radio also changes its channel at each inventory round.
RXE_API_STATUS enableHopPerRound();
RXE_API_STATUS disableHopPerRound();

// The engine's own duplicate filter. Type 0: radio wide; 1: per antenna. Duration in seconds.
RXE_API_STATUS enableLastReportedFilter(std::uint8_t type, std::uint32_t duration);
RXE_API_STATUS disableLastReportedFilter();

// Whether a start is under way in the engine. An error of the engine counts as yes.
bool isStartOngoing();

// Temperatures of the power amplifier and of its surroundings, degrees Celsius.
RXE_API_STATUS getPATemp(std::int16_t* celsius);
RXE_API_STATUS getAmbTemp(std::int16_t* celsius);

// Stores in connected[i] whether bit i of the engine's word is set: antenna i+1, or element i of the
// array reader. At most 16 entries are written.
RXE_API_STATUS getAntennaState(bool* connected, int count);
