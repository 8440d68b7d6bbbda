// SPDX-License-Identifier: MIT
// The URI under construction. It is copied to the caller's buffer when it is whole, so that a
// failure leaves that buffer as it was. Not terminated.
#pragma once

#include <array>
#include <cstddef>
#include <string_view>

struct uri_s {
    // The longest is an ADI tag URI with all of its 62 characters escaped, some 220 bytes. Bytes
    // behind `length` are not initialised.
    std::array<char, 384> text;
    std::size_t length;
    // A field has been written, so that the next one needs a dot in front.
    bool hasField;
};

// Appends a character; drops it when the text is full, which no scheme reaches.
inline void put(uri_s* uri, char character) {
    if (uri->length < uri->text.size()) {
        uri->text[uri->length++] = character;
    }
}

// Appends a text.
inline void put(uri_s* uri, std::string_view text) {
    for (const char character : text) {
        put(uri, character);
    }
}

// Writes the dot in front of each field but the first. An empty field keeps its dot: "..".
inline void beginField(uri_s* uri) {
    if (uri->hasField) {
        put(uri, '.');
    }
    uri->hasField = true;
}
