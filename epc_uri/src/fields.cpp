// SPDX-License-Identifier: MIT
// Rules for each kind of field: GS1 EPC Tag Data Standard 1.13, section 14.4.
#include "fields.hpp"

#include <charconv>

#include "characters.hpp"

namespace {

// 10^0 to 10^19, the powers that 64 bits hold.
constexpr std::array<std::uint64_t, 20> makePowersOfTen() {
    std::array<std::uint64_t, 20> powers{};
    powers[0] = 1;
    for (std::size_t i = 1; i < powers.size(); ++i) {
        powers[i] = powers[i - 1] * 10;
    }
    return powers;
}
constexpr auto powersOfTen = makePowersOfTen();

// A blank, which precedes a five-character CAGE code.
constexpr std::uint64_t sixBitSpace = 0x20;

// Writes a character, escaped where a URI needs it: '/' becomes %2F.
void putCharacter(uri_s* uri, char character) {
    constexpr std::string_view hexDigits = "0123456789ABCDEF";
    if (!isEscaped(character)) {
        put(uri, character);
        return;
    }
    put(uri, '%');
    put(uri, hexDigits[static_cast<unsigned char>(character) >> 4]);
    put(uri, hexDigits[static_cast<unsigned char>(character) & 0x0F]);
}

// The decimal digits of a value, in `*text`.
std::string_view decimal(std::uint64_t value, std::array<char, 20>* text) {
    const auto* const end = std::to_chars(text->data(), text->data() + text->size(), value).ptr;
    return {text->data(), static_cast<std::size_t>(end - text->data())};
}

// A number of `bits` bits. With `isPadded` it has exactly `digits` digits, and with 0 digits the
// field is empty; otherwise at most `digits`, 0 for any number.
tuvr_status_e putNumber(decoder_s* decoder, unsigned bits, unsigned digits, bool isPadded) {
    std::uint64_t value = 0;
    if (!takeBits(&decoder->bits, bits, &value)) {
        return TUVR_WRONG_LENGTH;
    }
    if ((isPadded || digits != 0) && value >= powersOfTen[digits]) {
        return TUVR_OUT_OF_RANGE;
    }
    beginField(&decoder->uri);
    if (isPadded && digits == 0) {
        return TUVR_OK;  // the field is there and empty
    }
    std::array<char, 20> buffer{};
    const auto text = decimal(value, &buffer);
    for (auto i = text.size(); isPadded && i < digits; ++i) {
        put(&decoder->uri, '0');
    }
    put(&decoder->uri, text);
    return TUVR_OK;
}

// Seven-bit characters in `bits` bits: one to `limit` of them, then zeros. The bits need not be a
// multiple of 7; those of the last, short part are zeros as well.
tuvr_status_e putSevenBitText(decoder_s* decoder, unsigned bits, unsigned limit) {
    beginField(&decoder->uri);
    unsigned length = 0;
    bool hasEnded = false;
    while (bits > 0) {
        const auto width = bits < 7 ? bits : 7;
        std::uint64_t value = 0;
        if (!takeBits(&decoder->bits, width, &value)) {
            return TUVR_WRONG_LENGTH;
        }
        bits -= width;
        if (value == 0) {
            hasEnded = true;
            continue;
        }
        if (hasEnded || width < 7) {
            return TUVR_BAD_PADDING;
        }
        const char character = sevenBitCharacter(value);
        if (character == '\0') {
            return TUVR_BAD_CHARACTER;
        }
        if (++length > limit) {
            return TUVR_OUT_OF_RANGE;
        }
        putCharacter(&decoder->uri, character);
    }
    return length == 0 ? TUVR_EMPTY_FIELD : TUVR_OK;
}

enum class hash_e { anywhere, nowhere, first };  // where '#' may stand

// Six-bit characters, `least` to `most`, up to one of value 0, which is always there.
tuvr_status_e putSixBitText(decoder_s* decoder, unsigned least, unsigned most, hash_e hash) {
    beginField(&decoder->uri);
    for (unsigned length = 0;; ++length) {
        std::uint64_t value = 0;
        if (!takeBits(&decoder->bits, 6, &value)) {
            return TUVR_WRONG_LENGTH;
        }
        if (value == 0) {
            return length < least ? TUVR_EMPTY_FIELD : TUVR_OK;
        }
        const char character = sixBitCharacter(value);
        if (character == '\0' ||
            (character == '#' && (hash == hash_e::nowhere || (hash == hash_e::first && length > 0)))) {
            return TUVR_BAD_CHARACTER;
        }
        if (length == most) {
            return TUVR_OUT_OF_RANGE;
        }
        // A '#' in front needs at least one character behind it.
        if (character == '#' && hash == hash_e::first) {
            least = 2;
        }
        putCharacter(&decoder->uri, character);
    }
}

}  // namespace

