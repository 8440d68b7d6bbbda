// SPDX-License-Identifier: MIT
// The sender between a spool and a sink that the test plays: what it offers, when, and what it counts. No
// upper bound of a time is tested but that something happens at all.
#include "sender.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <mutex>

#include "gateway/program.hpp"
#include "support/table.hpp"

namespace {

using namespace std::chrono_literals;
using steady_t = std::chrono::steady_clock;

// What the sink is to do, and what the sender did with it.
struct stage_s {
    sink_limits_s limits{.window = 1'000, .batch = 1'000, .pollWithin = 10ms, .firstBackOff = 1ms};
    std::mutex mutex;
    std::size_t room = std::size_t(-1);
    bool confirmsAll = false;
    int failingOpens = 0;
    poll_s next;  // told by the next poll
    std::vector<std::vector<std::string>> offers;
    std::vector<std::pair<steady_t::time_point, std::size_t>> times;  // of the offers, and their sizes
    std::vector<steady_t::time_point> opens;
    std::atomic<int> polls{0};
    sink_context_s context;

    std::size_t offered() {
        const std::lock_guard guard(mutex);
        std::size_t count = 0;
        for (const auto& offer : offers) {
            count += offer.size();
        }
        return count;
    }
    std::size_t opened() {
        const std::lock_guard guard(mutex);
        return opens.size();
    }
};
std::unique_ptr<stage_s> stage;

class played_sink_c : public sink_c {
  public:
    played_sink_c() : sink_c(stage->limits) {}
    std::optional<failure_s> open() override {
        const std::lock_guard guard(stage->mutex);
        stage->opens.push_back(steady_t::now());
        return stage->failingOpens-- > 0 ? std::optional(failure_s{"no"}) : std::nullopt;
    }
    std::size_t offer(std::span<const entry_s> entries) override {
        const std::lock_guard guard(stage->mutex);
        EXPECT_LE(entries.size(), limits.batch);
        const std::size_t taken = std::min(entries.size(), stage->room);
        stage->room -= taken;
        if (taken == 0) {
            return 0;
        }
        stage->offers.emplace_back();
        stage->times.emplace_back(steady_t::now(), taken);
        for (const entry_s& entry : entries.first(taken)) {
            stage->offers.back().push_back((entry.stream == stream_e::overflow ? "o" : "") +
                                           std::to_string(entry.seq));
        }
        if (stage->confirmsAll) {
            stage->next.settled.push_back({entries.front().seq, entries[taken - 1].seq});
        }
        return taken;
    }
    poll_s poll() override {
        const std::lock_guard guard(stage->mutex);
        ++stage->polls;
        return std::exchange(stage->next, {});
    }
    void close() override {}
};

// A spool with one sink, whose sender is started later.
struct fixture_s {
    fixture_s() {
        stage = std::make_unique<stage_s>();
        limits.directory = directory.path / "spool";
        std::string error;
        EXPECT_TRUE(spool.open(limits, &error)) << error;
        spool.start();
        spool.setSinks({config});
        sources.emplace_back().reader = "dock";
        boot = spool.addBoot("dock", 1);
    }
    ~fixture_s() { sender.reset(); }

    void start() { sender = std::make_unique<sender_c>(config, spool.account().sinks.at(0), &spool); }

    void take(std::size_t count, std::chrono::microseconds age = 0s) {
        std::vector<new_entry_s> entries(count);
        for (new_entry_s& entry : entries) {
            entry.boot = boot;
            entry.takenAt = nowMicroseconds() - age.count();
            entry.body = "{}";
        }
        spool.take(std::move(entries), &sources);
        spool.flush();
    }

    // Until the sender has done all that follows from what has happened.
    void rest() {
        for (int round = 0; round < 3; ++round) {
            const int before = stage->polls;
            ASSERT_TRUE(eventually([&] {
                stage->context.wake();
                return stage->polls >= before + 2;
            }));
            spool.flush();
        }
    }

    // Each offer since the last call, as "1-3 4".
    static std::string offers() {
        const std::lock_guard guard(stage->mutex);
        std::string text;
        for (const auto& offer : std::exchange(stage->offers, {})) {
            for (std::size_t i = 0; i < offer.size();) {
                std::size_t end = i + 1;
                while (end < offer.size() && offer[end][0] != 'o' &&
                       std::stoi(offer[end]) ==
                           std::stoi(offer[i].substr(offer[i][0] == 'o')) + static_cast<int>(end - i)) {
                    ++end;
                }
                text += (text.empty() ? "" : " ") + offer[i] + (end > i + 1 ? "-" + offer[end - 1] : "");
                i = end;
            }
        }
        return text;
    }

    void play(const std::string& step) {
        std::istringstream words(step);
        std::string word;
        std::int64_t first = 0, last = 0;
        words >> word >> first;
        last = words.get() == '-' && words >> last ? last : first;
        if (word == "take") {
            take(static_cast<std::size_t>(first));
        } else if (word == "limit") {
            limits.maxEvents = 1;
            spool.configure(limits);
            spool.flush();
            limits.maxEvents = 1'000;
            spool.configure(limits);
        } else if (word == "fail") {
            const std::size_t before = stage->opened();
            {
                const std::lock_guard guard(stage->mutex);
                stage->next.failure = failure_s{"it fails"};
            }
            ASSERT_TRUE(eventually([&] { return stage->opened() > before; }));
        } else if (word == "room") {
            const std::lock_guard guard(stage->mutex);
            stage->room = static_cast<std::size_t>(first);
        } else {
            const std::lock_guard guard(stage->mutex);
            stage->next.settled.push_back(
                {first, last, word == "aside" ? settled_s::setAside : settled_s::confirmed});
        }
        if (word == "room") {  // the sender asks again by itself
            const int before = stage->polls;
            ASSERT_TRUE(eventually([&] { return stage->polls >= before + 3; }));
        } else {
            rest();
        }
    }

