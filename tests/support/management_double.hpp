// SPDX-License-Identifier: MIT
// The Reader Management server as a double: it records each request and gives
// the answer that the test wants, right or wrong. One connection at a time.
#pragma once

#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

// A reply with the result code and, behind it, `body`; its prefixes are "rm" and "v".
std::string managementReply(const std::string& body, const std::string& code = "0");

// "<v:name>body</v:name>"
std::string managementElement(const std::string& name, const std::string& body);

class ManagementDouble {
  public:
    // `answer` runs on the double's thread, so a test may change what it reads only
    // between queries. An empty answer closes the connection.
    using answer_t = std::function<std::string(const std::string& request)>;
    explicit ManagementDouble(answer_t answer);
    // One answer for each connection, in their order.
    explicit ManagementDouble(std::vector<std::string> answers);
    ~ManagementDouble();
    ManagementDouble(const ManagementDouble&) = delete;
    ManagementDouble& operator=(const ManagementDouble&) = delete;

    std::vector<std::string> requests() const;

  private:
    void serve();

    int listener;
    answer_t answerTo;
    mutable std::mutex mutex;
    std::vector<std::string> received;
    std::thread server;
};
