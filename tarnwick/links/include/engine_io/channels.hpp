// SPDX-License-Identifier: MIT
// The hopping table: the snapshot at the start, changes, and the return to the snapshot.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "rxe.h"

// The channel table as found at start, and as this program believes it to be.
// Quirk: after the snapshot channel n is at n-1; enableChannel and disableChannel
// write at n, for which the last entry is there. Main thread only; another
// thread asks getChannelForChannelIdx.
inline constexpr std::size_t channelTableSize = RXE_MAX_CHANNELS + 1;
extern std::array<CHANNEL_s, channelTableSize> initial_channels;
extern std::array<CHANNEL_s, channelTableSize> current_channels;

// Whether current_channels still equals the start-up table. Main thread.
extern bool initial_channel_state;

// Fills initial_channels and current_channels from the radio. 0 or the status
// of the first failing read.
RXE_API_STATUS getInitialChannels();

// Channels 1 to 127, frequency in kHz. A channel above 127 is refused with
// status 1. The maximum power of the channel does not change.
RXE_API_STATUS enableChannel(std::uint8_t channel, std::uint32_t frequency);
RXE_API_STATUS disableChannel(std::uint8_t channel);
// Writes the start-up table back if anything has changed it.
RXE_API_STATUS resetInitialChannels();

// Frequency in kHz at an index of current_channels; 0 past its end. Any thread.
std::uint32_t getChannelForChannelIdx(std::uint16_t index);

// Echo results of the channel at `index` of the array reader. *frequency is in kHz. For a channel
// that is not enabled it is all ones, *results does not change, and the result is 0.
RXE_API_STATUS get_aar_echo_info(std::uint8_t index, AAREchoResults* results, std::uint32_t* frequency);
