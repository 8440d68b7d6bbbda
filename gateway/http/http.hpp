// SPDX-License-Identifier: MIT
// All that serves people and monitoring: what the gateway has seen, and the server that tells it.
#pragma once

#include <memory>
#include <string>

#include "config.hpp"
#include "daemon_accounts.hpp"
#include "picture.hpp"
#include "server.hpp"

// Functions are for the main thread.
class http_c {
  public:
    // Gets what another configuration needs: its address, when that differs, and its files. False with the
    // reason, and nothing has changed.
    bool prepare(const config_s& next, std::string* error);
    // Uses what was prepared.
    void commit(const config_s& next);
    void stop();

    bool isOn() const { return server != nullptr; }

    picture_c picture;  // used by the intake, too

  private:
    daemon_accounts_c accounts{&picture};
    http_config_s present;
    std::unique_ptr<http_server_c> server, prepared;
};
