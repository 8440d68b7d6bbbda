// SPDX-License-Identifier: MIT
#include "olios.hpp"

#include "link_profiles.hpp"

namespace rxe {
namespace {

// Sets the receiving side: the antenna that transmits, another port, another beam, or all beams
// of a polarisation.
void listenWith(const planned_olio_s& planned, carrier_s* carrier) {
    const std::uint16_t antenna = planned.olio.receiveAntenna;
    carrier->listening = carrier->direction;
    if (planned.beam && isPattern(antenna)) {
        carrier->allBeams = true;
        if (antenna > patternBase) {
            carrier->listening.polarisation = (antenna - patternBase) * 1000;
        }
    } else if (planned.beam) {
        carrier->listening = beamOf(antenna);
    } else if (antenna != carrier->antenna && antenna <= maxPorts) {
        carrier->receiver = antenna;
        carrier->receiveLoss = planned.receiveLoss / 10.0;
    }
}

}  // namespace

active_olio_s activate(const world_s& world, const plan_s& plan, const planned_olio_s& planned) {
    active_olio_s olio;
    carrier_s& carrier = olio.field.carrier;
    // A port that the reader does not have radiates nothing, like port 0.
    const bool fitted = planned.beam || planned.olio.transmitAntenna <= plan.antennaCount;
    carrier.antenna = fitted ? planned.olio.transmitAntenna : std::uint16_t{0};
    carrier.beam = planned.beam;
    carrier.direction = planned.beam ? beamOf(planned.olio.transmitAntenna) : beam_s{};
    carrier.power = planned.olio.transmitPower / 10.0;
    carrier.cableLoss = carrier.receiveLoss = planned.cableLoss / 10.0;
    listenWith(planned, &carrier);
    olio.field.changes = world.changes - 1;
    // A high dynamic range costs 3 dB of sensitivity, a low one gains 3 dB.
    olio.sensitivity = receiverSensitivity(planned.link) + (plan.dynamicRange - 1) * 3.0;
    olio.wantsB = planned.inventory.target == 1;
    return olio;
}

}  // namespace rxe
