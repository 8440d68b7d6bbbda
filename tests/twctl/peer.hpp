// SPDX-License-Identifier: MIT
// The daemon's side of a socket, played by the test at an endpoint of its own.
#pragma once

#include <zmq.h>

#include <string>

#include <gtest/gtest.h>

#include "support/reader.hpp"

inline const std::string twctlProgram = TARNWICK_BIN_DIR "/twctl";

struct peer_s : socket_s {
    temp_dir_s directory;
    std::string file = directory.path / "peer";
    std::string endpoint = "ipc://" + file;

    using socket_s::socket_s;
    // One frame, or a text that no client sends when none came in time.
    std::string hear() const { return receive().value_or(frames_t{"nothing came"}).front(); }
};

inline std::string outputOf(const std::string& program, const std::vector<std::string>& arguments) {
    process_s process(program, {arguments, {}, {}});
    EXPECT_EQ(process.waitForExit(), 0) << process.output();
    return process.output();
}

// "twctl" and what is typed behind it, with a shell's redirections in front or behind.
inline process_options_s typed(const std::string& line, const std::string& inFront = "") {
    return {{"-c", inFront + " exec \"$0\" " + line, twctlProgram}, {{"TZ", "UTC"}}, {}};
}