    std::string account() const {
        const sink_account_s sink = spool.account().sinks.at(0);
        std::string text;
        for (const std::uint64_t count :
             {sink.confirmed, sink.setAside, sink.dropped, sink.delivered, sink.retried, sink.pending()}) {
            text += (text.empty() ? "" : " ") + std::to_string(count);
        }
        return text;
    }

    temp_dir_s directory;
    spool_config_s limits;
    sink_config_s config{.name = "s", .type = "played", .streams = 1, .settings = {}};
    spool_c spool;
    std::vector<source_account_s> sources;
    std::int64_t boot = 0;
    std::unique_ptr<sender_c> sender;
};

void set(const std::string& setting) {
    const auto value = std::stoll(setting.substr(setting.find('=') + 1));
    if (setting.starts_with("every")) {
        stage->limits.every = std::chrono::milliseconds(value);
    } else {
        (setting.starts_with("window") ? stage->limits.window : stage->limits.batch) =
            static_cast<std::size_t>(value);
    }
}

}  // namespace

// In the place of the table of sinks.
const sink_type_s* findSinkType(std::string_view) {
    static const sink_type_s type{
        "played", nullptr, [](const sink_config_s&, sink_context_s context) -> std::unique_ptr<sink_c> {
            stage->context = std::move(context);
            return std::make_unique<played_sink_c>();
        }};
    return &type;
}

TEST(Sender, OffersInOrderWithinTheWindowWhatIsNotSettled) {
    for (const table_section_s& section : readTable("gateway/sender.txt")) {
        SCOPED_TRACE(section.heading);
        fixture_s f;
        std::istringstream settings(section.heading.substr(section.heading.find(": ") + 2));
        for (std::string setting; settings >> setting;) {
            set(setting);
        }
        f.start();
        ASSERT_TRUE(eventually([&] { return stage->polls > 0; }));
        for (const table_row_s& row : section.rows) {
            if (row.left == "account") {
                EXPECT_EQ(f.account(), row.right);
            } else {
                f.play(row.left);
                EXPECT_EQ(f.offers(), row.right) << row.left;
            }
        }
    }
}

TEST(Sender, LeavesAReceiverAloneForAsLongAsItHasTo) {
    fixture_s f;
    stage->limits.firstBackOff = 40ms;
    stage->limits.lastBackOff = 80ms;
    stage->failingOpens = 4;
    f.start();
    ASSERT_TRUE(eventually([&] { return stage->polls > 0; }));
    const auto least = [](std::size_t index) { return stage->opens[index + 1] - stage->opens[index]; };
    for (const auto& [index, time] : {std::pair(0, 20ms), {1, 40ms}, {2, 40ms}, {3, 40ms}}) {
        EXPECT_GE(least(static_cast<std::size_t>(index)), time) << index;
    }
    const auto before = steady_t::now();
    {
        const std::lock_guard guard(stage->mutex);
        stage->next.failure = failure_s{"too many requests", 300ms};
    }
    ASSERT_TRUE(eventually([&] { return stage->opened() == 6; }));
    EXPECT_GE(stage->opens[5] - before, 300ms);
}

TEST(Sender, OpensALinkAnewThatConfirmsNothing) {
    fixture_s f;
    stage->limits.confirmWithin = 30ms;
    f.start();
    f.take(5);
    ASSERT_TRUE(eventually([&] { return stage->offered() >= 10; }));
    EXPECT_TRUE(f.offers().starts_with("1-5 1-5"));
}

TEST(Sender, FloodsNobodyWhileItCatchesUp) {
    fixture_s f;
    f.config.maxRate = 1'000;
    stage->confirmsAll = true;
    f.take(400, 10s);
    const auto begin = steady_t::now();
    f.start();
    ASSERT_TRUE(eventually([&] { return stage->offered() == 400; }));
    std::size_t count = 0;
    for (const auto& [at, size] : stage->times) {
        count += size;
        const double seconds = std::chrono::duration<double>(at - begin).count();
        EXPECT_LE(static_cast<double>(count), f.config.maxRate * (seconds + 0.1) + 1) << seconds;
    }
    // What is fresh goes at once: by the rate alone it would take hours.
    f.sender.reset();
    f.config.maxRate = 0.01;
    f.start();
    f.take(400);
    EXPECT_TRUE(eventually([&] { return stage->offered() == 800; }));
}

TEST(Sender, DrainsWhatItIsAskedTo) {
    struct {
        const char* legend;
        bool deliverRest, confirmsAll;
        std::chrono::milliseconds time;
        std::size_t offered;
        bool aborts;
    } const cases[] = {
        {"all", true, true, 1h, 100, false},
        {"what is in flight", false, true, 1h, 30, false},
        {"a receiver that says nothing", true, false, 50ms, 30, true},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.legend);
        fixture_s f;
        stage->limits.window = 30;
        stage->limits.every = 1h;  // which the end does not wait for
        f.take(100);
        f.start();
        ASSERT_TRUE(eventually([&] { return stage->offered() == 30; }));
        f.sender->drain(steady_t::now() + row.time, row.deliverRest);
        if (row.confirmsAll) {
            const std::lock_guard guard(stage->mutex);
            stage->confirmsAll = true;
            stage->next.settled.push_back({1, 30});
        }
        stage->context.wake();
        f.sender->join();
        EXPECT_EQ(stage->offered(), row.offered);
        f.spool.flush();
        EXPECT_EQ(f.spool.account().sinks.at(0).pending(), row.aborts ? 100 : 100 - row.offered);
    }
}
