// SPDX-License-Identifier: MIT
// Text, number, hexadecimal, CRC, time and statistics helpers. None of them
// holds state that a caller could see; all may be called from any thread except
// changeFileOwnerAndGroup.
#pragma once

#include <sys/time.h>

#include <cstddef>
#include <cstdint>
#include <limits>
#include <string>
#include <string_view>
#include <vector>

// ---------------------------------------------------------------- text

// Splits on runs of white space; no empty tokens.
std::vector<std::string> tokenizeRequestByWhitespace(const std::string* request);

// The words of a request, for both threads that serve requests: the same split; there is
// no quoting.
std::vector<std::string> tokenizeRequest(std::string* request);

// Splits on runs of `delimiter`; no empty tokens.
std::vector<std::string> tokenizeString(const std::string* text, char delimiter);

// Splits on each `delimiter`; empty fields stay, except that nothing follows
// a delimiter at the end: "a,,b," gives "a", "" and "b", and "" gives nothing.
std::vector<std::string> split(const char* text, char delimiter);
std::vector<std::string> tokenizeCommaSeparatedString(const std::string* text);

// The separator stands between the items, none at the end.
std::string joinStrings(const std::vector<std::string>& items, const std::string& separator);

// A copy without any `unwanted`.
std::string removeSelectChar(const std::string& text, char unwanted);

// Removes white space from the END of the text. The name says left and has
// always been wrong; callers rely on what it does.
void ltrim(std::string* text);

// In place, ASCII letters only; bytes above 127 stay as they are.
void toUpper(std::string* text);
void toLower(std::string* text);

// Moves past white space. Stores the position behind it in `*position` unless
// that is null. True when the text ended there.
bool skipWhiteSpace(const char* text, char** position);

// The parameters of text commands have the form name=value. Finds the first
// token that begins with `name` and "=" and stores what stands behind it.
// Returns 0, or -1 when there is none and `*value` is as it was.
int getParamValue(const std::string& name, const std::vector<std::string>* tokens, std::string* value);

// printf-style text in a buffer of 1000 bytes: a longer result is cut to 999
// characters. A format that fails gives "\nERROR: vsnprintf() problem.\n".
// The first returns the text, the second replaces and the third appends to
// `*out`, which may be among the arguments.
[[gnu::format(printf, 1, 2)]] std::string sprintfStr(const char* format, ...);
[[gnu::format(printf, 2, 3)]] void sprintfStr(std::string* out, const char* format, ...);
[[gnu::format(printf, 2, 3)]] void sprintfStrAppend(std::string* out, const char* format, ...);

// Appends a text so that it stays on one line and moves no terminal: control
// characters, also those above 127, and bytes that are not UTF-8 become \n, \r, \t or
// \x and two hexadecimal digits; all else, a backslash too, stays as it is. No more
// than `limit` bytes are appended; of a longer text the beginning, then a note with
// its length.
void appendPrintable(std::string_view text, std::size_t limit, std::string* out);

// The note alone, for a text of this size that has been cut.
void appendCutNote(std::size_t size, std::string* out);

// ---------------------------------------------------------------- numbers

// Error bits of the conversions below. They accumulate: a caller clears its
// word once and tests it after a run of conversions.
inline constexpr std::uint32_t strToErrorBase = 1;     // base is none of 0, 10 and 16
inline constexpr std::uint32_t strToErrorText = 2;     // no digits, or more than white space behind them
inline constexpr std::uint32_t strToErrorTooLow = 4;   // below the lower bound
inline constexpr std::uint32_t strToErrorTooHigh = 8;  // above the upper bound

// Convert a whole text, white space around it allowed, to a number. Base 10 is
// decimal, base 16 hexadecimal with or without "0x", base 0 hexadecimal with
// "0x" and decimal without. `errors` may be null. Return the value; the bound
// that it passes, with that bound's error bit; or 0 for a bad text or base.
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

// The same for decimal floating point text such as "-1.5e3". "inf", "nan" and
// hexadecimal floats are bad texts.
float strToFloat(const std::string& text, std::uint32_t* errors,
                 float lowest = std::numeric_limits<float>::lowest(),
                 float highest = std::numeric_limits<float>::max());
