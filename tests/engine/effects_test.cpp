// SPDX-License-Identifier: MIT
// What a run shows of each parameter and of each rule of the air: one figure a row.
#include <bit>
#include <cmath>

#include "radio.hpp"

namespace {

struct parameter_s {
    unsigned id;
    std::vector<std::uint8_t> record;
};

// One run: a scenario, what the host writes, and what comes of it.
struct effect_s {
    const char* name = "";
    std::string scenario = {};  // its keys
    // The only olio.
    std::uint16_t sends = 1, listens = 1;  // antennas
    std::int16_t power = 300;              // tenths of dBm
    std::uint16_t profile = 0;
    std::uint16_t rounds = 1;
    std::uint16_t dwell = 0;  // milliseconds, in place of rounds
    std::uint32_t selects = 0;
    std::uint64_t accesses = 0;
    // Its query.
    std::uint8_t sel = 0, session = 0, target = 2, initialQ = 0;  // A and B in turn
    PER_RADIO_STOP_s stop = {0, 1, 0, 0, 0, 0, 0, 0};             // after one loop
    struct {
        std::uint32_t count = 0;  // of 50, 500 kHz apart; 0 leaves them as they are
        std::uint32_t from = 0;   // kHz
        std::uint8_t limit = 0;   // tenths of dBm
    } channels = {};
    std::vector<parameter_s> parameters = {};
    struct figure_s {
        double (*of)();
        double expected, within = 0;
    };
    std::vector<figure_s> shows = {};
};

constexpr std::uint16_t fastest = 1519;  // FM0 at 640 kHz
constexpr std::uint8_t onlyA = 0, onlyB = 1;

template <class Record>
parameter_s parameter(unsigned id, const Record& record) {
    const auto* first = reinterpret_cast<const std::uint8_t*>(&record);
    return {id, {first, first + sizeof record}};
}
// `payload`: a password or a lock word; for memory the bank, and the word in the upper half.
parameter_s access(std::uint8_t type, std::uint32_t payload, std::uint16_t count = 1, unsigned id = 1) {
    return parameter(RXE_PARAM_ACCESS + id,
                     ACCESS_OP_s{1, type, {}, {.payload = payload}, count, {}, 0, 0, 0});
}
// Asserts SL of tags whose EPC begins with AB; they reply without their first `truncated` bits.
parameter_s selectOfAB(std::uint16_t truncated) {
    return parameter(RXE_PARAM_SELECT + 1, SELECT_OP_s{1, 4, 0, 1, 0x20, 8, 0, truncated, {0xAB}});
}
// Of serials 1 and 5 of six, whose EPCs end in the bits 01.
parameter_s selectOf01(std::uint8_t target, std::uint8_t action) {
    return parameter(RXE_PARAM_SELECT + 1, SELECT_OP_s{1, target, action, 1, 0x20 + 30, 2, 0, 0, {0x40}});
}

class Effects : public Radio {
  protected:
    static inline START_INFO_s info;  // how the last run ended

