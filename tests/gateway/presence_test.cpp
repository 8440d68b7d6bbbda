// SPDX-License-Identifier: MIT
// The presence table: recorded and made-up streams in presence.txt, and random ones against a model that
// keeps every report and looks at every tag.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <random>
#include <set>
#include <sstream>

#include "event.hpp"
#include "gateway/program.hpp"
#include "presence/table.hpp"
#include "support/table.hpp"

namespace {

constexpr std::int64_t second = 1'000'000;

std::int64_t microseconds(const std::string& seconds) {
    return std::llround(std::stod(seconds) * static_cast<double>(second));
}

// The EPC "30" and the byte of the letter; other EPCs are told as they are.
std::string nameOf(const std::string& epc) {
    return epc.size() == 4 ? std::string(1, static_cast<char>(std::stoi(epc.substr(2), nullptr, 16))) : epc;
}

std::string textOf(const presence_event_s& event, const std::string& reader) {
    const auto time = [](std::int64_t at) { return static_cast<double>(at) / static_cast<double>(second); };
    std::ostringstream text;
    text.precision(10);
    text << (event.event == presence_e::arrived ? "arrived "
             : event.event == presence_e::moved ? "moved "
                                                : "departed ")
         << (reader.empty() ? "" : reader + "/") << nameOf(event.epc) << " " << time(event.at);
    if (event.from) {
        text << " from " << *event.from << " to " << event.antenna.value();
    } else if (event.antenna) {
        text << " at " << *event.antenna;
    }
    if (event.event == presence_e::departed) {
        text << ", seen " << time(event.firstSeen) << " to " << time(event.lastSeen) << ", " << event.reads
             << " reads";
        event.bestRssi ? text << ", best " << *event.bestRssi : text;
        event.bestAntenna ? text << " at " << *event.bestAntenna : text;
    }
    return text.str() + "\n";
}

// Plays a stream of presence.txt.
struct player_s {
    void play(const std::string& step) {
        std::istringstream words(step);
        std::string word, value;
        words >> word >> value;
        if (word == "quiet") {
            table.tick(now + microseconds(value), &events);
        } else if (word == "restart") {
            now += microseconds(value);
            ASSERT_TRUE(table.load(table.save(), now));
            table.resume(now);
        } else if (word == "maxTags") {
            rules.maxTags = std::stoul(value);
            table.setRules(rules);
        } else {
            const std::size_t slash = word.find('/');
            const std::string reader = slash == word.npos ? "" : word.substr(0, slash);
            std::ostringstream epc;
            epc << "30" << std::hex << int{word.back()};
            const std::string hex = epc.str();
            sighting_s sighting{.epc = hex, .antenna = {}, .rssi = {}, .time = microseconds(value)};
            sighting.takenAt = *sighting.time;
            for (int place = 0; words >> value; ++place) {
                if (value[0] == '@') {
                    sighting.takenAt = microseconds(value.substr(1));
                } else if (value != "-") {
                    place == 0 ? void(sighting.antenna = static_cast<std::uint16_t>(std::stoi(value)))
                               : void(sighting.rssi = std::stoi(value));
                }
            }
            now = std::max(now, sighting.takenAt);
            table.take(table.readerOf(reader), sighting, now, &events);
        }
    }
    std::string told() {
        std::string text;
        for (const presence_event_s& event : std::exchange(events, {})) {
            text += textOf(event, table.nameOf(event.reader));
        }
        return text.substr(0, text.empty() ? 0 : text.size() - 1);
    }

    presence_rules_s rules;
    presence_table_c table{rules};
    std::vector<presence_event_s> events;
    std::int64_t now = 0;
};

// The same by looking at every tag, without antennas to choose from.
struct naive_s {
    void departUntil(std::int64_t time) {
        while (!stays.empty() && oldest()->second.lastSeen + rules.departAfter <= time) {
            depart(oldest()->second.lastSeen + rules.departAfter);
        }
    }
    void depart(std::int64_t at) {
        const auto row = oldest();
        row->second.at = at;
        text += textOf(row->second, "");
        stays.erase(row);
    }
    std::map<std::string, presence_event_s>::iterator oldest() {
        return std::ranges::min_element(stays, {}, [](const auto& row) { return row.second.lastSeen; });
    }
    void take(const sighting_s& sighting) {
        departUntil(*sighting.time);
        const auto [row, isNew] = stays.try_emplace(std::string(sighting.epc));
        presence_event_s& stay = row->second;
        stay.antenna = stay.antenna ? stay.antenna : sighting.antenna;
        stay.lastSeen = *sighting.time;
        stay.reads += sighting.reads;
        if (sighting.rssi && sighting.rssi > stay.bestRssi) {
            stay.bestRssi = sighting.rssi;
            stay.bestAntenna = sighting.antenna;
        }
        if (isNew) {
            stay.epc = sighting.epc;
            stay.at = stay.firstSeen = *sighting.time;
            text += textOf(stay, "");
            stay.event = presence_e::departed;
        }
        if (stays.size() > rules.maxTags) {
            depart(*sighting.time);
        }
    }