double str_to_double(const std::string& text, std::uint32_t* errors,
                     double lowest = std::numeric_limits<double>::lowest(),
                     double highest = std::numeric_limits<double>::max());

// Splits "915.25" into 915 and 250000. The text goes through a float, so some
// seven digits count. A bad text throws std::invalid_argument, one too large
// std::out_of_range; both say "stof".
void splitDecimalString(const std::string& text, long long* whole, long long* micros);

// Whether the two differ by no more than the machine epsilon, absolute or
// relative to the larger magnitude.
bool approxEqual(float a, float b);

// NaN for `count` below 1.
float Mean(const float* values, int count);

// Sample standard deviation (count - 1); NaN for `count` below 2. A NaN `mean`
// is computed here.
float stdDev(const float* values, int count, float mean);

// ---------------------------------------------------------------- hexadecimal, CRC

// The value of one digit or of two, high digit first; what is not a digit counts as 0.
std::uint8_t hex2int(char digit);
std::uint8_t hex2int(char high, char low);

// True for an empty text too.
bool isAllHexDigits(const std::string& text);

// As strtoull in base 16: stops at the first other character, 0 without digits,
// all ones when too large.
std::uint64_t hexToUint64(const std::string& text);

// Two lower-case digits for each byte; stops at the shorter of `count` and the
// size. A count below 1 gives an empty text.
std::string hexStr(const std::vector<std::uint8_t>& bytes, int count);

// The same at the end of a reused string, which allocates only to grow.
void appendHex(const std::uint8_t* bytes, std::size_t count, std::string* out);

// CRC-16/GENIBUS, which is the CRC-16 of the Gen2 air interface (ISO/IEC
// 18000-63, annex F): polynomial 0x1021, most significant bit first, initial
// value 0xFFFF, result inverted. b8_crc16 folds one byte into a running value
// and does not invert. A length below 1 gives 0.
void b8_crc16(std::uint16_t* crc, std::uint8_t byte);
std::uint16_t computeCRC(int length, const std::uint8_t* data);

// ---------------------------------------------------------------- time

// Local time in the zone of the machine. When the time has no
// calendar date the string is left empty (timeOnly: as it was). All write into
// the caller's string and allocate only to grow it; they are made for one call
// for each tag read.
void getISOString(const timeval* time, std::string* out);           // 2026-03-01T08:05:09.007+0100
void getISOString_noTZ(const timeval* time, std::string* out);      // 2026-03-01T08:05:09.007
void getISOString_timeOnly(const timeval* time, std::string* out);  // 08:05:09.007, appended to *out
void getISOtimeString(const timeval* time, std::string* out);       // 08:05:09.007

// Returned by value: only the time of day, or the whole with its zone.
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
// Where a path is a symbolic link, the file that it leads to is meant, and its folder.

// Bytes of the largest file that is read, and so of the largest that is written.
inline constexpr std::size_t maxFileSize = 16 * 1024 * 1024;

enum class file_read_e : std::uint8_t {
    done,
    notOpened,  // there is none, or no right to it
    refused,    // it is larger than maxFileSize, no regular file, or a read fails
};

// Reads a whole regular file. Never waits, whatever else stands there. Unless it is
// done, `*content` is as it was, and `*cause` one sentence without a full stop, or
// empty when there is no such file.
file_read_e readRegularFile(const std::string& path, std::string* content, std::string* cause);

// Replaces a regular file, or makes it: at any moment, also after a crash or a power
// cut, it has the old content or the new one, whole. An old file's owner and rights
// pass to the new one. Writes to the path with ".new" behind it and renames that.
// Returns whether it worked; if not, `*cause` tells the path and why, and the old
// file stands (unless only the last step failed, the write of its folder).
bool replaceFile(const std::string& path, std::string_view content, std::string* cause);

// Renames a regular file so that `suffix` stands behind its name, in the place of what
// has that name. `*kept` is the new path. Returns whether it worked, with `*cause` as above.
bool keepFileAs(const std::string& path, const std::string& suffix, std::string* kept, std::string* cause);

// Gives the file to `user` and `group` and sets its mode to 0771. Returns 0, or
// -1 at the first step that fails. Main thread: the look-up of names is not
// safe for two threads.
int changeFileOwnerAndGroup(const std::string& user, const std::string& group, const std::string& path);
