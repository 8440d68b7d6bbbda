// SPDX-License-Identifier: MIT
// The kinds of fields that codes are made of. A decoder takes a field's bits,
// checks them and writes the field into the URI.
#pragma once

#include <cstdint>

#include "bit_reader.hpp"
#include "partitions.hpp"
#include "uri_writer.hpp"

// The state of one decode.
struct decoder_s {
    bits_s bits;
    uri_s uri;
    bool isTagUri;                 // false: pure identity, without the filter
    const partitions_s* table;     // of the scheme; null for schemes without a company prefix
    const partition_s* partition;  // the row that the code chose, once the prefix was read
};

struct field_s {
    tuvr_status_e (*decode)(decoder_s* decoder, const field_s& field);  // null ends a scheme's fields
    std::uint8_t bits;
    std::uint8_t limit;  // most digits or characters; 0 where the bits alone bound the value
};

tuvr_status_e filterField(decoder_s* decoder, const field_s& field);
// Three bits of partition, then the company prefix.
tuvr_status_e prefixField(decoder_s* decoder, const field_s& field);

// What stands behind the prefix, as wide as the partition tells.
tuvr_status_e paddedReferenceField(decoder_s* decoder, const field_s& field);  // leading zeros count
tuvr_status_e plainReferenceField(decoder_s* decoder, const field_s& field);   // a number without them
tuvr_status_e sevenBitReferenceField(decoder_s* decoder, const field_s& field);
tuvr_status_e sixBitReferenceField(decoder_s* decoder, const field_s& field);

tuvr_status_e integerField(decoder_s* decoder, const field_s& field);
tuvr_status_e paddedField(decoder_s* decoder, const field_s& field);  // always `limit` digits
tuvr_status_e sevenBitField(decoder_s* decoder, const field_s& field);
// A decimal with a 1 in front that keeps the zeros after it.
tuvr_status_e numericStringField(decoder_s* decoder, const field_s& field);
tuvr_status_e reservedField(decoder_s* decoder, const field_s& field);  // zeros; writes nothing

// CAGE code or DoDAAC in six characters of six or eight bits.
tuvr_status_e cageField(decoder_s* decoder, const field_s& field);
tuvr_status_e adiPartField(decoder_s* decoder, const field_s& field);
tuvr_status_e adiSerialField(decoder_s* decoder, const field_s& field);
