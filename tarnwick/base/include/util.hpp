// SPDX-License-Identifier: MIT
// Helpers for texts, numbers, hexadecimal, CRC, times, statistics and files. None has state
// that a caller could see. Any thread, except for changeFileOwnerAndGroup.
#pragma once

#include <sys/time.h>

#include <cstddef>
#include <cstdint>
#include <limits>
#include <string>
#include <string_view>
#include <vector>

// ---------------------------------------------------------------- text

// Splits at runs of white space. A token is never empty.
std::vector<std::string> tokenizeRequestByWhitespace(const std::string* request);

// The words of a request, for both threads that serve requests: splits at runs of white space.
// Quotation marks do not keep words together.
std::vector<std::string> tokenizeRequest(std::string* request);

// Splits at runs of `delimiter`. A token is never empty.
std::vector<std::string> tokenizeString(const std::string* text, char delimiter);

// Splits at each `delimiter` and keeps empty fields, but a delimiter at the end does not begin
// another field: "a,,b," gives "a", "" and "b", and "" gives nothing.
std::vector<std::string> split(const char* text, char delimiter);
std::vector<std::string> tokenizeCommaSeparatedString(const std::string* text);

// The items with the separator between them; nothing for none.
std::string joinStrings(const std::vector<std::string>& items, const std::string& separator);

// A copy of the text without the character `unwanted`.
std::string removeSelectChar(const std::string& text, char unwanted);

// Quirk: despite its name it removes white space from the END of the text. Callers rely on
// that.
void ltrim(std::string* text);

// In place, ASCII letters only; bytes above 127 stay as they are.
void toUpper(std::string* text);
void toLower(std::string* text);

// Stores the position behind leading white space in `*position`, unless that is null. True when
// the text ends there.
bool skipWhiteSpace(const char* text, char** position);

// The value of a parameter of a text command, name=value. Finds the first token that begins with
// `name` and "=" and stores the rest of it. Returns 0, or -1 with `*value` unchanged when there
// is none.
int getParamValue(const std::string& name, const std::vector<std::string>* tokens, std::string* value);

// printf-style text in a buffer of 1000 bytes: a longer result is cut to 999
// characters. A format that fails gives "\nERROR: vsnprintf() problem.\n".
// The first returns the text, the second replaces and the third appends to
// `*out`, which may be among the arguments.
[[gnu::format(printf, 1, 2)]] std::string sprintfStr(const char* format, ...);
[[gnu::format(printf, 2, 3)]] void sprintfStr(std::string* out, const char* format, ...);
[[gnu::format(printf, 2, 3)]] void sprintfStrAppend(std::string* out, const char* format, ...);

// Appends a text so that it stays on one line and cannot control a terminal: control
// characters, also those above 127, and bytes that are not UTF-8 become \n, \r, \t or \x and
// two hexadecimal digits. All else, a backslash too, stays as it is. At most `limit` bytes are
// appended; a longer text is cut, and a note with its length follows.
void appendPrintable(std::string_view text, std::size_t limit, std::string* out);

// Appends that note, for a text of `size` bytes that was cut.
void appendCutNote(std::size_t size, std::string* out);

// ---------------------------------------------------------------- numbers

// Error bits of the conversions below. A conversion sets bits and clears none: a caller clears
// its word once and tests it after several conversions.
inline constexpr std::uint32_t strToErrorBase = 1;     // base other than 0, 10 and 16
inline constexpr std::uint32_t strToErrorText = 2;     // no digits, or other text behind them
inline constexpr std::uint32_t strToErrorTooLow = 4;   // below the lower bound
inline constexpr std::uint32_t strToErrorTooHigh = 8;  // above the upper bound

// Convert a whole text, which may have white space around it, to a number. Base 10 is decimal,
// base 16 hexadecimal with or without "0x", base 0 hexadecimal with "0x" and decimal without.
// `errors` may be null. Return the value; for a value outside the bounds the nearer bound, with
// its error bit; or 0 for a bad text or base.
std::int16_t strToInt16(const std::string& text, std::uint32_t* errors, int base = 10,
                        std::int16_t lowest = std::numeric_limits<std::int16_t>::min(),
                        std::int16_t highest = std::numeric_limits<std::int16_t>::max());
std::uint16_t strToUint16(const std::string& text, std::uint32_t* errors, int base = 10,
                          std::uint16_t lowest = 0,
                          std::uint16_t highest = std::numeric_limits<std::uint16_t>::max());
std::int32_t strToInt32(const std::string& text, std::uint32_t* errors, int base = 10,
                        std::int32_t lowest = std::numeric_limits<std::int32_t>::min(),
                        std::int32_t highest = std::numeric_limits<std::int32_t>::max());
std::uint32_t strToUint32(const std::string& text, std::uint32_t* errors, int base = 10,
                          std::uint32_t lowest = 0,
                          std::uint32_t highest = std::numeric_limits<std::uint32_t>::max());
std::int64_t strToInt64(const std::string& text, std::uint32_t* errors, int base = 10,
                        std::int64_t lowest = std::numeric_limits<std::int64_t>::min(),
                        std::int64_t highest = std::numeric_limits<std::int64_t>::max());
std::uint64_t strToUint64(const std::string& text, std::uint32_t* errors, int base = 10,
                          std::uint64_t lowest = 0,
                          std::uint64_t highest = std::numeric_limits<std::uint64_t>::max());

