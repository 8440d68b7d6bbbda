// SPDX-License-Identifier: MIT
// A request to the command table, and what the engine was called for it.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "requests.hpp"
#include "support/engine_double.hpp"

inline std::string ask(std::string request, int expected = 0) {
    std::string reply = "left over";
    EXPECT_EQ(requests::ProcessRequest(&request, &reply), expected) << request.substr(0, 100);
    return reply;
}

// The calls since the last look, described.
inline std::string engineCalls() {
    std::string names;
    for (const engine_double::call_s& call : engine_double::calls()) {
        names += (names.empty() ? "" : " ") + describe(call);
    }
    engine_double::clearCalls();
    return names;
}
