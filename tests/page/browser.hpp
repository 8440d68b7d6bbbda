// SPDX-License-Identifier: MIT
// Chromium without a window, driven by WebDriver (https://www.w3.org/TR/webdriver2/).
#pragma once

#include <httplib.h>

#include <nlohmann/json.hpp>
#include <regex>

#include "support/reader.hpp"

class browser_c {
  public:
    browser_c() : driver("chromedriver", {{"--port=0"}, {}, {}}) {
        std::smatch found;
        if (!driver.waitForOutput("was started successfully")) {
            throw std::runtime_error("chromedriver: " + driver.output());
        }
        const std::string text = driver.output();
        std::regex_search(text, found, std::regex("successfully on port ([0-9]+)"));
        client = std::make_unique<httplib::Client>("127.0.0.1", std::stoi(found[1]));
        client->set_read_timeout(60);
        // Root may not have the sandbox; /dev/shm is small in containers.
        const nlohmann::json options = {
            {"args",
             {"--headless=new", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage",
              "--hide-scrollbars", "--accept-lang=en-US",
              "--user-data-dir=" + (directory.path / "profile").string()}}};
        const nlohmann::json session = request(
            "", {{"capabilities",
                  {{"alwaysMatch",
                    {{"goog:chromeOptions", options}, {"goog:loggingPrefs", {{"browser", "ALL"}}}}}}}});
        path = "/" + session.at("sessionId").get<std::string>();
    }
    ~browser_c() { client->Delete("/session" + path); }
    browser_c(const browser_c&) = delete;
    browser_c& operator=(const browser_c&) = delete;

    void open(const std::string& url) { request("/url", {{"url", url}}); }

    // The value of a JavaScript expression, with await.
    nlohmann::json eval(const std::string& expression) {
        return request("/execute/sync", {{"script", "return (async () => (" + expression + "))()"},
                                         {"args", nlohmann::json::array()}});
    }
    // Until the expression is true.
    bool waitFor(const std::string& expression) {
        return eventually([&] { return eval(expression) == true; });
    }
    // The text of the first element of a selector, as the document has it.
    std::string text(const std::string& selector) {
        return eval("document.querySelector(" + nlohmann::json(selector).dump() + ").textContent");
    }
    // Keys as a user presses them; \ue007 is Enter.
    void type(const std::string& selector, const std::string& keys) {
        const nlohmann::json element = request("/element", {{"using", "css selector"}, {"value", selector}});
        request("/element/" + element.begin()->get<std::string>() + "/value", {{"text", keys}});
    }

    // A window of this size in CSS pixels, a phone's when it is narrow, of a user who prefers "light" or
    // "dark".
    void emulate(int width, int height, const std::string& scheme) {
        constexpr int widestPhone = 500;
        tell("Emulation.setDeviceMetricsOverride", {{"width", width},
                                                    {"height", height},
                                                    {"deviceScaleFactor", 1},
                                                    {"mobile", width < widestPhone}});
        const nlohmann::json feature = {{"name", "prefers-color-scheme"}, {"value", scheme}};
        tell("Emulation.setEmulatedMedia", {{"features", nlohmann::json::array({feature})}});
    }

    // What the page's console has said since the last call, such as violations of its security policy.
    nlohmann::json console() { return request("/se/log", {{"type", "browser"}}); }

    // A picture of the window, as a PNG file.
    void shoot(const std::filesystem::path& file) {
        std::filesystem::create_directories(file.parent_path());
        const auto reply = client->Get("/session" + path + "/screenshot");
        writeTextFile(file, decodeBase64(nlohmann::json::parse(reply->body).at("value")));
    }

  private:
    void tell(const std::string& command, const nlohmann::json& parameters) {
        request("/goog/cdp/execute", {{"cmd", command}, {"params", parameters}});
    }
    nlohmann::json request(const std::string& command, const nlohmann::json& body) {
        const auto reply = client->Post("/session" + path + command, body.dump(), "application/json");
        if (!reply) {
            throw std::runtime_error("chromedriver does not answer " + command);
        }
        const nlohmann::json document = nlohmann::json::parse(reply->body);
        if (reply->status != 200) {
            throw std::runtime_error(command + " " + body.dump() + ": " + document.dump());
        }
        return document.at("value");
    }

    static std::string decodeBase64(const std::string& text) {
        static const std::string digits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
        std::string bytes;
        unsigned bits = 0, count = 0;
        for (const char digit : text) {
            if (digit == '=') {
                break;
            }
            bits = bits << 6U | static_cast<unsigned>(digits.find(digit));
            count += 6;
            if (count >= 8) {
                count -= 8;
                bytes += static_cast<char>(bits >> count & 0xffU);
            }
        }
        return bytes;
    }

    temp_dir_s directory;
    process_s driver;
    std::unique_ptr<httplib::Client> client;
    std::string path;  // of the session, behind /session
};
