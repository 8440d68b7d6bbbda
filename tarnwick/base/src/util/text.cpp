// SPDX-License-Identifier: MIT
#include <algorithm>
#include <cctype>
#include <cstdarg>
#include <cstdio>
#include <sstream>

#include "util.hpp"
#include "util/characters.hpp"

namespace {

// Bytes of a formatted text with its terminating NUL. Quirk: a longer text is cut without a note.
constexpr std::size_t formatBufferSize = 1000;

// The parts between runs of delimiters; a run at either end does not give an empty part.
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

// Bytes of the printable character at the beginning of a text, in UTF-8 (RFC 3629); 0 for a control
// character and for bytes that are not UTF-8.
std::size_t printableLength(std::string_view text) {
    const auto byteAt = [text](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned char first = byteAt(0);
    if (first < 0x80) {
        return first >= ' ' && first != 0x7F ? 1 : 0;
    }
    const std::size_t size = first < 0xE0 ? 2 : first < 0xF0 ? 3 : 4;
    if (first < 0xC0 || first > 0xF7 || text.size() < size) {
        return 0;
    }
    std::uint32_t code = first & (0x7FU >> size);
    for (std::size_t i = 1; i < size; ++i) {
        if ((byteAt(i) & 0xC0) != 0x80) {
            return 0;
        }
        code = code << 6 | (byteAt(i) & 0x3FU);
    }
    // The lowest code by size. Codes below U+00A0 are control characters; below the others the form is
    // longer than it must be, which UTF-8 does not allow.
    constexpr std::uint32_t lowest[] = {0, 0, 0xA0, 0x800, 0x10000};
    const bool isSurrogate = code >= 0xD800 && code <= 0xDFFF;
    return code < lowest[size] || isSurrogate || code > 0x10FFFF ? 0 : size;
}

std::string escapeOf(char byte) {
    switch (byte) {
        case '\n':
            return "\\n";
        case '\r':
            return "\\r";
        case '\t':
            return "\\t";
        default:
            return "\\x" + hexStr({static_cast<std::uint8_t>(byte)}, 1);
    }
}

}  // namespace

void appendPrintable(std::string_view text, std::size_t limit, std::string* out) {
    const std::size_t end = out->size() + limit;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t length = printableLength(text.substr(at));
        const std::string escape = length == 0 ? escapeOf(text[at]) : "";
        const std::string_view next = length == 0 ? escape : text.substr(at, length);
        if (out->size() + next.size() > end) {
            appendCutNote(text.size(), out);
            return;
        }
        *out += next;
        at += std::max<std::size_t>(length, 1);
    }
}

void appendCutNote(std::size_t size, std::string* out) {
    *out += "... (cut, " + std::to_string(size) + " bytes in all)";
}

std::vector<std::string> tokenizeRequestByWhitespace(const std::string* request) {
    return splitOnRuns(*request, isSpace);
}

std::vector<std::string> tokenizeRequest(std::string* request) {
    return tokenizeRequestByWhitespace(request);
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
    // Formatted into a string of its own, since *out may be one of the arguments.
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
