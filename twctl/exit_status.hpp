// SPDX-License-Identifier: MIT
// What twctl tells the shell. The same numbers hold for every subcommand.
#pragma once

enum exit_status_e {
    exitSuccess = 0,   // done; for a request: any reply that is not a failure
    exitFailure = 1,   // the daemon replied, and its reply begins with "Failure"; the engine, and not "ok"
    exitNoAnswer = 2,  // the time ran out before the reply, or before the frames asked for, came
    exitTrouble = 3,   // twctl itself could not: wrong usage, an endpoint in use, a write error
};

// Stands below the help of the program and of every subcommand.
inline constexpr const char* exitStatusHelp =
    "Exit status:\n"
    "  0  done; for a request or an event: the reply is not a failure\n"
    "  1  the reply begins with \"Failure\"; for an engine event: the answer is not \"ok\"\n"
    "  2  no reply within --timeout, or fewer than --count frames within --seconds\n"
    "  3  wrong usage, an endpoint that another process holds, a write error";
