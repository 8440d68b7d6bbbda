// SPDX-License-Identifier: MIT
// Numbers and texts as the JSON library itself writes them.
#include "json_values.hpp"

#include <gtest/gtest.h>

#include <array>
#include <bit>
#include <nlohmann/json.hpp>
#include <random>

namespace {

using nlohmann::json;

std::array<char, json_text::numberRoom> room;

std::string_view written(const char* end) {
    return {room.data(), static_cast<std::size_t>(end - room.data())};
}

TEST(JsonValues, TenthsOfEach16BitNumber) {
    for (int tenths = -32768; tenths <= 65535; ++tenths) {
        ASSERT_EQ(written(json_text::putTenths(tenths, room.data())), json(tenths / 10.0).dump());
    }
}

// Each channel of the band, and what else a packet may say.
TEST(JsonValues, ChannelsInMegahertz) {
    const auto check = [](std::uint32_t kilohertz) {
        ASSERT_EQ(written(json_text::putMegahertz(kilohertz, room.data())),
                  json(static_cast<double>(static_cast<float>(kilohertz)) / 1000.0).dump());
    };
    for (std::uint32_t kilohertz = 840'000; kilohertz <= 960'000; ++kilohertz) {
        check(kilohertz);
    }
    for (std::uint32_t kilohertz = 0; kilohertz < 20'000'000; kilohertz += 97) {
        check(kilohertz);
    }
    check(0xFFFFFFFF);
}

// Phases and levels are 32-bit floats: bits at random, infinities and not-a-number among them.
TEST(JsonValues, Floats) {
    std::mt19937 random(1);
    for (int i = 0; i < 300'000; ++i) {
        const auto number = static_cast<double>(std::bit_cast<float>(static_cast<std::uint32_t>(random())));
        ASSERT_EQ(written(json_text::putReal(number, room.data())), json(number).dump());
    }
}

TEST(JsonValues, TextsThatNeedNoEscaping) {
    for (int byte = 0; byte < 0x80; ++byte) {
        const std::string text(1, static_cast<char>(byte));
        std::string error;
        EXPECT_EQ(json_text::isPlain(text), json_text::jsonString(text, &error) == '"' + text + '"') << byte;
    }
    EXPECT_FALSE(json_text::isPlain("\xC3\xA9"));
}

}  // namespace
