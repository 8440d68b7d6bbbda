// SPDX-License-Identifier: MIT
#include "config.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <set>
#include <sstream>

#include "event.hpp"
#include "http/access.hpp"
#include "http/connection.hpp"
#include "sink.hpp"
#include "twctl/schema.hpp"
#include "twctl/sockets.hpp"

extern const char* const configSchemaText;

namespace {

using nlohmann::json;
using lines_t = std::vector<std::string>;

constexpr std::size_t largestFile = 16UL << 20;  // bytes
constexpr std::size_t longestIpcPath = 107;      // bytes, of sockaddr_un

// A regular file of up to 16 MiB. Nothing, with the reason, when it cannot be read.
std::optional<std::string> readWhole(const std::string& file, struct stat* status, std::string* error) {
    const descriptor_s open{::open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK)};
    std::string text;
    if (open.fd < 0 || fstat(open.fd, status) != 0) {
        *error = std::strerror(errno);
        return std::nullopt;
    }
    if (!S_ISREG(status->st_mode) || status->st_size > static_cast<off_t>(largestFile)) {
        *error = "not a regular file of up to 16 MiB";
        return std::nullopt;
    }
    text.resize(static_cast<std::size_t>(status->st_size));
    const ssize_t got = read(open.fd, text.data(), text.size());
    if (got < 0) {
        *error = std::strerror(errno);
        return std::nullopt;
    }
    text.resize(static_cast<std::size_t>(got));
    return text;
}

// Nothing, with the reason, when the file cannot be read or is open to every user.
std::optional<std::string> readSecretText(const std::string& file, std::string* error) {
    struct stat status {};
    std::optional<std::string> text = readWhole(file, &status, error);
    if (text && (status.st_mode & S_IROTH) != 0) {
        *error = "every user may read it; use chmod o= on it";
        return std::nullopt;
    }
    return text;
}

// The value of a checked document, or the default.
template <class Value>
void take(const json& object, const char* key, Value* value) {
    if (const auto member = object.find(key); member != object.end()) {
        member->get_to(*value);
    }
}

source_config_s sourceOf(const json& object, const std::string& reader) {
    source_config_s source{.reader = reader, .tags = {}, .events = {}};
    take(object, "tags", &source.tags);
    take(object, "events", &source.events);
    take(object, "requests", &source.requests);
    return source;
}

std::string placeOf(const char* list, std::size_t index) {
    return std::string(list) + "[" + std::to_string(index) + "]";
}

// "reader" and "source", or "sources".
void takeSources(const json& document, config_s* config, lines_t* mistakes) {
    if (document.contains("source") == document.contains("sources")) {
        mistakes->emplace_back("either source or sources is needed, and not both");
        return;
    }
    if (document.contains("sources") && document.contains("reader")) {
        mistakes->emplace_back("reader: is only for source; sources have names");
    }
    if (document.contains("source") && !document.contains("reader")) {
        mistakes->emplace_back("reader: is needed beside source");
    }
    if (document.contains("source")) {
        config->sources.push_back(sourceOf(document["source"], document.value("reader", "")));
    } else {
        for (const json& object : document["sources"]) {
            config->sources.push_back(sourceOf(object, object["name"]));
        }
    }
}

// Follows the parser to tell keys that an object has twice: of them the parser keeps the last.
class key_watch_c {
  public:
    explicit key_watch_c(lines_t* mistakeList) : mistakes(mistakeList) {}
    void take(json::parse_event_t event, const json& value) {
        using event_e = json::parse_event_t;
        const bool begins = event == event_e::object_start || event == event_e::array_start;
        if ((begins || event == event_e::value) && !levels.empty() && levels.back().isArray) {
            ++levels.back().count;
        }
        if (begins) {
            levels.push_back({.isArray = event == event_e::array_start});
        } else if (event == event_e::key) {
            level_s& level = levels.back();
            level.key = value.get<std::string>();
            if (!level.seen.insert(level.key).second) {
                mistakes->push_back(place() + ": is there twice");
            }
        } else if (event != event_e::value) {
            levels.pop_back();
        }
    }

  private:
    struct level_s {
        bool isArray = false;
        std::size_t count = 0;  // of the array's values so far
        std::string key{};      // of the object, the last one
        std::set<std::string> seen{};
    };
    std::string place() const {
        std::string text;
        for (const level_s& level : levels) {
            text += level.isArray ? "[" + std::to_string(level.count - 1) + "]"
                                  : (text.empty() ? "" : ".") + level.key;
        }
        return text;
    }

