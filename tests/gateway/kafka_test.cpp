// SPDX-License-Identifier: MIT
// The sink "kafka" against the mock cluster of librdkafka, which listens in this process; kcat reads.
#include <librdkafka/rdkafka.h>
// Behind the other one.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <librdkafka/rdkafka_mock.h>

#include <set>

#include "gateway/program.hpp"

using nlohmann::json;

namespace {

constexpr std::int32_t broker = 1;
constexpr std::int16_t produceRequest = 0;
constexpr int strikes = 5;           // of the signal
constexpr std::size_t window = 500;  // what may be in flight

// A cluster of one broker with topics of one partition each, and a gateway that sends there.
struct kafka_s {
    explicit kafka_s(const std::string& settings, const std::string& properties = "")
        : gateway(R"([{"name": "lake", "type": "kafka", "topic": "{reader}.{stream}",)" + settings +
                  R"("streams": ["tags", "events"], "properties": {"bootstrap.servers": ")" + servers +
                  R"(", "reconnect.backoff.max.ms": 100, "queue.buffering.max.messages": 500)" + properties +
                  "}}]") {
        rd_kafka_mock_topic_create(mock, "dock.tags", 1, 1);
        rd_kafka_mock_topic_create(mock, "dock.events", 1, 1);
    }
    ~kafka_s() {
        rd_kafka_mock_cluster_destroy(mock);
        rd_kafka_destroy(owner);
    }
    kafka_s(const kafka_s&) = delete;
    kafka_s& operator=(const kafka_s&) = delete;

    void start() {
        gateway.start();
        tags.waitForSubscriber();
    }
    void send(int count) {
        for (int i = 0; i < count; ++i) {
            tags.send({reportText(next++)});
        }
    }
    // With the members that kcat gives them.
    std::vector<json> records(const std::string& topic) const {
        process_s reader("kcat", {{"-C", "-q", "-J", "-e", "-b", servers, "-t", topic}, {}, {}});
        EXPECT_EQ(reader.waitForExit(), 0);
        std::istringstream lines(reader.output());
        std::vector<json> all;
        for (std::string line; std::getline(lines, line);) {
            all.push_back(json::parse(line));
        }
        return all;
    }

    rd_kafka_t* owner = rd_kafka_new(RD_KAFKA_PRODUCER, rd_kafka_conf_new(), nullptr, 0);
    rd_kafka_mock_cluster_t* mock = rd_kafka_mock_cluster_new(owner, 1);
    std::string servers = rd_kafka_mock_cluster_bootstraps(mock);
    gateway_s gateway;
    publisher_s tags{gateway.endpoint("data")};
    std::uint64_t next = 0;
};

void setDown(kafka_s* kafka) {
    rd_kafka_mock_broker_set_down(kafka->mock, broker);
}
void setUp(kafka_s* kafka) {
    rd_kafka_mock_broker_set_up(kafka->mock, broker);
}
// It still accepts and reads, and answers nothing for an hour.
void swallow(kafka_s* kafka) {
    rd_kafka_mock_broker_set_rtt(kafka->mock, broker, 3'600'000);
}
void answer(kafka_s* kafka) {
    rd_kafka_mock_broker_set_rtt(kafka->mock, broker, 0);
}
void refuse(kafka_s* kafka) {
    const rd_kafka_resp_err_t why = RD_KAFKA_RESP_ERR_TOPIC_AUTHORIZATION_FAILED;
    rd_kafka_mock_push_request_errors(kafka->mock, produceRequest, 2, why, why);
}
void doNothing(kafka_s*) {}

// Again and again in the middle of more.
void killTwgate(kafka_s* kafka) {
    for (int kills = 0; kills < strikes; ++kills) {
        const json before = kafka->gateway.sink("lake").at("confirmed");
        EXPECT_TRUE(eventually([&] {
            kafka->send(100);
            return kafka->gateway.sink("lake").at("confirmed") > before;
        }));
        kafka->send(100);
        kafka->gateway.process->signal(SIGKILL);
        EXPECT_EQ(kafka->gateway.process->waitForExit(), 128 + SIGKILL);
        kafka->start();
    }
}

struct fault_s {
    const char* name;
    void (*strike)(kafka_s*);
    const char* told;  // by the log
    void (*heal)(kafka_s*);
    const char* properties = "";
    bool isAtStart = false;
};

}  // namespace

