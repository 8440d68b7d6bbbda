// SPDX-License-Identifier: MIT
#include "support/json_schema.hpp"

#include <cstdio>
#include <stdexcept>

#include "support/temp_dir.hpp"

std::vector<bool> acceptedBySchema(const std::string& schemaFile, const std::vector<std::string>& texts) {
    const temp_dir_s directory;
    std::string lines;
    for (const std::string& text : texts) {
        lines += text + "\n";
    }
    writeTextFile(directory.path / "texts", lines);
    const std::string command = "/usr/bin/python3 " TARNWICK_SOURCE_DIR "/tests/support/json_schema.py " +
                                schemaFile + " " + (directory.path / "texts").string();
    FILE* output = popen(command.c_str(), "r");
    std::vector<bool> accepted;
    for (int verdict = std::fgetc(output); verdict != EOF; verdict = std::fgetc(output)) {
        accepted.push_back(verdict == '1');
    }
    if (pclose(output) != 0 || accepted.size() != texts.size()) {
        throw std::runtime_error("no verdict of " + command);
    }
    return accepted;
}