    static void put(parameter_s parameter) {
        EXPECT_EQ(
            RXE_setParam2(static_cast<unsigned short>(parameter.id), parameter.record.data(), true, true),
            RXE_OK);
    }
    static void write(const effect_s& row) {
        configure({});
        enable({RXE_PACKET_PA_TEMP_CRIT_ALARM, RXE_PACKET_ANT_DISCONNECT_ALARM, RXE_PACKET_CHAN_PWR_LMT,
                RXE_PACKET_TAG_CRC_ERROR, RXE_PACKET_TAG_INFO_SHORT, RXE_PACKET_TAG_INFO_LONG,
                RXE_PACKET_TAG_INFO_COMPLETE, RXE_PACKET_CW_ON_TIMED, RXE_PACKET_CW_OFF_TIMED});
        put(parameter(RXE_PARAM_CUSTOM_FIELDS, std::uint32_t{0xFFFFF}));
        put(parameter(RXE_PARAM_RADIO_STOP, row.stop));
        const auto& [count, from, limit] = row.channels;
        for (std::uint32_t n = 0; count != 0 && n < 50; ++n) {
            put(parameter(RXE_PARAM_CHANNEL + 1 + n, CHANNEL_s{n < count, {}, from + 500 * n, limit, 0}));
        }
        std::ranges::for_each(row.parameters, put);
        OLIO_s record = row.dwell != 0 ? olio(row.sends, RXE_STOP_DWELL_TIME, row.dwell)
                                       : olio(row.sends, RXE_STOP_INVENTORY_ROUNDS, row.rounds);
        record.receiveAntenna = row.listens;
        record.transmitPower = row.power;
        record.linkProfileIndex = row.profile;
        record.selectBitMask = row.selects;
        record.accessBitMask = row.accesses;
        put(parameter(RXE_PARAM_OLIO + 1, record));
        query(row.sel, row.session, row.target, row.initialQ);
    }
    void play(const std::vector<effect_s>& rows) {
        for (const effect_s& row : rows) {
            open(row.scenario);
            write(row);
            info = run();
            for (const auto& [figure, expected, within] : row.shows) {
                EXPECT_NEAR(figure(), expected, within) << row.name;
            }
        }
    }

