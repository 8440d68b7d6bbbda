// SPDX-License-Identifier: MIT
// "accesses": the operations on each tag (EPC Gen2, 6.3.2.12.3), as one flat list or for each
// antenna. The engine has one pool of them and a mask over it for each antenna.
#include <nlohmann/json.hpp>

#include "mode/engine_records.hpp"
#include "mode/parser.hpp"
#include "mode/record.hpp"
#include "reader_facts.hpp"
#include "util.hpp"

using nlohmann::json;

namespace {

constexpr std::size_t maxWriteDigits = 510;
constexpr std::size_t passwordDigits = 8;

// The name of an access's config in the texts about a missing key.
std::string configOf(const char* access) {
    return std::string("access-config object for ") + access;
}

int parseRead(const json* config, ACCESS_CMD_S* access, std::string* reply) {
    const std::string place = configOf("read");
    const bool good =
        required(getJsonWord(config, key::membank, membankWords, &access->readMembank, reply), key::membank,
                 place, reply) &&
        required(getJsonValue(config, key::wordPointer, &access->readWordPointer, reply, 0, 65535),
                 key::wordPointer, place, reply) &&
        required(getJsonValue(config, key::wordCount, &access->readWordCount, reply, 0, 255), key::wordCount,
                 place, reply);
    return good ? keyParsed : keyRefused;
}

int parseWriteData(const std::string& digits, std::vector<std::uint16_t>* words, std::string* reply) {
    if (digits.size() % 4 != 0) {
        sprintfStr(reply,
                   "Failure: data for write must have an a number of hex digits evenly divisbile by 4 (write "
                   "must be writing 16 bit words). It has %zu hex digits",
                   digits.size());
        return keyRefused;
    }
    if (digits.size() > maxWriteDigits) {
        sprintfStr(reply,
                   "Failure: data for write must have is too long. It has %zu hex digits, The maximum is %d",
                   digits.size(), static_cast<int>(maxWriteDigits));
        return keyRefused;
    }
    if (!isAllHexDigits(digits)) {
        return refuse(reply, "Failure: data for write can only have hex digits.");
    }
    const std::vector<std::uint8_t> bytes = hexBytes(digits);
    for (std::size_t i = 0; i < bytes.size(); i += 2) {
        words->push_back(static_cast<std::uint16_t>(bytes[i] << 8 | bytes[i + 1]));
    }
    return keyParsed;
}

int parseBlockSize(const json* config, std::uint8_t* blockSize, std::string* reply) {
    if (config->contains(key::blockSize) && thisModel().arrayReader) {
        return refuse(reply, "Failure: block write is not supported on the QDX");
    }
    const int result = optionalKey(getJsonValue(config, key::blockSize, blockSize, reply, 1, 127), reply);
    return result == keyRefused ? keyRefused : keyParsed;
}

int parseWrite(const json* config, ACCESS_CMD_S* access, std::string* reply) {
    const std::string place = configOf("write");
    std::string digits;
    const bool good =
        required(getJsonWord(config, key::membank, membankWords, &access->writeMembank, reply), key::membank,
                 place, reply) &&
        required(getJsonValue(config, key::wordPointer, &access->writeWordPointer, reply, 0, 65535),
                 key::wordPointer, place, reply) &&
        required(getJsonValue(config, key::data, &digits, reply, {}), key::data, place, reply);
    if (!good || parseWriteData(digits, &access->writeData, reply) != keyParsed) {
        return keyRefused;
    }
    return parseBlockSize(config, &access->writeBlockSize, reply);
}

// The password of an access or a kill.
int parsePassword(const json* config, const char* access, std::uint32_t* password, std::string* reply) {
    std::string digits;
    if (!required(getJsonValue(config, key::password, &digits, reply, {}), key::password, configOf(access),
                  reply)) {
        return keyRefused;
    }
    if (digits.size() != passwordDigits) {
        sprintfStr(reply, "Failure: password for %s must have %zu hex digits. It has %zu hex digits", access,
                   passwordDigits, digits.size());
        return keyRefused;
    }
    if (!isAllHexDigits(digits)) {
        sprintfStr(reply, "Failure: password for %s can only have hex digits.", access);
        return keyRefused;
    }
    *password = static_cast<std::uint32_t>(hexToUint64(digits));
    return keyParsed;
}

int parseAccessPassword(const json* config, ACCESS_CMD_S* access, std::string* reply) {
    return parsePassword(config, "access", &access->accessPassword, reply);
}

int parseKill(const json* config, ACCESS_CMD_S* access, std::string* reply) {
    return parsePassword(config, "kill", &access->killPassword, reply);
}

// All actions, three in a line and in columns, for the text about an unknown action.
std::string lockActionList() {
    constexpr std::array<std::size_t, 3> columns{28, 36, 0};
    std::string text;
    for (std::size_t i = 0; i < lockActions.size(); ++i) {
        std::string word(lockActions[i].word);
        word += i + 1 == lockActions.size() ? "" : i % 3 == 2 ? ",\n" : ",";
        word.resize(std::max(word.size(), columns[i % 3]), ' ');
        text += word;
    }
    return text;
}

// Refuses an action whose bit is set already: lock and unlock of one bank exclude each other. Quirk:
// the text names both also when one of them was given twice.
int refusePair(const lock_action_s& action, std::string* reply) {
    const auto* lock = std::ranges::find(lockActions, action.pairBit, &lock_action_s::pairBit);
    return refuse(reply, "Failure: cannot use " + std::string(lock->word) + " and " +
                             std::string((lock + 1)->word) + " together");
}

int addLockAction(const std::string& word, std::uint32_t* payload, std::string* reply) {
    const auto* action = std::ranges::find(lockActions, word, &lock_action_s::word);
    if (action == lockActions.end()) {
        sprintfStr(reply, "Failure: actions value (%s) not supported. Supported values are: \n",
                   word.c_str());
        *reply += lockActionList();
        return keyRefused;
    }
    if ((*payload & action->pairBit) != 0) {
        return refusePair(*action, reply);
    }
    *payload |= action->value;
    return keyParsed;
}

int parseLock(const json* config, ACCESS_CMD_S* access, std::string* reply) {
    json actions;
    if (!required(getJsonValueArray(config, key::actions, &actions, reply), key::actions, configOf("lock"),
                  reply)) {
        return keyRefused;
    }
    for (const json& element : actions) {
        const auto* word = element.get_ptr<const json::string_t*>();
        if (word == nullptr) {
            return refuse(reply, "Failure: all values in the actions array must be strings");
        }
        if (addLockAction(*word, &access->lockPayload, reply) != keyParsed) {
            return keyRefused;
        }
    }
    return keyParsed;
}

struct config_parser_s {
    access_cmd_type_e type;
    int (*parse)(const json* config, ACCESS_CMD_S* access, std::string* reply);
};
constexpr std::array configParsers{
    config_parser_s{access_cmd_type_e::READ, parseRead},
    config_parser_s{access_cmd_type_e::WRITE, parseWrite},
    config_parser_s{access_cmd_type_e::ACCESS, parseAccessPassword},
    config_parser_s{access_cmd_type_e::LOCK, parseLock},
    config_parser_s{access_cmd_type_e::KILL, parseKill},
};
static_assert(std::ranges::equal(configParsers, accessTypeWords, {}, &config_parser_s::type,
                                 &word_s<access_cmd_type_e>::value));

// The engine has one block size for all accesses. An access without a block size does not change it.
int agreeOnBlockSize(std::uint8_t wanted, mode_configuration_s* mode, std::string* reply) {
    if (wanted == 0) {
        return keyParsed;
    }
    if (mode->blockSize != 0 && mode->blockSize != wanted) {
        sprintfStr(reply,
                   "Failure: blockSize for all configs must be the same value (requested value: %d, previous "
                   "value: %d)",
                   wanted, mode->blockSize);
        return keyRefused;
    }
    mode->blockSize = wanted;
    return keyParsed;
}

// Appends the access `element` to `list` and, converted, to the pool of the mode. `plural`
// is the word of the text for too many.
int appendAccess(const json& element, const char* plural, mode_configuration_s* mode,
                 std::vector<ACCESS_CMD_S>* list, std::string* reply) {
    std::vector<ACCESS_OP_s>* pool = &mode->uniqueAccesses;
    ACCESS_CMD_S access;
    if (parseAccessSingleValue(&element, &access, reply) != keyParsed ||
        agreeOnBlockSize(access.writeBlockSize, mode, reply) != keyParsed) {
        return keyRefused;
    }
    if (pool->size() >= MODE_MAX_UNIQUE_ACCESSES) {
        return refuseTooMany(plural, MODE_MAX_UNIQUE_ACCESSES, reply);
    }
    // Quirk: a write without words is not converted, so its place in the pool is an empty record.
    ACCESS_OP_s op{};
    accessStructToAccessOpStruct(&access, &op);
    pool->push_back(op);
    access.accessIndex = static_cast<std::uint8_t>(pool->size());
    list->push_back(std::move(access));
    return keyParsed;
}

int parseFlatAccesses(const json* array, mode_configuration_s* mode, std::string* reply) {
    for (const json& element : *array) {
        if (appendAccess(element, key::accesses, mode, &mode->accessList, reply) != keyParsed) {
            return keyRefused;
        }
    }
    return keyParsed;
}

}  // namespace

