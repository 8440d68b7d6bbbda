// SPDX-License-Identifier: MIT
// What a run shows of each parameter and of each rule of the air: one figure a row.
#include <bit>
#include <cmath>

#include "radio.hpp"

namespace {

class Effects : public Radio {
  protected:
    // What a row changes: one round of antenna 1, in session 0 with target AB.
    static inline OLIO_s o;
    static inline INVENTORY_OP_s q;
    static inline START_INFO_s info;

    static void put(unsigned id, auto record) { EXPECT_EQ(set(id, record), RXE_OK); }
    void begin(const std::string& keys) {
        open(keys);
        o = olio(1, 1, 1);
        q = {1, 1, {{0, 0, 2, 0}}};
        configure({}),
            enable({RXE_PACKET_PA_TEMP_CRIT_ALARM, RXE_PACKET_ANT_DISCONNECT_ALARM, RXE_PACKET_CHAN_PWR_LMT,
                    RXE_PACKET_TAG_CRC_ERROR, RXE_PACKET_TAG_INFO_SHORT, RXE_PACKET_TAG_INFO_LONG,
                    RXE_PACKET_TAG_INFO_COMPLETE, RXE_PACKET_CW_ON_TIMED, RXE_PACKET_CW_OFF_TIMED});
        put(RXE_PARAM_RADIO_STOP, stopRecord(0, 1));
        put(RXE_PARAM_CUSTOM_FIELDS, std::uint32_t{0xFFFFF});
    }
    static void go() {
        put(RXE_PARAM_OLIO + 1, o);
        put(RXE_PARAM_INVENTORY + 1, q);
        info = run();
    }
    static void dwell(std::uint16_t time) { o.stopType = RXE_STOP_DWELL_TIME, o.stopValue = time; }
    static void rest(std::uint16_t typeAndTime) {
        put(RXE_PARAM_TX_DELAY_INTERVAL, typeAndTime), put(RXE_PARAM_RADIO_STOP, stopRecord(0, 10));
    }
    static void range(std::uint8_t word) { put(RXE_PARAM_DYNAMIC_RANGE, word), o.linkProfileIndex = 1519; }
    static void channels(unsigned count, std::uint32_t from, std::uint8_t limit = 0) {
        for (std::uint32_t n = 1; n <= 50; ++n) {
            put(RXE_PARAM_CHANNEL + n, CHANNEL_s{n <= count, {}, from + 500 * (n - 1), limit, 0});
        }
    }
    // Fast enough for one round on one channel.
    static void hear(std::uint16_t sends, std::uint16_t listens, std::int16_t power) {
        o.transmitAntenna = sends, o.receiveAntenna = listens, o.transmitPower = power;
        o.linkProfileIndex = 1519;
    }
    // A second, unless the level of GPI 1 ends it.
    static void watch(unsigned id, std::uint8_t value) {
        put(id, value), put(RXE_PARAM_RADIO_STOP, stopRecord(1000, 0, 0, 0x11)), dwell(100);
    }
    // Four loops of two olios.
    static void report(REPORT_FILTER_LAST_REPORT_s filter) {
        put(RXE_PARAM_LAST_REPORT, filter), put(RXE_PARAM_OLIO + 2, olio(2, 1, 1));
        put(RXE_PARAM_RADIO_STOP, stopRecord(0, 4));
    }
    static void session(std::uint8_t number, std::uint8_t target) {
        q.session = number, q.target = target, q.initialQ = 2, dwell(9000);
    }
    static void select(std::uint8_t sel, std::uint16_t truncated) {
        put(RXE_PARAM_SELECT + 1, SELECT_OP_s{1, 4, 0, 1, 0x20, 8, 0, truncated, {0xAB}});
        o.selectBitMask = 1, q.sel = sel, q.target = 0;
    }
    // Serials 1 and 5 of six, whose EPCs end in the bits 01, by the flag that is `target`.
    static void choose(std::uint8_t target, std::uint8_t action, std::uint8_t sel, std::uint8_t session,
                       std::uint8_t asked) {
        put(RXE_PARAM_SELECT + 1, SELECT_OP_s{1, target, action, 1, 0x20 + 30, 2, 0, 0, {0x40}});
        o.selectBitMask = 1, q.sel = sel, q.session = session, q.target = asked;
    }
    static void access(std::uint8_t type, std::uint32_t payload) {
        put(RXE_PARAM_ACCESS + 1, ACCESS_OP_s{1, type, {}, {.payload = payload}, 1, {}, 0, 0, 0});
        o.accessBitMask = 1;
    }

