// SPDX-License-Identifier: MIT
// The live page in a browser, with the real gateway, daemon and software radio. Pictures of each state are
// kept in the folder "screenshots" of the build.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "gateway/program.hpp"
#include "gateway/server.hpp"
#include "page/browser.hpp"

using nlohmann::json;

namespace {

const std::filesystem::path screenshots = TARNWICK_SCREENSHOTS;

std::string example(const std::string& name) {
    return readTextFile(std::string(TARNWICK_SOURCE_DIR "/examples/scenarios/") + name);
}

// The gateway of the daemon's own endpoints, with a page, a file and a broker that may be away.
struct site_s : gateway_s {
    explicit site_s(const std::string& moreHttp = "") : gateway_s("[]") {
        const json config = {
            {"reader", "dock"},
            {"source",
             {{"tags", dataEndpoint}, {"events", "ipc:///tmp/events"}, {"requests", replyEndpoint}}},
            {"status", endpoint("status")},
            {"http", json::parse(R"({"listen": "127.0.0.1:)" + std::to_string(port) + "\"" + moreHttp + "}")},
            {"spool", {{"directory", (directory.path / "spool").string()}}},
            {"presence", {{"departAfter", 1}}},
            {"sinks",
             {{{"name", "archive"}, {"type", "file"}, {"path", (directory.path / "tags").string()}},
              {{"name", "site"},
               {"type", "mqtt"},
               {"url", "mqtt://127.0.0.1:" + std::to_string(brokerPort)},
               {"streams", {"tags", "events"}}}}}};
        writeTextFile(directory.path / "twgate.json", config.dump());
    }

    void startBroker() {
        broker = std::make_unique<process_s>("/usr/sbin/mosquitto",
                                             process_options_s{{"-p", std::to_string(brokerPort)}, {}, {}});
        broker->waitForOutput("running");
    }
    void stop() {
        process->signal(SIGTERM);
        process->waitForExit();
    }
    std::string url() const { return "http://127.0.0.1:" + std::to_string(port) + "/"; }

    const int port = freePort(), brokerPort = freePort();
    std::unique_ptr<process_s> broker;
};

const char* const isLive = "document.body.dataset.connection === 'live'";

// A cell of the account, whose bar has a title that ends so: a row's number without the locale's points.
std::string accountNumber(const std::string& title, const std::string& row) {
    return "Number([...[...document.querySelectorAll('#account figure')].find(f => "
           "f.querySelector('figcaption span').textContent.endsWith('" +
           title + "')).querySelectorAll('tr')].find(r => r.cells[0].textContent === '" + row +
           "').cells[1].textContent.replace(/\\D/g, ''))";
}

std::string tile(const std::string& name) {
    return "Number([...document.querySelectorAll('#overview div')].find(d => d.firstChild.textContent === '" +
           name + "').lastChild.textContent.replace(/\\D/g, ''))";
}

std::string sinkCell(const std::string& sink, int column) {
    return "[...document.querySelectorAll('#sinks tbody tr')].find(r => r.textContent.startsWith('" + sink +
           "')).cells[" + std::to_string(column) + "].textContent";
}

// Nothing was kept from loading or from running. A gateway that is away, or wants a token, is not a fault.
void expectNoComplaints(browser_c* browser) {
    for (const json& line : browser->console()) {
        const bool isAway = line.at("source") == "network" &&
                            line.at("message").get<std::string>().find("/api/") != std::string::npos;
        EXPECT_TRUE(isAway || line.at("level") == "INFO") << line;
    }
}

}  // namespace

