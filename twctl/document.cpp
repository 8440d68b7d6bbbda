// SPDX-License-Identifier: MIT
// Size, nesting and NUL are checked before the parser sees a text, since the parser recurses
// and takes a NUL for the end.
#include "document.hpp"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <nlohmann/json.hpp>
#include <string_view>

namespace {

using nlohmann::json;

// Bytes. No mode comes near it; a device or a wrong file is not read to its end.
constexpr std::size_t mostBytes = 4U << 20;

// Arrays and objects inside one another, counted from the outermost.
constexpr int deepestNesting = 255;

struct file_closer_s {
    void operator()(std::FILE* file) const {
        if (file != stdin) {
            std::fclose(file);
        }
    }
};

bool isBlank(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}

// Calls visit(c, inString) for each character; a quotation mark counts as part
// of its string.
template <class Visit>
void walkJson(std::string_view source, Visit visit) {
    bool inString = false, escaped = false;
    for (const char c : source) {
        const bool quote = c == '"' && !escaped;
        visit(c, inString || quote);
        inString ^= quote;
        escaped = inString && c == '\\' && !escaped;
    }
}

// How many arrays and objects are inside one another, at most. Brackets in strings do not
// count; closing ones without an opening one make the text bad, which the parser finds.
int nestingOf(std::string_view source) {
    int depth = 0, deepest = 0;
    walkJson(source, [&](char c, bool inString) {
        if (!inString && (c == '[' || c == '{')) {
            deepest = std::max(deepest, ++depth);
        } else if (!inString && (c == ']' || c == '}')) {
            --depth;
        }
    });
    return deepest;
}

}  // namespace

bool readDocument(const std::string& source, std::string_view inlineName, document_s* document) {
    if (source.starts_with('{')) {
        *document = {std::string(inlineName), source};
        return true;
    }
    const bool standardInput = source == "-";
    document->name = standardInput ? "standard input" : source;
    const std::unique_ptr<std::FILE, file_closer_s> file(standardInput ? stdin
                                                                       : std::fopen(source.c_str(), "rb"));
    char buffer[65536];
    std::size_t size = 0;
    while (file && document->text.size() <= mostBytes &&
           (size = std::fread(buffer, 1, sizeof buffer, file.get())) > 0) {
        document->text.append(buffer, size);
    }
    if (!file || std::ferror(file.get()) != 0) {
        std::fprintf(stderr, "twctl: %s: %s\n", document->name.c_str(), std::strerror(errno));
        return false;
    }
    return true;
}

bool isObject(const std::string& text, json* root, std::string* reason) {
    if (text.size() > mostBytes) {
        *reason = "larger than " + std::to_string(mostBytes >> 20) + " MiB";
        return false;
    }
    if (nestingOf(text) > deepestNesting) {  // before the parser, which would go as deep
        *reason = "nested deeper than " + std::to_string(deepestNesting) + " levels";
        return false;
    }
    if (text.find('\0') != text.npos) {  // the end of the text, for the parser
        *reason = "not JSON: it holds a NUL";
        return false;
    }
    try {
        *root = json::parse(text);
    } catch (const json::exception& error) {
        const std::string_view what = error.what();  // "[json.exception.parse_error.101] parse error at ..."
        *reason = "not JSON: " + std::string(what.substr(std::min(what.find("] ") + 2, what.size())));
        return false;
    }
    if (!root->is_object()) {
        *reason = "JSON, but not an object";
        return false;
    }
    return true;
}

std::string withoutComments(std::string text) {
    bool inString = false;
    for (std::size_t at = 0; at < text.size(); ++at) {
        const std::string_view rest = std::string_view(text).substr(at);
        if (inString && text[at] == '\\') {
            ++at;  // what follows does not end the string
        } else if (text[at] == '"') {
            inString = !inString;
        } else if (!inString && (rest.starts_with("//") || rest.starts_with("/*"))) {
            const std::string_view end = rest[1] == '/' ? "\n" : "*/";
            const std::size_t found = rest.find(end, 2);
            if (found == rest.npos && rest[1] == '*') {
                break;  // what has no end is left to the parser, which refuses it
            }
            const std::size_t size = found == rest.npos ? rest.size() : found + end.size();
            std::replace_if(
                text.begin() + static_cast<std::ptrdiff_t>(at),
                text.begin() + static_cast<std::ptrdiff_t>(at + size), [](char c) { return c != '\n'; }, ' ');
            at += size - 1;
        }
    }
    return text;
}

std::string packed(const std::string& text) {
    std::string word;
    walkJson(text, [&](char c, bool inString) {
        if (inString && c == ' ') {
            word += "\\u0020";
        } else if (inString || !isBlank(c)) {
            word += c;
        }
    });
    return word;
}
