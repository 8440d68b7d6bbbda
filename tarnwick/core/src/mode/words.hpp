// SPDX-License-Identifier: MIT
// The words of the mode language, each with the value that the record has for it. The
// parser and the rendering use the same rows; the order of the rows is the
// order in which a failure text lists the allowed words.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "mode/record.hpp"
#include "mode_keys.hpp"
#include "reader_facts.hpp"

namespace key = vocabulary::mode_key;

template <class Value>
struct word_s {
    std::string_view word;
    Value value;
};
template <class Value>
word_s(std::string_view, Value) -> word_s<Value>;

// The value of a word; null when the table does not hold it.
template <class Table>
constexpr auto findValue(const Table& table, std::string_view word) -> decltype(&table.front().value) {
    const auto row = std::ranges::find_if(table, [word](const auto& entry) { return entry.word == word; });
    return row == table.end() ? nullptr : &row->value;
}

// The word of a value; empty when the table does not hold it.
template <class Table, class Value>
constexpr std::string_view findWord(const Table& table, Value value) {
    const auto row = std::ranges::find_if(table, [value](const auto& entry) { return entry.value == value; });
    return row == table.end() ? std::string_view{} : row->word;
}

// The words in the type that the JSON accessors need.
template <class Table>
std::vector<std::string> allowedWords(const Table& table) {
    std::vector<std::string> words;
    for (const auto& row : table) {
        words.emplace_back(row.word);
    }
    return words;
}

inline constexpr std::array polarizationWords{
    word_s{"TOTAL", QDX_BEAM_POL_e::TOTAL}, word_s{"THETA", QDX_BEAM_POL_e::THETA},
    word_s{"PHI", QDX_BEAM_POL_e::PHI},     word_s{"RHCP", QDX_BEAM_POL_e::RHCP},
    word_s{"LHCP", QDX_BEAM_POL_e::LHCP},
};

// Without NOT_USED, which the key "linkProfile" sets.
inline constexpr std::array environmentWords{
    word_s{ENVIRONMENT_PARAMS_strings[0], ENVIRONMENT_PARAMs[0]},
    word_s{ENVIRONMENT_PARAMS_strings[1], ENVIRONMENT_PARAMs[1]},
    word_s{ENVIRONMENT_PARAMS_strings[2], ENVIRONMENT_PARAMs[2]},
    word_s{ENVIRONMENT_PARAMS_strings[3], ENVIRONMENT_PARAMs[3]},
    word_s{ENVIRONMENT_PARAMS_strings[4], ENVIRONMENT_PARAMs[4]},
};

inline constexpr std::array membankWords{
    word_s<std::uint8_t>{EPC_GEN2_MB_strings[0], 0},
    word_s<std::uint8_t>{EPC_GEN2_MB_strings[1], 1},
    word_s<std::uint8_t>{EPC_GEN2_MB_strings[2], 2},
    word_s<std::uint8_t>{EPC_GEN2_MB_strings[3], 3},
};

// --- "query": values of the Gen2 Query command (EPC Gen2, 6.3.2.12.2.1). 1 of sel also means ALL and
// is not used.

inline constexpr std::array querySelWords{
    word_s<std::uint8_t>{"ALL", 0},
    word_s<std::uint8_t>{"NOT_SL", 2},
    word_s<std::uint8_t>{"SL", 3},
};

inline constexpr std::array querySessionWords{
    word_s<std::uint8_t>{"S0", 0},
    word_s<std::uint8_t>{"S1", 1},
    word_s<std::uint8_t>{"S2", 2},
    word_s<std::uint8_t>{"S3", 3},
};

inline constexpr std::array queryTargetWords{
    word_s<std::uint8_t>{"A", 0},
    word_s<std::uint8_t>{"B", 1},
    word_s<std::uint8_t>{"AB", 2},
};

// --- "selects"

inline constexpr std::uint8_t selectTargetSL = 4;

inline constexpr std::array selectTargetWords{
    word_s<std::uint8_t>{"S0", 0},
    word_s<std::uint8_t>{"S1", 1},
    word_s<std::uint8_t>{"S2", 2},
    word_s<std::uint8_t>{"S3", 3},
    word_s<std::uint8_t>{"SL", selectTargetSL},
};

// Action of a select whose target is SL, and of one whose target is a session:
// the same codes under other words.
inline constexpr std::array selectActionWordsSL{
    word_s<std::uint8_t>{"ASSERTSL_DEASSERTSL", 0}, word_s<std::uint8_t>{"ASSERTSL_NOTHING", 1},
    word_s<std::uint8_t>{"NOTHING_DEASSERTSL", 2},  word_s<std::uint8_t>{"NEGATESL_NOTHING", 3},
    word_s<std::uint8_t>{"DEASSERTSL_ASSERTSL", 4}, word_s<std::uint8_t>{"DEASSERTSL_NOTHING", 5},
    word_s<std::uint8_t>{"NOTHING_ASSERTSL", 6},    word_s<std::uint8_t>{"NOTHING_NEGATESL", 7},
};
inline constexpr std::array selectActionWordsSession{
    word_s<std::uint8_t>{"INVA_INVB", 0},    word_s<std::uint8_t>{"INVA_NOTHING", 1},
    word_s<std::uint8_t>{"NOTHING_INVB", 2}, word_s<std::uint8_t>{"FLIPAB_NOTHING", 3},
    word_s<std::uint8_t>{"INVB_INVA", 4},    word_s<std::uint8_t>{"INVB_NOTHING", 5},
    word_s<std::uint8_t>{"NOTHING_INVA", 6}, word_s<std::uint8_t>{"NOTHING_FLIPAB", 7},
};

