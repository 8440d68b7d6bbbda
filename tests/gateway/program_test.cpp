// SPDX-License-Identifier: MIT
// The whole gateway: from the daemon's sockets to files and subscribers, over restarts and kills.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>

#include "gateway/program.hpp"

using nlohmann::json;
using testing::HasSubstr;
using namespace std::chrono_literals;

namespace {

const char* const archive =
    R"({"name": "archive", "type": "file", "path": "DIR/tags", "streams": ["tags", "events"]})";

std::string listOfSinks(const std::string& more = "") {
    return std::string("[") + archive + (more.empty() ? "" : ", " + more) + "]";
}

std::uint64_t numberIn(const std::string& line) {
    return json::parse(line).at("data").at("eventNum");
}

// Each source and each sink, as the account promises.
void expectThatSumsClose(const json& account) {
    for (const json& source : account.at("sources")) {
        EXPECT_EQ(source.at("heard"), source.at("taken").get<std::uint64_t>() + source.value("refused", 0U));
        const json& boot = source.at("boot");
        EXPECT_EQ(boot.at("next"), boot.at("first").get<std::uint64_t>() + boot.value("numbered", 0U) +
                                       boot.value("missing", 0U))
            << source;
    }
    for (const json& sink : account.at("sinks")) {
        EXPECT_EQ(sink.at("taken"), sink.value("confirmed", 0U) + sink.value("setAside", 0U) +
                                        sink.value("dropped", 0U) + sink.value("pending", 0U))
            << sink;
    }
}

}  // namespace

