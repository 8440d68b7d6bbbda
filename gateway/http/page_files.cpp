// SPDX-License-Identifier: MIT
#include "page_files.hpp"

#include <algorithm>
#include <array>

std::string_view contentTypeOf(std::string_view path) {
    struct type_s {
        std::string_view ending, type;
    };
    constexpr std::array types{type_s{".js", "text/javascript; charset=utf-8"},
                               type_s{".css", "text/css; charset=utf-8"}, type_s{".svg", "image/svg+xml"}};
    const auto* const type =
        std::ranges::find_if(types, [&](const type_s& row) { return path.ends_with(row.ending); });
    return type == types.end() ? "text/html; charset=utf-8" : type->type;
}
