// SPDX-License-Identifier: MIT
#include "json_fields.hpp"

#include <algorithm>
#include <limits>
#include <nlohmann/json.hpp>
#include <type_traits>
#include <utility>

#include "util.hpp"

using nlohmann::json;

namespace {

constexpr int notThere = -1;
constexpr int wrongType = -2;
constexpr int notAllowed = -3;

// The value of a key. Null, with the reply written, when the key is not there or `object` is not an
// object.
const json* findValue(const json* object, const std::string& key, std::string* reply) {
    if (object != nullptr && object->is_object()) {
        const auto entry = object->find(key);
        if (entry != object->end()) {
            return &*entry;
        }
    }
    *reply = "Failure: \"" + key + "\" must be included in object";
    return nullptr;
}

int refuseType(const std::string& key, const char* whatItMustContain, std::string* reply) {
    *reply = "Failure: \"" + key + "\" field must contain " + whatItMustContain;
    return wrongType;
}

template <class Number>
constexpr const char* numberKind() {
    if constexpr (std::is_floating_point_v<Number>) {
        return "a floating point number";
    } else if constexpr (std::is_unsigned_v<Number>) {
        return "an unsigned integer";
    } else {
        return "an integer";
    }
}

template <class Number>
bool isAcceptable(const json& value, bool acceptOtherNumbers) {
    if constexpr (std::is_floating_point_v<Number>) {
        return value.is_number();
    } else if constexpr (std::is_unsigned_v<Number>) {
        return value.is_number_unsigned() || (acceptOtherNumbers && value.is_number());
    } else {
        return value.is_number_integer();
    }
}

// Whether `value`, in the type in which it was parsed, lies within the bounds.
// Integers are compared by value: the library's own comparison takes an unsigned value above the
// signed range for negative.
template <class Value, class Number>
bool isWithin(Value value, Number min, Number max) {
    if constexpr (std::is_integral_v<Value> && std::is_integral_v<Number>) {
        return std::cmp_greater_equal(value, min) && std::cmp_less_equal(value, max);
    } else {
        const auto number = static_cast<double>(value);
        if constexpr (std::is_integral_v<Number>) {
            // As a double, a bound of 64 bits may have been rounded up by one.
            constexpr double beyond = 2.0 * static_cast<double>(std::numeric_limits<Number>::max() / 2 + 1);
            if (number >= beyond) {
                return false;
            }
        }
        return number >= static_cast<double>(min) && number <= static_cast<double>(max);
    }
}

template <class Value, class Number>
bool storeWithin(Value parsed, Number min, Number max, Number* out) {
    if (!isWithin(parsed, min, max)) {
        return false;
    }
    *out = static_cast<Number>(parsed);
    return true;
}

int copyStructure(const json* object, const std::string& key, json::value_t type, const char* typeName,
                  json* out, std::string* reply) {
    const json* const value = findValue(object, key, reply);
    if (value == nullptr) {
        return notThere;
    }
    if (value->type() != type) {
        return refuseType(key, typeName, reply);
    }
    *out = json(*value);
    return 0;
}

// Whether a JSON text opens more than `limit` arrays and objects inside one another. For a text that is
// not JSON the answer has no meaning.
bool isNestedDeeper(std::string_view text, int limit) {
    int depth = 0;
    bool inString = false;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (inString) {
            inString = c != '"';
            i += c == '\\' ? 1 : 0;
        } else if (c == '"') {
            inString = true;
        } else if (c == '[' || c == '{') {
            if (++depth > limit) {
                return true;
            }
        } else if (c == ']' || c == '}') {
            --depth;
        }
    }
    return false;
}

}  // namespace

bool parseJsonText(const std::string& text, json* out, std::string* reason, int maxNesting) {
    if (isNestedDeeper(text, maxNesting)) {
        *reason = "nested too deep";
        return false;
    }
    try {
        *out = json::parse(text);
        return true;
    } catch (const json::exception& error) {  // not JSON, or a number that is too large
        *reason = error.what();
        return false;
    }
}

