// SPDX-License-Identifier: MIT
// The HTTP server: read only, with a bound on everything that a client can ask of it. docs/gateway-http.md
// says what it answers.
//
// The library parses requests and writes answers. What it leaves open is done around it: headers are read
// here, with a time limit and a bound, before it sees them, and a request never has a body; connections
// are counted, and each has a thread of its own while it is open.
#pragma once

#include <memory>
#include <string>

#include "config.hpp"
#include "metrics.hpp"

class daemon_accounts_c;
class picture_c;

class http_server_c {
  public:
    http_server_c(picture_c* picture, daemon_accounts_c* accounts);
    // Ends all connections.
    ~http_server_c();
    http_server_c(const http_server_c&) = delete;
    http_server_c& operator=(const http_server_c&) = delete;

    // Main thread. Binds the address and takes connections. False with the reason.
    bool open(const http_config_s& config, std::string* error);
    // Main thread. The files of the same configuration, read again: new connections are served with them.
    bool readFiles(const http_config_s& config, std::string* error);
    // "127.0.0.1:9150", with the port that it has got.
    std::string address() const;

  private:
    class impl_c;
    std::unique_ptr<impl_c> impl;
};
