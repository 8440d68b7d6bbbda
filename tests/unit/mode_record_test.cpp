// SPDX-License-Identifier: MIT
// The mode record: defaults, copies, what the engine set-up and the tag path
// read from it, and the numbering of beams.
#include <gmock/gmock.h>

#include <limits>
#include <regex>
#include <tuple>

#include "apply/engine_params.hpp"
#include "logger.hpp"
#include "mode/accessors.hpp"
#include "mode/beams.hpp"
#include "mode/defaults.hpp"
#include "mode/engine_records.hpp"
#include "support/temp_dir.hpp"

TEST(ModeDefaults, WhatNoRenderingShows) {
    setModelName("PN8200");
    readerFacts.max_ants = 9;
    mode_configuration_s m;
    m.userDefined = "a trace";
    m.bearingConfig = {1, QDX_BEAM_POL_e::PHI};
    EXPECT_EQ(setDefaultMode(&m), 0);
    EXPECT_EQ(m.userDefined, "");
    EXPECT_EQ(m.bearingConfig, (bearingConfig_s{0, QDX_BEAM_POL_e::PHI})) << "the one that stays";
    EXPECT_EQ(m.antennaStopCondition.value, 125);
    setModelName("QDX4400");
    readerFacts.max_ants = 0;
    std::vector<std::uint32_t> fields;
    for (const mode_type_s& type : MODE_TYPES) {
        setDefaultMode(&m);
        EXPECT_EQ(type.overlay(&m), 0);
        EXPECT_EQ(m.modeType, type.type);
        EXPECT_EQ(m.antennaStopCondition.value, 1000) << "that of the elements";
        fields.push_back(m.customFieldsBitMask);
    }
    EXPECT_THAT(fields, testing::ElementsAre(15361, 15905, 15361, 15361, 15361, 212001, 539649));
    EXPECT_EQ(m.portalDirConfig, (portalDirConfig_s{1, 15.0, 3.0, 0, QDX_BEAM_POL_e::LHCP}));
    setDefaultPortalMode(&m);
    EXPECT_EQ(m.radioStartConditions,
              (radioStartConditions_s{radio_start_type_e::GPI_WITH_RESTART, {{1, 0, 0}}}));
}

TEST(ModeRecord, CopyTakesOfAPatternOnlyWhatCounts) {
    mode_configuration_s to;
    to.selectList.resize(3);
    mode_configuration.tagFilter.pattern = {7, 2, 9};
    mode_configuration.tagFilter.patternLength = 2;
    copyModeConfiguration(&mode_configuration, &to);
    EXPECT_EQ(to.tagFilter.pattern, (decltype(to.tagFilter.pattern){7, 2}));
    EXPECT_TRUE(to.selectList.empty());
    to.tagFilter.patternLength = 200;  // more than there is room for
    copyTagFilter(&to.tagFilter, &to.tagFilter);
    EXPECT_EQ(to.tagFilter.pattern[1], 2) << "onto itself";
}

TEST(ModeAccessors, PortsAndBanksStayInsideTheirLists) {
    setModelName("PN8200");
    readerFacts.max_ants = 4;
    mode_configuration.antennaPortNames = {"dock", "gate", "belt", "door", "past"};
    std::string names;
    for (const std::uint8_t port : {0, 1, 4, 5}) {
        names += getAntennaPortMapping(port);
    }
    EXPECT_EQ(names, "dockdoor");
    mode_configuration.antennaPortNames.resize(1);
    EXPECT_EQ(getAntennaPortMapping(2), "") << "a list shorter than the reader's antennas";

    // Only a signal of 1 is high.
    const std::vector<gpi_s> gpis{{1, 1, 5}, {3, 0, 7}, {4, 2, 9}, {5, 1, 8}, {0, 1, 6}};
    EXPECT_EQ(getGPIBitMask(&gpis), 16 + 1 + 64 + 128);

    EXPECT_FALSE(isAccessEnabled(EPC_GEN2_MB_e::USER, nullptr)) << "before initMode";
    initMode();
    mode_configuration.readMemory[3] = {{0, 0}};
    EXPECT_TRUE(isAccessEnabled(EPC_GEN2_MB_e::USER, nullptr));
    EXPECT_FALSE(isAccessEnabled(EPC_GEN2_MB_e{4}, nullptr)) << "no such bank";
}

