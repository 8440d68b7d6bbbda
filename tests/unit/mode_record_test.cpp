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
void becomeReader(const char* model, std::uint16_t antennas) {
    modelName = model;
    max_ants = antennas;
}

template <class Record>
bool sameBytes(const std::vector<Record>& left, const std::vector<Record>& right) {
    return left.size() == right.size() &&
           (left.empty() || std::memcmp(left.data(), right.data(), left.size() * sizeof(Record)) == 0);
}

ACCESS_OP_s accessOfType(std::uint8_t type) {
    ACCESS_OP_s op{};
    op.enable = 1;
    op.type = type;
    return op;
}

// A record after some use, with every kind of field filled.
mode_configuration_s usedRecord() {
    mode_configuration_s m;
    m.userDefined = "text";
    m.usesBeams = m.reportPC = true;
    m.readMemory = {{{7, 1}}, {}, {{2, 3}}, {{4, 5}}, {{6, 7}}};  // one row too many
    m.tagFilter = {1, filter_match_e::REGEX, filter_operation_e::EXCLUDE, "e2.*", nullptr, {7, 2}, 2};
    m.tagFilter.regex = std::make_shared<const std::regex>();
    m.portalDirConfig = {1, 1.5, 2.5, 7, QDX_BEAM_POL_e::PHI};
    m.bearingConfig = {1, QDX_BEAM_POL_e::PHI};
    m.transmitPowerX10List = {7, -5};
    m.antennaStopConditionList.resize(2);
    m.inventoryParams = {{3, 2, 2, 1}};
    m.selectListPerAntenna = {{{.action = 7, .mask = {7, 1}}}, {}};
    m.uniqueAccesses.assign(1, accessOfType(7));
    m.radioStopConditions = {7, 2, 3, 4, {{1, 1, 9}}};
    m.reportFilter = {report_filter_type_e::PER_ANTENNA, 7, {"TID"}};
    return m;
}

auto comparable(const mode_configuration_s& m) {
    const tagFilter_s& f = m.tagFilter;
    return std::tuple_cat(
        std::tie(m.userDefined, m.usesBeams, m.reportPC, m.readMemory, f.enabled, f.match, f.operation,
                 f.value, f.regex, f.pattern, f.patternLength, m.portalDirConfig, m.bearingConfig),
        std::tie(m.transmitPowerX10List, m.antennaStopConditionList, m.inventoryParams,
                 m.selectListPerAntenna, m.radioStopConditions, m.reportFilter),
        std::make_tuple(m.uniqueAccesses.size()));
}
}  // namespace

