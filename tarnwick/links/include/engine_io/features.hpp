// SPDX-License-Identifier: MIT
// What a firmware can do.
#pragma once

#include "rxe.h"

// Feature tests on the firmware version. No state.
bool isRXEAntennaCheckSupported(const REL_VERSION_s* firmware);
bool isRSSIFilterSupported(const REL_VERSION_s* firmware);
bool isDynamicRangeSupported(const REL_VERSION_s* firmware);
bool isTxDelayIntervalSupported(const REL_VERSION_s* firmware);
bool isCableLossSupported(const REL_VERSION_s* firmware, const REL_VERSION_s* library);

// Asks the radio for its firmware version; false also when it does not answer.
bool isAutoDetectSupported();