    presence_rules_s rules;
    std::map<std::string, presence_event_s> stays;  // each as it will depart
    std::string text;
};

// Behind the spool's directory in the configuration.
std::string presenceKey(const std::string& departAfter) {
    return R"(, "maxBytes": 1048576}, "presence": {"departAfter": )" + departAfter;
}

std::string reportAt(std::int64_t time, std::uint64_t number, int tag, int antenna, int rssi) {
    return R"({"data":{"antenna":)" + std::to_string(antenna) + R"(,"eventNum":)" + std::to_string(number) +
           R"(,"idHex":"30)" + std::to_string(10 + tag) + R"(","peakRssi":)" + std::to_string(rssi) +
           R"(},"timestamp":")" + utcText(time).substr(0, 23) + R"(+0000","type":"SIMPLE"})";
}

// Tags and presence events in the order of the spool, once each.
std::vector<nlohmann::json> eventsIn(const gateway_s& gateway) {
    std::vector<nlohmann::json> events;
    std::set<std::string> seen;
    for (const char* ending : {".jsonl", ".part"}) {
        for (const std::string& line : gateway.lines("all-", ending)) {
            nlohmann::json event = nlohmann::json::parse(line);
            if (seen.insert(event.at("id")).second) {
                events.push_back(std::move(event));
            }
        }
    }
    return events;
}

}  // namespace

TEST(Presence, TellsWhatHappenedInEachStream) {
    for (const table_section_s& section : readTable("gateway/presence.txt")) {
        player_s player;
        for (const table_row_s& row : section.rows) {
            for (std::size_t at = 0; at < row.left.size();) {
                const std::size_t end = std::min(row.left.find(", ", at), row.left.size());
                player.play(row.left.substr(at, end - at));
                at = end + 2;
            }
            EXPECT_EQ(player.told(), row.right) << section.heading << ": " << row.left;
        }
    }
}

