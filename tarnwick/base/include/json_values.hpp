// SPDX-License-Identifier: MIT
// JSON values written straight into memory, byte for byte as the JSON library writes
// them. Each function writes from `out` on and returns the place behind what it wrote.
#pragma once

#include <charconv>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

namespace json_text {

// The most bytes that a number takes.
inline constexpr std::size_t numberRoom = 64;

// Bytes as they are.
inline char* putBytes(std::string_view bytes, char* out) {
    std::memcpy(out, bytes.data(), bytes.size());
    return out + bytes.size();
}

inline char* putUnsigned(std::uint64_t number, char* out) {
    return std::to_chars(out, out + numberRoom, number).ptr;
}
inline char* putSigned(std::int64_t number, char* out) {
    return std::to_chars(out, out + numberRoom, number).ptr;
}

// A 16-bit word as a string of four lower-case hex digits.
char* putWord(std::uint16_t word, char* out);

// tenths / 10.0; `tenths` of a 16-bit field, -32768 to 65535.
char* putTenths(std::int32_t tenths, char* out);

// kHz in MHz: the number as a 32-bit float, divided by 1000.0.
char* putMegahertz(std::uint32_t kilohertz, char* out);

// Any number; null when it is infinite or not a number.
char* putReal(double number, char* out);

// Text as the library escapes it, in its quotes. Text that is not valid UTF-8 gives
// "" and, in *error, what the library says of it.
std::string jsonString(std::string_view text, std::string* error);

// Whether jsonString would only put quotes around the text.
bool isPlain(std::string_view text);

}  // namespace json_text
