// SPDX-License-Identifier: MIT
#include "server.hpp"

#include <arpa/inet.h>
#include <httplib.h>
#include <netdb.h>
#include <openssl/evp.h>
#include <prometheus/text_serializer.h>
#include <spdlog/spdlog.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <list>
#include <map>
#include <mutex>
#include <sstream>

#include "access.hpp"
#include "connection.hpp"
#include "daemon_accounts.hpp"
#include "event.hpp"
#include "openmetrics.hpp"
#include "page_files.hpp"
#include "picture.hpp"

namespace {

using namespace std::chrono_literals;
using httplib::Request;
using httplib::Response;
using nlohmann::json;
using steady_t = std::chrono::steady_clock;

constexpr std::size_t mostConnections = 64;
constexpr std::size_t mostThreads = 96;  // with those of connections that are being closed
constexpr int mostStreams = 32;
constexpr auto requestWithin = 5s;
constexpr auto writeWithin = 10s;             // of each part of an answer
constexpr std::size_t partSize = 64UL << 10;  // bytes
constexpr auto roomWithin = 1s;
constexpr auto lingerFor = 500ms;
constexpr auto lookEvery = 1s;  // of a stream, whether its peer is still there
constexpr auto accountsWithin = 1'500ms;
constexpr auto aliveWithin = 20s;  // of the main thread
constexpr auto tellEvery = 60s;    // of wrong tokens, in the log
constexpr const char* plainText = "text/plain; charset=utf-8";
constexpr const char* jsonText = "application/json";
constexpr std::int64_t microsecondsInSecond = 1'000'000;

// An answer to what is not worth parsing.
std::string shortAnswer(int status, std::string_view reason, std::string_view text) {
    return fmt::format(
        "HTTP/1.1 {} {}\r\nContent-Type: {}\r\nContent-Length: {}\r\nConnection: close\r\n\r\n{}\n", status,
        reason, plainText, text.size() + 1, text);
}

// What the library reads and writes: one request, which is complete, and the connection.
class request_stream_c : public httplib::Stream {
  public:
    request_stream_c(connection_c* target, std::string header)
        : connection(target), text(std::move(header)) {}

    bool is_readable() const override { return at < text.size(); }
    bool is_writable() const override { return !failed && !connection->isClosed(); }
    ssize_t read(char* bytes, std::size_t size) override {
        const std::size_t count = text.copy(bytes, size, at);
        at += count;
        return static_cast<ssize_t>(count);
    }
    ssize_t write(const char* bytes, std::size_t size) override {
        for (std::size_t done = 0; done < size && !failed; done += partSize) {
            failed = !connection->write({bytes + done, std::min(partSize, size - done)},
                                        steady_t::now() + writeWithin);
        }
        return failed ? -1 : static_cast<ssize_t>(size);
    }
    void get_remote_ip_and_port(std::string& ip, int& port) const override {
        sockaddr_storage address{};
        socklen_t length = sizeof address;
        std::array<char, NI_MAXHOST> host{};
        getpeername(connection->socket(), reinterpret_cast<sockaddr*>(&address), &length);
        getnameinfo(reinterpret_cast<sockaddr*>(&address), length, host.data(), host.size(), nullptr, 0,
                    NI_NUMERICHOST);
        ip = host.data();
        port = 0;
    }
    void get_local_ip_and_port(std::string&, int&) const override {}
    socket_t socket() const override { return connection->socket(); }

    bool hasFailed() const { return failed; }

  private:
    connection_c* const connection;
    const std::string text;
    std::size_t at = 0;
    bool failed = false;
};

bool hasBody(const Request& request) {
    return request.has_header("Transfer-Encoding") || request.get_header_value_count("Content-Length") > 1 ||
           request.get_header_value("Content-Length").find_first_not_of('0') != std::string::npos;
}

std::string_view refusalText(int status) {
    switch (status) {
        case 401:
            return "a token is needed";
        case 403:
            return "not for other sites";
        case 404:
            return "there is nothing here";
        case 405:
            return "only GET and HEAD are answered";
        default:
            return "a request has no body here";
    }
}

void sendVerdict(const char* name, const std::vector<std::string>& reasons, Response* response) {
    constexpr int unavailable = 503, ok = 200;
    response->status = reasons.empty() ? ok : unavailable;
    response->set_content(json{{name, reasons.empty()}, {"reasons", reasons}}.dump() + "\n", jsonText);
}

// A connection that is open, as others see it.
struct guest_s {
    int socket = -1;
    bool isWaiting = true;  // for a request
    steady_t::time_point since = steady_t::now();
};

// What may change while the server runs.
struct files_s {
    access_c access;
    ssl_context_t tls;
};

}  // namespace

