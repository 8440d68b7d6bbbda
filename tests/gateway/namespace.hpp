// SPDX-License-Identifier: MIT
// A network of a test's own, in which packets can disappear.
#pragma once

#include <sched.h>
#include <sys/mount.h>

#include <cerrno>
#include <cstring>

#include "gateway/server.hpp"

// This process and those that it starts from now on have a loopback and mounts of their own.
inline void enterOwnNetwork() {
    if (unshare(CLONE_NEWNET | CLONE_NEWNS) != 0 ||
        mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
        throw std::runtime_error(std::string("a network namespace needs root: ") + std::strerror(errno));
    }
    runTool("ip link set lo up");
}

// What goes to the port and comes from it disappears. No connection ends.
inline void swallowPort(int port) {
    const std::string name = std::to_string(port);
    runTool(
        "nft 'add table ip t; add chain ip t c { type filter hook input priority 0; };"
        "add rule ip t c tcp dport " +
        name + " drop; add rule ip t c tcp sport " + name + " drop'");
}
inline void restorePorts() {
    runTool("nft delete table ip t");
}
