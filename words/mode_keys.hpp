// SPDX-License-Identifier: MIT
// The keys of the mode language, as the daemon's parsers and its rendering have them. What
// each holds, with types and ranges, is in docs/mode.schema.json, from which the client and
// the fuzzers' dictionary take the keys.
//
// A key that stands in several objects is here once, where it comes first.
#pragma once

namespace vocabulary::mode_key {

// At the top of a mode.
inline constexpr char type[] = "type";
inline constexpr char mode[] = "mode";  // the older name of "type"
inline constexpr char antennas[] = "antennas";
inline constexpr char beams[] = "beams";
inline constexpr char transmitPower[] = "transmitPower";  // dBm
inline constexpr char environment[] = "environment";
inline constexpr char linkProfile[] = "linkProfile";
inline constexpr char antennaStopCondition[] = "antennaStopCondition";
inline constexpr char query[] = "query";
inline constexpr char delayAfterSelects[] = "delayAfterSelects";  // ms
inline constexpr char selects[] = "selects";
inline constexpr char accesses[] = "accesses";
inline constexpr char filter[] = "filter";
inline constexpr char radioStopConditions[] = "radioStopConditions";
inline constexpr char radioStartConditions[] = "radioStartConditions";
inline constexpr char reportFilter[] = "reportFilter";
inline constexpr char modeSpecificSettings[] = "modeSpecificSettings";
inline constexpr char interval[] = "interval";          // also in modeSpecificSettings
inline constexpr char startTrigger[] = "startTrigger";  // also in modeSpecificSettings
inline constexpr char stopInterval[] = "stopInterval";  // s, also in modeSpecificSettings
inline constexpr char tagMetaData[] = "tagMetaData";
inline constexpr char rssiFilter[] = "rssiFilter";
inline constexpr char delayBetweenAntennaCycles[] = "delayBetweenAntennaCycles";

// In beams.
inline constexpr char azimuth[] = "azimuth";      // degrees
inline constexpr char elevation[] = "elevation";  // degrees
inline constexpr char polarization[] = "polarization";

// In conditions, triggers and intervals.
inline constexpr char value[] = "value";
inline constexpr char duration[] = "duration";  // s, or ms in delayBetweenAntennaCycles
inline constexpr char antennaCycles[] = "antennaCycles";
inline constexpr char tagCount[] = "tagCount";
inline constexpr char durationAfterNoMoreUniqueTags[] = "durationAfterNoMoreUniqueTags";  // s
inline constexpr char gpis[] = "gpis";
inline constexpr char port[] = "port";  // from 1
inline constexpr char signal[] = "signal";
inline constexpr char debounceTime[] = "debounceTime";  // ms
inline constexpr char unit[] = "unit";

// In query.
inline constexpr char sel[] = "sel";
inline constexpr char session[] = "session";
inline constexpr char target[] = "target";
inline constexpr char tagPopulation[] = "tagPopulation";

// In selects.
inline constexpr char action[] = "action";
inline constexpr char membank[] = "membank";
inline constexpr char pointer[] = "pointer";  // bits
inline constexpr char length[] = "length";    // bits
inline constexpr char mask[] = "mask";
inline constexpr char truncate[] = "truncate";

// In accesses.
inline constexpr char config[] = "config";
inline constexpr char wordPointer[] = "wordPointer";  // words of 16 bits
inline constexpr char wordCount[] = "wordCount";
inline constexpr char data[] = "data";
inline constexpr char blockSize[] = "blockSize";  // words
inline constexpr char password[] = "password";
inline constexpr char actions[] = "actions";

// In filter, reportFilter, rssiFilter and tagMetaData.
inline constexpr char match[] = "match";
inline constexpr char operation[] = "operation";
inline constexpr char addl_keys[] = "addl_keys";
inline constexpr char threshold[] = "threshold";  // dBm
inline constexpr char userDefined[] = "userDefined";
inline constexpr char antennaPortNames[] = "antennaPortNames";

// In modeSpecificSettings.
inline constexpr char primaryBeamPolarization[] = "primaryBeamPolarization";
inline constexpr char aarHeight[] = "aarHeight";
inline constexpr char tagHeight[] = "tagHeight";
inline constexpr char staticVDynamic[] = "staticVDynamic";

}  // namespace vocabulary::mode_key