class http_server_c::impl_c : public httplib::Server {
  public:
    impl_c(picture_c* pictureOfGateway, daemon_accounts_c* daemonAccounts);
    ~impl_c() override;

    bool open(const http_config_s& config, std::string* error);
    bool readFiles(const http_config_s& config, std::string* error);

    std::string listensOn;

  private:
    class threads_c;
    using handler_t = void (impl_c::*)(const Request&, Response&);
    struct route_s {
        handler_t handle = nullptr;
        bool isOpen = false;  // also without the token
        std::string_view file{};
        std::string tag{};  // of the file
    };

    bool process_and_close_socket(socket_t socket) override;
    void serve(connection_c* connection, std::list<guest_s>::iterator guest);
    enum class next_e { request, end, linger };
    next_e serveOne(connection_c* connection);
    bool makeRoom();
    std::shared_ptr<const files_s> filesNow();

    void listenOn(const std::string& host, int port);
    void answer(const Request& request, Response& response);
    int refusalOf(const Request& request, const route_s* route);
    void sendFile(const Request& request, Response& response);
    void sendState(const Request& request, Response& response);
    void sendStream(const Request& request, Response& response);
    void sendMetrics(const Request& request, Response& response);
    void sendHealth(const Request& request, Response& response);
    void sendReadiness(const Request& request, Response& response);
    void sendSession(const Request& request, Response& response);
    void tellWrongToken(const std::string& address);

    picture_c* const picture;
    daemon_accounts_c* const accounts;
    std::map<std::string, route_s, std::less<>> routes;  // by path
    std::thread listener;

    std::mutex mutex;  // of what follows
    std::list<guest_s> guests;
    std::shared_ptr<const files_s> files;
    bool ending = false;
    steady_t::time_point lastTold{};
    std::uint64_t wrongTokens = 0;  // that were not told

    std::atomic<bool> isOver{false};  // the listener
    std::atomic<int> streams{0};
    std::atomic<std::uint64_t> requests{0}, refused{0}, cut{0};
};

// The library hands each new connection to this. Each has a thread of its own, so that one that waits holds
// up nobody.
class http_server_c::impl_c::threads_c : public httplib::TaskQueue {
  public:
    void enqueue(std::function<void()> task) override {
        {
            // Those that were told to close need a moment; new connections wait to be accepted meanwhile.
            std::unique_lock guard(mutex);
            isRefusing = !ended.wait_for(guard, roomWithin, [this] { return running < mostThreads; });
            running += isRefusing ? 0 : 1;
        }
        if (!isRefusing) {
            try {
                std::thread([this, task] {
                    task();
                    const std::lock_guard guard(mutex);
                    --running;
                    ended.notify_all();
                }).detach();
                return;
            } catch (const std::system_error&) {
                const std::lock_guard guard(mutex);
                --running;
                isRefusing = true;
            }
        }
        task();
        isRefusing = false;
    }

    void shutdown() override {
        std::unique_lock guard(mutex);
        ended.wait(guard, [this] { return running == 0; });
    }

    // The task that this thread runs has only to close its connection.
    static thread_local bool isRefusing;

  private:
    std::mutex mutex;
    std::condition_variable ended;
    std::size_t running = 0;
};
thread_local bool http_server_c::impl_c::threads_c::isRefusing = false;

http_server_c::impl_c::impl_c(picture_c* pictureOfGateway, daemon_accounts_c* daemonAccounts)
    : picture(pictureOfGateway), accounts(daemonAccounts) {
    for (const page_file_s& file : pageFiles()) {
        std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
        EVP_Digest(file.text.data(), file.text.size(), digest.data(), nullptr, EVP_sha256(), nullptr);
        std::string tag;
        for (int i = 0; i < 8; ++i) {
            tag += fmt::format("{:02x}", digest[static_cast<std::size_t>(i)]);
        }
        routes[std::string(file.path)] = {&impl_c::sendFile, true, file.text, "\"" + tag + "\""};
    }
    routes["/api/state"] = {&impl_c::sendState};
    routes["/api/stream"] = {&impl_c::sendStream};
    routes["/api/session"] = {&impl_c::sendSession};
    routes["/metrics"] = {&impl_c::sendMetrics};
    routes["/healthz"] = {&impl_c::sendHealth, true};
    routes["/readyz"] = {&impl_c::sendReadiness};

    new_task_queue = [] { return new threads_c; };
    // Not SO_REUSEPORT, with which a second gateway would take half of the connections.
    set_socket_options([](socket_t socket) {
        constexpr int yes = 1;
        setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    });
    set_pre_routing_handler([this](const Request& request, Response& response) {
        answer(request, response);
        return HandlerResponse::Handled;
    });
    set_logger([this](const Request&, const Response& response) {
        constexpr int firstRefusal = 400;
        refused += response.status >= firstRefusal ? 1 : 0;
    });
    set_default_headers({
        {"Content-Security-Policy",
         "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self' data:; connect-src 'self'; "
         "base-uri 'none'; form-action 'none'; frame-ancestors 'none'"},
        {"X-Content-Type-Options", "nosniff"},
        {"X-Frame-Options", "DENY"},
        {"Referrer-Policy", "no-referrer"},
        {"Cross-Origin-Opener-Policy", "same-origin"},
        {"Cross-Origin-Resource-Policy", "same-origin"},
        {"Permissions-Policy", "camera=(), geolocation=(), microphone=()"},
    });
}

