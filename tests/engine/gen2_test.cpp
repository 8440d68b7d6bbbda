// SPDX-License-Identifier: MIT
// A tag's flags, memory and locks, and the numbers that the air is made of,
// each against the standard's or a published table.
#include "gen2.hpp"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <set>

#include "beams.hpp"
#include "features.hpp"
#include "link_profiles.hpp"
#include "population.hpp"
#include "propagation.hpp"
#include "slots.hpp"

namespace {

using namespace rxe;

constexpr std::int64_t second = 1000000;

tag_s tagWithEpc(std::uint64_t serial) {
    tag_s tag;
    setEpc(sgtin96({}, serial), &tag);
    tag.banks[BANK_RESERVED] = {0, 0, 0, 1, 0, 0, 0, 2};
    tag.banks[BANK_TID] = {0xE2, 0x80, 0x11, 0x60};
    tag.banks[BANK_USER].assign(8, 0xFF);
    tag.poweredUntil = forEver;
    return tag;
}

// EPC Gen2 v2.0.1, table 6.29, by action: what becomes of a flag A or
// deasserted, then of one that is B or asserted, of a tag that matches; then both for one that does not.
TEST(Gen2, SelectActions) {
    const struct {
        const char *session, *sl;
    } cases[8] = {{"AABB", "++--"}, {"AAAB", "++-+"}, {"ABBB", "-+--"}, {"BAAB", "+--+"},
                  {"BBAA", "--++"}, {"BBAB", "---+"}, {"ABAA", "-+++"}, {"ABBA", "-++-"}};
    for (std::uint8_t action = 0; action < 8; ++action) {
        std::string session, sl;
        for (const bool matching : {true, false}) {
            for (const bool before : {false, true}) {
                const std::uint8_t first = matching ? 0x30 : 0x31;
                SELECT_OP_s select{1, 2, action, BANK_EPC, 0x20, 8, 0, 0, {first}};
                tag_s tag = tagWithEpc(1);
                setInventoried(2, before, 0, &tag);
                obeySelect(select, 0, &tag);
                session += inventoriedB(tag, 2, 0) ? 'B' : 'A';
                select.target = 4;
                tag.sl = before;
                obeySelect(select, 0, &tag);
                sl += tag.sl ? '+' : '-';
            }
        }
        EXPECT_EQ(session + sl, std::string(cases[action].session) + cases[action].sl) << int{action};
    }
}

TEST(Gen2, FlagsOutliveThePowerByTheirSession) {
    // Seconds with and then without power, and which flags are still B (or SL set).
    const struct {
        std::int64_t powered, dark;
        const char* left;
    } cases[] = {{0, 0, "0123L"}, {60, 0, "023L"}, {1, 0, "0123L"},
                 {0, 1, "123L"},  {1, 3, "23L"},   {0, 21, ""}};
    for (const auto& row : cases) {
        tag_s tag = tagWithEpc(1);
        for (unsigned session = 0; session < 4; ++session) {
            setInventoried(session, true, 0, &tag);
        }
        tag.sl = true;
        const std::int64_t off = row.powered * second, on = off + row.dark * second;
        tag.poweredUntil = off;
        if (row.dark != 0) {
            powerUp(on, &tag);
        }
        std::string left;
        for (unsigned session = 0; session < 4; ++session) {
            left += inventoriedB(tag, session, on) ? std::to_string(session) : "";
        }
        EXPECT_EQ(left + (tag.sl ? "L" : ""), row.left) << row.powered << " s, " << row.dark << " s";
    }
}

TEST(Gen2, LockingOneFieldLeavesTheOthers) {
    tag_s tag = tagWithEpc(1);
    EXPECT_EQ(lockMemory(0x802 | 0x401, true, &tag), TAG_OK) << "user bank, for good";
    EXPECT_EQ(lockMemory(0x800, true, &tag), TAG_LOCKED) << "cannot be undone";
    EXPECT_EQ(lockMemory(0x8020, true, &tag), TAG_OK);
    EXPECT_EQ(tag.locks, LOCK_USER | LOCK_USER >> 1 | LOCK_EPC) << "other fields stay";
}

TEST(Gen2, MemoryEndsWhereItEndsAndTheCrcFollows) {
    tag_s tag = tagWithEpc(1);
    std::vector<std::uint8_t> data;
    EXPECT_EQ(readMemory(tag, BANK_TID, 1, 0, false, &data), TAG_OK);
    EXPECT_EQ(data, (std::vector<std::uint8_t>{0x11, 0x60}));
    EXPECT_EQ(readMemory(tag, BANK_TID, 1, 2, false, &data), TAG_OVERRUN);
    EXPECT_EQ(readMemory(tag, BANK_TID, 2, 0, false, &data), TAG_OVERRUN);
    const std::uint16_t five[] = {1, 2, 3, 4, 5};
    EXPECT_EQ(writeMemory(BANK_USER, 0, five, false, &tag), TAG_OVERRUN);
    EXPECT_EQ(tag.banks[BANK_USER][0], 0xFF) << "nothing written";
    EXPECT_EQ(writeMemory(BANK_EPC, 0, {five, 1}, false, &tag), TAG_LOCKED) << "the CRC is the tag's own";
    // EPC Gen2 v1.2.0 annex F: PC 3000h and EPC 1111h 2222h ... give 1835h.
    const std::uint16_t words[] = {0x3000, 0x1111, 0x2222, 0x3333, 0x4444, 0x5555, 0x6666};
    EXPECT_EQ(writeMemory(BANK_EPC, 1, words, false, &tag), TAG_OK);
    const backscatter_s whole = backscatterOf(tag);
    EXPECT_EQ(whole.crc, 0x1835);
    EXPECT_EQ(whole.replyBits, 128U);
    // What the PC says is sent and read, also beyond the EPC that the tag came with.
    const struct {
        std::uint16_t pc, crc;
        unsigned bits;
    } lengths[] = {{0x1000, 0x968F, 32}, {0, 0xE2F0, 0}, {0xF800, 0x39E3, 496}};
    for (const auto& [pc, crc, bits] : lengths) {
        EXPECT_EQ(writeMemory(BANK_EPC, 1, {&pc, 1}, false, &tag), TAG_OK);
        EXPECT_EQ(backscatterOf(tag).epcBits, bits);
        EXPECT_EQ(backscatterOf(tag).crc, crc);
        EXPECT_EQ(readMemory(tag, BANK_EPC, 0, 0, false, &data), TAG_OK);
        EXPECT_EQ(data.size(), 4 + bits / 8);
    }
}

TEST(Air, EveryProfileKeepsToTheStandard) {
    std::size_t profiles = 0;
    std::set<std::vector<double>> different;
    std::set<long> frequencies;  // tenths of kHz
    for (std::uint16_t id = 1; id < 3000; ++id) {
        if (!isLinkProfile(id)) {
            continue;
        }
        ++profiles;
        const link_s link = linkOf(id);
        SCOPED_TRACE(id);
        EXPECT_TRUE(link.tari >= 6.25 && link.tari <= 25) << link.tari;
        EXPECT_TRUE(link.rtcal >= 2.5 * link.tari && link.rtcal <= 3 * link.tari);
        EXPECT_TRUE(link.trcal >= 1.1 * link.rtcal && link.trcal <= 3 * link.rtcal);
        EXPECT_TRUE(1000 / period(link) >= 40 && 1000 / period(link) <= 640.01);
        frequencies.insert(std::lround(10'000 / period(link)));
        different.insert({link.tari, link.rtcal, link.trcal, link.pilot * 16.0 + link.miller});
    }
    EXPECT_EQ(profiles, 84U);
    EXPECT_EQ(frequencies, (std::set<long>{400, 1600, 1706, 2133, 2740, 3200, 4267, 5000, 6400}));
    EXPECT_GE(different.size(), 72U);
}

TEST(Air, ThePhaseTurnsOnceInHalfAWavelength) {
    const auto turn = [](float metres) { return backscatterPhase(metres, 915000, 1); };
    EXPECT_NEAR(turn(3), turn(3 + 0.32764F / 2), 0.01);
    EXPECT_GT(std::abs(turn(3) - turn(3.05F)), 1.0F);
}

TEST(Air, BeamNumbersAndWhatABeamHears) {
    for (const int polarisation : {1000, 2000, 3000, 4000, 5000}) {
        std::set<std::uint16_t> ids;
        for (const std::uint16_t id : heatMapBeams(polarisation)) {
            const beam_s beam = beamOf(id);
            EXPECT_TRUE(beam.valid());
            EXPECT_EQ(beamId(beam.azimuth, beam.elevation, beam.polarisation), id);
            ids.insert(id);
        }
        EXPECT_EQ(ids.size(), 97U);
    }
    const std::array<int, 4> cases[] = {{397, 0, 0, 4000},    {325, 0, 45, 4000},   {5897, 0, 0, 5000},
                                        {5001, 0, 70, 5000},  {498, -1, -1, 0},     {1866, 15, 10, 1000},
                                        {100, -1, -1, 2000},  {5898, -1, -1, 5000}, {1896, 315, 5, 1000},
                                        {5072, 355, 70, 5000}};
    for (const auto& [id, azimuth, elevation, polarisation] : cases) {
        const beam_s beam = beamOf(static_cast<std::uint16_t>(id));
        EXPECT_EQ((std::array{id, beam.azimuth, beam.elevation, beam.polarisation}),
                  (std::array{id, azimuth, elevation, polarisation}));
    }
    const direction_s seen = directionTo({0, 0, 4}, {0, 3, 1});
    EXPECT_NEAR(seen.azimuth, 90, 0.1);
    EXPECT_NEAR(seen.elevation, 45, 0.1);
    EXPECT_NEAR(beamLoss({90, 45, 5000}, seen), 0, 0.01);
    EXPECT_NEAR(beamLoss({90, 30, 5000}, seen), 3, 0.1);
    EXPECT_NEAR(beamLoss({270, 45, 5000}, seen), 20, 0.1);
}

// The mean and the spread of what falls into a slot, against the binomial
// distribution, with means on both sides of where the method changes.
TEST(Air, SlotsAreDrawnLikeTagsWould) {
    const std::pair<std::uint32_t, double> cases[] = {
        {10, 1.0 / 16}, {200, 1.0 / 8}, {1000, 1.0 / 4}, {3, 0.5}};
    random_s random{.state = 3};
    for (const auto& [tags, probability] : cases) {
        constexpr int draws = 40000;
        double sum = 0, squares = 0;
        for (int i = 0; i < draws; ++i) {
            const double k = drawBinomial(tags, probability, &random);
            ASSERT_LE(k, tags);
            sum += k;
            squares += k * k;
        }
        const double mean = sum / draws, variance = tags * probability * (1 - probability);
        EXPECT_NEAR(mean, tags * probability, 4 * std::sqrt(variance / draws)) << tags;
        EXPECT_NEAR(squares / draws - mean * mean, variance, 0.05 * variance) << tags;
    }
    frame_s frame{.slots = 64, .waiting = 500};
    std::uint32_t drawn = 0;
    while (frame.next < frame.slots) {
        drawn += drawSlot(&frame, &random);
    }
    EXPECT_EQ(drawn, 500U) << "each tag in one slot";
}

TEST(Features, FollowModelAndVersion) {
    using enum reader_model_e;
    const struct {
        unsigned id;
        reader_model_e model;
        REL_VERSION_s firmware;
        bool has;
    } cases[] = {
        {RXE_PARAM_ANTENNA_STATE, PN8200, {1, 4, 86, 0}, false},
        {RXE_PARAM_ANTENNA_STATE, PN8200, {1, 4, 87, 0}, true},
        {RXE_PARAM_ANTENNA_CHECK, PN8200, {2, 1, 32, 0}, false},
        {RXE_PARAM_ANTENNA_CHECK, PN8200, {2, 2, 27, 0}, true},
        {RXE_PARAM_ANTENNA_CHECK, PN8200, {2, 3, 99, 0}, false},
        {RXE_PARAM_RSSI_THRESHOLD, PN8200, {2, 1, 41, 0}, true},
        {RXE_PARAM_RSSI_THRESHOLD, PN8200, {2, 2, 99, 0}, false},
        {RXE_PARAM_DYNAMIC_RANGE, PN8200, {2, 1, 46, 0}, false},
        {RXE_PARAM_DYNAMIC_RANGE, PN8200, {2, 1, 47, 0}, true},
        {RXE_PARAM_CABLE_LOSS + 3, PN8200, {2, 1, 47, 0}, true},
        {RXE_PARAM_CABLE_LOSS + 3, PN8200, {2, 1, 46, 0}, false},
        {RXE_PARAM_TX_DELAY_INTERVAL, PN8200, {2, 2, 27, 0}, false},
        {RXE_PARAM_TX_DELAY_INTERVAL, PN8200, {2, 2, 28, 0}, true},
        {RXE_PARAM_TX_DELAY_INTERVAL, PN8200, {1, 0, 0, 0}, true},
        {RXE_PARAM_RADIO_STOP2, PN5100, {2, 1, 50, 0}, false},
        {RXE_PARAM_NUM_ANTENNAS, PN5100, {1, 4, 90, 0}, true},
        {RXE_PARAM_NUM_ANTENNAS, PN5100, {2, 1, 50, 0}, false},
        {RXE_PARAM_AAR_HEIGHT, PN8200, {2, 2, 30, 0}, false},
        {RXE_PARAM_DELAY_AFTER_SELECTS, PN5100, {1, 4, 90, 0}, false},
    };
    for (const auto& row : cases) {
        const reader_s reader{row.model, row.firmware, {2, 2, 40, 0}};
        EXPECT_EQ(hasParameter(reader, static_cast<std::uint16_t>(row.id)), row.has) << &row - cases;
    }
    EXPECT_FALSE(hasParameter({PN8200, {2, 1, 50, 0}, {2, 2, 33, 0}}, RXE_PARAM_CABLE_LOSS + 1));
}

}  // namespace
