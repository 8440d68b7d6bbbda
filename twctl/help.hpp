// SPDX-License-Identifier: MIT
// Help in words for people: of an option its name, its value and its purpose, and none
// of the parser's types, checks and exclusions.
#pragma once

#include <CLI/CLI.hpp>

class help_formatter_c : public CLI::Formatter {
  public:
    std::string make_usage(const CLI::App* app, std::string name) const override;
    std::string make_option_opts(const CLI::Option* option) const override;
    std::string make_option_desc(const CLI::Option* option) const override;
};

// A value that must be one of these words.
CLI::Validator oneOf(const std::vector<std::string>& words);
