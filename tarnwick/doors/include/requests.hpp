// SPDX-License-Identifier: MIT
// The main thread's wait loop, the command table behind the reply socket and the console, and
// the handlers of the commands that do not belong to another unit.
//
// Replies are text for people and programs alike: "Success", "Success: " and
// text, "Success:" with a newline and lines, or "Failure: " and a sentence.
// Clients split them at the first colon.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace requests {

// Where a request came from, and so where its reply goes.
struct MSG_BUF {
    // 0: a line of the console, 1: the socket `responder`.
    std::int32_t source;
};

// Gets the request's tokens, of which the command word is the first, and replaces the reply.
// Returns 0, or -1 to end the loop after the reply has been sent.
using command_handler = int (*)(std::vector<std::string>* tokens, std::string* reply);

// One command. `help` is its line in the reply to "help"; it may be empty.
struct command_s {
    std::string_view name;
    command_handler handler;
    std::string_view help;
};

// All commands that "help" lists, in its order.
extern const command_s commands[];
extern const std::size_t nCommands;

// Descriptor of the timer that resets the engine's tag database; below 1 while
// there is none. Lives as long as processRequests. Main thread.
extern int database_timer;

// Serves requests until an "exit" request, SIGINT or SIGTERM. `cli` adds standard input as a
// source of requests. Main thread. Returns 0, and does so at once when the timer cannot be made.
int processRequests(bool cli);

// Waits for the next request. Meanwhile it takes the radio side's news, one message in each
// pass, serves the database timer, and publishes a heartbeat when one is due and no message
// waits. A signal becomes an "exit" request from the console. Main thread. Returns 0.
int GetNextRequest(MSG_BUF* msg, std::string* request, bool cli);

// Finds the request's command and runs it. Main thread. Returns what the
// handler returns; 0, with a "Failure: " reply, for an unknown command.
int ProcessRequest(std::string* request, std::string* reply);

// Sends the reply to where the request came from; on the socket it carries its
// terminating NUL. Main thread. Returns 0.
int SendReply(MSG_BUF msg, std::string* reply);

// For SIGINT and SIGTERM: leaves a mark for the wait loop and does nothing else. Any thread.
void s_signal_handler(int signal);

// Command "exit". Main thread. Returns -1.
int exitHandler(std::vector<std::string>* tokens, std::string* reply);

// Commands "start" and "stop". Main thread. Return 0, failures are replies.
int startHandler(std::vector<std::string>* tokens, std::string* reply);
int stopHandler(std::vector<std::string>* tokens, std::string* reply);

// Empties the engine's tag database, starts the engine and announces the start.
// `persist` records in autoStart.txt that the reader is to start by itself next
// time. Main thread. Returns 0, failures are replies.
int startRXE(bool persist, std::string* reply);

// Whether "start sim" or "start sim_bearing" makes up tag reads now.
bool isSimulating();

// Disarms the database reset timer, if it is armed. Main thread. Returns 0.
int cancel_database_timer();

// Empties the engine's tag database and the additional keys, and disarms the
// timer. A running radio is stopped for it and started again, without start and stop messages. A
// step that fails is logged, and the next one follows. Main thread. Returns 0.
int reset_database();

// Count and log an error or a warning; with `publish` also an alarm on `events`.
// Main thread, which alone may use that socket; other threads send "error" or
// "warning" as news. Return 0.
int logError(std::string* text, bool publish);
int logWarning(std::string* text, bool publish);

// The heartbeat as compact JSON with sorted keys. Asks the radio only while that is idle. Main
// thread. Returns 1.
int getHeartbeat(std::string* out);

// Takes the antennas' state from the radio, if its firmware can tell it. Each change counts as
// an error, logged and published. Main thread.
void updateDisconnectedAntennas();

// The commands "status" and "events". Main thread. Return 0; eventsHandler returns -1, which ends
// the loop, for "stats" with an element that is not a string.
int statusHandler(std::vector<std::string>* tokens, std::string* reply);
int eventsHandler(std::vector<std::string>* tokens, std::string* reply);

// The other commands. Main thread. Return 0, failures are replies. databaseResetHandler throws
// std::invalid_argument or std::out_of_range for a part of the time that is not a number, which
// ends the process.
int databaseResetHandler(std::vector<std::string>* tokens, std::string* reply);
int errorHandler(std::vector<std::string>* tokens, std::string* reply);
int helpHandler(std::vector<std::string>* tokens, std::string* reply);
int loggingHandler(std::vector<std::string>* tokens, std::string* reply);
int testHandler(std::vector<std::string>* tokens, std::string* reply);
int versionHandler(std::vector<std::string>* tokens, std::string* reply);
int tagInfoHandler(std::vector<std::string>* tokens, std::string* reply);
int peakThresholdHandler(std::vector<std::string>* tokens, std::string* reply);

// Commands that "help" does not list: what became of the tag packets, of all and of single tags. Main
// thread. Return 0, failures are replies.
int accountHandler(std::vector<std::string>* tokens, std::string* reply);
int traceHandler(std::vector<std::string>* tokens, std::string* reply);

}  // namespace requests
