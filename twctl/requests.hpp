// SPDX-License-Identifier: MIT
// Requests to the daemon and their replies. A request is one frame of text; the daemon
// answers each one, in the order in which they come.
#pragma once

#include <string>
#include <string_view>
#include <vector>

// Where the daemon is, and how long to wait for it.
struct daemon_s {
    std::string endpoint = "ipc:///tmp/tarnwick_rep";  // or a file's path
    double timeoutSeconds = 5.0;
};

// Sends `text` and waits for the reply. What goes wrong on this side is told on standard
// error. Returns an exit_status_e: success says that a reply came, a failure too.
int askDaemon(const daemon_s& daemon, const std::string& text, std::string* reply);

// Waits until the daemon answers, for `seconds` at most; it need not run yet. It is asked again each
// `daemon.timeoutSeconds`, since one that ends takes the question along. What goes wrong is told on
// standard error. Returns an exit_status_e.
int awaitDaemon(const daemon_s& daemon, double seconds);

// Why there may have been no answer at an ipc endpoint: a clause that goes behind "no reply",
// empty when the file does not tell. `running` is the question to ask when nothing listens,
// `remedy` says how to get the right to write to the file.
std::string whySilent(const std::string& endpoint, const std::string& running, const std::string& remedy);

// Whether a reply begins with "Failure", as all refusals do.
bool isFailure(std::string_view reply);

// What a reply says behind its first word: of "Success: 7" it is "7", of
// "Success:\nversion 1\n" it is "version 1", and "Success" stays.
std::string bodyOf(std::string_view reply);

// Prints one text on standard output, with a newline behind it. Returns an exit_status_e.
int printText(std::string_view text);

// "twctl request": any words, and the reply as it came on standard output.
// Returns an exit_status_e.
int runRequest(const daemon_s& daemon, const std::vector<std::string>& words);

// Prints a failure on standard error and everything else, by `bodyOf`, on
// standard output. Returns an exit_status_e.
int printReply(std::string_view reply);

// Prints the JSON object of a reply over several lines, and a reply that does not have one by
// `printReply`.
int printObject(std::string_view reply);