    static std::vector<TAG_INFO_s> tags() { return recordsOf<TAG_INFO_s>(RXE_PACKET_TAG_INFO_CUSTOM); }
    static double reads() { return static_cast<double>(count(RXE_PACKET_TAG_INFO_CUSTOM)); }
    static double milliseconds() { return static_cast<double>(info.duration) / 1000; }
    static double cause() { return info.stopCause; }
    static double disconnections() { return static_cast<double>(count(RXE_PACKET_ANT_DISCONNECT_ALARM)); }
    static double limits() { return static_cast<double>(count(RXE_PACKET_CHAN_PWR_LMT)); }
    static double carriers() { return static_cast<double>(count(RXE_PACKET_CW_ON)); }
    static double weakest() { return std::ranges::min(tags(), {}, &TAG_INFO_s::rssi).rssi; }
    static double level() { return 10 * std::log10(std::bit_cast<float>(tags().at(0).rssiLin)); }
    static double crc() { return tags().at(0).crc; }
    static double pc() { return tags().at(0).pc; }
    static double lastByte() { return tags().at(0).epc[tags().at(0).epcLength / 8 - 1]; }
    static double locationX() { return tags().at(0).locationX; }
    static double locationY() { return tags().at(0).locationY; }
    static double extendedWords() { return tags().at(0).xpc1 + tags().at(0).xpc2 * 65536.0; }
    static double cutReplies() {
        return static_cast<double>(std::ranges::count(tags(), 24, &TAG_INFO_s::epcLength));
    }
    // One bit for each tag, by the last byte of its EPC.
    static double who() {
        unsigned bits = 0;
        for (const TAG_INFO_s& tag : tags()) {
            bits |= 1U << tag.epc[tag.epcLength / 8 - 1];
        }
        return bits;
    }
    // Shares of what was read.
    static double brokenTags() { return static_cast<double>(count(RXE_PACKET_TAG_CRC_ERROR)) / reads(); }
    static double brokenAccesses() {
        double broken = 0;
        for (const ACCESS_INFO_s& access : recordsOf<ACCESS_INFO_s>(RXE_PACKET_ACCESS_INFO)) {
            EXPECT_TRUE(access.result == 0 || access.result == 3) << int{access.result};
            broken += access.result == 3;
        }
        EXPECT_EQ(count(RXE_PACKET_ACCESS_INFO), count(RXE_PACKET_TAG_INFO_CUSTOM));
        return broken / reads();
    }
    // Milliseconds of the longest carrier.
    static double longestCarrier() {
        std::uint64_t on = 0, longest = 0;
        for (const packet_s& packet : packets) {
            if (packet.type == RXE_PACKET_CW_ON_TIMED) {
                on = bigEndian(packet, 8, 8);
            } else if (packet.type == RXE_PACKET_CW_OFF_TIMED) {
                longest = std::max(longest, bigEndian(packet, 8, 8) - on);
            }
        }
        return static_cast<double>(longest) / 1000;
    }
    static ACCESS_INFO_s accessed() { return recordsOf<ACCESS_INFO_s>(RXE_PACKET_ACCESS_INFO).at(0); }
    static double result() { return accessed().result; }
    static double bytes() { return accessed().dataLength; }
    static double written() {
        const auto all = recordsOf<ACCESS_INFO_s>(RXE_PACKET_ACCESS_INFO);
        return static_cast<double>(std::ranges::count(all, 0, &ACCESS_INFO_s::result));
    }
    template <std::uint16_t type>
    static double fieldsOf() {
        return recordsOf<TAG_INFO_s>(type).at(0).fields;
    }
};

// Without fading and errors; the tag AB000001 a metre in front of the antenna.
const std::string still =
    R"("air": {"fade": 0, "errors": false}, "antennas": [{"port": 1, "position": [0, 0, 1]}])";
std::string tagAt(double metres, const std::string& epc = "AB000001", const std::string& keys = "") {
    return R"({"sensitivity": -40, "epc": ")" + epc + R"(", "position": [0, )" + std::to_string(metres) +
           ", 1]" + keys + "}";
}
std::string stillWith(const std::string& tags) {
    return still + R"(, "tags": [)" + tags + "]";
}
const std::string one = stillWith(tagAt(1)), fourTags = R"("tags": {"count": 4})",
                  tenTags = R"("tags": {"count": 10})";

// Tables of named fields, two or three lines a row.
// clang-format off
TEST_F(Effects, OfSelects) {
    const std::string five = stillWith(tagAt(1) + R"(, {"count": 4, "epcPrefix": "CD", "epcBits": 32})");
    const std::string six = R"("tags": {"count": 6, "epcPrefix": "AB", "epcBits": 32, "firstSerial": 1})";
    constexpr double chosen = 0x22;
    constexpr std::uint8_t sl = 4, withoutSl = 2, withSl = 3;
    play({
        {.name = "asked for SL, what matches is cut, but for its CRC", .scenario = five, .selects = 1,
         .sel = withSl, .target = onlyA, .parameters = {selectOfAB(24)},
         .shows = {{reads, 1}, {cutReplies, 1}, {crc, 0xFF46}}},
        {.name = "asked for the others, no reply is cut", .scenario = five, .selects = 1, .sel = withoutSl,
         .target = onlyA, .parameters = {selectOfAB(24)}, .shows = {{reads, 4}, {cutReplies, 0}}},
        {.name = "asked for all, no reply is cut", .scenario = five, .selects = 1, .target = onlyA,
         .parameters = {selectOfAB(24)}, .shows = {{reads, 5}, {cutReplies, 0}}},
        {.name = "the Select is not in the olio's mask", .scenario = six, .sel = withSl, .target = onlyA,
         .parameters = {selectOf01(sl, 0)}, .shows = {{who, 0}}},
        {.name = "session 2: what matches gets A, the others B", .scenario = six, .selects = 1, .session = 2,
         .target = onlyA, .parameters = {selectOf01(2, 0)}, .shows = {{who, chosen}}},
        {.name = "session 3: what matches gets B, the others A", .scenario = six, .selects = 1, .session = 3,
         .target = onlyB, .parameters = {selectOf01(3, 4)}, .shows = {{who, chosen}}},
        {.name = "ten delays of 50 ms behind the Selects", .scenario = one, .rounds = 10, .selects = 1,
         .parameters = {selectOfAB(0), parameter(RXE_PARAM_DELAY_AFTER_SELECTS, std::uint16_t{50000})},
         .shows = {{milliseconds, 560, 10}}},
    });
}

TEST_F(Effects, OfSessions) {
    const std::string leavesAndReturns = R"(, "events": [
        {"at": 2, "event": "move", "epc": "AB000001", "position": [900, 900, 1]},
        {"at": 50, "event": "move", "epc": "AB000001", "position": [0, 1, 1]}])";
    const std::string guarded = stillWith(tagAt(1, "AA01", R"(, "accessPassword": "00000007")"));
    play({
        {.name = "session 0: once a carrier", .scenario = fourTags, .dwell = 9000, .target = onlyA, .initialQ = 2,
         .shows = {{reads, 4 * 23, 4 * 3}}},
        {.name = "session 1: when the flag has run down", .scenario = fourTags, .dwell = 9000, .session = 1,
         .target = onlyA, .initialQ = 2, .shows = {{reads, 4 * 4.5, 4 * 0.5}}},
        {.name = "session 2: once", .scenario = fourTags, .dwell = 9000, .session = 2, .target = onlyA,
         .initialQ = 2, .shows = {{reads, 4}}},
        {.name = "session 2, A and B in turn: always", .scenario = fourTags, .dwell = 9000, .session = 2,
         .initialQ = 2, .shows = {{reads, 4 * 450, 4 * 150}}},
        {.name = "flags fall back in the dark of a long olio", .scenario = one + leavesAndReturns, .dwell = 60000,
         .session = 2, .target = onlyA, .shows = {{reads, 2}}},
        {.name = "a wrong password turns no flag", .scenario = guarded, .rounds = 3, .accesses = 1, .session = 2,
         .target = onlyA, .parameters = {access(RXE_ACCESS_ACCESS, 1)}, .shows = {{reads, 3}}},
    });
}