tuvr_status_e filterField(decoder_s* decoder, const field_s& field) {
    if (decoder->isTagUri) {
        return putNumber(decoder, field.bits, 0, false);
    }
    std::uint64_t value = 0;
    return takeBits(&decoder->bits, field.bits, &value) ? TUVR_OK : TUVR_WRONG_LENGTH;
}

tuvr_status_e prefixField(decoder_s* decoder, const field_s& field) {
    std::uint64_t partition = 0;
    if (!takeBits(&decoder->bits, field.bits, &partition)) {
        return TUVR_WRONG_LENGTH;
    }
    if (partition >= decoder->table->size()) {
        return TUVR_BAD_PARTITION;
    }
    decoder->partition = &(*decoder->table)[partition];
    return putNumber(decoder, decoder->partition->prefixBits, decoder->partition->prefixDigits, true);
}

tuvr_status_e paddedReferenceField(decoder_s* decoder, const field_s&) {
    return putNumber(decoder, decoder->partition->referenceBits, decoder->partition->referenceDigits, true);
}

tuvr_status_e plainReferenceField(decoder_s* decoder, const field_s&) {
    return putNumber(decoder, decoder->partition->referenceBits, decoder->partition->referenceDigits, false);
}

tuvr_status_e sevenBitReferenceField(decoder_s* decoder, const field_s&) {
    return putSevenBitText(decoder, decoder->partition->referenceBits, decoder->partition->referenceDigits);
}

tuvr_status_e sixBitReferenceField(decoder_s* decoder, const field_s&) {
    return putSixBitText(decoder, 1, decoder->partition->referenceDigits, hash_e::anywhere);
}

tuvr_status_e integerField(decoder_s* decoder, const field_s& field) {
    return putNumber(decoder, field.bits, field.limit, false);
}

tuvr_status_e paddedField(decoder_s* decoder, const field_s& field) {
    return putNumber(decoder, field.bits, field.limit, true);
}

tuvr_status_e sevenBitField(decoder_s* decoder, const field_s& field) {
    return putSevenBitText(decoder, field.bits, field.limit);
}

tuvr_status_e numericStringField(decoder_s* decoder, const field_s& field) {
    std::uint64_t value = 0;
    if (!takeBits(&decoder->bits, field.bits, &value)) {
        return TUVR_WRONG_LENGTH;
    }
    std::array<char, 20> buffer{};
    const auto text = decimal(value, &buffer);
    if (text.front() != '1') {
        return TUVR_OUT_OF_RANGE;
    }
    if (text.size() == 1) {
        return TUVR_EMPTY_FIELD;
    }
    beginField(&decoder->uri);
    put(&decoder->uri, text.substr(1));
    return TUVR_OK;
}

tuvr_status_e reservedField(decoder_s* decoder, const field_s& field) {
    std::uint64_t value = 0;
    if (!takeBits(&decoder->bits, field.bits, &value)) {
        return TUVR_WRONG_LENGTH;
    }
    return value == 0 ? TUVR_OK : TUVR_BAD_PADDING;
}

tuvr_status_e cageField(decoder_s* decoder, const field_s& field) {
    beginField(&decoder->uri);
    for (unsigned i = 0; i < 6; ++i) {
        std::uint64_t value = 0;
        if (!takeBits(&decoder->bits, field.bits / 6U, &value)) {
            return TUVR_WRONG_LENGTH;
        }
        // A blank is 20h in 6 and in 8 bits.
        if (i == 0 && value == sixBitSpace) {
            continue;
        }
        const char character = field.bits == 36 ? sixBitCharacter(value) : sevenBitCharacter(value);
        if (value > 0x7F || !isCageCharacter(character)) {
            return TUVR_BAD_CHARACTER;
        }
        put(&decoder->uri, character);
    }
    return TUVR_OK;
}

tuvr_status_e adiPartField(decoder_s* decoder, const field_s& field) {
    return putSixBitText(decoder, 0, field.limit, hash_e::nowhere);
}

tuvr_status_e adiSerialField(decoder_s* decoder, const field_s& field) {
    return putSixBitText(decoder, 1, field.limit, hash_e::first);
}
