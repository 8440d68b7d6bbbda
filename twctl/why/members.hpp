// SPDX-License-Identifier: MIT
// Members of JSON objects that a peer has sent: one that is absent or of another type than expected
// counts as absent, and nothing throws.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <type_traits>

namespace why {

// A member of the fallback's type; the fallback without one.
template <class Value>
Value get(const nlohmann::json& object, std::string_view name, Value fallback) {
    const auto member = object.is_object() ? object.find(name) : object.end();
    if (member == object.end()) {
        return fallback;
    }
    bool fits = false;
    if constexpr (std::is_same_v<Value, bool>) {
        fits = member->is_boolean();
    } else if constexpr (std::is_floating_point_v<Value>) {
        fits = member->is_number();
    } else if constexpr (std::is_unsigned_v<Value>) {
        fits = member->is_number_unsigned();
    } else if constexpr (std::is_integral_v<Value>) {
        fits = member->is_number_integer();
    } else {
        fits = member->is_string();
    }
    return fits ? member->get<Value>() : fallback;
}

// A text, empty without one.
inline std::string text(const nlohmann::json& object, std::string_view name) {
    return get(object, name, std::string());
}

// Any member; without it a value that has no members itself.
inline const nlohmann::json& part(const nlohmann::json& object, std::string_view name) {
    static const nlohmann::json nothing = nlohmann::json::array();
    const auto member = object.is_object() ? object.find(name) : object.end();
    return member == object.end() ? nothing : *member;
}

}  // namespace why
