// SPDX-License-Identifier: MIT
// Changes of the parser's own formatter, whose texts show types and checks to people.
#include "help.hpp"

#include <algorithm>

// The words of a request are not options and not positionals to the parser.
std::string help_formatter_c::make_usage(const CLI::App* app, std::string name) const {
    return app->get_prefix_command() ? "Usage: twctl " + app->get_name() + " [OPTIONS] [WORDS...]\n"
                                     : CLI::Formatter::make_usage(app, name);
}

// Without a value's type there is nothing to show: a positional has its name already.
std::string help_formatter_c::make_option_opts(const CLI::Option* option) const {
    const std::string type = option->get_type_name();  // and the checks, behind a colon
    return option->get_positional() || option->get_type_size() == 0 ? ""
                                                                    : " " + type.substr(0, type.find(':'));
}

std::string help_formatter_c::make_option_desc(const CLI::Option* option) const {
    const std::string usual = option->get_default_str();
    return option->get_description() + (usual.empty() ? "" : " (default: " + usual + ")");
}

CLI::Validator oneOf(const std::vector<std::string>& words) {
    return CLI::Validator(
        [words](std::string& text) {
            std::string list;
            for (const std::string& word : words) {
                list += (list.empty() ? "" : ", ") + word;
            }
            const bool known = std::ranges::find(words, text) != words.end();
            return known ? std::string() : "\"" + text + "\" is not valid; use " + list;
        },
        "");
}
