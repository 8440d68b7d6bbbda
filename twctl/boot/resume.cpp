// SPDX-License-Identifier: MIT
// systemd runs it after each start of the daemon, so it ends in any case within a known time.
#include "boot/resume.hpp"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <thread>

#include "boot/settings.hpp"
#include "command_words.hpp"
#include "document.hpp"
#include "exit_status.hpp"
#include "sockets.hpp"
#include "stat_names.hpp"
#include "util.hpp"
#include "words.hpp"

namespace {

using boot::change_s;
using boot::difference_s;
using boot::settings_s;
using nlohmann::json;

// Consumers that have waited for the daemon try again each 0.1 to 0.2 s, and lose what is sent before
// that. To a busy machine or a slow network this leaves some tries more.
constexpr std::chrono::seconds timeToConnect{1};

void tell(const std::string& what) {
    std::fprintf(stderr, "twctl: %s\n", what.c_str());
}

// What the file comes to for the radio.
struct intention_s {
    bool start = false;
    bool trouble = false;  // it cannot be told; `reason` says why
    std::string reason{};  // for not starting; empty when the file does not ask for a start
};

// The directory of the process that listens on the socket. Empty without the right to see it.
std::string directoryOf(const daemon_s& daemon) {
    const pid_t process = listenerOf(endpointOf(daemon.endpoint));
    const std::string link = "/proc/" + std::to_string(process) + "/cwd";
    std::error_code unseen;
    const bool isSeen = process > 0 && !std::filesystem::read_symlink(link, unseen).empty();
    return isSeen ? link : "";
}

// By the last start or stop of a client.
intention_s intentionByFile(const daemon_s& daemon, const std::string& given) {
    const std::string directory = given.empty() ? directoryOf(daemon) : given;
    if (directory.empty()) {
        return {false, true,
                "the daemon's directory cannot be found; run as root or as the user of the daemon, or give "
                "--directory"};
    }
    const std::string file = directory + "/autoStart.txt";
    const std::string shown = given.empty() ? "autoStart.txt" : file;
    std::string content, cause;
    if (std::error_code bad; !std::filesystem::is_directory(directory, bad)) {
        return {false, true, directory + ": not a directory that can be read"};
    }
    if (readRegularFile(file, &content, &cause) != file_read_e::done) {
        return {false, !cause.empty(), cause.empty() ? "there is no " + shown : cause};
    }
    const std::vector<std::string> words = splitWords(content);
    const bool isKnown = words.size() == 1 && (words[0] == "true" || words[0] == "false");
    return {isKnown && words[0] == "true", !isKnown,
            shown + (isKnown ? " is false" : " holds neither true nor false")};
}

intention_s intentionOf(const daemon_s& daemon, const resume_s& resume, const json& file) {
    const std::string word = file.value(boot::startKey, boot::startNever);
    return word == boot::startAsItWas ? intentionByFile(daemon, resume.directory)
                                      : intention_s{word == boot::startAlways};
}

difference_s startDifference() {
    return {std::string(vocabulary::radioActivity), vocabulary::active, vocabulary::inactive};
}

int printDifferences(const std::vector<difference_s>& differences) {
    int status = exitSuccess;
    for (const difference_s& difference : differences) {
        status = std::max(status,
                          printText(difference.place + ": " + difference.wanted + ", was " + difference.now));
    }
    return status;
}

// Sends one request and prints what it has changed, or the daemon's refusal.
int send(const daemon_s& daemon, const change_s& change) {
    std::string reply;
    if (const int status = askDaemon(daemon, change.request, &reply); status != exitSuccess) {
        return status;
    }
    if (isFailure(reply)) {
        tell(change.name + ": " + reply);
        return exitFailure;
    }
    return printDifferences(change.differences);
}

// Leaves autoStart.txt as clients have it. When a client has been faster, the radio runs, as it should.
int startRadio(const daemon_s& daemon, const json& file) {
    std::this_thread::sleep_for(timeToConnect);
    // A request may have been refused, or the daemon may have started again.
    settings_s now;
    if (const int status = boot::askSettings(daemon, &now); status != exitSuccess || now.reading) {
        return status;
    }
    const std::vector<change_s> left = changesTo(file, now);
    if (std::ranges::any_of(left, [](const change_s& change) { return change.shapesReports; })) {
        tell("the radio is not started, since its reports would not be as the file says");
        return exitFailure;
    }
    const change_s start{
        std::string(vocabulary::start.word),
        joinWords({std::string(vocabulary::start.word), std::string(vocabulary::doNotPersistState.name)}),
        {startDifference()}};
    return send(daemon, start);
}

// The radio does not run.
int resumeRadio(const daemon_s& daemon, const intention_s& intention, const json& file) {
    if (intention.trouble) {
        tell("the radio is not started: " + intention.reason);
        return exitTrouble;
    }
    if (!intention.start) {
        return intention.reason.empty() ? exitSuccess
                                        : printText("the radio is not started: " + intention.reason);
    }
    return startRadio(daemon, file);
}

int apply(const daemon_s& daemon, const resume_s& resume, const std::string& name, const json& file) {
    settings_s now;
    int status = awaitDaemon(daemon, resume.waitSeconds);
    status = status == exitSuccess ? boot::askSettings(daemon, &now) : status;
    if (status != exitSuccess) {
        return status;
    }
    const std::vector<change_s> changes = changesTo(file, now);
    for (const change_s& change : changes) {
        const int result = send(daemon, change);
        if (result == exitNoAnswer) {
            return result;
        }
        status = std::max(status, result);
    }
    const intention_s intention = now.reading ? intention_s() : intentionOf(daemon, resume, file);
    if (changes.empty() && !intention.start && intention.reason.empty()) {
        return printText("nothing to change: the daemon is as " + name + " says");
    }
    return std::max(status, resumeRadio(daemon, intention, file));
}

// What differs in the running daemon, if there is one.
int compare(const daemon_s& daemon, const resume_s& resume, const json& file) {
    const std::string endpoint = endpointOf(daemon.endpoint);
    if (ipcFile(endpoint) && !hasLiveListener(endpoint)) {
        return printText(
            "not compared with a daemon" +
            whySilent(endpoint, "is it running?", "run as root or trfidadm, or join group appsadms"));
    }
    settings_s now;
    if (const int status = boot::askSettings(daemon, &now); status != exitSuccess) {
        return status;
    }
    std::vector<difference_s> differences;
    for (const change_s& change : changesTo(file, now)) {
        differences.insert(differences.end(), change.differences.begin(), change.differences.end());
    }
    const intention_s intention = now.reading ? intention_s() : intentionOf(daemon, resume, file);
    if (intention.start) {
        differences.push_back(startDifference());
    }
    int status =
        intention.trouble ? printText("the start is not compared: " + intention.reason) : exitSuccess;
    for (const difference_s& difference : differences) {
        status = std::max(status, printText(difference.place + ": " + difference.wanted + " in the file, " +
                                            difference.now + " in the daemon"));
    }
    return differences.empty() ? std::max(status, printText("nothing differs in the running daemon"))
                               : status;
}

}  // namespace

