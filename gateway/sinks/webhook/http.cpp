// SPDX-License-Identifier: MIT
#include "http.hpp"

#include <curl/curl.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <new>
#include <string_view>

namespace {

constexpr std::size_t mostRead = 64UL << 10;  // bytes of header, and of body
constexpr std::size_t startSize = 200;        // bytes of bodyStart
constexpr int pollTime = 1'000;               // ms
constexpr long firstFinal = 200;              // those below announce another status

template <auto destroy>
struct deleter_s {
    template <class Handle>
    void operator()(Handle* handle) const {
        destroy(handle);
    }
};
using easy_t = std::unique_ptr<CURL, deleter_s<curl_easy_cleanup>>;
using multi_t = std::unique_ptr<CURLM, deleter_s<curl_multi_cleanup>>;
using list_t = std::unique_ptr<curl_slist, deleter_s<curl_slist_free_all>>;

list_t listOf(const std::vector<std::string>& lines) {
    list_t list;
    for (const std::string& line : lines) {
        curl_slist* const longer = curl_slist_append(list.get(), line.c_str());
        if (longer == nullptr) {
            throw std::bad_alloc();
        }
        static_cast<void>(list.release());
        list.reset(longer);
    }
    return list;
}

}  // namespace

struct http_client_c::impl_s {
    impl_s(http_settings_s given, std::stop_token token);

    CURLcode perform();
    std::string whyNot(CURLcode code) const;
    bool takeHeader(std::string_view line);
    bool takeBody(std::string_view part);

    const http_settings_s settings;
    const std::stop_token abort;
    easy_t easy{curl_easy_init()};
    // Against the easy handle alone it can be woken, and it keeps the connection all the same.
    multi_t multi{curl_multi_init()};

    // Of the present request.
    std::array<char, CURL_ERROR_SIZE> error{};
    http_answer_s answer;
    std::size_t headerSize = 0, bodySize = 0;
};

