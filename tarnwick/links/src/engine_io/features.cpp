// SPDX-License-Identifier: MIT
// What a firmware can do, by its version.
#include "engine_io/features.hpp"
#include "engine_io/parameter_io.hpp"

namespace {

bool isRelease(const REL_VERSION_s* version, unsigned major, unsigned minor) {
    return version->major == major && version->minor == minor;
}

}  // namespace

// The antenna check came to each release line at a patch level of its own; the
// lines without it, such as 2.0 and 2.3, never got it.
bool isRXEAntennaCheckSupported(const REL_VERSION_s* firmware) {
    return (isRelease(firmware, 1, 4) && firmware->patch > 86) ||
           (isRelease(firmware, 2, 1) && firmware->patch > 32) ||
           (isRelease(firmware, 2, 2) && firmware->patch > 26);
}

bool isRSSIFilterSupported(const REL_VERSION_s* firmware) {
    return isRelease(firmware, 2, 1) && firmware->patch > 40;
}

bool isDynamicRangeSupported(const REL_VERSION_s* firmware) {
    return isRelease(firmware, 2, 1) && firmware->patch > 46;
}

// Firmware and library must both know it.
bool isCableLossSupported(const REL_VERSION_s* firmware, const REL_VERSION_s* library) {
    return isRelease(firmware, 2, 1) && firmware->patch >= 47 && isRelease(library, 2, 2) &&
           library->patch > 33;
}

// Unlike the others, all release lines have it, except for the first patches of 2.2.
bool isTxDelayIntervalSupported(const REL_VERSION_s* firmware) {
    return !isRelease(firmware, 2, 2) || firmware->patch > 27;
}

bool isAutoDetectSupported() {
    REL_VERSION_s firmware{};
    return rxe_intfc::readParameter<RXE_PARAM_FW_VERSION>(&firmware) == RXE_OK &&
           isRelease(&firmware, 2, 2) && firmware.patch > 27;
}
