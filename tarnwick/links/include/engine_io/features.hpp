// SPDX-License-Identifier: MIT
// What a firmware can do.
#pragma once

#include "rxe.h"

// Whether a firmware has the feature, by its major, minor and patch numbers; the cable loss
// compensation needs a version of the library as well. A release line, such as 2.1, has a feature
// from a patch number of its own on; a line that is not in the function does not have it, except
// for the transmit delay, which only some patches of 2.2 lack. Any thread.
bool isRXEAntennaCheckSupported(const REL_VERSION_s* firmware);
bool isRSSIFilterSupported(const REL_VERSION_s* firmware);
bool isDynamicRangeSupported(const REL_VERSION_s* firmware);
bool isTxDelayIntervalSupported(const REL_VERSION_s* firmware);
bool isCableLossSupported(const REL_VERSION_s* firmware, const REL_VERSION_s* library);

// Whether the radio can choose a link profile by itself. Asks it for its firmware version; false
// also when it does not answer. Main thread.
bool isAutoDetectSupported();
