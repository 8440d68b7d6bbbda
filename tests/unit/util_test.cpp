// SPDX-License-Identifier: MIT
#include "util.hpp"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <tuple>

#include "support/temp_dir.hpp"

namespace {

using strings = std::vector<std::string>;

TEST(Util, Texts) {
    const std::string fields = ";;a;;b;";
    EXPECT_EQ(tokenizeString(&fields, ';'), (strings{"a", "b"}));
    EXPECT_EQ(split(fields.c_str(), ';'), (strings{"", "", "a", "", "b"}));
    std::string text = " \xC3\xA4 b\xFF \r\n";
    ltrim(&text);
    toUpper(&text);
    EXPECT_EQ(text, " \xC3\xA4 B\xFF");
    const strings tokens = {"cmd", "max_pwr=3", "xmax=4", "max=a=b", "max=5"};
    EXPECT_EQ(getParamValue("pwr", &tokens, &text), -1);
    EXPECT_EQ(getParamValue("max", &tokens, &text), 0);
    EXPECT_EQ(text, "a=b");
}

TEST(Util, IntegerConversions) {
    // Base, text, value and errors: blanks and letters around, bounds, more than 64 bits, the
    // prefixes of each base, a base that does not exist.
    const std::tuple<int, std::string, int, std::uint32_t> cases[] = {
        {10, " \t12 \n", 12, 0},
        {10, "12x", 0, strToErrorText},
        {10, " -", 0, strToErrorText},
        {10, "-32768", -32768, 0},
        {10, "-32769", -32768, strToErrorTooLow},
        {10, "32768", 32767, strToErrorTooHigh},
        {10, "99999999999999999999", 32767, strToErrorTooHigh},
        {10, "-99999999999999999999", -32768, strToErrorTooLow},
        {0, "-0X10", -16, 0},
        {0, "010", 10, 0},
        {10, "0x10", 0, strToErrorText},
        {16, "1F", 31, 0},
        {0, "0x", 0, strToErrorText},
        {8, "7", 0, strToErrorBase}};
    std::uint32_t errors = 0;
    for (const auto& [base, text, value, expected] : cases) {
        EXPECT_EQ(strToInt16(text, &(errors = 0), base), value) << text;
        EXPECT_EQ(errors, expected) << text;
        EXPECT_EQ(strToInt16(text, nullptr, base), value);
    }
    EXPECT_EQ(strToInt16({"12\0", 3}, &(errors = 0)), 0);
    EXPECT_EQ(errors, strToErrorText);
    EXPECT_EQ(strToUint64("18446744073709551615", nullptr), ~std::uint64_t{0});
    EXPECT_EQ(strToInt64("-9223372036854775809", &(errors = 0)), INT64_MIN);
    EXPECT_EQ(strToUint64("-1", &errors) + strToUint16("65536", &errors) + strToUint16("x", &errors), 65535U);
    EXPECT_EQ(errors, strToErrorTooHigh | strToErrorTooLow | strToErrorText) << "error bits accumulate";
}

TEST(Util, FloatsHexAndCrc) {
    std::uint32_t errors = 0;
    EXPECT_EQ(str_to_double(" -1.5e1 ", &errors, -100, 100) + strToFloat(".5", &errors, -100, 100), -14.5);
    EXPECT_EQ(errors, 0U);
    for (const char* text : {"nan", "inf", "0x1p3", "1.5 m", "", "."}) {
        EXPECT_EQ(str_to_double(text, &(errors = 0), -100, 100), 0) << text;
        EXPECT_EQ(errors, strToErrorText) << text;
    }
    EXPECT_EQ(str_to_double("-1e999", &(errors = 0), -100, 100), -100);
    EXPECT_EQ(errors, strToErrorTooLow);
    EXPECT_EQ(hexStr({0x00, 0xA5, 0xFF}, 2) + hexStr({0xA5}, 9) + hexStr({0xA5}, -1), "00a5a5");
    EXPECT_FALSE(isAllHexDigits("12\xE4"));
    EXPECT_EQ(computeCRC(9, reinterpret_cast<const std::uint8_t*>("123456789")), 0xD64E);
}

TEST(Util, FormattedTextIsCutAt999Characters) {
    std::string text = "old";
    sprintfStr(&text, "%s", std::string(2000, 'x').c_str());
    sprintfStrAppend(&text, "%s%d", text.c_str(), 7);
    EXPECT_EQ(text, std::string(2 * 999, 'x')) << "cut at 999 each";
    EXPECT_EQ(sprintfStr("%lc", static_cast<wint_t>(0x20AC)), "\nERROR: vsnprintf() problem.\n");
}

TEST(Util, PrintableTextStaysOnItsLineAndWithinItsLimit) {
    const std::tuple<std::string, std::size_t, std::string> cases[] = {
        {"a\\n\xC3\xA9\xE2\x82\xAC\xF0\x9F\x93\xA1", 99, "a\\n\xC3\xA9\xE2\x82\xAC\xF0\x9F\x93\xA1"},
        {std::string("\n\r\t\0\x1B\x7F", 6), 99, R"(\n\r\t\x00\x1b\x7f)"},
        // a control character above 127, a lone byte, an overlong form, a surrogate, the end within one
        {"\xC2\x9B\x83\xC0\xAF\xED\xA0\x80\xE2\x82", 99, R"(\xc2\x9b\x83\xc0\xaf\xed\xa0\x80\xe2\x82)"},
        {"1234", 4, "1234"},
        {"12345", 4, "1234... (cut, 5 bytes in all)"},
        {"123\xC3\xA9", 4, "123... (cut, 5 bytes in all)"},
        {"123\n", 4, "123... (cut, 4 bytes in all)"}};
    for (const auto& [text, limit, printable] : cases) {
        std::string out = "> ";
        appendPrintable(text, limit, &out);
        EXPECT_EQ(out, "> " + printable);
    }
}

TEST(Util, FilesAreReadAndReplacedWhole) {
    namespace fs = std::filesystem;
    const temp_dir_s directory;
    fs::current_path(directory.path);
    writeTextFile("old", "old");
    permissions("old", fs::perms(0640));
    fs::create_symlink("old", "link");
    fs::create_symlink("missing", "dangling");
    fs::create_directories("blocked.new/within");
    writeTextFile("blocked", "kept");
    writeTextFile("large", "");
    fs::resize_file("large", maxFileSize + 1);
    fs::create_symlink("/dev/zero", "endless");
    ASSERT_EQ(mkfifo("pipe", 0600), 0);
    fs::create_symlink("ring", "ring");
    using enum file_read_e;
    // The file; how it is read, and what is told of it, or is in it; what is told when it is
    // replaced, or nothing.
    const std::tuple<const char*, file_read_e, std::string, std::string> cases[] = {
        {"new", notOpened, "", ""},
        {"old", done, "old", ""},
        {"link", done, "new", ""},
        {"dangling", notOpened, "", ""},
        {"blocked", done, "kept", "blocked.new: File exists"},
        {"large", refused, "large: larger than 16 MiB", ""},
        {"endless", refused, "endless: not a regular file", "/dev/zero: not a regular file"},
        {"pipe", refused, "pipe: not a regular file", "pipe: not a regular file"},
        {".", refused, ".: not a regular file", ".: not a regular file"},
        {"ring", notOpened, "ring: Too many levels of symbolic links",
         "ring: Too many levels of symbolic links"},
        {"none/file", notOpened, "", "none/file.new: No such file or directory"}};
    for (const auto& [path, result, told, refusal] : cases) {
        SCOPED_TRACE(path);
        std::string content, cause;
        EXPECT_EQ(readRegularFile(path, &content, &cause), result);
        EXPECT_EQ(content + cause, told);
        EXPECT_EQ(replaceFile(path, "new", &(cause = "")), refusal.empty());
        EXPECT_EQ(cause, refusal);
        if (result == done || refusal.empty()) {
            EXPECT_EQ(readTextFile(path), refusal.empty() ? "new" : "kept");
        }
    }
    EXPECT_EQ(fs::status("old").permissions(), fs::perms(0640));
    EXPECT_TRUE(fs::is_symlink("link") && fs::is_symlink("dangling") && !fs::exists("old.new"));
    std::string kept, cause;
    EXPECT_TRUE(keepFileAs("link", ".refused", &kept, &cause));
    EXPECT_EQ(kept + " " + readTextFile(kept), "old.refused new");
    EXPECT_FALSE(keepFileAs("link", ".refused", &kept, &cause));
    std::string tooLarge(maxFileSize + 1, 'x');
    EXPECT_FALSE(replaceFile("old", tooLarge, &cause)) << "nothing would read it again";
}

TEST(Util, TimeStringsFollowZoneAndSecond) {
    setenv("TZ", "TST-5:30", 1);
    // The same second twice, then another, then back: what is remembered must not leak.
    const std::tuple<timeval, std::string, std::string> cases[] = {
        {{1700000000, 7999}, "2023-11-15T", "03:43:20.007"},
        {{1700000000, 999999}, "2023-11-15T", "03:43:20.999"},
        {{std::numeric_limits<time_t>::max(), 0}, "", ""},
        {{-1, 0}, "1970-01-01T", "05:29:59.000"},
    };
    std::string text = "something longer than any time stamp will ever be";
    for (const auto& [time, date, clock] : cases) {
        getISOString(&time, &text);
        EXPECT_EQ(text, date + clock + (date.empty() ? "" : "+0530"));
        getISOString_noTZ(&time, &text);
        EXPECT_EQ(text, date + clock);
        getISOtimeString(&time, &text);
        getISOString_timeOnly(&time, &text);
        EXPECT_EQ(text, clock + clock) << "appends";
    }
    EXPECT_EQ(timeToISOstring_dbl(1700000000.25, false), "2023-11-15T03:43:20.250+0530");
}

TEST(Util, Times) {
    for (const double seconds : {1700000000.25, -1.5, -1e-20}) {
        const timeval time = doubleSecToTimeval(seconds);
        EXPECT_NEAR(timevalToDoubleSec(time), seconds, 1e-6);
        EXPECT_TRUE(time.tv_usec >= 0 && time.tv_usec <= 999999) << time.tv_usec;
    }
    const timeval start{10, 900000}, age{1, 200000}, exactly{12, 100000}, later{12, 100001};
    EXPECT_TRUE(!oldEnough(&start, &exactly, &age) && oldEnough(&start, &later, &age));
}

}  // namespace
