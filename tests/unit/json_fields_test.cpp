// SPDX-License-Identifier: MIT
// What the mode language does not reach of the accessors; mode_refusals.txt has the rest.
#include "json_fields.hpp"

#include <gtest/gtest.h>

#include <cstdint>
#include <nlohmann/json.hpp>

namespace {

using nlohmann::json;

// A read of key "k" with this value: the result, what is stored and, unless it was
// left alone, the reply.
template <class Number>
std::string read(const std::string& value, Number min, Number max) {
    const json object = json::parse("{\"k\":" + value + "}");
    Number out = 77;
    std::string reply;
    const int result = getJsonValue(&object, "k", &out, &reply, min, max);
    return std::to_string(result) + " " + json(out).dump() + reply;
}
std::string outside(const std::string& bounds) {
    return "Failure: value provided for \"k\" is out of bounds. Must be between " + bounds + ".";
}

TEST(JsonFields, NumbersByWidthAndSign) {
    EXPECT_EQ(read<std::uint8_t>("255", 0, 255), "0 255");
    EXPECT_EQ(read<std::uint8_t>("65536", 0, 255), "-3 77" + outside("0 and 255")) << "narrowed first";
    const std::string most = "18446744073709551615";
    EXPECT_EQ(read<std::uint64_t>(most, 1, UINT64_MAX), "0 " + most);
    EXPECT_EQ(read<std::uint64_t>("0", 1, UINT64_MAX), "-3 77" + outside("1 and " + most));
    EXPECT_EQ(read<std::int16_t>("-5", -5, 300), "0 -5");
    EXPECT_EQ(read<std::int16_t>("-6", -5, 300), "-3 77" + outside("-5 and 300"));
    // An unsigned value above every signed one is not negative.
    EXPECT_EQ(read<std::int64_t>(most, INT64_MIN, 10), "-3 77" + outside("-9223372036854775808 and 10"));
    EXPECT_EQ(read("0", 0.0F, 0.1F), "0 0.0");
    EXPECT_EQ(read("0.11", 0.0F, 0.1F), "-3 77.0" + outside("0.000000 and 0.100000"));
}

TEST(JsonFields, NoObjectHoldsNothing) {
    json out = 77;
    std::string reply;
    EXPECT_EQ(getJsonValueObject(nullptr, "k", &out, &reply), -1);
    EXPECT_EQ(reply + out.dump(), "Failure: \"k\" must be included in object77");
}

}  // namespace
