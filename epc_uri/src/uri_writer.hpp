// SPDX-License-Identifier: MIT
// The URI under construction. It stays here until it is whole, so that a
// failure leaves the caller's buffer as it was.
#pragma once

#include <array>
#include <cstddef>
#include <string_view>

struct uri_s {
    // The longest is an ADI tag URI with all of its 62 characters escaped, some 220 bytes.
    std::array<char, 384> text;
    std::size_t length;
    bool hasField;  // the next field needs a dot in front
};

inline void put(uri_s* uri, char character) {
    if (uri->length < uri->text.size()) {
        uri->text[uri->length++] = character;
    }
}

inline void put(uri_s* uri, std::string_view text) {
    for (const char character : text) {
        put(uri, character);
    }
}

inline void beginField(uri_s* uri) {
    if (uri->hasField) {
        put(uri, '.');
    }
    uri->hasField = true;
}
