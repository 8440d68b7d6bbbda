// SPDX-License-Identifier: MIT
// The binary codings (GS1 EPC Tag Data Standard 1.13, sections 14.2 and 14.5).
#pragma once

#include <array>
#include <cstdint>
#include <string_view>

#include "fields.hpp"

// A scheme, its names in the two URIs, and its fields:
//
//   urn:epc:tag:sgtin-96:3.0614141.812345.6789
//   urn:epc:id:sgtin:0614141.812345.6789
struct scheme_s {
    // The first 8 bits of the EPC.
    std::uint8_t header;
    // Behind "urn:epc:tag:".
    std::string_view tagName;
    // Behind "urn:epc:id:". Schemes that differ only in their coding share it.
    std::string_view identityName;
    // All bits, the header included; for a scheme of variable length the fewest.
    std::uint16_t bits;
    // A character of value 0 ends each text, so the EPC itself tells its length.
    bool isVariable;
    // Null for a scheme without a company prefix.
    const partitions_s* partitions;
    // Behind the header, in the order of the bits and of the URI.
    std::array<field_s, 6> fields;
};

// The scheme of a header; null when there is none: 00 is an unprogrammed tag, E2 begins a TID. Any
// thread; the pointer is valid for the life of the library.
const scheme_s* findScheme(std::uint8_t header);
