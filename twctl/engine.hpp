// SPDX-License-Identifier: MIT
// "twctl engine": one event for the software radio engine, over its control socket.
#pragma once

#include <string>
#include <vector>

struct engine_event_s {
    std::vector<std::string> words;                  // joined by single blanks; or one that is a JSON object
    std::string endpoint = "ipc:///tmp/rxe_engine";  // or a file's path
    double timeoutSeconds = 5.0;
};

// Sends the event and prints the answer on standard output. Returns an
// exit_status_e; an answer other than "ok" is a failure.
int runEngineEvent(const engine_event_s& event);