http_server_c::impl_c::~impl_c() {
    {
        const std::lock_guard guard(mutex);
        ending = true;
        for (const guest_s& guest : guests) {
            ::shutdown(guest.socket, SHUT_RDWR);
        }
    }
    while (listener.joinable() && !isOver) {
        stop();  // does nothing before it listens
        std::this_thread::sleep_for(1ms);
    }
    if (listener.joinable()) {
        listener.join();
    }
}

bool http_server_c::impl_c::readFiles(const http_config_s& config, std::string* error) {
    ssl_context_t tls;
    std::string token;
    if (!config.certFile.empty() && !(tls = loadServerContext(config.certFile, config.keyFile, error))) {
        return false;
    }
    if (!config.tokenFile.empty()) {
        const std::optional<std::string> secret = readSecret(config.tokenFile, error);
        if (!secret) {
            *error = config.tokenFile + ": " + *error;
            return false;
        }
        token = *secret;
    }
    auto fresh = std::make_shared<const files_s>(files_s{access_c(token), tls});
    const std::lock_guard guard(mutex);
    files = std::move(fresh);
    return true;
}

std::shared_ptr<const files_s> http_server_c::impl_c::filesNow() {
    const std::lock_guard guard(mutex);
    return files;
}

bool http_server_c::impl_c::open(const http_config_s& config, std::string* error) {
    if (!readFiles(config, error)) {
        return false;
    }
    std::string host = config.host;
    if (host.starts_with('[')) {
        host = host.substr(1, host.size() - 2);
    }
    errno = 0;
    const int port = config.port == 0                  ? bind_to_any_port(host)
                     : bind_to_port(host, config.port) ? config.port
                                                       : -1;
    if (port < 0) {
        *error = "http.listen: " + config.host + ":" + std::to_string(config.port) +
                 " cannot be had: " + std::strerror(errno);
        return false;
    }
    listensOn = config.host + ":" + std::to_string(port);
    // The library lets only a few connections wait to be accepted.
    constexpr int mostWaiting = 256;
    ::listen(svr_sock_, mostWaiting);
    listener = std::thread([this, host, port] { listenOn(host, port); });
    return true;
}

// The library gives up when it cannot accept a connection, for instance since the memory is short.
void http_server_c::impl_c::listenOn(const std::string& host, int port) {
    const auto isEnding = [this] {
        const std::lock_guard guard(mutex);
        return ending;
    };
    while (!isEnding()) {
        listen_after_bind();
        while (!isEnding() && !bind_to_port(host, port)) {
            std::this_thread::sleep_for(100ms);
        }
    }
    isOver = true;
}

// When there are too many connections, the one that has waited longest for a request goes. False when there
// is none.
bool http_server_c::impl_c::makeRoom() {
    if (guests.size() < mostConnections) {
        return true;
    }
    auto oldest = guests.end();
    std::size_t closing = 0;
    for (auto guest = guests.begin(); guest != guests.end(); ++guest) {
        closing += guest->socket < 0 ? 1 : 0;
        if (guest->isWaiting && guest->socket >= 0 &&
            (oldest == guests.end() || guest->since < oldest->since)) {
            oldest = guest;
        }
    }
    if (guests.size() - closing < mostConnections) {
        return true;
    }
    if (oldest == guests.end()) {
        return false;
    }
    ::shutdown(oldest->socket, SHUT_RDWR);
    oldest->socket = -1;  // its thread closes it
    ++cut;
    return true;
}