TEST(Page, ShowsWhatIsReadAndWhereItWent) {
    site_s site;
    site.startBroker();
    site.start();
    reader_s reader({.scenario = example("dock-door.json")});
    EXPECT_EQ(ask(R"(mode {"type": "SIMPLE", "reportFilter": {}, "tagMetaData": ["ANTENNA", "RSSI"]})"),
              "Success");
    EXPECT_EQ(ask("start"), "Success");
    browser_c browser;
    browser.emulate(1200, 1640, "light");
    browser.open(site.url());
    ASSERT_TRUE(browser.waitFor(isLive));
    browser.type("#rates-span", "m");  // minute
    EXPECT_EQ(browser.eval("(" + readTextFile(TARNWICK_SOURCE_DIR "/tests/page/units.js") + ")()"),
              json::array());

    // Tags, each once, with their traces, in the rows that can be seen.
    ASSERT_TRUE(browser.waitFor("document.querySelectorAll('#tags-view tbody th.epc').length > 10"));
    ASSERT_TRUE(
        browser.waitFor("document.querySelector('#tags-view .trace path').getAttribute('d').length > 20"));
    const std::string epc = browser.text("#tags-view tbody th.epc");
    browser.type("#tags-filter", epc.substr(4));
    ASSERT_TRUE(browser.waitFor("document.querySelectorAll('#tags-view tbody th.epc').length === 1"));
    EXPECT_EQ(browser.text("#tags-view tbody th.epc"), epc);
    EXPECT_EQ(browser.text("#tags-count").substr(0, 5), "1 of ");
    browser.eval("document.querySelector('#tags-view').focus()");
    browser.type("#tags-view", "\ue015");  // down
    EXPECT_TRUE(
        browser.waitFor("document.querySelector('#tag-details').textContent.includes('" + epc + "')"));
    browser.type("#tags-view", "\ue00c");  // escape
    browser.type("#tags-filter", "\ue00c");
    ASSERT_TRUE(browser.waitFor("document.querySelectorAll('#tags-view tbody th.epc').length > 10"));
    EXPECT_TRUE(browser.waitFor(tile("Present") + " > 10"));
    EXPECT_TRUE(browser.waitFor("Chart.getChart('rates-chart').data.datasets.some(d => d.data.length > 8)"));
    browser.eval("(document.activeElement.blur(), scrollTo(0, 0))");
    browser.shoot(screenshots / "dock-door.png");

    // Its numbers are those of the daemon and of the gateway.
    EXPECT_EQ(ask("stop"), "Success");
    const std::string reply = ask("account");
    const json account = json::parse(reply.substr(reply.find('{')));
    const std::uint64_t sent = account.at("fates").at("sent");
    EXPECT_GT(sent, 100);
    EXPECT_TRUE(browser.waitFor(accountNumber("tag packets of the radio", "all") +
                                " === " + account.at("tagPackets").dump()));
    const std::string isSent = " === " + std::to_string(sent);
    EXPECT_TRUE(browser.waitFor(accountNumber("tag packets of the radio", "sent") + isSent));
    EXPECT_TRUE(browser.waitFor(accountNumber("by number", "came") + isSent));
    EXPECT_TRUE(browser.waitFor(tile("Reports") + isSent));
    EXPECT_EQ(
        browser.eval("[...document.querySelectorAll('#account .badge')].map(b => b.textContent).join()"),
        "closes,closes,closes,closes,closes,closes");
    // Nothing is read any more, so the tags depart.
    EXPECT_TRUE(browser.waitFor(tile("Present") + " === 0"));
    EXPECT_TRUE(
        browser.waitFor("document.querySelector('#tags-view td[data-present]')?.textContent === 'departed'"));
    EXPECT_TRUE(browser.waitFor(accountNumber("Sink site: events for it", "confirmed") +
                                " >= " + site.sink("site").at("taken").dump()));

    // A broker that is killed shows as a backlog.
    site.broker.reset();
    EXPECT_EQ(ask("start"), "Success");
    EXPECT_TRUE(browser.waitFor(sinkCell("site", 1) + " === 'down' && Number(" + sinkCell("site", 2) +
                                ".replace(/\\D/g, '')) > 100"));
    // So does an antenna that is lost, among the alarms.
    process_s engine(TARNWICK_BIN_DIR "/twctl", {{"engine", "antenna", "2", "lost"}, {}, {}});
    EXPECT_TRUE(browser.waitFor(
        "document.querySelector('#alarms-table').textContent.includes('Disconnected on Port 2')"));
    EXPECT_EQ(browser.text("#health"), "not well");
    EXPECT_THAT(browser.text("#reasons"), testing::HasSubstr("site"));
    browser.shoot(screenshots / "trouble.png");
    site.startBroker();
    EXPECT_TRUE(browser.waitFor(sinkCell("site", 1) + " === 'up'"));

    // The gateway restarts: the page says so, and goes on with what the new one knows.
    site.stop();
    EXPECT_TRUE(browser.waitFor("document.body.dataset.connection === 'waiting'"));
    EXPECT_THAT(browser.text("#connection"), testing::HasSubstr("next attempt in"));
    browser.shoot(screenshots / "gateway-away.png");
    site.start();
    ASSERT_TRUE(browser.waitFor(isLive));
    EXPECT_TRUE(browser.waitFor(tile("Reports") + " > 10"));
    EXPECT_THAT(browser.text("#announcer"), testing::HasSubstr("restarted"));
    expectNoComplaints(&browser);
}

