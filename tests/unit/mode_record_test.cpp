// SPDX-License-Identifier: MIT
// The mode record: defaults, copies, what the engine set-up and the tag path
// read from it, and the numbering of beams.
#include <gtest/gtest.h>

#include <cstring>
#include <limits>
#include <set>
#include <tuple>

#include "logger.hpp"
#include "mode_config.hpp"
#include "rxe_intfc.hpp"
#include "util.hpp"

namespace {
using u32s = std::vector<std::uint32_t>;

void becomeReader(const char* model, std::uint16_t antennas) {
    modelName = model;
    max_ants = antennas;
}

ACCESS_OP_s accessOfType(std::uint8_t type) {
    ACCESS_OP_s op{};
    op.enable = 1;
    op.type = type;
    return op;
}

}  // namespace

TEST(ModeDefaults, ByModel) {
    constexpr auto noTags = antenna_delay_type_e::NO_TAGS, unique = antenna_delay_type_e::NO_UNIQUE_TAGS;
    struct row_s {
        const char* model;
        std::uint16_t maxAnts;
        u32s antennas;
        std::int16_t power;
        std::uint16_t stopValue;
        antenna_delay_type_e delay;
    };
    const u32s beams(DEFAULT_BEAMS_QDX.begin(), DEFAULT_BEAMS_QDX.end());
    const row_s rows[] = {
        {"PN5100", 4, {1, 2, 3, 4}, 270, 250, noTags},
        {"PN5100-ASIC", 2, {1, 2}, 270, 500, unique},  // another model
        {"PN8200", 9, {1, 2, 3, 4, 5, 6, 7, 8, 9}, 270, 125, unique},
        {"QDX4400", 2, beams, 360, 500, unique},  // the stop value is that of the elements
        {"", 0, {}, 270, 1000, unique},
    };
    EXPECT_EQ(beams[0], 397U);
    EXPECT_EQ(beams[37], 361U);
    for (const row_s& row : rows) {
        SCOPED_TRACE(row.model);
        becomeReader(row.model, row.maxAnts);
        mode_configuration_s m;
        EXPECT_EQ(setDefaultMode(&m), 0);
        EXPECT_EQ(m.antennas, row.antennas);
        EXPECT_EQ(m.transmitPowerX10, row.power);
        EXPECT_EQ(m.antennaStopCondition.value, row.stopValue);
        EXPECT_EQ(m.delayBetweenAntennaCycles, (delay_between_antenna_cycles_s{row.delay, 75}));

        mode_configuration_s used;
        used.userDefined = "text";
        used.readMemory.resize(5);
        used.bearingConfig = {1, QDX_BEAM_POL_e::PHI};
        setDefaultMode(&used);
        EXPECT_EQ(used.bearingConfig, (bearingConfig_s{0, QDX_BEAM_POL_e::PHI})) << "the one that stays";
        EXPECT_TRUE(used.userDefined.empty() && used.readMemory == m.readMemory) << "a trace";
    }
}

TEST(ModeDefaults, ByType) {
    constexpr auto forEver = std::numeric_limits<std::uint32_t>::max();
    const struct {
        const char* word;
        std::uint32_t customFields;
        bool reportAntenna;
        std::uint32_t filterType, filterDuration;
        std::uint8_t session;
        std::uint32_t firstAntenna, lastAntenna;
    } rows[] = {
        {"SIMPLE", 15361, false, 0, forEver, 1, 397, 361},
        {"INVENTORY", 15905, true, 1, 60, 1, 397, 361},
        {"PORTAL", 15361, true, 1, forEver, 1, 397, 361},
        {"CONVEYOR", 15361, true, 1, forEver, 1, 397, 361},
        {"CUSTOM", 15361, false, 0, forEver, 1, 397, 361},
        {"BEARING", 212001, true, 2, 0, 0, 5897, 5613},
        {"PORTAL_DIRECTIONALITY", 539649, false, 2, 0, 0, 5897, 5613},
    };
    becomeReader("QDX4400", 14);
    ASSERT_EQ(std::size(rows), MODE_TYPES.size());
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        const auto& row = rows[i];
        SCOPED_TRACE(row.word);
        mode_configuration_s m;
        setDefaultMode(&m);
        EXPECT_EQ(MODE_TYPES[i].overlay(&m), 0);
        EXPECT_EQ(static_cast<std::size_t>(m.modeType), i);
        EXPECT_EQ(m.modeTypeName, row.word);
        EXPECT_EQ(m.customFieldsBitMask, row.customFields);
        EXPECT_EQ(m.reportAntenna, row.reportAntenna);
        EXPECT_EQ(m.reportFilter,
                  (reportFilter_s{report_filter_type_e{row.filterType}, row.filterDuration, {}}));
        EXPECT_EQ(m.query.session, row.session);
        EXPECT_EQ(m.antennas.front(), row.firstAntenna);
        EXPECT_EQ(m.antennas.back(), row.lastAntenna);
        const bool is[] = {i == 1, i == 2, i == 5, i == 6};
        EXPECT_EQ(m.inventoryInterval,
                  (is[0] ? inventoryInterval_s{interval_unit_e::MINUTES, 1} : inventoryInterval_s{}));
        EXPECT_EQ(m.portalConfig, (is[1] ? portalConfig_s{{1, 0, 0}, 3} : portalConfig_s{}));
        EXPECT_EQ(m.radioStartConditions,
                  (is[1] ? radioStartConditions_s{radio_start_type_e::GPI_WITH_RESTART, {{1, 0, 0}}}
                         : radioStartConditions_s{radio_start_type_e::NONE, {}}));
        EXPECT_EQ(m.radioStopConditions, (radioStopConditions_s{0, 0, 0, std::uint16_t(is[1] ? 3 : 0), {}}));
        EXPECT_EQ(m.bearingConfig, (is[2] ? bearingConfig_s{1, QDX_BEAM_POL_e::LHCP} : bearingConfig_s{}));
        EXPECT_EQ(m.portalDirConfig,
                  (is[3] ? portalDirConfig_s{1, 15.0, 3.0, 0, QDX_BEAM_POL_e::LHCP} : portalDirConfig_s{}));
    }
}

