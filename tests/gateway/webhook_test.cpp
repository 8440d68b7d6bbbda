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
using testing::HasSubstr;

namespace {

constexpr std::uint64_t batch = 50;  // of the sinks here

struct request_s {
    std::set<std::uint64_t> numbers;  // of the reports in it
    httplib::Headers headers;
    std::string body;
    int status = 0;  // of the answer
    steady_t::time_point at;
    std::string header(const std::string& name) const {
        const auto found = headers.find(name);
        return found == headers.end() ? "" : found->second;
    }
};

// Answers 200 unless `answer` decides otherwise, and keeps what came.
struct receiver_s {
    using answer_t = std::function<void(const request_s&, httplib::Response*)>;
    explicit receiver_s(std::unique_ptr<httplib::Server> made = std::make_unique<httplib::Server>())
        : server(std::move(made)) {
        server->set_keep_alive_max_count(1'000);
        server->Post("/tags", [this](const httplib::Request& got, httplib::Response& response) {
            request_s request{numbersIn(got.body), got.headers, got.body, 0, steady_t::now()};
            answer_t decide;
            {
                const std::lock_guard guard(mutex);
                decide = answer;
            }
            response.status = 200;
            if (decide) {
                decide(request, &response);
            }
            request.status = response.status;
            const std::lock_guard guard(mutex);
            all.push_back(request);
        });
    }
    ~receiver_s() {
        server->stop();
        if (thread.joinable()) {
            thread.join();
        }
    }
    receiver_s(const receiver_s&) = delete;
    receiver_s& operator=(const receiver_s&) = delete;

    void start() {
        thread = std::thread([this] { server->listen("127.0.0.1", port); });
        ASSERT_TRUE(eventually([this] { return server->is_running(); }));
    }
    void setAnswer(answer_t decide) {
        const std::lock_guard guard(mutex);
        answer = std::move(decide);
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
    static std::set<std::uint64_t> numbersIn(const std::string& body) {
        std::set<std::uint64_t> numbers;
        constexpr std::string_view key = "\"eventNum\":";
        for (std::size_t at = body.find(key); at != body.npos; at = body.find(key, at + 1)) {
            numbers.insert(std::stoull(body.substr(at + key.size())));
        }
        return numbers;
    }

    const int port = freePort();
    std::unique_ptr<httplib::Server> server;
    std::thread thread;
    mutable std::mutex mutex;
    answer_t answer;
    std::vector<request_s> all;
};

// A gateway with the sink "erp", and a reader that publishes to it.
struct erp_s {
    erp_s(const receiver_s& receiver, const std::string& more, const std::string& scheme = "http")
        : gateway(sinkWith(receiver, more, scheme)) {
        writeSecret("secret", "whsec_MfKQ9r8GKYqTwUPD8ILPZIo2LaLaSw==\n");
    }
    static std::string sinkWith(const receiver_s& receiver, const std::string& more,
                                const std::string& scheme) {
        return R"([{"name": "erp", "type": "webhook", "secretFile": "DIR/secret", "url": ")" + scheme +
               "://127.0.0.1:" + std::to_string(receiver.port) + R"(/tags", )" + more + "}]";
    }
    void writeSecret(const std::string& name, const std::string& text) const {
        writeTextFile(gateway.directory.path / name, text);
        std::filesystem::permissions(gateway.directory.path / name, std::filesystem::perms(0600));
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
    bool isDown(const std::string& why) const {
        return eventually([&] {
            const json sink = gateway.sink("erp");
            return sink.at("state") == "down" &&
                   sink.at("trouble").get<std::string>().find(why) != std::string::npos;
        });
    }

    gateway_s gateway;
    publisher_s tags{gateway.endpoint("data")};
    std::uint64_t sent = 0;
};

std::vector<std::uint64_t> upTo(std::uint64_t count) {
    std::vector<std::uint64_t> numbers(count);
    std::iota(numbers.begin(), numbers.end(), 0);
    return numbers;
}

struct fault_s {
    const char* name;
    // Of the first request; nothing: the server is not there yet.
    void (*answer)(httplib::Response*);
    const char* told;  // by the status
    std::chrono::milliseconds waits{400};
};

