// SPDX-License-Identifier: MIT
// What is known of one tag and of the reader that should report it. why.cpp fills it from
// replies of the daemon and of the software radio; rules.cpp draws its conclusions. Nothing here
// opens a socket, so that other programs can use both.
#pragma once

#include <cstdint>
#include <map>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace why {

// An EPC with this many digits is taken for a whole one, a shorter one for the first digits of
// several: nearly all tags have 96 bits.
inline constexpr std::size_t usualDigits = 24;

// A tag packet of the daemon's trace. Times are local, as in reports.
struct packet_s {
    std::string epc;
    std::string fate;  // a name of vocabulary::fates, or vocabulary::pendingFate
    std::uint32_t antenna = 0;
    std::optional<int> rssi;                // dBm; the mode may not ask for it
    std::string form;                       // of a report that was sent: OFF, STRING, BINARY
    std::optional<std::uint64_t> eventNum;  // of a report that was sent, if its form has one
    std::uint64_t listeners = 0;            // subscribers at that moment
    std::string rule;                       // of the tag filter that refused it
    std::string until;                      // while additional keys keep it quiet
};

// Gen2 Select and Query (EPC Gen2, 6.3.2.12.1.1 and 6.3.2.12.2.1) in the words of the mode
// language.
struct select_s {
    int number = 0;  // in the radio, from 1
    std::string target, action, bank;
    std::uint32_t pointer = 0, length = 0;  // bits
    std::string mask;                       // hexadecimal digits
};
struct query_s {
    std::string sel = "ALL", session = "S1", target = "A";
};

// One turn of the radio's cycle: an entry of the mode's antennas or beams.
struct antenna_s {
    std::uint32_t number = 0;  // port from 1, or beam
    double power = 0;          // dBm
    query_s query;
    std::vector<select_s> selects;
};

// The tag filter of a mode, in its words: "3034", "prefix", "include".
struct filter_s {
    std::string value, match, operation;
};

// How long a tag is not reported again. Without additional keys the radio itself holds further
// reads back, with them the daemon does.
struct report_filter_s {
    bool perAntenna = false;
    std::uint64_t seconds = 0;  // 0: off
    std::vector<std::string> keys;
};
inline constexpr std::uint64_t withoutEnd = 4294967295;  // seconds

// A mode, as far as it decides what is reported.
struct mode_s {
    std::string type;
    std::vector<antenna_s> antennas;
    std::optional<filter_s> filter;
    report_filter_s reportFilter;
    std::optional<int> weakest;      // dBm, below which the radio ignores replies
    std::string start;               // "GPI 1 HIGH": what a run waits for; empty: nothing
    std::vector<std::string> stops;  // "after 5 s": what ends a run by itself
};

// The tag in the software radio's scene, as its control socket answers "tag EPC".
//
// An antenna, and how it reaches the tag.
struct reach_s {
    std::uint32_t antenna = 0;
    bool connected = false, used = false;
    double power = 0;    // dBm at the tag
    double margin = 0;   // dB above what the tag needs, or the receiver if that is less
    std::string silent;  // why a connected antenna reads nothing; empty: it reads
};
// A read of the tag by the radio, reported or not.
struct sight_s {
    double ago = 0;  // seconds
    std::uint32_t antenna = 0;
    std::string by;  // what suppressed the read
};
// Whether the mask of a Select in the radio matches the tag's memory now.
struct select_verdict_s {
    bool matches = true;
    std::string mask, tag;  // hexadecimal digits, when it does not match
};
struct scene_s {
    bool present = false;  // whether a tag of the scene has this EPC
    std::vector<reach_s> antennas;
    std::map<std::string, bool> flags;    // S0 to S3: B; SL: asserted
    std::map<std::string, double> quiet;  // seconds until a flag falls back to A
    std::map<int, select_verdict_s> selects;
    std::optional<sight_s> singulated, suppressed;
};

// A key in the daemon's database of additional keys that keeps the tag quiet.
struct held_key_s {
    std::string key;
    double seconds = 0;  // for which it still does
};

// All facts. What was not asked or not answered has its default.
struct facts_s {
    std::string epc;                // lower-case hexadecimal digits, perhaps only the first ones
    double seconds = 0;             // how long was listened
    std::string since;              // of a trace that was there before; empty: it began with the listening
    std::uint64_t heard = 0;        // packets of the tag since then
    std::uint64_t heardBefore = 0;  // of them, those that came before the listening
    bool areKept = false;           // reports left while nobody was connected, and none of them was lost
    std::vector<packet_s> packets;  // the last of them, oldest first

    bool wasActive = false, isActive = false;  // the radio, before and after the listening
    bool hasRead = false;                      // any tag since the daemon started
    std::uint64_t reads = 0;                   // tag packets of all tags meanwhile
    std::uint64_t undecoded = 0;               // those of them that could not be decoded
    std::uint64_t radioPackets = 0;            // of any kind

    std::string form;  // of reports: OFF, STRING, BINARY
    std::uint32_t subscribers = 1;
    std::string consumer;                 // the process that has bound the endpoint of form OFF, if any
    std::map<std::uint32_t, bool> ports;  // whether an antenna is connected; empty on an array reader
    mode_s mode;
    std::optional<held_key_s> held;
    std::optional<scene_s> scene;  // with the software radio only
};

// Readers of replies. What a reply does not have keeps the default, and what has an unexpected
// type counts as absent: replies of other versions give less, not a failure.
mode_s readMode(const nlohmann::json& verbose);
scene_s readScene(const nlohmann::json& reply);
// The members of "trace show".
void readTrace(const nlohmann::json& reply, facts_s* facts);
// Of the lines of "tag_info v" the one whose key, PC, EPC, CRC and TID, has this EPC and is quiet for
// longest. Nothing when there is none.
std::optional<held_key_s> findHeldKey(std::string_view tagInfo, std::string_view epc);

}  // namespace why
