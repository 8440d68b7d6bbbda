// SPDX-License-Identifier: MIT
// JSON from outside: parsing a text, and typed reads of one key of an object.
//
// All reads take the object, the key, the output and the reply, in this order, and return
//    0  found, valid, stored; the reply has not changed
//   -1  the key is not there, or the value given is null or not an object
//   -2  the value has the wrong JSON type
//   -3  the value is out of bounds, or not among the allowed strings
// On -1 to -3 the output has not changed, and the reply is the whole answer for the client:
//   -1  Failure: "antenna" must be included in object
//   -2  Failure: "antenna" field must contain an unsigned integer
//   -3  Failure: value provided for "antenna" is out of bounds. Must be between 1 and 4.
// A caller for whom the key is optional clears the reply after -1.
//
// Any thread. No function here throws, whatever the object holds.
#pragma once

#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

// Parses a text from outside. False, with the reason and *out unchanged, for a text that is
// not JSON, for invalid UTF-8, for a number too large for a double, and for more than
// `maxNesting` arrays and objects inside one another: copying and writing a value recurse,
// and the stack is limited. A request may have one level less than a file, because
// mode_config.json holds it inside another object.
inline constexpr int maxFileNesting = 256;
inline constexpr int maxRequestNesting = maxFileNesting - 1;
bool parseJsonText(const std::string& text, nlohmann::json* out, std::string* reason,
                   int maxNesting = maxFileNesting);

// A string that equals one of `allowed`; any string when `allowed` is empty.
int getJsonValue(const nlohmann::json* object, const std::string& key, std::string* out, std::string* reply,
                 const std::vector<std::string>& allowed);

// true or false; a number has the wrong type.
int getJsonValue(const nlohmann::json* object, const std::string& key, bool* out, std::string* reply);

// Unsigned targets take only unsigned integers: -1 and 5.0 have the wrong type (-2). Both
// bounds are allowed values, here and below.
int getJsonValue(const nlohmann::json* object, const std::string& key, std::uint8_t* out, std::string* reply,
                 std::uint8_t min, std::uint8_t max);
int getJsonValue(const nlohmann::json* object, const std::string& key, std::uint16_t* out, std::string* reply,
                 std::uint16_t min, std::uint16_t max);
int getJsonValue(const nlohmann::json* object, const std::string& key, std::uint32_t* out, std::string* reply,
                 std::uint32_t min, std::uint32_t max);
int getJsonValue(const nlohmann::json* object, const std::string& key, std::uint64_t* out, std::string* reply,
                 std::uint64_t min, std::uint64_t max);

// Signed targets take any integer; 5.0 has the wrong type.
int getJsonValue(const nlohmann::json* object, const std::string& key, std::int8_t* out, std::string* reply,
                 std::int8_t min, std::int8_t max);
int getJsonValue(const nlohmann::json* object, const std::string& key, std::int16_t* out, std::string* reply,
                 std::int16_t min, std::int16_t max);
int getJsonValue(const nlohmann::json* object, const std::string& key, std::int32_t* out, std::string* reply,
                 std::int32_t min, std::int32_t max);
int getJsonValue(const nlohmann::json* object, const std::string& key, std::int64_t* out, std::string* reply,
                 std::int64_t min, std::int64_t max);

// Floating-point targets take any number, integers as well. A value for a float is compared with
// the bounds before it is narrowed.
int getJsonValue(const nlohmann::json* object, const std::string& key, float* out, std::string* reply,
                 float min, float max);
int getJsonValue(const nlohmann::json* object, const std::string& key, double* out, std::string* reply,
                 double min, double max);

// The ten reads above, with one difference: with `acceptOtherNumbers` an unsigned target also
// takes signed and floating-point values within the bounds, without their fraction.
// Instantiated for the ten types above.
template <class Number>
int json_to_number(const nlohmann::json* object, const std::string& key, Number* out, std::string* reply,
                   Number min, Number max, bool acceptOtherNumbers);

// An array, or an object, of any content; *out becomes a copy of it. The elements are for the caller
// to check.
int getJsonValueArray(const nlohmann::json* object, const std::string& key, nlohmann::json* out,
                      std::string* reply);
int getJsonValueObject(const nlohmann::json* object, const std::string& key, nlohmann::json* out,
                       std::string* reply);
