// SPDX-License-Identifier: MIT
// Signatures by Standard Webhooks 1.0, by which a receiver knows who sent a request and when.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

// RFC 4648, with padding.
std::string base64(std::string_view bytes);

// The key of a secret "whsec_BASE64"; nothing for other texts.
std::optional<std::string> signingKey(std::string_view secret);

// The value of webhook-signature: "v1,BASE64" for each key, parted by blanks, of the HMAC-SHA256 over
// "id.timestamp.body". `timestamp` in seconds since 1970. Empty when the system's rules on cryptography
// refuse a key.
std::string signatures(const std::vector<std::string>& keys, const std::string& id,
                       const std::string& timestamp, const std::string& body);

// SHA-256 in lower-case hex.
std::string digestOf(std::string_view text);
