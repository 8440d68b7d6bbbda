// SPDX-License-Identifier: MIT
// A mode request from a client: how the new mode takes the place of the old one, and the
// file that the next start begins with.
#include <iomanip>
#include <nlohmann/json.hpp>
#include <ostream>
#include <stdexcept>
#include <streambuf>

#include "apply/apply.hpp"
#include "command_words.hpp"
#include "logger.hpp"
#include "mode/language.hpp"
#include "mode/record.hpp"
#include "mode_request.hpp"
#include "radio.hpp"
#include "util.hpp"

using nlohmann::json;

namespace {

constexpr std::string_view unit = "mode_config";

// Writes the mode into the engine, and only then into `mode_configuration` and the report plan. A
// mode that the engine refuses changes neither; the engine keeps what was written, until the next
// mode sets all of it again.
int commit(const mode_configuration_s& mode, std::string* reply) {
    if (configureRXEForMode(mode, reply) != 0) {
        return -5;
    }
    copyModeConfiguration(&mode, &mode_configuration);
    publishReportPlan(mode_configuration, toldAccesses);
    return 0;
}

// Collects text up to the size that the next start reads, and throws std::length_error above it: a
// request of a few megabytes, deeply nested, would have gigabytes of indentation.
class bounded_text : public std::streambuf {
  public:
    std::string text;

  private:
    std::streamsize xsputn(const char* more, std::streamsize count) override {
        if (text.size() + static_cast<std::size_t>(count) > maxFileSize) {
            throw std::length_error("too large");
        }
        text.append(more, static_cast<std::size_t>(count));
        return count;
    }
    int_type overflow(int_type next) override {
        const char character = traits_type::to_char_type(next);
        return xsputn(&character, 1) == 1 ? next : traits_type::eof();
    }
};

// Indented by 4 for people to read, or on one line when that would be too large.
std::string fileText(const json& document) {
    bounded_text out;
    std::ostream stream(&out);
    stream.exceptions(std::ios::badbit);  // lets the exception through
    try {
        stream << std::setw(4) << document;
    } catch (const std::length_error&) {
        return document.dump();
    }
    return std::move(out.text);
}

}  // namespace

int applyModeRequest(const std::string& request, json* root, std::string* reply) {
    logInfo(unit, " Reading in Mode Request ", escaped_s{request});
    mode_configuration_s mode;
    const int refused = parseModeRequest(request, root, &mode, reply);
    return refused != 0 ? refused : commit(mode, reply);
}

// A failure is only logged: it is not in the reply, and does not count as an error.
void storeModeRequest(json&& root) {
    json document = json::object();
    document["mode"] = std::move(root);
    std::string cause;
    if (!replaceFile(modeFile, fileText(document), &cause)) {
        logUncountedError(unit, " the mode is in force, but not stored for the next start: ", cause);
    }
}

int configMode(const std::string* request, std::string* reply) {
    json root;
    const int refused = applyModeRequest(*request, &root, reply);
    if (refused == 0) {
        storeModeRequest(std::move(root));
    }
    return refused;
}

int handleModeRequest(std::vector<std::string>* tokens, std::string* reply) {
    if (tokens->size() < 2) {
        return getCurrentMode(reply, GET_CURRENT_MODE_METHOD_e::DEFAULT);
    }
    const std::string& request = (*tokens)[1];
    if (request == vocabulary::modeVerbose.name) {
        return getCurrentMode(reply, GET_CURRENT_MODE_METHOD_e::VERBOSE);
    }
    if (request == vocabulary::modeAsSet.name) {
        return getCurrentMode(reply, GET_CURRENT_MODE_METHOD_e::AS_SET);
    }
    configMode(&request, reply);
    return 0;
}
