// SPDX-License-Identifier: MIT
// What those who look get told, and who may look: all that needs no process.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <spdlog/fmt/fmt.h>

#include <map>
#include <random>

#include "event.hpp"
#include "http/access.hpp"
#include "http/openmetrics.hpp"
#include "http/picture.hpp"
#include "support/process.hpp"

using nlohmann::json;
using namespace std::chrono_literals;

namespace {

new_entry_s reportOf(const std::string& epc, int antenna) {
    new_entry_s entry;
    entry.takenAt = nowMicroseconds();
    entry.body = R"({"data":{"antenna":)" + std::to_string(antenna) + R"(,"eventNum":1,"idHex":")" + epc +
                 R"(","peakRssi":-52}})";
    return entry;
}

// A client of the stream, as the document of the interface tells it to work.
struct viewer_s {
    explicit viewer_s(picture_c* source) : picture(source), stream(source) {}

    void fetch() {
        const json whole = json::parse(*picture->whole());
        version = whole.at("version");
        for (const json& row : whole.at("tags")) {
            rows[{row.at(0), row.at(1)}] = row;
        }
    }
    void follow() {
        const std::string text = stream.next(1s).value();
        for (std::size_t at = text.find("data: "); at != text.npos; at = text.find("data: ", at + 1)) {
            const json update = json::parse(text.substr(at + 6, text.find('\n', at) - at - 6));
            if (update.contains("session")) {
                version = update.at("version");
            }
            if (update.at("version") <= version) {
                continue;
            }
            EXPECT_EQ(update.at("version"), version + 1);
            version = update.at("version");
            ++updates;
            reports = update.at("totals").at("reports");
            lastRows = update.at("tags").size();
            mostRows = std::max(mostRows, lastRows);
            for (const json& row : update.at("tags")) {
                rows[{row.at(0), row.at(1)}] = row;
            }
            for (const json& pair : update.at("forgotten")) {
                rows.erase({pair.at(0), pair.at(1)});
            }
        }
    }
    // Of the picture as it is now.
    bool isRight() const {
        const json whole = json::parse(*picture->whole());
        return whole.at("tags").size() == rows.size() &&
               std::ranges::all_of(whole.at("tags"), [&](const json& row) {
                   const auto own = rows.find({row.at(0), row.at(1)});
                   return own != rows.end() && own->second == row;
               });
    }

    picture_c* picture;
    picture_c::stream_c stream;
    std::map<std::pair<int, std::string>, json> rows;
    std::uint64_t version = 0, reports = 0, updates = 0;
    std::size_t mostRows = 0, lastRows = 0;
};

}  // namespace

TEST(Picture, TellsAViewerInBoundedUpdatesAllThatTheWholeHas) {
    std::vector<source_account_s> sources(2);
    sources[0].reader = "dock";
    sources[1].reader = "gate";
    constexpr std::size_t capacity = 4'000;
    constexpr int first = 3'800, all = 5'500;
    picture_c picture(capacity);
    picture.start();
    std::mt19937 random(7);
    std::vector<new_entry_s> batch;
    for (int i = 0; i < all; ++i) {
        batch.push_back(reportOf(fmt::format("{:08x}", i), 1));
        batch.back().source = i % 2;
    }
    picture.take({batch.begin(), batch.begin() + first}, sources);
    const auto begin = std::chrono::steady_clock::now();
    viewer_s viewer(&picture);
    viewer.follow();
    viewer.fetch();
    picture.take({batch.begin() + first, batch.end()}, sources);
    for (int i = 0; i < 5; ++i) {
        std::vector<new_entry_s> more;
        for (int k = 0; k < 300; ++k) {
            more.push_back(reportOf(fmt::format("{:08x}", random() % all), static_cast<int>(random() % 5)));
        }
        picture.take(more, sources);
        viewer.follow();
    }
    EXPECT_TRUE(eventually([&] {
        viewer.follow();
        return viewer.reports == all + 1'500 && viewer.lastRows < 500 && viewer.isRight();
    }));
    const std::chrono::duration<double> passed = std::chrono::steady_clock::now() - begin;
    EXPECT_LE(static_cast<double>(viewer.updates), 10 * passed.count() + 1);
    EXPECT_EQ(viewer.mostRows, 500);
    EXPECT_EQ(viewer.rows.size(), capacity);

    // Who lags is cut.
    std::uint64_t told = viewer.version;
    viewer_s other(&picture);
    EXPECT_TRUE(eventually([&] {
        picture.take({reportOf("00", 1)}, sources);
        other.follow();
        told = other.version;
        return told > viewer.version + picture_c::mostUpdates;
    }));
    EXPECT_FALSE(viewer.stream.next(0s));
}