bool http_server_c::impl_c::process_and_close_socket(socket_t socket) {
    auto guest = guests.end();
    {
        const std::lock_guard guard(mutex);
        if (!threads_c::isRefusing && !ending && makeRoom()) {
            guest = guests.insert(guests.end(), {.socket = socket});
        }
    }
    if (guest == guests.end()) {
        ++cut;
        close(socket);
        return false;
    }
    try {
        connection_c connection(socket, filesNow()->tls);
        serve(&connection, guest);
    } catch (const std::exception& problem) {
        spdlog::error("http: {}", problem.what());
    }
    {
        // From here on nobody shuts down a descriptor that may be another's.
        const std::lock_guard guard(mutex);
        guests.erase(guest);
    }
    close(socket);
    return true;
}

void http_server_c::impl_c::serve(connection_c* connection, std::list<guest_s>::iterator guest) {
    auto end = steady_t::now() + requestWithin;
    if (!connection->handshake(end)) {
        ++cut;
        return;
    }
    next_e next = next_e::request;
    while (next == next_e::request) {
        const connection_c::header_e header = connection->readHeader(end);
        if (header == connection_c::header_e::tooLarge) {
            ++requests, ++refused, ++cut;
            connection->write(shortAnswer(431, "Request Header Fields Too Large", "the header is too large"),
                              steady_t::now() + lingerFor);
            next = next_e::linger;
            break;
        }
        if (header != connection_c::header_e::complete) {
            cut += header == connection_c::header_e::tooLate ? 1 : 0;
            return;
        }
        {
            const std::lock_guard guard(mutex);
            guest->isWaiting = false;
        }
        next = serveOne(connection);
        const std::lock_guard guard(mutex);
        guest->isWaiting = true;
        guest->since = steady_t::now();
        end = guest->since + requestWithin;
    }
    if (next == next_e::linger) {
        connection->linger(steady_t::now() + lingerFor);
    }
}

http_server_c::impl_c::next_e http_server_c::impl_c::serveOne(connection_c* connection) {
    request_stream_c stream(connection, connection->takeHeader());
    bool closes = false, isParsed = false, bodyFollows = false;
    const bool done = process_request(stream, false, closes, [&](Request& request) {
        isParsed = true;
        // Answers are whole and never compressed.
        for (const char* name : {"Accept-Encoding", "Range", "Expect"}) {
            request.headers.erase(name);
        }
        request.ranges.clear();
        if (hasBody(request)) {
            bodyFollows = true;  // and is not looked at
            request.headers.erase("Connection");
            request.set_header("Connection", "close");
        }
    });
    ++requests;
    cut += stream.hasFailed() ? 1 : 0;
    const bool isSound = done && isParsed && !stream.hasFailed();
    return bodyFollows ? next_e::linger : isSound && !closes ? next_e::request : next_e::end;
}

// The status of a refusal, or 0.
int http_server_c::impl_c::refusalOf(const Request& request, const route_s* route) {
    constexpr int notAuthorised = 401, forbidden = 403, notFound = 404, wrongMethod = 405, tooLarge = 413;
    const std::shared_ptr<const files_s> present = filesNow();
    const access_c& access = present->access;
    const auto header = [&](const char* name) { return request.get_header_value(name); };
    if (hasBody(request)) {
        return tooLarge;
    }
    if (request.method != "GET" && request.method != "HEAD") {
        return wrongMethod;
    }
    // Without a token a browser is kept from asking for pages of other sites.
    if (!access.needsToken() && !isLoopbackHost(header("Host"))) {
        return forbidden;
    }
    const bool isOpen = route != nullptr && route->isOpen;
    if (!isOpen && header("Sec-Fetch-Site") == "cross-site") {
        return forbidden;
    }
    if (!isOpen &&
        !access.allows(header("Authorization"), header("Cookie"), nowMicroseconds() / microsecondsInSecond)) {
        if (!header("Authorization").empty()) {
            tellWrongToken(request.remote_addr);
        }
        return notAuthorised;
    }
    return route == nullptr ? notFound : 0;
}

void http_server_c::impl_c::answer(const Request& request, Response& response) {
    const auto route = routes.find(request.path);
    const route_s* const found = route == routes.end() ? nullptr : &route->second;
    if (const int status = refusalOf(request, found); status != 0) {
        response.status = status;
        response.set_header("Cache-Control", "no-store");
        if (status == 401) {
            response.set_header("WWW-Authenticate", "Bearer");
        } else if (status == 405) {
            response.set_header("Allow", "GET, HEAD");
        }
        response.set_content(std::string(refusalText(status)) + "\n", plainText);
        return;
    }
    if (found->file.empty()) {
        response.set_header("Cache-Control", "no-store");
    }
    (this->*found->handle)(request, response);
}

