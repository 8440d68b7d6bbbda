// SPDX-License-Identifier: MIT
#include "reply.hpp"

#include <libxml/tree.h>
#include <libxml/xmlsave.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <memory>
#include <optional>

#include "names.hpp"

namespace {

struct free_doc_s {
    void operator()(xmlDoc* doc) const { xmlFreeDoc(doc); }
};
struct free_buffer_s {
    void operator()(xmlBuffer* buffer) const { xmlBufferFree(buffer); }
};

// What a client gets for each problem; README.md has the same table.
struct error_s {
    problem_e problem;
    int resultCode;
    const char* name;
    int customCode;
};

constexpr std::array errors{
    error_s{problem_e::malformed, 1, "ERROR_MALFORMED_COMMAND", 101},
    error_s{problem_e::tooLong, 1, "ERROR_COMMAND_TOO_LONG", 102},
    error_s{problem_e::unknownCommand, 2, "ERROR_COMMAND_NOT_SUPPORTED", 201},
    error_s{problem_e::badTarget, 3, "ERROR_OBJECT_NOT_FOUND", 301},
    error_s{problem_e::badRegion, 4, "ERROR_INVALID_VALUE", 401},
    error_s{problem_e::unsupported, 4, "ERROR_VALUE_NOT_SUPPORTED", 402},
};

// The result code of the faults result-code and bare-error.
constexpr int faultResultCode = 5;

// libxml2 has its own type for UTF-8.
const xmlChar* xmlText(const char* text) {
    return reinterpret_cast<const xmlChar*>(text);
}

// A reply under construction. `doc` owns the node and the namespaces.
struct reply_s {
    std::unique_ptr<xmlDoc, free_doc_s> doc;
    xmlNode* root;
    xmlNs* standard;
    xmlNs* extension;
};

// <rm:reply> with both namespaces and <rm:id>.
reply_s newReply(int id) {
    reply_s reply{std::unique_ptr<xmlDoc, free_doc_s>(xmlNewDoc(xmlText("1.0"))), nullptr, nullptr, nullptr};
    reply.root = xmlNewDocNode(reply.doc.get(), nullptr, xmlText("reply"), nullptr);
    xmlDocSetRootElement(reply.doc.get(), reply.root);
    reply.standard = xmlNewNs(reply.root, xmlText(standardUri.data()), xmlText("rm"));
    reply.extension = xmlNewNs(reply.root, xmlText(extensionUri.data()), xmlText("brixrm"));
    xmlSetNs(reply.root, reply.standard);
    xmlNewTextChild(reply.root, reply.standard, xmlText("id"), xmlText(std::to_string(id).c_str()));
    return reply;
}

void addResultCode(const reply_s& reply, int code) {
    xmlNewTextChild(reply.root, reply.standard, xmlText("resultCode"), xmlText(std::to_string(code).c_str()));
}

// <rm:error> with name, description and custom code.
void addError(const reply_s& reply, const char* name, const std::string& description, int customCode) {
    xmlNode* error = xmlNewChild(reply.root, reply.standard, xmlText("error"), nullptr);
    xmlNewTextChild(error, reply.standard, xmlText("name"), xmlText(name));
    xmlNewTextChild(error, reply.standard, xmlText("description"), xmlText(description.c_str()));
    xmlNewTextChild(error, reply.extension, xmlText("customErrorCode"),
                    xmlText(std::to_string(customCode).c_str()));
}

// Without a declaration and without line ends, which libxml2 puts at the end.
std::string serialise(const reply_s& reply) {
    const std::unique_ptr<xmlBuffer, free_buffer_s> buffer(xmlBufferCreate());
    xmlSaveCtxt* saving = xmlSaveToBuffer(buffer.get(), "UTF-8", XML_SAVE_NO_DECL);
    xmlSaveDoc(saving, reply.doc.get());
    xmlSaveClose(saving);
    std::string text(reinterpret_cast<const char*>(xmlBufferContent(buffer.get())));
    std::erase(text, '\n');
    return text;
}

// "500" for 500.0, "600.5" for 600.5: the client reads a float either way.
std::string numberText(double number) {
    std::array<char, 32> text{};
    const auto end = std::to_chars(text.data(), text.data() + text.size(), number).ptr;
    return {text.data(), end};
}

// Index of the antenna that the target names: "Read Point 3" has index 2. Nothing for any other
// text, and for an antenna that the reader does not have.
std::optional<std::size_t> antennaIndex(const request_s& request, const profile_s& profile) {
    constexpr std::string_view prefix = "Read Point ";
    if (!std::string_view(request.targetName).starts_with(prefix)) {
        return std::nullopt;
    }
    const auto digits = std::string_view(request.targetName).substr(prefix.size());
    std::size_t antenna = 0;
    const auto read = std::from_chars(digits.data(), digits.data() + digits.size(), antenna);
    if (read.ec != std::errc() || read.ptr != digits.data() + digits.size() || antenna == 0 ||
        antenna > profile.cables.size()) {
        return std::nullopt;
    }
    return antenna - 1;
}

struct value_s {
    std::string name;
    std::string text;
};

// A command: its device, the elements between the command and its values ("" or "a/b"), its
// values, and the check of a request.
struct command_s {
    std::string_view name;
    device_e device;
    std::string_view path;
    std::vector<value_s> (*values)(const request_s&, const profile_s&);
    std::optional<problem_e> (*check)(const request_s&, const profile_s&);
};

std::optional<problem_e> noCheck(const request_s&, const profile_s&) {
    return std::nullopt;
}

// The server knows the standards of the active region only, and not their channels.
std::optional<problem_e> checkRegion(const request_s& request, const profile_s& profile) {
    if (request.wantsChannels) {
        return problem_e::unsupported;
    }
    return request.regionName == profile.regionName ? std::nullopt : std::optional(problem_e::badRegion);
}

std::optional<problem_e> checkAntenna(const request_s& request, const profile_s& profile) {
    return antennaIndex(request, profile).has_value() ? std::nullopt : std::optional(problem_e::badTarget);
}

const command_s commands[] = {
    {"getModel", device_e::readerDevice, "",
     [](const request_s&, const profile_s& p) -> std::vector<value_s> {
         return {{"returnValue", p.model}};
     },
     noCheck},
    {"getActiveRegion", device_e::readerDevice, "returnValue",
     [](const request_s&, const profile_s& p) -> std::vector<value_s> {
         return {{"regionName", p.regionName}, {"standardName", p.standardName}};
     },
     noCheck},
    {"getRegionStandardList", device_e::readerDevice, "returnValue/list/value",
     [](const request_s&, const profile_s& p) -> std::vector<value_s> {
         return {{"standardName", p.standardName}, {"channelWidth", numberText(p.channelWidth)}};
     },
     checkRegion},
    {"getReaderDetails", device_e::readerDevice, "",
     [](const request_s&, const profile_s& p) -> std::vector<value_s> {
         return {{"HostName", p.hostName},
                 {"NumPorts", std::to_string(p.ports)},
                 {"maxTxPowerSupported", std::to_string(p.maxTxPower)},
                 {"PowerSource", std::to_string(p.powerSource)}};
     },
     noCheck},
    {"getCableLossCompensation", device_e::antennaReadPoint, "",
     [](const request_s& request, const profile_s& p) -> std::vector<value_s> {
         const auto& cable = p.cables[antennaIndex(request, p).value_or(0)];
         return {{"cableLossPerHundredFt", std::to_string(cable.lossPerHundredFt)},
                 {"cableLength", std::to_string(cable.length)}};
     },
     checkAntenna},
};

xmlNode* addElement(const reply_s& reply, xmlNode* parent, std::string_view name) {
    return xmlNewChild(parent, reply.extension, xmlText(std::string(name).c_str()), nullptr);
}

// Adds device, command and the elements of its path, each below the one before; returns the
// innermost.
xmlNode* addPath(const reply_s& reply, const command_s& command) {
    auto* node = addElement(reply, reply.root,
                            command.device == device_e::readerDevice ? "readerDevice" : "antennaReadPoint");
    node = addElement(reply, node, command.name);
    for (auto path = command.path; !path.empty();) {
        const auto slash = path.find('/');
        node = addElement(reply, node, path.substr(0, slash));
        path = slash == std::string_view::npos ? std::string_view() : path.substr(slash + 1);
    }
    return node;
}

// Adds the values below `parent`; missing-value and double-value take effect here.
void addValues(const reply_s& reply, xmlNode* parent, const std::vector<value_s>& values, fault_e fault,
               std::string_view faultValue) {
    for (const auto& value : values) {
        const bool isHit = faultValue.empty() || faultValue == value.name;
        if (isHit && fault == fault_e::missingValue) {
            continue;
        }
        if (isHit && fault == fault_e::doubleValue) {
            xmlNewTextChild(parent, reply.extension, xmlText(value.name.c_str()), xmlText("0"));
        }
        xmlNewTextChild(parent, reply.extension, xmlText(value.name.c_str()), xmlText(value.text.c_str()));
    }
}

}  // namespace