TEST_F(Effects, OfReplies) {
    const auto withKeys = [](const char* keys) { return stillWith(tagAt(1, "AB000001", keys)); };
    play({
        {.name = "extended words", .scenario = withKeys(R"(, "xpc": "80010002")"),
         .shows = {{extendedWords, 0x28001}, {crc, 0xB1F1}}},
        {.name = "the second only with the XEB bit", .scenario = withKeys(R"(, "xpc": "00010002")"),
         .shows = {{extendedWords, 1}}},
        {.name = "an application family", .scenario = withKeys(R"(, "afi": 161)"), .shows = {{pc, 0x11A1}}},
        {.name = "31 words of EPC", .scenario = stillWith(tagAt(1, std::string(122, 'A') + "0B")),
         .shows = {{pc, 31 << 11}, {lastByte, 0x0B}}},
        {.name = "the fields of the other tag packets", .scenario = one,
         .shows = {{fieldsOf<RXE_PACKET_TAG_INFO_SHORT>, RXE_FIELD_EPC},
                   {fieldsOf<RXE_PACKET_TAG_INFO_LONG>, 0x2671},
                   {fieldsOf<RXE_PACKET_TAG_INFO_COMPLETE>, 0xFFFFF}}},
    });
}

TEST_F(Effects, OfAccesses) {
    const std::string large = R"("tags": [{"epc": "AA01", "position": [0, 1, 1], "accessPassword": "00000007",
        "locks": {"user": "locked"}, "user": ")" + std::string(4 * 2049, '0') + "\"}]";
    const parameter_s readAll = access(RXE_ACCESS_READ, 3, 0);
    const parameter_s write200 = access(RXE_ACCESS_MULTIWORD_WRITE, 3, 200, 2);
    play({
        {.name = "a bank of more than 2,048 words", .scenario = large, .profile = fastest, .accesses = 1,
         .parameters = {readAll}, .shows = {{result, 4}, {bytes, 4096}}},
        {.name = "one that no channel has time for", .scenario = large, .profile = 101, .accesses = 1,
         .parameters = {readAll}, .shows = {{result, 5}, {bytes, 0}}},
        // 0.4 s on a channel within 20 s, whatever is done to tags: 200 words take 1.4 s.
        {.name = "every word is written, over several channels, each with the password", .scenario = large,
         .accesses = 3, .parameters = {access(RXE_ACCESS_ACCESS, 7), write200},
         .shows = {{written, 1 + 200}, {longestCarrier, 397, 3}}},
        {.name = "a pointer of 16 bits", .scenario = one, .accesses = 1,
         .parameters = {access(RXE_ACCESS_READ, 3 | 128 << 16)}, .shows = {{milliseconds, 9.44, 0.05}}},
        {.name = "8 bits more take 0.25 ms", .scenario = one, .accesses = 1,
         .parameters = {access(RXE_ACCESS_READ, 3 | 16384 << 16)}, .shows = {{milliseconds, 9.69, 0.05}}},
    });
}

