// SPDX-License-Identifier: MIT
#include "request.hpp"

#include <libxml/parser.h>
#include <libxml/tree.h>

#include <charconv>
#include <memory>

#include "names.hpp"

namespace {

struct free_doc_s {
    void operator()(xmlDoc* doc) const { xmlFreeDoc(doc); }
};
struct free_text_s {
    void operator()(xmlChar* text) const { xmlFree(text); }
};

// The name without its prefix.
std::string_view localName(const xmlNode* node) {
    return reinterpret_cast<const char*>(node->name);
}

// Whether the element is in the namespace.
bool isIn(const xmlNode* node, std::string_view uri) {
    return node->ns != nullptr && node->ns->href != nullptr &&
           uri == reinterpret_cast<const char*>(node->ns->href);
}

// The text of the element and of all elements in it.
std::string textOf(const xmlNode* node) {
    const std::unique_ptr<xmlChar, free_text_s> text(xmlNodeGetContent(node));
    return text == nullptr ? std::string() : std::string(reinterpret_cast<const char*>(text.get()));
}

// The first element from `node` on among its siblings; blanks and comments are skipped.
const xmlNode* firstElement(const xmlNode* node) {
    while (node != nullptr && node->type != XML_ELEMENT_NODE) {
        node = node->next;
    }
    return node;
}

// A decimal integer, without blanks.
bool readId(const xmlNode* node, request_s* request) {
    const auto text = textOf(node);
    const auto* const end = text.data() + text.size();
    const auto read = std::from_chars(text.data(), end, request->id);
    return read.ec == std::errc() && read.ptr == end;
}

// The command is the device node's one child that is not the session.
bool readCommand(const xmlNode* device, request_s* request, std::string* error) {
    for (const auto* node = firstElement(device->children); node != nullptr;
         node = firstElement(node->next)) {
        if (localName(node) == "sessionID") {
            continue;
        }
        if (!isIn(node, extensionUri) || !request->command.empty()) {
            *error = "a device element holds one command of the extension";
            return false;
        }
        request->command = localName(node);
        for (const auto* child = firstElement(node->children); child != nullptr;
             child = firstElement(child->next)) {
            if (localName(child) == "regionName") {
                request->regionName = textOf(child);
            } else if (localName(child) == "requestChannelList") {
                request->wantsChannels = textOf(child) == "true";
            }
        }
    }
    if (request->command.empty()) {
        *error = "no command in the device element";
        return false;
    }
    return true;
}

// The device element and the command in it.
bool readDevice(const xmlNode* node, request_s* request, std::string* error) {
    if (localName(node) == "readerDevice") {
        request->device = device_e::readerDevice;
    } else if (localName(node) == "antennaReadPoint") {
        request->device = device_e::antennaReadPoint;
    } else {
        *error = "unknown device element";
        return false;
    }
    return readCommand(node, request, error);
}

}  // namespace

std::size_t requestLength(std::string_view received) {
    constexpr std::string_view marker = "command>";
    for (auto at = received.find(marker); at != std::string_view::npos; at = received.find(marker, at + 1)) {
        const auto open = received.substr(0, at).rfind('<');
        if (open == std::string_view::npos || received.substr(open, 2) != "</") {
            continue;
        }
        // Only a prefix may precede the word: "</rm:command>" ends a request, "</rm:subcommand>" does
        // not.
        const auto prefix = received.substr(open + 2, at - open - 2);
        if (prefix.empty() || prefix.back() == ':') {
            return at + marker.size();
        }
    }
    return 0;
}

std::optional<request_s> parseRequest(std::string_view text, std::string* error) {
    constexpr int options = XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING;
    const std::unique_ptr<xmlDoc, free_doc_s> doc(
        xmlReadMemory(text.data(), static_cast<int>(text.size()), nullptr, nullptr, options));
    const xmlNode* root = doc == nullptr ? nullptr : xmlDocGetRootElement(doc.get());
    if (root == nullptr) {
        *error = "not well-formed XML";
        return std::nullopt;
    }
    // A document type could define entities that expand without limit, and no client sends one.
    if (xmlGetIntSubset(doc.get()) != nullptr) {
        *error = "a document type is not accepted";
        return std::nullopt;
    }
    if (localName(root) != "command" || !isIn(root, standardUri)) {
        *error = "the root is not a command";
        return std::nullopt;
    }
    request_s request;
    bool hasDevice = false;
    for (const auto* node = firstElement(root->children); node != nullptr; node = firstElement(node->next)) {
        if (isIn(node, standardUri) && localName(node) == "id") {
            if (!readId(node, &request)) {
                *error = "the id is not a number";
                return std::nullopt;
            }
        } else if (isIn(node, standardUri) && localName(node) == "targetName") {
            request.targetName = textOf(node);
        } else if (isIn(node, extensionUri) && !hasDevice) {
            hasDevice = true;
            if (!readDevice(node, &request, error)) {
                return std::nullopt;
            }
        } else {
            *error = "an element that a command does not have";
            return std::nullopt;
        }
    }
    if (!hasDevice) {
        *error = "no device element of the extension";
        return std::nullopt;
    }
    return request;
}
