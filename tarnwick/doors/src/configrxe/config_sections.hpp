// SPDX-License-Identifier: MIT
// What each section of "configrxe custom" reads and writes. Private to configrxe; main
// thread.
//
// The steps of a read put a report for people into the reply. Those of a write tell the
// engine and say whether it accepted; they leave the mode and this program's memory of it
// alone. A text that is not a number makes the standard conversion throw in writeCableLoss,
// writeAARHeight, writeTagHeight, writeStaticVDynamic, and for the duration of
// writeTxDelayInterval.
#pragma once

#include "configrxe/config_request.hpp"

namespace rxe_intfc {

// One step. An id outside the section's range does not come here; readPacket, writePacket,
// readCableLoss and writeCableLoss get any id.
using section_step = void(const section_request_s& request);

// Records that have ids (config_sections_ids.cpp).
section_step readOlio, writeOlio;
section_step readSelect, writeSelect;
section_step readAccess, writeAccess;
section_step readIDFilter, writeIDFilter;
section_step readInventory, writeInventory;

// Channels, packets and single settings (config_sections_settings.cpp).
section_step readChannel, writeChannel;
section_step readPacket, writePacket;
section_step readCableLoss, writeCableLoss;
section_step readHopPerRound, writeHopPerRound;
section_step readTagInfoFields, writeTagInfoFields;
section_step readLastReportFilter, writeLastReportFilter;
section_step readTxDelayInterval, writeTxDelayInterval;
section_step readAARHeight, writeAARHeight;
section_step readTagHeight, writeTagHeight;
section_step readStaticVDynamic, writeStaticVDynamic;

// What stops and starts the radio; the record depends on how many GPIs this reader has
// (config_sections_triggers.cpp).
section_step readStopConditions, writeStopConditions;
section_step readStartConditions, writeStartConditions;

}  // namespace rxe_intfc
