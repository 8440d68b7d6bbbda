// SPDX-License-Identifier: MIT
// The keys that say where the radio transmits, which tags answer and what is
// done to them: every failure a client can hear of, and what good ones store.
#include "mode_request_fixture.hpp"

namespace {

using u32s = std::vector<std::uint32_t>;
using s16s = std::vector<std::int16_t>;
using u16s = std::vector<std::uint16_t>;

const std::string listSize = " of the same size as the size of 'antennas' (4)";
const std::string oneForEachOfTwo =
    "Number of arrays in the array must be 2 to match the number of antennas enabled";

const std::string antennas = simple("'antennas':@");
const std::string power = simple("'transmitPower':@");
const std::string profile = simple("'linkProfile':@");
const std::string query = simple("'query':@");
const std::string selects = simple("'antennas':[1,2],'selects':@");
const std::string accesses = simple("'antennas':[1,2],'accesses':@");

// A good select, with one key in another form or (with an empty text) not at all.
std::string select(const std::string& key = {}, const std::string& other = {}) {
    const std::pair<std::string, std::string> fields[] = {
        {"target", "'S1'"}, {"action", "'INVA_INVB'"}, {"membank", "'EPC'"},
        {"pointer", "32"},  {"length", "16"},          {"mask", "'aB01'"},
    };
    std::string text = "{'ignored':1";
    for (const auto& [name, value] : fields) {
        text += name == key ? "" : ",'" + name + "':" + value;
    }
    return text + (other.empty() ? "" : ",'" + key + "':" + other) + "}";
}

std::string access(const std::string& type, const std::string& config) {
    return "{'type':'" + type + "','config':{" + config + "}}";
}
std::string read(const std::string& keys) {
    return access("READ", "'membank':'TID'" + keys);
}
std::string write(const std::string& keys) {
    return access("WRITE", "'membank':'EPC','wordPointer':2," + keys);
}
std::string lock(const std::string& actions) {
    return access("LOCK", "'actions':" + actions);
}

TEST_F(ModeRequestTest, AntennasAndBeamsAreRefused) {
    for (const std::string key : {"antennas", "beams"}) {
        const std::string list = "mode json payload mode '" + key + "' ";
        const std::string item = key == "beams" ? "{'azimuth':0,'elevation':0}" : "1";
        expectRefused(qdx, simple("'" + key + "':@"),
                      {{"{}", list + "must have an array value"},
                       {"[]", list + "list must contains values"},
                       {repeated(item, 1024), list + "list must contain fewer than 1023 values"}});
    }
    expectRefused(pn82, antennas,
                  {{"[0]", "antenna values must be greater than 0 (0 entered)"},
                   {"['1']", "antenna values must be greater than 0 (0 entered)"},
                   {"[4,5]", "antenna values is invalid (5 entered)"},
                   {"[4294967297]", "antenna values is invalid (-1 entered)"}});
    expectRefused(pn51, simple("'beams':@"), {{"5", "setting beams is only allowed on an QDX4400"}});
    expectRefused(qdx, simple("'beams':[@]"),
                  {{"1", "each beam must be an object"},
                   {"{'elevation':5}", missing("azimuth")},
                   {"{'azimuth':360,'elevation':5}", outOf("azimuth", "0 and 359")},
                   {"{'azimuth':5}", missing("elevation")},
                   {"{'azimuth':5,'elevation':71}", outOf("elevation", "0 and 70")},
                   {"{'azimuth':5,'elevation':5,'polarization':'phi'}",
                    oneOf("polarization", "TOTAL, THETA, PHI, RHCP, LHCP")},
                   {"{'azimuth':15,'elevation':5}",
                    "azimuth (15), elevation (5), polarization (LHCP) combination not allowed"}});
}

TEST_F(ModeRequestTest, PowerAndLinkProfileAreRefused) {
    for (const std::string key : {"transmitPower", "linkProfile"}) {
        expectRefused(pn51, simple("'" + key + "':@"),
                      {{"'20'", "'" + key + "' field must contain a number or an array of numbers"},
                       {"['20']", "'" + key + "' must be an array containing only numbers"}});
    }
    const std::string numbers = "' must be an number or an array of numbers" + listSize;
    expectRefused(pn51, power,
                  {{"30.01", outOf("transmitPower", "0.000000 and 30.000000")},
                   {"[20,30.01]", outOf("transmitPower", "0.00 and 30.00")},
                   {"[-1]", outOf("transmitPower", "0.00 and 30.00")},
                   {"[20,20]", "'transmitPower" + numbers}});
    const std::string given = "value provided for 'linkProfile' (";
    expectRefused(pn51, profile,
                  {{"65536", outOf("linkProfile", "0 and 65535")},
                   {"203", given + "203) is not a valid LP"},
                   {"[201,-1]", given + "65535) is not a valid LP"},
                   {"[1e300]", given + "0) is not a valid LP"},
                   {"[201,202,201]", "'linkProfile" + numbers}});
    expectRefused(
        pn51, simple("'environment':@"),
        {{"'DEMO','linkProfile':[]", "'linkProfile' and 'environment' cannot be configured at the same time"},
         {"'NOT_USED'", oneOf("environment",
                              "LOW_INTERFERENCE, HIGH_INTERFERENCE, VERY_HIGH_INTERFERENCE, "
                              "AUTO_DETECT, DEMO")}});
}

TEST_F(ModeRequestTest, QueriesAreRefused) {
    expectRefused(pn51, query,
                  {{"1", "'query' must be either a object or an array of objects"},
                   {"[1,2,3,4]", "mode json payload mode 'query' must have an object value"},
                   {"{'sel':'A'}", oneOf("sel", "ALL, NOT_SL, SL")},
                   {"{'session':'S4'}", oneOf("session", "S0, S1, S2, S3")},
                   {"{'target':'BA'}", oneOf("target", "A, B, AB")},
                   {"{'tagPopulation':4294967296}", outOf("tagPopulation", "0 and 4294967295")},
                   {"[{}]", "'query' must be an number or an array of objects" + listSize}});
}

TEST_F(ModeRequestTest, SelectsAreRefused) {
    const std::string noObject = "mode json payload mode 'selects' must have an object value";
    const std::string badMask = "length of mask length match length";
    expectRefused(pn51, selects,
                  {{"{}", "'selects' must be either an array of objects or an array of array of objects"},
                   {"[]", oneForEachOfTwo},
                   {"[[],[],[]]", oneForEachOfTwo},
                   {"[[]," + select() + "]", noObject},
                   {"[[],[1]]", noObject},
                   {"[" + repeated(select(), 33) + ",[]]",
                    "Number of unique 'selects' objects must be less than (32)"}});
    for (const char* key : {"target", "action", "membank", "pointer", "length", "mask"}) {
        const std::string absent = std::string(key) + " must be included in selects object";
        expectRefused(pn51, selects,
                      {{"[" + select(key) + "]", absent}, {"[[],[" + select(key) + "]]", absent}});
    }
    expectRefused(pn51, framed(selects, "[@]"),
                  {{select("target", "'S4'"), oneOf("target", "S0, S1, S2, S3, SL")},
                   {select("action", "'ASSERTSL_NOTHING'"),
                    oneOf("action",
                          "INVA_INVB, INVA_NOTHING, NOTHING_INVB, FLIPAB_NOTHING, INVB_INVA, INVB_NOTHING, "
                          "NOTHING_INVA, NOTHING_FLIPAB")},
                   {select("target", "'SL'"),
                    oneOf("action",
                          "ASSERTSL_DEASSERTSL, ASSERTSL_NOTHING, NOTHING_DEASSERTSL, NEGATESL_NOTHING, "
                          "DEASSERTSL_ASSERTSL, DEASSERTSL_NOTHING, NOTHING_ASSERTSL, NOTHING_NEGATESL")},
                   {select("pointer", "65536"), outOf("pointer", "0 and 65535")},
                   {select("length", "256"), outOf("length", "0 and 255")},
                   {select("mask", "'ab0g'"), "mask must include only hex digits"},
                   {select("mask", "'ab'"), badMask},
                   {select("length", "12"), badMask}});
    // A length below one byte fits no mask at all.
    expectRefused(
        pn51,
        framed(selects,
               "[{'target':'S0','action':'INVA_INVB','membank':'EPC','pointer':0,'length':7,'mask':@}]"),
        {{"''", badMask}, {"'ab'", badMask}});
}

TEST_F(ModeRequestTest, AccessesAreRefused) {
    const std::string in = " must be included in access-config object for ";
    const std::string actions =
        "PERMALOCK_USER_BANK,        WRITE_LOCK_USER_BANK,               WRITE_UNLOCK_USER_BANK,\n"
        "PERMALOCK_TID_BANK,         WRITE_LOCK_TID_BANK,                WRITE_UNLOCK_TID_BANK,\n"
        "PERMALOCK_EPC_BANK,         WRITE_LOCK_EPC_BANK,                WRITE_UNLOCK_EPC_BANK,\n"
        "PERMALOCK_ACCESS_PASSWORD,  READ_WRITE_LOCK_ACCESS_PASSWORD,    READ_WRITE_UNLOCK_ACCESS_PASSWORD,\n"
        "PERMALOCK_KILL_PASSWORD,    READ_WRITE_LOCK_KILL_PASSWORD,      READ_WRITE_UNLOCK_KILL_PASSWORD";
    const std::string many = repeated(lock("[]"), 65);
    expectRefused(
        pn51, accesses,
        {{"'READ'", "'accesses' must be either an array of objects or an array of array of objects"},
         {"[[]]", oneForEachOfTwo},
         {many, "Number of unique 'accesses' objects must be less than (64)"},
         {"[" + many + ",[]]", "Number of unique 'access' objects must be less than (64)"}});
    const std::string blocks = write("'data':'1234','blockSize':4");
    expectRefused(
        pn51, framed(accesses, "[" + blocks + ",@]"),
        {{"5", "mode json payload mode 'accesses' must have an object value"},
         {"{}", "type must be included in accesses object"},
         {access("read", ""), oneOf("type", "READ, WRITE, ACCESS, LOCK, KILL")},
         {"{'type':'READ'}", "config must be included in accesses object"},
         {access("READ", ""), "membank" + in + "read"},
         {read(""), "wordPointer" + in + "read"},
         {read(",'wordPointer':0"), "wordCount" + in + "read"},
         {read(",'wordPointer':0,'wordCount':256"), outOf("wordCount", "0 and 255")},
         {access("WRITE", "'data':''"), "membank" + in + "write"},
         {access("WRITE", "'membank':'EPC'"), "wordPointer" + in + "write"},
         {write("'blockSize':1"), "data" + in + "write"},
         {write("'data':'123g56'"),
          "data for write must have an a number of hex digits evenly divisbile by 4 "
          "(write must be writing 16 bit words). It has 6 hex digits"},
         {write("'data':'" + std::string(512, '0') + "'"),
          "data for write must have is too long. It has 512 hex digits, The maximum is 510"},
         {write("'data':'12g4'"), "data for write can only have hex digits."},
         {write("'data':'1234','blockSize':0"), outOf("blockSize", "1 and 127")},
         {write("'data':'1234','blockSize':8"),
          "blockSize for all configs must be the same value (requested value: 8, previous value: 4)"},
         {access("ACCESS", ""), "password" + in + "access"},
         {access("ACCESS", "'password':'1234567'"),
          "password for access must have 8 hex digits. It has 7 hex digits"},
         {access("ACCESS", "'password':'0x345678'"), "password for access can only have hex digits."},
         {access("KILL", ""), "password" + in + "kill"},
         {access("KILL", "'password':'1234567g'"), "password for kill can only have hex digits."},
         {access("LOCK", ""), "actions" + in + "lock"},
         {lock("[1]"), "all values in the actions array must be strings"},
         {lock("['LOCK']"), "actions value (LOCK) not supported. Supported values are: \n" + actions},
         {lock("['WRITE_LOCK_TID_BANK','WRITE_UNLOCK_TID_BANK']"),
          "cannot use WRITE_LOCK_TID_BANK and WRITE_UNLOCK_TID_BANK together"},
         {lock("['READ_WRITE_UNLOCK_KILL_PASSWORD','READ_WRITE_UNLOCK_KILL_PASSWORD']"),
          "cannot use READ_WRITE_LOCK_KILL_PASSWORD and READ_WRITE_UNLOCK_KILL_PASSWORD together"}});
    expectRefused(qdx, accesses, {{"[" + blocks + "]", "block write is not supported on the QDX"}});
}

TEST_F(ModeRequestTest, AntennaKeysAreStored) {
    const auto ports = [](const u32s& list, std::uint16_t share) {
        return [=](const mode_configuration_s& m) {
            return m.antennas == list && m.antennaStopCondition.value == share && !m.usesBeams;
        };
    };
    expectTaken(pn51, antennas,
                {{"[4,4,1]", ports({4, 4, 1}, 333)}, {repeated("2", 1023), ports(u32s(1023, 2), 125)}});
    expectTaken(qdx, simple("'beams':[{'azimuth':0,'elevation':0},@]"),
                {{"{'azimuth':5,'elevation':12,'polarization':'PHI'}", [](auto& m) {
                      return m.usesBeams && m.antennas == u32s{5897, 3794};
                  }}});
    expectTaken(pn51, power,
                {{"27.55", [](auto& m) { return m.transmitPowerX10 == 275; }},
                 {"[0,30,10.19,10]",
                  [](auto& m) {
                      return m.transmitPowerX10List == s16s{0, 300, 101, 100};
                  }},
                 {"[]", [](auto& m) { return m.transmitPowerX10 == 270; }}});
    expectTaken(
        pn51, profile,
        {{"202",
          [](auto& m) { return m.linkProfile == 202 && m.environment == ENVIRONMENT_PARAMS_e::NOT_USED; }},
         {"[201.9,65737,201,202]", [](auto& m) {
              return m.linkProfileList == u16s{201, 201, 201, 202};
          }}});
}

TEST_F(ModeRequestTest, QueriesAreStored) {
    expectTaken(qdx, "{'type':'BEARING','query':@}", {{"{}", [](auto& m) { return m.query.session == 1; }}});
    expectTaken(pn51, query,
                {{"{'sel':'SL','session':'S3','target':'AB','tagPopulation':1000}",
                  [](auto& m) {
                      return m.query == query_s{3, 3, 2, 1000, 0};
                  }},
                 {"[{'tagPopulation':1},{},{'tagPopulation':1024},{'tagPopulation':1023}]",
                  [](auto& m) {
                      const std::vector<c1g2_info_s> distinct{{0, 1, 0, 0}, {0, 1, 0, 10}, {0, 1, 0, 9}};
                      const std::vector<query_s> list{
                          {0, 1, 0, 1, 1}, {0, 1, 0, 0, 1}, {0, 1, 0, 1024, 2}, {0, 1, 0, 1023, 3}};
                      return m.inventoryParams == distinct && m.queryList == list;
                  }},
                 {"[]", [](auto& m) { return m.queryList.empty(); }}});
}

TEST_F(ModeRequestTest, SelectsAreStored) {
    expectTaken(
        pn51, selects,
        {{"[[],[]]",
          [](auto& m) {
              return m.selectBitMasks == u32s{0, 0} && m.uniqueSelects.empty();
          }},
         {"[" + select() + "," + select("truncate", "65541") + "," + select() + "]",  // a repeat is known
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
         {"[" + repeated(select(), 32) + ",[]]",
          [](auto& m) {
              return m.selectBitMasks == u32s{0xFFFFFFFF, 0};
          }},
         {"[{'target':'SL','action':'NOTHING_NEGATESL','membank':'USER','pointer':0,'length':20,'mask':'ab'},"
          "{'target':'S0','action':'NOTHING_FLIPAB','membank':'TID','pointer':65535,'length':0,'mask':''}]",
          [](auto& m) {
              return m.selectList.at(0) == select_s{4, 7, 3, 0, 20, {0xAB}, 0, 1} &&
                     m.selectList.at(1) == select_s{0, 7, 2, 65535, 0, {}, 0, 2};
          }}});
}

// A flat list has no limit of its own: the repeat of a late select and the engine
// set-up have one each.
TEST_F(ModeRequestTest, LongListsOfSelects) {
    const auto numbered = [](int count, int repeat) {
        std::string list = select("pointer", "0");
        for (int i = 2; i <= count; ++i) {
            list += "," + select("pointer", std::to_string(i));
        }
        return "[" + list + "," + select("pointer", std::to_string(repeat)) + "]";
    };
    expectRefused(pn51, selects,
                  {{numbered(32, 33), "too many select parameters requested"},
                   {numbered(40, 32), "Number of unique 'selects' objects must be less than (32)"}});
    expectTaken(pn51, selects,
                {{numbered(32, 31), [](auto& m) { return m.selectList.back().selectIndex == 31; }}});
}

TEST_F(ModeRequestTest, AccessesAreStored) {
    const std::string everyPair =
        "['PERMALOCK_USER_BANK','WRITE_LOCK_USER_BANK','PERMALOCK_TID_BANK','WRITE_UNLOCK_TID_BANK',"
        "'WRITE_LOCK_EPC_BANK','READ_WRITE_LOCK_ACCESS_PASSWORD','READ_WRITE_UNLOCK_KILL_PASSWORD']";
    const std::string ofEach = read(",'wordPointer':65535,'wordCount':255") + "," +
                               write("'data':'12Ab','blockSize':4") + "," + write("'data':''") + "," +
                               access("ACCESS", "'password':'89abCDEF'") + "," + lock(everyPair) + "," +
                               access("KILL", "'password':'00000001'");
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

}  // namespace
