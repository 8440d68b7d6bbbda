// SPDX-License-Identifier: MIT
// The binary codings (GS1 EPC Tag Data Standard 1.13, sections 14.2 and 14.5).
#pragma once

#include <array>
#include <cstdint>
#include <string_view>

#include "fields.hpp"

struct scheme_s {
    std::uint8_t header;
    std::string_view tagName;       // after "urn:epc:tag:"
    std::string_view identityName;  // after "urn:epc:id:"
    std::uint16_t bits;             // all of them; the fewest of a scheme without a fixed length
    bool isVariable;                // its texts end with a terminator, so its length is in the code itself
    const partitions_s* partitions;
    std::array<field_s, 6> fields;  // after the header, in the order of the bits and of the URI
};

// Null when no scheme has that header.
const scheme_s* findScheme(std::uint8_t header);