TEST(ModeRecord, CopyTakesOfAPatternOnlyWhatCounts) {
    mode_configuration_s to;
    to.selectList.resize(3);
    mode_configuration.tagFilter = {
        1, filter_match_e::REGEX, {}, "e2.*", std::make_shared<std::regex>(), {7, 2, 9}, 2};
    copyModeConfiguration(&mode_configuration, &to);
    EXPECT_EQ(to.tagFilter.pattern, (decltype(to.tagFilter.pattern){7, 2}));
    EXPECT_EQ(to.tagFilter.regex, mode_configuration.tagFilter.regex);
    EXPECT_TRUE(to.selectList.empty());
    to.tagFilter.patternLength = 200;  // more than there is room for
    copyTagFilter(&to.tagFilter, &to.tagFilter);
    EXPECT_EQ(to.tagFilter.pattern[1], 2) << "onto itself";

    tagFilter_s filter;
    getTagFilter(&filter);
    EXPECT_EQ(filter.value, "e2.*");
    EXPECT_TRUE(filter.regex == nullptr && filter.patternLength == 0);
}

TEST(ModeAccessors, PortNamesStayInsideTheList) {
    becomeReader("PN8200", 4);
    mode_configuration.antennaPortNames = {"dock", "gate", "belt", "door", "past"};
    EXPECT_EQ(getAntennaPortMapping(0) + getAntennaPortMapping(1) + getAntennaPortMapping(4) +
                  getAntennaPortMapping(5),
              "dockdoor");
    mode_configuration.antennaPortNames.resize(1);
    EXPECT_EQ(getAntennaPortMapping(2), "") << "a list shorter than the reader's antennas";
}

TEST(ModeAccessors, MasksAndIndices) {
    const std::vector<gpi_s> gpis{{1, 1, 5}, {3, 0, 7}, {3, 1, 9}, {5, 1, 8}, {0, 1, 6}};
    EXPECT_EQ(getGPIBitMask(&gpis), 16 + 1 + 64 + 4);
    EXPECT_EQ(getGPIHoldTime(3, &gpis), 7);
    EXPECT_EQ(getGPIHoldTime(2, &gpis), 0);
    mode_configuration.portalConfig.startTrigger = {.port = 4, .signal = 2};
    EXPECT_EQ(getPortalConfigGpioBitMask(), 128) << "only a signal of 1 is high";

    EXPECT_FALSE(isAccessEnabled(EPC_GEN2_MB_e::USER, nullptr)) << "before initMode";
    initMode();
    mode_configuration.readMemory[3] = {{0, 0}};
    EXPECT_TRUE(isAccessEnabled(EPC_GEN2_MB_e::USER, nullptr));
    EXPECT_FALSE(isAccessEnabled(EPC_GEN2_MB_e{4}, nullptr)) << "no such bank";
    EXPECT_TRUE(isAnyAccessEnabled());
}