TEST(ModeDefaults, ByModel) {
    const struct {
        const char* legend;
        const char* model;
        std::uint16_t maxAnts;
        std::size_t antennas;
        std::uint32_t first, last;
        std::int16_t power;
        std::uint16_t stopValue;
        antenna_delay_type_e delay;
    } rows[] = {
        {"few ports share a second", "PN5100", 4, 4, 1, 4, 270, 250, antenna_delay_type_e::NO_TAGS},
        {"the suffix makes another model", "PN5100-ASIC", 4, 4, 1, 4, 270, 250,
         antenna_delay_type_e::NO_UNIQUE_TAGS},
        {"many ports get the least share", "PN8200", 14, 14, 1, 14, 270, 125,
         antenna_delay_type_e::NO_UNIQUE_TAGS},
        {"beams, stop value of the elements", "QDX4400", 14, 38, 397, 361, 360, 125,
         antenna_delay_type_e::NO_UNIQUE_TAGS},
        {"no radio", "", 0, 0, 0, 0, 270, 1000, antenna_delay_type_e::NO_UNIQUE_TAGS},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.legend);
        becomeReader(row.model, row.maxAnts);
        mode_configuration_s m;
        EXPECT_EQ(setDefaultMode(&m), 0);
        ASSERT_EQ(m.antennas.size(), row.antennas);
        EXPECT_EQ(m.antennas.empty() ? 0 : m.antennas.front(), row.first);
        EXPECT_EQ(m.antennas.empty() ? 0 : m.antennas.back(), row.last);
        EXPECT_EQ(m.transmitPowerX10, row.power);
        EXPECT_EQ(m.antennaStopCondition.value, row.stopValue);
        EXPECT_EQ(m.delayBetweenAntennaCycles, (delay_between_antenna_cycles_s{row.delay, 75}));
        EXPECT_EQ(m.linkProfile, 201);
        EXPECT_EQ(m.environment, ENVIRONMENT_PARAMS_e::HIGH_INTERFERENCE);
        EXPECT_EQ(m.query, (query_s{.sel = 0, .session = 1, .target = 0}));
        EXPECT_EQ(m.radioStartConditions.type, radio_start_type_e::NONE);
        EXPECT_EQ(m.rssiFilter.threshold, -128);

        mode_configuration_s used = usedRecord();
        setDefaultMode(&used);
        EXPECT_EQ(used.bearingConfig.polarization, QDX_BEAM_POL_e::PHI);
        used.bearingConfig.polarization = QDX_BEAM_POL_e::NONE;
        EXPECT_EQ(comparable(used), comparable(m)) << "a used record keeps a trace";
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
        std::size_t antennas;
    } rows[] = {
        {"SIMPLE", 15361, false, 0, forEver, 1, 38},          {"INVENTORY", 15905, true, 1, 60, 1, 38},
        {"PORTAL", 15361, true, 1, forEver, 1, 38},           {"CONVEYOR", 15361, true, 1, forEver, 1, 38},
        {"CUSTOM", 15361, false, 0, forEver, 1, 38},          {"BEARING", 212001, true, 2, 0, 0, 50},
        {"PORTAL_DIRECTIONALITY", 539649, false, 2, 0, 0, 50}};
    becomeReader("QDX4400", 14);
    ASSERT_EQ(std::size(rows), MODE_TYPES.size());
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        const auto& row = rows[i];
        SCOPED_TRACE(row.word);
        mode_configuration_s simple, m;
        setDefaultMode(&simple);
        setDefaultMode(&m);
        EXPECT_EQ(MODE_TYPES[i].overlay(&m), 0);
        EXPECT_EQ(static_cast<std::size_t>(m.modeType), i);
        EXPECT_EQ(m.modeTypeName, row.word);
        EXPECT_EQ(m.customFieldsBitMask, row.customFields);
        EXPECT_EQ(m.reportAntenna, row.reportAntenna);
        EXPECT_EQ(m.reportFilter,
                  (reportFilter_s{report_filter_type_e{row.filterType}, row.filterDuration, {}}));
        EXPECT_EQ(m.query.session, row.session);
        ASSERT_EQ(m.antennas.size(), row.antennas);
        const bool portal = m.modeType == MODE_TYPE_e::PORTAL, bearing = m.modeType == MODE_TYPE_e::BEARING;
        const bool direction = m.modeType == MODE_TYPE_e::PORTAL_DIRECTIONALITY;
        const gpi_s trigger{.port = 1, .signal = 0, .debounceTime = 0};
        EXPECT_EQ(m.inventoryInterval,
                  (i == 1 ? inventoryInterval_s{interval_unit_e::MINUTES, 1} : inventoryInterval_s{}));
        EXPECT_EQ(m.portalConfig, (portal ? portalConfig_s{trigger, 3} : portalConfig_s{}));
        EXPECT_EQ(m.radioStartConditions,
                  (portal ? radioStartConditions_s{radio_start_type_e::GPI_WITH_RESTART, {trigger}}
                          : simple.radioStartConditions));
        EXPECT_EQ(m.radioStopConditions.noMoreUniqueTags, portal ? 3 : 0);
        EXPECT_EQ(m.bearingConfig, (bearing ? bearingConfig_s{1, QDX_BEAM_POL_e::LHCP} : bearingConfig_s{}));
        EXPECT_EQ(m.portalDirConfig, (direction ? portalDirConfig_s{1, 15.0, 3.0, 0, QDX_BEAM_POL_e::LHCP}
                                                : portalDirConfig_s{}));
        if (bearing || direction) {
            EXPECT_EQ(m.antennas[0], 5897U);
            EXPECT_EQ(m.antennas[25], 5897U);
            EXPECT_EQ(m.antennas[49], 5613U);
        }
    }
}

TEST(ModeRecord, CopyTakesOfAPatternOnlyWhatCounts) {
    mode_configuration_s from = usedRecord();
    const mode_configuration_s saved = from;
    from.tagFilter.pattern[2] = 0xEE;  // behind the stated length
    mode_configuration_s to;
    copyModeConfiguration(&from, &to);
    EXPECT_EQ(comparable(to), comparable(saved));
    copyModeConfiguration(&to, &to);
    EXPECT_EQ(comparable(to), comparable(saved)) << "onto itself";

    to.tagFilter.patternLength = 200;  // more than there is room for
    copyTagFilter(&to.tagFilter, &from.tagFilter);
    EXPECT_EQ(from.tagFilter.pattern, to.tagFilter.pattern);

    mode_configuration = saved;
    tagFilter_s filter;
    getTagFilter(&filter);
    EXPECT_EQ(filter.value, saved.tagFilter.value);
    EXPECT_EQ(filter.regex, nullptr);
    EXPECT_EQ(filter.patternLength, 0);
}

