// SPDX-License-Identifier: MIT
// A directory of one test, which is removed with the object.
#pragma once

#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

struct temp_dir_s {
    std::filesystem::path path;

    temp_dir_s() {
        std::string name = (std::filesystem::temp_directory_path() / "tarnwick-test-XXXXXX").string();
        if (mkdtemp(name.data()) == nullptr) {
            throw std::runtime_error("no temporary directory: " + name);
        }
        path = name;
    }
    ~temp_dir_s() {
        std::error_code ignored;
        std::filesystem::remove_all(path, ignored);
    }
    temp_dir_s(const temp_dir_s&) = delete;
    temp_dir_s& operator=(const temp_dir_s&) = delete;
};

inline void writeTextFile(const std::filesystem::path& path, std::string_view text) {
    std::ofstream(path) << text;
}

// Empty for a file that does not exist.
inline std::string readTextFile(const std::filesystem::path& path) {
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
}