// In an HTTP date, so that at least a second is left of it.
std::string httpDateSoon() {
    const std::time_t soon = std::time(nullptr) + 3;
    std::tm parts{};
    std::array<char, 64> text{};
    gmtime_r(&soon, &parts);
    return {text.data(), std::strftime(text.data(), text.size(), "%a, %d %b %Y %H:%M:%S GMT", &parts)};
}

}  // namespace

TEST(Webhook, RepeatsTheSameRequestAfterEachFault) {
    for (const fault_s& fault : std::vector<fault_s>{
             {"absent", nullptr, "cannot connect: Connection refused", 0ms},
             {"500", [](httplib::Response* response) { response->status = 500; }, "HTTP 500"},
             {"429",
              [](httplib::Response* response) {
                  response->status = 429;
                  response->set_header("Retry-After", "2");
              },
              "HTTP 429", 2'000ms},
             {"503 until a date",
              [](httplib::Response* response) {
                  response->status = 503;
                  response->set_header("Retry-After", httpDateSoon());
              },
              "HTTP 503", 1'500ms},
             {"redirect", [](httplib::Response* response) { response->set_redirect("/elsewhere\x1b", 307); },
              "HTTP 307: redirects are not followed; this one leads to /elsewhere "},
             {"slow",
              [](httplib::Response* response) {
                  std::this_thread::sleep_for(1'500ms);
                  response->status = 504;  // which nobody hears
              },
              "not answered within 1000 ms", 1'400ms},
             {"header without end",
              [](httplib::Response* response) {
                  response->status = 202;
                  for (int i = 0; i < 20; ++i) {
                      response->set_header("X-Noise", std::string(4'000, 'x'));
                  }
              },
              "the header of the answer is longer than 65536 bytes"},
         }) {
        SCOPED_TRACE(fault.name);
        receiver_s receiver;
        receiver.setAnswer([&](const request_s&, httplib::Response* response) {
            if (fault.answer != nullptr && receiver.requests().empty()) {
                fault.answer(response);
            }
        });
        erp_s erp(receiver, R"("batch": 50, "every": 0.01, "timeout": 1)");
        if (fault.answer != nullptr) {
            receiver.start();
        }
        erp.start();
        erp.send(20);
        EXPECT_TRUE(erp.isDown(fault.told)) << erp.gateway.process->output();
        erp.send(200);
        if (fault.answer == nullptr) {
            receiver.start();
        }
        ASSERT_TRUE(erp.gateway.settles("erp", erp.sent)) << erp.gateway.account();
        EXPECT_EQ(erp.gateway.askStatus().first, 0);
        const std::vector<request_s> requests = receiver.requests();
        EXPECT_EQ(receiver.confirmed(), upTo(erp.sent));
        if (fault.answer != nullptr) {
            ASSERT_GE(requests.size(), 2U);
            EXPECT_EQ(requests[0].body, requests[1].body);
            EXPECT_EQ(requests[0].header("webhook-id"), requests[1].header("webhook-id"));
            EXPECT_NE(requests[1].header("webhook-id"), requests[2].header("webhook-id"));
            EXPECT_GE(requests[1].at - requests[0].at, fault.waits);
        }
    }
}

TEST(Webhook, SetsAsideOnlyWhatIsRefusedAlone) {
    const std::set<std::uint64_t> poison{7, 42, 43};
    receiver_s receiver;
    receiver.setAnswer([&](const request_s& request, httplib::Response* response) {
        const std::size_t count = receiver.requests().size();
        if (count == 4) {
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
    EXPECT_TRUE(erp.isDown("dead: Is a directory"));
    EXPECT_EQ(erp.gateway.sink("erp").value("setAside", 0U), 0);
    std::filesystem::remove(dead);
    ASSERT_TRUE(erp.gateway.settles("erp", erp.sent));
    EXPECT_EQ(erp.gateway.sink("erp").at("setAside"), poison.size());

    std::vector<std::uint64_t> expected = upTo(erp.sent);
    std::erase_if(expected, [&](auto number) { return poison.contains(number); });
    EXPECT_EQ(receiver.confirmed(), expected);
    EXPECT_LT(receiver.requests().size(), 40U);
    std::set<std::uint64_t> kept;
    for (const std::string& line : erp.gateway.lines("dead", "")) {
        const json letter = json::parse(line);
        EXPECT_EQ(letter.at("reason"), "HTTP 422: not this one");
        kept.insert(letter.at("event").at("data").at("data").at("eventNum").get<std::uint64_t>());
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
    struct form_s {
        const char* settings;
        const char* contentType;
        const char* authorization;
    };
    for (const form_s& form : {
             form_s{R"("headers": {"X-Site": "dock 4"})", "application/cloudevents-batch+json", ""},
             form_s{R"("batch": 1, "tokenFile": "DIR/token")", "application/json", "Bearer t0k"},
             form_s{R"("batch": 1, "format": "cloudevent", "user": "twgate", "passwordFile": "DIR/token")",
                    "application/cloudevents+json", "Basic dHdnYXRlOnQwaw=="},
         }) {
        SCOPED_TRACE(form.contentType);
        receiver_s receiver;
        receiver.start();
        erp_s erp(receiver, form.settings);
        erp.writeSecret("token", "t0k\nnot this line\n");
        erp.start();
        // Of secrets that change, each request has the present ones.
        erp.writeSecret("secret", "whsec_bmV3IG9uZQ==\n\nwhsec_MfKQ9r8GKYqTwUPD8ILPZIo2LaLaSw==\n");
        erp.send(1);
        ASSERT_TRUE(erp.gateway.settles("erp", 1));
        const request_s request = receiver.requests().at(0);
        const std::string id = erp.gateway.source().at("boot").at("name").dump() + "/0";
        EXPECT_EQ(request.header("Content-Type"), form.contentType);
        EXPECT_EQ(request.header("Authorization"), form.authorization);
        EXPECT_EQ(request.header("webhook-signature"),
                  signatures({"new one", key}, request.header("webhook-id"),
                             request.header("webhook-timestamp"), request.body));
        EXPECT_NEAR(std::stod(request.header("webhook-timestamp")), std::time(nullptr), 60);
        const json body = json::parse(request.body);
        if (body.is_array()) {
            EXPECT_EQ(request.header("X-Site"), "dock 4");
            EXPECT_EQ(body.at(0).at("id"), id);
        } else if (body.contains("specversion")) {
            EXPECT_EQ(body.at("data").dump(), reportText(0));
        } else {
            EXPECT_EQ(request.body, reportText(0));
            EXPECT_EQ(request.header("ce-id"), id);
            EXPECT_EQ(request.header("ce-specversion") + request.header("ce-type"), "1.0tarnwick.tag.read");
        }
    }
}

TEST(Webhook, SpeaksTlsOnlyToAServerThatItKnows) {
    const temp_dir_s folder;
    makeCertificates(folder.path);
    const auto file = [&](const char* name) { return (folder.path / name).string(); };
    receiver_s receiver(std::make_unique<httplib::SSLServer>(
        file("server.pem").c_str(), file("server.key").c_str(), file("authority.pem").c_str()));
    receiver.start();
    const auto trust = [&](const char* name) { return R"("ca": ")" + file(name) + "\""; };
    const std::string own =
        R"(, "certificate": ")" + file("client.pem") + R"(", "privateKey": ")" + file("client.key") + "\"";
    erp_s erp(receiver, trust("stranger.pem") + own, "https");
    erp.start();
    erp.send(1);
    EXPECT_TRUE(erp.isDown("SSL certificate problem"));
    erp.gateway.writeConfig(erp_s::sinkWith(receiver, trust("authority.pem"), "https"));
    erp.gateway.process->signal(SIGHUP);
    EXPECT_TRUE(erp.isDown("certificate required"));
    EXPECT_TRUE(receiver.requests().empty());
    erp.gateway.writeConfig(erp_s::sinkWith(receiver, trust("authority.pem") + own, "https"));
    erp.gateway.process->signal(SIGHUP);
    ASSERT_TRUE(erp.gateway.settles("erp", 1));
}

TEST(Webhook, RepeatsAtMostOneBatchForEachKill) {
    constexpr std::uint64_t kills = 10;
    std::atomic<bool> isSlow{false}, isReached{false};
    receiver_s receiver;
    receiver.setAnswer([&](const request_s&, httplib::Response*) {
        isReached = isSlow.load();
        eventually([&] { return !isSlow; });
    });
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

    // A request that waits for its answer holds up the end no longer than what is left to deliver.
    isSlow = true;
    erp.send(1);
    ASSERT_TRUE(eventually([&] { return isReached.load(); }));
    erp.gateway.process->signal(SIGTERM);
    EXPECT_EQ(erp.gateway.process->waitForExit(8s), 0);
    isSlow = false;
}