template <class Number>
int json_to_number(const json* object, const std::string& key, Number* out, std::string* reply, Number min,
                   Number max, bool acceptOtherNumbers) {
    const json* const value = findValue(object, key, reply);
    if (value == nullptr) {
        return notThere;
    }
    if (!isAcceptable<Number>(*value, acceptOtherNumbers)) {
        return refuseType(key, numberKind<Number>(), reply);
    }
    bool stored = false;
    // Unsigned first: get_ptr for signed integers accepts unsigned ones as well.
    if (const auto* natural = value->get_ptr<const json::number_unsigned_t*>()) {
        stored = storeWithin(*natural, min, max, out);
    } else if (const auto* integer = value->get_ptr<const json::number_integer_t*>()) {
        stored = storeWithin(*integer, min, max, out);
    } else if (const auto* real = value->get_ptr<const json::number_float_t*>()) {
        stored = storeWithin(*real, min, max, out);
    }
    if (!stored) {
        *reply = "Failure: value provided for \"" + key + "\" is out of bounds. Must be between " +
                 std::to_string(min) + " and " + std::to_string(max) + ".";
        return notAllowed;
    }
    return 0;
}

// One accessor and its instantiation for each type of number.
#define TARNWICK_NUMBER_ACCESSOR(Number)                                                                \
    template int json_to_number<Number>(const json*, const std::string&, Number*, std::string*, Number, \
                                        Number, bool);                                                  \
    int getJsonValue(const json* object, const std::string& key, Number* out, std::string* reply,       \
                     Number min, Number max) {                                                          \
        return json_to_number(object, key, out, reply, min, max, false);                                \
    }

TARNWICK_NUMBER_ACCESSOR(std::uint8_t)
TARNWICK_NUMBER_ACCESSOR(std::uint16_t)
TARNWICK_NUMBER_ACCESSOR(std::uint32_t)
TARNWICK_NUMBER_ACCESSOR(std::uint64_t)
TARNWICK_NUMBER_ACCESSOR(std::int8_t)
TARNWICK_NUMBER_ACCESSOR(std::int16_t)
TARNWICK_NUMBER_ACCESSOR(std::int32_t)
TARNWICK_NUMBER_ACCESSOR(std::int64_t)
TARNWICK_NUMBER_ACCESSOR(float)
TARNWICK_NUMBER_ACCESSOR(double)
#undef TARNWICK_NUMBER_ACCESSOR

int getJsonValue(const json* object, const std::string& key, std::string* out, std::string* reply,
                 const std::vector<std::string>& allowed) {
    const json* const value = findValue(object, key, reply);
    if (value == nullptr) {
        return notThere;
    }
    const auto* const text = value->get_ptr<const json::string_t*>();
    if (text == nullptr) {
        return refuseType(key, "a string", reply);
    }
    if (!allowed.empty() && std::find(allowed.begin(), allowed.end(), *text) == allowed.end()) {
        *reply = "Failure: value provided for \"" + key +
                 "\" must be a string containing one of the following values: " + joinStrings(allowed, ", ");
        return notAllowed;
    }
    *out = *text;
    return 0;
}

int getJsonValue(const json* object, const std::string& key, bool* out, std::string* reply) {
    const json* const value = findValue(object, key, reply);
    if (value == nullptr) {
        return notThere;
    }
    const auto* const flag = value->get_ptr<const json::boolean_t*>();
    if (flag == nullptr) {
        return refuseType(key, "\"true\" or \"false\"", reply);
    }
    *out = *flag;
    return 0;
}

int getJsonValueArray(const json* object, const std::string& key, json* out, std::string* reply) {
    return copyStructure(object, key, json::value_t::array, "an array of values", out, reply);
}

int getJsonValueObject(const json* object, const std::string& key, json* out, std::string* reply) {
    return copyStructure(object, key, json::value_t::object, "an object", out, reply);
}
