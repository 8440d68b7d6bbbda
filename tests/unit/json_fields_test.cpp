// SPDX-License-Identifier: MIT
#include "json_fields.hpp"

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <nlohmann/json.hpp>

namespace {

using nlohmann::json;

// One read of key "k"; the result, and what was stored as JSON.
struct outcome_s {
    int result;
    json stored;
    std::string reply;
};
using reader = std::function<outcome_s(const json*)>;

// A reader by the overload of getJsonValue for an output that holds `before`.
template <class Out, class... Rest>
reader reads(Out before, Rest... rest) {
    return [=](const json* object) {
        Out out = before;
        std::string reply = "untouched";
        const int result = getJsonValue(object, "k", &out, &reply, rest...);
        return outcome_s{result, out, reply};
    };
}

template <int (*Read)(const json*, const std::string&, json*, std::string*)>
outcome_s readStructure(const json* object) {
    json out = 77;
    std::string reply = "untouched";
    const int result = Read(object, "k", &out, &reply);
    return {result, out, reply};
}

std::string isNot(const std::string& kind) {
    return "Failure: \"k\" field must contain " + kind;
}
std::string outside(const std::string& bounds) {
    return "Failure: value provided for \"k\" is out of bounds. Must be between " + bounds + ".";
}

TEST(JsonFields, EveryAccessor) {
    using strings = std::vector<std::string>;
    const auto u8 = reads<std::uint8_t, std::uint8_t, std::uint8_t>(77, 0, 255);
    const auto u64 = reads<std::uint64_t, std::uint64_t, std::uint64_t>(77, 1, ~std::uint64_t{0});
    const auto s16 = reads<std::int16_t, std::int16_t, std::int16_t>(77, -5, 300);
    const auto s64 = reads<std::int64_t, std::int64_t, std::int64_t>(77, INT64_MIN, 10);
    const auto real = reads<float, float, float>(77, 0, 0.1F);
    const auto anyString = reads(std::string("77"), strings{});
    const auto aOrB = reads(std::string("77"), strings{"A", "B"});
    const auto readBool = reads(false);
    const reader array = readStructure<getJsonValueArray>;
    const reader object = readStructure<getJsonValueObject>;
    struct case_s {
        const char* legend;
        reader read;
        const char* value;  // of key "k"
        int result;
        std::string expected;  // stored as JSON, or the reply of a failure
    };
    const case_s cases[] = {
        {"u8 upper bound", u8, "255", 0, "255"},
        {"u8 above", u8, "256", -3, outside("0 and 255")},
        {"u8 far above is not narrowed first", u8, "65536", -3, outside("0 and 255")},
        {"u8 negative", u8, "-1", -2, isNot("an unsigned integer")},
        {"u8 whole float", u8, "5.0", -2, isNot("an unsigned integer")},
        {"u64 largest", u64, "18446744073709551615", 0, "18446744073709551615"},
        {"u64 below", u64, "0", -3, outside("1 and 18446744073709551615")},
        {"s16 lower bound", s16, "-5", 0, "-5"},
        {"s16 below", s16, "-6", -3, outside("-5 and 300")},
        {"s16 takes unsigned", s16, "300", 0, "300"},
        {"s16 above", s16, "301", -3, outside("-5 and 300")},
        {"s16 fraction", s16, "1.5", -2, isNot("an integer")},
        {"an unsigned value above every signed one is not negative", s64, "18446744073709551615", -3,
         outside("-9223372036854775808 and 10")},
        {"float takes integers", real, "0", 0, "0.0"},
        {"float above", real, "0.11", -3, outside("0.000000 and 0.100000")},
        {"float text", real, "\"0\"", -2, isNot("a floating point number")},
        {"string without list", anyString, "\"any\"", 0, "\"any\""},
        {"string allowed", aOrB, "\"B\"", 0, "\"B\""},
        {"string in other case", aOrB, "\"b\"", -3,
         "Failure: value provided for \"k\" must be a string containing one of the following values: A, B"},
        {"string is a number", aOrB, "1", -2, isNot("a string")},
        {"bool", readBool, "true", 0, "true"},
        {"bool as a number", readBool, "1", -2, isNot("\"true\" or \"false\"")},
        {"array", array, "[1,[2]]", 0, "[1,[2]]"},
        {"array is an object", array, "{}", -2, isNot("an array of values")},
        {"object", object, R"({"k":{}})", 0, R"({"k":{}})"},
        {"object is an array", object, "[]", -2, isNot("an object")},
    };
    const json empty = json::object();
    const json list = json::parse(R"(["k"])");
    for (const case_s& row : cases) {
        SCOPED_TRACE(row.legend);
        json request;
        request["k"] = json::parse(row.value);
        const json before = row.read(&empty).stored;
        const outcome_s got = row.read(&request);
        EXPECT_EQ(got.result, row.result);
        EXPECT_EQ(got.stored, row.result == 0 ? json::parse(row.expected) : before);
        EXPECT_EQ(got.reply, row.result == 0 ? "untouched" : row.expected);
        for (const json* without : {&empty, &list, static_cast<const json*>(nullptr)}) {
            const outcome_s missing = row.read(without);
            EXPECT_EQ(missing.result, -1);
            EXPECT_EQ(missing.reply, "Failure: \"k\" must be included in object");
        }
    }
}

}  // namespace