// The same for decimal floating-point text such as "-1.5e3". "inf", "nan" and hexadecimal
// floats are bad texts.
float strToFloat(const std::string& text, std::uint32_t* errors,
                 float lowest = std::numeric_limits<float>::lowest(),
                 float highest = std::numeric_limits<float>::max());
double str_to_double(const std::string& text, std::uint32_t* errors,
                     double lowest = std::numeric_limits<double>::lowest(),
                     double highest = std::numeric_limits<double>::max());

// Splits "915.25" into 915 and 250000. Quirk: the text is read as a float, so only some seven
// digits count. Throws std::invalid_argument for a bad text and std::out_of_range for one that is
// too large; what() is "stof".
void splitDecimalString(const std::string& text, long long* whole, long long* micros);

// Whether the two differ by at most the machine epsilon, absolute or
// relative to the larger magnitude.
bool approxEqual(float a, float b);

// The mean; NaN for `count` below 1.
float Mean(const float* values, int count);

// Sample standard deviation (divisor count - 1); NaN for `count` below 2. When `mean` is NaN it is
// computed here.
float stdDev(const float* values, int count, float mean);

// ---------------------------------------------------------------- hexadecimal, CRC

// The value of one hexadecimal digit or of two, high digit first; any other character counts
// as 0.
std::uint8_t hex2int(char digit);
std::uint8_t hex2int(char high, char low);

// Also true for an empty text.
bool isAllHexDigits(const std::string& text);

// Works as strtoull in base 16: stops at the first other character, gives 0 without digits and
// all ones for a number that is too large.
std::uint64_t hexToUint64(const std::string& text);

// Two lower-case digits for each of the first `count` bytes, or for all when the vector has fewer. A
// count below 1 gives an empty text.
std::string hexStr(const std::vector<std::uint8_t>& bytes, int count);

// Appends the same to a string that the caller reuses; allocates only when it grows.
void appendHex(const std::uint8_t* bytes, std::size_t count, std::string* out);

// CRC-16/GENIBUS, which is the CRC-16 of the Gen2 air interface (ISO/IEC
// 18000-63, annex F): polynomial 0x1021, most significant bit first, initial
// value 0xFFFF, result inverted; the text "123456789" gives 0xD64E. b8_crc16 folds one byte into a
// running value and does not invert. A length below 1 gives 0.
void b8_crc16(std::uint16_t* crc, std::uint8_t byte);
std::uint16_t computeCRC(int length, const std::uint8_t* data);

// ---------------------------------------------------------------- time

// Local time in the zone of the machine. For a time without a calendar date the string becomes
// empty (timeOnly: does not change). They write into the caller's string and allocate only to
// grow it, since they run for each tag read.
void getISOString(const timeval* time, std::string* out);           // 2026-03-01T08:05:09.007+0100
void appendISOString(const timeval* time, std::string* out);        // the same, appended to *out
void getISOString_noTZ(const timeval* time, std::string* out);      // 2026-03-01T08:05:09.007
void getISOString_timeOnly(const timeval* time, std::string* out);  // 08:05:09.007, appended to *out
void getISOtimeString(const timeval* time, std::string* out);       // 08:05:09.007

// The same as a value: only the time of day, or date, time and zone.
std::string timeToISOstring_tv(const timeval& time, bool timeOnly);
std::string timeToISOstring_dbl(double seconds, bool timeOnly);

// Seconds since 1970, with microseconds as the fraction.
double getCurrentTime_dblSec();
double timevalToDoubleSec(const timeval& time);

// The fraction is rounded down to microseconds, 0 to 999999 also before 1970.
timeval doubleSecToTimeval(double seconds);

// Whether more than `age` has passed from `start` to `now`; exactly `age` is not enough.
bool oldEnough(const timeval* start, const timeval* now, const timeval* age);

// ---------------------------------------------------------------- files
// When a path is a symbolic link, they work on the file that it leads to, and on the folder of
// that file.

// The size, in bytes, of the largest file that is read. A writer must keep to it as well.
inline constexpr std::size_t maxFileSize = 16 * 1024 * 1024;

enum class file_read_e : std::uint8_t {
    done,
    notOpened,  // the file does not exist or may not be opened
    refused,    // it is larger than maxFileSize, not a regular file, or a read fails
};

// Reads a whole regular file. Never waits, also when the path is a pipe or a device. Without
// `done`, `*content` has not changed and `*cause` is one sentence without a full stop, or empty
// when the file does not exist.
file_read_e readRegularFile(const std::string& path, std::string* content, std::string* cause);

// Replaces or creates a regular file. At any moment, also after a crash or a power cut, it has
// the old content or the new one, whole: the content goes to a file with ".new" behind its name,
// which is synced and renamed. The new file has the owner and the rights of the old one. False
// with the path and the reason in `*cause` on failure; the old file is then still there, unless
// only the last step, the write of the folder, has failed.
bool replaceFile(const std::string& path, std::string_view content, std::string* cause);

// Renames a regular file to its name with `suffix` behind it, and replaces a file of that name.
// `*kept` is the new path. Returns whether it worked, with `*cause` as above.
bool keepFileAs(const std::string& path, const std::string& suffix, std::string* kept, std::string* cause);

// Gives the file to `user` and `group` and sets its mode to 0771. Returns 0, or -1 at the first
// step that fails. Main thread: getpwnam and getgrnam are not safe for two threads.
int changeFileOwnerAndGroup(const std::string& user, const std::string& group, const std::string& path);
