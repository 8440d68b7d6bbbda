// SPDX-License-Identifier: MIT
// The parameters with which the benchmarks run the engine on antenna 1.
#pragma once

#include <cstdint>

#include "rxe.h"

// Session 2 and both flags in turn, so that every tag is in every round.
inline INVENTORY_OP_s everyTagInventory(std::uint8_t initialQ) {
    INVENTORY_OP_s inventory = {};
    inventory.enable = inventory.protocol = 1;
    inventory.session = inventory.target = 2;
    inventory.initialQ = initialQ;
    return inventory;
}

// 30 dBm with the first inventory set.
inline OLIO_s firstAntennaOlio(std::uint8_t stopType, std::uint16_t stopValue, std::uint16_t linkProfile) {
    OLIO_s olio = {};
    olio.enable = olio.inventoryIndex = 1;
    olio.transmitAntenna = olio.receiveAntenna = 1;
    olio.stopType = stopType;
    olio.stopValue = stopValue;
    olio.transmitPower = 300;
    olio.linkProfileIndex = linkProfile;
    return olio;
}
