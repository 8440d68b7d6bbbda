// SPDX-License-Identifier: MIT
#include "util.hpp"

#include <gtest/gtest.h>

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
    // "base|text|value|errors": blanks and letters around, bounds, more than 64 bits,
    // the prefixes of each base, a base that there is none of.
    const char* const cases =
        "10| \t12 \n|12|0;10|12x|0|2;10| -|0|2;10|-32768|-32768|0;10|-32769|-32768|4;10|32768|32767|8;"
        "10|99999999999999999999|32767|8;10|-99999999999999999999|-32768|4;"
        "0|-0X10|-16|0;0|010|10|0;10|0x10|0|2;16|1F|31|0;0|0x|0|2;8|7|0|1";
    std::uint32_t errors = 0;
    for (const std::string& row : split(cases, ';')) {
        const strings parts = split(row.c_str(), '|');
        const int base = std::stoi(parts[0]);
        const int value = strToInt16(parts[1], &(errors = 0), base);
        EXPECT_EQ(std::to_string(value) + "|" + std::to_string(errors), parts[2] + "|" + parts[3]) << row;
        EXPECT_EQ(strToInt16(parts[1], nullptr, base), value);
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
