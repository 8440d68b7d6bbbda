// SPDX-License-Identifier: MIT
// The kinds of fields that schemes consist of (GS1 EPC Tag Data Standard 1.13, section 14.4). A
// decoder takes a field's bits, checks them and writes the field, with a dot in front of all but
// the first, into the URI. It returns TUVR_OK or the first fault of the field; the URI then holds
// a part of the field and is not used.
//
//   sgtin-96   header 8 | filter 3 | partition 3 | company prefix 20-40 | item 4-24 | serial 38
//   fields              filterField  prefixField -----------------------  padded    integerField
#pragma once

#include <cstdint>

#include "bit_reader.hpp"
#include "partitions.hpp"
#include "uri_writer.hpp"

// The state of one decode.
struct decoder_s {
    bits_s bits;
    uri_s uri;
    // True for the tag URI; the pure identity URI does not have the filter.
    bool isTagUri;
    // The scheme's partition table; null for a scheme without a company prefix.
    const partitions_s* table;
    // The row of the EPC's partition value; null until prefixField has read it. The reference
    // fields need it, so they come after the prefix.
    const partition_s* partition;
};

// A field of a scheme.
struct field_s {
    // Null ends a scheme's fields.
    tuvr_status_e (*decode)(decoder_s* decoder, const field_s& field);
    // Width; 0 where the partition or the content determines it.
    std::uint8_t bits;
    // The most digits or characters; 0 where the bits alone limit the value.
    std::uint8_t limit;
};

// The filter value: a number in a tag URI, nothing in a pure identity URI.
tuvr_status_e filterField(decoder_s* decoder, const field_s& field);
// Three bits of partition, then the company prefix in 6 to 12 digits. TUVR_BAD_PARTITION for
// partition 7.
tuvr_status_e prefixField(decoder_s* decoder, const field_s& field);

// The reference behind the prefix; the partition gives its width and its most digits or
// characters.
// With leading zeros, always as many digits; an empty field where the partition allows none.
tuvr_status_e paddedReferenceField(decoder_s* decoder, const field_s& field);
// A number without leading zeros.
tuvr_status_e plainReferenceField(decoder_s* decoder, const field_s& field);
// 7-bit characters, then zeros to the end of the field.
tuvr_status_e sevenBitReferenceField(decoder_s* decoder, const field_s& field);
// 6-bit characters up to one of value 0, which is always there.
tuvr_status_e sixBitReferenceField(decoder_s* decoder, const field_s& field);

// A number without leading zeros, of at most `limit` digits.
tuvr_status_e integerField(decoder_s* decoder, const field_s& field);
// A number with leading zeros, always `limit` digits: TUVR_OUT_OF_RANGE from 10^limit on.
tuvr_status_e paddedField(decoder_s* decoder, const field_s& field);
// 1 to `limit` 7-bit characters, then zeros to the end of the field.
tuvr_status_e sevenBitField(decoder_s* decoder, const field_s& field);
// Digits that keep their leading zeros: the bits are a decimal number whose first digit is 1, which
// is not written. 1001 stands for "001".
tuvr_status_e numericStringField(decoder_s* decoder, const field_s& field);
// Bits that must be 0 (TUVR_BAD_PADDING); writes nothing.
tuvr_status_e reservedField(decoder_s* decoder, const field_s& field);

// CAGE code (5 characters behind a blank) or DoDAAC (6): six characters of 6 bits in ADI, of 8 bits
// in USDOD.
tuvr_status_e cageField(decoder_s* decoder, const field_s& field);
// ADI part number: 0 to 32 6-bit characters without #.
tuvr_status_e adiPartField(decoder_s* decoder, const field_s& field);
// ADI serial number: 1 to 30 6-bit characters; # only in front of others.
tuvr_status_e adiSerialField(decoder_s* decoder, const field_s& field);
