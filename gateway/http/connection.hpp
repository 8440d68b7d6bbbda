// SPDX-License-Identifier: MIT
// One connection of a client, with and without TLS. Every wait has an end, and no more is read than the
// header of a request may have: the library behind it reads a byte at a time and would take any number of
// them.
#pragma once

#include <openssl/ssl.h>

#include <chrono>
#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

struct ssl_context_closer_s {
    void operator()(SSL_CTX* context) const { SSL_CTX_free(context); }
};
using ssl_context_t = std::shared_ptr<SSL_CTX>;

// A context of a server, TLS 1.2 and later. Nothing, with the reason, when the files cannot be used.
ssl_context_t loadServerContext(const std::string& certFile, const std::string& keyFile, std::string* error);

// For the thread of one connection.
class connection_c {
  public:
    using moment_t = std::chrono::steady_clock::time_point;
    static constexpr std::size_t mostHeader = 16UL << 10;  // bytes of a request line and all headers

    // `context` may be empty. The descriptor stays the caller's.
    connection_c(int socket, ssl_context_t context);
    ~connection_c();
    connection_c(const connection_c&) = delete;
    connection_c& operator=(const connection_c&) = delete;

    // TLS alone. False when the peer does not manage it in time.
    bool handshake(moment_t end);

    enum class header_e { complete, tooLarge, tooLate, gone };
    // Waits for a request line and its headers, up to the empty line.
    header_e readHeader(moment_t end);
    // What readHeader() has found. Bytes behind it stay for the next one.
    std::string takeHeader();

    // False when the peer does not take all of it in time.
    bool write(std::string_view text, moment_t end);
    // Lets the peer read what was written although it is still sending: its data would end the connection at
    // once. Bounded in time and bytes.
    void linger(moment_t end);
    // Whether the peer has closed its side.
    bool isClosed() const;
    int socket() const { return fd; }

  private:
    // Bytes moved; 0 when the peer has closed, -1 after an error or at `end`.
    template <class Step>
    long move(Step step, short events, moment_t end);
    bool waitFor(short events, moment_t end) const;

    const int fd;
    ssl_context_t context;
    SSL* tls = nullptr;
    std::string received;
    std::size_t headerSize = 0;
};