    std::vector<level_s> levels;
    lines_t* mistakes;
};

// Endpoints and names are used once.
class uniqueness_c {
  public:
    explicit uniqueness_c(lines_t* mistakeList) : mistakes(mistakeList) {}
    void add(const std::string& value, const std::string& place) {
        if (!value.empty() && !seen.insert(value).second) {
            mistakes->push_back(place + ": " + json(value).dump() + " is used twice");
        }
    }

  private:
    std::set<std::string> seen;
    lines_t* mistakes;
};

void checkIpcPath(const std::string& endpoint, const std::string& place, lines_t* mistakes) {
    const std::optional<std::string> file = ipcFile(endpoint);
    if (file && file->size() > longestIpcPath) {
        mistakes->push_back(place + ": the path is longer than " + std::to_string(longestIpcPath) + " bytes");
    }
}

void checkSources(const config_s& config, const json& document, lines_t* mistakes) {
    uniqueness_c names(mistakes), endpoints(mistakes);
    for (std::size_t i = 0; i < config.sources.size(); ++i) {
        const source_config_s& source = config.sources[i];
        const std::string place = document.contains("source") ? "source" : placeOf("sources", i);
        names.add(source.reader, place + ".name");
        endpoints.add(source.tags, place + ".tags");
        endpoints.add(source.events, place + ".events");
        checkIpcPath(source.tags, place + ".tags", mistakes);
        checkIpcPath(source.events, place + ".events", mistakes);
        checkIpcPath(source.requests, place + ".requests", mistakes);
        if (source.tags.empty() && source.events.empty()) {
            mistakes->push_back(place + ": tags or events is needed");
        }
    }
    endpoints.add(config.status, "status");
}

// Whether files can be made in `folder`; one mistake when not.
void checkFolder(const std::filesystem::path& folder, const std::string& place, lines_t* mistakes) {
    std::error_code ignored;
    if (!std::filesystem::is_directory(folder, ignored)) {
        mistakes->push_back(place + ": " + folder.string() + " is not a folder");
    } else if (access(folder.c_str(), W_OK | X_OK) != 0) {
        mistakes->push_back(place + ": " + folder.string() + ": " + std::strerror(errno));
    }
}

void takeSpool(const json& object, spool_config_s* spool) {
    take(object, "directory", &spool->directory);
    take(object, "maxEvents", &spool->maxEvents);
    take(object, "maxBytes", &spool->maxBytes);
    take(object, "maxAge", &spool->maxAge);
    spool->syncFull = object.value("sync", "normal") == "full";
}

void checkSpool(const spool_config_s& spool, lines_t* mistakes) {
    std::error_code ignored;
    const std::filesystem::path directory = spool.directory;
    const bool exists = std::filesystem::exists(directory, ignored);
    checkFolder(exists ? directory : directory.parent_path(), "spool.directory", mistakes);
}

// Seconds, or decibels in 256ths, as whole numbers.
std::int64_t scaled(const json& object, const char* key, double scale, std::int64_t otherwise) {
    return object.contains(key) ? std::llround(object[key].get<double>() * scale) : otherwise;
}

presence_rules_s presenceOf(const json& object) {
    constexpr double microseconds = 1e6;
    presence_rules_s rules;
    rules.departAfter = scaled(object, "departAfter", microseconds, rules.departAfter);
    rules.antenna.margin =
        static_cast<int>(scaled(object, "moveMargin", levelsPerDecibel, rules.antenna.margin));
    rules.antenna.holdOff = scaled(object, "moveHoldOff", microseconds, rules.antenna.holdOff);
    take(object, "maxTags", &rules.maxTags);
    return rules;
}

// Of each file that a text of the settings names: which one it is, its size and its time.
std::string filesOf(const json& settings) {
    std::string state;
    if (settings.is_structured()) {
        for (const json& value : settings) {
            state += filesOf(value);
        }
        return state;
    }
    const std::string path = settings.is_string() ? settings.get<std::string>() : "";
    struct stat status {};
    if (!path.starts_with('/') || stat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) {
        return state;
    }
    // Named, since the numbers are of different types on 32-bit ARM.
    for (const auto part :
         std::initializer_list<std::int64_t>{static_cast<std::int64_t>(status.st_ino), status.st_size,
                                             status.st_mtim.tv_sec, status.st_mtim.tv_nsec}) {
        state += std::to_string(part) + " ";
    }
    return state;
}