TEST(Gateway, DeliversWhatTheDaemonPublishesAndAccountsForIt) {
    gateway_s gateway(listOfSinks(R"({"name": "local", "type": "zmq", "bind": "ipc://DIR/local"})"));
    gateway.start();
    const publisher_s tags(gateway.endpoint("data")), events(gateway.endpoint("events"));
    tags.waitForSubscriber();
    events.waitForSubscriber();
    const socket_s subscriber(ZMQ_SUB);
    zmq_setsockopt(subscriber.handle, ZMQ_SUBSCRIBE, "", 0);
    zmq_connect(subscriber.handle, gateway.endpoint("local").c_str());

    // A batch with the empty frame at its end, a gap of two, a frame that is no report, a late report.
    events.send({heartbeatText("00:01:00")});
    ASSERT_TRUE(gateway.settles("archive", 1));
    tags.send({reportText(7), reportText(8), ""});
    tags.send({reportText(11)});
    tags.send({"not a report"});
    tags.send({reportText(10)});
    ASSERT_TRUE(gateway.settles("archive", 5));
    json source = gateway.source();
    EXPECT_EQ(source.at("heard"), 5);
    EXPECT_EQ(source.at("notReports"), 1);
    EXPECT_EQ(source.at("missing"), 1);
    EXPECT_EQ(source.at("restarts"), 0);

    // The daemon restarts; its first report is lost.
    tags.send({reportText(1)});
    ASSERT_TRUE(gateway.settles("archive", 6));
    source = gateway.source();
    EXPECT_EQ(source.at("restarts"), 1);
    EXPECT_EQ(source.at("missing"), 2);
    expectThatSumsClose(gateway.account());
    EXPECT_EQ(gateway.askStatus().first, 0);
    EXPECT_THAT(gateway.askStatus().second, testing::AllOf(HasSubstr("sink archive: up"),
                                                           HasSubstr("the last of reports 0 to 0, at 20")));

    std::vector<std::string> expected{heartbeatText("00:01:00"),
                                      reportText(7),
                                      reportText(8),
                                      reportText(11),
                                      reportText(10),
                                      reportText(1)};
    EXPECT_EQ(gateway.lines("tags-", ".jsonl.part"), expected);
    // The subscription may be younger than the first reports; the last one comes for certain.
    for (std::optional<frames_t> message = subscriber.receive(); message;) {
        if (message->front() == reportText(1)) {
            break;
        }
        message = subscriber.receive();
        ASSERT_TRUE(message);
    }

    // A restart of the gateway keeps the account and the daemon's present life.
    const json before = gateway.source();
    tags.send({reportText(2)});
    ASSERT_TRUE(eventually([&] { return gateway.sink("archive").at("taken") == 7; }));
    gateway.process->signal(SIGTERM);  // while the report is not confirmed yet, which the end waits for
    EXPECT_EQ(gateway.process->waitForExit(), 0);
    gateway.start();
    tags.waitForSubscriber();
    tags.send({reportText(3)});
    ASSERT_TRUE(gateway.settles("archive", 8));
    EXPECT_EQ(gateway.source().at("boot").at("name"), before.at("boot").at("name"));
    EXPECT_EQ(gateway.source().at("missing"), 2);
    expected.push_back(reportText(2));
    // What the first run wrote has its final name now.
    EXPECT_EQ(gateway.lines("tags-", ".jsonl"), expected);
    EXPECT_EQ(gateway.lines("tags-", ".part"), std::vector<std::string>{reportText(3)});
}

TEST(Gateway, ArrivesWhatWasTakenWhenItIsKilledUnderLoad) {
    constexpr int kills = 20;
    gateway_s gateway(R"([{"name": "archive", "type": "file", "path": "DIR/tags", "rotateBytes": 65536}])");
    const publisher_s tags(gateway.endpoint("data"));
    std::uint64_t number = 0;
    for (int i = 0; i < kills; ++i) {
        gateway.start();
        tags.waitForSubscriber();
        const auto file = gateway.directory.path / "spool/spool.db-wal";
        // Until it has begun to write, and then in the middle of more.
        const auto before = std::filesystem::exists(file) ? std::filesystem::last_write_time(file)
                                                          : std::filesystem::file_time_type::min();
        ASSERT_TRUE(eventually([&] {
            for (int report = 0; report < 200; ++report) {
                tags.send({reportText(number++)});
            }
            return std::filesystem::exists(file) && std::filesystem::last_write_time(file) > before;
        }));
        gateway.process->signal(SIGKILL);
        ASSERT_EQ(gateway.process->waitForExit(), 128 + SIGKILL);
    }
    gateway.start();
    tags.waitForSubscriber();
    tags.send({reportText(number++)});
    ASSERT_TRUE(eventually([&] {
        const json account = gateway.account();
        return account.at("sources").at(0).at("boot").at("next") == number &&
               account.at("sinks").at(0).at("pending") == 0;
    }));
    expectThatSumsClose(gateway.account());
    const std::uint64_t taken = gateway.sink("archive").at("taken");
    EXPECT_GT(taken, kills * 100U);

    std::set<std::uint64_t> arrived;
    for (const char* ending : {".jsonl", ".part"}) {
        for (const std::string& line : gateway.lines("tags-", ending)) {
            arrived.insert(numberIn(line));
        }
    }
    EXPECT_EQ(arrived.size(), taken);
    EXPECT_EQ(gateway.source().at("missing"), *arrived.rbegin() + 1 - *arrived.begin() - arrived.size());
}

TEST(Gateway, TakesAnEndpointAndASpoolFromNobody) {
    gateway_s gateway(listOfSinks());
    {
        const consumer_s other(gateway.endpoint("data").c_str());
        const auto refused = gateway.launch();
        EXPECT_EQ(refused->waitForExit(), 1);
        EXPECT_THAT(refused->output(),
                    HasSubstr("data: process " + std::to_string(getpid()) + " listens there"));
        const publisher_s tags(gateway.endpoint("data"));
        other.waitForPublisher();  // its file is still there
    }
    gateway.start();
    std::string text = readTextFile(gateway.directory.path / "twgate.json");
    for (const char* name : {"status", "data", "events"}) {
        const std::string endpoint = gateway.endpoint(name);
        text.replace(text.find(endpoint), endpoint.size(), endpoint + "2");
    }
    writeTextFile(gateway.directory.path / "second.json", text);
    const auto second = gateway.launch("second.json");
    EXPECT_EQ(second->waitForExit(), 1);
    EXPECT_THAT(second->output(), HasSubstr("another twgate uses this spool"));
}

TEST(Gateway, ReloadsItsConfigurationAndKeepsTheOldOneWhenTheNewIsBad) {
    gateway_s gateway(listOfSinks());
    gateway.start();
    const publisher_s tags(gateway.endpoint("data"));
    tags.waitForSubscriber();
    gateway.writeConfig(R"([{"name": "archive", "type": "file", "path": "relative"}])");
    gateway.process->signal(SIGHUP);
    ASSERT_TRUE(gateway.process->waitForOutput("the old configuration stays in force"));
    EXPECT_THAT(gateway.process->output(), HasSubstr(R"(sinks[0].path: "relative" is not valid)"));
    tags.send({reportText(1)});
    ASSERT_TRUE(gateway.settles("archive", 1));

    // A new sink begins with what comes from now on. While another process has its endpoint it is down.
    auto other = std::make_unique<consumer_s>(gateway.endpoint("local").c_str());
    gateway.writeConfig(listOfSinks(R"({"name": "local", "type": "zmq", "bind": "ipc://DIR/local"})"));
    gateway.process->signal(SIGHUP);
    ASSERT_TRUE(gateway.process->waitForOutput("the new configuration is in force"));
    tags.send({reportText(2)});
    ASSERT_TRUE(gateway.settles("archive", 2));
    EXPECT_EQ(gateway.sink("local").at("pending"), 1);
    ASSERT_TRUE(eventually([&] { return gateway.sink("local").at("state") == "down"; }));
    EXPECT_EQ(gateway.askStatus().first, 1);
    other.reset();
    ASSERT_TRUE(gateway.settles("local", 1));
    EXPECT_EQ(gateway.askStatus().first, 0);
    gateway.process.reset();
    EXPECT_EQ(gateway.askStatus().first, 2);
}

TEST(Gateway, AnswersWhileASinkWithAnotherPasswordBegins) {
    // A server that accepts and says nothing.
    const socket_s silent(ZMQ_STREAM);
    zmq_bind(silent.handle, "tcp://127.0.0.1:*");
    std::array<char, 64> place{};
    std::size_t size = place.size();
    zmq_getsockopt(silent.handle, ZMQ_LAST_ENDPOINT, place.data(), &size);
    gateway_s gateway(listOfSinks(
        R"({"name": "site", "type": "mqtt", "user": "u", "passwordFile": "DIR/secret", "url": ")" +
        std::string("mqtt") + (place.data() + std::string("tcp").size()) + "\"}"));
    const auto file = gateway.directory.path / "secret";
    writeTextFile(file, "the old one");
    std::filesystem::permissions(file, std::filesystem::perms(0600));
    gateway.start();
    ASSERT_TRUE(silent.receive());
    writeTextFile(file, "the new one");
    gateway.process->signal(SIGHUP);
    int answers = 0;
    ASSERT_TRUE(eventually([&] {
        const std::string trouble = gateway.sink("site").at("trouble");
        answers += trouble == "its settings change" ? 1 : 0;
        return gateway.process->waitForOutput("the new configuration is in force", 0ms);
    }));
    EXPECT_GT(answers, 0);
    EXPECT_TRUE(eventually([&] {
        const auto frames = silent.receive();
        return frames && frames->back().find("the new one") != std::string::npos;
    }));
}

TEST(Gateway, WritesFilesThatAreWholeInEachFormat) {
    gateway_s gateway(
        R"([{"name": "csv", "type": "file", "path": "DIR/csv", "format": "csv", "rotateBytes": 4096, "keep": 2},
            {"name": "events", "type": "file", "path": "DIR/ce", "format": "cloudevent", "streams": ["events"],
             "rotateEvery": 0.1}])");
    // What a killed gateway leaves: the half line goes, the rest gets its final name.
    writeTextFile(gateway.directory.path / "ce-20260302T101530.123456Z.jsonl.part", "{}\n{\"half");
    gateway.start();
    const auto left = gateway.directory.path / "ce-20260302T101530.123456Z.jsonl";
    EXPECT_TRUE(eventually([&] { return std::filesystem::exists(left); }));
    EXPECT_EQ(readTextFile(left), "{}\n");
    const publisher_s tags(gateway.endpoint("data")), events(gateway.endpoint("events"));
    tags.waitForSubscriber();
    events.waitForSubscriber();
    constexpr std::uint64_t count = 2'000;
    for (std::uint64_t i = 0; i < count; ++i) {
        tags.send({reportText(i)});
    }
    events.send({heartbeatText("00:00:10")});
    ASSERT_TRUE(gateway.settles("csv", count));
    ASSERT_TRUE(gateway.settles("events", 1));
    const std::vector<std::string> rows = gateway.lines("csv-", ".csv");
    ASSERT_FALSE(rows.empty());
    EXPECT_EQ(rows[0], "id,reader,stream,type,time,epc,antenna,rssi,body");
    EXPECT_THAT(rows.back(),
                HasSubstr(",dock,tags,tag.read,2026-03-02T10:15:30.123+00:00,30340a0b0c0d0e0f10111213,"
                          "1,-52,\"{\"\"data\"\":{"));
    EXPECT_LE(std::ranges::count(rows, rows[0]), 2);  // one header a file
    ASSERT_TRUE(eventually([&] { return gateway.lines("ce-", ".jsonl").size() == 2; }));
    const json event = json::parse(gateway.lines("ce-", ".jsonl").back());
    const std::string boot = gateway.source().at("boot").at("name").dump();
    EXPECT_THAT(event.at("id").get<std::string>(), testing::StartsWith(boot + "/s"));
    EXPECT_EQ(event.at("type"), "tarnwick.heartbeat");
    EXPECT_EQ(event.at("source"), "/readers/dock");
    EXPECT_EQ(event.at("data").at("data").at("uptime"), "00:00:10");
}

TEST(Gateway, TellsASinkThatComesBackWhatItHasMissed) {
    gateway_s gateway(R"([{"name": "away", "type": "file", "path": "DIR/out/tags", "rotateBytes": 4096},
                          {"name": "here", "type": "file", "path": "DIR/here"}])",
                      R"(, "maxEvents": 1000)");
    const auto folder = gateway.directory.path / "out";
    std::filesystem::create_directory(folder);
    gateway.start();
    const publisher_s tags(gateway.endpoint("data"));
    tags.waitForSubscriber();
    std::filesystem::remove_all(folder);  // the next file cannot be begun
    std::uint64_t number = 0;
    ASSERT_TRUE(eventually([&] {
        for (int i = 0; i < 500; ++i) {
            tags.send({reportText(number++)});
        }
        return gateway.settles("here", number) && gateway.sink("away").at("dropped") > 0;
    }));
    EXPECT_EQ(gateway.sink("here").at("dropped"), 0);
    EXPECT_EQ(gateway.askStatus().first, 1);
    std::filesystem::create_directory(folder);
    ASSERT_TRUE(eventually([&] { return gateway.sink("away").at("pending") == 0; }));
    expectThatSumsClose(gateway.account());

    std::vector<std::string> lines = gateway.lines("out/tags-", ".jsonl");
    std::ranges::copy(gateway.lines("out/tags-", ".part"), std::back_inserter(lines));
    ASSERT_GT(lines.size(), 2U);
    const json overflow = json::parse(lines[0]);
    EXPECT_EQ(overflow.at("type"), "overflow");
    EXPECT_EQ(overflow.at("data").at("count"), gateway.sink("away").at("dropped"));
    const std::string life = "dock/" + gateway.source().at("boot").at("name").dump() + "/";
    EXPECT_EQ(overflow.at("data").at("last"), life + std::to_string(numberIn(lines[1]) - 1));
    EXPECT_EQ(numberIn(lines.back()), number - 1);
    EXPECT_EQ(numberIn(lines.back()) - numberIn(lines[1]) + 2, lines.size());
}
