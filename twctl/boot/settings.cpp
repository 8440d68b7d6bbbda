// SPDX-License-Identifier: MIT
// The daemon cannot take names out of the heartbeat's list and would repeat those that it has, so
// that "events" is sent with what is missing only.
#include "boot/settings.hpp"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <iterator>

#include "command_words.hpp"
#include "document.hpp"
#include "exit_status.hpp"
#include "sockets.hpp"
#include "stat_names.hpp"
#include "words.hpp"

namespace boot {

using nlohmann::json;

namespace {

int tellOddReply(const std::string& request, const std::string& reply) {
    std::fprintf(stderr, "twctl: unexpected reply to \"%s\": %s\n", request.c_str(), reply.c_str());
    return exitTrouble;
}

// Asks, and tells a refusal. `body` is what stands behind "Success: ".
int askFor(const daemon_s& daemon, const std::string& request, std::string* body) {
    std::string reply;
    if (const int status = askDaemon(daemon, request, &reply); status != exitSuccess) {
        return status;
    }
    if (isFailure(reply)) {
        return printReply(reply);
    }
    *body = bodyOf(reply);
    return exitSuccess;
}

// Of "data_analytics STRING" and "subscribers 4 but is ..." the second word.
int askForWord(const daemon_s& daemon, std::string_view command, std::string* word) {
    const std::string request(command);
    std::string body;
    if (const int status = askFor(daemon, request, &body); status != exitSuccess) {
        return status;
    }
    const std::vector<std::string> words = splitWords(body);
    if (words.size() < 2 || words[0] != command) {
        return tellOddReply(request, body);
    }
    *word = words[1];
    return exitSuccess;
}

int askForObject(const daemon_s& daemon, const std::string& request, json* object) {
    std::string body;
    if (const int status = askFor(daemon, request, &body); status != exitSuccess) {
        return status;
    }
    *object = json::parse(body, nullptr, false);
    return object->is_object() ? exitSuccess : tellOddReply(request, body);
}

// As a request would have it: each stat once, without names that have no effect, and the period as it
// was sent. False when it is not the daemon's object.
bool tidy(json* events) {
    const auto heartbeat = events->find("heartbeat");
    if (heartbeat == events->end() || !heartbeat->is_object() ||
        !heartbeat->value("period", json()).is_number_integer()) {
        return false;
    }
    const json sent = heartbeat->value("stats", json::array());
    json names = json::array();
    std::ranges::copy_if(vocabulary::stats, std::back_inserter(names), [&](std::string_view name) {
        return std::ranges::find(sent, json(name)) != sent.end();
    });
    // Quirk of the daemon: a period above 2147483647 s shows as a negative one.
    *heartbeat = {{"period", heartbeat->at("period").get<std::uint32_t>()}, {"stats", names}};
    return true;
}

// The members of the wanted group that differ, at any depth. Names that are there already are left
// out of `wanted`.
std::vector<difference_s> differencesOf(const std::string& group, const json& now, json* wanted) {
    std::vector<difference_s> differences;
    const std::string prefix = std::string(vocabulary::events.word) + "." + group;
    if (const auto stats = wanted->find("stats"); stats != wanted->end()) {
        const json& present = now.at("stats");
        std::erase_if(stats->get_ref<json::array_t&>(),
                      [&](const json& name) { return std::ranges::find(present, name) != present.end(); });
        if (!stats->empty()) {
            differences.push_back({prefix + ".stats", stats->dump(), "not there"});
        }
    }
    const json leaves = wanted->flatten();
    const json present = now.flatten();
    for (const auto& [path, value] : leaves.items()) {
        if (const json old = present.value(path, json()); !path.starts_with("/stats") && old != value) {
            std::string place = prefix + path;
            std::ranges::replace(place, '/', '.');
            differences.push_back({place, value.dump(), old.dump()});
        }
    }
    return differences;
}

change_s changeOfEvents(const json& wanted, const settings_s& now) {
    const std::string name(vocabulary::events.word);
    change_s change{name, "", {}};
    json request = json::object();
    for (const auto& [key, group] : wanted.items()) {
        json missing = group;
        const std::vector<difference_s> differences =
            differencesOf(key, now.events.value(key, json::object()), &missing);
        if (!differences.empty()) {
            request[key] = missing;
            change.differences.insert(change.differences.end(), differences.begin(), differences.end());
        }
    }
    change.request = name + " " + packed(request.dump());
    return change;
}

// Of a command with one word.
change_s changeOfWord(std::string_view command, const std::string& wanted, const std::string& now) {
    change_s change{std::string(command), std::string(command) + " " + wanted, {}, true};
    if (wanted != now) {
        change.differences.push_back({change.name, wanted, now});
    }
    return change;
}

int askWhetherReading(const daemon_s& daemon, bool* reading) {
    const std::string name(vocabulary::radioActivity);
    json status;
    const int result = askForObject(daemon, std::string(vocabulary::status.word) + " " + name, &status);
    *reading = result == exitSuccess && status.value(name, json()) == vocabulary::active;
    return result;
}

}  // namespace

int askSettings(const daemon_s& daemon, settings_s* settings) {
    std::string subscribers;
    int status = askForWord(daemon, vocabulary::dataAnalytics.word, &settings->form);
    if (status == exitSuccess) {
        status = askForWord(daemon, vocabulary::subscribers.word, &subscribers);
        settings->subscribers = static_cast<unsigned>(std::strtoul(subscribers.c_str(), nullptr, 10));
    }
    if (status == exitSuccess) {
        status = askForObject(daemon, std::string(vocabulary::events.word), &settings->events);
    }
    if (status == exitSuccess && !tidy(&settings->events)) {
        status = tellOddReply(std::string(vocabulary::events.word), settings->events.dump());
    }
    return status != exitSuccess ? status : askWhetherReading(daemon, &settings->reading);
}

// Alarms first. Subscribers have no effect in the form OFF, so that they are set while it is in force:
// no report goes to the share of another one.
std::vector<change_s> changesTo(const json& file, const settings_s& now) {
    std::vector<change_s> changes;
    const auto member = [&](std::string_view name) { return file.find(name); };
    if (const auto events = member(vocabulary::events.word); events != file.end()) {
        changes.push_back(changeOfEvents(*events, now));
    }
    const auto form = member(vocabulary::dataAnalytics.word);
    const auto subscribers = member(vocabulary::subscribers.word);
    const auto addSubscribers = [&] {
        if (subscribers != file.end()) {
            changes.push_back(changeOfWord(vocabulary::subscribers.word, subscribers->dump(),
                                           std::to_string(now.subscribers)));
        }
    };
    const bool toOff = form != file.end() && *form == vocabulary::analyticsOff.name;
    if (!toOff) {
        addSubscribers();
    }
    if (form != file.end()) {
        changes.push_back(changeOfWord(vocabulary::dataAnalytics.word, *form, now.form));
    }
    if (toOff) {
        addSubscribers();
    }
    std::erase_if(changes, [](const change_s& change) { return change.differences.empty(); });
    return changes;
}

}  // namespace boot