// No management server answers here: one question, one error, for all antennas.
TEST(ModeForEngine, LinkProfileWithoutARegion) {
    mode_configuration.antennas = {1, 2, 3};
    mode_configuration.environment = ENVIRONMENT_PARAMS_e::DEMO;
    mode_configuration.linkProfileList = {3, 3, 3};
    std::vector<std::uint16_t> profiles;
    const std::uint64_t errors = getErrorCount();
    EXPECT_EQ(getLinkProfile(&profiles), 3U);
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
    const struct {
        const char* legend;
        antennaStopCondition_s condition;
        int type, value;
    } rows[] = {
        {"rounds", {antenna_stop_type_e::INVENTORY_COUNT, 4, {}}, 1, 4},
        {"port 1 high", {antenna_stop_type_e::GPI, 9, {1, 1, 50}}, 3, 50},
        {"in 8 bits", {antenna_stop_type_e::GPI, 9, {200, 1, 1}}, 145, 1},
        {"unknown type", {antenna_stop_type_e{4}, 9, {1, 1, 50}}, 0, 0},
    };
    for (const auto& row : rows) {
        mode_configuration.antennaStopCondition = row.condition;
        EXPECT_EQ(getOlioStopConditionType(1000), row.type) << row.legend;
        EXPECT_EQ(getOlioStopConditionValue(1000), row.value) << row.legend;
    }
    mode_configuration.antennaStopConditionList.resize(2);
    EXPECT_EQ(getOlioStopConditionType(2), 255);
    EXPECT_EQ(getOlioStopConditionValue(2), 65535);
}

// The mask by the number of accesses, from each of the three sources in turn.
TEST(ModeForEngine, AccessPool) {
    initMode();
    for (int source = 0; source < 3; ++source) {
        for (const std::size_t count : {0, 1, 31, 32, 64, 65, 70}) {
            SCOPED_TRACE(testing::Message() << count << " from source " << source);
            mode_configuration.readMemory[1].assign(count / 2, {4, 0});
            mode_configuration.readMemory[3].assign(count - count / 2, {0x12, 3});
            mode_configuration.accessList.assign(source == 1 ? count : 0, {});
            mode_configuration.uniqueAccesses.assign(count, accessOfType(4));
            mode_configuration.accessBitMasks.assign(source == 2 ? 1 : 0, 1);
            std::vector<ACCESS_OP_s> accesses(2);
            std::uint64_t mask = 9;
            EXPECT_EQ(getAccessParams(&mask, &accesses), count > 64 ? -1 : 0);
            EXPECT_EQ(mask, count > 31 ? ~0ULL : (1ULL << count) - 1);
            ASSERT_EQ(accesses.size(), std::min<std::size_t>(count, 65));
            if (count > 0) {
                const ACCESS_OP_s& last = accesses.back();
                const std::vector<int> seen{last.enable, last.type, last.membank, last.wordPointer,
                                            last.wordCount};
                const std::vector<int> read{1, 1, 3, 0x12, 0x303};
                EXPECT_EQ(seen, source == 0 ? read : (std::vector{1, source == 2 ? 4 : 1, 0, 0, 0}));
            }
        }
    }
    mode_configuration = {};
    std::vector<ACCESS_OP_s> accesses;
    std::uint64_t mask = 9;
    EXPECT_EQ(getAccessParams(&mask, &accesses), 0) << "a record without its rows";
    EXPECT_EQ(mask, 0U);
}

TEST(ModeForEngine, AccessAsTheEngineTakesIt) {
    using enum access_cmd_type_e;
    const std::vector<std::uint16_t> one{0xBEEF}, three{1, 2, 3}, tooMany(256, 1);
    // clang-format off
    const struct {
        ACCESS_CMD_S access;
        const char* record;  // its first 16 bytes; empty: refused
    } rows[] = {
        {{.type = READ, .readMembank = 2, .readWordPointer = 9, .readWordCount = 6, .writeData = {}},
         "0101000002000900" "0606000000000000"},
        {{.type = WRITE, .writeMembank = 3, .writeWordPointer = 8, .writeData = one},
         "0102000003000800" "efbe000000000000"},
        {{.type = WRITE, .writeMembank = 1, .writeWordPointer = 2, .writeData = three},
         "010b000001000200" "0300010002000300"},
        {{.type = WRITE, .writeMembank = 3, .writeBlockSize = 4, .writeData = one},
         "0106000003000000" "0100efbe00000000"},
        {{.type = ACCESS, .writeData = {}, .accessPassword = 0x11223344}, "0105000044332211" "0000000000000000"},
        {{.type = LOCK, .writeData = {}, .lockPayload = 0x80200}, "0104000000020800" "0000000000000000"},
        {{.type = KILL, .writeData = {}, .killPassword = 0xCAFE0001}, "010300000100feca" "0000000000000000"},
        {{.type = WRITE, .writeData = {}}, ""},
        {{.type = WRITE, .writeData = tooMany}, ""},
    };
    // clang-format on
    for (const auto& row : rows) {
        SCOPED_TRACE(row.record);
        ACCESS_OP_s op;
        std::memset(&op, 0x5A, sizeof op);
        const bool refused = row.record[0] == 0;
        EXPECT_EQ(accessStructToAccessOpStruct(&row.access, &op), refused ? -1 : 0);
        std::string seen;
        appendHex(reinterpret_cast<const std::uint8_t*>(&op), 16, &seen);
        EXPECT_EQ(seen, refused ? std::string("5a5a5a5a5a5a5a5a5a5a5a5a5a5a5a5a") : row.record);
        EXPECT_EQ(op.stopCount, refused ? 0x5A5A : 0);
    }
}