void http_server_c::impl_c::tellWrongToken(const std::string& address) {
    const std::lock_guard guard(mutex);
    ++wrongTokens;
    if (steady_t::now() - lastTold >= tellEvery) {
        spdlog::warn(
            "http: a wrong token from {}{}", address,
            wrongTokens > 1 ? fmt::format(", and {} more since the last such line", wrongTokens - 1) : "");
        lastTold = steady_t::now();
        wrongTokens = 0;
    }
}

void http_server_c::impl_c::sendFile(const Request& request, Response& response) {
    constexpr int notModified = 304;
    const route_s& route = routes.find(request.path)->second;
    response.set_header("ETag", route.tag);
    response.set_header("Cache-Control", "no-cache");
    if (request.get_header_value("If-None-Match") == route.tag) {
        response.status = notModified;
        return;
    }
    response.set_content(route.file.data(), route.file.size(), std::string(contentTypeOf(request.path)));
}

void http_server_c::impl_c::sendState(const Request&, Response& response) {
    const std::shared_ptr<const std::string> whole = picture->whole();
    response.set_content_provider(
        whole->size(), jsonText,
        [text = whole](std::size_t offset, std::size_t length, httplib::DataSink& sink) {
            return sink.write(text->data() + offset, std::min(length, partSize));
        });
}

void http_server_c::impl_c::sendStream(const Request&, Response& response) {
    constexpr int busy = 503;
    if (streams.fetch_add(1) >= mostStreams) {
        --streams;
        response.status = busy;
        response.set_header("Retry-After", "5");
        response.set_content("too many streams are open\n", plainText);
        return;
    }
    const std::shared_ptr<picture_c::stream_c> stream(new picture_c::stream_c(picture),
                                                      [this](picture_c::stream_c* own) {
                                                          delete own;
                                                          --streams;
                                                      });
    response.set_header("X-Accel-Buffering", "no");
    response.set_chunked_content_provider(
        "text/event-stream", [stream](std::size_t, httplib::DataSink& sink) {
            const std::optional<std::string> text = stream->next(lookEvery);
            return text && (text->empty() || sink.write(text->data(), text->size()));
        });
}

void http_server_c::impl_c::sendMetrics(const Request& request, Response& response) {
    accounts->refresh(accountsWithin);
    http_numbers_s own{.requests = requests, .refused = refused, .connections = 0, .streams = 0, .cut = cut};
    own.streams = static_cast<std::uint64_t>(streams.load());
    {
        const std::lock_guard guard(mutex);
        own.connections = guests.size();
    }
    const std::vector<prometheus::MetricFamily> families = collectMetrics(picture->numbers(), own);
    if (wantsOpenMetrics(request.get_header_value("Accept"))) {
        response.set_content(openMetricsText(families), openMetricsType);
    } else {
        response.set_content(prometheus::TextSerializer().Serialize(families),
                             "text/plain; version=0.0.4; charset=utf-8");
    }
}

void http_server_c::impl_c::sendHealth(const Request&, Response& response) {
    std::vector<std::string> reasons = picture->health().stuck;
    if (steady_t::now() - picture->statusAt() > aliveWithin) {
        reasons.emplace_back("the main thread does not answer");
    }
    sendVerdict("healthy", reasons, &response);
}

void http_server_c::impl_c::sendReadiness(const Request&, Response& response) {
    sendVerdict("ready", picture->health().reasons, &response);
}

void http_server_c::impl_c::sendSession(const Request& request, Response& response) {
    constexpr int noContent = 204;
    const std::shared_ptr<const files_s> present = filesNow();
    response.status = noContent;
    if (present->access.needsToken() &&
        present->access.allowsToken(request.get_header_value("Authorization"))) {
        response.set_header("Set-Cookie", present->access.cookie(nowMicroseconds() / microsecondsInSecond,
                                                                 present->tls != nullptr));
    }
}

http_server_c::http_server_c(picture_c* picture, daemon_accounts_c* accounts)
    : impl(std::make_unique<impl_c>(picture, accounts)) {}

http_server_c::~http_server_c() = default;

bool http_server_c::open(const http_config_s& config, std::string* error) {
    return impl->open(config, error);
}

bool http_server_c::readFiles(const http_config_s& config, std::string* error) {
    return impl->readFiles(config, error);
}

std::string http_server_c::address() const {
    return impl->listensOn;
}
