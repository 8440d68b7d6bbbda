// SPDX-License-Identifier: MIT
// What twctl tells the shell. The same numbers hold for every subcommand.
#pragma once

enum exit_status_e {
    exitSuccess = 0,   // done; for a request: any reply that is not a failure
    exitFailure = 1,   // refused: by the daemon, by the engine or by a check of twctl's own
    exitNoAnswer = 2,  // the time ran out before the reply, or before the frames asked for, came
    exitTrouble = 3,   // twctl itself could not: wrong usage, a file, an endpoint in use, a write error
};

// Stands below the help of the program.
inline constexpr const char* exitStatusHelp =
    "Exit status:\n"
    "  0  done\n"
    "  1  refused: the reply begins with \"Failure\", the engine's answer is not \"ok\",\n"
    "     a checked document has errors, or a number or direction is not that of a beam\n"
    "  2  no reply within --timeout, or fewer than --count frames within --seconds\n"
    "  3  wrong usage, a file that cannot be read, an endpoint that another process\n"
    "     holds, a write error";
