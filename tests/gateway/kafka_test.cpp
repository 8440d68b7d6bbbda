// SPDX-License-Identifier: MIT
// The sink "kafka" against the mock cluster of librdkafka, which listens in this process; kcat reads.
#include <librdkafka/rdkafka.h>
// Behind the other one.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <librdkafka/rdkafka_mock.h>

#include <set>

#include "gateway/program.hpp"
#include "gateway/server.hpp"

using nlohmann::json;

namespace {

constexpr std::int32_t broker = 1;
constexpr std::int16_t produceRequest = 0;
constexpr int strikes = 5;           // of the signal
constexpr std::size_t window = 500;  // what may be in flight

// A cluster of one broker with topics of one partition each, and a gateway that sends there.
struct kafka_s {
    explicit kafka_s(const std::string& settings = "", const std::string& properties = "")
        : gateway(sinkText(servers, settings, properties)) {
        rd_kafka_mock_topic_create(mock, "dock.tags", 1, 1);
        rd_kafka_mock_topic_create(mock, "dock.events", 1, 1);
    }
    ~kafka_s() {
        rd_kafka_mock_cluster_destroy(mock);
        rd_kafka_destroy(owner);
    }
    static std::string sinkText(const std::string& servers, const std::string& settings,
                                const std::string& properties) {
        return R"([{"name": "lake", "type": "kafka", "topic": "{reader}.{stream}",)" + settings +
               R"("streams": ["tags", "events"], "properties": {"bootstrap.servers": ")" + servers +
               R"(", "reconnect.backoff.max.ms": 100, "queue.buffering.max.messages": 500)" + properties +
               "}}]";
    }
    kafka_s(const kafka_s&) = delete;
    kafka_s& operator=(const kafka_s&) = delete;

    void start() {
        gateway.start();
        tags.waitForSubscriber();
    }
    void watch() {
        watcher = std::make_unique<process_s>(
            "/bin/sh",
            process_options_s{{"-c",
                               "exec kcat -C -E -q -u -J -t dock.tags -X socket.timeout.ms=1000 -X "
                               "reconnect.backoff.max.ms=100 2>/dev/null -b " +
                                   servers},
                              {},
                              {}});
    }
    void send(int count) {
        for (int i = 0; i < count; ++i) {
            tags.send({reportText(next++)});
        }
    }
    // Those of the tags that came so far, with the members that kcat gives them. It reads from the beginning
    // on: the cluster forgets the oldest beyond 5 MiB, and later readers would miss them.
    std::vector<json> records() const { return recordsIn(watcher->output()); }
    std::vector<json> recordsOf(const std::string& topic) const {
        process_s reader("kcat", {{"-C", "-q", "-J", "-e", "-b", servers, "-t", topic}, {}, {}});
        EXPECT_EQ(reader.waitForExit(), 0);
        return recordsIn(reader.output());
    }
    static std::vector<json> recordsIn(const std::string& output) {
        std::istringstream lines(output.substr(0, output.rfind('\n') + 1));
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
    std::unique_ptr<process_s> watcher;
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
// The metadata of a producer that starts from now on tell so.
template <rd_kafka_resp_err_t why>
void setTopicError(kafka_s* kafka) {
    rd_kafka_mock_topic_set_error(kafka->mock, "dock.tags", why);
}
// Larger than the client allows.
void sendLarge(kafka_s* kafka) {
    std::string large = reportText(kafka->next++);
    kafka->tags.send({large.insert(large.size() - 1, ",\"more\":\"" + std::string(20'000, 'x') + "\"")});
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
    const char* told = "";  // by the log
    void (*strike)(kafka_s*) = doNothing;
    void (*heal)(kafka_s*) = doNothing;
    bool isAtStart = false;
    std::vector<rd_kafka_resp_err_t> errors = {};  // answers to the next records
    const char* setAside = "0";                    // how many events; "some"
    const char* properties = "";
    const char* settings = "";
};

std::uint64_t numberOf(const json& report) {
    return report.at("data").at("eventNum");
}

void playFaults(const std::vector<fault_s>& faults) {
    constexpr int reports = 2'000;  // of each phase
    for (const fault_s& fault : faults) {
        SCOPED_TRACE(fault.name);
        kafka_s kafka(fault.settings, fault.properties);
        if (fault.isAtStart) {
            fault.strike(&kafka);
        }
        kafka.start();
        kafka.send(reports);
        if (!fault.isAtStart) {
            kafka.watch();
            ASSERT_TRUE(kafka.watcher->waitForOutput("{")) << kafka.gateway.process->output();
            rd_kafka_mock_push_request_errors_array(kafka.mock, produceRequest, fault.errors.size(),
                                                    fault.errors.data());
            fault.strike(&kafka);
        }
        kafka.send(reports);
        EXPECT_TRUE(kafka.gateway.process->waitForOutput(fault.told)) << kafka.gateway.process->output();
        fault.heal(&kafka);
        if (fault.isAtStart) {
            kafka.watch();
        }
        kafka.send(reports);
        json account;
        ASSERT_TRUE(eventually([&] {
            account = kafka.gateway.account();
            return account["sources"][0]["boot"]["next"] == kafka.next && account["sinks"][0]["pending"] == 0;
        })) << account;
        const json& sink = account["sinks"][0];
        const std::uint64_t taken = sink["taken"], setAside = sink.value("setAside", 0U);
        EXPECT_EQ(fault.setAside,
                  fault.setAside == std::string("some") && setAside > 0 ? "some" : std::to_string(setAside));
        std::set<std::uint64_t> all;
        for (const std::string& letter : kafka.gateway.lines("spool/lake", ".dead.jsonl")) {
            all.insert(numberOf(json::parse(letter)["event"]["data"]));
        }
        EXPECT_EQ(all.size(), setAside);
        std::vector<json> records;
        EXPECT_TRUE(eventually([&] {
            records = kafka.records();
            return records.size() + setAside >= taken;
        }));
        std::set<std::uint64_t> arrived;
        for (const json& record : records) {
            const std::uint64_t number = numberOf(json::parse(record["payload"].get<std::string>()));
            EXPECT_TRUE(arrived.empty() || number > *arrived.rbegin() || arrived.contains(number)) << number;
            arrived.insert(number);
        }
        EXPECT_EQ(arrived.empty() ? 0 : records.back()["offset"].get<std::size_t>() + 1, records.size());
        all.insert(arrived.begin(), arrived.end());
        EXPECT_EQ(all.size(), taken);
        EXPECT_LE(records.size() - arrived.size(), window * strikes);
        std::printf("%s: taken %zu, arrived %zu, repeated %zu, set aside %zu\n", fault.name,
                    static_cast<std::size_t>(taken), arrived.size(), records.size() - arrived.size(),
                    static_cast<std::size_t>(setAside));
    }
}

}  // namespace

constexpr const char* smallBatches = R"(, "batch.num.messages": 50)";
constexpr const char* quickTopics = R"(, "topic.metadata.propagation.max.ms": 500)";

TEST(KafkaSink, LosesNothingAndKeepsTheOrderInEachFault) {
    playFaults({
        {"absent", "warning sink lake: 127.0.0.1", setDown, setUp, true},
        {"killed", "Connection refused", setDown, setUp},
        {.name = "half-open",
         .told = "timed out",
         .strike = swallow,
         .heal = answer,
         .properties = R"(, "socket.timeout.ms": 500)"},
        {.name = "little room",
         .told = "refused",
         .strike = setDown,
         .heal = setUp,
         .properties = R"(, "queue.buffering.max.kbytes": 1)"},
        {"twgate killed", "", killTwgate},
        {.name = "errors that pass",
         .errors = {RD_KAFKA_RESP_ERR_NOT_LEADER_FOR_PARTITION, RD_KAFKA_RESP_ERR_NOT_ENOUGH_REPLICAS,
                    RD_KAFKA_RESP_ERR_REQUEST_TIMED_OUT, RD_KAFKA_RESP_ERR_LEADER_NOT_AVAILABLE},
         .properties = smallBatches},
    });
}

TEST(KafkaSink, SetsAsideOnlyWhatIsRefusedForGood) {
    constexpr auto exists = RD_KAFKA_RESP_ERR_NO_ERROR;
    constexpr auto invalid = RD_KAFKA_RESP_ERR_INVALID_RECORD;
    constexpr auto forbidden = RD_KAFKA_RESP_ERR_TOPIC_AUTHORIZATION_FAILED;
    constexpr auto unknown = RD_KAFKA_RESP_ERR_UNKNOWN_TOPIC_OR_PART;
    constexpr auto badName = RD_KAFKA_RESP_ERR_TOPIC_EXCEPTION;
    const char* const told = "is set aside";
    playFaults({
        {.name = "forbidden",
         .told = "Topic authorization failed",
         .errors = {forbidden, forbidden},
         .properties = smallBatches},
        {.name = "too large a batch",
         .told = "they go one by one now",
         .errors = {RD_KAFKA_RESP_ERR_MSG_SIZE_TOO_LARGE}},
        {.name = "too large",
         .told = told,
         .strike = sendLarge,
         .setAside = "1",
         .properties = R"(, "message.max.bytes": 10000)"},
        {.name = "invalid record",
         .told = told,
         .errors = {invalid, invalid},
         .setAside = "1",
         .properties = smallBatches},
        {"invalid topic", told, setTopicError<badName>, setTopicError<exists>, true, {}, "some"},
        {"unknown topic",
         "lake: dock.tags: ",
         setTopicError<unknown>,
         setTopicError<exists>,
         true,
         {},
         "0",
         quickTopics},
        {"unknown topic, set aside",
         told,
         setTopicError<unknown>,
         setTopicError<exists>,
         true,
         {},
         "some",
         quickTopics,
         R"("unknownTopic": "setAside",)"},
    });
}

TEST(KafkaSink, GivesNothingToAStrangerAndTellsOfAWrongPassword) {
    kafka_s kafka;
    const std::filesystem::path folder = kafka.gateway.directory.path;
    const auto file = [&](const std::string& name) { return (folder / name).string(); };
    makeCertificates(folder);
    const std::string plain = kafka.servers.substr(kafka.servers.find(':') + 1);
    const process_s front("python3", {{TARNWICK_SOURCE_DIR "/tests/gateway/kafka_front.py", plain,
                                       file("server.pem"), file("server.key"), "twgate", "secret"},
                                      {},
                                      {}});
    ASSERT_TRUE(front.waitForOutput("\n")) << front.output();
    writeTextFile(file("password"), "wrong");
    std::filesystem::permissions(file("password"), std::filesystem::perms(0600));
    struct {
        std::string port, authority, told;
    } const cases[] = {
        {plain, "authority.pem", "warning sink lake: sasl_ssl"},
        {front.output(), "stranger.pem", "certificate verify failed"},
        {front.output(), "authority.pem", "SASL authentication error"},
    };
    for (const auto& [port, authority, told] : cases) {
        kafka.gateway.writeConfig(kafka_s::sinkText(
            "127.0.0.1:" + std::to_string(std::stoi(port)), R"("passwordFile": "DIR/password",)",
            R"(, "security.protocol": "sasl_ssl", "sasl.mechanism": "PLAIN", "sasl.username": "twgate",
            "ssl.ca.location": "DIR/)" +
                authority + "\""));
        if (kafka.next == 0) {
            kafka.start();
            kafka.send(100);
        }
        kafka.gateway.process->signal(SIGHUP);
        EXPECT_TRUE(kafka.gateway.process->waitForOutput(told)) << kafka.gateway.process->output();
    }
    EXPECT_EQ(kafka.gateway.sink("lake").at("pending"), 100);
    writeTextFile(file("password"), "secret");
    EXPECT_TRUE(kafka.gateway.settles("lake", 100)) << kafka.gateway.process->output();
    EXPECT_EQ(kafka.recordsOf("dock.tags").size(), 100);
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
        const json tag = kafka.recordsOf("dock.tags").at(0), event = kafka.recordsOf("dock.events").at(0);
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
