// SPDX-License-Identifier: MIT
// A reader that takes mode requests, in a directory of its own. Whatever it has
// taken, the published schema has to take as well.
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
#include "support/json_schema.hpp"
#include "support/temp_dir.hpp"

inline constexpr const char* pn51 = "PN5100";
inline constexpr const char* pn82 = "PN8200";
inline constexpr const char* qdx = "QDX4400";
inline constexpr const char* modeSchema = TARNWICK_SOURCE_DIR "/docs/mode.schema.json";

// A row of a table stands for a request: its value takes the place of the "@" in
// the table's frame, and names the row when it fails.
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

// mode_renderings.txt, which tells what stands in it.
struct rendering_s {
    std::string model, type, legend, keys, changes, refusal;
};
inline std::vector<rendering_s> renderings() {
    std::vector<rendering_s> rows;
    std::ifstream file(TARNWICK_SOURCE_DIR "/tests/unit/mode_renderings.txt");
    for (std::string line; std::getline(file, line);) {
        const std::string text = line.size() < 2 ? "" : line.substr(2);
        if (line.starts_with("= ")) {
            std::istringstream words(text);
            rendering_s& row = rows.emplace_back();
            std::getline(words >> row.model >> row.type >> std::ws, row.legend);
        } else if (line.starts_with("  ")) {
            rows.back().keys = text;
        } else if (line.starts_with("~ ")) {
            rows.back().changes = text;
        } else if (line.starts_with("! ")) {
            rows.back().refusal = text;
        }
    }
    return rows;
}

class ModeRequestTest : public testing::Test {
  protected:
    ModeRequestTest() { EXPECT_EQ(chdir(directory.path.c_str()), 0); }
    ~ModeRequestTest() override {
        EXPECT_EQ(chdir("/"), 0);
        const std::vector<bool> accepted = acceptedBySchema(modeSchema, taken);
        for (std::size_t i = 0; i < taken.size(); ++i) {
            EXPECT_TRUE(accepted[i]) << "taken, and not of the schema: " << taken[i];
        }
    }

    // Link profiles of its own, so that no management server is asked.
    static constexpr const char* goodRequest =
        "{'type':'CUSTOM','transmitPower':[20,21,22,23],"
        "'antennas':[4,3,2,1],'linkProfile':[201,202,207,208]}";

    std::string ask(const std::string& request) {
        std::vector<std::string> tokens{"mode", quoted(request)};
        std::string reply = "untouched";
        EXPECT_EQ(handleModeRequest(&tokens, &reply), 0);
        if (reply == "Success" && tokens[1].size() < 1'000'000) {
            taken.push_back(tokens[1]);
        }
        return reply;
    }

    static std::string savedRequest() { return readTextFile("mode_config.json"); }

    // Another reader, with four antennas, 30 dBm and goodRequest in force.
    void become(const std::string& model) {
        modelName = model;
        max_ants = 4;
        max_tx_pwr_x_10 = rxe_max_tx_pwr_x_10 = 300;
        rssiFilterSupported = initial_channel_state = true;
        engine_double::reset();
        EXPECT_EQ(ask(goodRequest), "Success");
        engine_double::clearCalls();
    }

    void expectTaken(const char* model, const std::string& frame, const std::vector<taken_s>& rows) {
        become(model);
        for (const taken_s& row : rows) {
            SCOPED_TRACE(framed(frame, row.value).substr(0, 500) + " on " + model);
            EXPECT_EQ(ask(framed(frame, row.value)), "Success");
            EXPECT_TRUE(row.holds(mode_configuration)) << ask("verbose");
        }
    }

  private:
    temp_dir_s directory;
    std::vector<std::string> taken;
};