http_client_c::impl_s::impl_s(http_settings_s given, std::stop_token token)
    : settings(std::move(given)), abort(std::move(token)) {
    if (!easy || !multi) {
        throw std::bad_alloc();
    }
    CURL* const handle = easy.get();
    curl_easy_setopt(handle, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(handle, CURLOPT_QUICK_EXIT, 1L);  // does not wait for a name server that is silent
    curl_easy_setopt(handle, CURLOPT_ERRORBUFFER, error.data());
    curl_easy_setopt(handle, CURLOPT_URL, settings.url.c_str());
    curl_easy_setopt(handle, CURLOPT_PROTOCOLS_STR, "http,https");
    curl_easy_setopt(handle, CURLOPT_HTTP_VERSION, CURL_HTTP_VERSION_1_1);
    curl_easy_setopt(handle, CURLOPT_FOLLOWLOCATION, 0L);
    curl_easy_setopt(handle, CURLOPT_USERAGENT, "twgate/" TARNWICK_VERSION);
    curl_easy_setopt(handle, CURLOPT_TIMEOUT_MS, static_cast<long>(settings.timeout.count()));
    curl_easy_setopt(handle, CURLOPT_SSLVERSION, CURL_SSLVERSION_TLSv1_2);
    curl_easy_setopt(handle, CURLOPT_SSL_VERIFYPEER, 1L);
    curl_easy_setopt(handle, CURLOPT_SSL_VERIFYHOST, 2L);
    if (!settings.ca.empty()) {
        curl_easy_setopt(handle, CURLOPT_CAINFO, settings.ca.c_str());
        curl_easy_setopt(handle, CURLOPT_CAPATH, nullptr);  // else the system's authorities count as well
    }
    if (!settings.certificate.empty()) {
        curl_easy_setopt(handle, CURLOPT_SSLCERT, settings.certificate.c_str());
        curl_easy_setopt(handle, CURLOPT_SSLKEY, settings.privateKey.c_str());
        curl_easy_setopt(handle, CURLOPT_KEYPASSWD, "");  // else a terminal is asked for it
    }
    curl_easy_setopt(handle, CURLOPT_HEADERDATA, this);
    curl_easy_setopt(
        handle, CURLOPT_HEADERFUNCTION, +[](const char* data, std::size_t, std::size_t size, void* self) {
            return static_cast<impl_s*>(self)->takeHeader({data, size}) ? size : 0;
        });
    curl_easy_setopt(handle, CURLOPT_WRITEDATA, this);
    curl_easy_setopt(
        handle, CURLOPT_WRITEFUNCTION, +[](const char* data, std::size_t, std::size_t size, void* self) {
            return static_cast<impl_s*>(self)->takeBody({data, size}) ? size : 0;
        });
}

// A line of the header. False ends the request.
bool http_client_c::impl_s::takeHeader(std::string_view line) {
    long status = 0;
    curl_easy_getinfo(easy.get(), CURLINFO_RESPONSE_CODE, &status);
    if (status >= firstFinal && (line == "\r\n" || line == "\n")) {
        answer.status = status;
    }
    headerSize += line.size();
    return headerSize <= mostRead;
}

bool http_client_c::impl_s::takeBody(std::string_view part) {
    bodySize += part.size();
    answer.bodyStart += part.substr(0, startSize - answer.bodyStart.size());
    return bodySize <= mostRead;
}

CURLcode http_client_c::impl_s::perform() {
    const std::stop_callback wake(abort, [this] { curl_multi_wakeup(multi.get()); });
    curl_multi_add_handle(multi.get(), easy.get());
    CURLcode result = CURLE_ABORTED_BY_CALLBACK;
    for (int running = 1; running > 0 && !abort.stop_requested();) {
        curl_multi_perform(multi.get(), &running);
        if (running > 0) {
            curl_multi_poll(multi.get(), nullptr, 0, pollTime, nullptr);
        }
    }
    int left = 0;
    if (const CURLMsg* const message = curl_multi_info_read(multi.get(), &left)) {
        result = message->data.result;
    }
    curl_multi_remove_handle(multi.get(), easy.get());
    return result;
}

// The same words each time: a text with the milliseconds that it took would be news at each attempt.
std::string http_client_c::impl_s::whyNot(CURLcode code) const {
    if (headerSize > mostRead) {
        return "the header of the answer is longer than " + std::to_string(mostRead) + " bytes";
    }
    if (code == CURLE_OPERATION_TIMEDOUT) {
        return "not answered within " + std::to_string(settings.timeout.count()) + " ms";
    }
    long cause = 0;
    curl_easy_getinfo(easy.get(), CURLINFO_OS_ERRNO, &cause);
    if (code == CURLE_COULDNT_CONNECT && cause != 0) {
        return "cannot connect: " + std::string(std::strerror(static_cast<int>(cause)));
    }
    return code != CURLE_COULDNT_CONNECT && error[0] != '\0' ? error.data() : curl_easy_strerror(code);
}

http_client_c::http_client_c(http_settings_s settings, std::stop_token abort)
    : impl(std::make_unique<impl_s>(std::move(settings), std::move(abort))) {}

http_client_c::~http_client_c() = default;

http_answer_s http_client_c::post(const std::string& body, const std::vector<std::string>& headers) {
    CURL* const handle = impl->easy.get();
    const list_t list = listOf(headers);
    curl_easy_setopt(handle, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(body.size()));
    curl_easy_setopt(handle, CURLOPT_POSTFIELDS, body.c_str());
    curl_easy_setopt(handle, CURLOPT_HTTPHEADER, list.get());
    impl->error[0] = '\0';
    impl->answer = {};
    impl->headerSize = impl->bodySize = 0;
    const CURLcode result = impl->perform();
    if (impl->answer.status == 0) {
        impl->answer.error = impl->whyNot(result);
    } else {
        curl_off_t seconds = 0;
        const char* location = nullptr;
        curl_easy_getinfo(handle, CURLINFO_RETRY_AFTER, &seconds);
        curl_easy_getinfo(handle, CURLINFO_REDIRECT_URL, &location);
        impl->answer.retryAfter = std::chrono::seconds(std::max<curl_off_t>(0, seconds));
        impl->answer.location = location == nullptr ? "" : location;
    }
    curl_easy_setopt(handle, CURLOPT_HTTPHEADER, nullptr);
    curl_easy_setopt(handle, CURLOPT_POSTFIELDS, nullptr);
    return impl->answer;
}