constexpr const auto& selectActionWords(std::uint8_t target) {
    return target == selectTargetSL ? selectActionWordsSL : selectActionWordsSession;
}

// --- "accesses"

inline constexpr std::array accessTypeWords{
    word_s{"READ", access_cmd_type_e::READ},     word_s{"WRITE", access_cmd_type_e::WRITE},
    word_s{"ACCESS", access_cmd_type_e::ACCESS}, word_s{"LOCK", access_cmd_type_e::LOCK},
    word_s{"KILL", access_cmd_type_e::KILL},
};

// An action of LOCK as bits of the Gen2 Lock payload (EPC Gen2, 6.3.2.12.3.5):
// mask in the high ten bits, action in the low ten.
struct lock_action_s {
    std::string_view word;
    std::uint32_t value;    // ORed into the payload
    std::uint32_t pattern;  // rendered when (payload & pattern) == value
    std::uint32_t pairBit;  // refused when already set in the payload; 0: never refused
};

// The unlock row that a lock row excludes is the next one.
inline constexpr std::array lockActions{
    lock_action_s{"PERMALOCK_USER_BANK", 0x401, 0x401, 0},
    lock_action_s{"WRITE_LOCK_USER_BANK", 0x802, 0x802, 0x800},
    lock_action_s{"WRITE_UNLOCK_USER_BANK", 0x800, 0x802, 0x800},
    lock_action_s{"PERMALOCK_TID_BANK", 0x1004, 0x1004, 0},
    lock_action_s{"WRITE_LOCK_TID_BANK", 0x2008, 0x2008, 0x2000},
    lock_action_s{"WRITE_UNLOCK_TID_BANK", 0x2000, 0x2008, 0x2000},
    lock_action_s{"PERMALOCK_EPC_BANK", 0x4010, 0x4010, 0},
    lock_action_s{"WRITE_LOCK_EPC_BANK", 0x8020, 0x8020, 0x8000},
    lock_action_s{"WRITE_UNLOCK_EPC_BANK", 0x8000, 0x8020, 0x8000},
    lock_action_s{"PERMALOCK_ACCESS_PASSWORD", 0x10040, 0x10040, 0},
    lock_action_s{"READ_WRITE_LOCK_ACCESS_PASSWORD", 0x20080, 0x20080, 0x20000},
    lock_action_s{"READ_WRITE_UNLOCK_ACCESS_PASSWORD", 0x20000, 0x20080, 0x20000},
    lock_action_s{"PERMALOCK_KILL_PASSWORD", 0x40100, 0x40100, 0},
    lock_action_s{"READ_WRITE_LOCK_KILL_PASSWORD", 0x80200, 0x80200, 0x80000},
    lock_action_s{"READ_WRITE_UNLOCK_KILL_PASSWORD", 0x80000, 0x80200, 0x80000},
};

// --- Conditions, filters, intervals

inline constexpr std::array antennaStopTypeWords{
    word_s{"DURATION", antenna_stop_type_e::DURATION},
    word_s{"INVENTORY_COUNT", antenna_stop_type_e::INVENTORY_COUNT},
    word_s{"SINGLE_INVENTORY_LIMITED_DURATION", antenna_stop_type_e::SINGLE_INVENTORY_LIMITED_DURATION},
    word_s{"GPI", antenna_stop_type_e::GPI},
};

inline constexpr std::array gpiSignalWords{
    word_s<std::uint8_t>{"HIGH", 1},
    word_s<std::uint8_t>{"LOW", 0},
};

inline constexpr std::array radioStartTypeWords{
    word_s{"GPI", radio_start_type_e::GPI},
    word_s{"GPI_WITH_RESTART", radio_start_type_e::GPI_WITH_RESTART},
};

inline constexpr std::array reportFilterTypeWords{
    word_s{"RADIO_WIDE", report_filter_type_e::RADIO_WIDE},
    word_s{"PER_ANTENNA", report_filter_type_e::PER_ANTENNA},
};

inline constexpr std::array antennaDelayTypeWords{
    word_s{"DISABLED", antenna_delay_type_e::DISABLED},
    word_s{"NO_TAGS", antenna_delay_type_e::NO_TAGS},
    word_s{"NO_UNIQUE_TAGS", antenna_delay_type_e::NO_UNIQUE_TAGS},
};

inline constexpr std::array filterMatchWords{
    word_s{"prefix", filter_match_e::PREFIX},
    word_s{"suffix", filter_match_e::SUFFIX},
    word_s{"regex", filter_match_e::REGEX},
};

inline constexpr std::array filterOperationWords{
    word_s{"include", filter_operation_e::INCLUDE},
    word_s{"exclude", filter_operation_e::EXCLUDE},
};

inline constexpr std::array intervalUnitWords{
    word_s{"seconds", interval_unit_e::SECONDS},
    word_s{"minutes", interval_unit_e::MINUTES},
    word_s{"hours", interval_unit_e::HOURS},
    word_s{"days", interval_unit_e::DAYS},
};
