// SPDX-License-Identifier: MIT
#include "plan.hpp"

#include <algorithm>

#include "link_profiles.hpp"

namespace rxe {
namespace {

void gatherOlios(const world_s& world, const params_s& params, plan_s* plan) {
    forEachEnabled<OLIO_s>(params, RXE_PARAM_OLIO, [&](unsigned id, const OLIO_s& olio) {
        plan->olios.push_back(planOlio(world, params, static_cast<std::uint16_t>(id), olio));
        plan->inventoryMissing = plan->inventoryMissing || plan->olios.back().inventory.enable == 0;
    });
}

// What the olios choose from by bit masks and indices.
void gatherLists(const params_s& params, plan_s* plan) {
    forEachEnabled<CHANNEL_s>(params, RXE_PARAM_CHANNEL, [&](unsigned n, const CHANNEL_s& channel) {
        plan->channels.push_back({static_cast<std::uint16_t>(n), channel.frequency, channel.maxPower});
    });
    forEachEnabled<SELECT_OP_s>(params, RXE_PARAM_SELECT, [&](unsigned id, const SELECT_OP_s& select) {
        plan->selects.push_back({static_cast<std::uint8_t>(id), select});
    });
    forEachEnabled<ACCESS_OP_s>(params, RXE_PARAM_ACCESS, [&](unsigned id, const ACCESS_OP_s& access) {
        plan->accesses.push_back({static_cast<std::uint8_t>(id), access});
    });
    forEachEnabled<REPORT_FILTER_ID_s>(
        params, RXE_PARAM_ID_FILTER,
        [&](unsigned, const REPORT_FILTER_ID_s& filter) { plan->idFilters.push_back(filter); });
}

}  // namespace

// An antenna id above maxPorts that is not a beam has no cable, and transmits nothing.
planned_olio_s planOlio(const world_s& world, const params_s& params, std::uint16_t id, const OLIO_s& olio) {
    const unsigned antenna = olio.transmitAntenna;
    planned_olio_s planned{.id = id,
                           .olio = olio,
                           .beam = isBeam(world.model, olio.transmitAntenna),
                           .link = linkOf(olio.linkProfileIndex)};
    if (!planned.beam && antenna <= maxPorts) {
        planned.cableLoss = recordOf<std::uint8_t>(params, RXE_PARAM_CABLE_LOSS + antenna);
        if (olio.receiveAntenna <= maxPorts) {
            planned.receiveLoss =
                recordOf<std::uint8_t>(params, RXE_PARAM_CABLE_LOSS + unsigned{olio.receiveAntenna});
        }
    }
    if (olio.inventoryIndex != 0) {
        planned.inventory = recordOf<INVENTORY_OP_s>(params, RXE_PARAM_INVENTORY + olio.inventoryIndex);
    }
    return planned;
}

plan_s gatherPlan(const world_s& world, params_s* params) {
    const std::lock_guard lock(params->mutex);
    plan_s plan;
    plan.generation = params->generation.load(std::memory_order_relaxed);
    gatherOlios(world, *params, &plan);
    gatherLists(*params, &plan);
    plan.stop = recordOf<PER_RADIO_STOP2_s>(*params, RXE_PARAM_RADIO_STOP2);
    plan.start = recordOf<GPIO_START2_s>(*params, RXE_PARAM_GPIO_START2);
    plan.lastReport = recordOf<REPORT_FILTER_LAST_REPORT_s>(*params, RXE_PARAM_LAST_REPORT);
    plan.fields = recordOf<std::uint32_t>(*params, RXE_PARAM_CUSTOM_FIELDS);
    plan.rssiThreshold = recordOf<std::int8_t>(*params, RXE_PARAM_RSSI_THRESHOLD);
    plan.autorestart = recordOf<std::uint8_t>(*params, RXE_PARAM_AUTORESTART);
    plan.hopPerRound = recordOf<std::uint8_t>(*params, RXE_PARAM_HOP_PER_ROUND) != 0;
    const auto txDelay = recordOf<std::uint16_t>(*params, RXE_PARAM_TX_DELAY_INTERVAL);
    // Low byte the type, high byte the milliseconds.
    plan.txDelayType = static_cast<std::uint8_t>(txDelay);
    plan.txDelayMs = static_cast<std::uint8_t>(txDelay >> 8);
    plan.delayAfterSelects = recordOf<std::uint16_t>(*params, RXE_PARAM_DELAY_AFTER_SELECTS);
    // 0 means that the host has not set one.
    plan.blockSize = std::max(recordOf<std::uint8_t>(*params, RXE_PARAM_BLOCK_SIZE), std::uint8_t{1});
    plan.dynamicRange = recordOf<std::uint8_t>(*params, RXE_PARAM_DYNAMIC_RANGE);
    plan.antennaCount = recordOf<std::uint16_t>(*params, RXE_PARAM_NUM_ANTENNAS);
    plan.peakThreshold = recordOf<std::uint8_t>(*params, RXE_PARAM_PEAK_THRESHOLD);
    plan.staticThreshold = recordOf<std::uint8_t>(*params, RXE_PARAM_STATIC_V_DYNAMIC) != 0;
    plan.centreOfMass = recordOf<std::uint8_t>(*params, RXE_PARAM_MONO_OR_COM) != 0;
    plan.arrayHeight = recordOf<std::uint16_t>(*params, RXE_PARAM_AAR_HEIGHT);
    plan.tagHeight = recordOf<std::uint16_t>(*params, RXE_PARAM_TAG_HEIGHT);
    return plan;
}

std::int16_t powerOn(const planned_channel_s& channel, const OLIO_s& olio) {
    const int most = channel.maxPower == 0 ? olio.transmitPower : channel.maxPower;
    return static_cast<std::int16_t>(std::min<int>(olio.transmitPower, most));
}

bool sendsSelect(const planned_olio_s& planned, const planned_select_s& select) {
    return ((planned.olio.selectBitMask >> (select.id - 1)) & 1) != 0;
}

double selectTime(const link_s& link, const SELECT_OP_s& select) {
    return commandTime(link, select.enable == 1 ? selectCommand(select.length) : challengeCommand) + t4(link);
}

}  // namespace rxe