TEST_F(Effects, OfChannelsAndPauses) {
    // 0.2 s, without reads or without new tags.
    const parameter_s withoutReads = parameter(RXE_PARAM_TX_DELAY_INTERVAL, std::uint16_t{0xC801});
    const parameter_s withoutNewTags = parameter(RXE_PARAM_TX_DELAY_INTERVAL, std::uint16_t{0xC802});
    play({
        {.name = "the level at 0.5 m and 865.7 MHz", .scenario = stillWith(tagAt(0.5)), .channels = {1, 865700},
         .shows = {{level, -16.4, 0.1}}},
        {.name = "ten channels, 0.4 s in 20 s", .scenario = one, .dwell = 40000, .channels = {10, 902000},
         .shows = {{carriers, 20}}},
        {.name = "below 900 MHz 4 s, then a rest", .scenario = one, .dwell = 8050, .channels = {1, 865700},
         .shows = {{carriers, 2}}},
        {.name = "a hop for each round", .scenario = one, .rounds = 10,
         .parameters = {parameter(RXE_PARAM_HOP_PER_ROUND, std::uint8_t{1})}, .shows = {{carriers, 10}}},
        {.name = "nine rests without reads", .scenario = R"("tags": [])", .stop = stopRecord(0, 10),
         .parameters = {withoutReads}, .shows = {{milliseconds, 1865, 5}}},
        {.name = "eight without new tags", .scenario = one, .stop = stopRecord(0, 10),
         .parameters = {withoutNewTags}, .shows = {{milliseconds, 1646, 5}}},
    });
}

TEST_F(Effects, OfTheAir) {
    const std::string edge = R"("antennas": [{"port": 1, "position": [0, 0, 1]}], "tags": [{"epc": "AA01",
        "sensitivity": -10, "position": [0, 4.792, 1]}])";
    const std::string readable = R"("antennas": [{"port": 1, "position": [0, 0, 1]}], "tags": [{"epc": "AA01",
        "user": "00000001", "sensitivity": -40, "position": [0, 12, 1]}])";
    const std::string far = stillWith(tagAt(15, "AA01") + ", " + tagAt(18, "AA02"));
    play({
        {.name = "no report is below the RSSI threshold",
         .scenario = R"("air": {"fade": 4}, "tags": [{"epc": "AA01"}])", .rounds = 200,
         .parameters = {parameter(RXE_PARAM_RSSI_THRESHOLD, std::int8_t{-46})},
         .shows = {{weakest, -46}}},
        {.name = "0.2 dB within the mean range", .scenario = edge, .rounds = 400, .target = onlyA,
         .channels = {1, 865700}, .parameters = {parameter(RXE_PARAM_HOP_PER_ROUND, std::uint8_t{1})},
         .shows = {{reads, 400 * 0.66, 40}}},
        {.name = "a low dynamic range hears two far tags", .scenario = far, .profile = fastest,
         .parameters = {parameter(RXE_PARAM_DYNAMIC_RANGE, std::uint8_t{0})}, .shows = {{reads, 2}}},
        {.name = "a high one hears neither", .scenario = far, .profile = fastest,
         .parameters = {parameter(RXE_PARAM_DYNAMIC_RANGE, std::uint8_t{2})}, .shows = {{reads, 0}}},
        {.name = "a near tag drowns a far one", .scenario = stillWith(tagAt(1) + ", " + tagAt(3, "AA02")),
         .rounds = 10, .shows = {{milliseconds, 55, 5}}},
        {.name = "but not one like it", .scenario = stillWith(tagAt(1) + ", " + tagAt(1.1, "AA02")), .rounds = 10,
         .shows = {{milliseconds, 77, 5}}},
        // With FM0 the receiver decodes down to -75 dBm: 12 m are some 2 dB above that.
        {.name = "frames get lost near the edge", .scenario = readable, .profile = fastest, .rounds = 800,
         .accesses = 1, .parameters = {access(RXE_ACCESS_READ, 3)},
         .shows = {{brokenTags, 0.26, 0.24}, {brokenAccesses, 0.26, 0.24}}},
        {.name = "none without errors", .scenario = readable + R"(, "air": {"errors": false})", .profile = fastest,
         .rounds = 800, .accesses = 1, .parameters = {access(RXE_ACCESS_READ, 3)},
         .shows = {{brokenTags, 0}, {brokenAccesses, 0}}},
    });
}