// No management server answers here: one question, one error, for all antennas.
TEST(ModeForEngine, LinkProfileWithoutARegion) {
    mode_configuration.antennas = {1, 2, 3};
    mode_configuration.environment = ENVIRONMENT_PARAMS_e::DEMO;
    mode_configuration.linkProfileList = {3, 3, 3};
    std::vector<std::uint16_t> profiles;
    const std::uint64_t errors = getErrorCount();
    EXPECT_EQ(getLinkProfile(mode_configuration, &profiles), 3U);
    EXPECT_EQ(profiles, (std::vector<std::uint16_t>{201, 201, 201}));
    EXPECT_EQ(getErrorCount() - errors, 1U);
}

TEST(ModeForEngine, LinkProfileOfRegion) {
    const float noNumber = std::numeric_limits<float>::quiet_NaN();
    // clang-format off
    const std::tuple<const char*, std::uint8_t, float, const char*, bool, int> rows[] = {
        {"PN8200", 1, 500.4F, "US", false, 508}, {"PN8200", 1, 500.5F, "US", false, 201},
        {"PN8200", 2, 600, "EU", false, 908}, {"PN8200", 0, 1200, "Japan 4W", false, 502},
        {"PN8200", 5, 500, "US", false, 201}, {"PN8200", 6, 500, "US", false, 408},
        {"PN8200", 1, noNumber, "US", false, 201}, {"PN5100-ASIC", 0, 1200, "EU", false, 1617},
        {"PN5100", 0, 1200, "EU", false, 201}, {"PN5100", 3, 1200, "Japan", false, 202},
        {"QDX4400", 4, 250, "US", true, 814}, {"QDX4400", 4, 250, "US", false, 408},
        {"QDX4400", 4, 600, "US", false, 201}, {"PN9", 1, 500, "US", false, 202}, {"PN9", 1, 501, "US", true, 201},
    };
    // clang-format on
    for (const auto& [model, environment, width, region, autoDetect, profile] : rows) {
        EXPECT_EQ(linkProfileFor(model, environment, width, region, autoDetect), profile)
            << model << " " << width << " " << region << " " << autoDetect;
    }
}

TEST(ModeForEngine, StopRules) {
    const std::tuple<antennaStopCondition_s, int, int> rows[] = {
        {{antenna_stop_type_e::GPI, 9, {200, 1, 1}}, 145, 1},  // in 8 bits
        {{antenna_stop_type_e{4}, 9, {1, 1, 50}}, 0, 0}};      // unknown type
    for (const auto& [condition, type, value] : rows) {
        mode_configuration.antennaStopCondition = condition;
        EXPECT_EQ(getOlioStopConditionType(mode_configuration, 1000), type);
        EXPECT_EQ(getOlioStopConditionValue(mode_configuration, 1000), value);
    }
    mode_configuration.antennaStopConditionList.assign(2, {});
    EXPECT_EQ(getOlioStopConditionType(mode_configuration, 2), 255);
    EXPECT_EQ(getOlioStopConditionValue(mode_configuration, 2), 65535);
}

// The mask by the number of accesses, from each of the three sources in turn.
TEST(ModeForEngine, AccessPool) {
    std::uint64_t mask = 9;
    std::vector<ACCESS_OP_s> accesses(2);
    EXPECT_EQ(getAccessParams(mode_configuration, &mask, &accesses), 0) << "a record without its rows";
    initMode();
    ACCESS_OP_s lock{};
    lock.enable = 1;
    lock.type = RXE_ACCESS_LOCK;
    for (int source = 0; source < 3; ++source) {
        for (const std::size_t count : {0, 1, 31, 32, 64, 65, 70}) {
            SCOPED_TRACE(testing::Message() << count << " from source " << source);
            mode_configuration.readMemory[1].assign(count / 2, {4, 0});
            mode_configuration.readMemory[3].assign(count - count / 2, {0x12, 3});
            mode_configuration.accessList.assign(source == 1 ? count : 0, {});
            mode_configuration.uniqueAccesses.assign(count, lock);
            mode_configuration.accessBitMasks.assign(source == 2 ? 1 : 0, 1);
            EXPECT_EQ(getAccessParams(mode_configuration, &mask, &accesses), count > 64 ? -1 : 0);
            EXPECT_EQ(mask, count > 31 ? ~0ULL : (1ULL << count) - 1);
            ASSERT_EQ(accesses.size(), std::min<std::size_t>(count, 65));
            if (count > 0) {
                const ACCESS_OP_s& last = accesses.back();
                EXPECT_EQ((std::vector<int>{last.enable, last.type, last.membank, last.wordPointer,
                                            last.wordCount}),
                          source == 0 ? (std::vector{1, 1, 3, 0x12, 0x303})
                                      : (std::vector{1, source == 2 ? 4 : 1, 0, 0, 0}));
            }
        }
    }
    ACCESS_CMD_S write{};
    write.type = access_cmd_type_e::WRITE;
    write.writeData.resize(256);
    EXPECT_EQ(accessStructToAccessOpStruct(&write, &lock), -1) << "more words than the record has";
}