TEST(Beams, FineGridRoundTrip) {
    std::set<int> ids;
    for (const int polarization : {1000, 2000, 3000, 4000, 5000}) {
        const auto pol = static_cast<QDX_BEAM_POL_e>(polarization);
        for (short el = 0; el <= 70; el += 5) {
            const short step = el == 0 ? 360 : el == 5 ? 45 : el == 10 ? 15 : 5;
            for (short az = 0; az < 360; az += step) {
                const auto id = static_cast<short>(az_el_pol_to_beam(az, el, pol));
                EXPECT_TRUE(ids.insert(id).second) << id;
                EXPECT_EQ(beam_to_az(id), az) << id;
                EXPECT_EQ(beam_to_el(id), el) << id;
                EXPECT_EQ(beam_to_pol(id), pol) << id;
            }
        }
        EXPECT_TRUE(ids.contains(polarization + 1) && ids.contains(polarization + 897));
    }
    EXPECT_EQ(ids.size(), 5U * 897);
}

TEST(Beams, IdsOfBothGrids) {
    // clang-format off
    const struct {
        short id, az, el;
        std::uint32_t pol;
    } rows[] = {
        {0, -1, -1, 1000}, {1, 0, 60, 1000}, {24, 345, 60, 1000}, {25, 0, 45, 1000},
        {96, 345, 15, 1000}, {97, 0, 0, 1000}, {98, -1, -1, 1000}, {100, -1, -1, 2000},
        {397, 0, 0, 4000}, {425, 0, 45, 0}, {1000, -1, -1, 0}, {1001, 0, 70, 1000},
        {2000, -1, 70, 2000}, {5864, 355, 15, 5000}, {5888, 345, 10, 5000}, {5896, 315, 5, 5000},
        {5897, 0, 0, 5000}, {5898, -1, -1, 5000}, {6000, -1, 70, 0}, {6001, 0, 70, 0},
        {-1, -1, -1, 0},
    };
    // clang-format on
    for (const auto& row : rows) {
        EXPECT_EQ(beam_to_az(row.id), row.az) << row.id;
        EXPECT_EQ(beam_to_el(row.id), row.el) << row.id;
        EXPECT_EQ(static_cast<std::uint32_t>(beam_to_pol(row.id)), row.pol) << row.id;
    }
    std::set<std::pair<short, short>> directions;
    for (short id = 1; id <= 97; ++id) {
        directions.emplace(beam_to_az(id), beam_to_el(id));
    }
    EXPECT_EQ(directions.size(), 97U) << "coarse beams that share a direction";
}

TEST(Beams, DirectionsThatAreRefusedOrTakenLeniently) {
    // clang-format off
    const struct {
        short az, el;
        std::uint32_t pol;
        int id;
    } rows[] = {
        {15, 5, 1000, 0}, {15, 10, 1000, 1866}, {360, 0, 5000, 5897}, {360, 5, 5000, 0}, {360, 10, 5000, 0},
        {7, 0, 5000, 0}, {0, 71, 5000, 0}, {0, 45, 1500, 0}, {0, 45, 0, 0}, {0, 45, 6000, 0},
        {0, 12, 2000, 2793}, {0, 15, 2000, 2793}, {0, 8, 2000, 2865}, {0, 1, 2000, 2937},
    };
    // clang-format on
    for (const auto& row : rows) {
        const auto id = az_el_pol_to_beam(row.az, row.el, QDX_BEAM_POL_e{row.pol});
        EXPECT_EQ(id, row.id) << row.az << " " << row.el;
    }
    EXPECT_EQ(beam_to_az(2937), -1);
    std::string word = "lhcp";
    QDX_BEAM_POL_e pol = QDX_BEAM_POL_e::PHI;
    EXPECT_EQ(stringToQDX_BEAM_POL(&word, &pol), -1);
    EXPECT_EQ(pol, QDX_BEAM_POL_e::PHI);
    EXPECT_EQ(getPolarizationString(QDX_BEAM_POL_e::NONE, &word), -1);
    EXPECT_EQ(word, "");
}
