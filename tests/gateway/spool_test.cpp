// SPDX-License-Identifier: MIT
// The spool alone: limits, a broken file, a full disk. Each test plays intake and senders itself.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>

#include <algorithm>
#include <filesystem>

#include "database.hpp"
#include "gateway/program.hpp"
#include "spool.hpp"

using nlohmann::json;

namespace {

constexpr unsigned tagsOnly = streamBit(stream_e::tags);

// A spool with the sinks "a" and "b", which take tags, and one source.
struct fixture_s {
    explicit fixture_s(std::filesystem::path place) : directory(std::move(place)) {
        config.directory = directory / "spool";
        config.maxEvents = 1'000;
    }

    void open() {
        spool = std::make_unique<spool_c>();
        std::string error;
        ASSERT_TRUE(spool->open(config, &error)) << error;
        spool->start();
        for (const char* name : {"a", "b"}) {
            sinks.push_back({.name = name, .type = "zmq", .streams = tagsOnly, .settings = {}});
        }
        ids = spool->setSinks(sinks);
        sinks.clear();
        sources = spool->account().sources;
        if (sources.empty()) {
            sources.emplace_back().reader = "dock";
            beginBoot(&sources[0], nowMicroseconds());
            sources[0].boot.row = spool->addBoot("dock", sources[0].boot.name);
        }
    }

    void take(std::uint64_t count, std::size_t padding = 0) {
        std::vector<new_entry_s> entries;
        for (std::uint64_t i = 0; i < count; ++i) {
            entries.push_back({.source = 0,
                               .stream = stream_e::tags,
                               .boot = sources[0].boot.row,
                               .number = next++,
                               .takenAt = nowMicroseconds(),
                               .body = reportText(next - 1) + std::string(padding, ' ')});
        }
        spool->take(std::move(entries), &sources);
        spool->flush();
    }

    sink_account_s sink(std::size_t index) const { return spool->account().sinks.at(index); }

    std::vector<entry_s> entriesOf(std::size_t index, std::size_t most = 100'000) {
        spool_reader_c reader(spool.get());
        std::vector<entry_s> all, some;
        std::string error;
        for (std::int64_t at = sink(index).cursor, upTo = at; all.size() < most; at = upTo) {
            EXPECT_TRUE(reader.read(sink(index), at, most, &some, &upTo, &error)) << error;
            if (upTo == at) {
                break;
            }
            std::ranges::move(some, std::back_inserter(all));
        }
        return all;
    }

    // As a sender does when its receiver has everything up to there.
    void settle(std::size_t index, std::int64_t seq) {
        spool->moveCursor(ids[index], {.cursor = seq});
        spool->flush();
    }

    void expectThatSumsClose() {
        for (std::size_t i = 0; i < 2; ++i) {
            const sink_account_s account = sink(i);
            EXPECT_EQ(account.pending(), entriesOf(i).size()) << account.name;
        }
        const source_account_s source = spool->account().sources.at(0);
        EXPECT_EQ(source.heard, source.taken + source.refused);
    }

    std::filesystem::path directory;
    spool_config_s config;
    std::vector<sink_config_s> sinks;
    std::vector<std::int64_t> ids;
    std::unique_ptr<spool_c> spool;
    std::vector<source_account_s> sources;
    std::uint64_t next = 0;
};

}  // namespace

