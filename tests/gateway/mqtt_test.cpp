// SPDX-License-Identifier: MIT
// The sink "mqtt" with a real server: what is lost, what comes twice, and who is told why.
#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>

#include "gateway/program.hpp"
#include "sinks/mqtt/topic.hpp"
#include "sinks/pattern.hpp"

using nlohmann::json;

namespace {

constexpr std::uint64_t window = 50;  // of the sinks here

int freePort() {
    const int fd = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{AF_INET, 0, {htonl(INADDR_LOOPBACK)}, {}};
    socklen_t size = sizeof address;
    bind(fd, reinterpret_cast<sockaddr*>(&address), size);
    getsockname(fd, reinterpret_cast<sockaddr*>(&address), &size);
    close(fd);
    return ntohs(address.sin_port);
}

void runTool(const std::string& command) {
    process_s tool("/bin/sh", {{"-c", command}, {}, {}});
    if (tool.waitForExit() != 0) {
        throw std::runtime_error(command + ": " + tool.output());
    }
}

// A server that forgets all when it ends. Clients without a name are served, and the user "twgate" once it
// is admitted: so a test has its subscriber there before the gateway.
struct broker_s {
    explicit broker_s(std::string moreSettings = "") : more(std::move(moreSettings)) {}

    void start() {
        const std::string users = directory.path / "users";
        writeTextFile(users, "");
        setRights("topic write #\n");
        writeTextFile(directory.path / "conf", "user root\nallow_anonymous true\npassword_file " + users +
                                                   "\nacl_file " + (directory.path / "rights").string() +
                                                   "\nlistener " + std::to_string(port) + " 127.0.0.1\n" +
                                                   more);
        process = std::make_unique<process_s>("/usr/sbin/mosquitto",
                                              process_options_s{{"-c", directory.path / "conf"}, {}, {}});
        if (!process->waitForOutput("running")) {
            throw std::runtime_error("mosquitto: " + process->output());
        }
    }

    void admitGateway() const {
        runTool("mosquitto_passwd -b " + (directory.path / "users").string() + " twgate secret");
        process->signal(SIGHUP);
    }
    void setRights(const std::string& ofTheGateway) const {
        writeTextFile(directory.path / "rights",
                      "topic readwrite #\nuser twgate\ntopic write tarnwick/#\n" + ofTheGateway);
    }

    std::string url() const { return "mqtt://127.0.0.1:" + std::to_string(port); }

    temp_dir_s directory;
    const int port = freePort();
    const std::string more;
    std::unique_ptr<process_s> process;
};

// mosquitto_sub: all messages from its construction on, as "TOPIC|USER PROPERTIES|CONTENT TYPE|PAYLOAD".
struct subscriber_s {
    explicit subscriber_s(int port)
        : process("/bin/sh", {{"-c", "exec stdbuf -oL mosquitto_sub -d -V 5 -t '#' -F 'GOT%t|%P|%C|%p' -p " +
                                         std::to_string(port)},
                              {},
                              {}}) {
        if (!process.waitForOutput("Subscribed")) {
            throw std::runtime_error("not subscribed: " + process.output());
        }
    }

    bool waitFor(const std::string& message) const { return process.waitForOutput("GOT" + message); }

    // The event numbers that came, in their order.
    std::vector<std::uint64_t> numbers() const {
        std::vector<std::uint64_t> list;
        std::istringstream text(process.output());
        for (std::string line; std::getline(text, line);) {
            if (line.starts_with("GOTtags|") && line.ends_with('}')) {
                list.push_back(std::stoull(line.substr(line.find("\"eventNum\":") + 11)));
            }
        }
        return list;
    }

    process_s process;
};

// A sink "site" of user "twgate", whose events have the topic "tags".
std::string siteSink(const std::string& url, const std::string& more = "") {
    return R"([{"name": "site", "type": "mqtt", "topic": "tags", "keepAlive": 5, "window": )" +
           std::to_string(window) + R"(, "user": "twgate", "passwordFile": "DIR/password", "url": ")" + url +
           "\"" + more + "}]";
}

// A gateway with the sink "site", and a reader that publishes to it. The server is not started.
struct site_s {
    explicit site_s(const std::string& more = "", const std::string& brokerSettings = "")
        : broker(brokerSettings), gateway(siteSink(broker.url(), more)), tags(gateway.endpoint("data")) {
        writePassword("secret");
    }

    void startGateway() {
        gateway.start();
        tags.waitForSubscriber();
    }
    void writePassword(const std::string& password) const {
        writeTextFile(gateway.directory.path / "password", password);
        std::filesystem::permissions(gateway.directory.path / "password", std::filesystem::perms(0600));
    }
    void send(std::uint64_t count) {
        for (const std::uint64_t end = sent + count; sent < end; ++sent) {
            tags.send({reportText(sent)});
        }
    }
    bool isDown(const std::string& why) const {
        return eventually([&] {
            const json sink = gateway.sink("site");
            return sink.at("state") == "down" &&
                   sink.at("trouble").get<std::string>().find(why) != std::string::npos;
        });
    }

