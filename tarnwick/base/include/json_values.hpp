// SPDX-License-Identifier: MIT
// JSON values written straight into memory, byte for byte as dump() of the JSON library
// writes them; a test compares the two over all values that reports have. Each function
// writes from `out` on, where the caller has made room, and returns the position behind the
// last byte. No terminating NUL. No allocation, except in jsonString. Any thread.
#pragma once

#include <charconv>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

namespace json_text {

// Bytes that a caller needs for any number here: the longest double has 24. putWord needs 6.
inline constexpr std::size_t numberRoom = 64;

// Copies bytes as they are; they must be valid JSON already.
inline char* putBytes(std::string_view bytes, char* out) {
    std::memcpy(out, bytes.data(), bytes.size());
    return out + bytes.size();
}

// Integers in decimal.
inline char* putUnsigned(std::uint64_t number, char* out) {
    return std::to_chars(out, out + numberRoom, number).ptr;
}
inline char* putSigned(std::int64_t number, char* out) {
    return std::to_chars(out, out + numberRoom, number).ptr;
}

// A 16-bit word as a string of four lower-case hexadecimal digits: "30ab", quotes included.
char* putWord(std::uint16_t word, char* out);

// tenths / 10.0 with one decimal place: 15 gives 1.5, 10 gives 1.0. `tenths` is that of a
// 16-bit field, -32768 to 65535.
char* putTenths(std::int32_t tenths, char* out);

// A frequency in MHz: kHz as a 32-bit float, divided by 1000.0. 915250 gives 915.25, 915000
// gives 915.0.
char* putMegahertz(std::uint32_t kilohertz, char* out);

// Any number, in digits that read back as the same double: 0.1 gives 0.1, 1e30 gives 1e+30. null
// when it is infinite or not a number, which JSON does not have.
char* putReal(double number, char* out);

// A text as the library escapes it, in its quotes. A text that is not valid UTF-8 gives "" and,
// in *error, the library's reason; otherwise *error stays as it is.
std::string jsonString(std::string_view text, std::string* error);

// Whether jsonString would only put quotes around the text: it is ASCII from 20h on without
// quotation marks and backslashes.
bool isPlain(std::string_view text);

}  // namespace json_text