int parseAccess(const json* root, mode_configuration_s* mode, std::string* reply) {
    mode->blockSize = 0;
    return parseOperations(root, key::accesses, parseAccessArray, mode, reply);
}

int parseAccessArray(const json* array, mode_configuration_s* mode, std::string* reply) {
    return parseFlatOrForEachAntenna(array, parseFlatAccesses, parseAccesArrayOfArrays, mode, reply);
}

int parseAccesArrayOfArrays(const json* array, mode_configuration_s* mode, std::string* reply) {
    for (const json& inner : *array) {
        std::uint64_t mask = 0;
        std::vector<ACCESS_CMD_S> accesses;
        for (const json& element : inner) {
            mask |= accessMaskBit(mode->uniqueAccesses.size());
            if (appendAccess(element, "access", mode, &accesses, reply) != keyParsed) {
                return keyRefused;
            }
        }
        mode->accessListPerAntenna.push_back(std::move(accesses));
        mode->accessBitMasks.push_back(mask);
    }
    return keyParsed;
}

int parseAccessSingleValue(const json* value, ACCESS_CMD_S* access, std::string* reply) {
    if (!value->is_object()) {
        return refuse(reply, "Failure: mode json payload mode \"accesses\" must have an object value");
    }
    ACCESS_CMD_S parsed;
    json config;
    const std::string place = "accesses object";
    if (!required(getJsonWord(value, key::type, accessTypeWords, &parsed.type, reply), key::type, place,
                  reply) ||
        !required(getJsonValueObject(value, key::config, &config, reply), key::config, place, reply)) {
        return keyRefused;
    }
    const auto* parser = std::ranges::find(configParsers, parsed.type, &config_parser_s::type);
    if (parser->parse(&config, &parsed, reply) != keyParsed) {
        return keyRefused;
    }
    *access = std::move(parsed);
    return keyParsed;
}
