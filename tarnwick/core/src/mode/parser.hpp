// SPDX-License-Identifier: MIT
// The parsers of the mode language, one for each key, and functions that they share. They
// fill a record of the request, `mode`, and do not change the mode in force. Quirk:
// parseReportFilter switches the database of additional keys. Main thread.
//
// A key parser takes the request's root, the record and the reply, and clears
// the reply first. It returns
//    0  the key was there and good, and is now in the record
//   -1  refused: the reply is the whole failure text, the record may be half filled
//   -2  the key is absent; reply empty, record untouched
// Parsers marked "absent: 0" return 0 for an absent key as well. The parsers of
// a single value (they take `value` in place of the root) return 0 or -1; on failure the
// output does not change, unless a comment says otherwise.
#pragma once

#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <string_view>
#include <vector>

#include "json_fields.hpp"
#include "mode/record.hpp"
#include "mode/words.hpp"

// --- Results.

inline constexpr int keyParsed = 0;
inline constexpr int keyRefused = -1;
inline constexpr int keyAbsent = -2;

// --- Where the radio transmits (parse_antennas.cpp).

// "antennas" and "beams": their values. `antennas` is replaced on success.
int parseAntennas(const nlohmann::json* value, std::vector<std::uint32_t>* antennas, std::string* reply);
int parseBeams(const nlohmann::json* value, std::vector<std::uint32_t>* antennas, std::string* reply);
int getBeam(const nlohmann::json* object, std::uint16_t* beam, std::string* reply);

int parseTransmitPower(const nlohmann::json* root, mode_configuration_s* mode,
                       std::string* reply);  // absent: 0
int parseLinkProfile(const nlohmann::json* root, mode_configuration_s* mode, std::string* reply);
int parseEnvironmentParam(const nlohmann::json* root, mode_configuration_s* mode, std::string* reply);

// --- Which tags answer (parse_query.cpp, parse_selects.cpp).

int parseQuery(const nlohmann::json* root, mode_configuration_s* mode, std::string* reply);
int parseQuerySingleValue(const nlohmann::json* value, query_s* query, std::string* reply);

// The two array parsers fill the flat lists and the lists for each antenna.
int parseSelect(const nlohmann::json* root, mode_configuration_s* mode, std::string* reply);
int parseSelectArray(const nlohmann::json* array, mode_configuration_s* mode, std::string* reply);
int parseSelectArrayOfArrays(const nlohmann::json* array, mode_configuration_s* mode, std::string* reply);
int parseSelectSingleValue(const nlohmann::json* value, select_s* select, std::string* reply);

// --- What is done to each tag (parse_accesses.cpp).

// Also stores the words of a block write that all accesses agree on, 0 for none.
int parseAccess(const nlohmann::json* root, mode_configuration_s* mode, std::string* reply);
int parseAccessArray(const nlohmann::json* array, mode_configuration_s* mode, std::string* reply);
int parseAccesArrayOfArrays(const nlohmann::json* array, mode_configuration_s* mode, std::string* reply);
int parseAccessSingleValue(const nlohmann::json* value, ACCESS_CMD_S* access, std::string* reply);

// --- When the radio starts, stops and moves on.

int parseGPI(const nlohmann::json* value, gpi_s* gpi, std::string* reply);
int parseAntennaStopCondition(const nlohmann::json* root, mode_configuration_s* mode,
                              std::string* reply);  // absent: 0
int parseAntennaStopConditionSingleValue(const nlohmann::json* value, antennaStopCondition_s* condition,
                                         std::string* reply);
int parseRadioStartConditions(const nlohmann::json* root, mode_configuration_s* mode,
                              std::string* reply);  // absent: 0
int parseRadioStopConditions(const nlohmann::json* root, mode_configuration_s* mode,
                             std::string* reply);  // absent: 0

// The values of "interval" and "startTrigger".
int parseInterval(const nlohmann::json* value, inventoryInterval_s* interval, std::string* reply);
int parseStartTrigger(const nlohmann::json* value, gpi_s* trigger, std::string* reply);