int runResume(const daemon_s& daemon, const resume_s& resume) {
    std::error_code unseen;
    const std::filesystem::file_status found = std::filesystem::status(resume.file, unseen);
    if (!resume.isNamed && !exists(found) && status_known(found)) {
        return resume.check ? printText(resume.file + ": there is none; a boot changes nothing")
                            : exitSuccess;
    }
    if (!resume.isNamed && is_other(found)) {  // such as a pipe, which a boot must not wait for
        tell(resume.file + ": not a file");
        return exitTrouble;
    }
    document_s document;
    json file;
    std::string reason;
    if (!readDocument(resume.file, "boot", &document)) {
        return exitTrouble;
    }
    if (!isObject(withoutComments(document.text), &file, &reason)) {
        tell(document.name + ": " + reason);
        return exitFailure;
    }
    const std::vector<std::string> faults = boot::findFaults(file);
    for (const std::string& fault : faults) {
        tell(document.name + ": " + fault);
    }
    const json sound = boot::soundPartOf(file);
    for (const std::string& warning : boot::findWarnings(sound)) {
        tell(document.name + ": warning: " + warning);
    }
    if (resume.check) {
        const int status = faults.empty() ? printText(document.name + ": no errors found") : exitFailure;
        return std::max(status, compare(daemon, resume, sound));
    }
    return faults.empty() ? apply(daemon, resume, document.name, file) : exitFailure;
}