TEST_F(Effects, OfAntennasAndPower) {
    const std::string crowd = R"("tags": {"count": 200}, "antennas": [1, 2])";
    const std::string below = R"("model": "QDX4400", "air": {"fade": 0}, "tags": [
        {"epc": "AA01", "sensitivity": -40, "position": [0, 3, 1]}])";
    constexpr std::uint16_t beam = 5000 + 1 + 90 / 5 + 72 * 5;  // azimuth 90, elevation 45
    play({
        {.name = "full power", .scenario = crowd, .profile = fastest, .shows = {{reads, 200}}},
        {.name = "no more, by the channel's own limit", .scenario = crowd, .profile = fastest,
         .channels = {50, 902750, 150}, .shows = {{reads, 150, 30}, {limits, 1}}},
        {.name = "with a lossy cable", .scenario = crowd, .power = 150, .profile = fastest,
         .parameters = {parameter(RXE_PARAM_CABLE_LOSS + 1, std::uint16_t{30})}, .shows = {{reads, 70, 49}}},
        {.name = "another antenna listens, through a cable of its own", .scenario = crowd, .listens = 2,
         .power = 150, .profile = fastest,
         .parameters = {parameter(RXE_PARAM_CABLE_LOSS + 2, std::uint16_t{255})}, .shows = {{reads, 60, 55}}},
        {.name = "one that is not connected does not send", .scenario = crowd, .sends = 3, .listens = 1,
         .profile = fastest, .shows = {{reads, 0}}},
        {.name = "nor does it listen", .scenario = crowd, .listens = 3, .profile = fastest, .shows = {{reads, 0}}},
        {.name = "a port that the reader has not got", .scenario = crowd, .sends = 2, .listens = 2,
         .profile = fastest, .parameters = {parameter(RXE_PARAM_NUM_ANTENNAS, std::uint16_t{1})},
         .shows = {{reads, 0}}},
        {.name = "a beam outside the grids", .scenario = R"("model": "QDX4400")", .sends = 5937, .listens = 5937,
         .shows = {{reads, 0}}},
        {.name = "the tags' plane 3 m below the array", .scenario = below, .sends = beam, .listens = 0xFFF5,
         .parameters = {parameter(RXE_PARAM_AAR_HEIGHT, std::uint16_t{50}),
                        parameter(RXE_PARAM_TAG_HEIGHT, std::uint16_t{20})},
         .shows = {{locationX, 0, 2}, {locationY, 30, 2}}},
    });
}

