// SPDX-License-Identifier: MIT
// The HTTP server of the whole gateway: what hostile clients get, what they cannot take from others, and
// whether its numbers are those of the account.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <httplib.h>
#include <poll.h>

#include <regex>
#include <thread>

#include "fates.hpp"
#include "gateway/program.hpp"
#include "gateway/server.hpp"
#include "support/table.hpp"

using nlohmann::json;
using testing::HasSubstr;
using testing::StartsWith;
using namespace std::chrono_literals;

namespace {

// A gateway with a file as its sink; `http` is the object of that key without its braces.
struct site_s : gateway_s {
    explicit site_s(const std::string& http = R"("listen": "127.0.0.1:0")") : gateway_s("[]") {
        configure(http);
        start();
        std::smatch found;
        const std::string log = process->output();
        std::regex_search(log, found, std::regex("http: on 127.0.0.1:([0-9]+)"));
        port = std::stoi(found[1]);
    }
    void configure(const std::string& http, const std::string& moreSinks = "") const {
        writeConfig(R"([{"name": "archive", "type": "file", "path": "DIR/tags"})" + moreSinks +
                    R"(], "presence": {"departAfter": 0.5}, "http": {)" + http + "}");
        const std::string file = directory.path / "twgate.json", source = R"("source": {)";
        std::string text = readTextFile(file);
        text.insert(text.find(source) + source.size(), R"("requests": ")" + endpoint("daemon") + "\", ");
        writeTextFile(file, text);
    }
    // Reads its configuration again; what the log then says.
    void reload(const std::string& http, const std::string& awaited,
                const std::string& moreSinks = "") const {
        configure(http, moreSinks);
        process->signal(SIGHUP);
        EXPECT_TRUE(process->waitForOutput(awaited)) << process->output();
    }
    httplib::Result get(const std::string& path, const httplib::Headers& headers = {}) const {
        return httplib::Client("127.0.0.1", port).Get(path, headers);
    }
    json state() const { return json::parse(get("/api/state")->body); }
    int port = 0;
};

// A client that sends what it likes.
struct raw_client_s {
    explicit raw_client_s(int port, int receiveBuffer = 0) : fd(socket(AF_INET, SOCK_STREAM, 0)) {
        if (receiveBuffer > 0) {
            setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &receiveBuffer, sizeof receiveBuffer);
        }
        sockaddr_in address{AF_INET, htons(static_cast<std::uint16_t>(port)), {htonl(INADDR_LOOPBACK)}, {}};
        if (connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
            throw std::runtime_error(std::strerror(errno));
        }
    }
    ~raw_client_s() { close(fd); }
    raw_client_s(const raw_client_s&) = delete;
    raw_client_s& operator=(const raw_client_s&) = delete;

    // As far as the server takes it.
    void send(std::string_view text) const {
        while (!text.empty()) {
            const ssize_t sent = ::send(fd, text.data(), text.size(), MSG_NOSIGNAL);
            if (sent <= 0) {
                return;
            }
            text.remove_prefix(static_cast<std::size_t>(sent));
        }
    }
    // Until it has so much, or the server closes.
    std::string receive(std::size_t most) const {
        std::string text;
        char byte = 0;
        pollfd item{fd, POLLIN, 0};
        while (text.size() < most && poll(&item, 1, static_cast<int>(defaultPatience.count())) == 1 &&
               recv(fd, &byte, 1, 0) == 1) {
            text += byte;
        }
        return text;
    }
    // Whether the server closes the connection in the end.
    bool isCut() const {
        char bytes[4096];
        pollfd item{fd, POLLIN, 0};
        while (poll(&item, 1, static_cast<int>(defaultPatience.count())) == 1) {
            if (recv(fd, bytes, sizeof bytes, 0) <= 0) {
                return true;
            }
        }
        return false;
    }

    const int fd;
};

// "\r", "\n" and "\xHH" as the bytes that they stand for.
std::string bytesOf(const std::string& text) {
    std::string bytes;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char next = text[i] == '\\' ? text[i + 1] : '\0';
        bytes += next == 'r'   ? '\r'
                 : next == 'x' ? static_cast<char>(std::stoi(text.substr(i + 2, 2), nullptr, 16))
                               : text[i];
        i += next == 'r' ? 1 : next == 'x' ? 3 : 0;
    }
    return bytes;
}

const std::string openStream = "GET /api/stream HTTP/1.1\r\nHost: localhost\r\n\r\n";

std::size_t threadsOf(pid_t pid) {
    const std::filesystem::directory_iterator tasks("/proc/" + std::to_string(pid) + "/task");
    return static_cast<std::size_t>(std::distance(begin(tasks), end(tasks)));
}

}  // namespace

