// SPDX-License-Identifier: MIT
// The keys that say where the radio transmits, which tags answer and what is
// done to them: every failure a client can hear of, and what good ones store.
#include "mode_request_fixture.hpp"

namespace {

using mode_t = mode_configuration_s;
using testing::ElementsAre;

const std::string oneOf = " must be a string containing one of the following values: ";
const std::string outOf = " is out of bounds. Must be between ";
const std::string listSize = " of the same size as the size of \"antennas\" (4)";
const std::string oneForEachOfTwo =
    "Number of arrays in the array must be 2 to match the number of antennas enabled";

const std::string antennas = simple(R"("antennas":@)");
const std::string power = simple(R"("transmitPower":@)");
const std::string profile = simple(R"("linkProfile":@)");
const std::string query = simple(R"("query":@)");
const std::string selects = simple(R"("antennas":[1,2],"selects":@)");
const std::string accesses = simple(R"("antennas":[1,2],"accesses":@)");

// A good select, with one key in another form or (with an empty text) not at all.
std::string select(const std::string& key = {}, const std::string& other = {}) {
    const std::pair<std::string, std::string> fields[] = {
        {"target", R"("S1")"}, {"action", R"("INVA_INVB")"}, {"membank", R"("EPC")"}, {"pointer", "32"},
        {"length", "16"},      {"mask", R"("aB01")"},
    };
    std::string text = R"({"ignored":1)";
    for (const auto& [name, value] : fields) {
        text += name == key ? "" : ",\"" + name + "\":" + value;
    }
    return text + (other.empty() ? "" : ",\"" + key + "\":" + other) + "}";
}

std::string access(const std::string& type, const std::string& config) {
    return R"({"type":")" + type + R"(","config":{)" + config + "}}";
}
std::string write(const std::string& keys) {
    return access("WRITE", R"("membank":"EPC","wordPointer":2,)" + keys);
}
std::string lock(const std::string& actions) {
    return access("LOCK", R"("actions":)" + actions);
}

TEST_F(ModeRequestTest, AntennasAndBeamsAreRefused) {
    const std::string list = "mode json payload mode \"antennas\" ";
    expectRefused(pn82, antennas,
                  {{"1", list + "must have an array value"},
                   {"[]", list + "list must contains values"},
                   {repeated("1", 1024), list + "list must contain fewer than 1023 values"},
                   {"[0]", "antenna values must be greater than 0 (0 entered)"},
                   {R"(["1"])", "antenna values must be greater than 0 (0 entered)"},
                   {"[4,5]", "antenna values is invalid (5 entered)"},
                   {"[4294967297]", "antenna values is invalid (-1 entered)"}});
    expectRefused(pn51, simple(R"("beams":@)"), {{"5", "setting beams is only allowed on an QDX4400"}});
    const std::string beams = "mode json payload mode \"beams\" ";
    const std::string azimuth = "value provided for \"azimuth\"" + outOf;
    expectRefused(
        qdx, simple(R"("beams":@)"),
        {{"{}", beams + "must have an array value"},
         {"[]", beams + "list must contains values"},
         {repeated(R"({"azimuth":0,"elevation":0})", 1024),
          beams + "list must contain fewer than 1023 values"},
         {"[1]", "each beam must be an object"},
         {R"([{"elevation":5}])", "\"azimuth\" must be included in object"},
         {R"([{"azimuth":360,"elevation":5}])", azimuth + "0 and 359."},
         {R"([{"azimuth":5}])", "\"elevation\" must be included in object"},
         {R"([{"azimuth":5,"elevation":71}])", "value provided for \"elevation\"" + outOf + "0 and 70."},
         {R"([{"azimuth":5,"elevation":5,"polarization":"phi"}])",
          "value provided for \"polarization\"" + oneOf + "TOTAL, THETA, PHI, RHCP, LHCP"},
         {R"([{"azimuth":15,"elevation":5}])",
          "azimuth (15), elevation (5), polarization (LHCP) combination not allowed"}});
}

TEST_F(ModeRequestTest, PowerAndLinkProfileAreRefused) {
    const std::string bounds = "value provided for \"transmitPower\"" + outOf;
    expectRefused(pn51, power,
                  {{R"("20")", R"("transmitPower" field must contain a number or an array of numbers)"},
                   {"30.01", bounds + "0.000000 and 30.000000."},
                   {R"([20,"20"])", R"("transmitPower" must be an array containing only numbers)"},
                   {"[20,30.01]", bounds + "0.00 and 30.00."},
                   {"[-1]", bounds + "0.00 and 30.00."},
                   {"[20,20]", "\"transmitPower\" must be an number or an array of numbers" + listSize}});
    const std::string given = "value provided for \"linkProfile\"";
    expectRefused(pn51, profile,
                  {{"{}", R"("linkProfile" field must contain a number or an array of numbers)"},
                   {"65536", given + outOf + "0 and 65535."},
                   {"203", given + " (203) is not a valid LP"},
                   {"[201,null]", R"("linkProfile" must be an array containing only numbers)"},
                   {"[201,-1]", given + " (65535) is not a valid LP"},
                   {"[1e300]", given + " (0) is not a valid LP"},
                   {"[201,202,201]", "\"linkProfile\" must be an number or an array of numbers" + listSize}});
    expectRefused(pn51, simple(R"("environment":@)"),
                  {{R"("DEMO","linkProfile":[])",
                    R"("linkProfile" and "environment" cannot be configured at the same time)"},
                   {R"("NOT_USED")",
                    "value provided for \"environment\"" + oneOf +
                        "LOW_INTERFERENCE, HIGH_INTERFERENCE, VERY_HIGH_INTERFERENCE, AUTO_DETECT, DEMO"}});
}

TEST_F(ModeRequestTest, QueriesAreRefused) {
    expectRefused(pn51, query,
                  {{"1", R"("query" must be either a object or an array of objects)"},
                   {"[1,2,3,4]", R"(mode json payload mode "query" must have an object value)"},
                   {R"({"sel":"A"})", "value provided for \"sel\"" + oneOf + "ALL, NOT_SL, SL"},
                   {R"({"session":"S4"})", "value provided for \"session\"" + oneOf + "S0, S1, S2, S3"},
                   {R"({"target":"BA"})", "value provided for \"target\"" + oneOf + "A, B, AB"},
                   {R"({"tagPopulation":4294967296})",
                    "value provided for \"tagPopulation\"" + outOf + "0 and 4294967295."},
                   {"[{}]", "\"query\" must be an number or an array of objects" + listSize}});
}

TEST_F(ModeRequestTest, SelectsAreRefused) {
    const std::string noObject = R"(mode json payload mode "selects" must have an object value)";
    const std::string action = "value provided for \"action\"" + oneOf;
    const std::string badMask = "length of mask length match length";
    expectRefused(pn51, selects,
                  {{"{}", R"("selects" must be either an array of objects or an array of array of objects)"},
                   {"[]", oneForEachOfTwo},
                   {"[[],[],[]]", oneForEachOfTwo},
                   {"[[]," + select() + "]", noObject},
                   {"[[],[1]]", noObject},
                   {"[" + repeated(select(), 33) + ",[]]",
                    "Number of unique \"selects\" objects must be less than (32)"}});
    for (const char* key : {"target", "action", "membank", "pointer", "length", "mask"}) {
        const std::string absent = std::string(key) + " must be included in selects object";
        expectRefused(pn51, selects,
                      {{"[" + select(key) + "]", absent}, {"[[],[" + select(key) + "]]", absent}});
    }
    expectRefused(
        pn51, selects,
        {{"[" + select("target", R"("S4")") + "]",
          "value provided for \"target\"" + oneOf + "S0, S1, S2, S3, SL"},
         {"[" + select("action", R"("ASSERTSL_NOTHING")") + "]",
          action +
              "INVA_INVB, INVA_NOTHING, NOTHING_INVB, FLIPAB_NOTHING, INVB_INVA, INVB_NOTHING, NOTHING_INVA, "
              "NOTHING_FLIPAB"},
         {"[" + select("target", R"("SL")") + "]",
          action + "ASSERTSL_DEASSERTSL, ASSERTSL_NOTHING, NOTHING_DEASSERTSL, NEGATESL_NOTHING, "
                   "DEASSERTSL_ASSERTSL, DEASSERTSL_NOTHING, NOTHING_ASSERTSL, NOTHING_NEGATESL"},
         {"[" + select("pointer", "65536") + "]", "value provided for \"pointer\"" + outOf + "0 and 65535."},
         {"[" + select("length", "256") + "]", "value provided for \"length\"" + outOf + "0 and 255."},
         {"[" + select("mask", R"("ab0g")") + "]", "mask must include only hex digits"},
         {"[" + select("mask", R"("ab")") + "]", badMask},
         {"[" + select("length", "12") + "]", badMask}});
    const std::string below =
        R"([{"target":"SL","action":"ASSERTSL_NOTHING","membank":"EPC","pointer":0,"length":7,"mask":@}])";
    expectRefused(pn51, framed(selects, below), {{"\"\"", badMask}, {"\"ab\"", badMask}});
}

TEST_F(ModeRequestTest, AccessesAreRefused) {
    const std::string in = " must be included in access-config object for ";
    const std::string actions =
        "PERMALOCK_USER_BANK,        WRITE_LOCK_USER_BANK,               WRITE_UNLOCK_USER_BANK,\n"
        "PERMALOCK_TID_BANK,         WRITE_LOCK_TID_BANK,                WRITE_UNLOCK_TID_BANK,\n"
        "PERMALOCK_EPC_BANK,         WRITE_LOCK_EPC_BANK,                WRITE_UNLOCK_EPC_BANK,\n"
        "PERMALOCK_ACCESS_PASSWORD,  READ_WRITE_LOCK_ACCESS_PASSWORD,    READ_WRITE_UNLOCK_ACCESS_PASSWORD,\n"
        "PERMALOCK_KILL_PASSWORD,    READ_WRITE_LOCK_KILL_PASSWORD,      READ_WRITE_UNLOCK_KILL_PASSWORD";
    expectRefused(
        pn51, accesses,
        {{R"("READ")", R"("accesses" must be either an array of objects or an array of array of objects)"},
         {"[[]]", oneForEachOfTwo},
         {repeated(lock("[]"), 65), "Number of unique \"accesses\" objects must be less than (64)"},
         {"[" + repeated(lock("[]"), 65) + ",[]]",
          "Number of unique \"access\" objects must be less than (64)"}});
    // Behind a write in blocks of four words.
    expectRefused(
        pn51, framed(accesses, "[" + write(R"("data":"1234","blockSize":4)") + ",@]"),
        {{"5", R"(mode json payload mode "accesses" must have an object value)"},
         {"{}", "type must be included in accesses object"},
         {access("read", ""), "value provided for \"type\"" + oneOf + "READ, WRITE, ACCESS, LOCK, KILL"},
         {R"({"type":"READ"})", "config must be included in accesses object"},
         {R"({"type":"READ","config":[]})", R"("config" field must contain an object)"},
         {access("READ", ""), "membank" + in + "read"},
         {access("READ", R"("membank":"TID")"), "wordPointer" + in + "read"},
         {access("READ", R"("membank":"TID","wordPointer":0)"), "wordCount" + in + "read"},
         {access("READ", R"("membank":"TID","wordPointer":0,"wordCount":256)"),
          "value provided for \"wordCount\"" + outOf + "0 and 255."},
         {access("WRITE", R"("data":"")"), "membank" + in + "write"},
         {access("WRITE", R"("membank":"EPC")"), "wordPointer" + in + "write"},
         {write(R"("blockSize":1)"), "data" + in + "write"},
         {write(R"("data":"123g56")"),
          "data for write must have an a number of hex digits evenly divisbile by 4 (write must be writing "
          "16 bit words). It has 6 hex digits"},
         {write(R"("data":")" + std::string(512, '0') + "\""),
          "data for write must have is too long. It has 512 hex digits, The maximum is 510"},
         {write(R"("data":"12g4")"), "data for write can only have hex digits."},
         {write(R"("data":"1234","blockSize":0)"), "value provided for \"blockSize\"" + outOf + "1 and 127."},
         {write(R"("data":"1234","blockSize":8)"),
          "blockSize for all configs must be the same value (requested value: 8, previous value: 4)"},
         {access("ACCESS", ""), "password" + in + "access"},
         {access("ACCESS", R"("password":"1234567")"),
          "password for access must have 8 hex digits. It has 7 hex digits"},
         {access("ACCESS", R"("password":"0x345678")"), "password for access can only have hex digits."},
         {access("KILL", ""), "password" + in + "kill"},
         {access("KILL", R"("password":"1234567g")"), "password for kill can only have hex digits."},
         {access("LOCK", ""), "actions" + in + "lock"},
         {lock("[1]"), "all values in the actions array must be strings"},
         {lock(R"(["LOCK"])"), "actions value (LOCK) not supported. Supported values are: \n" + actions},
         {lock(R"(["WRITE_LOCK_TID_BANK","WRITE_UNLOCK_TID_BANK"])"),
          "cannot use WRITE_LOCK_TID_BANK and WRITE_UNLOCK_TID_BANK together"},
         {lock(R"(["READ_WRITE_UNLOCK_KILL_PASSWORD","READ_WRITE_UNLOCK_KILL_PASSWORD"])"),
          "cannot use READ_WRITE_LOCK_KILL_PASSWORD and READ_WRITE_UNLOCK_KILL_PASSWORD together"}});
    expectRefused(
        qdx, accesses,
        {{"[" + write(R"("data":"1234","blockSize":4)") + "]", "block write is not supported on the QDX"}});
}

