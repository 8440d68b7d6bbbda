// SPDX-License-Identifier: MIT
// The two functions of the library. They keep no state and allocate nothing.
#pragma GCC visibility push(default)
#include "tuvr.h"
#pragma GCC visibility pop

#include <algorithm>

#include "schemes.hpp"
#include "tuvr_status.h"

namespace {

// Runs the decoders of the scheme's fields; the first fault ends it.
tuvr_status_e decodeFields(const scheme_s& scheme, decoder_s* decoder) {
    // A tag delivers whole words, so bits behind those of the scheme are not part of the EPC.
    if (!scheme.isVariable) {
        decoder->bits.count = scheme.bits;
    }
    for (const auto& field : scheme.fields) {
        if (field.decode == nullptr) {
            break;
        }
        const auto status = field.decode(decoder, field);
        if (status != TUVR_OK) {
            return status;
        }
    }
    return TUVR_OK;
}

// Decodes the whole EPC into decoder->uri.
tuvr_status_e decode(const char* hex, decoder_s* decoder) {
    auto status = readHex(hex, &decoder->bits);
    if (status != TUVR_OK) {
        return status;
    }
    std::uint64_t header = 0;
    takeBits(&decoder->bits, 8, &header);
    const auto* const scheme = findScheme(static_cast<std::uint8_t>(header));
    if (scheme == nullptr) {
        return TUVR_UNKNOWN_HEADER;
    }
    if (decoder->bits.count < scheme->bits) {
        return TUVR_WRONG_LENGTH;
    }
    decoder->table = scheme->partitions;
    put(&decoder->uri, decoder->isTagUri ? "urn:epc:tag:" : "urn:epc:id:");
    put(&decoder->uri, decoder->isTagUri ? scheme->tagName : scheme->identityName);
    put(&decoder->uri, ':');
    return decodeFields(*scheme, decoder);
}

int hexToUri(const char* hex, int size, char* buffer, bool isTagUri) {
    if (hex == nullptr || buffer == nullptr || size <= 0) {
        return TUVR_BAD_ARGUMENT;
    }
    // Its arrays stay uninitialised: a decode runs for each report that has a URI.
    decoder_s decoder;
    decoder.uri.length = 0;
    decoder.uri.hasField = false;
    decoder.isTagUri = isTagUri;
    decoder.table = nullptr;
    decoder.partition = nullptr;
    const auto status = decode(hex, &decoder);
    if (status != TUVR_OK) {
        return status;
    }
    const auto length = decoder.uri.length;
    if (length >= static_cast<std::size_t>(size)) {
        return TUVR_BUFFER_TOO_SMALL;
    }
    std::copy_n(decoder.uri.text.data(), length, buffer);
    buffer[length] = '\0';
    return TUVR_OK;
}

}  // namespace

int tuvr_hexToEpcTagUri(const char* hex, int size, char* buffer) {
    return hexToUri(hex, size, buffer, true);
}

int tuvr_hexToEpcUri(const char* hex, int size, char* buffer) {
    return hexToUri(hex, size, buffer, false);
}
