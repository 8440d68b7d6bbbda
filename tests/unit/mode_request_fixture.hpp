// SPDX-License-Identifier: MIT
// A reader that takes mode requests, in a directory of its own.
#pragma once

#include <gmock/gmock.h>
#include <unistd.h>

#include <algorithm>
#include <functional>
#include <string>
#include <vector>

#include "mode_config.hpp"
#include "rxe_intfc.hpp"
#include "support/engine_double.hpp"
#include "support/temp_dir.hpp"

inline constexpr const char* pn51 = "PN5100";
inline constexpr const char* pn82 = "PN8200";
inline constexpr const char* qdx = "QDX4400";

// A row of a table stands for a request: its value takes the place of the "@" in
// the table's frame, and names the row when it fails.
struct refused_s {
    std::string value;
    std::string reply;  // behind "Failure: "
};
struct taken_s {
    std::string value;
    std::function<bool(const mode_configuration_s&)> holds;
};

// Requests and replies are written with ' for ".
inline std::string quoted(std::string text) {
    std::replace(text.begin(), text.end(), '\'', '"');
    return text;
}
inline std::string framed(std::string frame, const std::string& value) {
    return frame.replace(frame.find('@'), 1, value);
}

// A request of type SIMPLE with further keys.
inline std::string simple(const std::string& keys) {
    return "{'type':'SIMPLE'," + keys + "}";
}

// A list of `count` times the same.
inline std::string repeated(const std::string& item, std::size_t count) {
    std::string list;
    for (std::size_t i = 0; i < count; ++i) {
        list += (i == 0 ? "" : ",") + item;
    }
    return "[" + list + "]";
}

inline std::string missing(const std::string& key) {
    return "'" + key + "' must be included in object";
}
inline std::string outOf(const std::string& key, const std::string& bounds) {
    return "value provided for '" + key + "' is out of bounds. Must be between " + bounds + ".";
}
inline std::string oneOf(const std::string& key, const std::string& words) {
    return "value provided for '" + key +
           "' must be a string containing one of the following values: " + words;
}

class ModeRequestTest : public testing::Test {
  protected:
    ModeRequestTest() { EXPECT_EQ(chdir(directory.path.c_str()), 0); }
    ~ModeRequestTest() override { EXPECT_EQ(chdir("/"), 0); }

    // Link profiles of its own, so that no management server is asked.
    static constexpr const char* goodRequest =
        "{'type':'CUSTOM','transmitPower':[20,21,22,23],"
        "'antennas':[4,3,2,1],'linkProfile':[201,202,207,208]}";

    static std::string ask(const std::string& request) {
        std::vector<std::string> tokens{"mode", quoted(request)};
        std::string reply = "untouched";
        EXPECT_EQ(handleModeRequest(&tokens, &reply), 0);
        return reply;
    }

    static std::string savedRequest() { return readTextFile("mode_config.json"); }

    // Another reader, with four antennas, 30 dBm and goodRequest in force.
    static void become(const std::string& model) {
        modelName = model;
        max_ants = 4;
        max_tx_pwr_x_10 = rxe_max_tx_pwr_x_10 = 300;
        rssiFilterSupported = initial_channel_state = true;
        engine_double::reset();
        EXPECT_EQ(ask(goodRequest), "Success");
        engine_double::clearCalls();
    }

    // Each request gets its answer and leaves no trace.
    static void expectRefused(const char* model, const std::string& frame,
                              const std::vector<refused_s>& rows) {
        become(model);
        const std::string mode = ask("verbose");
        const std::string saved = savedRequest();
        for (const refused_s& row : rows) {
            SCOPED_TRACE(framed(frame, row.value).substr(0, 500) + " on " + model);
            EXPECT_EQ(ask(framed(frame, row.value)), quoted("Failure: " + row.reply));
            EXPECT_EQ(ask("verbose"), mode);
            EXPECT_EQ(savedRequest(), saved);
            EXPECT_EQ(engine_double::calls().size(), 0U);
        }
    }

    static void expectTaken(const char* model, const std::string& frame, const std::vector<taken_s>& rows) {
        become(model);
        for (const taken_s& row : rows) {
            SCOPED_TRACE(framed(frame, row.value).substr(0, 500) + " on " + model);
            EXPECT_EQ(ask(framed(frame, row.value)), "Success");
            EXPECT_TRUE(row.holds(mode_configuration)) << ask("verbose");
        }
    }

  private:
    temp_dir_s directory;
};
