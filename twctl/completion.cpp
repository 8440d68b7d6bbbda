// SPDX-License-Identifier: MIT
// Candidates come from two places: subcommands and options from the parser, words from the
// rules of words.hpp.
#include "completion.hpp"

#include <algorithm>

#include "words.hpp"

namespace {

// Without "complete" itself, which is hidden.
std::vector<std::string> subcommandNames(const CLI::App& app) {
    std::vector<std::string> names;
    for (const CLI::App* sub : app.get_subcommands(nullptr)) {
        if (!sub->get_group().empty()) {  // an empty group hides
            names.push_back(sub->get_name());
        }
    }
    return names;
}

const CLI::App* subcommandOf(const CLI::App& app, const std::string& name) {
    const auto found = app.get_subcommands([&](const CLI::App* sub) { return sub->get_name() == name; });
    return found.empty() ? nullptr : found.front();
}

std::vector<std::string> optionNames(const CLI::App& app) {
    std::vector<std::string> names;
    for (const CLI::Option* option : app.get_options()) {
        for (const std::string& name : option->get_lnames()) {
            names.push_back("--" + name);
        }
    }
    return names;
}

// Whether the word is an option whose value is the next word.
bool takesValue(const CLI::App& sub, const std::string& word) {
    const CLI::Option* option = word.starts_with("--") ? sub.get_option_no_throw(word) : nullptr;
    return option != nullptr && option->get_items_expected_max() > 0;
}

// The candidates behind a subcommand. `words` begin with its name and are complete; there are
// none where an option's value is to come.
std::vector<std::string> candidatesFor(const CLI::App& sub, const std::vector<std::string>& words,
                                       std::string_view unfinished) {
    if (takesValue(sub, words.back())) {
        return {};
    }
    if (unfinished.starts_with('-')) {
        return optionNames(sub);
    }
    std::vector<std::string> plain;
    for (std::size_t i = 0; i < words.size(); ++i) {
        if (takesValue(sub, words[i])) {
            ++i;  // its value
        } else if (!words[i].starts_with('-')) {
            plain.push_back(words[i]);
        }
    }
    return completionsAfter(plain);
}

}  // namespace

// A word that is still being typed (no blank behind it) only filters the candidates.
std::vector<std::string> completeLine(const CLI::App& app, std::string_view line) {
    std::vector<std::string> words = splitWords(line);
    std::string unfinished;
    if (!words.empty() && !line.ends_with(' ')) {
        unfinished = words.back();
        words.pop_back();
    }
    if (words.empty()) {
        return {};
    }
    words.erase(words.begin());  // "twctl"
    const CLI::App* sub = words.empty() ? nullptr : subcommandOf(app, words.front());
    std::vector<std::string> candidates = sub != nullptr   ? candidatesFor(*sub, words, unfinished)
                                          : !words.empty() ? std::vector<std::string>{}
                                          : unfinished.starts_with('-') ? optionNames(app)
                                                                        : subcommandNames(app);
    std::erase_if(candidates, [&](const std::string& text) { return !text.starts_with(unfinished); });
    return candidates;
}
