// SPDX-License-Identifier: MIT
// Help in words for people: of an option its name, its value and its purpose, without the
// types, checks and exclusions that the parser's own help lists.
#pragma once

#include <CLI/CLI.hpp>

// The parser calls these for each program, option and description that it shows.
class help_formatter_c : public CLI::Formatter {
  public:
    // "Usage: twctl configrxe [OPTIONS] [WORDS...]" for subcommands that take words.
    std::string make_usage(const CLI::App* app, std::string name) const override;
    // The name of the value, "SECONDS"; nothing for a flag.
    std::string make_option_opts(const CLI::Option* option) const override;
    // The purpose, and the default in parentheses.
    std::string make_option_desc(const CLI::Option* option) const override;
};

// A value that must be one of these words. The sentence for another one lists them all.
CLI::Validator oneOf(const std::vector<std::string>& words);
