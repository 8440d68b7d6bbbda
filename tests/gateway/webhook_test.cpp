// SPDX-License-Identifier: MIT
// The sink "webhook" with a server in this process.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <httplib.h>

#include <set>
#include <thread>

#include "gateway/program.hpp"
#include "gateway/server.hpp"
#include "sinks/webhook/signature.hpp"

using namespace std::chrono_literals;
using nlohmann::json;
using steady_t = std::chrono::steady_clock;

namespace {

constexpr std::uint64_t batch = 50;  // of the sinks here

struct request_s {
    std::set<std::uint64_t> numbers;  // of the reports in it
    httplib::Request got;
    steady_t::time_point at = steady_t::now();
    int status = 200;  // of the answer
};

std::set<std::uint64_t> numbersIn(const std::string& body) {
    std::set<std::uint64_t> numbers;
    constexpr std::string_view key = "\"eventNum\":";
    for (std::size_t at = body.find(key); at != body.npos; at = body.find(key, at + 1)) {
        numbers.insert(std::stoull(body.substr(at + key.size())));
    }
    return numbers;
}

// Answers 200 unless `answer` decides otherwise, and keeps what came.
struct receiver_s {
    using answer_t = std::function<void(const request_s&, httplib::Response*)>;
    explicit receiver_s(
        const answer_t& answer = [](const auto&...) {},
        std::unique_ptr<httplib::Server> made = std::make_unique<httplib::Server>())
        : server(std::move(made)) {
        server->Post("/tags", [this, answer](const httplib::Request& got, httplib::Response& response) {
            request_s request{numbersIn(got.body), got};
            response.status = request.status;
            answer(request, &response);
            request.status = response.status;
            const std::lock_guard guard(mutex);
            all.push_back(request);
        });
    }
    ~receiver_s() {
        server->stop();
        thread.join();
    }
    receiver_s(const receiver_s&) = delete;
    receiver_s& operator=(const receiver_s&) = delete;

    void start() {
        ASSERT_TRUE(server->bind_to_port("127.0.0.1", port));
        thread = std::thread([this] { server->listen_after_bind(); });
        ASSERT_TRUE(eventually([this] { return server->is_running(); }));
    }
    std::vector<request_s> requests() const {
        const std::lock_guard guard(mutex);
        return all;
    }
    // The numbers of the reports in confirmed requests.
    std::vector<std::uint64_t> confirmed() const {
        std::vector<std::uint64_t> numbers;
        for (const request_s& request : requests()) {
            if (request.status == 200) {
                std::ranges::copy(request.numbers, std::back_inserter(numbers));
            }
        }
        return numbers;
    }

    const int port = freePort();
    std::unique_ptr<httplib::Server> server;
    std::thread thread;
    mutable std::mutex mutex;
    std::vector<request_s> all;
};

// A gateway with the sink "erp", and a reader that publishes to it.
struct erp_s {
    erp_s(const receiver_s& receiver, const std::string& more, const std::string& scheme = "http")
        : gateway(sinkWith(receiver, more, scheme)) {
        gateway.writeSecret("secret", "whsec_MfKQ9r8GKYqTwUPD8ILPZIo2LaLaSw==\n");
    }
    static std::string sinkWith(const receiver_s& receiver, const std::string& more,
                                const std::string& scheme) {
        return R"([{"name": "erp", "type": "webhook", "secretFile": "DIR/secret", "url": ")" + scheme +
               "://127.0.0.1:" + std::to_string(receiver.port) + R"(/tags", )" + more + "}]";
    }
    void start() {
        gateway.start();
        tags.waitForSubscriber();
    }
    void send(std::uint64_t count) {
        for (const std::uint64_t end = sent + count; sent < end; ++sent) {
            tags.send({reportText(sent)});
        }
    }

    gateway_s gateway;
    publisher_s tags{gateway.endpoint("data")};
    std::uint64_t sent = 0;
};

// The numbers from 0 to below `count` without some of them.
std::vector<std::uint64_t> upTo(std::uint64_t count, const std::set<std::uint64_t>& without = {}) {
    std::vector<std::uint64_t> numbers(count);
    std::iota(numbers.begin(), numbers.end(), 0);
    std::erase_if(numbers, [&](auto number) { return without.contains(number); });
    return numbers;
}

struct fault_s {
    int status;  // of the first answer; 0: there is not a server yet
    const char* header;
    std::string value;
    const char* told;  // by the status
    std::chrono::milliseconds waits{400}, delay{0};
};

}  // namespace

