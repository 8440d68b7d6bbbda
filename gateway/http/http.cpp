// SPDX-License-Identifier: MIT
#include "http.hpp"

#include <spdlog/spdlog.h>

bool http_c::prepare(const config_s& next, std::string* error) {
    prepared.reset();
    if (!next.http) {
        return true;
    }
    if (server && next.http->host == present.host && next.http->port == present.port) {
        return server->readFiles(*next.http, error);
    }
    auto fresh = std::make_unique<http_server_c>(&picture, &accounts);
    if (!fresh->open(*next.http, error)) {
        return false;
    }
    prepared = std::move(fresh);
    return true;
}

void http_c::commit(const config_s& next) {
    if (!next.http) {
        stop();
        return;
    }
    present = *next.http;
    picture.start();
    accounts.configure(next.sources);
    if (prepared) {
        server = std::move(prepared);
        spdlog::info("http: on {}", server->address());
    }
}

void http_c::stop() {
    accounts.configure({});
    picture.stop();  // ends the streams
    server.reset();
    prepared.reset();
}
