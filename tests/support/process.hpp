// SPDX-License-Identifier: MIT
// A program under test: it has its own directory and environment, the test reads its
// output, and it ends with its object.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

inline constexpr std::chrono::milliseconds defaultPatience{20'000};

// Asks until `holds` returns true. False when it did not within `patience`.
bool eventually(const std::function<bool()>& holds, std::chrono::milliseconds patience = defaultPatience);

struct process_options_s {
    std::vector<std::string> arguments;
    std::vector<std::pair<std::string, std::string>> environment;  // beside this process's own
    std::filesystem::path directory;                               // working directory; empty for ours
};

struct process_s {
    // `program` is a path, or a name of a program on the PATH.
    process_s(const std::string& program, const process_options_s& options);
    // Ends the program: SIGTERM, and SIGKILL when it still runs after 5 s.
    ~process_s();
    process_s(const process_s&) = delete;
    process_s& operator=(const process_s&) = delete;

    // Standard output and standard error so far.
    std::string output() const;
    bool waitForOutput(std::string_view text, std::chrono::milliseconds patience = defaultPatience) const;

    void write(std::string_view text) const;  // to standard input
    void closeInput();
    void signal(int number) const;

    // The exit status; after a signal 128 plus the signal's number; nothing when the
    // program still runs after `patience`.
    std::optional<int> waitForExit(std::chrono::milliseconds patience = defaultPatience);

    pid_t pid = -1;
    int input = -1;
    int outputFile = -1;
    std::optional<int> status;
};
