// SPDX-License-Identifier: MIT
// What tags do on the air, through the library: accesses, the database, the array.
#include "radio.hpp"

namespace {

class Air : public Radio {
  protected:
    // `where`: a password or a lock word; for memory the bank, and the word in the upper half.
    static void access(std::uint8_t id, std::uint8_t type, std::uint32_t where, std::uint16_t count = 0,
                       std::vector<std::uint16_t> words = {}, std::uint16_t stopCount = 0,
                       std::uint8_t criteria = 0) {
        ACCESS_OP_s record{1, type, {}, {.payload = where}, count, {}, criteria, 0, stopCount};
        std::copy(words.begin(), words.end(), record.data);
        ASSERT_EQ(set(RXE_PARAM_ACCESS + id, record), RXE_OK);
    }
    // One round over the field; "id:result" for each report, the tag's code behind it;
    // "id?met" for a criterion, "id." for an access that is over.
    static std::string accessesOf(std::uint64_t mask) {
        OLIO_s record = olio(1, 1, 1);
        record.accessBitMask = mask;
        enable({RXE_PACKET_ACCESS_CRITERIA_INFO, RXE_PACKET_ACCESS_DSBL_ALARM});
        run({record}, stopRecord(0, 1));
        std::string text;
        for (const packet_s& packet : packets) {
            ACCESS_INFO_s info = {};
            const std::string id =
                (text.empty() ? "" : " ") + std::to_string(packet.payload.empty() ? 0 : packet.payload[0]);
            if (packet.type == RXE_PACKET_ACCESS_INFO && format(packet, &info) == RXE_OK) {
                text += id + ':' + std::to_string(info.result);
                text += info.result == 1 ? '/' + std::to_string(info.data[1]) : "";
            } else if (packet.type == RXE_PACKET_ACCESS_CRITERIA_INFO) {
                text += id + '?' + std::to_string(packet.payload.at(2));
            } else if (packet.type == RXE_PACKET_ACCESS_DSBL_ALARM) {
                text += id + '.';
            }
        }
        return text;
    }
};

TEST_F(Air, AccessesFollowPasswordsLocksAndMemory) {
    open(R"("tags": [{"epc": "300000000000000000000001", "tid": "E2801160",
        "user": "00000000000000000000000000000000", "accessPassword": "12345678", "killPassword": "00C0FFEE",
        "locks": {"user": "locked", "kill": "locked"}, "position": [0, 0, 1]}])");
    access(1, RXE_ACCESS_WRITE, 0x10003, 0xABCD);
    access(2, RXE_ACCESS_ACCESS, 0x12345678);
    access(3, RXE_ACCESS_ACCESS, 0x12345679);
    access(4, RXE_ACCESS_READ, 3, 4);
    access(5, RXE_ACCESS_MULTIWORD_WRITE, 3, 3, {1, 2, 3});
    ASSERT_EQ(set(RXE_PARAM_BLOCK_SIZE, std::uint8_t{2}), RXE_OK);
    access(6, RXE_ACCESS_BLOCK_WRITE, 3, 4, {5, 6, 7, 8});
    access(7, RXE_ACCESS_READ, 0, 2);
    access(8, RXE_ACCESS_MULTIWORD_WRITE, 0x70003, 2, {9, 9});
    access(9, RXE_ACCESS_BLOCK_PERMALOCK, 3, 1, {0x8000});
    access(10, RXE_ACCESS_LOCK, 0x802 | 0x401);
    access(11, RXE_ACCESS_KILL, 0x00C0FFEE);
    access(12, RXE_ACCESS_KILL, 1);
    access(13, RXE_ACCESS_BLOCK_PERMALOCK, 3, 1, {0x2000});
    access(14, RXE_ACCESS_BLOCK_ERASE, 0x40003, 4);
    access(15, RXE_ACCESS_READ, 3, 1, {}, 0, 6);
    access(16, RXE_ACCESS_WRITE, 0x70003, 1);
    const struct {
        const char* legend;
        std::vector<int> accesses;
        const char* reports;
    } cases[] = {
        {"locked without the password; the next is not tried", {1, 4}, "1:1/4"},
        {"a wrong password has no answer", {3, 4}, "3:2"},
        {"one report for each word, and each block", {2, 5, 6}, "2:0 5:0 5:0 5:0 6:0 6:0"},
        {"reading needs no password", {4}, "4:0"},
        {"but a kill password does", {7}, "7:1/4"},
        {"the second word is beyond the bank", {2, 8}, "2:0 8:0 8:1/3"},
        {"a criterion that is met, and one that is not", {2, 6, 15}, "2:0 6:0 6:0 15?1 15:0"},
        {"the access it names was not tried", {2, 15}, "2:0 15?0"},
        {"locking a block takes the password", {9}, "9:1/2"},
        {"the third block is beyond the bank", {2, 13}, "2:0 13:1/3"},
        {"one block locked for good, the other not", {2, 9, 14, 16}, "2:0 9:0 14:0 16:0"},
        {"nothing is written into it", {2, 6}, "2:0 6:1/4"},
        {"locking takes the password", {10}, "10:1/2"},
        {"locked for good, with the password too", {2, 16, 10}, "2:0 10:0 16:1/4"},
        {"a wrong kill password has no answer", {12}, "12:2"},
        {"a killed tag", {11}, "11:0"},
        {"is silent", {4}, ""},
    };
    for (const auto& row : cases) {
        std::uint64_t mask = 0;
        for (const int id : row.accesses) {
            mask |= std::uint64_t{1} << (id - 1);
        }
        EXPECT_EQ(accessesOf(mask), row.reports) << row.legend;
    }
    EXPECT_EQ(count(RXE_PACKET_TAG_INFO_CUSTOM), 0U);
    open(R"("tags": {"count": 5})");
    access(1, RXE_ACCESS_READ, 2, 1, {}, 3);
    EXPECT_EQ(accessesOf(1), "1:0 1:0 1:0 1.") << "a stop count ends it";
    EXPECT_EQ(count(RXE_PACKET_TAG_INFO_CUSTOM), 5U);
}

