// SPDX-License-Identifier: MIT
// The words behind "configrxe", the service door to single parameters of the radio engine.
//
//   configrxe shadow [enable|disable]
//   configrxe custom                          all that the engine holds, as JSON
//   configrxe custom <section> [<id>]         one item, as text
//   configrxe custom <section> [<id>] <argument> ...
//
// Every section has a namespace: its parameters, the texts that they take, and the section
// itself. The value of a choice is the number in the engine's record.
#pragma once

#include "vocabulary.hpp"

namespace vocabulary::configrxe_words {

inline constexpr std::string_view custom = "custom";
inline constexpr std::string_view shadow = "shadow";

inline constexpr argument_s enable{"enable"};
// The daemon accepts each word that begins with this one.
inline constexpr argument_s disable{"disable"};
inline constexpr argument_s enableOrDisable[] = {enable, disable};

// Whether an id follows the section's word, and how it is read.
enum class id_e : std::uint8_t {
    none,
    decimal,
    hex,  // decimal, or hexadecimal behind "0x"
};

struct section_s {
    std::string_view word;
    id_e id;
    std::span<const argument_s> arguments;
    // Any number of arguments in any order; otherwise exactly one.
    bool repeated;
};

// A work item of the radio: an antenna, how long it transmits there, and with what. Ids are 1 to
// 1023; "0 disable" disables all.
namespace olio {
// Antenna or beam numbers. Without rx_beam the one that transmits receives too. Receive beams
// from 65280 (0xFF00) up are secondary beam sets.
inline constexpr argument_s txBeam{"tx_beam", value_e::number};
inline constexpr argument_s rxBeam{"rx_beam", value_e::number};
// When the next item follows: after so many inventory rounds, or after a time in ms.
inline constexpr choice_s stopTypes[] = {{"inventory", 1}, {"time", 2}};
inline constexpr argument_s stopType{"stop_type", value_e::choice, stopTypes};
inline constexpr argument_s stopValue{"stop_value", value_e::number};
// Whole dBm; the engine holds tenths.
inline constexpr argument_s txPower{"tx_pwr", value_e::number};
// Bit n-1 is select n.
inline constexpr argument_s selectBitmask{"select_bitmask", value_e::number};
// Id of an inventory set, and number of a link profile.
inline constexpr argument_s invParam{"inv_param", value_e::number};
inline constexpr argument_s linkProfile{"lp", value_e::number};
inline constexpr argument_s arguments[] = {disable, txBeam,        rxBeam,   stopType,   stopValue,
                                           txPower, selectBitmask, invParam, linkProfile};
inline constexpr section_s section{"olio", id_e::decimal, arguments, true};
}  // namespace olio

// A Select command before each inventory (EPC Gen2, 6.3.2.12.1.1). Ids are 1 to 32.
namespace select {
// 0 to 3: the inventoried flag of that session, 4: the flag SL.
inline constexpr argument_s target{"target", value_e::number};
// 0 to 7: what becomes of the flag of tags that match, and of those that do not.
inline constexpr argument_s action{"action", value_e::number};
// 0 reserved, 1 EPC, 2 TID, 3 user.
inline constexpr argument_s membank{"membank", value_e::number};
// Where the mask begins and how long it is, in bits.
inline constexpr argument_s pointer{"pointer", value_e::number};
inline constexpr argument_s length{"length", value_e::number};
inline constexpr argument_s truncate{"truncate", value_e::number};
// At most 133 characters.
inline constexpr argument_s mask{"mask", value_e::hex};
inline constexpr argument_s arguments[] = {disable, target, action, membank, pointer, length, truncate, mask};
inline constexpr section_s section{"select", id_e::decimal, arguments, true};
}  // namespace select

// An operation on each tag. Only reads can be set here; ids are 1 to 63.
namespace access {
inline constexpr choice_s types[] = {{"read", 1}};
inline constexpr argument_s type{"type", value_e::choice, types};
// As in select; words have 16 bits.
inline constexpr argument_s membank{"membank", value_e::number};
inline constexpr argument_s startWord{"startWord", value_e::number};
inline constexpr argument_s wordCount{"wordCount", value_e::number};
// 0: without criteria, and without a limit.
inline constexpr argument_s criteriaIdx{"accessCriteriaIdx", value_e::number};
inline constexpr argument_s stopCount{"stopCount", value_e::number};
inline constexpr argument_s arguments[] = {disable,   type,        membank,  startWord,
                                           wordCount, criteriaIdx, stopCount};
inline constexpr section_s section{"access", id_e::decimal, arguments, true};
}  // namespace access

// A filter of the engine on the ids of tags. Ids of filters are 1 to 234.
namespace id_filter {
// Bits.
inline constexpr argument_s startIdx{"startIdx", value_e::number};
inline constexpr argument_s length{"length", value_e::number};
inline constexpr argument_s mask{"mask", value_e::hex};
inline constexpr argument_s arguments[] = {disable, startIdx, length, mask};
inline constexpr section_s section{"id_filter", id_e::decimal, arguments, true};
}  // namespace id_filter

// The parameters of the Query command (EPC Gen2, 6.3.2.12.2.1). Ids are 1 to 255.
namespace inventory {
inline constexpr choice_s sels[] = {{"ignore", 0}, {"~SL", 2}, {"SL", 3}};
inline constexpr argument_s sel{"sel", value_e::choice, sels};
// 0 to 3.
inline constexpr argument_s session{"session", value_e::number};
inline constexpr choice_s targets[] = {{"A", 0}, {"B", 1}, {"AB", 2}, {"a", 0}, {"b", 1}, {"ab", 2}};
inline constexpr argument_s target{"target", value_e::choice, targets};
// 0 to 15.
inline constexpr argument_s initialQ{"initq", value_e::number};
inline constexpr argument_s arguments[] = {disable, sel, session, target, initialQ};
inline constexpr section_s section{"inventory", id_e::decimal, arguments, true};
}  // namespace inventory

// Whether the engine sends packets of a type; the id is the type's number (RXE_PACKET_ID).
namespace packet {
inline constexpr section_s section{"packet", id_e::hex, enableOrDisable, false};
}

// A frequency channel. Ids are 1 to 127.
namespace channel {
// kHz.
inline constexpr argument_s frequency{"frequency", value_e::number};
// dBm, with one decimal.
inline constexpr argument_s maxPower{"max_pwr", value_e::number};
inline constexpr argument_s arguments[] = {disable, frequency, maxPower};
inline constexpr section_s section{"channel", id_e::decimal, arguments, true};
}  // namespace channel

// Sections whose argument is the value alone.
inline constexpr argument_s plainNumber[] = {{"", value_e::number}};
inline constexpr argument_s plainByte[] = {{"", value_e::byte}};

// dB of the cable of an antenna, 0 to 25.5. The id is the antenna.
namespace cable_loss {
inline constexpr section_s section{"cableLoss", id_e::decimal, plainNumber, false};
}

// Heights of the array reader and of the tags; the engine holds tenths.
namespace aar_height {
inline constexpr section_s section{"aarHeight", id_e::none, plainNumber, false};
}
namespace tag_height {
inline constexpr section_s section{"tagHeight", id_e::none, plainNumber, false};
}

// Threshold between static and dynamic tags, 0 to 255. Array reader.
namespace static_v_dynamic {
inline constexpr section_s section{"staticVDynamic", id_e::none, plainByte, false};
}

// Whether the radio takes another channel for each inventory round.
namespace hop_per_round {
inline constexpr section_s section{"hopperround", id_e::none, enableOrDisable, false};
}

// The fields of a tag packet. The n-th word, counted from 0, is bit n of the engine's
// mask.
namespace tag_info_fields {
inline constexpr argument_s arguments[] = {
    {"epc"},        {"rospec"},   {"specid"},   {"invparam"}, {"antid"},   {"rssi"},     {"chanid"},
    {"1sttime"},    {"lasttime"}, {"tagcount"}, {"pc"},       {"xpc1"},    {"xpc2"},     {"crc"},
    {"accessspec"}, {"phase"},    {"rssilin"},  {"bearing"},  {"brandid"}, {"location"},
};
inline constexpr section_s section{"taginfofields", id_e::none, arguments, true};
}  // namespace tag_info_fields

// Inputs of the reader, for the two sections below.
namespace gpio {
// The levels in the low half of the byte, the ports that take part in the high half.
inline constexpr argument_s bitmask{"gpiobitmask", value_e::number};
// How long a level must last, in ms, by port. Ports 3 and 4 exist on the PN8200 only.
inline constexpr argument_s holdTimes[] = {
    {"gpio1holdtime", value_e::number},
    {"gpio2holdtime", value_e::number},
    {"gpio3holdtime", value_e::number},
    {"gpio4holdtime", value_e::number},
};
}  // namespace gpio

// What ends a run of the radio: a time in ms, reads, rounds over all olios, inputs. With
// "autonomous" only a stop does.
namespace stop_conditions {
inline constexpr argument_s autonomous{"autonomous"};
inline constexpr argument_s time{"time", value_e::number};
// Above 61440 the rest is a time in seconds without a new tag.
inline constexpr argument_s tagCount{"tagcount", value_e::number};
inline constexpr argument_s olioLoops{"olioloops", value_e::number};
inline constexpr argument_s arguments[] = {autonomous,         time,
                                           tagCount,           olioLoops,
                                           gpio::bitmask,      gpio::holdTimes[0],
                                           gpio::holdTimes[1], gpio::holdTimes[2],
                                           gpio::holdTimes[3]};
inline constexpr section_s section{"stopconditions", id_e::none, arguments, true};
}  // namespace stop_conditions

// Inputs that start the radio.
namespace start_conditions {
inline constexpr argument_s arguments[] = {
    disable, gpio::bitmask, gpio::holdTimes[0], gpio::holdTimes[1], gpio::holdTimes[2], gpio::holdTimes[3]};
inline constexpr section_s section{"startconditions", id_e::none, arguments, true};
}  // namespace start_conditions

// The engine's own filter of repeated reads: of the whole radio, or for each antenna.
namespace report_filter {
inline constexpr argument_s disabled{"disabled"};
inline constexpr choice_s types[] = {{"radio", 0}, {"antenna", 1}};
inline constexpr argument_s type{"type", value_e::choice, types};
// Seconds.
inline constexpr argument_s duration{"duration", value_e::number};
inline constexpr argument_s arguments[] = {disabled, type, duration};
inline constexpr section_s section{"reportfilter", id_e::none, arguments, true};
}  // namespace report_filter

// A pause of the transmitter after a round without a read, or without a new tag.
namespace tx_delay_interval {
inline constexpr choice_s types[] = {{"noReads", 1}, {"noUniqueReads", 2}};
inline constexpr argument_s type{"type", value_e::choice, types};
// Milliseconds.
inline constexpr argument_s duration{"duration", value_e::byte};
inline constexpr argument_s arguments[] = {disable, type, duration};
inline constexpr section_s section{"txDelayInterval", id_e::none, arguments, true};
}  // namespace tx_delay_interval

// In the order in which the client offers them.
inline constexpr section_s sections[] = {
    olio::section,
    select::section,
    access::section,
    id_filter::section,
    inventory::section,
    packet::section,
    channel::section,
    cable_loss::section,
    hop_per_round::section,
    tag_info_fields::section,
    stop_conditions::section,
    start_conditions::section,
    report_filter::section,
    tx_delay_interval::section,
    aar_height::section,
    tag_height::section,
    static_v_dynamic::section,
};

}  // namespace vocabulary::configrxe_words
