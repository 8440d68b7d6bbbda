// SPDX-License-Identifier: MIT
#include "signature.hpp"

#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <openssl/sha.h>

#include <array>

namespace {

const unsigned char* bytesOf(std::string_view text) {
    return reinterpret_cast<const unsigned char*>(text.data());
}

constexpr std::size_t groupIn = 3, groupOut = 4;  // bytes and characters of base64

}  // namespace

std::string base64(std::string_view bytes) {
    std::string text((bytes.size() + groupIn - 1) / groupIn * groupOut + 1, '\0');  // it writes a zero byte
    const int length = EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()), bytesOf(bytes),
                                       static_cast<int>(bytes.size()));
    text.resize(static_cast<std::size_t>(length));
    return text;
}

std::optional<std::string> signingKey(std::string_view secret) {
    constexpr std::string_view begin = "whsec_";
    if (!secret.starts_with(begin)) {
        return std::nullopt;
    }
    const std::string_view text = secret.substr(begin.size());
    std::string key(text.size(), '\0');
    const int length = EVP_DecodeBlock(reinterpret_cast<unsigned char*>(key.data()), bytesOf(text),
                                       static_cast<int>(text.size()));
    const std::size_t padding = text.ends_with("==") ? 2 : text.ends_with('=') ? 1 : 0;
    if (length <= static_cast<int>(padding)) {
        return std::nullopt;
    }
    key.resize(static_cast<std::size_t>(length) - padding);
    return base64(key) == text ? std::optional(key) : std::nullopt;
}

std::string signatures(const std::vector<std::string>& keys, const std::string& id,
                       const std::string& timestamp, const std::string& body) {
    const std::string content = id + "." + timestamp + "." + body;
    std::string list;
    for (const std::string& key : keys) {
        std::array<unsigned char, SHA256_DIGEST_LENGTH> digest{};
        if (HMAC(EVP_sha256(), key.data(), static_cast<int>(key.size()), bytesOf(content), content.size(),
                 digest.data(), nullptr) == nullptr) {
            return {};
        }
        list += list.empty() ? "v1," : " v1,";
        list += base64({reinterpret_cast<const char*>(digest.data()), digest.size()});
    }
    return list;
}

std::string digestOf(std::string_view text) {
    std::array<unsigned char, SHA256_DIGEST_LENGTH> digest{};
    SHA256(bytesOf(text), text.size(), digest.data());
    constexpr std::string_view digits = "0123456789abcdef";
    std::string hex;
    for (const unsigned char byte : digest) {
        hex += digits[byte / digits.size()];
        hex += digits[byte % digits.size()];
    }
    return hex;
}