TEST_F(Air, ATagThatLeavesWithinAnAccessIsSilent) {
    for (const std::string leaving : {R"("leave": 0.4)", R"("velocity": [0, 60, 0])"}) {
        open(R"("tags": [{"epc": "AA01", "position": [-1.5, 0, 1.2], )" + leaving + R"(, "user": ")" +
             std::string(1000, '0') + "\"}]");
        access(1, RXE_ACCESS_MULTIWORD_WRITE, 3, 250, std::vector<std::uint16_t>(250, 7));
        access(2, RXE_ACCESS_READ, 3, 1);
        const std::string reports = accessesOf(3);
        EXPECT_TRUE(reports.starts_with("1:0 1:0 ")) << reports;
        EXPECT_TRUE(reports.ends_with("1:0 1:2") || reports.ends_with("1:0 1:1/11")) << reports;
    }
}

// Twelve tags, by themselves and behind an event; what an event fills is full for
// the tags of the field too, until it is reset.
TEST_F(Air, ATagDatabaseFillsUp) {
    const struct {
        const char* keys;
        unsigned used, againReads, againFull;
    } cases[] = {
        {R"("database": {"capacity": 10})", 9, 10 + 3 * 2, 1},
        {R"("database": {"capacity": 100}, "events": [{"at": 0.001, "event": "database", "state": "warning"}])",
         90, 12, 0},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.keys);
        open(std::string(R"("tags": {"count": 12}, )") + row.keys);
        enable({RXE_PACKET_DB_WARNING, RXE_PACKET_DB_ERROR});
        ASSERT_EQ(set(RXE_PARAM_LAST_REPORT, REPORT_FILTER_LAST_REPORT_s{1, 0, {}, 0xFFFFFFFF}), RXE_OK);
        const unsigned reads = run({olio(1, 1, 1)}, stopRecord(0, 3)).tagReads;
        EXPECT_EQ(reads, 10U + 3 * 2) << "what has no room is reported each time";
        EXPECT_TRUE(count(RXE_PACKET_DB_WARNING) == 1 && count(RXE_PACKET_DB_ERROR) == 1);
        EXPECT_EQ(recordsOf<DB_WARNING_s>(RXE_PACKET_DB_WARNING).at(0).used, row.used);
        EXPECT_EQ(recordsOf<DB_WARNING_s>(RXE_PACKET_DB_WARNING).at(0).free, (row.used + 8) / 9);
        ASSERT_EQ(RXE_resetDb(), RXE_OK);
        EXPECT_EQ(run().tagReads, row.againReads);
        EXPECT_EQ(count(RXE_PACKET_DB_ERROR), row.againFull) << "after a reset it can fill up anew";
    }
}