http_config_s httpOf(const json& object) {
    http_config_s http;
    const std::string listen = object["listen"];
    const std::size_t colon = listen.rfind(':');
    http.host = listen.substr(0, colon);
    http.port = std::stoi(listen.substr(colon + 1));
    take(object, "certFile", &http.certFile);
    take(object, "keyFile", &http.keyFile);
    take(object, "tokenFile", &http.tokenFile);
    return http;
}

void checkHttp(const http_config_s& http, lines_t* mistakes) {
    constexpr int highestPort = 65'535;
    constexpr std::size_t shortestToken = 16;
    std::string error;
    if (http.port > highestPort) {
        mistakes->emplace_back("http.listen: ports are from 0 to 65535");
    }
    if (!isLoopback(http.host) && (http.certFile.empty() || http.keyFile.empty() || http.tokenFile.empty())) {
        mistakes->push_back("http.listen: " + http.host +
                            " is not a loopback address, and so needs certFile, keyFile and tokenFile");
    }
    if (http.certFile.empty() != http.keyFile.empty()) {
        mistakes->emplace_back("http: certFile and keyFile need each other");
    } else if (!http.certFile.empty() && !loadServerContext(http.certFile, http.keyFile, &error)) {
        mistakes->push_back("http: " + error);
    }
    if (!http.tokenFile.empty()) {
        const std::optional<std::string> token = readSecret(http.tokenFile, &error);
        if (!token) {
            mistakes->push_back("http.tokenFile: " + http.tokenFile + ": " + error);
        } else if (token->size() < shortestToken) {
            mistakes->push_back("http.tokenFile: " + http.tokenFile + ": a token has at least 16 characters");
        }
    }
}

sink_config_s sinkOf(const json& object) {
    sink_config_s sink{
        .name = object["name"], .type = object["type"], .settings = object, .files = filesOf(object)};
    for (const std::string word : object.value("streams", json::array({"tags"}))) {
        sink.streams |= streamBit(streamOf(word).value_or(stream_e::tags));
    }
    take(object, "maxRate", &sink.maxRate);
    take(object, "deadLetterBytes", &sink.deadLetterBytes);
    return sink;
}

// The spool's own folder need not exist yet.
void takeDeadLetterFile(const spool_config_s& spool, const std::string& place, sink_config_s* sink,
                        lines_t* mistakes) {
    const std::filesystem::path directory = spool.directory;
    sink->deadLetterFile = (directory / (sink->name + ".dead.jsonl")).string();
    take(sink->settings, "deadLetterFile", &sink->deadLetterFile);
    const std::filesystem::path folder = std::filesystem::path(sink->deadLetterFile).parent_path();
    if (folder != directory) {
        checkFolder(folder, place + ".deadLetterFile", mistakes);
    }
}

void takeSinks(const json& list, config_s* config, lines_t* mistakes) {
    uniqueness_c names(mistakes), targets(mistakes);
    for (std::size_t i = 0; i < list.size(); ++i) {
        if (list[i].is_null()) {
            continue;
        }
        sink_config_s sink = sinkOf(list[i]);
        sink.reader = config->sources.empty() ? "" : config->sources.front().reader;
        if (list[i].contains("commands")) {
            std::ranges::copy_if(config->sources, std::back_inserter(sink.daemons),
                                 [](const source_config_s& source) { return !source.requests.empty(); });
        }
        const std::string place = placeOf("sinks", i);
        names.add(sink.name, place + ".name");
        for (const char* key : {"path", "bind", "deadLetterFile"}) {
            targets.add(list[i].value(key, ""), place + "." + key);
        }
        takeDeadLetterFile(config->spool, place, &sink, mistakes);
        if ((sink.streams & streamBit(stream_e::presence)) != 0 && !config->spool.presence) {
            mistakes->push_back(place + ".streams: presence needs the key presence");
        }
        const sink_type_s* type = findSinkType(sink.type);
        if (type == nullptr) {
            mistakes->push_back(place + ".type: this twgate was built without " + sink.type);
        } else if (type->findMistakes != nullptr) {
            for (const std::string& mistake : type->findMistakes(sink)) {
                mistakes->push_back(place + "." + mistake);
            }
        }
        config->sinks.push_back(sink);
    }
}