TEST_F(ModeRequestTest, AntennaKeysAreStored) {
    expectTaken(pn51, antennas,
                {{"[4,4,1]",
                  [](const mode_t& mode) {
                      EXPECT_THAT(mode.antennas, ElementsAre(4, 4, 1));
                      EXPECT_EQ(mode.antennaStopCondition.value, 333);
                      EXPECT_FALSE(mode.usesBeams);
                  }},
                 {repeated("2", 1023), [](const mode_t& mode) {
                      EXPECT_EQ(mode.antennas.size(), 1023U);
                      EXPECT_EQ(mode.antennaStopCondition.value, 125);
                  }}});
    expectTaken(qdx, simple(R"("beams":[{"azimuth":0,"elevation":0},@])"),
                {{R"({"azimuth":5,"elevation":12,"polarization":"PHI"})", [](const mode_t& mode) {
                      EXPECT_THAT(mode.antennas, ElementsAre(5897, 3794));
                      EXPECT_TRUE(mode.usesBeams);
                  }}});
    expectTaken(
        pn51, power,
        {{"27.55", [](const mode_t& mode) { EXPECT_EQ(mode.transmitPowerX10, 275); }},
         {"[0,30,10.19,10]",
          [](const mode_t& mode) { EXPECT_THAT(mode.transmitPowerX10List, ElementsAre(0, 300, 101, 100)); }},
         {"[]", [](const mode_t& mode) { EXPECT_EQ(mode.transmitPowerX10, 270); }}});
    expectTaken(pn51, profile,
                {{"202",
                  [](const mode_t& mode) {
                      EXPECT_EQ(mode.linkProfile, 202);
                      EXPECT_EQ(mode.environment, ENVIRONMENT_PARAMS_e::NOT_USED);
                  }},
                 {"[201.9,65737,201,202]", [](const mode_t& mode) {
                      EXPECT_THAT(mode.linkProfileList, ElementsAre(201, 201, 201, 202));
                  }}});
}

