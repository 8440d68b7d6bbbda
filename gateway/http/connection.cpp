// SPDX-License-Identifier: MIT
#include "connection.hpp"

#include <fcntl.h>
#include <openssl/err.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>

#include "twctl/sockets.hpp"

namespace {

constexpr std::string_view headerEnd = "\r\n\r\n";

std::string lastTlsError() {
    std::array<char, 256> text{};
    ERR_error_string_n(ERR_get_error(), text.data(), text.size());
    ERR_clear_error();
    return text.data();
}

}  // namespace

ssl_context_t loadServerContext(const std::string& certFile, const std::string& keyFile, std::string* error) {
    const ssl_context_t context(SSL_CTX_new(TLS_server_method()), ssl_context_closer_s());
    SSL_CTX_set_min_proto_version(context.get(), TLS1_2_VERSION);
    SSL_CTX_set_options(context.get(), SSL_OP_NO_RENEGOTIATION | SSL_OP_NO_COMPRESSION);
    SSL_CTX_set_mode(context.get(), SSL_MODE_ENABLE_PARTIAL_WRITE | SSL_MODE_ACCEPT_MOVING_WRITE_BUFFER);
    ERR_clear_error();
    if (SSL_CTX_use_certificate_chain_file(context.get(), certFile.c_str()) != 1) {
        *error = certFile + ": " + lastTlsError();
    } else if (SSL_CTX_use_PrivateKey_file(context.get(), keyFile.c_str(), SSL_FILETYPE_PEM) != 1 ||
               SSL_CTX_check_private_key(context.get()) != 1) {
        *error = keyFile + ": " + lastTlsError();
    } else {
        return context;
    }
    return nullptr;
}

connection_c::connection_c(int socket, ssl_context_t tlsContext)
    : fd(socket), context(std::move(tlsContext)) {
    fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) | O_NONBLOCK);
    // So that a peer who takes nothing shows soon, and costs little.
    constexpr int sendBuffer = 128 << 10;
    setsockopt(fd, SOL_SOCKET, SO_SNDBUF, &sendBuffer, sizeof sendBuffer);
    if (context) {
        tls = SSL_new(context.get());
        SSL_set_fd(tls, fd);
        SSL_set_accept_state(tls);
    }
}

connection_c::~connection_c() {
    if (tls != nullptr) {
        SSL_shutdown(tls);  // one attempt
        SSL_free(tls);
        ERR_clear_error();
    }
}

bool connection_c::waitFor(short events, moment_t end) const {
    for (;;) {
        pollfd item{fd, events, 0};
        const int found = poll(&item, 1, static_cast<int>(millisecondsLeft(end)));
        if (found > 0) {
            return true;
        }
        if (found == 0 || errno != EINTR) {
            return false;
        }
    }
}

// `step` gives what recv, send or an SSL_ function does; without TLS it waits for `events`.
template <class Step>
long connection_c::move(Step step, short events, moment_t end) {
    for (;;) {
        ERR_clear_error();
        const long moved = step();
        if (moved > 0) {
            return moved;
        }
        if (tls != nullptr) {
            const int reason = SSL_get_error(tls, static_cast<int>(moved));
            if (reason != SSL_ERROR_WANT_READ && reason != SSL_ERROR_WANT_WRITE) {
                return reason == SSL_ERROR_ZERO_RETURN ? 0 : -1;
            }
            events = reason == SSL_ERROR_WANT_READ ? POLLIN : POLLOUT;
        } else if (moved == 0 || (errno != EAGAIN && errno != EINTR)) {
            return moved;
        }
        if (!waitFor(events, end)) {
            return -1;
        }
    }
}

bool connection_c::handshake(moment_t end) {
    return tls == nullptr || move([this] { return SSL_do_handshake(tls); }, POLLIN, end) == 1;
}

connection_c::header_e connection_c::readHeader(moment_t end) {
    std::size_t looked = 0;
    for (;;) {
        const std::size_t at = received.find(headerEnd, looked - std::min(looked, headerEnd.size()));
        if (at != received.npos && at + headerEnd.size() <= mostHeader) {
            headerSize = at + headerEnd.size();
            return header_e::complete;
        }
        if (received.size() >= mostHeader) {
            return header_e::tooLarge;
        }
        looked = received.size();
        std::array<char, 4096> buffer;
        const long got = move(
            [&]() -> long {
                return tls != nullptr ? SSL_read(tls, buffer.data(), buffer.size())
                                      : recv(fd, buffer.data(), buffer.size(), 0);
            },
            POLLIN, end);
        if (got <= 0) {
            return got < 0 && std::chrono::steady_clock::now() >= end ? header_e::tooLate : header_e::gone;
        }
        received.append(buffer.data(), static_cast<std::size_t>(got));
    }
}

std::string connection_c::takeHeader() {
    std::string header = received.substr(0, headerSize);
    received.erase(0, headerSize);
    return header;
}

bool connection_c::write(std::string_view text, moment_t end) {
    while (!text.empty()) {
        const long put = move(
            [&]() -> long {
                return tls != nullptr ? SSL_write(tls, text.data(), static_cast<int>(text.size()))
                                      : send(fd, text.data(), text.size(), MSG_NOSIGNAL);
            },
            POLLOUT, end);
        if (put <= 0) {
            return false;
        }
        text.remove_prefix(static_cast<std::size_t>(put));
    }
    return true;
}

void connection_c::linger(moment_t end) {
    constexpr std::size_t most = 1UL << 20;  // bytes
    std::array<char, 4096> buffer;
    shutdown(fd, SHUT_WR);
    for (std::size_t taken = 0; taken < most && waitFor(POLLIN, end);) {
        const ssize_t got = recv(fd, buffer.data(), buffer.size(), MSG_DONTWAIT);
        if (got <= 0) {
            return;
        }
        taken += static_cast<std::size_t>(got);
    }
}

bool connection_c::isClosed() const {
    char byte = 0;
    return recv(fd, &byte, 1, MSG_PEEK | MSG_DONTWAIT) == 0;
}
