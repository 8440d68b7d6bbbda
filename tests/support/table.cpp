// SPDX-License-Identifier: MIT
#include "support/table.hpp"

#include <algorithm>
#include <fstream>
#include <regex>
#include <stdexcept>

namespace {

// Writes "<3*text>" out.
std::string unfolded(std::string text) {
    static const std::regex repeat(R"(<([0-9]+)\*([^>]*)>)");
    for (std::smatch match; std::regex_search(text, match, repeat);) {
        std::string all;
        for (int i = std::stoi(match[1]); i > 0; --i) {
            all += match[2];
        }
        text.replace(static_cast<std::size_t>(match.position()), match[0].str().size(), all);
    }
    return text;
}

std::string plain(const std::string& side) {
    const std::string lines = std::regex_replace(side, std::regex(R"(\\n)"), "\n");
    return unfolded(std::regex_replace(lines, std::regex(R"(\\x20$)"), " "));
}

}  // namespace

std::string table_section_s::of(const std::string& left) const {
    for (const table_row_s& row : rows) {
        if (row.left == left) {
            return row.right;
        }
    }
    return {};
}

std::vector<table_section_s> readTable(const std::string& name) {
    std::ifstream file(std::string(TARNWICK_SOURCE_DIR "/tests/") + name);
    std::vector<table_section_s> sections(1);
    int number = 1;
    for (std::string line; std::getline(file, line); ++number) {
        std::vector<table_row_s>& rows = sections.back().rows;
        if (line.empty() || line[0] == '#') {
            continue;
        }
        if (line.starts_with("== ")) {
            sections.push_back({line.substr(3), {}});
        } else if (line.starts_with("    ") && !rows.empty()) {
            rows.back().right += "\n" + plain(line.substr(4));
        } else if (const std::size_t arrow = line.find(" =>"); arrow != std::string::npos) {
            rows.push_back(
                {plain(line.substr(0, arrow)), plain(line.substr(std::min(line.size(), arrow + 4)))});
        } else {
            throw std::runtime_error(name + ":" + std::to_string(number) + ": not a row: " + line);
        }
    }
    if (sections.front().rows.empty()) {
        sections.erase(sections.begin());
    }
    if (sections.empty()) {
        throw std::runtime_error(name + " holds no rows");
    }
    return sections;
}

std::vector<table_row_s> readRows(const std::string& name) {
    return readTable(name).at(0).rows;
}
