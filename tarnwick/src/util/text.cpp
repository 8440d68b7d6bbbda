// SPDX-License-Identifier: MIT
#include <algorithm>
#include <cctype>
#include <cstdarg>
#include <cstdio>
#include <sstream>

#include "util.hpp"
#include "util/characters.hpp"

namespace {

// One format's result, with its terminating NUL.
constexpr std::size_t formatBufferSize = 1000;

template <class IsDelimiter>
std::vector<std::string> splitOnRuns(std::string_view text, IsDelimiter isDelimiter) {
    std::vector<std::string> tokens;
    auto position = text.begin();
    while (true) {
        position = std::find_if_not(position, text.end(), isDelimiter);
        if (position == text.end()) {
            return tokens;
        }
        const auto end = std::find_if(position, text.end(), isDelimiter);
        tokens.emplace_back(position, end);
        position = end;
    }
}

[[gnu::format(printf, 2, 0)]] void appendFormatted(std::string* out, const char* format, va_list arguments) {
    char buffer[formatBufferSize];
    const int length = std::vsnprintf(buffer, sizeof buffer, format, arguments);
    *out += length < 0 ? "\nERROR: vsnprintf() problem.\n" : buffer;
}

}  // namespace

std::vector<std::string> tokenizeRequestByWhitespace(const std::string* request) {
    return splitOnRuns(*request, isSpace);
}

std::vector<std::string> tokenizeString(const std::string* text, char delimiter) {
    return splitOnRuns(*text, [delimiter](char character) { return character == delimiter; });
}

std::vector<std::string> split(const char* text, char delimiter) {
    std::vector<std::string> fields;
    std::istringstream stream(text);
    for (std::string field; std::getline(stream, field, delimiter);) {
        fields.push_back(field);
    }
    return fields;
}

std::vector<std::string> tokenizeCommaSeparatedString(const std::string* text) {
    return split(text->c_str(), ',');
}

std::string joinStrings(const std::vector<std::string>& items, const std::string& separator) {
    std::string joined;
    for (const std::string& item : items) {
        if (&item != &items.front()) {
            joined += separator;
        }
        joined += item;
    }
    return joined;
}

std::string removeSelectChar(const std::string& text, char unwanted) {
    std::string kept = text;
    std::erase(kept, unwanted);
    return kept;
}

void ltrim(std::string* text) {
    text->erase(std::find_if_not(text->rbegin(), text->rend(), isSpace).base(), text->end());
}

void toUpper(std::string* text) {
    for (char& character : *text) {
        character = static_cast<char>(std::toupper(static_cast<unsigned char>(character)));
    }
}

void toLower(std::string* text) {
    for (char& character : *text) {
        character = static_cast<char>(std::tolower(static_cast<unsigned char>(character)));
    }
}

bool skipWhiteSpace(const char* text, char** position) {
    while (isSpace(*text)) {
        ++text;
    }
    if (position != nullptr) {
        // As with strtol, the caller knows whether its text may be written.
        *position = const_cast<char*>(text);
    }
    return *text == '\0';
}

int getParamValue(const std::string& name, const std::vector<std::string>* tokens, std::string* value) {
    const std::string start = name + "=";
    for (const std::string& token : *tokens) {
        if (token.starts_with(start)) {
            *value = token.substr(start.size());
            return 0;
        }
    }
    return -1;
}

std::string sprintfStr(const char* format, ...) {
    std::string text;
    va_list arguments;
    va_start(arguments, format);
    appendFormatted(&text, format, arguments);
    va_end(arguments);
    return text;
}

void sprintfStr(std::string* out, const char* format, ...) {
    // Apart, since *out may be one of the arguments.
    std::string text;
    va_list arguments;
    va_start(arguments, format);
    appendFormatted(&text, format, arguments);
    va_end(arguments);
    *out = std::move(text);
}

void sprintfStrAppend(std::string* out, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    appendFormatted(out, format, arguments);
    va_end(arguments);
}
