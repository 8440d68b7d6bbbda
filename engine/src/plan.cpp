// SPDX-License-Identifier: MIT
#include "plan.hpp"

namespace rxe {
namespace {

constexpr unsigned MAX_ID_FILTERS = RXE_PARAM_AUTORESTART - RXE_PARAM_ID_FILTER - 1;
constexpr std::uint16_t MAX_PORTS = 16;  // antenna numbers above are beams of an array

void gatherOlios(const params_s& params, plan_s* plan) {
    const auto connected = recordOf<std::uint16_t>(params, RXE_PARAM_ANTENNA_STATE);
    for (unsigned id = 1; id <= RXE_MAX_OLIOS; ++id) {
        const auto olio = recordOf<OLIO_s>(params, RXE_PARAM_OLIO + id);
        if (olio.enable == 0) {
            continue;
        }
        planned_olio_s planned{static_cast<std::uint16_t>(id), olio};
        const unsigned antenna = olio.transmitAntenna;
        const bool isPort = antenna >= 1 && antenna <= MAX_PORTS;
        planned.connected = !isPort || ((connected >> (antenna - 1)) & 1) != 0;
        planned.cableLoss =
            isPort ? recordOf<std::uint8_t>(params, RXE_PARAM_CABLE_LOSS + antenna) : std::uint8_t{0};
        const bool hasSet =
            olio.inventoryIndex != 0 &&
            recordOf<INVENTORY_OP_s>(params, RXE_PARAM_INVENTORY + olio.inventoryIndex).enable != 0;
        plan->inventoryMissing = plan->inventoryMissing || !hasSet;
        plan->olios.push_back(planned);
    }
}

void gatherLists(const params_s& params, plan_s* plan) {
    for (unsigned n = 1; n <= RXE_MAX_CHANNELS; ++n) {
        const auto channel = recordOf<CHANNEL_s>(params, RXE_PARAM_CHANNEL + n);
        if (channel.enable != 0) {
            plan->channels.push_back({static_cast<std::uint16_t>(n), channel.frequency});
        }
    }
    for (unsigned id = 1; id <= RXE_MAX_ACCESSES; ++id) {
        const auto access = recordOf<ACCESS_OP_s>(params, RXE_PARAM_ACCESS + id);
        if (access.enable != 0) {
            plan->accesses.push_back({static_cast<std::uint8_t>(id), access});
        }
    }
    for (unsigned id = 1; id <= MAX_ID_FILTERS; ++id) {
        const auto filter = recordOf<REPORT_FILTER_ID_s>(params, RXE_PARAM_ID_FILTER + id);
        if (filter.enable != 0) {
            plan->idFilters.push_back(filter);
        }
    }
}

}  // namespace

plan_s gatherPlan(params_s* params) {
    const std::lock_guard lock(params->mutex);
    plan_s plan;
    plan.generation = params->generation.load(std::memory_order_relaxed);
    gatherOlios(*params, &plan);
    gatherLists(*params, &plan);
    plan.stop = recordOf<PER_RADIO_STOP2_s>(*params, RXE_PARAM_RADIO_STOP2);
    plan.start = recordOf<GPIO_START2_s>(*params, RXE_PARAM_GPIO_START2);
    plan.lastReport = recordOf<REPORT_FILTER_LAST_REPORT_s>(*params, RXE_PARAM_LAST_REPORT);
    plan.fields = recordOf<std::uint32_t>(*params, RXE_PARAM_CUSTOM_FIELDS);
    plan.rssiThreshold = recordOf<std::int8_t>(*params, RXE_PARAM_RSSI_THRESHOLD);
    plan.autorestart = recordOf<std::uint8_t>(*params, RXE_PARAM_AUTORESTART);
    plan.hopPerRound = recordOf<std::uint8_t>(*params, RXE_PARAM_HOP_PER_ROUND) != 0;
    const auto txDelay = recordOf<std::uint16_t>(*params, RXE_PARAM_TX_DELAY_INTERVAL);
    plan.txDelayType = static_cast<std::uint8_t>(txDelay);
    plan.txDelayMs = static_cast<std::uint8_t>(txDelay >> 8);
    return plan;
}

}  // namespace rxe
