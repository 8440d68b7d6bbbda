// SPDX-License-Identifier: MIT
// The keys of the mode language, as the daemon's parsers and its rendering have them. What
// each holds, with types and ranges, is in docs/mode.schema.json, from which the client and
// the fuzzers' dictionary take the keys.
//
// A key of several objects is here once, with the first of them.
#pragma once

namespace vocabulary::mode_key {

// At the top of a mode. A value for each antenna is an array in the order of "antennas".
//
// The type, and its older key with words in lower case.
inline constexpr char type[] = "type";
inline constexpr char mode[] = "mode";
// Where the radio transmits: ports from 1, or directions of the array reader. One of the two.
inline constexpr char antennas[] = "antennas";
inline constexpr char beams[] = "beams";
// dBm, of which the daemon keeps tenths; for each antenna or for all.
inline constexpr char transmitPower[] = "transmitPower";
// The radio link: a word for the surroundings, or the number of a profile. One of the two.
inline constexpr char environment[] = "environment";
inline constexpr char linkProfile[] = "linkProfile";
// When the radio leaves an antenna.
inline constexpr char antennaStopCondition[] = "antennaStopCondition";
// What the radio sends: Gen2 Query and Select (EPC Gen2, 6.3.2.12.1.1 and 6.3.2.12.2.1), with a
// delay in ms between the two, and the access commands (6.3.2.12.3).
inline constexpr char query[] = "query";
inline constexpr char delayAfterSelects[] = "delayAfterSelects";
inline constexpr char selects[] = "selects";
inline constexpr char accesses[] = "accesses";
// Which EPCs are reported.
inline constexpr char filter[] = "filter";
// When the radio starts after a `start`, and when it stops by itself.
inline constexpr char radioStopConditions[] = "radioStopConditions";
inline constexpr char radioStartConditions[] = "radioStartConditions";
// How long a tag is not reported again.
inline constexpr char reportFilter[] = "reportFilter";
// The settings of one type. Three of them may also be at the top, their older place; the last is in
// seconds.
inline constexpr char modeSpecificSettings[] = "modeSpecificSettings";
inline constexpr char interval[] = "interval";
inline constexpr char startTrigger[] = "startTrigger";
inline constexpr char stopInterval[] = "stopInterval";
// What a report holds.
inline constexpr char tagMetaData[] = "tagMetaData";
// The radio ignores weaker replies.
inline constexpr char rssiFilter[] = "rssiFilter";
// How long the transmitter rests after a pass over all antennas.
inline constexpr char delayBetweenAntennaCycles[] = "delayBetweenAntennaCycles";

// In beams. Degrees: azimuth 0 to 359, elevation 0 to 70, of which 0 is the boresight.
inline constexpr char azimuth[] = "azimuth";
inline constexpr char elevation[] = "elevation";
inline constexpr char polarization[] = "polarization";

// In conditions, triggers and intervals.
inline constexpr char value[] = "value";
// Seconds; in delayBetweenAntennaCycles ms.
inline constexpr char duration[] = "duration";
// Passes over all antennas, tags, and seconds after the last new tag.
inline constexpr char antennaCycles[] = "antennaCycles";
inline constexpr char tagCount[] = "tagCount";
inline constexpr char durationAfterNoMoreUniqueTags[] = "durationAfterNoMoreUniqueTags";
// Rules about inputs: a port from 1, its level, and how long the level must last, in ms.
inline constexpr char gpis[] = "gpis";
inline constexpr char port[] = "port";
inline constexpr char signal[] = "signal";
inline constexpr char debounceTime[] = "debounceTime";
// Of an interval: seconds to days.
inline constexpr char unit[] = "unit";

// In query.
inline constexpr char sel[] = "sel";
inline constexpr char session[] = "session";
inline constexpr char target[] = "target";
// Tags that are expected at the same time; the initial Q follows from it.
inline constexpr char tagPopulation[] = "tagPopulation";

// In selects. Where the mask begins in the bank and how long it is, in bits; the mask in
// hexadecimal digits.
inline constexpr char action[] = "action";
inline constexpr char membank[] = "membank";
inline constexpr char pointer[] = "pointer";
inline constexpr char length[] = "length";
inline constexpr char mask[] = "mask";
inline constexpr char truncate[] = "truncate";

// In accesses. Places and counts in words of 16 bits; a word count of 0 reads to the end of the
// bank. Data and passwords in hexadecimal digits; the actions are those of a LOCK.
inline constexpr char config[] = "config";
inline constexpr char wordPointer[] = "wordPointer";
inline constexpr char wordCount[] = "wordCount";
inline constexpr char data[] = "data";
inline constexpr char blockSize[] = "blockSize";
inline constexpr char password[] = "password";
inline constexpr char actions[] = "actions";

// In filter, reportFilter, rssiFilter and tagMetaData.
inline constexpr char match[] = "match";
inline constexpr char operation[] = "operation";
// What tells tags with the same EPC apart; only "TID" is known.
inline constexpr char addl_keys[] = "addl_keys";
// dBm.
inline constexpr char threshold[] = "threshold";
// Texts that the reports repeat: one for all, and one for each port.
inline constexpr char userDefined[] = "userDefined";
inline constexpr char antennaPortNames[] = "antennaPortNames";

// In modeSpecificSettings.
// Array reader: the polarization of the default beams, heights from 0 to 50, and the threshold
// between static and moving tags.
inline constexpr char primaryBeamPolarization[] = "primaryBeamPolarization";
inline constexpr char aarHeight[] = "aarHeight";
inline constexpr char tagHeight[] = "tagHeight";
inline constexpr char staticVDynamic[] = "staticVDynamic";

}  // namespace vocabulary::mode_key
