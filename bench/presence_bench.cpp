// SPDX-License-Identifier: MIT
// The presence table with 100,000 tags: reports through it against a bare hash table that only counts them,
// what a tag takes in memory, what departures cost those who stay, and what a snapshot costs. Then the spool
// with presence against one without, and its start after a kill.
//
// Exit status 1 when an aim is missed.
#include <malloc.h>
#include <unistd.h>

#include <ctime>
#include <filesystem>
#include <random>
#include <unordered_map>

#include "presence/table.hpp"
#include "spool.hpp"
#include "verdict.hpp"

namespace {

constexpr std::size_t tags = 100'000;
constexpr std::size_t reports = 2'000'000;

// Of the processor, whoever else wants it.
template <class Work>
double secondsOf(Work work) {
    const std::clock_t begin = std::clock();
    work();
    return static_cast<double>(std::clock() - begin) / CLOCKS_PER_SEC;
}

std::vector<std::string> someEpcs() {
    std::vector<std::string> epcs;
    for (std::size_t i = 0; i < tags; ++i) {
        std::string serial = std::to_string(i);
        epcs.push_back("3034257bf7194e400" + std::string(7 - serial.size(), '0') + serial);
    }
    return epcs;
}

// All tags in turn, and then a random one each microsecond, each at one of four antennas.
std::vector<sighting_s> someSightings(const std::vector<std::string>& epcs) {
    std::mt19937 random(1);
    std::vector<sighting_s> sightings;
    for (std::size_t i = 0; i < tags + reports; ++i) {
        const auto time = static_cast<std::int64_t>(i);
        sightings.push_back({.epc = epcs[i < tags ? i : random() % tags],
                             .antenna = static_cast<std::uint16_t>(1 + random() % 4),
                             .rssi = -40 - static_cast<int>(random() % 20),
                             .reads = 1,
                             .time = time,
                             .takenAt = time});
    }
    return sightings;
}

// Reports into a new spool, each tag three times. Returns the seconds for that, and those for opening the
// spool again, for which the first was not closed in order.
struct spooled_s {
    double fill = 0.0, open = 0.0;
    std::uint64_t present = 0;
};
spooled_s fillSpool(const std::vector<std::string>& epcs, bool withPresence) {
    std::string directory = "presence_bench_XXXXXX";
    if (mkdtemp(directory.data()) == nullptr) {
        return {};
    }
    const std::string copy = directory + "/copy";
    spool_config_s config;
    config.directory = directory + "/spool";
    if (withPresence) {
        config.presence.emplace();
    }
    const sink_config_s sink{.name = "none",
                             .type = "zmq",
                             .streams = streamBit(stream_e::tags) | streamBit(stream_e::presence),
                             .settings = {}};
    spooled_s result;
    std::string error;
    {
        spool_c spool;
        spool.open(config, &error);
        spool.start();
        spool.setSinks({sink});
        std::vector<source_account_s> sources(1);
        sources[0].reader = "dock";
        const std::int64_t boot = spool.addBoot("dock", 1);
        result.fill = secondsOf([&] {
            constexpr std::size_t atOnce = 500, rounds = 3;
            for (std::size_t i = 0; i < rounds * tags; i += atOnce) {
                std::vector<new_entry_s> entries;
                for (std::size_t j = i; j < i + atOnce; ++j) {
                    entries.push_back(
                        {.stream = stream_e::tags,
                         .boot = boot,
                         .number = j,
                         .takenAt = nowMicroseconds(),
                         .body = R"({"data":{"antenna":1,"eventNum":)" + std::to_string(j) + R"(,"idHex":")" +
                                 epcs[j % tags] +
                                 R"(","peakRssi":-52},"timestamp":"2026-03-02T10:15:30.123+0000"})"});
                }
                spool.take(std::move(entries), &sources);
            }
            spool.flush();
        });
        std::filesystem::copy(config.directory, copy);
    }
    config.directory = copy;
    spool_c again;
    result.open = secondsOf([&] { again.open(config, &error); });
    const spool_account_s account = again.account();
    result.present = account.presence ? account.presence->present : 0;
    std::filesystem::remove_all(directory);
    return result;
}

std::size_t bytesInUse() {
    return mallinfo2().uordblks;
}

}  // namespace

int main() {
    const std::vector<std::string> epcs = someEpcs();
    const std::vector<sighting_s> sightings = someSightings(epcs);
    std::vector<presence_event_s> events;
    events.reserve(tags + reports);
    presence_table_c table{presence_rules_s()};
    const std::size_t reader = table.readerOf("dock");
    const auto takeOne = [&](const sighting_s& sighting) {
        table.take(reader, sighting, sighting.takenAt, &events);
    };

    const std::size_t before = bytesInUse();
    const double arrive = secondsOf([&] { std::for_each_n(sightings.begin(), tags, takeOne); });
    events.clear();
    const double bytes = static_cast<double>(bytesInUse() - before) / tags;
    const double through =
        secondsOf([&] { std::for_each(sightings.begin() + tags, sightings.end(), takeOne); });
    std::unordered_map<std::string_view, std::uint64_t> bare;
    const double counted = secondsOf([&] {
        for (const sighting_s& sighting : sightings) {
            ++bare[sighting.epc];
        }
    });
    std::string snapshot;
    const double saved = secondsOf([&] { snapshot = table.save(); });
    presence_table_c other{presence_rules_s()};
    bool isWhole = false;
    const double loaded = secondsOf([&] { isWhole = other.load(snapshot, 0); });

    // A tick at which nothing is due, with all tags and with one.
    constexpr int ticks = 100'000;
    const auto tickOften = [&](presence_table_c* ticking) {
        return secondsOf([&] {
            for (int i = 0; i < ticks; ++i) {
                ticking->tick(sightings.back().takenAt, &events);
            }
        });
    };
    presence_table_c single{presence_rules_s()};
    single.take(single.readerOf("dock"), sightings[0], 0, &events);
    const double many = tickOften(&table), few = tickOften(&single);
    constexpr std::int64_t longAfter = 1'000'000'000;
    const double depart = secondsOf([&] { table.tick(longAfter, &events); });

    std::printf("reports %.0f/s, arrivals %.0f/s, departures %.0f/s, a bare table %.0f/s\n",
                reports / through, tags / arrive, tags / depart, (tags + reports) / counted);
    std::printf("snapshot of %zu bytes: saved in %.1f ms, loaded in %.1f ms\n", snapshot.size(), saved * 1e3,
                loaded * 1e3);
    const spooled_s without = fillSpool(epcs, false), with = fillSpool(epcs, true);
    std::printf(
        "spool: 300,000 reports in %.2f s, with presence and 100,000 arrivals in %.2f s, opened in %.2f s\n",
        without.fill, with.fill, with.open);
    bool met = atMost("tags that are left", static_cast<double>(table.account().present), 0);
    met &= atLeast("tags of the loaded snapshot", static_cast<double>(other.account().present),
                   isWhole ? tags : tags + 1);
    met &= atLeast("reports against a bare table", counted / (tags + reports) * reports / through, 0.08);
    met &= atMost("bytes a tag", bytes, 256);
    met &= atMost("a tick with 100,000 tags against one with one", many / few, 3);
    met &= atMost("a snapshot against the arrivals", saved / arrive, 1);
    met &= atLeast("a spool without presence against one with it", without.fill / with.fill, 0.3);
    met &= atMost("its start after a kill against that", with.open / with.fill, 0.5);
    met &= atLeast("tags that are present then", static_cast<double>(with.present), tags);
    return met ? 0 : 1;
}
