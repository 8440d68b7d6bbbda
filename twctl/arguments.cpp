// SPDX-License-Identifier: MIT
// Behind the first word of a request the parser (CLI11) takes everything for words: of "twctl
// start sim 5 --timeout 1" the daemon would get the option too. So the arguments are put in
// order before the parser sees them.
#include "arguments.hpp"

#include <algorithm>
#include <cctype>

namespace {

using words_t = std::vector<std::string>;

// "-5" and "-.5" are numbers, and "-" is standard input.
bool isOption(const std::string& word) {
    const bool isNumber =
        word.size() > 1 && (std::isdigit(static_cast<unsigned char>(word[1])) != 0 || word[1] == '.');
    return word.size() > 1 && word.front() == '-' && !isNumber;
}

// The option of this program or subcommand that "--name" or "--name=value" means, or null.
const CLI::Option* optionOf(const CLI::App& app, const std::string& word) {
    return app.get_option_no_throw(word.substr(0, word.find('=')));
}

// Whether the word behind this one is the option's value.
bool takesNext(const CLI::Option& option, const std::string& word) {
    return option.get_items_expected_max() > 0 && word.find('=') == word.npos;
}

// An option of this name of any subcommand, before it is known which one it is.
const CLI::Option* optionOfAny(const CLI::App& app, const std::string& word) {
    for (const CLI::App* sub : app.get_subcommands(nullptr)) {
        if (const CLI::Option* option = optionOf(*sub, word); option != nullptr) {
            return option;
        }
    }
    return nullptr;
}

// The index of the subcommand: the first word that is neither an option nor the value of one.
// The size of the list when there is none.
std::size_t findSubcommand(const CLI::App& app, const words_t& typed) {
    for (std::size_t i = 0; i < typed.size(); ++i) {
        if (!isOption(typed[i])) {
            return i;
        }
        const CLI::Option* option = optionOfAny(app, typed[i]);
        if (option == nullptr && optionOf(app, typed[i]) == nullptr) {
            throw CLI::ValidationError(typed[i], "there is no such option");
        }
        i += option != nullptr && takesNext(*option, typed[i]) ? 1 : 0;
    }
    return typed.size();
}

}  // namespace

words_t arrangeArguments(const CLI::App& app, const words_t& typed, words_t* words) {
    const std::size_t place = findSubcommand(app, typed);
    const auto subs = app.get_subcommands(nullptr);
    const auto sub = std::ranges::find_if(
        subs, [&](const CLI::App* each) { return place < typed.size() && each->get_name() == typed[place]; });
    if (sub == subs.end()) {
        if (place < typed.size()) {
            throw CLI::ValidationError(typed[place], "there is no such subcommand");
        }
        return typed;
    }
    words_t arranged{typed[place]}, others;
    bool onlyWords = false;
    for (std::size_t i = 0; i < typed.size(); ++i) {
        const std::string& word = typed[i];
        const CLI::Option* option = onlyWords || !isOption(word) ? nullptr : optionOf(**sub, word);
        if (option != nullptr) {
            arranged.push_back(word);
            if (takesNext(*option, word) && i + 1 < typed.size()) {
                arranged.push_back(typed[++i]);
            }
        } else if (!onlyWords && word == "--") {
            onlyWords = true;
        } else if (!onlyWords && isOption(word)) {
            throw CLI::ValidationError(word, "there is no such option of \"" + (*sub)->get_name() + "\"");
        } else if (i != place) {
            others.push_back(word);
        }
    }
    if ((*sub)->get_prefix_command()) {
        *words = others;
        return arranged;
    }
    // A word that begins with "-" reached `others` behind "--" only, and needs it again.
    if (std::ranges::any_of(others, isOption)) {
        arranged.emplace_back("--");
    }
    arranged.insert(arranged.end(), others.begin(), others.end());
    return arranged;
}
