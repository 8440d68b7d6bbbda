// SPDX-License-Identifier: MIT
#include "boot/remember.hpp"

#include <sys/stat.h>

#include <cstdio>
#include <filesystem>
#include <nlohmann/json.hpp>

#include "boot/settings.hpp"
#include "command_words.hpp"
#include "document.hpp"
#include "exit_status.hpp"
#include "util.hpp"

namespace {

// In the order of the file, or of the table of the documents.
using nlohmann::ordered_json;

int refuse(const std::string& file, const std::string& what, int status) {
    std::fprintf(stderr, "twctl: %s: %s\n", file.c_str(), what.c_str());
    return status;
}

// What the file holds; an empty object when there is none.
int readOld(const std::string& file, ordered_json* old) {
    std::string text, cause;
    *old = ordered_json::object();
    if (file == "-") {
        return exitSuccess;
    }
    if (readRegularFile(file, &text, &cause) != file_read_e::done) {
        if (cause.empty()) {
            return exitSuccess;
        }
        std::fprintf(stderr, "twctl: %s\n", cause.c_str());
        return exitTrouble;
    }
    if (withoutComments(text) != text) {
        return refuse(file, "stays as it is, since its comments would be lost; \"twctl remember -\" prints",
                      exitFailure);
    }
    nlohmann::json sorted;
    if (!isObject(text, &sorted, &cause)) {
        return refuse(file, "stays as it is: " + cause, exitFailure);
    }
    *old = ordered_json::parse(text);
    return exitSuccess;
}

int write(const std::string& file, const std::string& text) {
    // Whatever the caller has: the daemon's user reads the file, and nobody else may write it.
    umask(S_IWGRP | S_IWOTH);
    if (file == boot::usualFile) {
        std::error_code none;  // the write tells it
        std::filesystem::create_directories(std::filesystem::path(file).parent_path(), none);
    }
    std::string cause;
    if (!replaceFile(file, text, &cause)) {
        std::fprintf(stderr, "twctl: %s\n", cause.c_str());
        return exitTrouble;
    }
    return printText(file + ": written");
}

}  // namespace

int runRemember(const daemon_s& daemon, const remember_s& remember) {
    ordered_json file;
    boot::settings_s now;
    int status = readOld(remember.file, &file);
    status = status == exitSuccess ? boot::askSettings(daemon, &now) : status;
    if (status != exitSuccess) {
        return status;
    }
    file[std::string(vocabulary::dataAnalytics.word)] = now.form;
    file[std::string(vocabulary::subscribers.word)] = now.subscribers;
    file[std::string(vocabulary::events.word)] = now.events;
    if (!remember.start.empty() || !file.contains(boot::startKey)) {
        file[boot::startKey] = remember.start.empty() ? boot::startAsItWas : remember.start;
    }
    const std::vector<std::string> faults = boot::findFaults(nlohmann::json(file));
    for (const std::string& fault : faults) {
        refuse(remember.file, "stays as it is: " + fault, exitFailure);
    }
    if (!faults.empty()) {
        return exitFailure;
    }
    const std::string text = file.dump(4);
    return remember.dryRun || remember.file == "-" ? printText(text) : write(remember.file, text + "\n");
}
