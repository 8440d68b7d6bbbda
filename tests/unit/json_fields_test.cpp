// SPDX-License-Identifier: MIT
// What the mode language does not reach of the accessors; mode_refusals.txt has the rest.
#include "json_fields.hpp"

#include <gtest/gtest.h>

#include <cstdint>
#include <nlohmann/json.hpp>

namespace {

using nlohmann::json;

// A read of key "k" into `out`: the result, what is stored and, unless it was left
// alone, the reply.
template <class Out, class... Rest>
std::string read(const char* object, Out out, Rest... rest) {
    const json value = json::parse(object);
    std::string reply;
    const int result = getJsonValue(&value, "k", &out, &reply, rest...);
    return std::to_string(result) + " " + json(out).dump() + (reply.empty() ? "" : " " + reply);
}
std::string outside(const std::string& bounds) {
    return " Failure: value provided for \"k\" is out of bounds. Must be between " + bounds + ".";
}

TEST(JsonFields, NumbersByWidthAndSign) {
    const auto u8 = [](const char* text) {
        return read<std::uint8_t>(text, 77, std::uint8_t{0}, std::uint8_t{255});
    };
    EXPECT_EQ(u8(R"({"k":255})"), "0 255");
    EXPECT_EQ(u8(R"({"k":65536})"), "-3 77" + outside("0 and 255")) << "narrowed first";
    const auto u64 = [](const char* text) {
        return read(text, std::uint64_t{77}, std::uint64_t{1}, ~std::uint64_t{0});
    };
    EXPECT_EQ(u64(R"({"k":18446744073709551615})"), "0 18446744073709551615");
    EXPECT_EQ(u64(R"({"k":0})"), "-3 77" + outside("1 and 18446744073709551615"));
    const auto s16 = [](const char* text) {
        return read<std::int16_t>(text, 77, std::int16_t{-5}, std::int16_t{300});
    };
    EXPECT_EQ(s16(R"({"k":-5})"), "0 -5");
    EXPECT_EQ(s16(R"({"k":300})"), "0 300");
    EXPECT_EQ(s16(R"({"k":-6})"), "-3 77" + outside("-5 and 300"));
    // An unsigned value above every signed one is not negative.
    EXPECT_EQ(read(R"({"k":18446744073709551615})", std::int64_t{77}, INT64_MIN, std::int64_t{10}),
              "-3 77" + outside("-9223372036854775808 and 10"));
    EXPECT_EQ(read(R"({"k":0})", 7.0F, 0.0F, 0.1F), "0 0.0");
    EXPECT_EQ(read(R"({"k":0.11})", 7.0F, 0.0F, 0.1F), "-3 7.0" + outside("0.000000 and 0.100000"));
}

TEST(JsonFields, OtherTypesAndAbsence) {
    EXPECT_EQ(read(R"({"k":true})", false), "0 true");
    EXPECT_EQ(read(R"({"k":1})", false), "-2 false Failure: \"k\" field must contain \"true\" or \"false\"");
    EXPECT_EQ(read(R"({"k":"any"})", std::string(), std::vector<std::string>{}), "0 \"any\"");
    const json list = json::parse(R"(["k"])");
    for (const json* without : {&list, static_cast<const json*>(nullptr)}) {
        json out = 77;
        std::string reply;
        EXPECT_EQ(getJsonValueObject(without, "k", &out, &reply), -1);
        EXPECT_EQ(reply, "Failure: \"k\" must be included in object");
        EXPECT_EQ(out, 77);
    }
}

}  // namespace
