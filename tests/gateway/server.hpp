// SPDX-License-Identifier: MIT
// What servers of tests need: a port and certificates.
#pragma once

#include <arpa/inet.h>
#include <unistd.h>

#include <filesystem>
#include <stdexcept>

#include "support/process.hpp"

inline int freePort() {
    const int fd = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{AF_INET, 0, {htonl(INADDR_LOOPBACK)}, {}};
    socklen_t size = sizeof address;
    bind(fd, reinterpret_cast<sockaddr*>(&address), size);
    getsockname(fd, reinterpret_cast<sockaddr*>(&address), &size);
    close(fd);
    return ntohs(address.sin_port);
}

inline void runTool(const std::string& command) {
    process_s tool("/bin/sh", {{"-c", command}, {}, {}});
    if (tool.waitForExit() != 0) {
        throw std::runtime_error(command + ": " + tool.output());
    }
}

// NAME.pem and NAME.key: "server" and "client", which "authority" has signed, and "stranger".
inline void makeCertificates(const std::filesystem::path& folder) {
    const auto file = [&](const std::string& name) { return (folder / name).string(); };
    for (const std::string name : {"stranger", "authority", "server", "client"}) {
        const bool isSigned = name == "server" || name == "client";
        runTool("openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -subj /CN=" + name +
                " -addext subjectAltName=IP:127.0.0.1 -keyout " + file(name + ".key") + " -out " +
                file(name + ".pem") +
                (isSigned ? " -CA " + file("authority.pem") + " -CAkey " + file("authority.key") : ""));
    }
}