TEST(Page, ShowsBearingsAndPlacesOfAnArrayReader) {
    site_s site;
    site.startBroker();
    site.start();
    reader_s reader({.serverArguments = {"--profile", "QDX4400"}, .scenario = example("sales-floor.json")});
    EXPECT_EQ(ask(R"(mode {"type": "BEARING", "tagMetaData": ["BEARING", "RSSI", "ANTENNA"]})"), "Success");
    EXPECT_EQ(ask("start"), "Success");
    browser_c browser;
    browser.emulate(1200, 1180, "dark");
    browser.open(site.url());
    ASSERT_TRUE(browser.waitFor("!document.querySelector('#bearings').hidden"));
    EXPECT_EQ(browser.eval("document.querySelector('#places').hidden"), true);
    // The tables have what the pictures show.
    EXPECT_TRUE(
        browser.waitFor("[...document.querySelectorAll('#bearings-table td')]"
                        ".reduce((sum, cell) => sum + Number(cell.textContent), 0) > 100"));
    EXPECT_EQ(ask(R"(mode {"type": "PORTAL_DIRECTIONALITY", )"
                  R"("modeSpecificSettings": {"aarHeight": 4.5, "tagHeight": 1}})"),
              "Success");
    ASSERT_TRUE(browser.waitFor("!document.querySelector('#places').hidden"));
    EXPECT_TRUE(browser.waitFor("document.querySelectorAll('#places-table tbody tr').length === 20"));
    browser.eval("document.querySelector('#tags').scrollIntoView()");
    browser.shoot(screenshots / "array-reader.png");
    // On a phone nothing is wider than the screen.
    browser.emulate(360, 740, "dark");
    EXPECT_TRUE(browser.waitFor("document.scrollingElement.scrollWidth <= 360"));
    browser.eval("scrollTo(0, 0)");
    browser.shoot(screenshots / "phone.png");
    expectNoComplaints(&browser);
}

TEST(Page, AsksForTheTokenOnce) {
    const temp_dir_s secrets;
    const std::string token = "correct-horse-battery-staple";
    writeTextFile(secrets.path / "token", token + "\n");
    std::filesystem::permissions(secrets.path / "token", std::filesystem::perms::owner_read);
    site_s site(R"(, "tokenFile": ")" + (secrets.path / "token").string() + "\"");
    site.start();
    browser_c browser;
    browser.open(site.url());
    ASSERT_TRUE(browser.waitFor("document.querySelector('#sign-in').open"));
    browser.type("#sign-in-token", "another-token-of-some-length\ue007");
    EXPECT_TRUE(browser.waitFor(
        "document.querySelector('#sign-in-trouble').textContent === 'This is not the token.'"));
    browser.shoot(screenshots / "token.png");
    browser.type("#sign-in-token", token + "\ue007");
    ASSERT_TRUE(browser.waitFor(isLive));

    // After a reload the cookie is enough. After a restart of the gateway, the token that the page has in
    // memory is, unless it was reloaded.
    browser.open(site.url());
    ASSERT_TRUE(browser.waitFor(isLive));
    site.stop();
    site.start();
    ASSERT_TRUE(browser.waitFor("document.querySelector('#sign-in').open"));
    browser.type("#sign-in-token", token + "\ue007");
    ASSERT_TRUE(browser.waitFor(isLive));
    site.stop();
    site.start();
    ASSERT_TRUE(browser.waitFor("document.body.dataset.connection !== 'live'"));
    ASSERT_TRUE(browser.waitFor(isLive));
    EXPECT_EQ(browser.eval("document.querySelector('#sign-in').open"), false);
    EXPECT_EQ(browser.eval("[document.cookie, localStorage.length, sessionStorage.length].join()"), ",0,0");
    expectNoComplaints(&browser);
}
