// SPDX-License-Identifier: MIT
// What the gateway does with each report, against the least that anyone could do with it: a look at its
// frame against a parse of its JSON, the spool against bare rows in SQLite, and the way from a full spool
// to files against a bare copy of the same lines.
//
// Exit status 1 when an aim is missed.
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "database.hpp"
#include "intake.hpp"
#include "sender.hpp"
#include "spool.hpp"
#include "verdict.hpp"

namespace {

constexpr std::size_t reports = 200'000;
constexpr std::size_t atOnce = 500;

std::string reportOf(std::size_t number) {
    return R"({"data":{"antenna":1,"eventNum":)" + std::to_string(number) +
           R"(,"format":"epc","idHex":"30340a0b0c0d0e0f10111213","peakRssi":-52},)"
           R"("timestamp":"2026-03-02T10:15:30.123+0000","type":"INVENTORY"})";
}

template <class Work>
double secondsOf(Work work) {
    const auto begin = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}

double lookAtFrames(const std::vector<std::string>& bodies) {
    return secondsOf([&] {
        for (const std::string& body : bodies) {
            benchmark::DoNotOptimize(judgeTagFrame(body));
        }
    });
}

double parseFrames(const std::vector<std::string>& bodies) {
    return secondsOf([&] {
        for (const std::string& body : bodies) {
            benchmark::DoNotOptimize(nlohmann::json::parse(body));
        }
    });
}

double insertBare(const std::string& directory, const std::vector<std::string>& bodies) {
    const database_ptr database =
        openDatabase(directory + "/bare.db", SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE);
    execute(database.get(),
            "PRAGMA journal_mode=WAL; PRAGMA synchronous=NORMAL;"
            "CREATE TABLE entry(seq INTEGER PRIMARY KEY, body TEXT)");
    statement_c insert(database.get(), "INSERT INTO entry(body) VALUES(?)");
    return secondsOf([&] {
        for (std::size_t i = 0; i < bodies.size(); ++i) {
            if (i % atOnce == 0) {
                execute(database.get(), i == 0 ? "BEGIN" : "COMMIT; BEGIN");
            }
            insert.bind(std::string_view(bodies[i])).run();
        }
        execute(database.get(), "COMMIT");
    });
}

double fillSpool(spool_c* spool, const std::vector<std::string>& bodies) {
    std::vector<source_account_s> sources(1);
    sources[0].reader = "dock";
    const std::int64_t boot = spool->addBoot("dock", 1);
    return secondsOf([&] {
        for (std::size_t i = 0; i < bodies.size(); i += atOnce) {
            std::vector<new_entry_s> entries;
            for (std::size_t j = i; j < i + atOnce; ++j) {
                entries.push_back({.source = 0,
                                   .stream = stream_e::tags,
                                   .boot = boot,
                                   .number = j,
                                   .takenAt = nowMicroseconds(),
                                   .body = bodies[j]});
            }
            spool->take(std::move(entries), &sources);
        }
        spool->flush();
    });
}

double copyBare(const std::string& directory, const std::vector<std::string>& bodies) {
    const std::string name = directory + "/bare.jsonl";
    return secondsOf([&] {
        std::FILE* const file = std::fopen(name.c_str(), "w");
        for (const std::string& body : bodies) {
            std::fwrite(body.data(), 1, body.size(), file);
            std::fputc('\n', file);
        }
        std::fflush(file);
        fdatasync(fileno(file));
        std::fclose(file);
    });
}

double emptySpool(spool_c* spool, const sink_config_s& config) {
    sender_c sender(config, spool->account().sinks.at(0), spool);
    return secondsOf([&] {
        sender.drain(std::chrono::steady_clock::now() + std::chrono::minutes(1), true);
        sender.join();
    });
}

}  // namespace

int main() {
    std::string directory = "gateway_bench_XXXXXX";
    if (mkdtemp(directory.data()) == nullptr) {
        std::perror("no directory");
        return 1;
    }
    directory = std::filesystem::absolute(directory);
    std::vector<std::string> bodies;
    for (std::size_t i = 0; i < reports; ++i) {
        bodies.push_back(reportOf(i));
    }
    const double look = lookAtFrames(bodies), parse = parseFrames(bodies);
    const double bare = insertBare(directory, bodies);
    const sink_config_s sink{.name = "file",
                             .type = "file",
                             .streams = streamBit(stream_e::tags),
                             .settings = {{"path", directory + "/tags"}}};
    double fill = 0.0, empty = 0.0;
    std::uint64_t left = reports;
    {
        spool_c spool;
        std::string error;
        spool_config_s config;
        config.directory = directory + "/spool";
        if (!spool.open(config, &error)) {
            std::fprintf(stderr, "%s\n", error.c_str());
            return 1;
        }
        spool.start();
        spool.setSinks({sink});
        fill = fillSpool(&spool, bodies);
        empty = emptySpool(&spool, sink);
        spool.flush();
        left = spool.account().sinks.at(0).pending();
    }
    const double copy = copyBare(directory, bodies);
    std::filesystem::remove_all(directory);
    constexpr double count = reports;
    std::printf("frames looked at %.0f/s, into the spool %.0f/s, out of it into files %.0f/s\n", count / look,
                count / fill, count / empty);
    std::printf("parsed %.0f/s, bare rows %.0f/s, bare lines %.0f/s\n", count / parse, count / bare,
                count / copy);
    bool met = atMost("reports that are left in the spool", static_cast<double>(left), 0);
    met &= atLeast("a look against a parse", parse / look, 5);
    met &= atLeast("the spool against bare rows", bare / fill, 0.25);
    met &= atLeast("files against a bare copy", copy / empty, 0.02);
    return met ? 0 : 1;
}
