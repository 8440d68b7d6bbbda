// SPDX-License-Identifier: MIT
// What the gateway does with each report, against the least that anyone could do with it: a look at its
// frame against a parse of its JSON, the spool against bare rows in SQLite, and the way from a full spool
// to files against a bare copy of the same lines, and from there to a Kafka cluster against a bare producer.
//
// Exit status 1 when an aim is missed.
#include <librdkafka/rdkafka.h>
#include <unistd.h>
// Behind the first one.
#include <librdkafka/rdkafka_mock.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "database.hpp"
#include "gateway_load.hpp"
#include "intake.hpp"
#include "verdict.hpp"

namespace {

constexpr std::size_t reports = 200'000;
constexpr std::size_t atOnce = 500;
constexpr int rounds = 3;  // of which the middle one counts

double lookAtFrames(const std::vector<std::string>& bodies) {
    return secondsFor([&] {
        for (const std::string& body : bodies) {
            benchmark::DoNotOptimize(judgeTagFrame(body));
        }
    });
}

double parseFrames(const std::vector<std::string>& bodies) {
    return secondsFor([&] {
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
    return secondsFor([&] {
        for (std::size_t i = 0; i < bodies.size(); ++i) {
            if (i % atOnce == 0) {
                execute(database.get(), i == 0 ? "BEGIN" : "COMMIT; BEGIN");
            }
            insert.bind(std::string_view(bodies[i])).run();
        }
        execute(database.get(), "COMMIT");
    });
}

double copyBare(const std::string& directory, const std::vector<std::string>& bodies) {
    const std::string name = directory + "/bare.jsonl";
    return secondsFor([&] {
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

// To the same cluster as the sink, with the same promises and the same records.
double produceBare(const std::string& servers, const std::vector<std::string>& bodies) {
    std::array<char, 512> error{};
    rd_kafka_conf_t* const conf = rd_kafka_conf_new();
    rd_kafka_conf_set(conf, "bootstrap.servers", servers.c_str(), error.data(), error.size());
    rd_kafka_conf_set(conf, "enable.idempotence", "true", error.data(), error.size());
    // As the sink has it; with the library's 100,000 it is slower here.
    rd_kafka_conf_set(conf, "queue.buffering.max.messages", "10000", error.data(), error.size());
    rd_kafka_t* const producer = rd_kafka_new(RD_KAFKA_PRODUCER, conf, error.data(), error.size());
    const std::string key = "30340a0b0c0d0e0f10111213";
    std::vector<attribute_s> attributes =
        attributesOf({.reader = "dock", .key = key, .boot = 1, .number = 0, .body = bodies[0]});
    attributes.push_back({"partitionkey", key});
    std::vector<std::string> names;
    for (const attribute_s& attribute : attributes) {
        names.push_back("ce_" + std::string(attribute.name));
    }
    const double seconds = secondsFor([&] {
        for (std::size_t i = 0; i < bodies.size(); ++i) {
            attributes[1].value = "1/" + std::to_string(i);  // the id
            rd_kafka_headers_t* const headers = rd_kafka_headers_new(names.size() + 1);
            for (std::size_t j = 0; j < names.size(); ++j) {
                rd_kafka_header_add(headers, names[j].data(), static_cast<ssize_t>(names[j].size()),
                                    attributes[j].value.data(),
                                    static_cast<ssize_t>(attributes[j].value.size()));
            }
            rd_kafka_header_add(headers, "content-type", -1, eventContentType.data(),
                                static_cast<ssize_t>(eventContentType.size()));
            while (rd_kafka_producev(producer, RD_KAFKA_V_TOPIC("bare"),
                                     RD_KAFKA_V_MSGFLAGS(RD_KAFKA_MSG_F_COPY),
                                     RD_KAFKA_V_VALUE(const_cast<char*>(bodies[i].data()), bodies[i].size()),
                                     RD_KAFKA_V_KEY(key.data(), key.size()), RD_KAFKA_V_HEADERS(headers),
                                     RD_KAFKA_V_END) != RD_KAFKA_RESP_ERR_NO_ERROR) {
                rd_kafka_poll(producer, 1);
            }
        }
        rd_kafka_flush(producer, 60'000);
    });
    rd_kafka_destroy(producer);
    return seconds;
}

}  // namespace

int main() {
    std::string directory = "gateway_bench_XXXXXX";
    if (mkdtemp(directory.data()) == nullptr) {
        std::perror("no directory");
        return 1;
    }
    directory = std::filesystem::absolute(directory);
    const std::vector<std::string> bodies = reportsUpTo(reports);
    const double look = lookAtFrames(bodies), parse = parseFrames(bodies);
    const double bare = insertBare(directory, bodies);
    const sink_config_s sink{.name = "file",
                             .type = "file",
                             .streams = streamBit(stream_e::tags),
                             .settings = {{"path", directory + "/tags"}}};
    rd_kafka_t* const owner = rd_kafka_new(RD_KAFKA_PRODUCER, rd_kafka_conf_new(), nullptr, 0);
    rd_kafka_mock_cluster_t* const cluster = rd_kafka_mock_cluster_new(owner, 1);
    const std::string servers = rd_kafka_mock_cluster_bootstraps(cluster);
    const sink_config_s kafka{
        .name = "kafka",
        .type = "kafka",
        .streams = streamBit(stream_e::tags),
        .settings = {{"topic", "tags"}, {"properties", {{"bootstrap.servers", servers}}}}};
    std::vector<double> fills, empties, produces, bareProduces;
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
        spool.setSinks({sink, kafka});
        for (int round = 0; round < rounds; ++round) {
            fills.push_back(fillSpool(&spool, bodies));
            empties.push_back(emptySpool(&spool, sink));
            produces.push_back(emptySpool(&spool, kafka));
            bareProduces.push_back(produceBare(servers, bodies));
        }
        left = pendingIn(&spool);
    }
    const double fill = middleOf(fills), empty = middleOf(empties);
    const double produce = middleOf(produces), bareProduce = middleOf(bareProduces);
    rd_kafka_mock_cluster_destroy(cluster);
    rd_kafka_destroy(owner);
    const double copy = copyBare(directory, bodies);
    std::filesystem::remove_all(directory);
    constexpr double count = reports;
    std::printf(
        "frames looked at %.0f/s, into the spool %.0f/s, out of it into files %.0f/s, to Kafka %.0f/s\n",
        count / look, count / fill, count / empty, count / produce);
    std::printf("parsed %.0f/s, bare rows %.0f/s, bare lines %.0f/s, bare producer %.0f/s\n", count / parse,
                count / bare, count / copy, count / bareProduce);
    bool met = atMost("reports that are left in the spool", static_cast<double>(left), 0);
    met &= atLeast("a look against a parse", parse / look, 5);
    met &= atLeast("the spool against bare rows", bare / fill, 0.25);
    met &= atLeast("files against a bare copy", copy / empty, 0.02);
    met &= atLeast("reports/s into files", count / empty, 100'000);
    met &= atLeast("Kafka against a bare producer", bareProduce / produce, 0.2);
    return met ? 0 : 1;
}
