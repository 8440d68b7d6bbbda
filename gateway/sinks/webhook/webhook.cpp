// SPDX-License-Identifier: MIT
// Type "webhook": entries are POST requests to a URL, one after the other. An answer with a status of 2xx
// confirms all entries of its request.
//
//   2xx                            confirmed
//   408, 429, 3xx, 5xx, or none    the same request again, after Retry-After or the back-off
//   other 4xx                      the request is sent in halves, until the entries that are refused stand
//                                  alone; these are set aside to the dead-letter file, the rest goes on
#include <curl/curl.h>
#include <spdlog/spdlog.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <map>

#include "dead_letter.hpp"
#include "http.hpp"
#include "signature.hpp"
#include "sink.hpp"

namespace {

using namespace std::chrono_literals;
using steady_t = std::chrono::steady_clock;
using lines_t = std::vector<std::string>;
using headers_t = std::map<std::string, std::string>;

constexpr std::size_t defaultBatch = 100;
constexpr double defaultTimeout = 30.0, defaultEvery = 0.5;  // s
constexpr std::chrono::seconds longestRetryAfter = 24h;
constexpr auto tellAsideEvery = 60s;  // in the log; the dead-letter file has all of them

std::string textOf(const sink_config_s& config, const char* key) {
    return config.settings.value(key, "");
}

std::chrono::milliseconds millisecondsOf(const sink_config_s& config, const char* key, double otherwise) {
    return std::chrono::round<std::chrono::milliseconds>(
        std::chrono::duration<double>(config.settings.value(key, otherwise)));
}

std::size_t batchOf(const sink_config_s& config) {
    return config.settings.value("batch", defaultBatch);
}

headers_t headersOf(const sink_config_s& config) {
    return config.settings.value("headers", headers_t());
}

http_settings_s httpSettingsOf(const sink_config_s& config) {
    return {.url = textOf(config, "url"),
            .ca = textOf(config, "ca"),
            .certificate = textOf(config, "certificate"),
            .privateKey = textOf(config, "privateKey"),
            .timeout = millisecondsOf(config, "timeout", defaultTimeout)};
}

// What the files with secrets say. They are read for each request, so that a secret can be changed while
// the gateway runs.
struct secrets_s {
    std::string authorization;  // the value of the header; empty: none
    lines_t signingKeys;
};

bool isPrintable(const std::string& text) {
    return std::ranges::all_of(text, [](char c) { return c > ' ' && c <= '~'; });
}

secrets_s readSecretFiles(const sink_config_s& config, lines_t* mistakes) {
    secrets_s secrets;
    const auto take = [&](const char* key, const auto& useFile) {
        std::string error;
        if (const std::string file = textOf(config, key); !file.empty()) {
            useFile(file, &error);
            if (!error.empty()) {
                mistakes->push_back(std::string(key) + ": " + file + ": " + error);
            }
        }
    };
    take("tokenFile", [&](const std::string& file, std::string* error) {
        const std::string token = readSecret(file, error).value_or("");
        *error = isPrintable(token) ? *error : "holds other than printable ASCII characters";
        secrets.authorization = "Bearer " + token;
    });
    take("passwordFile", [&](const std::string& file, std::string* error) {
        const std::string password = readSecret(file, error).value_or("");
        secrets.authorization = "Basic " + base64(textOf(config, "user") + ":" + password);
    });
    take("secretFile", [&](const std::string& file, std::string* error) {
        for (const std::string& line : readSecrets(file, error)) {
            const std::string key = signingKey(line).value_or("");
            if (key.empty()) {
                *error = "a line is not whsec_ with a key in base64 behind it";
            } else if (signatures({key}, "", "", "").empty()) {
                *error = "the system's rules on cryptography refuse a key";
            }
            secrets.signingKeys.push_back(key);
        }
    });
    return secrets;
}

struct form_s {
    std::string_view contentType;
    bool hasHeaders;  // with the attributes; else they are in the body
};
constexpr form_s batchForm{"application/cloudevents-batch+json", false};
constexpr form_s structuredForm{"application/cloudevents+json", false};
constexpr form_s binaryForm{eventContentType, true};

const form_s& formOf(const sink_config_s& config) {
    return batchOf(config) > 1                        ? batchForm
           : textOf(config, "format") == "cloudevent" ? structuredForm
                                                      : binaryForm;
}

std::string bodyOf(const form_s& form, std::span<const entry_s> entries) {
    if (form.hasHeaders) {
        return entries.front().body;
    }
    std::string body;
    for (const entry_s& entry : entries) {
        body += body.empty() ? "" : ",";
        body += structuredEvent(entry);
    }
    return &form == &batchForm ? "[" + body + "]" : body;
}

// Of the same entries the same, also after a restart; of others another.
std::string messageIdOf(std::span<const entry_s> entries) {
    constexpr std::size_t length = 32;
    std::string identities;
    for (const entry_s& entry : entries) {
        identities += entry.reader + "/" + idOf(entry) + "\n";
    }
    return "msg_" + digestOf(identities).substr(0, length);
}

// The receiver does not want what was sent, and will not want it later.
bool isRefusal(long status) {
    constexpr long requestTimeout = 408, tooManyRequests = 429;
    return status >= 400 && status < 500 && status != requestTimeout && status != tooManyRequests;
}

// Refusals that hardly concern single entries.
bool concernsAll(long status) {
    constexpr std::array statuses{401L, 403L, 404L, 405L, 407L, 410L};
    return std::ranges::find(statuses, status) != statuses.end();
}

std::string describe(const http_answer_s& answer) {
    return "HTTP " + std::to_string(answer.status);
}

// A text of the receiver for people: short, and on one line.
std::string quotable(std::string text) {
    constexpr std::size_t longest = 200;  // bytes
    text.resize(std::min(text.size(), longest));
    std::ranges::replace_if(
        text, [](unsigned char c) { return c < ' ' || c == 0x7F; }, ' ');
    return text;
}

std::string reasonOf(const http_answer_s& answer) {
    return describe(answer) + (answer.bodyStart.empty() ? "" : ": " + quotable(answer.bodyStart));
}

failure_s failureOf(const http_answer_s& answer) {
    if (answer.status == 0) {
        return {answer.error};
    }
    failure_s failure{describe(answer)};
    if (!answer.location.empty()) {
        failure.text += ": redirects are not followed; this one leads to " + quotable(answer.location);
    }
    if (answer.retryAfter > 0s) {
        failure.notBefore = std::min(answer.retryAfter, longestRetryAfter);
    }
    return failure;
}

class webhook_sink_c : public sink_c {
  public:
    webhook_sink_c(const sink_config_s& sinkConfig, sink_context_s senderContext)
        : sink_c({.window = batchOf(sinkConfig),
                  .batch = batchOf(sinkConfig),
                  .every = millisecondsOf(sinkConfig, "every", defaultEvery),
                  .firstBackOff = 1s,
                  .lastBackOff = 300s}),
          config(sinkConfig),
          context(std::move(senderContext)),
          form(formOf(config)),
          ownHeaders(headersOf(config)),
          deadLetters(config) {}

