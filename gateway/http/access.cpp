// SPDX-License-Identifier: MIT
#include "access.hpp"

#include <arpa/inet.h>
#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <openssl/rand.h>

#include <charconv>
#include <stdexcept>

namespace {

constexpr std::int64_t cookieLife = 12 * 3'600;  // s
constexpr std::string_view cookieName = "twgate_session=";

std::array<unsigned char, 32> digestOf(std::string_view text) {
    std::array<unsigned char, 32> digest{};
    EVP_Digest(text.data(), text.size(), digest.data(), nullptr, EVP_sha256(), nullptr);
    return digest;
}

std::string hexOf(const unsigned char* bytes, std::size_t size) {
    constexpr std::string_view digits = "0123456789abcdef";
    std::string text;
    for (std::size_t i = 0; i < size; ++i) {
        text += {digits[bytes[i] >> 4U], digits[bytes[i] & 15U]};
    }
    return text;
}

// The value of our cookie among all of them; empty without it.
std::string_view ownCookie(std::string_view cookies) {
    while (!cookies.empty()) {
        const std::string_view one = cookies.substr(0, cookies.find(';'));
        cookies.remove_prefix(std::min(cookies.size(), one.size() + 1));
        cookies.remove_prefix(std::min(cookies.size(), cookies.find_first_not_of(' ')));
        if (one.starts_with(cookieName)) {
            return one.substr(cookieName.size());
        }
    }
    return {};
}

}  // namespace

bool isLoopback(std::string_view host) {
    if (host.starts_with('[') && host.ends_with(']')) {
        host = host.substr(1, host.size() - 2);
    }
    const std::string text(host);
    in_addr four{};
    in6_addr six{};
    return text == "localhost" ||
           (inet_pton(AF_INET, text.c_str(), &four) == 1 && (ntohl(four.s_addr) >> 24U) == IN_LOOPBACKNET) ||
           (inet_pton(AF_INET6, text.c_str(), &six) == 1 && IN6_IS_ADDR_LOOPBACK(&six));
}

bool isLoopbackHost(std::string_view hostHeader) {
    const std::size_t colon = hostHeader.rfind(':');
    const bool hasPort = colon != hostHeader.npos && hostHeader.find(']', colon) == hostHeader.npos;
    return hostHeader.empty() || isLoopback(hasPort ? hostHeader.substr(0, colon) : hostHeader);
}

access_c::access_c(const std::string& secret) : hasToken(!secret.empty()), token(digestOf(secret)) {
    if (RAND_bytes(key.data(), key.size()) != 1) {
        throw std::runtime_error("the system has no random numbers");
    }
}

std::string access_c::sign(std::string_view text) const {
    digest_t mac{};
    HMAC(EVP_sha256(), key.data(), key.size(), reinterpret_cast<const unsigned char*>(text.data()),
         text.size(), mac.data(), nullptr);
    return hexOf(mac.data(), mac.size());
}

bool access_c::allowsToken(std::string_view authorization) const {
    constexpr std::string_view scheme = "Bearer ";
    const bool isBearer = authorization.starts_with(scheme);
    const digest_t given = digestOf(authorization.substr(isBearer ? scheme.size() : 0));
    return isBearer && CRYPTO_memcmp(given.data(), token.data(), token.size()) == 0;
}

bool access_c::allows(std::string_view authorization, std::string_view cookies, std::int64_t now) const {
    if (!hasToken || allowsToken(authorization)) {
        return true;
    }
    // TIME.SIGNATURE
    const std::string_view value = ownCookie(cookies);
    const std::size_t dot = value.find('.');
    if (dot == value.npos) {
        return false;
    }
    const std::string expected = sign(value.substr(0, dot));
    const std::string_view given = value.substr(dot + 1);
    std::int64_t end = 0;
    std::from_chars(value.data(), value.data() + dot, end);
    return given.size() == expected.size() &&
           CRYPTO_memcmp(given.data(), expected.data(), expected.size()) == 0 && now < end;
}

std::string access_c::cookie(std::int64_t now, bool isTls) const {
    const std::string end = std::to_string(now + cookieLife);
    return std::string(cookieName) + end + "." + sign(end) +
           "; Path=/; Max-Age=" + std::to_string(cookieLife) + "; HttpOnly; SameSite=Strict" +
           (isTls ? "; Secure" : "");
}