TEST(Spool, DropsTheOldestOfASinkThatIsBehindAndTellsIt) {
    const temp_dir_s directory;
    fixture_s f(directory.path);
    f.open();
    f.take(900);
    f.settle(1, 900);
    f.take(100);
    EXPECT_EQ(f.sink(0).dropped, 0U);
    f.take(50);
    f.expectThatSumsClose();
    const std::uint64_t dropped = f.sink(0).dropped;
    EXPECT_GE(dropped, 50U);
    EXPECT_EQ(f.sink(1).dropped, 0U);
    std::vector<entry_s> entries = f.entriesOf(0);
    ASSERT_EQ(entries[0].stream, stream_e::overflow);
    EXPECT_EQ(entries[0].reader, "dock");
    json data = json::parse(entries[0].body).at("data");
    const std::string life = "dock/" + std::to_string(f.sources[0].boot.name) + "/";
    EXPECT_EQ(data.at("count"), dropped);
    EXPECT_EQ(data.at("first"), life + "0");
    EXPECT_EQ(data.at("last"), life + std::to_string(dropped - 1));
    EXPECT_EQ(entries[1].number, dropped);  // no hole behind it

    // What was told and not yet taken goes with the next loss; both sinks lose now.
    f.take(2'000);
    f.expectThatSumsClose();
    EXPECT_GT(f.sink(1).dropped, 0U);
    entries = f.entriesOf(0);
    data = json::parse(entries[0].body).at("data");
    EXPECT_EQ(data.at("count"), f.sink(0).dropped);
    EXPECT_EQ(data.at("first"), life + "0");
    EXPECT_NE(entries[1].stream, stream_e::overflow);
    EXPECT_EQ(json::parse(f.entriesOf(1)[0].body).at("data").at("first"), life + "900");

    // All of it outlives the process, and a new sink gets only what comes.
    const spool_account_s before = f.spool->account();
    f.spool.reset();
    f.open();
    EXPECT_EQ(json(f.spool->account().sinks), json(before.sinks));
    EXPECT_EQ(json(f.spool->account().sources), json(before.sources));
    f.settle(0, entries.back().seq);
    f.settle(1, entries.back().seq);
    EXPECT_EQ(f.sink(0).pending() + f.sink(1).pending(), 0U);
    EXPECT_EQ(f.spool->account().entries, 0U);
    EXPECT_EQ(f.spool->account().bytes, 0U);
}

TEST(Spool, DropsWhatIsTooOldOrTooMuchByBytes) {
    const temp_dir_s directory;
    fixture_s f(directory.path);
    f.open();
    f.config.maxBytes = 200'000;
    f.spool->configure(f.config);
    f.take(900, 1'000);
    EXPECT_LE(f.spool->account().bytes, 200'000U);
    f.expectThatSumsClose();
    f.config.maxAge = 0;
    f.spool->configure(f.config);
    ASSERT_TRUE(eventually([&] { return f.sink(0).pending() <= 2; }));
    f.expectThatSumsClose();
}

TEST(Spool, MovesABrokenFileAsideAndGoesOn) {
    const temp_dir_s directory;
    fixture_s f(directory.path);
    std::filesystem::create_directory(f.config.directory);
    const std::filesystem::path file = f.config.directory + "/spool.db";
    writeTextFile(file, "this is not a database, but it is long enough to be looked at as one" +
                            std::string(9'000, 'x'));
    f.open();
    f.take(500);
    EXPECT_EQ(f.entriesOf(0).size(), 500U);
    const auto asides = [&] {
        return std::ranges::count_if(std::filesystem::directory_iterator(f.config.directory),
                                     [](const auto& entry) {
                                         const std::string name = entry.path().filename();
                                         return name.starts_with("spool.db.broken-") &&
                                                !name.ends_with("-wal") && !name.ends_with("-shm");
                                     });
    };
    EXPECT_EQ(asides(), 1);

    // In the middle of a run: the file is overwritten behind its header, and the log of it is empty.
    execute(openDatabase(file, SQLITE_OPEN_READWRITE).get(), "PRAGMA wal_checkpoint(TRUNCATE)");
    std::fstream(file, std::ios::in | std::ios::out).seekp(4'096) << std::string(200'000, '\xee');
    ASSERT_TRUE(eventually([&] {
        f.take(1);
        return f.sink(0).dropped > 0;
    }));
    EXPECT_EQ(asides(), 2);
    f.take(10);
    f.expectThatSumsClose();
    EXPECT_EQ(f.entriesOf(0)[0].stream, stream_e::overflow);
}

// A file system of its own, seen by this process alone: a full disk. Needs root, or user namespaces.
bool mountSmallDisk(const std::filesystem::path& place) {
    const bool isAlone = unshare(CLONE_NEWNS) == 0 || unshare(CLONE_NEWUSER | CLONE_NEWNS) == 0;
    return isAlone && mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
           mount("tmpfs", place.c_str(), "tmpfs", 0, "size=4m") == 0;
}

// Files that cannot grow: a quota, or a disk with faults. Always possible.
void limitFiles(rlim_t bytes) {
    const rlimit limit{bytes, RLIM_INFINITY};
    signal(SIGXFSZ, SIG_IGN);
    setrlimit(RLIMIT_FSIZE, &limit);
}

TEST(Spool, WaitsInMemoryWhileNothingCanBeWritten) {
    for (const bool isMounted : {false, true}) {
        const temp_dir_s directory;
        if (isMounted && !mountSmallDisk(directory.path)) {
            ASSERT_NE(geteuid(), 0U) << "root can mount";
            break;
        }
        SCOPED_TRACE(isMounted ? "a full disk" : "files that cannot grow");
        {
            fixture_s f(directory.path);
            f.config.maxEvents = 1'000'000;
            f.open();
            f.take(100);
            isMounted ? writeTextFile(directory.path / "ballast", std::string(8 << 20, 'x'))
                      : limitFiles(100'000);
            f.take(2'000, 1'000);
            EXPECT_NE(f.spool->account().trouble, "");
            EXPECT_EQ(f.spool->account().sources.at(0).taken, 100U);  // committed, and sums that close
            f.settle(0, 50);                                          // the cursors find room
            EXPECT_EQ(f.sink(0).pending(), 50U);
            f.take(100, 1 << 20);  // more than the memory for it
            if (isMounted) {
                std::filesystem::remove(directory.path / "ballast");
                ASSERT_EQ(mount("tmpfs", directory.path.c_str(), "tmpfs", MS_REMOUNT, "size=256m"), 0);
            } else {
                limitFiles(RLIM_INFINITY);
            }
            ASSERT_TRUE(eventually([&] { return f.spool->account().trouble.empty(); }));
            f.spool->flush();
            const source_account_s source = f.spool->account().sources.at(0);
            EXPECT_EQ(source.heard, 2'200U);
            EXPECT_GT(source.refused, 0U);
            EXPECT_GT(source.taken, 2'100U);
            f.expectThatSumsClose();
        }
        if (isMounted) {
            umount(directory.path.c_str());
        }
    }
}