    broker_s broker;
    gateway_s gateway;
    const publisher_s tags;
    std::uint64_t sent = 0;
};

// All from 0 to `count` came, each at first in its place, and at most `repeats` of them again.
void expectAll(const std::vector<std::uint64_t>& came, std::uint64_t count, std::uint64_t repeats) {
    std::uint64_t next = 0;
    for (const std::uint64_t number : came) {
        EXPECT_LE(number, next) << "out of order";
        next = std::max(next, number + 1);
    }
    EXPECT_EQ(next, count);
    EXPECT_LE(came.size(), count + repeats);
}

}  // namespace

TEST(Mqtt, LosesNothingWhenTheServerIsAbsentForbidsAndIsKilled) {
    site_s site;
    site.writePassword("wrong");
    site.startGateway();
    std::vector<std::uint64_t> came;
    site.send(300);
    ASSERT_TRUE(site.isDown("Connection refused"));
    constexpr int kills = 3;
    for (int round = 0; round <= kills; ++round) {
        site.broker.start();
        const subscriber_s subscriber(site.broker.port);
        site.broker.setRights(round == 0 ? "" : "topic write tags\n");
        site.broker.admitGateway();
        if (round == 0) {
            ASSERT_TRUE(site.isDown("Not authorized"));
            site.writePassword("secret");
            ASSERT_TRUE(site.isDown("tags: Not authorized"));
            site.broker.setRights("topic write tags\n");
            site.broker.process->signal(SIGHUP);
            ASSERT_TRUE(site.gateway.settles("site", site.sent));
        }
        const std::uint64_t before = site.sent;
        ASSERT_TRUE(eventually([&] {
            site.send(round == kills ? 0 : 100);
            const auto numbers = subscriber.numbers();
            return !numbers.empty() && numbers.back() >= before - 1;
        }));
        if (round < kills) {
            site.broker.process->signal(SIGKILL);
            site.send(300);
            ASSERT_TRUE(site.isDown(""));
        } else {
            ASSERT_TRUE(site.gateway.settles("site", site.sent));
        }
        // What the server has acknowledged was on its way to the subscriber before.
        const std::uint64_t confirmed = site.gateway.sink("site").at("confirmed");
        ASSERT_TRUE(eventually([&] {
            const auto numbers = subscriber.numbers();
            return !numbers.empty() && numbers.back() + 1 >= confirmed;
        }));
        std::ranges::copy(subscriber.numbers(), std::back_inserter(came));
    }
    expectAll(came, site.sent, kills * window);
}

TEST(Mqtt, LosesNothingWhenTheGatewayIsKilled) {
    site_s site(R"(, "qos": 2)");
    site.broker.start();
    site.broker.admitGateway();
    const subscriber_s subscriber(site.broker.port);
    constexpr int kills = 5;
    for (int round = 0; round < kills; ++round) {
        site.startGateway();
        const std::size_t before = subscriber.numbers().size();
        ASSERT_TRUE(eventually([&] {
            site.send(100);
            return subscriber.numbers().size() > before + window;
        }));
        site.gateway.process->signal(SIGKILL);
        ASSERT_EQ(site.gateway.process->waitForExit(), 128 + SIGKILL);
    }
    site.gateway.start();
    ASSERT_TRUE(eventually([&] { return site.gateway.sink("site").at("pending") == 0; }));
    EXPECT_TRUE(eventually([&] {
        const auto came = subscriber.numbers();
        return std::set(came.begin(), came.end()).size() == site.gateway.sink("site").at("taken");
    }));
    EXPECT_LE(subscriber.numbers().size(),
              site.gateway.sink("site").at("taken").get<std::uint64_t>() + kills * window);
}