TEST(ModeAccessors, PortNamesStayInsideTheList) {
    becomeReader("PN8200", 4);
    mode_configuration.antennaPortNames = {"dock", "gate", "belt", "door", "past"};
    const char* names[] = {"", "dock", "gate", "belt", "door", ""};
    for (std::uint8_t port = 0; port < std::size(names); ++port) {
        EXPECT_EQ(getAntennaPortMapping(port), names[port]) << int{port};
    }
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

    mode_configuration.selectBitMasks = {5};
    std::uint32_t mask = 77;
    EXPECT_EQ(getCurrentSelectBitMask(1, &mask), -1);
    EXPECT_EQ(mask, 77U);
    EXPECT_EQ(getCurrentSelectBitMask(0, &mask), 0);
    EXPECT_EQ(mask, 5U);

    EXPECT_FALSE(isAccessEnabled(EPC_GEN2_MB_e::USER, nullptr)) << "before initMode";
    initMode();
    mode_configuration.readMemory[3] = {{0, 0}};
    EXPECT_TRUE(isAccessEnabled(EPC_GEN2_MB_e::USER, nullptr));
    EXPECT_FALSE(isAccessEnabled(EPC_GEN2_MB_e{4}, nullptr)) << "no such bank";
    EXPECT_TRUE(isAnyAccessEnabled());
}

