// SPDX-License-Identifier: MIT
// twgate as a process of its own, with endpoints and files in a directory of the test; the daemon's side
// of its sockets; and small texts that both sides know.
#pragma once

#include <zmq.h>

#include <nlohmann/json.hpp>

#include "support/reader.hpp"

// A report of the form OFF.
inline std::string reportText(std::uint64_t number) {
    return R"({"data":{"antenna":1,"eventNum":)" + std::to_string(number) +
           R"(,"format":"epc","idHex":"30340a0b0c0d0e0f10111213","peakRssi":-52},)"
           R"("timestamp":"2026-03-02T10:15:30.123+0000","type":"INVENTORY"})";
}

inline std::string heartbeatText(const std::string& uptime) {
    return R"({"component":"TW","data":{"uptime":")" + uptime + R"("},"type":"heartbeat"})";
}

// What the daemon has at an endpoint that the gateway binds: it connects and publishes.
struct publisher_s : socket_s {
    explicit publisher_s(const std::string& endpoint) : socket_s(ZMQ_XPUB) {
        const int noLimit = 0, everyTime = 1;
        zmq_setsockopt(handle, ZMQ_XPUB_VERBOSE, &everyTime, sizeof everyTime);
        zmq_setsockopt(handle, ZMQ_SNDHWM, &noLimit, sizeof noLimit);
        zmq_connect(handle, endpoint.c_str());
    }
    // Until the gateway's subscription is here; what is sent from then on arrives.
    void waitForSubscriber() const {
        if (!receive()) {
            throw std::runtime_error("no subscriber came");
        }
    }
};

// The gateway with one reader, "dock", and a folder for its spool and its files.
struct gateway_s {
    // `sinks` is the text of a JSON array in which DIR stands for the folder.
    explicit gateway_s(std::string sinks, std::string spoolSettings = "") {
        writeConfig(std::move(sinks), std::move(spoolSettings));
    }

    void writeConfig(std::string sinks, std::string spoolSettings = "") const {
        std::string text =
            R"({"reader": "dock", "source": {"tags": "ipc://DIR/data", "events": "ipc://DIR/events"},
            "status": "ipc://DIR/status", "spool": {"directory": "DIR/spool")" +
            spoolSettings + R"(}, "sinks": )" + sinks + "}";
        for (std::size_t at = text.find("DIR"); at != text.npos; at = text.find("DIR", at)) {
            text.replace(at, 3, directory.path);
        }
        writeTextFile(directory.path / "twgate.json", text);
    }

    std::unique_ptr<process_s> launch(const std::string& config = "twgate.json") const {
        return std::make_unique<process_s>(TARNWICK_BIN_DIR "/twgate",
                                           process_options_s{{"--config", directory.path / config}, {}, {}});
    }

    void start() {
        process = launch();
        if (!process->waitForOutput("running")) {
            throw std::runtime_error("twgate does not run: " + process->output());
        }
    }

    std::string endpoint(const std::string& name) const {
        return "ipc://" + (directory.path / name).string();
    }

    // The exit status of "twgate status", and its output.
    std::pair<int, std::string> askStatus(const std::vector<std::string>& more = {}) const {
        std::vector<std::string> arguments{"status", "--socket", endpoint("status")};
        arguments.insert(arguments.end(), more.begin(), more.end());
        process_s client(TARNWICK_BIN_DIR "/twgate", {arguments, {}, {}});
        const int status = client.waitForExit().value_or(-1);
        return {status, client.output()};
    }

    nlohmann::json account() const { return nlohmann::json::parse(askStatus({"--json"}).second); }
    nlohmann::json source() const { return account().at("sources").at(0); }
    nlohmann::json sink(const std::string& name) const {
        const nlohmann::json document = account();
        for (const nlohmann::json& row : document.at("sinks")) {
            if (row.at("name") == name) {
                return row;
            }
        }
        throw std::runtime_error("no sink " + name);
    }

    // Until everything that came is confirmed, `taken` entries in all.
    bool settles(const std::string& name, std::uint64_t taken,
                 std::chrono::milliseconds patience = defaultPatience) const {
        return eventually(
            [&] {
                const nlohmann::json row = sink(name);
                return row.at("taken") == taken && row.at("pending") == 0;
            },
            patience);
    }

    bool isDown(const std::string& name, const std::string& why) const {
        return eventually([&] {
            const nlohmann::json row = sink(name);
            return row.at("state") == "down" &&
                   row.at("trouble").get<std::string>().find(why) != std::string::npos;
        });
    }

    // A file that only its owner may read.
    void writeSecret(const std::string& name, const std::string& text) const {
        writeTextFile(directory.path / name, text);
        std::filesystem::permissions(directory.path / name, std::filesystem::perms(0600));
    }

    // The lines of the files whose names begin and end so, in the order of their names.
    std::vector<std::string> lines(const std::string& begin, const std::string& end) const {
        std::vector<std::filesystem::path> files;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(directory.path)) {
            const std::string name = entry.path().lexically_relative(directory.path);
            if (name.starts_with(begin) && name.ends_with(end)) {
                files.push_back(entry.path());
            }
        }
        std::ranges::sort(files);
        std::vector<std::string> all;
        for (const auto& file : files) {
            std::ifstream text(file);
            for (std::string line; std::getline(text, line);) {
                all.push_back(line);
            }
        }
        return all;
    }

    temp_dir_s directory;
    std::unique_ptr<process_s> process;
};
