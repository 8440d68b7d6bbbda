// SPDX-License-Identifier: MIT
// JSON texts against a JSON Schema.
#pragma once

#include <algorithm>
#include <chrono>
#include <stdexcept>

#include "support/process.hpp"
#include "support/temp_dir.hpp"

// Which of the texts a schema of draft 2020-12 accepts. A text must not have a line break.
// Throws when the schema itself is not valid or the script cannot run.
inline std::vector<bool> acceptedBySchema(const std::string& schemaFile,
                                          const std::vector<std::string>& texts) {
    const temp_dir_s directory;
    std::string lines;
    for (const std::string& text : texts) {
        lines += text + "\n";
    }
    writeTextFile(directory.path / "texts", lines);
    const std::string script = TARNWICK_SOURCE_DIR "/tests/support/json_schema.py";
    process_s judge("/usr/bin/python3", {{script, schemaFile, directory.path / "texts"}, {}, {}});
    constexpr std::chrono::seconds patience{110};  // on a busy machine; ctest ends a test at 120 s
    if (judge.waitForExit(patience) != 0 || judge.output().size() != texts.size()) {
        throw std::runtime_error("no verdict on " + schemaFile + ": " + judge.output());
    }
    std::vector<bool> accepted;
    std::ranges::transform(judge.output(), std::back_inserter(accepted), [](char c) { return c == '1'; });
    return accepted;
}
