// SPDX-License-Identifier: MIT
// A reader that takes mode requests, in a directory of its own. Whatever it has
// taken, the published schema has to take as well.
#pragma once

#include <gmock/gmock.h>
#include <unistd.h>

#include <algorithm>
#include <set>
#include <string>
#include <vector>

#include "engine_io/channels.hpp"
#include "mode/record.hpp"
#include "mode_request.hpp"
#include "support/engine_double.hpp"
#include "support/json_schema.hpp"
#include "support/temp_dir.hpp"

inline constexpr const char* pn51 = "PN5100";
inline constexpr const char* pn82 = "PN8200";
inline constexpr const char* qdx = "QDX4400";
inline constexpr const char* modeSchema = TARNWICK_SOURCE_DIR "/docs/mode.schema.json";

// Requests and replies are written with ' for ".
inline std::string quoted(std::string text) {
    std::replace(text.begin(), text.end(), '\'', '"');
    return text;
}
// A frame with the value in the place of its "@".
inline std::string framed(std::string frame, const std::string& value) {
    return frame.replace(frame.find('@'), 1, value);
}
// A request of this type. Its link profile keeps it from asking a management server.
inline std::string typed(const std::string& type, const std::string& keys = {}) {
    return "{'type':'" + type + "','linkProfile':201" + (keys.empty() ? "" : ",") + keys + "}";
}
// A request of type SIMPLE with further keys.
inline std::string simple(const std::string& keys) {
    return "{'type':'SIMPLE'," + keys + "}";
}

class ModeRequestTest : public testing::Test {
  protected:
    ModeRequestTest() { EXPECT_EQ(chdir(directory.path.c_str()), 0); }
    ~ModeRequestTest() override {
        EXPECT_EQ(chdir("/"), 0);
        const std::vector<std::string> texts(taken.begin(), taken.end());
        const std::vector<bool> accepted = acceptedBySchema(modeSchema, texts);
        for (std::size_t i = 0; i < texts.size(); ++i) {
            EXPECT_TRUE(accepted[i]) << "taken, and not of the schema: " << texts[i];
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
        if (reply == "Success" && isForSchema && tokens[1].size() < 1'000'000) {
            taken.insert(tokens[1]);
        }
        return reply;
    }

    static std::string savedRequest() { return readTextFile("mode_config.json"); }

    // Another reader, with four antennas and goodRequest in force.
    void become(const std::string& model, std::int16_t powerX10 = 300) {
        setModelName(model);
        readerFacts.max_ants = 4;
        readerFacts.max_tx_pwr_x_10 = readerFacts.rxe_max_tx_pwr_x_10 = powerX10;
        readerFacts.rssiFilterSupported = initial_channel_state = true;
        engine_double::reset();
        take(goodRequest);
        engine_double::clearCalls();
    }

    void take(const std::string& request) {
        EXPECT_EQ(ask(request), "Success") << readerFacts.modelName << " " << request.substr(0, 500);
    }

    const mode_configuration_s& m = mode_configuration;
    std::set<std::string> taken;
    bool isForSchema = true;  // what is taken from now on

  private:
    temp_dir_s directory;
};