TEST(Webhook, RepeatsTheSameRequestAfterEachFault) {
    for (const fault_s& fault : std::vector<fault_s>{
             {0, "", "", "cannot connect: Connection refused"},
             {500, "", "", "HTTP 500"},
             {429, "Retry-After", "2", "HTTP 429", 2'000ms},
             {307, "Location", "/new\x1b", "HTTP 307: redirects are not followed; this one leads to /new "},
             {504, "X-Slow", "yes", "not answered within 1000 ms", 1'400ms, 1'200ms},
             {202, "X-Noise", std::string(70'000, 'x'), "header of the answer is longer than 65536 bytes"},
         }) {
        SCOPED_TRACE(fault.told);
        receiver_s receiver([&](const request_s&, httplib::Response* response) {
            if (fault.status != 0 && receiver.requests().empty()) {
                std::this_thread::sleep_for(fault.delay);
                response->status = fault.status;
                response->set_header(fault.header, fault.value);
            }
        });
        erp_s erp(receiver, R"("batch": 50, "every": 0.01, "timeout": 1)");
        if (fault.status != 0) {
            receiver.start();
        }
        erp.start();
        erp.send(20);
        EXPECT_TRUE(erp.gateway.isDown("erp", fault.told)) << erp.gateway.process->output();
        erp.send(200);
        if (fault.status == 0) {
            receiver.start();
        }
        ASSERT_TRUE(erp.gateway.settles("erp", erp.sent)) << erp.gateway.account();
        EXPECT_EQ(erp.gateway.askStatus().first, 0);
        EXPECT_EQ(receiver.confirmed(), upTo(erp.sent));
        if (fault.status != 0) {
            const std::vector<request_s> requests = receiver.requests();
            ASSERT_GE(requests.size(), 3U);
            EXPECT_EQ(requests[0].numbers, requests[1].numbers);
            EXPECT_EQ(requests[0].got.get_header_value("webhook-id"),
                      requests[1].got.get_header_value("webhook-id"));
            EXPECT_NE(requests[1].got.get_header_value("webhook-id"),
                      requests[2].got.get_header_value("webhook-id"));
            EXPECT_GE(requests[1].at - requests[0].at, fault.waits);
        }
    }
}

TEST(Webhook, SetsAsideOnlyWhatIsRefusedAlone) {
    const std::set<std::uint64_t> poison{7, 42, 43};
    receiver_s receiver([&](const request_s& request, httplib::Response* response) {
        if (receiver.requests().size() == 4) {
            response->status = 502;  // between the halves
        } else if (request.numbers.size() > 30) {
            response->status = 413;
        } else if (std::ranges::any_of(request.numbers, [&](auto n) { return poison.contains(n); })) {
            response->status = 422;
            response->set_content("not\nthis one", "text/plain");
        } else {
            // What follows a header with 200 changes nothing, be it without end.
            response->set_chunked_content_provider("text/plain", [](std::size_t, httplib::DataSink& sink) {
                return sink.write(std::string(10'000, 'x').data(), 10'000);
            });
        }
    });
    receiver.start();
    erp_s erp(receiver, R"("batch": 50, "every": 1, "deadLetterFile": "DIR/dead")");
    const std::filesystem::path dead = erp.gateway.directory.path / "dead";
    std::filesystem::create_directory(dead);  // so it cannot be written
    erp.start();
    erp.send(150);
    EXPECT_TRUE(erp.gateway.isDown("erp", "dead: Is a directory"));
    EXPECT_EQ(erp.gateway.sink("erp").value("setAside", 0U), 0);
    std::filesystem::remove(dead);
    ASSERT_TRUE(erp.gateway.settles("erp", erp.sent));
    EXPECT_EQ(erp.gateway.sink("erp").at("setAside"), poison.size());
    EXPECT_EQ(receiver.confirmed(), upTo(erp.sent, poison));
    EXPECT_LT(receiver.requests().size(), 40U);
    std::set<std::uint64_t> kept;
    for (const std::string& line : erp.gateway.lines("dead", "")) {
        EXPECT_EQ(json::parse(line).at("reason"), "HTTP 422: not this one");
        kept.merge(numbersIn(line));
    }
    EXPECT_EQ(kept, poison);
}

TEST(Webhook, SendsEachFormSignedAndWithItsHeaders) {
    // Computed by hmac and hashlib of Python.
    const std::string key = signingKey("whsec_MfKQ9r8GKYqTwUPD8ILPZIo2LaLaSw==").value();
    EXPECT_EQ(signatures({key}, "msg_p5jXN8AQM9LWM0D4loKWxJek", "1614265330", R"({"test": 2432232314})"),
              "v1,ycrBnQSdMfrPtr3c829tMkKNLs7sG4EUsl1WMhToQic=");
    for (const char* secret : {"MfKQ9r8G", "whsec_", "whsec_MfKQ9r8", "whsec_MfKQ=r8G", "whsec_ MfKQ9r8G"}) {
        EXPECT_EQ(signingKey(secret), std::nullopt) << secret;
    }
    const std::array<std::string, 3> forms[] = {
        {R"("headers": {"X-Site": "dock 4"})", "application/cloudevents-batch+json", ""},
        {R"("batch": 1, "tokenFile": "DIR/token")", "application/json", "Bearer t0k"},
        {R"("batch": 1, "format": "cloudevent", "user": "twgate", "passwordFile": "DIR/token")",
         "application/cloudevents+json", "Basic dHdnYXRlOnQwaw=="},
    };
    for (const auto& [settings, contentType, authorization] : forms) {
        SCOPED_TRACE(contentType);
        receiver_s receiver;
        receiver.start();
        erp_s erp(receiver, settings);
        erp.gateway.writeSecret("token", "t0k\nnot this line\n");
        erp.start();
        // Of secrets that change, each request has the present ones.
        erp.gateway.writeSecret("secret", "whsec_bmV3IG9uZQ==\n\nwhsec_MfKQ9r8GKYqTwUPD8ILPZIo2LaLaSw==\n");
        erp.send(1);
        ASSERT_TRUE(erp.gateway.settles("erp", 1));
        const request_s request = receiver.requests().at(0);
        const std::string id = erp.gateway.source().at("boot").at("name").dump() + "/0";
        EXPECT_EQ(request.got.get_header_value("Content-Type"), contentType);
        EXPECT_EQ(request.got.get_header_value("Authorization"), authorization);
        EXPECT_EQ(request.got.get_header_value("webhook-signature"),
                  signatures({"new one", key}, request.got.get_header_value("webhook-id"),
                             request.got.get_header_value("webhook-timestamp"), request.got.body));
        EXPECT_NEAR(std::stod(request.got.get_header_value("webhook-timestamp")), std::time(nullptr), 60);
        json body = json::parse(request.got.body);
        if (contentType == "application/json") {
            EXPECT_EQ(request.got.body, reportText(0));
            EXPECT_EQ(request.got.get_header_value("ce-id"), id);
        } else {
            EXPECT_EQ(request.got.get_header_value("X-Site"), body.is_array() ? "dock 4" : "");
            body = body.is_array() ? body.at(0) : body;
            EXPECT_EQ(body.at("id"), id);
            EXPECT_EQ(body.at("data").dump(), reportText(0));
        }
    }
}

TEST(Webhook, SpeaksTlsOnlyToAServerThatItKnows) {
    const temp_dir_s folder;
    makeCertificates(folder.path);
    const auto file = [&](const char* name) { return (folder.path / name).string(); };
    receiver_s receiver([](const auto&...) {}, std::make_unique<httplib::SSLServer>(
                                                   file("server.pem").c_str(), file("server.key").c_str(),
                                                   file("authority.pem").c_str()));
    receiver.start();
    const auto trust = [&](const char* name) { return R"("ca": ")" + file(name) + "\""; };
    const std::string own =
        R"(, "certificate": ")" + file("client.pem") + R"(", "privateKey": ")" + file("client.key") + "\"";
    erp_s erp(receiver, trust("stranger.pem") + own, "https");
    erp.start();
    erp.send(1);
    EXPECT_TRUE(erp.gateway.isDown("erp", "SSL certificate problem"));
    EXPECT_TRUE(receiver.requests().empty());
    erp.gateway.writeConfig(erp_s::sinkWith(receiver, trust("authority.pem") + own, "https"));
    erp.gateway.process->signal(SIGHUP);
    ASSERT_TRUE(erp.gateway.settles("erp", 1));
}

TEST(Webhook, RepeatsAtMostOneBatchForEachKill) {
    constexpr std::uint64_t kills = 10;
    std::mutex gate;
    receiver_s receiver([&](const request_s&, httplib::Response*) { const std::lock_guard wait(gate); });
    receiver.start();
    erp_s erp(receiver, R"("batch": 50, "every": 0)");
    for (std::uint64_t i = 0; i < kills; ++i) {
        erp.start();
        const std::size_t before = receiver.requests().size();
        ASSERT_TRUE(eventually([&] {
            erp.send(200);
            return receiver.requests().size() > before + 5;
        }));
        erp.gateway.process->signal(SIGKILL);
        ASSERT_EQ(erp.gateway.process->waitForExit(), 128 + SIGKILL);
    }
    erp.start();
    ASSERT_TRUE(eventually([&] { return erp.gateway.sink("erp").at("pending") == 0; }));
    const std::vector<std::uint64_t> came = receiver.confirmed();
    const std::set<std::uint64_t> distinct(came.begin(), came.end());
    EXPECT_EQ(distinct.size(), erp.gateway.sink("erp").at("taken"));
    EXPECT_LE(came.size() - distinct.size(), kills * batch);

    // A request that waits for its answer does not hold up the end.
    const std::lock_guard wait(gate);
    erp.send(1);
    ASSERT_TRUE(eventually([&] { return erp.gateway.sink("erp").at("pending") == 1; }));
    erp.gateway.process->signal(SIGTERM);
    EXPECT_EQ(erp.gateway.process->waitForExit(8s), 0);
}