    std::optional<failure_s> open() override;
    std::size_t offer(std::span<const entry_s> entries) override;
    poll_s poll() override;
    void close() override;

  private:
    lines_t headersFor(std::span<const entry_s> entries, const std::string& body, const secrets_s& secrets);
    std::span<const entry_s> partToSend(std::span<const entry_s> entries);
    std::size_t judge(std::span<const entry_s> part, const http_answer_s& answer);
    void setAside(const entry_s& entry, const http_answer_s& answer);
    void fail(const failure_s& why, std::span<const entry_s> part);

    const sink_config_s config;
    const sink_context_s context;
    const form_s& form;
    const headers_t ownHeaders;
    dead_letter_c deadLetters;

    std::optional<http_client_c> client;
    // Where requests end, as seq; the next one at the back. A request that failed is repeated as it was, so
    // that its id stays; one that was refused has its middle behind its end.
    std::vector<std::int64_t> ends;
    std::vector<settled_s> settled;
    std::optional<failure_s> failure;
    std::string trouble;  // since the last success
    steady_t::time_point asideTold{};
    std::uint64_t asideUntold = 0;
};

std::optional<failure_s> webhook_sink_c::open() {
    lines_t mistakes;
    readSecretFiles(config, &mistakes);
    if (!mistakes.empty()) {
        return failure_s{mistakes.front()};
    }
    client.emplace(httpSettingsOf(config), context.abort);
    return std::nullopt;
}

void webhook_sink_c::close() {
    client.reset();
    settled.clear();
    failure.reset();
}

poll_s webhook_sink_c::poll() {
    return {.settled = std::exchange(settled, {}),
            .failure = std::exchange(failure, std::nullopt),
            .down = trouble};
}

lines_t webhook_sink_c::headersFor(std::span<const entry_s> entries, const std::string& body,
                                   const secrets_s& secrets) {
    // libcurl leaves out a header without a value, unless it ends in a semicolon.
    lines_t lines{"Content-Type: " + std::string(form.contentType), "Expect:"};
    for (const auto& [header, value] : ownHeaders) {
        lines.push_back(value.empty() ? header + ";" : header + ": " + value);
    }
    if (form.hasHeaders) {
        for (const attribute_s& attribute : attributesOf(entries.front())) {
            lines.push_back("ce-" + std::string(attribute.name) + ": " + attribute.value);
        }
    }
    if (!secrets.authorization.empty()) {
        lines.push_back("Authorization: " + secrets.authorization);
    }
    if (!secrets.signingKeys.empty()) {
        const std::string id = messageIdOf(entries), timestamp = std::to_string(std::time(nullptr));
        lines.insert(lines.end(),
                     {"webhook-id: " + id, "webhook-timestamp: " + timestamp,
                      "webhook-signature: " + signatures(secrets.signingKeys, id, timestamp, body)});
    }
    return lines;
}

std::span<const entry_s> webhook_sink_c::partToSend(std::span<const entry_s> entries) {
    while (!ends.empty() && ends.back() < entries.front().seq) {
        ends.pop_back();
    }
    if (ends.empty()) {
        return entries;
    }
    const auto end = std::ranges::upper_bound(entries, ends.back(), {}, &entry_s::seq);
    return entries.first(static_cast<std::size_t>(end - entries.begin()));
}

std::size_t webhook_sink_c::offer(std::span<const entry_s> entries) {
    const std::span<const entry_s> part = partToSend(entries);
    lines_t mistakes;
    const secrets_s secrets = readSecretFiles(config, &mistakes);
    if (!mistakes.empty()) {
        fail({mistakes.front()}, part);
        return part.size();
    }
    const std::string body = bodyOf(form, part);
    const std::size_t taken = judge(part, client->post(body, headersFor(part, body, secrets)));
    if (taken < entries.size()) {
        context.wake();
    }
    return taken;
}

std::size_t webhook_sink_c::judge(std::span<const entry_s> part, const http_answer_s& answer) {
    if (answer.status >= 200 && answer.status < 300) {
        settled.push_back({part.front().seq, part.back().seq});
        trouble.clear();
    } else if (!isRefusal(answer.status)) {
        fail(failureOf(answer), part);
    } else if (part.size() == 1) {
        setAside(part.front(), answer);
    } else {
        if (ends.empty() || ends.back() != part.back().seq) {
            ends.push_back(part.back().seq);
        }
        ends.push_back(part[(part.size() - 1) / 2].seq);
        return 0;
    }
    return part.size();
}

void webhook_sink_c::setAside(const entry_s& entry, const http_answer_s& answer) {
    const std::string reason = reasonOf(answer);
    if (const std::optional<std::string> error = deadLetters.keep(entry, reason)) {
        fail({*error}, {&entry, 1});
        return;
    }
    settled.push_back({entry.seq, entry.seq, settled_s::setAside});
    trouble = concernsAll(answer.status) ? describe(answer) + ", entries are set aside" : "";
    ++asideUntold;
    if (const auto now = steady_t::now(); now - asideTold >= tellAsideEvery || asideTold == decltype(now){}) {
        spdlog::error("sink {}: {} set aside to {}, the last one {}/{}: {}", config.name, asideUntold,
                      config.deadLetterFile, entry.reader, idOf(entry), reason);
        asideTold = now;
        asideUntold = 0;
    }
}

void webhook_sink_c::fail(const failure_s& why, std::span<const entry_s> part) {
    failure = why;
    trouble = why.text;
    if (ends.empty() || ends.back() != part.back().seq) {
        ends.push_back(part.back().seq);
    }
    context.wake();
}

struct curl_url_deleter_s {
    void operator()(CURLU* url) const { curl_url_cleanup(url); }
};

// What libcurl says of the URL, or its own rules.
std::string findUrlMistake(const std::string& text) {
    const std::unique_ptr<CURLU, curl_url_deleter_s> url(curl_url());
    const CURLUcode code = curl_url_set(url.get(), CURLUPART_URL, text.c_str(), 0);
    if (code != CURLUE_OK) {
        return curl_url_strerror(code);
    }
    char* user = nullptr;
    const bool hasUser = curl_url_get(url.get(), CURLUPART_USER, &user, 0) == CURLUE_OK;
    curl_free(user);
    return hasUser ? "holds a user; use user and passwordFile" : "";
}

// Headers of others are sent as they are; these are made here.
std::string findHeaderMistake(std::string name) {
    // Of a token, RFC 9110.
    constexpr std::string_view allowed = "abcdefghijklmnopqrstuvwxyz0123456789!#$%&'*+-.^_`|~";
    std::ranges::transform(name, name.begin(), [](char c) {
        return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    });
    if (name.empty() || name.find_first_not_of(allowed) != name.npos) {
        return "is not the name of a header";
    }
    if (name == "authorization") {
        return "is a secret; use tokenFile, or user and passwordFile";
    }
    constexpr std::array<std::string_view, 5> own{"connection", "content-length", "content-type", "expect",
                                                  "transfer-encoding"};
    const bool isOwn =
        name.starts_with("ce-") || name.starts_with("webhook-") || std::ranges::find(own, name) != own.end();
    return isOwn ? "twgate sets this header" : "";
}

}  // namespace