TEST(Http, RefusesWhatIsNotAReadAndGoesOn) {
    const site_s site;
    for (const table_section_s& section : readTable("gateway/http.txt")) {
        for (const table_row_s& row : section.rows) {
            const raw_client_s client(site.port);
            client.send(row.left == "(10 MB)" ? std::string(10'000'000, 'x') : bytesOf(row.left));
            EXPECT_EQ(client.receive(row.right.size()), row.right)
                << section.heading << ": " << row.left.substr(0, 80);
            const httplib::Result health = site.get("/healthz");
            ASSERT_TRUE(health);
            EXPECT_EQ(health->status, 200);
        }
    }
    // Two requests at once are two; a body is not taken for a request.
    const raw_client_s two(site.port), smuggler(site.port);
    const std::string request = "GET /healthz HTTP/1.1\r\nHost: localhost\r\n\r\n";
    two.send(request + "HEAD /api/stream HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\n\r\n");
    const std::string both = two.receive(100'000);
    EXPECT_THAT(both, HasSubstr("{\"healthy\":true"));
    EXPECT_THAT(both, HasSubstr("text/event-stream"));
    EXPECT_THAT(both, HasSubstr("Content-Security-Policy: default-src 'none'; script-src 'self'"));
    smuggler.send("GET / HTTP/1.1\r\nHost: localhost\r\nContent-Length: " + std::to_string(request.size()) +
                  "\r\n\r\n" + request);
    EXPECT_THAT(smuggler.receive(100'000), testing::Not(HasSubstr("healthy")));
}

TEST(Http, ServesOthersWhileClientsHoldConnectionsAndStreams) {
    const site_s site;
    std::vector<std::unique_ptr<raw_client_s>> clients, streams;
    for (int i = 0; i < 32; ++i) {
        streams.push_back(std::make_unique<raw_client_s>(site.port));
        streams.back()->send(openStream);
        ASSERT_THAT(streams.back()->receive(12), "HTTP/1.1 200");
    }
    EXPECT_EQ(site.get("/api/stream")->status, 503);
    for (int i = 0; i < 1'000; ++i) {
        clients.push_back(std::make_unique<raw_client_s>(site.port));
        clients.back()->send("GET /api/state HTTP/1.1\r\nHost: local");
    }
    const httplib::Result state = site.get("/api/state");
    ASSERT_TRUE(state);
    EXPECT_EQ(state->status, 200);
    EXPECT_LT(threadsOf(site.process->pid), 128);
    for (const auto& client : clients) {
        EXPECT_TRUE(client->isCut());
    }
    for (const auto& stream : streams) {
        EXPECT_THAT(stream->receive(1'000), HasSubstr("hello"));
    }
    streams.pop_back();
    EXPECT_TRUE(
        eventually([&] { return site.get("/metrics")->body.find("_streams 31\n") != std::string::npos; }));
    const raw_client_s next(site.port);
    next.send(openStream);
    EXPECT_EQ(next.receive(12), "HTTP/1.1 200");
}

TEST(Http, CutsAStreamThatIsNotRead) {
    const site_s site;
    const publisher_s tags(site.endpoint("data"));
    tags.waitForSubscriber();
    const raw_client_s client(site.port, 4'096);
    client.send(openStream);
    ASSERT_TRUE(
        eventually([&] { return site.get("/metrics")->body.find("_streams 1\n") != std::string::npos; }));
    std::uint64_t number = 0;
    EXPECT_TRUE(eventually(
        [&] {
            for (int i = 0; i < 500; ++i) {
                std::string report = reportText(number);
                report.replace(report.find("30340a0b"), 8, std::to_string(10'000'000 + number++));
                tags.send({report});
            }
            return site.get("/metrics")->body.find("_streams 0\n") != std::string::npos;
        },
        60s));  // what the buffers hold, and then 10 s
    EXPECT_TRUE(client.isCut());
}

TEST(Http, NeedsTheTokenOfTheFileAndCanBeReadOnlyByTls) {
    const temp_dir_s directory;
    makeCertificates(directory.path);
    const std::string token = directory.path / "token";
    const auto writeToken = [&](const std::string& text) {
        writeTextFile(token, text + "\n");
        std::filesystem::permissions(
            token, std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
    };
    writeToken("the-first-token-of-it");
    const site_s site(R"("listen": "127.0.0.1:0", "certFile": ")" + (directory.path / "server.pem").string() +
                      R"(", "keyFile": ")" + (directory.path / "server.key").string() +
                      R"(", "tokenFile": ")" + token + "\"");
    const auto get = [&](const std::string& path, const httplib::Headers& headers = {}) {
        httplib::SSLClient client("127.0.0.1", site.port);
        client.set_ca_cert_path((directory.path / "authority.pem").c_str());
        return client.Get(path, headers);
    };
    const auto bearing = [](const std::string& text) {
        return httplib::Headers{{"Authorization", "Bearer " + text}};
    };
    const auto statusOf = [&](const std::string& path, const httplib::Headers& headers) {
        const httplib::Result result = get(path, headers);
        return result ? result->status : 0;
    };
    for (const char* path : {"/api/state", "/api/stream", "/api/session", "/metrics", "/readyz", "/none"}) {
        EXPECT_EQ(statusOf(path, {}), 401) << path;
        EXPECT_EQ(statusOf(path, bearing("the-first-token-of-is")), 401) << path;
    }
    for (const char* path : {"/", "/healthz"}) {
        EXPECT_EQ(statusOf(path, {}), 200) << path;
    }
    const std::string cookie =
        get("/api/session", bearing("the-first-token-of-it"))->get_header_value("Set-Cookie");
    EXPECT_THAT(cookie, HasSubstr("; HttpOnly; SameSite=Strict; Secure"));
    const httplib::Headers shown{{"Cookie", cookie.substr(0, cookie.find(';'))}};
    EXPECT_EQ(statusOf("/api/state", shown), 200);

    writeToken("the-second-token-of-it");
    site.process->signal(SIGHUP);
    EXPECT_TRUE(eventually([&] { return statusOf("/metrics", bearing("the-second-token-of-it")) == 200; }));
    EXPECT_EQ(statusOf("/metrics", bearing("the-first-token-of-it")), 401);
    EXPECT_EQ(statusOf("/api/state", shown), 401);
    EXPECT_FALSE(site.get("/healthz"));  // without TLS
    EXPECT_TRUE(site.process->waitForOutput("a wrong token from 127.0.0.1"));
}

TEST(Http, ShowsTheAccountAndIsScrapedByPrometheus) {
    const site_s site;
    const publisher_s tags(site.endpoint("data")), events(site.endpoint("events"));
    const socket_s daemon(ZMQ_REP);
    zmq_bind(daemon.handle, site.endpoint("daemon").c_str());
    tags.waitForSubscriber();
    events.waitForSubscriber();
    events.send(
        {R"({"component":"TW","data":{"antennas":{"1":"connected","2":"disconnected"},"cpuUtilization":12.5,"numErrors":1,"numRadioPacketsRxed":9,"numDataMessagesTxed":9,"numTagReads":7,"numTagReadsPerAntenna":{"1":7},"numWarnings":0,"radioActivity":"active","radioConnection":"connected","ramUtilization":0.5,"temperature":{"ambient":41,"pa":-273},"uptime":"01:00:05"},"type":"heartbeat"})"});
    events.send(
        {R"({"component":"TW","data":{"eventNum":3,"message":"Antenna Disconnected on Port 2"},"timestamp":"2026-03-02T10:15:30.123+0000","type":"error"})"});
    for (std::uint64_t i = 0; i < 40; ++i) {
        tags.send({reportText(i < 20 ? i : i + 5)});
    }
    ASSERT_TRUE(site.settles("archive", 40));

    // The daemon is away, then there.
    EXPECT_THAT(site.get("/metrics")->body, HasSubstr("tarnwick_daemon_up{reader=\"dock\"} 0\n"));
    json fates = json::object();
    for (const vocabulary::fate_s& fate : vocabulary::fates) {
        fates[std::string(fate.name)] = 4;
    }
    fates["pending"] = 1;
    const json account{{"fates", fates}, {"listeners", 2}, {"tagPackets", 33}, {"unheard", 3}};
    std::string text;
    const std::jthread answering([&](const std::stop_token& stop) {
        while (!stop.stop_requested()) {
            if (daemon.receive(10ms)) {
                daemon.send({"Success: " + account.dump() + std::string(1, '\0')});
            }
        }
    });
    EXPECT_TRUE(eventually([&] {
        text = site.get("/metrics")->body;
        return text.find("tarnwick_daemon_up{reader=\"dock\"} 1\n") != std::string::npos;
    }));
    for (const char* line :
         {"tarnwick_reports_total{reader=\"dock\",antenna=\"1\"} 40",
          "tarnwick_source_heard_total{reader=\"dock\"} 42",
          "tarnwick_source_missing_reports{reader=\"dock\"} 5",
          "tarnwick_sink_confirmed_total{sink=\"archive\"} 40",
          "tarnwick_sink_pending_entries{sink=\"archive\"} 0", "tarnwick_sink_up{sink=\"archive\"} 1",
          "tarnwick_daemon_tag_packet_fates_total{reader=\"dock\",fate=\"heldBack\"} 4",
          "tarnwick_daemon_antenna_connected{reader=\"dock\",antenna=\"2\"} 0",
          "tarnwick_daemon_uptime_seconds{reader=\"dock\"} 3605",
          "tarnwick_daemon_temperature_celsius{reader=\"dock\",sensor=\"ambient\"} 41",
          "tarnwick_alarms_total{reader=\"dock\",severity=\"error\"} 1"}) {
        EXPECT_THAT(text, HasSubstr(std::string(line) + "\n"));
    }
    EXPECT_THAT(text, testing::Not(HasSubstr("sensor=\"pa\"")));  // it has not answered

    // Every metric is in the document's table, and every one of the table is there.
    const std::string document = readTextFile(TARNWICK_SOURCE_DIR "/docs/gateway-http.md");
    const auto namesIn = [](const std::string& from, const std::regex& pattern) {
        std::set<std::string> names;
        for (std::sregex_iterator at(from.begin(), from.end(), pattern), end; at != end; ++at) {
            names.insert((*at)[1]);
        }
        return names;
    };
    EXPECT_EQ(namesIn(text, std::regex("# TYPE ([a-z_]+) ")),
              namesIn(document, std::regex("\\| `((?:tarnwick|process)_[a-z_]+)` \\|")));

    // The picture says the same.
    const json state = site.state();
    EXPECT_EQ(state.at("tags").at(0).at(4), 40);
    EXPECT_TRUE(eventually([&] { return site.state().at("tags").at(0).at(7) == false; }));  // departed
    EXPECT_EQ(state.at("accounts").at(0).at("account"), account);
    EXPECT_EQ(state.at("alarms").at(0).at("message"), "Antenna Disconnected on Port 2");
    EXPECT_EQ(state.at("heartbeats").at(0).at("data").at("numTagReads"), 7);
    EXPECT_EQ(json::parse(site.get("/readyz")->body), json::parse(R"({"ready":true,"reasons":[]})"));

    // Both forms are accepted by those who read them, with the examples.
    writeTextFile(site.directory.path / "metrics", text);
    const std::string examples = TARNWICK_SOURCE_DIR "/examples/monitoring/";
    runTool("promtool check metrics < " + (site.directory.path / "metrics").string());
    runTool("promtool check rules " + examples + "twgate.rules.yml");
    std::string settings = readTextFile(examples + "prometheus.yml");
    settings.replace(settings.find("9150"), 4, std::to_string(site.port));
    settings.replace(settings.find("15s"), 3, "1s");
    settings.replace(settings.find("twgate.rules.yml"), 0, examples);
    writeTextFile(site.directory.path / "prometheus.yml", settings);
    const int port = freePort();
    process_s prometheus("/usr/bin/prometheus",
                         {{"--config.file=" + (site.directory.path / "prometheus.yml").string(),
                           "--storage.tsdb.path=" + (site.directory.path / "tsdb").string(),
                           "--web.listen-address=127.0.0.1:" + std::to_string(port)},
                          {},
                          {}});
    const auto ask = [&](const std::string& query) {
        const httplib::Result result = httplib::Client("127.0.0.1", port).Get("/api/v1/query?query=" + query);
        const json answer = result ? json::parse(result->body, nullptr, false) : json();
        const json found =
            answer.is_object() ? answer.value("/data/result"_json_pointer, json::array()) : json();
        return found.empty() ? std::string() : found.at(0).at("value").at(1).get<std::string>();
    };
    EXPECT_TRUE(eventually([&] { return ask("up") == "1"; })) << prometheus.output();
    EXPECT_TRUE(eventually([&] { return ask("tarnwick_reports_total") == "40"; }));
    // Only the newer form tells units.
    const httplib::Result metadata =
        httplib::Client("127.0.0.1", port).Get("/api/v1/metadata?metric=process_cpu_seconds");
    EXPECT_THAT(metadata->body, HasSubstr("\"unit\":\"seconds\""));
}

TEST(Http, TellsWhyItIsNotReadyAndFollowsItsConfiguration) {
    const site_s site, other;
    const auto listenOn = [](int port) { return R"("listen": "127.0.0.1:)" + std::to_string(port) + "\""; };
    const std::string sink = R"(, {"name": "away", "type": "mqtt", "url": "mqtt://127.0.0.1:9"})";
    site.reload(listenOn(0), "the new configuration is in force", sink);  // port 0 is the one that it has
    EXPECT_TRUE(
        eventually([&] { return site.get("/readyz")->body.find("sink away: down, ") != std::string::npos; }));
    EXPECT_EQ(site.get("/readyz")->status, 503);
    EXPECT_EQ(site.get("/healthz")->status, 200);
    site.reload(listenOn(other.port), "the old configuration stays in force");
    EXPECT_EQ(site.get("/readyz")->status, 503);
    const int port = freePort();
    const raw_client_s stream(site.port);
    stream.send(openStream);
    site.reload(listenOn(port), "http: on 127.0.0.1:" + std::to_string(port));
    EXPECT_TRUE(stream.isCut());
    EXPECT_FALSE(site.get("/healthz"));
    EXPECT_EQ(httplib::Client("127.0.0.1", port).Get("/healthz")->status, 200);
}