// Every row of the tables in docs/beams.md, whose second grid is the coarse one; the
// fine grid there and back in every polarization.
TEST(Beams, AreThoseOfTheDocument) {
    const std::string text = readTextFile(TARNWICK_SOURCE_DIR "/docs/beams.md");
    const std::regex row(R"(\| (\d+) to (\d+) \| (\d+) \| 0 to (\d+) by (\d+) \|)");
    int beams = 0;
    for (std::sregex_iterator match(text.begin(), text.end(), row), end; match != end; ++match) {
        const auto number = [&](int group) { return std::stoi((*match)[group]); };
        const bool coarse = static_cast<std::size_t>(match->position()) > text.find("## Coarse");
        for (int offset = number(1); offset <= number(2); ++offset, ++beams) {
            const auto az = static_cast<short>((offset - number(1)) * number(5));
            const auto el = static_cast<short>(number(3));
            for (int base = coarse ? 0 : 1000; base <= (coarse ? 300 : 5000); base += coarse ? 100 : 1000) {
                const auto id = static_cast<short>(base + offset);
                EXPECT_EQ(beam_to_az(id), az) << id;
                EXPECT_EQ(beam_to_el(id), el) << id;
                EXPECT_EQ(coarse ? id : az_el_pol_to_beam(az, el, beam_to_pol(id)), id);
            }
        }
        EXPECT_EQ((number(2) - number(1)) * number(5) % 360, number(4));
    }
    EXPECT_EQ(beams, 896 + 96);
}

TEST(Beams, OddIdsAndDirections) {
    const std::tuple<short, short, short, std::uint32_t> ids[] = {
        {0, -1, -1, 1000},    {1, 0, 60, 1000},  {24, 345, 60, 1000}, {25, 0, 45, 1000},
        {96, 345, 15, 1000},  {97, 0, 0, 1000},  {98, -1, -1, 1000},  {100, -1, -1, 2000},
        {397, 0, 0, 4000},    {425, 0, 45, 0},   {1000, -1, -1, 0},   {2000, -1, 70, 2000},
        {5898, -1, -1, 5000}, {6000, -1, 70, 0}, {6001, 0, 70, 0},    {-1, -1, -1, 0}};
    for (const auto& [id, az, el, pol] : ids) {
        EXPECT_EQ(beam_to_az(id), az) << id;
        EXPECT_EQ(beam_to_el(id), el) << id;
        EXPECT_EQ(static_cast<std::uint32_t>(beam_to_pol(id)), pol) << id;
    }
    const std::tuple<short, short, std::uint32_t, int> directions[] = {
        {15, 5, 1000, 0},     {15, 10, 1000, 1866}, {360, 0, 5000, 5897}, {360, 5, 5000, 0},
        {360, 10, 5000, 0},   {7, 0, 5000, 0},      {0, 71, 5000, 0},     {0, 45, 1500, 0},
        {0, 45, 0, 0},        {0, 45, 6000, 0},     {0, 12, 2000, 2793},  {0, 15, 2000, 2793},
        {0, 8, 2000, 2865},   {0, 1, 2000, 2937},   {90, 0, 3000, 3897},  {5, 7, 5000, 5866},
        {160, 9, 5000, 5897}, {165, 6, 5000, 5898}, {320, 2, 4000, 5001}, {120, 8, 5000, 5889}};
    for (const auto& [az, el, pol, id] : directions) {
        EXPECT_EQ(az_el_pol_to_beam(az, el, QDX_BEAM_POL_e{pol}), id) << az << " " << el;
    }
    std::string word;
    EXPECT_EQ(getPolarizationString(QDX_BEAM_POL_e::NONE, &word), -1);
}
