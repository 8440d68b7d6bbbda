// SPDX-License-Identifier: MIT
// The sink "mqtt" with a real server: what is lost, what comes twice, and who is told why.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <regex>
#include <set>
#include <thread>

#include "gateway/namespace.hpp"
#include "gateway/program.hpp"
#include "sinks/mqtt/topic.hpp"
#include "sinks/pattern.hpp"
#include "twctl/sockets.hpp"

using nlohmann::json;

namespace {

using namespace std::chrono_literals;

constexpr std::uint64_t window = 50;  // of the sinks here

// A server that forgets all when it ends. Clients without a name are served, and the user "twgate" once it
// is admitted: so a test has its subscriber there before the gateway.
struct broker_s {
    explicit broker_s(std::string moreSettings = "") : more(std::move(moreSettings)) {}

    void start() {
        const std::string users = directory.path / "users";
        writeTextFile(users, "");
        setRights("topic write #\n");
        writeTextFile(directory.path / "conf",
                      "user root\nallow_anonymous true\npassword_file " + users + "\nacl_file " +
                          (directory.path / "rights").string() + "\nlistener " + std::to_string(watchPort) +
                          " 127.0.0.1" + "\nlistener " + std::to_string(port) + " 127.0.0.1\n" + more);
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
    const int port = freePort(), watchPort = freePort();  // for the gateway and for subscribers
    const std::string more;
    std::unique_ptr<process_s> process;
};

// mosquitto_sub: all messages from its construction on, as "TOPIC|USER PROPERTIES|CONTENT TYPE|PAYLOAD".
struct subscriber_s {
    explicit subscriber_s(const broker_s& broker)
        : process("/bin/sh", {{"-c", "exec stdbuf -oL mosquitto_sub -d -V 5 -t '#' -F 'GOT%t|%P|%C|%p' -p " +
                                         std::to_string(broker.watchPort)},
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
    // 2,000 reports a second.
    void sendFor(std::chrono::milliseconds time) {
        for (auto next = std::chrono::steady_clock::now(), end = next + time; next < end; next += 10ms) {
            send(20);
            std::this_thread::sleep_until(next);
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

TEST(Mqtt, WaitsForAServerThatIsAbsentAndForARightThatIsMissing) {
    site_s site;
    site.writePassword("wrong");
    site.startGateway();
    site.send(300);
    ASSERT_TRUE(site.isDown("Connection refused"));
    site.broker.start();
    site.broker.setRights("");
    site.broker.admitGateway();
    const subscriber_s subscriber(site.broker);
    ASSERT_TRUE(site.isDown("Not authorized"));
    site.writePassword("secret");
    ASSERT_TRUE(site.isDown("tags: Not authorized"));
    site.broker.setRights("topic write tags\n");
    site.broker.process->signal(SIGHUP);
    ASSERT_TRUE(site.gateway.settles("site", site.sent));
    ASSERT_TRUE(eventually([&] { return subscriber.numbers().size() >= site.sent; }));
    expectAll(subscriber.numbers(), site.sent, 0);
}

// TWGATE_OUTAGE_MS is for longer outages by hand.
TEST(Mqtt, LosesNothingInAnOutageAtLoad) {
    enterOwnNetwork();
    const char* const given = std::getenv("TWGATE_OUTAGE_MS");
    const std::chrono::milliseconds outage(given == nullptr ? 3'000 : std::stoi(given));
    constexpr double slowRate = 3'000.0;
    struct {
        const char* name;
        const char* settings;
        bool isKilled;  // and forgets all; else the link swallows everything
        std::uint64_t repeats;
    } const faults[] = {
        {"killed", "", true, window},
        {"killed, maxRate", R"(, "maxRate": 3000)", true, window},
        {"half-open", "", false, window},
        {"half-open, QoS 2", R"(, "qos": 2)", false, 0},
    };
    for (const auto& fault : faults) {
        SCOPED_TRACE(fault.name);
        site_s site(fault.settings);
        const auto startServer = [&] {
            site.broker.start();
            auto subscriber = std::make_unique<subscriber_s>(site.broker);
            site.broker.admitGateway();
            return subscriber;
        };
        auto subscriber = startServer();
        site.startGateway();
        site.sendFor(1s);
        std::vector<std::uint64_t> came;
        fault.isKilled ? site.broker.process->signal(SIGKILL) : swallowPort(site.broker.port);
        site.sendFor(outage);
        ASSERT_TRUE(fault.isKilled ? site.isDown("refused")
                                   : site.gateway.process->waitForOutput("nothing was confirmed for 5 s"));
        const auto healed = std::chrono::steady_clock::now();
        const std::uint64_t pending = site.gateway.sink("site").at("pending");
        if (fault.isKilled) {
            came = subscriber->numbers();
            subscriber = startServer();
        } else {
            restorePorts();
        }
        ASSERT_TRUE(site.gateway.settles("site", site.sent, defaultPatience + outage));
        const std::chrono::duration<double> took = std::chrono::steady_clock::now() - healed;
        // What is in flight and a tenth of a second's worth may go at once.
        EXPECT_TRUE(std::string_view(fault.settings).find("maxRate") == std::string_view::npos ||
                    took.count() * slowRate + slowRate / 10 + window >= static_cast<double>(pending));
        ASSERT_TRUE(eventually([&] {
            const auto numbers = subscriber->numbers();
            return !numbers.empty() && numbers.back() + 1 == site.sent;
        }));
        std::ranges::copy(subscriber->numbers(), std::back_inserter(came));
        expectAll(came, site.sent, fault.repeats);
        std::printf(
            "%s: 2000/s, outage %lld ms, taken %llu, arrived %zu, pending at its end %llu, caught up in %.1f "
            "s\n",
            fault.name, static_cast<long long>(outage.count()), static_cast<unsigned long long>(site.sent),
            came.size(), static_cast<unsigned long long>(pending), took.count());
    }
}

TEST(Mqtt, LosesNothingWhenTheGatewayIsKilled) {
    site_s site(R"(, "qos": 2)");
    site.broker.start();
    site.broker.admitGateway();
    const subscriber_s subscriber(site.broker);
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

// By the server's limit, which it has told; by its answer; and by the end of each connection.
TEST(Mqtt, SetsAsideWhatTheServerRefusesForGood) {
    const std::pair<const char*, const char*> cases[] = {
        {"max_packet_size 3000\n", ""},
        {"message_size_limit 3000\n", ""},
        {"max_packet_size 3000\n", R"(, "version": "3.1.1")"},
    };
    for (const auto& [limit, settings] : cases) {
        SCOPED_TRACE(std::string(limit) + settings);
        site_s site(settings, limit);
        site.broker.start();
        site.broker.admitGateway();
        const subscriber_s subscriber(site.broker);
        site.startGateway();
        site.send(100);
        std::string large = reportText(100);
        site.tags.send({large.insert(large.size() - 1, ",\"more\":\"" + std::string(4'000, 'x') + "\"")});
        site.sent = 101;
        site.send(100);
        ASSERT_TRUE(site.gateway.settles("site", site.sent));
        EXPECT_EQ(site.gateway.sink("site").at("setAside"), 1);
        const auto letters = site.gateway.lines("spool/site", ".dead.jsonl");
        ASSERT_EQ(letters.size(), 1);
        EXPECT_EQ(json::parse(letters[0]).at("event").at("data").dump(), json::parse(large).dump());
        ASSERT_TRUE(eventually([&] {
            const auto came = subscriber.numbers();
            return std::set(came.begin(), came.end()).size() == 200 && came.back() == 200;
        }));
        EXPECT_LE(subscriber.numbers().size(),
                  200 + 6 * window);  // as often as the server ended the connection
    }
}

// A server of names that does not answer, with a client that would ask it for a minute.
TEST(Mqtt, EndsWhileTheNameOfAServerIsLookedUp) {
    enterOwnNetwork();
    const descriptor_s silent{socket(AF_INET, SOCK_DGRAM, 0)};
    const sockaddr_in address{AF_INET, htons(53), {htonl(INADDR_LOOPBACK)}, {}};
    ASSERT_EQ(bind(silent.fd, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    const temp_dir_s directory;
    writeTextFile(directory.path / "resolv.conf", "nameserver 127.0.0.1\noptions timeout:30 attempts:2\n");
    ASSERT_EQ(mount((directory.path / "resolv.conf").c_str(), "/etc/resolv.conf", nullptr, MS_BIND, nullptr),
              0);
    const gateway_s gateway(R"([{"name": "m", "type": "mqtt", "url": "mqtts://broker.example"},
        {"name": "k", "type": "kafka", "topic": "t", "properties": {"bootstrap.servers": "broker.example:9092"}},
        {"name": "local", "type": "zmq", "bind": "ipc://DIR/local"}])");
    auto twgate = gateway.launch();
    ASSERT_TRUE(twgate->waitForOutput("sink k: connecting") && twgate->waitForOutput("sink m: connecting"));
    std::array<char, 512> question{};
    ASSERT_GT(recv(silent.fd, question.data(), question.size(), 0), 0);
    gateway.writeConfig(R"([{"name": "local", "type": "zmq", "bind": "ipc://DIR/local"}])");
    twgate->signal(SIGHUP);
    EXPECT_TRUE(twgate->waitForOutput("the new configuration is in force"));
    twgate->signal(SIGTERM);
    EXPECT_EQ(twgate->waitForExit(), 0) << twgate->output();
}

TEST(Mqtt, SpeaksBothVersionsAndTellsWhetherItIsThere) {
    broker_s broker;
    broker.start();
    const std::string longTopic(10'000, 'x');
    const std::string begin = R"({"streams": ["tags", "events"], "type": "mqtt", "url": ")" + broker.url();
    gateway_s gateway(
        "[" + begin + R"(", "name": "new", "topic": "n/{reader}/{stream}/{antenna}/{epc}/{type}"}, )" +
        begin +
        R"(", "name": "old", "version": "3.1.1", "qos": 0, "format": "cloudevent", "topic": "o/{type}",
            "availability": "old"}, )" +
        begin + R"(", "name": "long", "topic": ")" + longTopic + R"(/{type}", "availability": ""}])");
    {
        const subscriber_s subscriber(broker);
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
              std::string("n/dock/events/-/-/heartbeat|"), longTopic + "/heartbeat|",
              std::string("o/heartbeat||"), R"(o/tag.read|||{"specversion":"1.0","id":")" + id}) {
            EXPECT_TRUE(subscriber.waitFor(message)) << message << "\n" << subscriber.process.output();
        }
    }
    // Retained; "offline" is said at the end, and by the server when there was no time for it.
    for (const int end : {SIGTERM, SIGKILL}) {
        const subscriber_s subscriber(broker);
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
    makeCertificates(directory.path);
    site_s site("", "cafile " + file("authority.pem") + "\ncertfile " + file("server.pem") + "\nkeyfile " +
                        file("server.key") + "\nrequire_certificate true\n");
    site.broker.start();
    site.broker.admitGateway();
    const subscriber_s subscriber(site.broker);
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
    EXPECT_EQ(pattern_c("a/{reader}/{antenna}{antenna}/{epc}/{stream}/", appendTopicLevel).fill(entry),
              "a/do%20ck%2F%2B%23/1212/-/tags/");
}

// What a client sends and gets; the daemon is a reply socket of the test.
TEST(Mqtt, TakesRequestsToTheDaemon) {
    broker_s broker("max_packet_size 70000\n");
    gateway_s gateway("[]");
    const auto configure = [&](const std::string& commands) {
        gateway.writeConfig(R"([{"name": "site", "type": "mqtt", "topic": "tags", "url": ")" + broker.url() +
                            "\"" + commands + "}]");
        const std::string file = gateway.directory.path / "twgate.json", source = R"("source": {)";
        std::string text = readTextFile(file);
        text.insert(text.find(source) + source.size(),
                    R"("requests": ")" + gateway.endpoint("daemon") + "\", ");
        writeTextFile(file, text);
    };
    const auto startClient = [&](const std::string& tool) {
        return std::make_unique<process_s>(
            "/bin/sh",
            process_options_s{{"-c", "exec stdbuf -oL mosquitto_" + tool + " -V 5 -q 1 -p " +
                                         std::to_string(broker.watchPort) + " -t tarnwick/dock/request"},
                              {},
                              {}});
    };
    const auto ask = [&](const std::string& number, const std::string& message) {
        return startClient("rr -W 20 -F 'GOT%D|%P|%p' -e answers/" + number +
                           " -D publish correlation-data c" + number +
                           " -D publish user-property client '\"ui" + number + "' " + message);
    };
    auto daemon = std::make_unique<socket_s>(ZMQ_REP);
    zmq_bind(daemon->handle, gateway.endpoint("daemon").c_str());
    const auto serve = [&](const std::string& request, const std::string& reply) {
        EXPECT_EQ(daemon->receive(), frames_t{request});
        daemon->send({reply + std::string(1, '\0')});
    };

    const auto isUp = [&](std::ptrdiff_t times) {
        const std::regex up("sink site: requests: up");
        return eventually([&] {
            const std::string log = gateway.process->output();
            return std::distance(std::sregex_iterator(log.begin(), log.end(), up), {}) == times;
        });
    };

    // Without the key nobody listens: the server finds no subscriber (16).
    configure("");
    broker.start();
    gateway.start();
    EXPECT_TRUE(eventually([&] { return gateway.sink("site").at("state") == "up"; }));
    EXPECT_TRUE(startClient("pub -d -m status -D publish response-topic a")->waitForOutput("RC:16"));
    configure(R"(, "commands": {"allow": ["status", "mode"], "timeout": 1})");
    gateway.process->signal(SIGHUP);
    ASSERT_TRUE(isUp(1));

    // Two wait at once, and each gets its own reply, also when it is not ASCII or spans lines.
    const auto first = ask("1", "-m ' status\nx'");
    ASSERT_TRUE(
        gateway.process->waitForOutput(R"(request to dock of "\"ui1": sent to the daemon: " status\nx")"));
    const auto second = ask("2", R"(-m 'mode {"type":"SIMPLE"}')");
    serve(" status\nx", "Success:\nthree\n");
    serve(R"(mode {"type":"SIMPLE"})", "Failure: \xc3\xa4");
    EXPECT_TRUE(first->waitForOutput("GOTc1|from:daemon|Success:\nthree\n\n")) << first->output();
    EXPECT_TRUE(second->waitForOutput("GOTc2|from:daemon|Failure: \xc3\xa4\n")) << second->output();

    const std::string large = gateway.directory.path / "large";
    writeTextFile(large, "status" + std::string(65'536, ' '));
    for (const auto& [message, why] : {std::pair("-m exit", "the command is not allowed"),
                                       std::pair("-m statusx", "the command is not allowed"),
                                       std::pair("-n", "the command is not allowed")}) {
        const auto client = ask("3", message);
        EXPECT_TRUE(client->waitForOutput(std::string("GOTc3|from:twgate|Failure: twgate: ") + why + "\n"))
            << message << client->output();
    }
    const std::string publish = "pub -D publish response-topic ";
    for (const auto& [client, why] :
         {std::pair(publish + "answers/4 -f " + large,
                    "refused, the request is longer than 65536 bytes: 65542"),
          std::pair(std::string("pub -m status"), "dropped, since it does not have a response topic"),
          std::pair(publish + "a -m status -r", "dropped, since it is retained"),
          std::pair(
              publish + "tarnwick/dock/request -m status",
              R"("tarnwick/dock/request": dropped, since nothing may be published to its response topic)"),
          std::pair(publish + "\\$a -m status", R"("$a": dropped)"),
          std::pair(publish + "a/# -m status", R"("a/#": dropped)")}) {
        EXPECT_EQ(startClient(client)->waitForExit(), 0);
        EXPECT_TRUE(gateway.process->waitForOutput(why)) << client << gateway.process->output();
    }

    // A server that has forgotten everything. What was not allowed has not come to the daemon.
    broker.process->signal(SIGKILL);
    broker.start();
    ASSERT_TRUE(isUp(2));
    const auto later = ask("5", "-m status");
    serve("status", "Success");
    EXPECT_TRUE(later->waitForOutput("GOTc5|from:daemon|Success\n")) << later->output();

    const auto tooMuch = ask("8", "-m status");
    serve("status", std::string(70'000, 'x'));
    EXPECT_TRUE(tooMuch->waitForOutput("twgate: the reply has 70000 bytes, which the server forbids\n"));

    // A daemon that is away, whose reader is heard all the same; and the end does not wait for it.
    daemon.reset();
    const auto unheard = ask("6", "-m status");
    EXPECT_TRUE(unheard->waitForOutput("GOTc6|from:twgate|Failure: twgate: no answer within 1 s\n"));
    configure(R"(, "commands": {"allow": ["mode"], "timeout": 60})");
    gateway.process->signal(SIGHUP);
    ASSERT_TRUE(isUp(3));
    const auto last = ask("7", "-m mode");
    ASSERT_TRUE(gateway.process->waitForOutput(R"(sent to the daemon: "mode")"));
    std::string many;
    for (int i = 0; i < 17; ++i) {
        many += "mode\n";
    }
    writeTextFile(gateway.directory.path / "many", many);
    startClient(publish + "a -l <" + (gateway.directory.path / "many").string())->waitForExit();
    EXPECT_TRUE(gateway.process->waitForOutput("refused, too many requests are waiting"));
    const publisher_s tags(gateway.endpoint("data"));
    tags.waitForSubscriber();
    tags.send({reportText(0)});
    EXPECT_TRUE(gateway.settles("site", 1));
    gateway.process->signal(SIGTERM);
    EXPECT_TRUE(last->waitForOutput("GOTc7|from:twgate|Failure: twgate: the gateway ends\n"));
    EXPECT_EQ(gateway.process->waitForExit(), 0) << gateway.process->output();
}