TEST(Mqtt, LeavesALinkThatSwallowsEverythingAndRepeatsNothingWithQos2) {
    site_s site(R"(, "qos": 2)");
    site.broker.start();
    site.broker.admitGateway();
    const subscriber_s subscriber(site.broker.port);
    site.startGateway();
    site.send(1'000);
    ASSERT_TRUE(eventually([&] { return !subscriber.numbers().empty(); }));
    site.broker.process->signal(SIGSTOP);  // the kernel still takes what is site.sent
    site.send(1'000);
    ASSERT_TRUE(site.isDown("nothing was confirmed for 5 s"));
    site.broker.process->signal(SIGCONT);
    ASSERT_TRUE(site.gateway.settles("site", site.sent));
    ASSERT_TRUE(eventually([&] { return subscriber.numbers().size() >= site.sent; }));
    expectAll(subscriber.numbers(), site.sent, 0);
}

TEST(Mqtt, SpeaksBothVersionsAndTellsWhetherItIsThere) {
    broker_s broker;
    broker.start();
    const std::string begin = R"({"streams": ["tags", "events"], "type": "mqtt", "url": ")" + broker.url();
    gateway_s gateway(
        "[" + begin + R"(", "name": "new", "topic": "n/{reader}/{stream}/{antenna}/{epc}/{type}"}, )" +
        begin +
        R"(", "name": "old", "version": "3.1.1", "qos": 0, "format": "cloudevent", "topic": "o/{type}",
            "availability": "old"}])");
    {
        const subscriber_s subscriber(broker.port);
        gateway.start();
        const publisher_s tags(gateway.endpoint("data")), events(gateway.endpoint("events"));
        tags.waitForSubscriber();
        events.waitForSubscriber();
        tags.send({reportText(7)});
        events.send({heartbeatText("00:00:10")});
        ASSERT_TRUE(gateway.settles("new", 2) && gateway.settles("old", 2));
        const std::string id = gateway.source().at("boot").at("name").dump() + "/7";
        for (const std::string& message :
             {"n/dock/tags/1/30340a0b0c0d0e0f10111213/tag.read|specversion:1.0 id:" + id +
                  " source:/readers/dock type:tarnwick.tag.read time:2026-03-02T10:15:30.123+00:00 "
                  "subject:30340a0b0c0d0e0f10111213|application/json|" +
                  reportText(7),
              std::string("n/dock/events/-/-/heartbeat|"), std::string("o/heartbeat||"),
              R"(o/tag.read|||{"specversion":"1.0","id":")" + id}) {
            EXPECT_TRUE(subscriber.waitFor(message)) << message << "\n" << subscriber.process.output();
        }
    }
    // Retained; "offline" is said at the end, and by the server when there was no time for it.
    for (const int end : {SIGTERM, SIGKILL}) {
        const subscriber_s subscriber(broker.port);
        EXPECT_TRUE(subscriber.waitFor("tarnwick/dock/availability|||online") &&
                    subscriber.waitFor("old|||online"));
        gateway.process->signal(end);
        EXPECT_TRUE(subscriber.waitFor("tarnwick/dock/availability|||offline") &&
                    subscriber.waitFor("old|||offline"));
        ASSERT_TRUE(gateway.process->waitForExit());
        gateway.start();
    }
}

TEST(Mqtt, SpeaksTlsOnlyToAServerThatItKnows) {
    const temp_dir_s directory;
    const auto file = [&](const std::string& name) { return (directory.path / name).string(); };
    for (const std::string name : {"stranger", "authority", "server", "client"}) {
        const bool isSigned = name == "server" || name == "client";
        runTool("openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -subj /CN=" + name +
                " -addext subjectAltName=IP:127.0.0.1 -keyout " + file(name + ".key") + " -out " +
                file(name + ".pem") +
                (isSigned ? " -CA " + file("authority.pem") + " -CAkey " + file("authority.key") : ""));
    }
    const int plainPort = freePort();
    site_s site("", "cafile " + file("authority.pem") + "\ncertfile " + file("server.pem") + "\nkeyfile " +
                        file("server.key") + "\nrequire_certificate true\nlistener " +
                        std::to_string(plainPort) + " 127.0.0.1\n");
    site.broker.start();
    site.broker.admitGateway();
    const subscriber_s subscriber(plainPort);
    const std::string own =
        R"(, "certificate": ")" + file("client.pem") + R"(", "privateKey": ")" + file("client.key") + "\"";
    const auto configure = [&](const std::string& authority, const std::string& more) {
        site.gateway.writeConfig(siteSink("mqtts://127.0.0.1:" + std::to_string(site.broker.port),
                                          R"(, "ca": ")" + file(authority) + "\"" + more));
    };
    configure("stranger.pem", own);
    site.startGateway();
    site.send(100);
    EXPECT_TRUE(site.isDown("certificate verify failed"));
    configure("authority.pem", "");
    site.gateway.process->signal(SIGHUP);
    EXPECT_TRUE(site.isDown("certificate required"));
    EXPECT_TRUE(subscriber.numbers().empty());
    configure("authority.pem", own);
    site.gateway.process->signal(SIGHUP);
    ASSERT_TRUE(site.gateway.settles("site", site.sent));
    EXPECT_TRUE(eventually([&] { return subscriber.numbers().size() == site.sent; }));
}

TEST(Mqtt, FillsTopicsWithoutGivingAwayTheirLevels) {
    entry_s entry;
    entry.reader = "do ck/+#";
    entry.body = R"({"data":{"antenna":12}})";
    const std::pair<std::string, std::string> cases[] = {
        {"a/{reader}", "a/do%20ck%2F%2B%23"},
        {"{antenna}{antenna}/{epc}", "1212/-"},
        {std::string(10'000, 'x') + "/{stream}/", std::string(10'000, 'x') + "/tags/"},
    };
    for (const auto& [text, topic] : cases) {
        EXPECT_EQ(pattern_c(text, appendTopicLevel).fill(entry), topic);
        EXPECT_EQ(findTopicMistake(text, placeholderNames()), "");
    }
}
