// SPDX-License-Identifier: MIT
// Who may ask: the token of a header, the cookie that stands for it in browsers, and the names by which a
// browser may call a server that has no token.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

// Whether "host" of "listen" is a loopback address: 127.0.0.0/8, [::1] or localhost.
bool isLoopback(std::string_view host);

// Whether a browser on this machine may have this header "Host": a loopback name or address, with or without
// a port, or nothing, which no browser sends.
bool isLoopbackHost(std::string_view hostHeader);

// Any thread.
class access_c {
  public:
    // An empty token: everyone may.
    explicit access_c(const std::string& token);

    bool needsToken() const { return hasToken; }
    // The headers "Authorization" and "Cookie" of a request; `now` in seconds since 1970. Compared in a time
    // that does not depend on what is wrong.
    bool allows(std::string_view authorization, std::string_view cookies, std::int64_t now) const;
    bool allowsToken(std::string_view authorization) const;
    // The value of the header "Set-Cookie" for who has shown the token.
    std::string cookie(std::int64_t now, bool isTls) const;

  private:
    using digest_t = std::array<unsigned char, 32>;
    std::string sign(std::string_view text) const;

    bool hasToken;
    digest_t token{};  // SHA-256
    digest_t key{};    // of the signatures; made anew for each process and token
};