TEST_F(Effects, OfReportFilters) {
    const auto lastReport = [](std::uint8_t enable, std::uint8_t perOlio, std::uint32_t seconds) {
        return parameter(RXE_PARAM_LAST_REPORT, REPORT_FILTER_LAST_REPORT_s{enable, perOlio, {}, seconds});
    };
    constexpr std::uint32_t forEver = 0xFFFFFFFF;
    const PER_RADIO_STOP_s fourLoops = stopRecord(0, 4);
    const parameter_s second = parameter(RXE_PARAM_OLIO + 2, olio(2, 1, 1));
    play({
        {.name = "ten tags by themselves, read eight times", .scenario = tenTags, .stop = fourLoops,
         .parameters = {second, lastReport(0, 0, 1)}, .shows = {{reads, 80}}},
        {.name = "of no duration", .scenario = tenTags, .stop = fourLoops,
         .parameters = {second, lastReport(1, 0, 0)}, .shows = {{reads, 80}}},
        {.name = "per olio, for ever", .scenario = tenTags, .stop = fourLoops,
         .parameters = {second, lastReport(1, 1, forEver)}, .shows = {{reads, 20}}},
        {.name = "by the first byte of the EPC", .scenario = R"("tags": [{"epc": "AB01"}, {"epc": "CD01"}])",
         .parameters = {parameter(RXE_PARAM_ID_FILTER + 1, REPORT_FILTER_ID_s{1, 0, 8, 0, {0xCD}})},
         .shows = {{reads, 1}}},
        {.name = "radio wide, for ever", .scenario = tenTags, .stop = fourLoops,
         .parameters = {second, lastReport(1, 0, forEver)}, .shows = {{reads, 10}}},
    });
    run();
    EXPECT_EQ(reads(), 0) << "in the next run too";
}

// A second with an event in its middle, unless the level of GPI 1 ends it.
TEST_F(Effects, OfEvents) {
    const std::string halfway = R"("events": [{"at": 0.5, "event": )";
    const std::string high = halfway + R"("gpi", "port": 1, "level": "high"}])";
    const std::string lost = halfway + R"("antenna", "port": 1, "state": "lost"}])";
    const std::string bothPorts = R"("events": [{"at": 0.5, "event": "gpi", "port": 3, "level": "high"},
        {"at": 1, "event": "gpi", "port": 4, "level": "high"}])";
    const PER_RADIO_STOP_s second = stopRecord(1000, 0, 0, 0x11);
    const auto check = [](std::uint8_t seconds) { return parameter(RXE_PARAM_ANTENNA_CHECK, seconds); };
    play({
        {.name = "an input", .scenario = high, .dwell = 100, .stop = second,
         .parameters = {parameter(RXE_PARAM_GPIO_DIR, std::uint8_t{0x01})}, .shows = {{cause, 16}}},
        {.name = "an output", .scenario = high, .dwell = 100, .stop = second,
         .parameters = {parameter(RXE_PARAM_GPIO_DIR, std::uint8_t{0xFE})}, .shows = {{cause, 4}}},
        {.name = "antennas are checked", .scenario = lost, .dwell = 100, .stop = second, .parameters = {check(2)},
         .shows = {{disconnections, 1}}},
        {.name = "not that soon", .scenario = lost, .dwell = 100, .stop = second, .parameters = {check(30)},
         .shows = {{disconnections, 0}}},
        {.name = "never", .scenario = lost, .dwell = 100, .stop = second, .parameters = {check(0)},
         .shows = {{disconnections, 0}}},
        {.name = "a fault", .scenario = halfway + "\"fault\"}]", .dwell = 100, .stop = second,
         .shows = {{cause, 32}}},
        {.name = "no more unique tags, the database full",
         .scenario = R"("database": {"capacity": 2}, "tags": {"count": 5})", .dwell = 60000,
         .stop = stopRecord(9000, 0, 0xF001), .shows = {{milliseconds, 1010, 60}}},
        {.name = "started by port 3, stopped by port 4, held for 0.1 and 0.2 s", .scenario = bothPorts,
         .dwell = 60000,
         .parameters = {parameter(RXE_PARAM_GPIO_START2, GPIO_START2_s{0x44, 0, 0, 0, 100, 0}),
                        parameter(RXE_PARAM_RADIO_STOP2, PER_RADIO_STOP2_s{9000, 0, 0, 0x88, 0, 0, 0, 0, 200, 0})},
         .shows = {{milliseconds, 500, 15}}},
    });
}
// clang-format on

}  // namespace