TEST(Presence, AgreesWithAModelThatLooksAtEveryTag) {
    const unsigned first = std::random_device()();
    for (unsigned seed = first; seed < first + 20; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        std::mt19937 random(seed);
        const auto upTo = [&](int most) { return static_cast<int>(random() % static_cast<unsigned>(most)); };
        player_s player;
        naive_s naive;
        player.rules.maxTags = naive.rules.maxTags = 10 + static_cast<std::size_t>(upTo(10));
        player.table.setRules(player.rules);
        const std::size_t reader = player.table.readerOf("");
        for (int i = 0; i < 3'000; ++i) {
            player.now += 1 + upTo(i % 50 == 0 ? 12'000'000 : 200'000);
            if (upTo(100) == 0) {
                player.table.tick(player.now, &player.events);
                naive.departUntil(player.now - second);
            }
            if (upTo(300) == 0) {
                ASSERT_TRUE(player.table.load(player.table.save(), player.now));
            }
            const int tag = upTo(30);
            const std::string epc =
                "30" + std::string(static_cast<std::size_t>(tag), 'a') + std::string(tag % 2, 'b') + "ff";
            sighting_s sighting{.epc = epc,
                                .antenna = {},
                                .rssi = {},
                                .reads = 1U + random() % 3,
                                .time = player.now,
                                .takenAt = player.now};
            sighting.antenna = upTo(10) > 0 ? std::optional<std::uint16_t>(tag % 4) : std::nullopt;
            sighting.rssi = upTo(10) > 0 ? std::optional(-60 + upTo(20)) : std::nullopt;
            player.table.take(reader, sighting, player.now, &player.events);
            naive.take(sighting);
        }
        const std::string told = player.told(), expected = naive.text.substr(0, naive.text.size() - 1);
        const auto [ours, theirs] = std::ranges::mismatch(told, expected);
        ASSERT_TRUE(ours == told.end() && theirs == expected.end())
            << std::string(ours, std::min(ours + 100, told.end())) << "\ninstead of\n"
            << std::string(theirs, std::min(theirs + 100, expected.end()));
        const presence_account_s& account = player.table.account();
        EXPECT_EQ(account.arrived, account.present + account.departed);
        EXPECT_EQ(account.present, naive.stays.size());
        EXPECT_GT(account.early, 0U);
        const std::string bytes = player.table.save();
        EXPECT_FALSE(player.table.load(std::string_view(bytes).substr(0, bytes.size() - 1), 0));
    }
}

TEST(Presence, IsAStreamForEverySink) {
    gateway_s gateway(
        R"([{"name": "all", "type": "file", "path": "DIR/all", "format": "cloudevent", "streams": ["presence"]}])",
        presenceKey("1"));
    gateway.start();
    const publisher_s tags(gateway.endpoint("data"));
    tags.waitForSubscriber();
    const std::int64_t begin = *microsecondsOf("2026-03-02T11:15:30.000+0100");
    for (const int i : {0, 1, 2, 3}) {
        const int antenna = i == 0 ? 1 : 2;
        tags.send(
            {reportAt(begin + i * 300'000, static_cast<std::uint64_t>(i), 0, antenna, antenna * 20 - 80)});
    }
    ASSERT_TRUE(gateway.settles("all", 3));
    EXPECT_THAT(
        gateway.askStatus().second,
        testing::HasSubstr("presence: arrived 1 = present 0 + departed 1, 0 of them early; moved 1\n"));
    std::vector<std::string> bodies;
    for (const nlohmann::json& event : eventsIn(gateway)) {
        bodies.push_back(event.at("type").get<std::string>() + event.at("data").dump());
        EXPECT_EQ(event.at("time"), event.at("data").at("at"));
        EXPECT_EQ(event.at("subject"), "3010");
    }
    EXPECT_THAT(
        bodies,
        testing::ElementsAre(
            R"(tarnwick.presence.arrived{"antenna":1,"at":"2026-03-02T10:15:30.000000Z","epc":"3010","event":"arrived"})",
            R"(tarnwick.presence.moved{"antenna":2,"at":"2026-03-02T10:15:30.900000Z","epc":"3010","event":"moved","from":1})",
            R"(tarnwick.presence.departed{"antenna":2,"at":"2026-03-02T10:15:31.900000Z","bestAntenna":2,"bestRssi":-40,"epc":"3010","event":"departed","firstSeen":"2026-03-02T10:15:30.000000Z","lastSeen":"2026-03-02T10:15:30.900000Z","reads":4})"));
}

TEST(Presence, LosesAndRepeatsNothingWhenItIsKilled) {
    gateway_s gateway(
        R"([{"name": "all", "type": "file", "path": "DIR/all", "format": "cloudevent", "streams": ["tags", "presence"]},
            {"name": "away", "type": "zmq", "bind": "ipc://DIR/away", "streams": ["tags", "presence"]}])",
        presenceKey("0.1"));
    std::unique_ptr<consumer_s> other;
    const publisher_s tags(gateway.endpoint("data"));
    const unsigned seed = std::random_device()();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    std::int64_t time = *microsecondsOf("2026-03-02T10:15:30.000+0000");
    std::uint64_t number = 0;
    const auto send = [&](int count) {
        for (int i = 0; i < count; ++i) {
            time += 3'000;
            tags.send({reportAt(time, number++, static_cast<int>(random() % 40),
                                1 + static_cast<int>(random() % 2), -40 - static_cast<int>(random() % 20))});
        }
    };
    for (int round = 0; round < 7; ++round) {
        if (round == 4) {
            // From here on "away" is down and loses its oldest entries: the file is another's.
            other = std::make_unique<consumer_s>(gateway.endpoint("away").c_str());
        }
        gateway.start();
        tags.waitForSubscriber();
        // The last time more comes than the spool holds, and no snapshot would be due for long.
        for (int part = 0; part < (round == 6 ? 6 : 1); ++part) {
            send(1'000);
            ASSERT_TRUE(eventually([&] {
                const nlohmann::json account = gateway.account();
                const nlohmann::json& sources = account.at("sources");
                const bool isTaken = !sources.empty() && sources[0].at("boot").at("next") == number;
                return isTaken && (round % 2 > 0 || gateway.sink("all").at("pending") == 0);
            }));
        }
        ASSERT_TRUE(round % 4 > 0 ||
                    eventually([&] { return gateway.account().at("presence").at("present") == 0; }));
        send(round % 2 * 300);
        gateway.process->signal(SIGKILL);
        ASSERT_EQ(gateway.process->waitForExit(), 128 + SIGKILL);
    }
    gateway.start();
    ASSERT_TRUE(eventually([&] {
        return gateway.account().at("presence").at("present") == 0 && gateway.sink("all").at("pending") == 0;
    }));
    EXPECT_GT(gateway.sink("away").at("dropped"), 1'000);

    // Each tag in turn arrives and departs, and each report belongs to one stay.
    std::map<std::string, nlohmann::json> antennas;  // of those that are present
    std::uint64_t reports = 0, reads = 0, departed = 0;
    for (const nlohmann::json& event : eventsIn(gateway)) {
        const std::string type = event.at("type"), epc = event.at("subject");
        const nlohmann::json& data = event.at("data");
        if (type == "tarnwick.tag.read") {
            ++reports;
        } else if (type == "tarnwick.presence.arrived") {
            EXPECT_TRUE(antennas.emplace(epc, data.at("antenna")).second) << event;
        } else if (type == "tarnwick.presence.moved") {
            EXPECT_EQ(std::exchange(antennas[epc], data.at("antenna")), data.at("from")) << event;
        } else {
            EXPECT_TRUE(antennas.contains(epc) && antennas.at(epc) == data.at("antenna")) << event;
            antennas.erase(epc);
            reads += data.at("reads").get<std::uint64_t>();
            ++departed;
        }
    }
    EXPECT_EQ(reads, reports);
    EXPECT_TRUE(antennas.empty());
    EXPECT_EQ(gateway.account().at("presence").at("departed"), departed);
    EXPECT_GT(departed, 1'000U);
}
