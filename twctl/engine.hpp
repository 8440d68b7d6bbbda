// SPDX-License-Identifier: MIT
// "twctl engine": one event for the software radio engine, over its control socket. A
// reader's own engine has no such socket.
#pragma once

#include <string>
#include <vector>

// An event as tarnwick-scenario(5) has it. `words` are joined by single blanks: short words
// such as "gpi 1 high", or one word that is a JSON object.
struct engine_event_s {
    std::vector<std::string> words;
    std::string endpoint = "ipc:///tmp/rxe_engine";  // or the path of the file
    double timeoutSeconds = 5.0;                     // to wait for the answer
};

// Sends the event and prints the answer on standard output. Returns an
// exit_status_e; an answer other than "ok" is a failure.
int runEngineEvent(const engine_event_s& event);
