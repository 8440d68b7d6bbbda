// SPDX-License-Identifier: MIT
// "selects": the Gen2 Select commands (EPC Gen2, 6.3.2.12.1.1) that are sent before each inventory,
// as one flat list or for each antenna. The engine has one pool of them and a mask over it
// for each antenna.
#include <limits>
#include <nlohmann/json.hpp>
#include <type_traits>
#include <unordered_map>

#include "mode/parser.hpp"
#include "mode/record.hpp"
#include "util.hpp"

using nlohmann::json;

namespace {

// The name of the object in the texts about a missing key.
constexpr const char* selectsObject = "selects object";

// The bytes that a mask of `length` bits must have. Quirk: for a length that is not a multiple of 8
// it is one byte less than the whole ones, so 20 bits have 1 byte. Below 8 it is -1: a length of 1
// to 7 is always refused.
int maskBytes(std::uint32_t length) {
    return static_cast<int>(length / 8) - (length % 8 == 0 ? 0 : 1);
}

bool parseMask(const json* value, select_s* select, std::string* reply) {
    std::string digits;
    if (!required(getJsonValue(value, key::mask, &digits, reply, {}), key::mask, selectsObject, reply)) {
        return false;
    }
    if (!isAllHexDigits(digits)) {
        *reply = "Failure: mask must include only hex digits";
        return false;
    }
    if (static_cast<std::int64_t>(digits.size()) != 2 * maskBytes(select->length)) {
        *reply = "Failure: length of mask length match length";
        return false;
    }
    select->mask = hexBytes(digits);
    return true;
}

SELECT_OP_s selectOp(const select_s& select) {
    SELECT_OP_s op{};
    op.enable = 1;
    op.target = select.target;
    op.action = select.action;
    op.membank = select.membank;
    op.pointer = static_cast<std::uint16_t>(select.pointer);
    op.length = static_cast<std::uint8_t>(select.length);
    op.truncate = static_cast<std::uint16_t>(select.truncate);
    std::copy_n(select.mask.begin(), std::min(select.mask.size(), sizeof(op.mask)), op.mask);
    return op;
}

// Two selects are the same when their records are: the bytes behind the mask are 0.
static_assert(std::has_unique_object_representations_v<SELECT_OP_s>);
std::string recordBytes(const SELECT_OP_s& op) {
    return {reinterpret_cast<const char*>(&op), sizeof(op)};
}

int refuseTooManySelects(std::string* reply) {
    return refuseTooMany(key::selects, MODE_MAX_UNIQUE_SELECTS, reply);
}

// Quirk: new selects go into the pool without a limit. Too many of them fail when the mode is
// applied; here only the repeat of one from place 32 on fails.
int parseFlatSelects(const json* array, mode_configuration_s* mode, std::string* reply) {
    std::unordered_map<std::string, std::size_t> positions;  // in the pool, from 1, by the record
    for (const json& element : *array) {
        select_s select;
        if (parseSelectSingleValue(&element, &select, reply) != keyParsed) {
            return keyRefused;
        }
        const SELECT_OP_s op = selectOp(select);
        const auto [known, isNew] = positions.try_emplace(recordBytes(op), positions.size() + 1);
        if (isNew) {
            mode->uniqueSelects.push_back(op);
        } else if (known->second >= MODE_MAX_UNIQUE_SELECTS) {
            return refuseTooManySelects(reply);
        }
        select.selectIndex = static_cast<std::uint8_t>(known->second);
        mode->selectList.push_back(std::move(select));
    }
    return keyParsed;
}

}  // namespace

int parseSelect(const json* root, mode_configuration_s* mode, std::string* reply) {
    return parseOperations(root, key::selects, parseSelectArray, mode, reply);
}

int parseSelectArray(const json* array, mode_configuration_s* mode, std::string* reply) {
    return parseFlatOrForEachAntenna(array, parseFlatSelects, parseSelectArrayOfArrays, mode, reply);
}

// Quirk: a select is not looked up in the pool, so two antennas with the same one need two places.
int parseSelectArrayOfArrays(const json* array, mode_configuration_s* mode, std::string* reply) {
    for (const json& inner : *array) {
        std::uint32_t mask = 0;
        std::vector<select_s> selects;
        for (const json& element : inner) {
            select_s select;
            if (parseSelectSingleValue(&element, &select, reply) != keyParsed) {
                return keyRefused;
            }
            if (mode->uniqueSelects.size() >= MODE_MAX_UNIQUE_SELECTS) {
                return refuseTooManySelects(reply);
            }
            mask |= std::uint32_t{1} << mode->uniqueSelects.size();
            mode->uniqueSelects.push_back(selectOp(select));
            select.selectIndex = static_cast<std::uint8_t>(mode->uniqueSelects.size());
            selects.push_back(std::move(select));
        }
        mode->selectListPerAntenna.push_back(std::move(selects));
        mode->selectBitMasks.push_back(mask);
    }
    return keyParsed;
}

int parseSelectSingleValue(const json* value, select_s* select, std::string* reply) {
    if (!value->is_object()) {
        return refuse(reply, "Failure: mode json payload mode \"selects\" must have an object value");
    }
    select_s parsed;
    const auto word = [&](const char* key, const auto& table, std::uint8_t* out) {
        return required(getJsonWord(value, key, table, out, reply), key, selectsObject, reply);
    };
    const auto number = [&](const char* key, std::uint32_t* out, std::uint32_t max) {
        return required(getJsonValue(value, key, out, reply, 0, max), key, selectsObject, reply);
    };
    if (!word(key::target, selectTargetWords, &parsed.target) ||
        !word(key::action, selectActionWords(parsed.target), &parsed.action) ||
        !word(key::membank, membankWords, &parsed.membank) || !number(key::pointer, &parsed.pointer, 65535) ||
        !number(key::length, &parsed.length, 255) || !parseMask(value, &parsed, reply)) {
        return keyRefused;
    }
    constexpr std::uint32_t anyTruncate = std::numeric_limits<std::uint32_t>::max();
    if (optionalKey(getJsonValue(value, key::truncate, &parsed.truncate, reply, 0, anyTruncate), reply) ==
        keyRefused) {
        return keyRefused;
    }
    *select = std::move(parsed);
    return keyParsed;
}
