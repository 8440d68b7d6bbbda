// SPDX-License-Identifier: MIT
// Asks daemons for their accounts. Each request becomes a line of the daemon's log, so that it asks only
// when somebody wants to know, and seldom.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "config.hpp"
#include "picture.hpp"

class daemon_accounts_c {
  public:
    explicit daemon_accounts_c(picture_c* target) : picture(target) {}
    ~daemon_accounts_c();
    daemon_accounts_c(const daemon_accounts_c&) = delete;
    daemon_accounts_c& operator=(const daemon_accounts_c&) = delete;

    // Main thread. Ends the thread, and starts it when there is a source whose daemon can be asked.
    void configure(const std::vector<source_config_s>& sources);

    // Any thread. Waits until the accounts are at most 5 s old, or a daemon does not answer, or `patience`
    // is over.
    void refresh(std::chrono::milliseconds patience);

  private:
    void run(const std::stop_token& stop);
    void stop();

    picture_c* const picture;
    std::vector<source_config_s> asked;
    std::jthread thread;
    std::mutex mutex;
    std::condition_variable_any changed;
    bool wanted = false;
    std::chrono::steady_clock::time_point lastRound{};  // its end
};