TEST_F(ModeRequestTest, QueriesAreStored) {
    expectTaken(qdx, R"({"type":"BEARING","query":@})",
                {{"{}", [](const mode_t& mode) { EXPECT_EQ(mode.query.session, 1); }}});
    expectTaken(pn51, query,
                {{R"({"sel":"SL","session":"S3","target":"AB","tagPopulation":1000})",
                  [](const mode_t& mode) {
                      EXPECT_EQ(mode.query, (query_s{3, 3, 2, 1000, 0}));
                  }},
                 {R"([{"tagPopulation":1},{},{"tagPopulation":100000},{"tagPopulation":1000}])",
                  [](const mode_t& mode) {
                      EXPECT_EQ(mode.inventoryParams,
                                (std::vector<c1g2_info_s>{{0, 1, 0, 0}, {0, 1, 0, 15}, {0, 1, 0, 9}}));
                      EXPECT_EQ(
                          mode.queryList,
                          (std::vector<query_s>{
                              {0, 1, 0, 1, 1}, {0, 1, 0, 0, 1}, {0, 1, 0, 100000, 2}, {0, 1, 0, 1000, 3}}));
                  }},
                 {"[]", [](const mode_t& mode) { EXPECT_TRUE(mode.queryList.empty()); }}});
}

TEST_F(ModeRequestTest, SelectsAreStored) {
    expectTaken(
        pn51, selects,
        {{"[[],[]]",
          [](const mode_t& mode) {
              EXPECT_THAT(mode.selectBitMasks, ElementsAre(0U, 0U));
              EXPECT_EQ(mode.uniqueSelects.size(), 0U);
          }},
         {"[" + select() + "," + select("truncate", "65541") + "," + select() + "]",  // a repeat is known
          [](const mode_t& mode) {
              EXPECT_EQ(mode.selectList.at(1), (select_s{1, 0, 1, 32, 16, {0xAB, 0x01}, 65541, 2}));
              EXPECT_EQ(mode.selectList.at(2).selectIndex, 1);
              ASSERT_EQ(mode.uniqueSelects.size(), 2U);
              EXPECT_EQ(mode.uniqueSelects[1].pointer, 32);
              EXPECT_EQ(mode.uniqueSelects[1].length, 16);
              EXPECT_EQ(mode.uniqueSelects[1].truncate, 5);
              EXPECT_EQ(mode.uniqueSelects[1].mask[0], 0xAB);
              EXPECT_EQ(mode.uniqueSelects[1].mask[2], 0);
          }},
         {"[[" + select() + "],[" + select() + "]]",  // and here it is not
          [](const mode_t& mode) {
              EXPECT_THAT(mode.selectBitMasks, ElementsAre(1U, 2U));
              EXPECT_EQ(mode.selectListPerAntenna.at(1).at(0).selectIndex, 2);
          }},
         {"[" + repeated(select(), 32) + ",[]]",
          [](const mode_t& mode) { EXPECT_THAT(mode.selectBitMasks, ElementsAre(0xFFFFFFFFU, 0U)); }},
         {R"([{"target":"SL","action":"NOTHING_NEGATESL","membank":"USER","pointer":0,"length":20,"mask":"ab"},)"
          R"({"target":"S0","action":"NOTHING_FLIPAB","membank":"TID","pointer":65535,"length":0,"mask":""}])",
          [](const mode_t& mode) {
              EXPECT_EQ(mode.selectList.at(0), (select_s{4, 7, 3, 0, 20, {0xAB}, 0, 1}));
              EXPECT_EQ(mode.selectList.at(1), (select_s{0, 7, 2, 65535, 0, {}, 0, 2}));
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
                   {numbered(40, 32), "Number of unique \"selects\" objects must be less than (32)"}});
    expectTaken(
        pn51, selects,
        {{numbered(32, 31), [](const mode_t& mode) { EXPECT_EQ(mode.selectList.back().selectIndex, 31); }}});
}

TEST_F(ModeRequestTest, AccessesAreStored) {
    const std::string everyPair =
        R"(["PERMALOCK_USER_BANK","WRITE_LOCK_USER_BANK","PERMALOCK_TID_BANK","WRITE_UNLOCK_TID_BANK",)"
        R"("WRITE_LOCK_EPC_BANK","READ_WRITE_LOCK_ACCESS_PASSWORD","READ_WRITE_UNLOCK_KILL_PASSWORD"])";
    const std::string ofEach = access("READ", R"("membank":"TID","wordPointer":65535,"wordCount":255)") +
                               "," + write(R"("data":"12Ab","blockSize":4)") + "," + write(R"("data":"")") +
                               "," + access("ACCESS", R"("password":"89abCDEF")") + "," + lock(everyPair) +
                               "," + access("KILL", R"("password":"00000001")");
    const auto check = [](const mode_t& mode) {
        ASSERT_EQ(mode.accessList.size(), 6U);
        EXPECT_EQ(mode.accessList[0].readWordPointer, 65535);
        EXPECT_THAT(mode.accessList[1].writeData, ElementsAre(0x12AB));
        EXPECT_EQ(mode.accessList[1].writeBlockSize, 4);
        EXPECT_EQ(mode.accessList[2].writeBlockSize, 0);
        EXPECT_EQ(mode.accessList[3].accessPassword, 0x89ABCDEF);
        EXPECT_EQ(mode.accessList[4].lockPayload, 0xABCA7U);
        EXPECT_EQ(mode.accessList[5].killPassword, 1U);
        EXPECT_EQ(mode.accessList[5].accessIndex, 6);
        std::vector<int> types;
        for (const ACCESS_OP_s& op : mode.uniqueAccesses) {
            types.push_back(op.type);
        }
        EXPECT_THAT(types, ElementsAre(RXE_ACCESS_READ, RXE_ACCESS_BLOCK_WRITE, 0, RXE_ACCESS_ACCESS,
                                       RXE_ACCESS_LOCK, RXE_ACCESS_KILL));
        EXPECT_EQ(mode.blockSize, 4);
        EXPECT_EQ(mode.reportFilter, (reportFilter_s{report_filter_type_e::NONE, 0, {}}));
    };
    expectTaken(
        pn51, accesses,
        {{"[" + ofEach + "]", check},
         {"[" + write(R"("data":")" + std::string(508, 'f') + "\"") + "]",
          [](const mode_t& mode) {
              EXPECT_EQ(mode.uniqueAccesses.at(0).wordCount, 127);
              EXPECT_EQ(mode.blockSize, 0);  // none left behind
          }},
         {"[" + repeated(lock("[]"), 33) + "," + repeated(lock("[]"), 2) + "]", [](const mode_t& mode) {
              EXPECT_THAT(mode.accessBitMasks, ElementsAre(~std::uint64_t{0}, std::uint64_t{0}));
              EXPECT_EQ(mode.accessListPerAntenna.at(1).at(1).accessIndex, 35);
          }}});
}

}  // namespace