TEST(KafkaSink, LosesNothingAndKeepsTheOrderInEachFault) {
    constexpr int reports = 2'000;  // of each phase
    for (const fault_s& fault : {
             fault_s{"absent", setDown, "warning sink lake: 127.0.0.1", setUp, "", true},
             fault_s{"killed", setDown, "Connection refused", setUp},
             fault_s{"half-open", swallow, "timed out", answer, R"(, "socket.timeout.ms": 500)"},
             fault_s{"refused", refuse, "lake: dock.tags: Broker: Topic authorization failed", doNothing,
                     R"(, "batch.num.messages": 50)"},
             fault_s{"little room", setDown, "refused", setUp, R"(, "queue.buffering.max.kbytes": 1)"},
             fault_s{"twgate killed", killTwgate, "", doNothing},
         }) {
        SCOPED_TRACE(fault.name);
        kafka_s kafka("", fault.properties);
        if (fault.isAtStart) {
            fault.strike(&kafka);
        }
        kafka.start();
        kafka.send(reports);
        if (!fault.isAtStart) {
            ASSERT_TRUE(eventually([&] { return kafka.gateway.sink("lake").at("confirmed") > 0; }));
            fault.strike(&kafka);
        }
        kafka.send(reports);
        EXPECT_TRUE(kafka.gateway.process->waitForOutput(fault.told)) << kafka.gateway.process->output();
        fault.heal(&kafka);
        kafka.send(reports);
        json account;
        ASSERT_TRUE(eventually([&] {
            account = kafka.gateway.account();
            return account["sources"][0]["boot"]["next"] == kafka.next && account["sinks"][0]["pending"] == 0;
        })) << account;
        EXPECT_EQ(account["sinks"][0]["state"], "up");
        std::set<std::uint64_t> arrived;
        std::size_t repeats = 0;
        for (const json& record : kafka.records("dock.tags")) {
            const std::uint64_t number =
                json::parse(record["payload"].get<std::string>())["data"]["eventNum"];
            EXPECT_TRUE(arrived.empty() || number > *arrived.rbegin() || arrived.contains(number)) << number;
            repeats += arrived.insert(number).second ? 0 : 1;
        }
        EXPECT_EQ(arrived.size(), account["sinks"][0]["taken"]);
        EXPECT_LE(repeats, window * strikes);
    }
}

TEST(KafkaSink, SendsRecordsWithKeyHeadersAndTopic) {
    const std::string epc = "30340a0b0c0d0e0f10111213";
    for (const bool isStructured : {false, true}) {
        kafka_s kafka(isStructured ? R"("format": "cloudevent", "key": "{type}",)" : "");
        kafka.start();
        // Nothing was sent yet: the state of the link alone tells that it is up.
        ASSERT_TRUE(eventually([&] { return kafka.gateway.askStatus().first == 0; }));
        const publisher_s events(kafka.gateway.endpoint("events"));
        events.waitForSubscriber();
        kafka.send(1);
        events.send({heartbeatText("00:00:10")});
        ASSERT_TRUE(kafka.gateway.settles("lake", 2));
        const json tag = kafka.records("dock.tags").at(0), event = kafka.records("dock.events").at(0);
        if (isStructured) {
            EXPECT_EQ(tag["headers"], json({"content-type", "application/cloudevents+json; charset=UTF-8"}));
            EXPECT_EQ(json::parse(tag["payload"].get<std::string>())["data"].dump(), reportText(0));
            EXPECT_EQ(event["key"], "heartbeat");
        } else {
            const std::string id = kafka.gateway.source().at("boot").at("name").dump() + "/0";
            EXPECT_EQ(tag["headers"],
                      json({"ce_specversion", "1.0", "ce_id", id, "ce_source", "/readers/dock", "ce_type",
                            "tarnwick.tag.read", "ce_time", "2026-03-02T10:15:30.123+00:00", "ce_subject",
                            epc, "ce_partitionkey", epc, "content-type", "application/json"}));
            EXPECT_EQ(tag["payload"], reportText(0));
            EXPECT_EQ(tag["key"], epc);
            EXPECT_EQ(event["key"], "dock");  // it has no EPC
        }
    }
}