TEST(Picture, GivesAntennasAnswersAndRatesTheirPlaces) {
    read_rates_c rates;
    rates.closeUntil(10'000);
    for (int antenna = 1; antenna <= 70; ++antenna) {
        rates.take(0, antenna);
    }
    rates.take(1, std::nullopt);
    EXPECT_FALSE(rates.closeUntil(11'999));
    EXPECT_TRUE(rates.closeUntil(16'100));  // three intervals
    std::string text;
    rates.writeAll(&text);
    const json all = json::parse(text);
    EXPECT_EQ(all.at("end"), 16'000);
    ASSERT_EQ(all.at("series").size(), 66);
    EXPECT_EQ(all.at("series").at(64), json::parse(R"({"reader":0,"antenna":"other","counts":[0,0,6]})"));
    EXPECT_EQ(all.at("series").at(65), json::parse(R"({"reader":1,"antenna":"none","counts":[0,0,1]})"));
    EXPECT_EQ((rates.totals()[{0, "other"}]), 6);

    // What the table shows of a report; texts of a mode do not mislead it.
    const tag_read_s read = readOfReport(
        R"({"data":{"antenna":5361,"azimuth":-12.5,"azimuthConf":3,"elevation":45,"idHex":"30a0","userDefined":"\"x\":7,\"antenna\":1"}})");
    EXPECT_EQ(read.epc, "30a0");
    EXPECT_EQ(read.antenna, 5'361);
    EXPECT_EQ(read.azimuth, -12.5F);
    EXPECT_FALSE(read.rssi || read.x);
    EXPECT_FALSE(readOfReport(R"({"data":{"antenna":"1","idHex":"30"}})").antenna);
}

TEST(Access, LetsInWhoHasTheTokenOrWasGivenACookie) {
    constexpr std::int64_t now = 1'000'000;
    const access_c access("a-token-of-the-test"), other("another-token-of-it");
    const std::string cookie = access.cookie(now, true).substr(0, access.cookie(now, true).find(';'));
    std::string later = cookie, forged = cookie;
    ++later[cookie.find('=') + 1];
    forged.back() = forged.back() == '0' ? '1' : '0';
    struct row_s {
        std::string authorization, cookies;
        std::int64_t at;
        bool isAllowed;
    };
    for (const row_s& row :
         {row_s{"Bearer a-token-of-the-test", "", now, true},
          row_s{"Bearer a-token-of-the-tes", "", now, false},
          row_s{"Basic a-token-of-the-test", "", now, false}, row_s{"", "", now, false},
          row_s{"", "a=b; " + cookie + "; c=d", now + 43'199, true}, row_s{"", cookie, now + 43'200, false},
          row_s{"", later, now, false}, row_s{"", forged, now, false},
          row_s{"", cookie.substr(0, cookie.find('.')), now, false}}) {
        EXPECT_EQ(access.allows(row.authorization, row.cookies, row.at), row.isAllowed) << row.cookies;
        EXPECT_FALSE(other.allows(row.authorization, row.cookies, row.at));
    }
    for (const auto& [host, isOurs] : std::map<std::string, bool>{{"", true},
                                                                  {"localhost:9150", true},
                                                                  {"127.0.0.7", true},
                                                                  {"[::1]:80", true},
                                                                  {"[::1]", true},
                                                                  {"127.0.0.1.example.com", false},
                                                                  {"10.0.0.1:9150", false},
                                                                  {"[::]", false}}) {
        EXPECT_EQ(isLoopbackHost(host), isOurs) << host;
    }
}

TEST(OpenMetrics, IsWrittenAsItsGrammarWantsIt) {
    prometheus::MetricFamily counter{"a_seconds_total", "Two\nlines", prometheus::MetricType::Counter, {}};
    counter.metric.resize(1);
    counter.metric[0].label = {{"sink", "a\"b\\"}, {"x", "y"}};
    counter.metric[0].counter.value = 1e15;
    prometheus::MetricFamily gauge{"b", "", prometheus::MetricType::Gauge, {}};
    gauge.metric.resize(1);
    gauge.metric[0].gauge.value = -0.25;
    EXPECT_EQ(openMetricsText({counter, gauge}),
              "# TYPE a_seconds counter\n# UNIT a_seconds seconds\n# HELP a_seconds Two\\nlines\n"
              "a_seconds_total{sink=\"a\\\"b\\\\\",x=\"y\"} 1000000000000000\n"
              "# TYPE b gauge\n# HELP b \nb -0.25\n# EOF\n");
}
