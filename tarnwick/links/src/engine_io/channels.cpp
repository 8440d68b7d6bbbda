// SPDX-License-Identifier: MIT
// The hopping table: the snapshot at the start, changes, and the return to the snapshot.
#include <atomic>
#include <limits>

#include "engine_io/channels.hpp"
#include "engine_io/parameter_io.hpp"
#include "logger.hpp"

// Written and read by the main thread. Any thread may look up the frequencies of current_channels,
// also while a channel changes, so these are written and read as atomic words.
constinit std::array<CHANNEL_s, channelTableSize> initial_channels{};
constinit std::array<CHANNEL_s, channelTableSize> current_channels{};

// Main thread only.
constinit bool initial_channel_state = false;

namespace {

using rxe_intfc::noteFailure;
using rxe_intfc::refused;
using rxe_intfc::unit;
using rxe_intfc::writeParameter;

// What the snapshot holds for a channel that the radio has disabled, so that
// writing it back is always legal: mid-band, kHz and tenths of dBm.
constexpr std::uint32_t unusedFrequency = 915250;
constexpr std::uint16_t unusedMaxPower = 100;

// Stores a channel as the engine has accepted it. Quirk: a snapshot has channel n at index n-1,
// changeChannel stores it at index n.
void noteChannel(std::size_t index, const CHANNEL_s& record) {
    CHANNEL_s& channel = current_channels[index];
    channel.enable = record.enable;
    std::atomic_ref(channel.frequency).store(record.frequency, std::memory_order_relaxed);
    channel.maxPower = record.maxPower;
}

// The record is read for its maximum power, which stays; when it cannot be read the power is 0.
RXE_API_STATUS changeChannel(std::uint8_t channel, bool enable, std::uint32_t frequency) {
    if (channel > RXE_MAX_CHANNELS) {
        return noteFailure(refused, " channel out of range");
    }
    initial_channel_state = false;
    const unsigned id = static_cast<unsigned>(RXE_PARAM_CHANNEL) + channel;
    CHANNEL_s record{};
    RXE_getParam(static_cast<unsigned short>(id), &record);
    record.enable = enable ? 1 : 0;
    if (enable) {
        record.frequency = frequency;
    }
    const RXE_API_STATUS status = writeParameter<RXE_PARAM_CHANNEL>(record, channel);
    if (status == RXE_OK) {
        noteChannel(channel, record);
    }
    return status;
}

}  // namespace

RXE_API_STATUS getInitialChannels() {
    logInfo(unit, " Getting Intial Channels ");
    for (unsigned index = 0; index < RXE_MAX_CHANNELS; ++index) {
        CHANNEL_s& channel = initial_channels[index];
        channel = {};
        const RXE_API_STATUS status =
            RXE_getParam(static_cast<unsigned short>(RXE_PARAM_CHANNEL + 1 + index), &channel);
        if (channel.enable == 0) {
            channel.frequency = unusedFrequency;
            channel.maxPower = unusedMaxPower;
        }
        noteChannel(index, channel);
        if (status != RXE_OK) {
            return noteFailure(status);
        }
    }
    return RXE_OK;
}

RXE_API_STATUS resetInitialChannels() {
    if (initial_channel_state) {
        return RXE_OK;
    }
    for (unsigned index = 0; index < RXE_MAX_CHANNELS; ++index) {
        const RXE_API_STATUS status = writeParameter<RXE_PARAM_CHANNEL>(initial_channels[index], index + 1);
        if (status != RXE_OK) {
            return status;
        }
        noteChannel(index, initial_channels[index]);
    }
    initial_channel_state = true;
    return RXE_OK;
}

RXE_API_STATUS enableChannel(std::uint8_t channel, std::uint32_t frequency) {
    logInfo(unit, " Enabling Channel ", channel);
    return changeChannel(channel, true, frequency);
}

RXE_API_STATUS disableChannel(std::uint8_t channel) {
    logInfo(unit, " Disabling Channel ", channel);
    return changeChannel(channel, false, 0);
}

std::uint32_t getChannelForChannelIdx(std::uint16_t index) {
    if (index >= current_channels.size()) {
        return 0;
    }
    return std::atomic_ref(current_channels[index].frequency).load(std::memory_order_relaxed);
}

RXE_API_STATUS get_aar_echo_info(std::uint8_t index, AAREchoResults* results, std::uint32_t* frequency) {
    *frequency = std::numeric_limits<std::uint32_t>::max();
    if (index >= current_channels.size() || current_channels[index].enable == 0) {
        return RXE_OK;
    }
    *frequency = current_channels[index].frequency;
    return rxe_intfc::readParameter<RXE_PARAM_ECHO>(results, index);
}