    // Words of value 0 into bank and, in the upper half, from word; one word is the PC's value.
    static void write(std::uint8_t type, std::uint32_t where, std::uint16_t count) {
        put(RXE_PARAM_ACCESS + 1, ACCESS_OP_s{1, type, {}, {.payload = where}, count, {}, 0, 0, 0});
        o.accessBitMask = 1;
    }

    static std::vector<TAG_INFO_s> tags() { return recordsOf<TAG_INFO_s>(RXE_PACKET_TAG_INFO_CUSTOM); }
    static double reads() { return static_cast<double>(count(RXE_PACKET_TAG_INFO_CUSTOM)); }
    static double ms() { return static_cast<double>(info.duration) / 1000; }
    static double cause() { return info.stopCause; }
    static double alarms() { return static_cast<double>(count(RXE_PACKET_ANT_DISCONNECT_ALARM)); }
    // Thousands: told limits of channels.
    static double limited() { return reads() + 1000 * static_cast<double>(count(RXE_PACKET_CHAN_PWR_LMT)); }
    static double carriers() { return static_cast<double>(count(RXE_PACKET_CW_ON)); }
    static double level() { return 10 * std::log10(std::bit_cast<float>(tags().at(0).rssiLin)); }
    // Tens: all reads; ones: those without their first byte.
    static double cut() {
        const auto isCut = [](const TAG_INFO_s& info) { return info.epcLength == 24; };
        return 10 * reads() + static_cast<double>(std::ranges::count_if(tags(), isCut));
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
    static double broken() { return brokenTags() + brokenAccesses(); }
    // Milliseconds on a channel within 20 s, where they are most.
    static double busiest() {
        struct stay_s {
            std::uint64_t channel, from, to;
        };
        std::vector<stay_s> stays;
        for (const packet_s& packet : packets) {
            if (packet.type == RXE_PACKET_CW_ON_TIMED || packet.type == RXE_PACKET_CW_OFF_TIMED) {
                const std::uint64_t time = bigEndian(packet, 8, 8);
                if (!stays.empty() && stays.back().to == 0) {
                    stays.back().to = time;
                }
                if (packet.type == RXE_PACKET_CW_ON_TIMED) {
                    stays.push_back({bigEndian(packet, 4, 4), time, 0});
                }
            }
        }
        std::uint64_t most = 0;
        for (const stay_s& last : stays) {
            std::uint64_t used = 0;
            for (const stay_s& stay : stays) {
                const std::uint64_t from = std::max(stay.from + 20000000, last.to) - 20000000;
                used += stay.channel == last.channel && stay.from <= last.from && stay.to > from
                            ? stay.to - from
                            : 0;
            }
            most = std::max(most, used);
        }
        return static_cast<double>(most) / 1000;
    }
    // Hundreds of thousands: the result of the first access; the rest its bytes.
    static double accessed() {
        const ACCESS_INFO_s access = recordsOf<ACCESS_INFO_s>(RXE_PACKET_ACCESS_INFO).at(0);
        return access.result * 1e5 + access.dataLength;
    }
    static double written() {
        const auto isDone = [](const ACCESS_INFO_s& access) { return access.result == 0; };
        return static_cast<double>(
            std::ranges::count_if(recordsOf<ACCESS_INFO_s>(RXE_PACKET_ACCESS_INFO), isDone));
    }
    static double fields(std::uint16_t type) { return recordsOf<TAG_INFO_s>(type).at(0).fields; }
};

TEST_F(Effects, OfEachParameter) {
    const std::string still = R"("air": {"fade": 0, "errors": false}, "antennas": [{"port": 1, "position":
        [0, 0, 1]}], "tags": [{"sensitivity": -40, "epc": ")";
    const std::string near = still + R"(AB000001", "position": [0, 1, 1])", one = near + "}]";
    const std::string five = near + R"(}, {"count": 4, "epcPrefix": "CD", "epcBits": 32}])";
    const std::string pair = near + R"(}, {"sensitivity": -40, "epc": "AA02", "position": [0, )";
    const std::string far = still + R"(AA01", "position": [0, 15, 1]}, {"sensitivity": -40, "epc": "AA02",
        "position": [0, 18, 1]}])";
    const std::string four = R"("tags": {"count": 4})", field = R"("tags": {"count": 10})";
    const std::string crowd = R"("tags": {"count": 200}, "antennas": [1, 2])";
    const std::string halfway = R"("events": [{"at": 0.5, "event": )";
    const std::string high = halfway + R"("gpi", "port": 1, "level": "high"}])";
    const std::string lost = halfway + R"("antenna", "port": 1, "state": "lost"}])";
    const std::string six = R"("tags": {"count": 6, "epcPrefix": "AB", "epcBits": 32, "firstSerial": 1})";
    constexpr double all = 0x7E, chosen = 0x22, others = all - chosen;
    const std::string readable = R"("antennas": [{"port": 1, "position": [0, 0, 1]}], "tags": [{"epc": "AA01",
        "user": "00000001", "sensitivity": -40, "position": [0, )";
    const auto often = [] { access(RXE_ACCESS_READ, 3), o.stopValue = 800, o.linkProfileIndex = 1519; };
    const auto nothing = [] {};
    const std::string memory =
        R"("tags": [{"epc": "AA01", "position": [0, 1, 1], "accessPassword": "00000007",
        "user": ")" +
        std::string(4 * 2049, '0') + "\"}]";
    const auto words = [] { write(RXE_ACCESS_MULTIWORD_WRITE, 3, 200); };
    const std::string edge = R"("antennas": [{"port": 1, "position": [0, 0, 1]}], "tags": [{"epc": "AA01",
        "sensitivity": -10, "position": [0, )";
    const auto rounds = [] {
        channels(1, 865700), put(RXE_PARAM_HOP_PER_ROUND, std::uint8_t{1}), q.target = 0, o.stopValue = 400;
    };
    const auto ten = [] { o.stopValue = 10; };
    // clang-format off
    const struct {
        const char* legend; std::string keys;
        void (*change)(); double (*figure)(); double expected, off;
    } cases[] = {
        {"no report is below the RSSI threshold", R"("air": {"fade": 4}, "tags": [{"epc": "AA01"}])",
         [] { put(RXE_PARAM_RSSI_THRESHOLD, std::int8_t{-46}), o.stopValue = 200; },
         []() -> double { return std::ranges::min(tags(), {}, &TAG_INFO_s::rssi).rssi; }, -46, 0},
        {"flags fall back in the dark of a long olio", one + R"(, "events": [
            {"at": 2, "event": "move", "epc": "AB000001", "position": [900, 900, 1]},
            {"at": 50, "event": "move", "epc": "AB000001", "position": [0, 1, 1]}])",
         [] { dwell(60000), q.session = 2, q.target = 0; }, reads, 2, 0},
        {"asked for SL, what the Select matches is cut", five, [] { select(3, 24); }, cut, 11, 0},
        {"with a CRC", five, [] { select(3, 24); }, []() -> double { return tags()[0].crc; }, 0xFF46, 0},
        {"asked for the others, nobody is", five, [] { select(2, 24); }, cut, 40, 0},
        {"nor asked for all", five, [] { select(0, 24); }, cut, 50, 0},
        {"a wrong password turns no flag", near + R"(, "accessPassword": "00000007"}])",
         [] { access(RXE_ACCESS_ACCESS, 1), o.stopValue = 3, q.session = 2, q.target = 0; }, reads, 3, 0},
        {"no more unique tags, the database full", R"("database": {"capacity": 2}, "tags": {"count": 5})",
         [] { dwell(60000), put(RXE_PARAM_RADIO_STOP, stopRecord(9000, 0, 0xF001)); }, ms, 1010, 60},
        {"the level at 865.7 MHz", one, [] { channels(1, 865700); }, level, -28.4, 0.1},
        {"ten channels, 0.4 s in 20 s", one, [] { channels(10, 902000), dwell(40000); }, carriers, 20, 0},
        {"below 900 MHz 4 s, then a rest", one, [] { channels(1, 865700), dwell(8050); }, carriers, 2, 0},
        {"a CRC over XPC words", near + R"(, "xpc": "80010002"}])", nothing,
         [] { return tags()[0].crc + tags()[0].xpc1 * 65536.0 + tags()[0].xpc2 * 0x1p32; }, 0x28001B1F1, 0},
        {"the second only with the XEB bit", near + R"(, "xpc": "00010002"}])", nothing,
         [] { return tags()[0].xpc1 + tags()[0].xpc2 * 65536.0; }, 1, 0},
        {"none in a reply that is cut", near + R"(, "xpc": "80010002"}])", [] { select(3, 24); },
         [] { return tags()[0].xpc1 + tags()[0].xpc2 * 65536.0; }, 0, 0},
        {"no EPC with a PC of 0000h", one, [] { write(RXE_ACCESS_WRITE, 0x10001, 0), o.stopValue = 2; },
         []() -> double { return tags().at(1).crc + 65536.0 * tags()[1].epcLength; }, 0xE2F0, 0},
        {"a bank of more than 2,048 words", memory,
         [] { access(RXE_ACCESS_READ, 3), put(RXE_PARAM_ACCESS + 1, ACCESS_OP_s{1, 1, {}, {.payload = 3}, 0,
              {}, 0, 0, 0}), o.linkProfileIndex = 1519; }, accessed, 404096, 0},
        {"one that no channel has time for", memory,
         [] { write(RXE_ACCESS_READ, 3, 0), o.linkProfileIndex = 101; }, accessed, 500000, 0},
        // 0.4 s within 20 s, whatever is done to tags: 200 words take 1.4 s.
        {"every word is written", memory, words, written, 200, 0},
        {"over several channels", memory, words, busiest, 397, 3},
        {"behind the password too", memory, [] {
             write(RXE_ACCESS_MULTIWORD_WRITE, 3, 200), o.accessBitMask = 3;
             put(RXE_PARAM_ACCESS + 2, ACCESS_OP_s{1, RXE_ACCESS_LOCK, {}, {.payload = 0}, 0, {}, 0, 0, 0});
             put(RXE_PARAM_ACCESS + 1, ACCESS_OP_s{1, RXE_ACCESS_ACCESS, {}, {.payload = 7}, 0, {}, 0, 0, 0});
         }, written, 2, 0},
        {"many short reads", field, [] { access(RXE_ACCESS_READ, 2), dwell(30000); }, busiest, 394, 6},
        {"blocks on two channels", memory, [] { channels(2, 902750), dwell(45000), write(RXE_ACCESS_BLOCK_WRITE, 3, 200),
              put(RXE_PARAM_BLOCK_SIZE, std::uint8_t{50}), o.linkProfileIndex = 101; }, busiest, 350, 50},
        {"0.2 dB within the mean range", edge + "4.792, 1]}]", rounds, reads, 400 * 0.66, 40},
        {"0.2 dB beyond it", edge + "5.018, 1]}]", rounds, reads, 400 * 0.34, 40},
        {"a beam outside the grids", R"("model": "QDX4400")", [] { o = olio(5937, 1, 1); }, reads, 0, 0},
        {"ISO", near + R"(, "afi": 161}])", nothing, []() -> double { return tags()[0].pc; }, 0x11A1, 0},
        {"31 words of EPC", still + std::string(124, 'A') + R"(", "position": [0, 1, 1]}])", nothing,
         []() -> double { return tags()[0].epcLength + tags()[0].epc[61]; }, 496 + 0xAA, 0},
        {"a pointer of 16 bits", one, [] { access(RXE_ACCESS_READ, 3 | 128 << 16); }, ms, 9.44, 0.05},
        {"8 more take 0.25 ms", one, [] { access(RXE_ACCESS_READ, 3 | 16384 << 16); }, ms, 9.69, 0.05},
        {"an id filter", five,
         [] { put(RXE_PARAM_ID_FILTER + 1, REPORT_FILTER_ID_s{1, 0, 8, 0, {0xCD}}); }, reads, 4, 0},
        {"nine rests of 0.2 s without reads", R"("tags": [])", [] { rest(0xC801); }, ms, 1865, 5},
        {"eight without new tags", one, [] { rest(0xC802); }, ms, 1646, 5},
        {"ten delays of 50 ms after selects", one,
         [] { put(RXE_PARAM_DELAY_AFTER_SELECTS, std::uint16_t{50000}), select(0, 0), o.stopValue = 10; },
         ms, 560, 10},
        {"a hop for each round", one,
         [] { put(RXE_PARAM_HOP_PER_ROUND, std::uint8_t{1}), o.stopValue = 10; }, carriers, 10, 0},
        {"a low dynamic range hears both", far, [] { range(0); }, reads, 2, 0},
        {"a high one none", far, [] { range(2); }, reads, 0, 0},
        {"a near tag drowns a far one", pair + "3, 1]}]", ten, ms, 55, 5},
        {"but not one like it", pair + "1.1, 1]}]", ten, ms, 77, 5},
        {"started by port 3, stopped by port 4, held for 0.1 and 0.2 s", R"("events": [
            {"at": 0.5, "event": "gpi", "port": 3, "level": "high"},
            {"at": 1, "event": "gpi", "port": 4, "level": "high"}])",
         [] { put(RXE_PARAM_GPIO_START2, GPIO_START2_s{0x44, 0, 0, 0, 100, 0}), dwell(60000),
              put(RXE_PARAM_RADIO_STOP2, PER_RADIO_STOP2_s{9000, 0, 0, 0x88, 0, 0, 0, 0, 200, 0}); },
         ms, 500, 15},
        {"the tags' plane 3 m below the array", R"("model": "QDX4400", "air": {"fade": 0}, "tags": [
            {"epc": "AA01", "sensitivity": -40, "position": [0, 3, 1]}])",
         [] { put(RXE_PARAM_AAR_HEIGHT, std::uint16_t{50}), put(RXE_PARAM_TAG_HEIGHT, std::uint16_t{20}),
              o = olio(5000 + 1 + 90 / 5 + 72 * 5, 1, 1), o.receiveAntenna = 0xFFF5; },
         []() -> double { return tags()[0].locationY; }, 30, 2},
        {"a sole channel, 0.4 s in 20 s", one, [] { channels(1, 902750), dwell(25000); }, carriers, 2, 0},
        // Nine seconds of four tags.
        {"once a carrier in session 0", four, [] { session(0, 0); }, reads, 4 * 23, 4 * 3},
        {"when the flag has run down in session 1", four, [] { session(1, 0); }, reads, 4 * 4.5, 4 * 0.5},
        {"once in session 2", four, [] { session(2, 0); }, reads, 4, 0},
        {"always, with A and B in turn", four, [] { session(2, 2); }, reads, 4 * 450, 4 * 150},
        // What a Select leaves, and the Query that asks for it.
        {"SL asserted, asked for SL", six, [] { choose(4, 0, 3, 0, 0); }, who, chosen, 0},
        {"for the others", six, [] { choose(4, 0, 2, 0, 0); }, who, others, 0},
        {"for SL, the select not in the olio's mask", six,
         [] { choose(4, 0, 3, 0, 0), o.selectBitMask = 0; }, who, 0, 0},
        {"for all", six, [] { choose(4, 0, 0, 0, 0); }, who, all, 0},
        {"session 2: matching A, others B", six, [] { choose(2, 0, 0, 2, 0); }, who, chosen, 0},
        {"session 3: matching B, asked for B", six, [] { choose(3, 4, 0, 3, 1); }, who, chosen, 0},
        {"session 3: asked for A", six, [] { choose(3, 4, 0, 3, 0); }, who, others, 0},
        // With FM0 the receiver decodes down to -75 dBm: 12 m are some 2 dB above that.
        {"frames get lost near the edge", readable + "12, 1]}]", often, brokenTags, 0.26, 0.24},
        {"those of accesses too", readable + "12, 1]}]", often, brokenAccesses, 0.26, 0.24},
        {"without errors none", readable + R"(12, 1]}], "air": {"errors": false})", often, broken, 0, 0},
        {"nor nearby", readable + "3, 1]}]", often, broken, 0, 0},
        // Ten tags, read eight times.
        {"no last-report filter", field, [] { report({0, 0, {}, 1}); }, reads, 80, 0},
        {"of no duration", field, [] { report({1, 0, {}, 0}); }, reads, 80, 0},
        {"radio wide, for ever", field, [] { report({1, 0, {}, 0xFFFFFFFF}); }, reads, 10, 0},
        {"in the next run too", field, [] { report({1, 0, {}, 0xFFFFFFFF}), go(); }, reads, 0, 0},
        {"per olio, for ever", field, [] { report({1, 1, {}, 0xFFFFFFFF}); }, reads, 20, 0},
        // How many of 200 tags hear, and are heard.
        {"full power", crowd, [] { hear(1, 1, 300); }, limited, 200, 0},
        {"less", crowd, [] { hear(1, 1, 150); }, limited, 150, 30},
        {"no more, by the channel's own limit", crowd,
         [] { hear(1, 1, 300), channels(50, 902750, 150); }, limited, 1150, 30},
        {"with a lossy cable", crowd,
         [] { hear(1, 1, 150), put(RXE_PARAM_CABLE_LOSS + 1, std::uint16_t{30}); }, reads, 70, 49},
        {"another antenna listens", crowd, [] { hear(1, 2, 300); }, reads, 200, 0},
        {"through its own cable", crowd,
         [] { hear(1, 2, 150), put(RXE_PARAM_CABLE_LOSS + 2, std::uint16_t{255}); }, reads, 60, 55},
        {"one that is not connected does not send", crowd, [] { hear(3, 3, 300); }, reads, 0, 0},
        {"nor listen", crowd, [] { hear(1, 3, 300); }, reads, 0, 0},
        {"a port that the reader has not got", crowd,
         [] { hear(2, 2, 300), put(RXE_PARAM_NUM_ANTENNAS, std::uint16_t{1}); }, reads, 0, 0},
        {"too weak for the threshold", crowd,
         [] { hear(1, 1, 300), put(RXE_PARAM_RSSI_THRESHOLD, std::int8_t{-40}); }, reads, 100, 80},
        // A second with an event in its middle.
        {"an input", high, [] { watch(RXE_PARAM_GPIO_DIR, 0x01); }, cause, 16, 0},
        {"an output", high, [] { watch(RXE_PARAM_GPIO_DIR, 0xFE); }, cause, 4, 0},
        {"antennas are checked", lost, [] { watch(RXE_PARAM_ANTENNA_CHECK, 2); }, alarms, 1, 0},
        {"not that soon", lost, [] { watch(RXE_PARAM_ANTENNA_CHECK, 30); }, alarms, 0, 0},
        {"never", lost, [] { watch(RXE_PARAM_ANTENNA_CHECK, 0); }, alarms, 0, 0},
        {"a fault", halfway + "\"fault\"}]", [] { watch(RXE_PARAM_ANTENNA_CHECK, 0); }, cause, 32, 0},
        // The other kinds of tag packets.
        {"TAG_INFO_SHORT", one, nothing, [] { return fields(RXE_PACKET_TAG_INFO_SHORT); }, RXE_FIELD_EPC, 0},
        {"TAG_INFO_LONG", one, nothing, [] { return fields(RXE_PACKET_TAG_INFO_LONG); }, 0x2671, 0},
        {"TAG_INFO_COMPLETE", one, nothing, [] { return fields(RXE_PACKET_TAG_INFO_COMPLETE); }, 0xFFFFF, 0},
    };
    // clang-format on
    for (const auto& row : cases) {
        SCOPED_TRACE(row.legend);
        begin(row.keys);
        row.change(), go();
        EXPECT_NEAR(row.figure(), row.expected, row.off);
    }
}

// What a scenario's events and heat brought when a log was written comes out of the log alone.
TEST_F(Effects, APlayedLogHasNoEventsBesideIt) {
    const char* const keys = R"("temperatures": {"pa": 120}, "events": [
        {"at": 0.1, "event": "error", "text": "made up"}])";
    begin(keys);
    ASSERT_EQ(RXE_enablePacketLogging((directory / "log").c_str()), RXE_OK);
    dwell(300), go();
    const auto recorded = packets;
    EXPECT_EQ(count(RXE_PACKET_ERROR_LOG) + count(RXE_PACKET_PA_TEMP_CRIT_ALARM), 2U);
    setenv("RXE_REPLAY", (directory / "log").c_str(), 1);
    begin(keys);
    run();
    unsetenv("RXE_REPLAY");
    EXPECT_EQ(packets, recorded);
}

}  // namespace
