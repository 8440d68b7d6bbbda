// SPDX-License-Identifier: MIT
// Applying a mode: the accesses, and one olio for each antenna with its power, its receive
// side and its masks.
#include <algorithm>
#include <string_view>

#include "apply/apply.hpp"
#include "apply/engine_params.hpp"
#include "apply/steps.hpp"
#include "engine_io/olios.hpp"
#include "engine_io/operations.hpp"
#include "engine_io/parameters.hpp"
#include "mode/accessors.hpp"
#include "reader_facts.hpp"

// Written by the steps below, read by the report plan that is made behind them. Main thread.
constinit told_accesses_s toldAccesses;

namespace {

using apply::apply_context_s;
using apply::engineFailure;
using apply::fail;

// ---------------------------------------------------------------------- accesses

struct access_writer_s {
    std::uint8_t type;
    std::string_view name;
    RXE_API_STATUS (*write)(std::uint8_t id, const ACCESS_OP_s& op);
};

constexpr access_writer_s accessWriters[] = {
    {RXE_ACCESS_READ, "read",
     [](std::uint8_t id, const ACCESS_OP_s& op) {
         return setAccessRead(id, op.enable, op.membank, op.wordPointer,
                              static_cast<std::uint8_t>(op.wordCount & 0xFF));
     }},
    {RXE_ACCESS_WRITE, "write",
     [](std::uint8_t id, const ACCESS_OP_s& op) {
         return setAccessWrite(id, op.enable, op.membank, op.wordPointer, op.wordCount);
     }},
    {RXE_ACCESS_MULTIWORD_WRITE, "multiword write",
     [](std::uint8_t id, const ACCESS_OP_s& op) {
         return setAccessMultiWordWrite(id, op.enable, op.membank, op.wordPointer, op.wordCount, op.data);
     }},
    {RXE_ACCESS_BLOCK_WRITE, "block write",
     [](std::uint8_t id, const ACCESS_OP_s& op) {
         return setAccessBlockWrite(id, op.enable, op.membank, op.wordPointer, op.wordCount, op.data);
     }},
    {RXE_ACCESS_ACCESS, "access",
     [](std::uint8_t id, const ACCESS_OP_s& op) { return setAccessAccess(id, op.enable, op.payload); }},
    {RXE_ACCESS_LOCK, "lock",
     [](std::uint8_t id, const ACCESS_OP_s& op) { return setAccessLock(id, op.enable, op.payload); }},
    {RXE_ACCESS_KILL, "kill",
     [](std::uint8_t id, const ACCESS_OP_s& op) { return setAccessKill(id, op.enable, op.payload); }},
};

// Writes one access. An access of a type without a writer is left out, here and in toldAccesses.
int writeAccess(apply_context_s* my, std::size_t id, const ACCESS_OP_s& op) {
    const auto* writer = std::ranges::find(accessWriters, op.type, &access_writer_s::type);
    if (writer == std::end(accessWriters)) {
        return 0;
    }
    const RXE_API_STATUS status = writer->write(static_cast<std::uint8_t>(id), op);
    if (status != RXE_OK) {
        return engineFailure(my, -5, status, "access " + std::string(writer->name) + " error");
    }
    toldAccesses.enabledAccessOps[id] = op;
    return 0;
}

void forgetAccesses() {
    toldAccesses.enabledAccessOps[0].enable = 0;
    toldAccesses.enabledAccessOpsPerOlio.fill(0);
    toldAccesses.accessParamsEnabledCount = 0;
}

void disableAccessesFrom(std::size_t id) {
    for (; id < toldAccesses.enabledAccessOps.size(); ++id) {
        toldAccesses.enabledAccessOps[id].enable = 0;
    }
}

// ------------------------------------------------------------------------- olios

constexpr std::uint16_t poweredByPoE = 2;

// The power that is written for an antenna, in tenths of dBm: the requested one plus the loss of
// the antenna's cable, and at most what a PoE supply can give. On the array reader the requested one.
std::int16_t olioPower(std::uint32_t antenna, std::int16_t requested) {
    const reader_model_s& model = thisModel();
    if (model.arrayReader) {
        return requested;
    }
    int power = requested;
    if (antenna < readerFacts.cable_loss_compensation_x_10.size()) {
        power += readerFacts.cable_loss_compensation_x_10[antenna];
    }
    if (readerFacts.power_source == poweredByPoE) {
        const bool fcc = readerFacts.regulatory_standard == "US FCC 15";
        power = std::min<int>(power, fcc ? model.poePowerX10FCC : model.poePowerX10);
    }
    return static_cast<std::int16_t>(std::clamp(power, -32768, 32767));
}

// The receive antenna of an olio. With bearings it is not an antenna but a pattern, 0xFFF0 plus the
// thousands of the beam id, which are its polarization.
int olioReceiveAntenna(apply_context_s* my, std::uint32_t antenna, std::uint16_t* receive) {
    constexpr int monopulse = 0;
    constexpr int peakThreshold = 6;
    constexpr std::uint32_t firstPattern = 0xFFF0;
    if (my->mode.bearingConfig.enabled == 0 && my->mode.portalDirConfig.enabled == 0) {
        *receive = static_cast<std::uint16_t>(antenna);
        return 0;
    }
    if (const RXE_API_STATUS status = setMonoOrCOM(monopulse); status != RXE_OK) {
        return engineFailure(my, -13, status, "Mono or COM to " + std::to_string(monopulse) + " error");
    }
    if (const RXE_API_STATUS status = setPeakThreshold(peakThreshold); status != RXE_OK) {
        return engineFailure(my, -14, status,
                             "peak threshold to " + std::to_string(peakThreshold) + " error");
    }
    *receive = static_cast<std::uint16_t>(antenna / 1000 + firstPattern);
    return 0;
}

int olioMasks(apply_context_s* my, std::size_t index, std::uint32_t* selectMask, std::uint64_t* accessMask) {
    *selectMask = my->selectMask;
    *accessMask = my->accessMask;
    if (selectsPerAntenna(&my->mode) && getCurrentSelectBitMask(index, selectMask, &my->mode) != 0) {
        return fail(my, -15,
                    "Failure: Failed to get select bit mask for antenna idx: " + std::to_string(index));
    }
    if (accessesPerAntenna(&my->mode) && getCurrentAccessBitMask(index, accessMask, &my->mode) != 0) {
        return fail(my, -15,
                    "Failure: Failed to get access bit mask for antenna idx: " + std::to_string(index));
    }
    return 0;
}

int writeBlockSize(apply_context_s* my) {
    const std::uint8_t blockSize = my->mode.blockSize;
    return blockSize == 0 ? 0 : engineFailure(my, -16, setBlockSize(blockSize), "block size error");
}

int writeOlio(apply_context_s* my, std::size_t index) {
    const std::uint32_t antenna = my->mode.antennas[index];
    const auto position = static_cast<std::uint16_t>(index);
    const auto id = static_cast<std::uint16_t>(index + 1);
    OLIO_s olio{};
    olio.enable = 1;
    olio.transmitAntenna = static_cast<std::uint16_t>(antenna);
    olio.stopType = getOlioStopConditionType(my->mode, position);
    olio.stopValue = getOlioStopConditionValue(my->mode, position);
    if (const int code = olioReceiveAntenna(my, antenna, &olio.receiveAntenna); code != 0) {
        return code;
    }
    if (const int code = olioMasks(my, index, &olio.selectBitMask, &olio.accessBitMask); code != 0) {
        return code;
    }
    if (const int code = writeBlockSize(my); code != 0) {
        return code;
    }
    olio.transmitPower = olioPower(antenna, my->powers[index]);
    olio.inventoryIndex = my->inventoryIds[index];
    olio.linkProfileIndex = my->linkProfiles[index];
    const RXE_API_STATUS status = setOlio(id, olio);
    if (status != RXE_OK) {
        return engineFailure(my, -5, status, "olio " + std::to_string(id) + " error");
    }
    toldAccesses.enabledAccessOpsPerOlio[id] = olio.accessBitMask;
    return 0;
}

}  // namespace

int apply::writeAccesses(apply_context_s* my) {
    forgetAccesses();
    std::size_t id = 1;
    for (const ACCESS_OP_s& op : my->accesses) {
        if (op.enable != 0) {
            ++toldAccesses.accessParamsEnabledCount;
        }
        if (const int code = writeAccess(my, id, op); code != 0) {
            return code;
        }
        ++id;
    }
    disableAccessesFrom(id);
    return 0;
}

int apply::writeOlios(apply_context_s* my) {
    for (std::size_t index = 0; index < my->mode.antennas.size(); ++index) {
        if (const int code = writeOlio(my, index); code != 0) {
            return code;
        }
    }
    return 0;
}