TEST_F(Air, TheArrayFindsWhereATagIs) {
    open(R"("model": "QDX4400", "maxTxPower": 36, "tags": [{"epc": "AA01", "position": [0, 3, 1]}])");
    OLIO_s beam = olio(5000 + 1 + 90 / 5 + 72 * 5, 1, 4);  // azimuth 90, elevation 45
    beam.receiveAntenna = 0xFFF5;
    beam.transmitPower = 360;
    OLIO_s away = beam;
    away.transmitAntenna = 5000 + 1 + 270 / 5;
    away.transmitPower = 150;
    enable({RXE_PACKET_PARALLEL_RSSI_DEBUG});
    EXPECT_EQ(run({beam, away}, stopRecord(0, 1)).tagReads, 4U)
        << "the beam that looks away does not reach it";
    const auto all = recordsOf<PARALLEL_RSSI_s>(RXE_PACKET_PARALLEL_RSSI_DEBUG);
    EXPECT_EQ(all.size(), 4U);
    for (const PARALLEL_RSSI_s& levels : all) {
        ASSERT_EQ(levels.count, 97U);
        const auto best = std::max_element(levels.rssi, levels.rssi + levels.count) - levels.rssi;
        EXPECT_EQ(levels.beam[best], beam.transmitAntenna);
    }
    const auto tag = std::find_if(packets.begin(), packets.end(),
                                  [](auto& p) { return p.type == RXE_PACKET_TAG_INFO_CUSTOM; });
    EXPECT_EQ((tag + 1)->type, RXE_PACKET_PARALLEL_RSSI_DEBUG) << "behind the tag it belongs to";
}

// A tag beyond the outermost ring of beams, at 70 degrees and some -50 dBm.
TEST_F(Air, TheArraysSettingsDecideOnTheBearing) {
    open(R"("model": "QDX4400", "maxTxPower": 36,
        "tags": [{"epc": "AA01", "sensitivity": -40, "position": [0, 2.75, 3]}])");
    const std::uint16_t up = 5000 + 1 + 90 / 5, down = 5897;  // 70 degrees up, and straight down
    const struct {
        const char* legend;
        std::uint16_t sends, listens;
        std::uint8_t com, peak, isStatic;
        int elevation, off, confidence;
    } cases[] = {
        {"monopulse", up, 0xFFF5, 0, 0, 0, 700, 40, 80},
        {"the centre of mass is drawn inwards", up, 0xFFF5, 1, 0, 0, 570, 60, 80},
        {"a peak that is not high enough", down, 0xFFF5, 0, 12, 0, 0, 0, 25},
        {"high enough above the link's own level", down, 0xFFF5, 0, 2, 0, 700, 160, 40},
        {"and above the fixed one, which is lower for FM0", down, 0xFFF5, 0, 12, 1, 700, 160, 40},
        {"one beam alone has its own direction", up, down, 0, 0, 0, 0, 0, 25},
    };
    ASSERT_EQ(set(RXE_PARAM_CUSTOM_FIELDS, std::uint32_t{RXE_FIELD_BEARING | RXE_FIELD_RSSI}), RXE_OK);
    for (const auto& row : cases) {
        SCOPED_TRACE(row.legend);
        OLIO_s record = olio(row.sends, 1, 4);
        record.receiveAntenna = row.listens;
        record.transmitPower = row.sends == up ? 360 : 210;
        record.linkProfileIndex = 1519;
        ASSERT_EQ(set(RXE_PARAM_MONO_OR_COM, row.com), RXE_OK);
        ASSERT_EQ(set(RXE_PARAM_PEAK_THRESHOLD, row.peak), RXE_OK);
        ASSERT_EQ(set(RXE_PARAM_STATIC_V_DYNAMIC, row.isStatic), RXE_OK);
        EXPECT_EQ(run({record}, stopRecord(0, 1)).tagReads, 4U);
        for (const TAG_INFO_s& info : recordsOf<TAG_INFO_s>(RXE_PACKET_TAG_INFO_CUSTOM)) {
            EXPECT_NEAR(info.elevation, row.elevation, row.off) << int{info.rssi};
            EXPECT_TRUE(row.confidence == 25 ? info.azimuthConf == 25 : info.azimuthConf >= row.confidence);
        }
    }
}

}  // namespace