std::vector<std::string> findWebhookMistakes(const sink_config_s& config) {
    lines_t mistakes;
    const auto check = [&mistakes](bool isWrong, const std::string& mistake) {
        if (isWrong) {
            mistakes.push_back(mistake);
        }
    };
    const std::string url = textOf(config, "url"), urlMistake = findUrlMistake(url);
    check(!urlMistake.empty(), "url: " + urlMistake);
    check(textOf(config, "format") == "binary" && batchOf(config) > 1, "format: binary needs a batch of 1");
    for (const auto& [header, value] : headersOf(config)) {
        const std::string mistake = findHeaderMistake(header);
        check(!mistake.empty(), "headers." + header + ": " + mistake);
    }
    for (const char* key : {"ca", "certificate", "privateKey"}) {
        const std::string file = textOf(config, key);
        check(!file.empty() && !url.starts_with("https:"),
              std::string(key) + ": is for TLS; use https:// in url");
        const bool isUnreadable = !file.empty() && ::access(file.c_str(), R_OK) != 0;
        check(isUnreadable, std::string(key) + ": " + file + ": " + std::strerror(errno));
    }
    check(textOf(config, "certificate").empty() != textOf(config, "privateKey").empty(),
          "certificate and privateKey need each other");
    check(textOf(config, "user").empty() != textOf(config, "passwordFile").empty(),
          "user and passwordFile need each other");
    check(!textOf(config, "tokenFile").empty() && !textOf(config, "user").empty(),
          "tokenFile: is instead of user and passwordFile");
    readSecretFiles(config, &mistakes);
    return mistakes;
}

std::unique_ptr<sink_c> makeWebhookSink(const sink_config_s& config, sink_context_s context) {
    return std::make_unique<webhook_sink_c>(config, std::move(context));
}