// The values of "interval", "startTrigger" and "stopInterval", from either place. Beside the setting
// they store what follows from it: the report filter, the start and the stop conditions.
int storeInterval(const nlohmann::json* value, mode_configuration_s* mode, std::string* reply);
int storeStartTrigger(const nlohmann::json* value, mode_configuration_s* mode, std::string* reply);
int storeStopInterval(const nlohmann::json* value, mode_configuration_s* mode, std::string* reply);

// Results of parseModeSpecificSettings, apart from -1: the type whose settings the key held.
inline constexpr int settingsNone = 0;  // absent, or a type that ignores them
inline constexpr int settingsInventory = 1;
inline constexpr int settingsPortal = 2;
inline constexpr int settingsBearing = 5;
inline constexpr int settingsPortalDir = 6;

int parseModeSpecificSettings(const nlohmann::json* root, mode_configuration_s* mode, std::string* reply);
int parseInventorySettings(const nlohmann::json* settings, mode_configuration_s* mode, std::string* reply);
int parsePortalSettings(const nlohmann::json* settings, mode_configuration_s* mode, std::string* reply);
int parseBearingSettings(const nlohmann::json* settings, mode_configuration_s* mode, std::string* reply);
int parsePortalDirSettings(const nlohmann::json* settings, mode_configuration_s* mode, std::string* reply);

int parseDelayBetweenAntCycles(const nlohmann::json* root, mode_configuration_s* mode,
                               std::string* reply);  // absent: 0
// -3 with a text on a model without this delay; the caller must ignore both.
int parseDelayAfterSelect(const nlohmann::json* root, mode_configuration_s* mode, std::string* reply);

// --- What is reported.

int parseReportFilter(const nlohmann::json* root, mode_configuration_s* mode,
                      std::string* reply);                                                        // absent: 0
int parseRSSIFilter(const nlohmann::json* root, mode_configuration_s* mode, std::string* reply);  // absent: 0
int parseTagMetaData(const nlohmann::json* root, mode_configuration_s* mode, std::string* reply);
// True if the word names a bank, with its words or without; they are then in `readMemory`.
bool parseReadMemory(const std::string* word, mode_configuration_s* mode);
// The value of "filter". Returns 0 or a negative number.
int parseFilter(const nlohmann::json* value, tagFilter_s* filter, std::string* reply);

// --- Shared by the parsers.

// Puts the failure text into the reply. Returns keyRefused.
int refuse(std::string* reply, std::string_view text);

// The result of a key parser for what an accessor of json_fields.hpp returned: an absent key is not
// a failure, and the text about it is cleared.
int optionalKey(int accessorResult, std::string* reply);

// The same for a key that must be there: its absence has a text of its own, with
// `object` in it, which says where the key belongs. True when it was there and good.
bool required(int accessorResult, const char* key, const std::string& object, std::string* reply);

// The value of a key that holds an object, or an array with one for each antenna. *value is the
// object or the array.
int getObjectOrArray(const nlohmann::json* root, const char* key, nlohmann::json* value, std::string* reply);

// A parser of a value that goes into the record.
using value_parser_t = int (*)(const nlohmann::json* value, mode_configuration_s* mode, std::string* reply);

// The key parser of "selects" and "accesses": clears the reply, and calls `parse` with the array.
int parseOperations(const nlohmann::json* root, const char* key, value_parser_t parse,
                    mode_configuration_s* mode, std::string* reply);

// Calls `perAntenna` for an array whose elements are all arrays, also for an empty one, and `flat`
// for any other.
int parseFlatOrForEachAntenna(const nlohmann::json* array, value_parser_t flat, value_parser_t perAntenna,
                              mode_configuration_s* mode, std::string* reply);

// The text for more selects or accesses than the engine has room for.
int refuseTooMany(const char* what, std::size_t limit, std::string* reply);

// The bytes of a text of hex digits, high digit first; an odd last digit is dropped.
std::vector<std::uint8_t> hexBytes(std::string_view digits);

// Reads a word of a table and stores its value. Results and texts are those of
// the string accessor (json_fields.hpp).
template <class Table, class Value>
int getJsonWord(const nlohmann::json* object, const std::string& key, const Table& table, Value* out,
                std::string* reply) {
    std::string word;
    const int result = getJsonValue(object, key, &word, reply, allowedWords(table));
    if (const auto* value = findValue(table, word); result == 0 && value != nullptr) {
        *out = *value;
    }
    return result;
}
