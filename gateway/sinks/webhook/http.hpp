// SPDX-License-Identifier: MIT
// POST requests to one URL over one connection that is kept, by libcurl. For one thread.
#pragma once

#include <chrono>
#include <memory>
#include <stop_token>
#include <string>
#include <vector>

struct http_settings_s {
    std::string url;  // http:// or https://
    // PEM files; empty: whom the system trusts, and without a certificate of its own.
    std::string ca, certificate, privateKey;
    std::chrono::milliseconds timeout{30'000};  // from the beginning of a request to the end of its answer
};

// The status counts as soon as the header of the answer is complete, whatever becomes of the body.
struct http_answer_s {
    long status = 0;                     // 200 to 599; 0: not answered
    std::string error;                   // why it was not answered
    std::chrono::seconds retryAfter{0};  // of the header Retry-After, a date included; 0: without it
    std::string location;                // where a redirect leads; it is not followed
    std::string bodyStart;               // the first 200 bytes
};

class http_client_c {
  public:
    // `abort` ends a request at once.
    http_client_c(http_settings_s settings, std::stop_token abort);
    ~http_client_c();
    http_client_c(const http_client_c&) = delete;
    http_client_c& operator=(const http_client_c&) = delete;

    // `headers` as "Name: value", the type of the content among them. Of the answer up to 64 KiB of header
    // and 64 KiB of body are read; a longer body is cut off, with the connection.
    http_answer_s post(const std::string& body, const std::vector<std::string>& headers);

  private:
    struct impl_s;
    std::unique_ptr<impl_s> impl;
};