// Whether the schema takes a key of the configuration with this value.
bool fitsSchema(const std::string& key, const json& value) {
    json document = {{"spool", {{"directory", "/"}}},
                     {"sinks", {{{"name", "z"}, {"type", "zmq"}, {"bind", "ipc:///z"}}}}};
    document[key] = value;
    return findSchemaFaults(configSchemaText, document, "").empty();
}

// The parts that the schema takes, so that the mistakes of the others do not hide theirs. In the place of a
// sink that it refuses is null.
json withoutRefused(const json& document) {
    json rest = json::object();
    for (const auto& [key, value] : document.items()) {
        if (key == "sinks" && value.is_array()) {
            json& sinks = rest[key] = json::array();
            for (const json& sink : value) {
                sinks.push_back(fitsSchema(key, json::array({sink})) ? sink : json());
            }
        } else if (fitsSchema(key, value)) {
            rest[key] = value;
        }
    }
    return rest;
}

}  // namespace

std::optional<config_s> readConfig(const std::string& file, std::vector<std::string>* mistakes) {
    std::string error;
    struct stat status {};
    const std::optional<std::string> text = readWhole(file, &status, &error);
    if (!text) {
        mistakes->push_back(file + ": " + error);
        return std::nullopt;
    }
    return parseConfig(*text, file, mistakes);
}

std::optional<config_s> parseConfig(const std::string& text, const std::string& name,
                                    std::vector<std::string>* mistakes) {
    json document;
    key_watch_c keys(mistakes);
    mistakes->clear();
    try {
        document = json::parse(
            text,
            [&keys](int, json::parse_event_t event, json& value) {
                keys.take(event, value);
                return true;
            },
            true, true);
    } catch (const json::exception& error) {
        // "[json.exception.parse_error.101] parse error at line 2, column 3: ..."
        const std::string_view what = error.what();
        const std::size_t begin = what.find("] ");
        mistakes->push_back(name + ": " + std::string(begin == what.npos ? what : what.substr(begin + 2)));
        return std::nullopt;
    }
    std::ranges::copy(findSchemaFaults(configSchemaText, document, ""), std::back_inserter(*mistakes));
    if (!document.is_object()) {
        return std::nullopt;
    }
    const json parts = mistakes->empty() ? document : withoutRefused(document);
    const auto isRefused = [&](const char* key) { return document.contains(key) && !parts.contains(key); };
    config_s config;
    take(parts, "status", &config.status);
    if (!isRefused("reader") && !isRefused("source") && !isRefused("sources")) {
        takeSources(parts, &config, mistakes);
        checkSources(config, parts, mistakes);
    } else {
        // For the sinks, of which none is to miss it.
        config.sources.push_back({.reader = "reader", .tags = {}, .events = {}, .requests = "ipc:///"});
    }
    if (parts.contains("spool")) {
        takeSpool(parts["spool"], &config.spool);
        checkSpool(config.spool, mistakes);
    }
    if (document.contains("presence")) {
        config.spool.presence = presenceOf(parts.value("presence", json::object()));
    }
    takeSinks(parts.value("sinks", json::array()), &config, mistakes);
    if (parts.contains("http")) {
        config.http = httpOf(parts["http"]);
        checkHttp(*config.http, mistakes);
    }
    return mistakes->empty() ? std::optional(config) : std::nullopt;
}

std::optional<std::string> readSecret(const std::string& file, std::string* error) {
    std::optional<std::string> text = readSecretText(file, error);
    if (text) {
        text->resize(std::min(text->find_first_of("\r\n"), text->size()));
        if (text->empty()) {
            *error = "its first line is empty";
            return std::nullopt;
        }
    }
    return text;
}

lines_t readSecrets(const std::string& file, std::string* error) {
    lines_t secrets;
    if (const std::optional<std::string> text = readSecretText(file, error)) {
        std::istringstream stream(*text);
        for (std::string line; std::getline(stream, line);) {
            line.resize(std::min(line.find('\r'), line.size()));
            if (!line.empty()) {
                secrets.push_back(line);
            }
        }
        *error = secrets.empty() ? "has not a line in it" : "";
    }
    return secrets;
}