TEST(ModeAccessors, IntervalInSeconds) {
    // clang-format off
    const struct {
        std::uint8_t unit;
        std::uint32_t value;
        int result;
        std::uint32_t seconds;
    } rows[] = {
        {0, 4294967295, 0, 4294967295}, {1, 71582788, 0, 4294967280}, {1, 71582789, -1, 0}, {2, 1193046, 0, 4294965600},
        {2, 1193047, -1, 0}, {3, 49710, 0, 4294944000}, {3, 49711, -1, 0}, {4, 5, 0, 0},
    };
    // clang-format on
    for (const auto& row : rows) {
        const inventoryInterval_s interval{interval_unit_e{row.unit}, row.value};
        std::uint32_t seconds = 1;
        EXPECT_EQ(getInventoryIntervalSeconds(&interval, &seconds), row.result) << row.value;
        EXPECT_EQ(seconds, row.seconds) << row.value;
    }
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

TEST(ModeForEngine, InitialQ) {
    EXPECT_EQ(initialQForPopulation(0), 0);
    EXPECT_EQ(initialQForPopulation(1), 0);
    EXPECT_EQ(initialQForPopulation(1023), 9);
    EXPECT_EQ(initialQForPopulation(1024), 10);
}

TEST(ModeForEngine, LinkProfileOfRegion) {
    const struct {
        const char* legend;
        const char* model;
        std::uint8_t environment;
        float width;
        const char* region;
        bool autoDetect;
        int profile;
    } rows[] = {
        {"rounded down into the column", "PN8200", 1, 500.4F, "US", false, 508},
        {"rounded up out of it", "PN8200", 1, 500.5F, "US", false, 201},
        {"600", "PN8200", 2, 600, "EU", false, 908},
        {"1200", "PN8200", 0, 1200, "EU", false, 1617},
        {"1200 in Japan", "PN8200", 0, 1200, "Japan 4W", false, 502},
        {"the suffix takes the other table", "PN5100-ASIC", 0, 1200, "EU", false, 1617},
        {"without it in Japan", "PN5100", 3, 1200, "Japan", false, 202},
        {"array, new firmware", "QDX4400", 4, 250, "US", true, 814},
        {"array, old firmware, narrow", "QDX4400", 4, 250, "US", false, 408},
        {"array, old firmware, wide", "QDX4400", 4, 600, "US", false, 201},
        {"other model", "PN9", 1, 500, "US", false, 202},
        {"no width wins over other model", "PN9", 1, 501, "US", false, 201},
        {"not used", "PN8200", 5, 500, "US", false, 201},
        {"no such environment", "PN8200", 6, 500, "US", false, 408},
        {"no number", "PN8200", 1, std::numeric_limits<float>::quiet_NaN(), "US", false, 201},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(linkProfileFor(row.model, row.environment, row.width, row.region, row.autoDetect),
                  row.profile)
            << row.legend;
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
        {"port 4 low", {antenna_stop_type_e::GPI, 9, {4, 0, 0}}, 10, 0},
        {"in 8 bits", {antenna_stop_type_e::GPI, 9, {200, 1, 1}}, 145, 1},
        {"unknown type", {antenna_stop_type_e{4}, 9, {1, 1, 50}}, 0, 0},
    };
    for (const auto& row : rows) {
        mode_configuration.antennaStopCondition = row.condition;
        EXPECT_EQ(getOlioStopConditionType(1000), row.type) << row.legend;
        EXPECT_EQ(getOlioStopConditionValue(1000), row.value) << row.legend;
    }
    mode_configuration.antennaStopConditionList = {rows[0].condition, rows[2].condition};
    EXPECT_EQ(getOlioStopConditionType(1), 10);
    EXPECT_EQ(getOlioStopConditionType(2), 255);
    EXPECT_EQ(getOlioStopConditionValue(2), 65535);
}

TEST(ModeForEngine, SelectPool) {
    std::vector<SELECT_OP_s> selects(3);
    std::uint32_t mask = 1;
    EXPECT_EQ(getSelectParams(&mask, &selects), 0);
    EXPECT_TRUE(selects.empty() && mask == 0);
    mode_configuration.uniqueSelects.resize(33);
    mode_configuration.uniqueSelects[31].action = 7;
    EXPECT_EQ(getSelectParams(&mask, &selects), -1);
    EXPECT_EQ(selects.size(), 33U);
    EXPECT_EQ(mask, 0xFFFFFFFFU);
    mode_configuration.uniqueSelects.pop_back();
    EXPECT_EQ(getSelectParams(&mask, &selects), 0);
    EXPECT_TRUE(sameBytes(selects, mode_configuration.uniqueSelects));
}

// The mask by the number of accesses, from each of the three sources in turn.
TEST(ModeForEngine, AccessPool) {
    // clang-format off
    const struct {
        std::size_t count;
        int result;
        std::uint64_t mask;
    } rows[] = {
        {0, 0, 0}, {1, 0, 1}, {31, 0, 0x7FFFFFFF}, {32, 0, ~0ULL},
        {33, 0, ~0ULL}, {64, 0, ~0ULL}, {65, -1, ~0ULL}, {70, -1, ~0ULL},
    };
    // clang-format on
    initMode();
    for (int source = 0; source < 3; ++source) {
        for (const auto& row : rows) {
            SCOPED_TRACE(testing::Message() << row.count << " from source " << source);
            const std::size_t half = row.count / 2;
            mode_configuration.readMemory[1].assign(half, {4, 0});
            mode_configuration.readMemory[3].assign(row.count - half, {0x12, 3});
            mode_configuration.accessList.assign(source == 1 ? row.count : 0, {});
            mode_configuration.uniqueAccesses.assign(row.count, accessOfType(4));
            mode_configuration.accessBitMasks.assign(source == 2 ? 1 : 0, 1);
            std::vector<ACCESS_OP_s> accesses(2);
            std::uint64_t mask = 9;
            EXPECT_EQ(getAccessParams(&mask, &accesses), row.result);
            EXPECT_EQ(mask, row.mask);
            ASSERT_EQ(accesses.size(), std::min<std::size_t>(row.count, 65));
            if (row.count > 0) {
                const ACCESS_OP_s& last = accesses.back();
                EXPECT_EQ(last.enable, 1);
                EXPECT_EQ(last.type, source == 2 ? 4 : 1);
                EXPECT_EQ(last.membank, source == 0 ? 3 : 0);
                EXPECT_EQ(last.wordPointer, source == 0 ? 0x12 : 0);
                EXPECT_EQ(last.wordCount, source == 0 ? 0x303 : 0);
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
        {360, 70, 5000, 0}, {7, 0, 5000, 0}, {0, 71, 5000, 0}, {0, 45, 1500, 0}, {0, 45, 0, 0},
        {0, 45, 6000, 0}, {0, 12, 2000, 2793}, {0, 15, 2000, 2793}, {0, 8, 2000, 2865}, {0, 1, 2000, 2937},
    };
    // clang-format on
    for (const auto& row : rows) {
        EXPECT_EQ(az_el_pol_to_beam(row.az, row.el, QDX_BEAM_POL_e{row.pol}), row.id)
            << row.az << " " << row.el;
    }
    EXPECT_EQ(beam_to_az(2937), -1);
    std::string word = "lhcp";
    QDX_BEAM_POL_e pol = QDX_BEAM_POL_e::PHI;
    EXPECT_EQ(stringToQDX_BEAM_POL(&word, &pol), -1);
    EXPECT_EQ(pol, QDX_BEAM_POL_e::PHI);
    EXPECT_EQ(getPolarizationString(QDX_BEAM_POL_e::NONE, &word), -1);
    EXPECT_EQ(word, "");
    EXPECT_EQ(getPolarizationString(QDX_BEAM_POL_e::RHCP, &word), 0);
    EXPECT_EQ(stringToQDX_BEAM_POL(&word, &pol), 0);
    EXPECT_EQ(pol, QDX_BEAM_POL_e::RHCP);
}
