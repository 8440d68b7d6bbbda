// SPDX-License-Identifier: MIT
// What twctl tells the shell. The same numbers hold for every subcommand, so that a script
// can tell a refusal from a daemon that does not run. They are part of the interface: numbers
// are never given another meaning.
#pragma once

enum exit_status_e {
    // Done. For a request: any reply that is not a failure.
    exitSuccess = 0,
    // Refused by the daemon, by the engine, or by a check of twctl's own.
    exitFailure = 1,
    // The time ran out before the reply came, or before the frames that were asked for; or there
    // was nothing that "why" could look into.
    exitNoAnswer = 2,
    // twctl itself could not: wrong usage, a file, an endpoint in use, a write error.
    exitTrouble = 3,
};

// The same for people, below the help of the program.
inline constexpr const char* exitStatusHelp =
    "Exit status:\n"
    "  0  done\n"
    "  1  refused: the reply begins with \"Failure\", the engine's answer is neither \"ok\" nor\n"
    "     JSON, a checked document has errors, an account does not close, or a number or\n"
    "     direction is not that of a beam\n"
    "  2  no reply within --timeout or --wait, fewer than --count frames within --seconds,\n"
    "     or nothing that \"why\" can look into: not an EPC, no radio, a simulation\n"
    "  3  wrong usage, a file that cannot be read, an endpoint that another process\n"
    "     holds, a write error";
