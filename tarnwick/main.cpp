// SPDX-License-Identifier: MIT
// Start-up and shutdown of the daemon, each a list of steps in their order.
#include "apply/apply.hpp"
#include "connection.hpp"
#include "logger.hpp"
#include "mode/record.hpp"
#include "peer_limit.hpp"
#include "radio.hpp"
#include "requests.hpp"
#include "simulator.hpp"
#include "versions.hpp"
#include "zmq_intfc.hpp"

#include <google/protobuf/stubs/common.h>
#include <malloc.h>

#include <iostream>
#include <string_view>

namespace {

// Bytes. Memory blocks of at least this size go back to the system as soon as they are freed. Without
// a fixed number the C library raises its limit to the largest block that was freed, and after a
// request of 10 MB it keeps some 30 MB. Reports are much smaller.
constexpr int ownMappingFrom = 1024 * 1024;

struct options_s {
    bool cli = false;      // the console gives requests, and shows the log
    bool verbose = false;  // the log goes down to level debug
};

void say(std::string_view line) {
    std::cout << line << std::endl;
}

// Prints every argument. Quirk: an unknown one, also --help, has no other effect.
options_s scanArguments(int argc, char** argv) {
    options_s options;
    for (int i = 1; i < argc; ++i) {
        const std::string_view argument = argv[i];
        say(argument);
        if (argument == "--no_rxe") {
            use_rxe = false;
            say("not using rxe ");
        } else if (argument == "--cli") {
            options.cli = true;
            say("CLI is enabled");
        } else if (argument == "-v") {
            options.verbose = true;
        }
    }
    return options;
}

// Counts and logs the failed step. Returns the exit status. Quirk: it is 0 in every
// case; the boot scripts do not use it.
template <class... Parts>
int failed(const Parts&... parts) {
    logCountedError("main", parts...);
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    GOOGLE_PROTOBUF_VERIFY_VERSION;
    mallopt(M_MMAP_THRESHOLD, ownMappingFrom);
    raiseDescriptorLimit();
    say("Welcome to tarnwick");
    setup_syslog();
    const options_s options = scanArguments(argc, argv);
    init_app_version_string();
    configureLogs(options.cli, options.verbose);
    if (const int rc = initZMQ(); rc != 0) {
        return failed(" Failed to initialize ZMQ: ", rc);
    }
    initMode();
    if (use_rxe) {
        if (const int rc = initRXEConnection(); rc != 0) {
            failed(" Failed to initiazlize rxe: ", rc,
                   " - is another application connected to RXE (LLRP, TW)?");
            // Quirk: that line asks the same question for every cause, so the next one gives the cause.
            logUncountedError("main", " the cause: ", escaped_s{connectionFailureCause()});
            closeZMQ();
            return 0;
        }
    }
    // The main sockets bind the inproc endpoints to which the radio side connects.
    if (createZMQSocketsForMain() != 0) {
        return failed(" Failed to initiazlize main zmq connections");
    }
    if (createZMQSocketsForRadio() != 0) {
        return failed(" Failed to initiazlize radio zmq connections");
    }
    if (startRadioThread() != 0) {
        return failed(" Failed to start radio thread");
    }
    // startRadioThread has learnt the reader's names, which reports may hold.
    publishReportPlan(mode_configuration, toldAccesses);

    requests::processRequests(options.cli);

    logDebug("main", " stopping radio thread");
    // Simulations send packets as the radio does, so they end before the sockets close.
    endSimulations();
    if (stopRadioThread() != 0) {
        return failed(" Failed to stop radio thread");
    }
    closeZMQSocketsForRadio();
    closeRXEConnection();
    logDebug("main", " RXE connection closed");
    closeZMQSocketsForMain();
    closeZMQ();
    logInfo("main", " goodbye");
    return 0;
}
