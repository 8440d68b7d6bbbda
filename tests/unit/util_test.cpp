// SPDX-License-Identifier: MIT
#include "util.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <stdexcept>

namespace {

using strings = std::vector<std::string>;

TEST(Util, TokenizersDifferInEmptyFields) {
    const std::string request = " \tmode  {\"a\": 1}\n";
    EXPECT_EQ(tokenizeRequestByWhitespace(&request), (strings{"mode", "{\"a\":", "1}"}));
    const std::string text = ";;a;;b;";
    EXPECT_EQ(tokenizeString(&text, ';'), (strings{"a", "b"}));
    EXPECT_EQ(split(text.c_str(), ';'), (strings{"", "", "a", "", "b"}));
}

TEST(Util, TextEditsTakeAnyByte) {
    std::string text = " \xC3\xA4 b\xFF \r\n";
    ltrim(&text);
    toUpper(&text);
    EXPECT_EQ(text, " \xC3\xA4 B\xFF");
    ltrim(&(text = " \t"));
    EXPECT_EQ(text, "");
}

TEST(Util, ParameterNeedsItsWholeName) {
    const strings tokens = {"cmd", "max_pwr=3", "xmax=4", "max=a=b", "max=5"};
    std::string value = "untouched";
    EXPECT_EQ(getParamValue("pwr", &tokens, &value), -1);
    EXPECT_EQ(getParamValue("max", &tokens, &value), 0);
    EXPECT_EQ(value, "a=b");
}

TEST(Util, IntegerConversions) {
    struct case_s {
        const char* legend;
        std::string text;
        int base;
        std::int64_t value;
        std::uint32_t errors;
    };
    const case_s cases[] = {
        {"blanks around", " \t12 \n", 10, 12, 0},
        {"letters behind", "12x", 10, 0, 2},
        {"a NUL behind", {"12\0", 3}, 10, 0, 2},
        {"a sign alone", " -", 10, 0, 2},
        {"lower bound", "-32768", 10, -32768, 0},
        {"below", "-32769", 10, -32768, 4},
        {"above", "32768", 10, 32767, 8},
        {"more than 64 bits", "99999999999999999999", 10, 32767, 8},
        {"more than 64 bits below", "-99999999999999999999", 10, -32768, 4},
        {"base 0 hexadecimal", "-0X10", 0, -16, 0},
        {"base 0 without prefix is no octal", "010", 0, 10, 0},
        {"base 10 takes no prefix", "0x10", 10, 0, 2},
        {"base 16 with and without prefix", "1F", 16, 31, 0},
        {"a prefix without digits", "0x", 0, 0, 2},
        {"base 8", "7", 8, 0, 1},
    };
    for (const case_s& row : cases) {
        SCOPED_TRACE(row.legend);
        std::uint32_t errors = 0;
        EXPECT_EQ(strToInt16(row.text, &errors, row.base), row.value);
        EXPECT_EQ(errors, row.errors);
        EXPECT_EQ(strToInt16(row.text, nullptr, row.base), row.value);
    }
    std::uint32_t errors = 0;
    EXPECT_EQ(strToUint64("18446744073709551615", &errors), ~std::uint64_t{0});
    EXPECT_EQ(errors, 0U);
    EXPECT_EQ(strToInt64("9223372036854775808", &errors), INT64_MAX);
    EXPECT_EQ(strToInt64("-9223372036854775809", &errors), INT64_MIN);
    EXPECT_EQ(strToUint16("x", &errors), 0);
    EXPECT_EQ(errors, strToErrorTooHigh | strToErrorTooLow | strToErrorText) << "error bits accumulate";
    EXPECT_EQ(strToUint64("-1", &(errors = 0)), 0U);
    EXPECT_EQ(errors, strToErrorTooLow);
}

TEST(Util, FloatConversions) {
    struct case_s {
        const char* text;
        double value;
        std::uint32_t errors;
    };
    const case_s cases[] = {
        {" -1.5e1 ", -15, 0}, {".5", 0.5, 0},  {"100.5", 100, 8}, {"-1e999", -100, 4}, {"nan", 0, 2},
        {"inf", 0, 2},        {"0x1p3", 0, 2}, {"1.5 m", 0, 2},   {"", 0, 2},          {".", 0, 2},
    };
    for (const case_s& row : cases) {
        SCOPED_TRACE(row.text);
        std::uint32_t errors = 0;
        EXPECT_EQ(str_to_double(row.text, &errors, -100, 100), row.value);
        EXPECT_EQ(errors, row.errors);
        EXPECT_EQ(strToFloat(row.text, nullptr, -100, 100), static_cast<float>(row.value));
    }
}

TEST(Util, HexAndCrc) {
    EXPECT_EQ(hexStr({0x00, 0xA5, 0xFF}, 2), "00a5");
    EXPECT_EQ(hexStr({0xA5}, 9) + hexStr({0xA5}, -1), "a5");
    EXPECT_EQ(hex2int('E', '2'), 0xE2);
    EXPECT_EQ(hex2int('g', '2'), 0x02);
    EXPECT_FALSE(isAllHexDigits("12\xE4"));
    const std::string check = "123456789";
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(check.data());
    EXPECT_EQ(computeCRC(9, bytes), 0xD64E);
    EXPECT_EQ(computeCRC(0, bytes), 0);
}

TEST(Util, FormattedTextIsCutAt999Characters) {
    const std::string longText(2000, 'x');
    std::string text = "old";
    sprintfStr(&text, "%s", longText.c_str());
    EXPECT_EQ(text, std::string(999, 'x'));
    sprintfStr(&text, "%d ", 7);
    sprintfStrAppend(&text, "%s%s", text.c_str(), "b");
    EXPECT_EQ(text, "7 7 b");
    EXPECT_EQ(sprintfStr("%lc", static_cast<wint_t>(0x20AC)), "\nERROR: vsnprintf() problem.\n");
}

TEST(Util, TimeStringsFollowZoneAndSecond) {
    setenv("TZ", "TST-5:30", 1);
    struct case_s {
        timeval time;
        const char* whole;
        const char* timeOnly;
    };
    // The same second twice, then another, then back: what is remembered must not leak.
    const case_s cases[] = {
        {{1700000000, 7999}, "2023-11-15T03:43:20.007+0530", "03:43:20.007"},
        {{1700000000, 999999}, "2023-11-15T03:43:20.999+0530", "03:43:20.999"},
        {{std::numeric_limits<time_t>::max(), 0}, "", ""},
        {{-1, 0}, "1970-01-01T05:29:59.000+0530", "05:29:59.000"},
        {{1700000000, 0}, "2023-11-15T03:43:20.000+0530", "03:43:20.000"},
    };
    std::string text = "something longer than any time stamp will ever be";
    for (const case_s& row : cases) {
        getISOString(&row.time, &text);
        EXPECT_EQ(text, row.whole);
        getISOString_noTZ(&row.time, &text);
        EXPECT_EQ(text + (text.empty() ? "" : "+0530"), row.whole);
        getISOtimeString(&row.time, &text);
        EXPECT_EQ(text, row.timeOnly);
        getISOString_timeOnly(&row.time, &text);
        EXPECT_EQ(text, std::string(row.timeOnly) + row.timeOnly) << "appends";
    }
    EXPECT_EQ(timeToISOstring_dbl(1700000000.25, false), "2023-11-15T03:43:20.250+0530");
    EXPECT_EQ(timeToISOstring_tv({1700000000, 0}, true), "03:43:20.000");
}

TEST(Util, TimeAndStatistics) {
    for (const double seconds : {1700000000.25, -1.5, -1e-20}) {
        const timeval time = doubleSecToTimeval(seconds);
        EXPECT_NEAR(timevalToDoubleSec(time), seconds, 1e-6);
        EXPECT_TRUE(time.tv_usec >= 0 && time.tv_usec <= 999999) << time.tv_usec;
    }
    const timeval start{10, 900000}, age{1, 200000}, exactly{12, 100000}, later{12, 100001};
    EXPECT_FALSE(oldEnough(&start, &exactly, &age));
    EXPECT_TRUE(oldEnough(&start, &later, &age));
    const float values[] = {2, 4, 4, 4, 5, 5, 7, 9};
    EXPECT_FLOAT_EQ(stdDev(values, 8, NAN), std::sqrt(32.0F / 7.0F));
    EXPECT_TRUE(std::isnan(stdDev(values, 1, 2.0F)));
    long long whole = 0, micros = 0;
    splitDecimalString("915.25", &whole, &micros);
    EXPECT_TRUE(whole == 915 && micros == 250000) << whole << " " << micros;
    EXPECT_THROW(splitDecimalString("nan", &whole, &micros), std::invalid_argument);
    EXPECT_THROW(splitDecimalString("1e30", &whole, &micros), std::out_of_range);
}

}  // namespace