std::string makeErrorReply(int id, problem_e problem, std::string_view description) {
    const auto* const error = std::ranges::find(errors, problem, &error_s::problem);
    const auto reply = newReply(id);
    addResultCode(reply, error->resultCode);
    addError(reply, error->name, std::string(description), error->customCode);
    return serialise(reply);
}

std::string makeReply(const request_s& request, const profile_s& profile, fault_e fault,
                      std::string_view faultValue) {
    const auto* const command = std::ranges::find_if(commands, [&request](const auto& row) {
        return row.name == request.command && row.device == request.device;
    });
    if (command == std::end(commands)) {
        return makeErrorReply(request.id, problem_e::unknownCommand, "no such command of this device");
    }
    if (const auto problem = command->check(request, profile)) {
        return makeErrorReply(request.id, *problem, "the command's target or value is not there");
    }
    const auto reply = newReply(request.id);
    // The values follow in any case: a client must look at the result code.
    const bool isError = fault == fault_e::resultCode || fault == fault_e::bareError;
    if (fault != fault_e::missingResultCode) {
        addResultCode(reply, isError ? faultResultCode : 0);
    }
    if (fault == fault_e::resultCode) {
        addError(reply, "ERROR_UNKNOWN", "failing on request", 501);
    } else if (fault == fault_e::bareError) {
        xmlNewChild(reply.root, reply.standard, xmlText("error"), nullptr);
    }
    addValues(reply, addPath(reply, *command), command->values(request, profile), fault, faultValue);
    return serialise(reply);
}
