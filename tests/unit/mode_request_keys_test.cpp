// SPDX-License-Identifier: MIT
// What good requests store where no rendering shows it: the engine's pools and
// masks, values at their bounds, and what is taken though it looks wrong.
#include "additional_config.hpp"
#include "mode_request_fixture.hpp"

namespace {

using u32s = std::vector<std::uint32_t>;
using u16s = std::vector<std::uint16_t>;

const std::string selects = simple("'antennas':[1,2],'selects':@");
const std::string accesses = simple("'antennas':[1,2],'accesses':@");

// A list of `count` times the same.
std::string repeated(const std::string& item, std::size_t count) {
    std::string list;
    for (std::size_t i = 0; i < count; ++i) {
        list += (i == 0 ? "" : ",") + item;
    }
    return "[" + list + "]";
}

std::string select(const std::string& pointer = "32", const std::string& more = "") {
    return "{'target':'S1','action':'INVA_INVB','membank':'EPC','length':16,'mask':'aB01','pointer':" +
           pointer + more + "}";
}
std::string write(const std::string& keys) {
    return "{'type':'WRITE','config':{'membank':'EPC','wordPointer':2," + keys + "}}";
}
std::string lock(const std::string& actions) {
    return "{'type':'LOCK','config':{'actions':" + actions + "}}";
}
std::string typed(const std::string& type, const std::string& keys) {
    return "{'type':'" + type + "','linkProfile':201," + keys + "}";
}

TEST_F(ModeRequestTest, AntennasAndQueriesAreStored) {
    const auto ports = [](const u32s& list, std::uint16_t share) {
        return [=](const mode_configuration_s& m) {
            return m.antennas == list && m.antennaStopCondition.value == share && !m.usesBeams;
        };
    };
    expectTaken(
        pn51, simple("@"),
        {{"'antennas':[4,4,1]", ports({4, 4, 1}, 333)},
         {"'antennas':" + repeated("2", 1023), ports(u32s(1023, 2), 125)},
         // Empty lists count as none.
         {"'transmitPower':[],'linkProfile':[],'antennaStopCondition':[],'query':[]",
          ports({1, 2, 3, 4}, 250)},
         {"'linkProfile':[201.9,65737,201,202]",
          [](auto& m) {
              return m.linkProfileList == u16s{201, 201, 201, 202};
          }},
         {"'query':[{'tagPopulation':1},{},{'tagPopulation':1024},{'tagPopulation':1023}]", [](auto& m) {
              const std::vector<c1g2_info_s> distinct{{0, 1, 0, 0}, {0, 1, 0, 10}, {0, 1, 0, 9}};
              const std::vector<query_s> list{
                  {0, 1, 0, 1, 1}, {0, 1, 0, 0, 1}, {0, 1, 0, 1024, 2}, {0, 1, 0, 1023, 3}};
              return m.inventoryParams == distinct && m.queryList == list;
          }}});
    expectTaken(qdx, "{'type':'BEARING','query':@}", {{"{}", [](auto& m) { return m.query.session == 1; }}});
}

TEST_F(ModeRequestTest, SelectsAreStored) {
    expectTaken(
        pn51, selects,
        {{"[[],[]]",
          [](auto& m) {
              return m.selectBitMasks == u32s{0, 0} && m.uniqueSelects.empty();
          }},
         {"[" + select() + "," + select("32", ",'truncate':65541") + "," + select() +
              "]",  // a repeat is known
          [](auto& m) {
              const SELECT_OP_s& second = m.uniqueSelects.at(1);
              return m.selectList.at(1) == select_s{1, 0, 1, 32, 16, {0xAB, 0x01}, 65541, 2} &&
                     m.selectList.at(2).selectIndex == 1 && m.uniqueSelects.size() == 2 &&
                     second.pointer == 32 && second.length == 16 && second.truncate == 5 &&
                     second.mask[0] == 0xAB && second.mask[2] == 0;
          }},
         {"[[" + select() + "],[" + select() + "]]",  // and here it is not
          [](auto& m) {
              return m.selectBitMasks == u32s{1, 2} && m.selectListPerAntenna.at(1).at(0).selectIndex == 2;
          }},
         {"[" + repeated(select(), 32) + ",[]]", [](auto& m) {
              return m.selectBitMasks == u32s{0xFFFFFFFF, 0};
          }}});
}

// A flat list has no limit of its own: the repeat of a late select and the engine
// set-up have one each.
TEST_F(ModeRequestTest, LongListsOfSelects) {
    const auto numbered = [](int count, int repeat) {
        std::string list = select("0");
        for (int i = 2; i <= count; ++i) {
            list += "," + select(std::to_string(i));
        }
        return "[" + list + "," + select(std::to_string(repeat)) + "]";
    };
    become(pn51);
    EXPECT_EQ(ask(framed(selects, numbered(32, 33))), "Failure: too many select parameters requested");
    EXPECT_EQ(ask(framed(selects, numbered(40, 32))),
              quoted("Failure: Number of unique 'selects' objects must be less than (32)"));
    expectTaken(pn51, selects,
                {{numbered(32, 31), [](auto& m) { return m.selectList.back().selectIndex == 31; }}});
}

TEST_F(ModeRequestTest, AccessesAreStored) {
    const std::string everyPair =
        "['PERMALOCK_USER_BANK','WRITE_LOCK_USER_BANK','PERMALOCK_TID_BANK','WRITE_UNLOCK_TID_BANK',"
        "'WRITE_LOCK_EPC_BANK','READ_WRITE_LOCK_ACCESS_PASSWORD','READ_WRITE_UNLOCK_KILL_PASSWORD']";
    const std::string ofEach =
        "{'type':'READ','config':{'membank':'TID','wordPointer':65535,'wordCount':255}}," +
        write("'data':'12Ab','blockSize':4") + "," + write("'data':''") +
        ",{'type':'ACCESS','config':{'password':'89abCDEF'}}," + lock(everyPair) +
        ",{'type':'KILL','config':{'password':'00000001'}}";
    expectTaken(
        pn51, accesses,
        {{"[" + ofEach + "]",
          [](auto& m) {
              std::vector<int> types;
              for (const ACCESS_OP_s& op : m.uniqueAccesses) {
                  types.push_back(op.type);
              }
              const auto& list = m.accessList;
              return list.size() == 6 && list[0].readWordPointer == 65535 &&
                     list[1].writeData == u16s{0x12AB} && list[1].writeBlockSize == 4 &&
                     list[2].writeBlockSize == 0 && list[3].accessPassword == 0x89ABCDEF &&
                     list[4].lockPayload == 0xABCA7 && list[5].killPassword == 1 &&
                     list[5].accessIndex == 6 && m.blockSize == 4 &&
                     types == std::vector<int>{RXE_ACCESS_READ,   RXE_ACCESS_BLOCK_WRITE, 0,
                                               RXE_ACCESS_ACCESS, RXE_ACCESS_LOCK,        RXE_ACCESS_KILL} &&
                     m.reportFilter == reportFilter_s{report_filter_type_e::NONE, 0, {}};
          }},
         // The block size of the request before is none of its own.
         {"[" + write("'data':'" + std::string(508, 'f') + "'") + "]",
          [](auto& m) { return m.uniqueAccesses.at(0).wordCount == 127 && m.blockSize == 0; }},
         {"[" + repeated(lock("[]"), 33) + "," + repeated(lock("[]"), 2) + "]", [](auto& m) {
              return m.accessBitMasks == std::vector<std::uint64_t>{~0ULL, 0} &&
                     m.accessListPerAntenna.at(1).at(1).accessIndex == 35;
          }}});
}

TEST_F(ModeRequestTest, ConditionsAndReportsAreStored) {
    const auto stops = [](radioStopConditions_s conditions) {
        return [conditions](const mode_configuration_s& m) { return m.radioStopConditions == conditions; };
    };
    expectTaken(
        pn51, typed("CUSTOM", "@"),
        {{"'radioStartConditions':{'gpis':5}",
          [](auto& m) {
              return m.radioStartConditions == radioStartConditions_s{radio_start_type_e::NONE, {}};
          }},
         {"'radioStopConditions':{'duration':1.9999,'antennaCycles':65535,'tagCount':57344}",
          stops({1999, 65535, 57344, 0, {}})},
         {"'radioStopConditions':{'duration':1e300,'durationAfterNoMoreUniqueTags':4095}",
          stops({4294967295, 0, 0, 4095, {}})},
         {"'radioStopConditions':{'duration':-1}", stops({})},
         {"'reportFilter':{'type':'RADIO_WIDE','duration':1,'addl_keys':[]}",
          [](auto&) { return isAddlKeysEnabled.load(); }},
         {"'delayAfterSelects':7", [](auto& m) { return m.delayAfterSelects == 0 && isAddlKeysEnabled; }},
         {"'reportFilter':{'type':'RADIO_WIDE','duration':1,'addl_keys':1}",
          [](auto&) { return !isAddlKeysEnabled; }},
         {"'tagMetaData':[{'x':1},'EPC','USER[9]','USER[0-254,300,4294967295]']",
          [](auto& m) {
              using rows = std::vector<std::vector<memory_Access_s>>;
              return m.readMemory == rows{{}, {{0, 0}}, {}, {{0, 255}, {300, 1}, {4294967295, 1}}};
          }},
         {"'filter':{'value':'0Af3','match':'suffix','operation':'exclude'}", [](auto& m) {
              return m.tagFilter.patternLength == 2 && m.tagFilter.pattern[0] == 0x0A &&
                     m.tagFilter.pattern[1] == 0xF3;
          }}});
    expectTaken(
        pn51, typed("INVENTORY", "@"),
        {{"'modeSpecificSettings':{'interval':{'unit':'days','value':49710}}",
          [](auto& m) { return m.reportFilter.duration == 4294944000U; }},
         {"'tagMetaData':[]", [](auto& m) { return !m.reportAntenna && m.customFieldsBitMask == 15361; }}});
    const std::string trigger =
        typed("PORTAL", "'modeSpecificSettings':{'startTrigger':{'signal':'HIGH','port':@}}");
    const auto port = [](std::uint8_t number) {
        return [=](const mode_configuration_s& m) {
            return m.radioStartConditions.gpis == std::vector<gpi_s>{{number, 1, 0}};
        };
    };
    expectTaken(pn51, trigger, {{"257", port(1)}});
    expectTaken("PN5100-ASIC", trigger, {{"9", port(9)}});
    expectTaken(qdx, "{'linkProfile':201,@}",
                {{"'type':'BEARING','modeSpecificSettings':{'primaryBeamPolarization':'PHI'}",
                  [](auto& m) { return m.antennas.front() == 3897; }},
                 {"'type':'PORTAL_DIRECTIONALITY','modeSpecificSettings':{'aarHeight':50,"
                  "'primaryBeamPolarization':'RHCP'}",
                  [](auto& m) {
                      return m.portalDirConfig == portalDirConfig_s{1, 50.0, 3.0, 0, QDX_BEAM_POL_e::RHCP} &&
                             m.antennas.back() == 4613;
                  }}});
}

}  // namespace
