// SPDX-License-Identifier: MIT
#include "additional_config.hpp"

#include <sys/time.h>

#include <algorithm>
#include <array>
#include <bit>
#include <limits>
#include <memory>
#include <mutex>
#include <nlohmann/json.hpp>
#include <string_view>
#include <thread>
#include <unordered_set>
#include <vector>

#include "json_fields.hpp"
#include "logger.hpp"

using nlohmann::json;

std::atomic<bool> isAddlKeysEnabled{false};

namespace {

// The most keys that are ever held: MaxTagInfoDBSize before it is first set.
constexpr std::uint32_t mostKeys = maxAddlKeysDBSize + 1;
constexpr std::uint32_t noNode = 0xFFFFFFFF;

// One key and the time of its last report that left. The usual key (PC, CRC, EPC and TID of 96 bits,
// antenna) fits into `head`, so that a look-up touches only two neighbouring lines of the cache; `rest`
// has the remainder of a longer key.
struct alignas(64) tagInfo_s {
    time_value_s timestamp;
    std::uint64_t order = 0;       // counts the reports that left: the higher, the later
    std::uint32_t newer = noNode;  // places in the list: towards the key reported last,
    std::uint32_t older = noNode;  // and towards the one reported longest ago
    std::unique_ptr<char[]> rest;
    std::uint32_t hash = 0;
    std::uint16_t length = 0;  // of the whole key
    std::array<char, 82> head{};
};
static_assert(sizeof(tagInfo_s) == 128);

// All nodes in one vector, linked from the key reported last to the oldest. A node is never removed,
// only reused for another key.
struct report_order_s {
    std::vector<tagInfo_s> nodes;
    std::uint32_t newest = noNode;
    std::uint32_t oldest = noNode;
    std::uint64_t reports = 0;  // that have left
};

// The map from key to node: a hash table with open addressing, at most 61 % full. A key's slot is at or
// behind the index that its hash gives, without an empty slot in between.
struct slot_s {
    std::uint32_t hash = 0;
    std::uint32_t node = noNode;
};
constexpr std::uint32_t slots = 32768;
static_assert(std::has_single_bit(slots) && mostKeys < slots * 3 / 4);
using locate_map_t = std::vector<slot_s>;

// The antenna is part of the key. Written by the main thread, read by the engine thread.
std::atomic<bool> UseAntenna{false};

// Guards all that follows. Engine thread: one lookup. Main thread: settings, an
// exchange, a copy of a few keys.
std::mutex database;
// The engine thread has found it locked. Written by the engine thread, read by the
// main thread, which steps back before it locks again: a mutex alone would let it
// in first each time.
std::atomic<bool> engineWaits{false};
// How long a key stays quiet after a report. Written by the main thread.
time_value_s ReportDuration;
// Most keys held at once. Written by the main thread.
std::uint32_t MaxTagInfoDBSize = 20000;
// A node and a slot for each key. Written by the engine thread. Exchanged for empty
// ones by the main thread, first when the filter is turned on: the map is empty
// until then and never again.
report_order_s tagInfo_updates_in_order;
locate_map_t tagInfo_locate_map;

constexpr std::int64_t microsecondsOfSecond = 1'000'000;

time_value_s operator-(const time_value_s& left, const time_value_s& right) {
    time_value_s difference{left.seconds - right.seconds, left.microseconds - right.microseconds};
    if (difference.microseconds < 0) {
        difference.seconds -= 1;
        difference.microseconds += microsecondsOfSecond;
    }
    return difference;
}

// The time since the end of the quiet time; negative while it lasts.
time_value_s overdue(const time_value_s& now, const time_value_s& reported, const time_value_s& quiet) {
    return now - reported - quiet;
}

bool isAboveZero(const time_value_s& difference) {
    return difference.seconds > 0 || (difference.seconds == 0 && difference.microseconds > 0);
}

// Engine thread.
std::unique_lock<std::mutex> lockForLookup() {
    std::unique_lock lock(database, std::try_to_lock);
    if (!lock.owns_lock()) {
        engineWaits.store(true, std::memory_order_relaxed);
        lock.lock();
        engineWaits.store(false, std::memory_order_relaxed);
    }
    return lock;
}

// Main thread.
std::unique_lock<std::mutex> lockAfterEngine() {
    while (engineWaits.load(std::memory_order_relaxed)) {
        std::this_thread::yield();
    }
    return std::unique_lock(database);
}

time_value_s timeOfDay() {
    timeval now{};
    gettimeofday(&now, nullptr);
    return {now.tv_sec, now.tv_usec};
}

// ---------------------------------------------------------------- keys

std::uint32_t hashOf(std::string_view key) {
    return static_cast<std::uint32_t>(std::hash<std::string_view>{}(key));
}

std::string_view headOf(const tagInfo_s& info) {
    return {info.head.data(), std::min<std::size_t>(info.length, info.head.size())};
}

std::string_view restOf(const tagInfo_s& info) {
    return {info.rest.get(), info.length - headOf(info).size()};
}

bool hasKey(const tagInfo_s& info, std::string_view key) {
    const std::string_view head = headOf(info);
    return info.length == key.size() && key.starts_with(head) && key.substr(head.size()) == restOf(info);
}

void setKey(std::string_view key, std::uint32_t hash, tagInfo_s* info) {
    info->hash = hash;
    info->length = static_cast<std::uint16_t>(key.size());
    const std::string_view head = key.substr(0, info->head.size());
    const std::string_view rest = key.substr(head.size());
    std::ranges::copy(head, info->head.begin());
    info->rest = rest.empty() ? nullptr : std::make_unique_for_overwrite<char[]>(rest.size());
    std::ranges::copy(rest, info->rest.get());
}

// ---------------------------------------------------------------- the map

std::uint32_t nextSlot(std::uint32_t slot) {
    return (slot + 1) % slots;
}

// The node of a key, or noNode.
std::uint32_t findNode(std::string_view key, std::uint32_t hash) {
    const auto& nodes = tagInfo_updates_in_order.nodes;
    for (std::uint32_t slot = hash % slots;; slot = nextSlot(slot)) {
        const slot_s& entry = tagInfo_locate_map[slot];
        if (entry.node == noNode || (entry.hash == hash && hasKey(nodes[entry.node], key))) {
            return entry.node;
        }
    }
}

void addSlot(std::uint32_t hash, std::uint32_t node) {
    std::uint32_t slot = hash % slots;
    while (tagInfo_locate_map[slot].node != noNode) {
        slot = nextSlot(slot);
    }
    tagInfo_locate_map[slot] = {hash, node};
}

// Empties the slot of a node; entries behind it move up where a search would no longer find them.
void removeSlot(std::uint32_t hash, std::uint32_t node) {
    std::uint32_t hole = hash % slots;
    while (tagInfo_locate_map[hole].node != node) {
        hole = nextSlot(hole);
    }
    for (std::uint32_t slot = nextSlot(hole); tagInfo_locate_map[slot].node != noNode;
         slot = nextSlot(slot)) {
        const std::uint32_t home = tagInfo_locate_map[slot].hash % slots;
        // Distances are counted forward and around the end of the table.
        if ((slot - home) % slots >= (slot - hole) % slots) {
            tagInfo_locate_map[hole] = tagInfo_locate_map[slot];
            hole = slot;
        }
    }
    tagInfo_locate_map[hole] = {};
}

// ---------------------------------------------------------------- the list

void unlink(std::uint32_t node) {
    auto& [nodes, newest, oldest, reports] = tagInfo_updates_in_order;
    const tagInfo_s& info = nodes[node];
    (info.newer == noNode ? newest : nodes[info.newer].older) = info.older;
    (info.older == noNode ? oldest : nodes[info.older].newer) = info.newer;
}

void linkInFront(std::uint32_t node) {
    auto& [nodes, newest, oldest, reports] = tagInfo_updates_in_order;
    nodes[node].order = ++reports;
    nodes[node].newer = noNode;
    nodes[node].older = newest;
    (newest == noNode ? oldest : nodes[newest].newer) = node;
    newest = node;
}

// A node for a new key: one more, or that of the key reported longest ago.
std::uint32_t takeNode() {
    auto& nodes = tagInfo_updates_in_order.nodes;
    if (nodes.size() < MaxTagInfoDBSize || nodes.empty()) {
        nodes.emplace_back();
        return static_cast<std::uint32_t>(nodes.size() - 1);
    }
    const std::uint32_t node = tagInfo_updates_in_order.oldest;
    removeSlot(nodes[node].hash, node);
    unlink(node);
    return node;
}

void addKey(std::string_view key, std::uint32_t hash, const time_value_s& now) {
    const std::uint32_t node = takeNode();
    tagInfo_s& info = tagInfo_updates_in_order.nodes[node];
    setKey(key, hash, &info);
    info.timestamp = now;
    addSlot(hash, node);
    linkInFront(node);
}

// ---------------------------------------------------------------- the whole

// Puts an empty database in the place of the one there is. All room is taken at
// once (2.7 MiB, touched only as keys come), so that the engine thread allocates
// for none but unusually long keys; the old one is freed outside the lock.
void exchangeDatabase() {
    report_order_s order;
    order.nodes.reserve(mostKeys);
    locate_map_t map(slots);
    const auto lock = lockAfterEngine();
    std::swap(order, tagInfo_updates_in_order);
    map.swap(tagInfo_locate_map);
}

// A copy of the database. The keys stand one behind the other in one text, so that
// nothing is allocated for each of them.
struct copied_key_s {
    std::size_t begin;  // in `database_copy_s::keys`
    std::size_t length;
    std::uint64_t order;
    time_value_s timestamp;
};
struct database_copy_s {
    time_value_s quiet;
    std::string keys;
    std::vector<copied_key_s> entries;  // reported last first

    [[nodiscard]] std::string_view keyOf(const copied_key_s& entry) const {
        return std::string_view(keys).substr(entry.begin, entry.length);
    }
};

// Most keys that are copied while the engine thread may have to wait.
constexpr std::uint32_t keysAtOnce = 64;

// Copies the nodes from `next` on: keysAtOnce, or fewer when there are no more or no
// room for their texts. Moves *next on, and says in *room what the next text needs.
// True when there are more. Nothing is allocated under the lock.
bool copySome(std::size_t* next, std::size_t* room, database_copy_s* copy) {
    const auto lock = lockAfterEngine();
    const auto& nodes = tagInfo_updates_in_order.nodes;
    const std::size_t end = std::min<std::size_t>(*next + keysAtOnce, nodes.size());
    for (; *next < end; ++*next) {
        const tagInfo_s& info = nodes[*next];
        const std::size_t begin = copy->keys.size();
        *room = info.length;
        if (*room > copy->keys.capacity() - begin) {
            return true;
        }
        copy->keys += headOf(info);
        copy->keys += restOf(info);
        copy->entries.push_back({begin, info.length, info.order, info.timestamp});
    }
    return *next < nodes.size();
}

// Copies in the order of the nodes, which stand still, and not of the list, which
// the engine thread changes between two steps. A key that gave its node away and
// came back meanwhile is found twice: its last report counts.
void copyDatabase(database_copy_s* copy) {
    // Room for the usual key: PC and CRC, a 96-bit EPC and a 96-bit TID.
    constexpr std::size_t usualKey = 64;
    copy->quiet = ReportDuration;
    copy->entries.reserve(mostKeys);
    std::size_t next = 0;
    std::size_t room = 0;
    do {
        const std::size_t needed = copy->keys.size() + std::max(room, usualKey * keysAtOnce);
        if (needed > copy->keys.capacity()) {
            copy->keys.reserve(2 * needed);
        }
    } while (copySome(&next, &room, copy));
    std::ranges::sort(copy->entries, std::ranges::greater{}, &copied_key_s::order);
    std::unordered_set<std::string_view> seen(copy->entries.size());
    std::erase_if(copy->entries,
                  [&](const copied_key_s& entry) { return !seen.insert(copy->keyOf(entry)).second; });
}

std::size_t databaseSize() {
    const auto lock = lockAfterEngine();
    return tagInfo_updates_in_order.nodes.size();
}

// Quirk: writes "seconds.microseconds" without leading zeros: 5 s and 20 us is 5.20.
void appendTime(const time_value_s& time, std::string* text) {
    *text += std::to_string(time.seconds);
    *text += '.';
    *text += std::to_string(time.microseconds);
}

void appendKey(std::string_view tagId, const time_value_s& timestamp, const time_value_s& left,
               std::string* text) {
    *text += "\nTag ID: ";
    *text += tagId;
    *text += ", Timestamp: ";
    appendTime(timestamp, text);
    if (isAboveZero(left)) {
        *text += ", expired";
        return;
    }
    *text += ", Time until expiration: ";
    appendTime(left, text);
    *text += " seconds";
}

// Members of "data" that a key consists of, in their order in the key.
constexpr std::array keyTexts{"PC", "idHex", "CRC", "TID"};

int refuseReport(int result, const std::string& reason) {
    logCountedError("additional_config", " Error parsing JSON: ", reason);
    return result;
}

// The error text of the JSON accessor for an object without this member.
int refuseMissing(const char* member) {
    std::string unused;
    std::string reason;
    const json nothing = json::object();
    return refuseReport(getJsonValue(&nothing, member, &unused, &reason, {}), reason);
}

}  // namespace

int setAddlKeysFilterConfig(bool useAntenna, float seconds, std::uint32_t maxSize) {
    const auto whole = static_cast<std::int64_t>(seconds);
    const auto micros = static_cast<std::int64_t>((seconds - static_cast<float>(whole)) * 1e6F);
    UseAntenna.store(useAntenna, std::memory_order_relaxed);
    isAddlKeysEnabled.store(true, std::memory_order_relaxed);
    if (tagInfo_locate_map.empty()) {
        exchangeDatabase();
    }
    const auto lock = lockAfterEngine();
    ReportDuration = {whole, micros};
    if (maxSize > maxAddlKeysDBSize) {
        return -1;
    }
    MaxTagInfoDBSize = maxSize;
    return 0;
}

int makeAddlKey(const addl_key_parts_s& parts, std::string* key) {
    if (!isAddlKeysEnabled.load(std::memory_order_relaxed)) {
        return -1;
    }
    if (!parts.isReport) {
        return refuseMissing("data");
    }
    key->clear();
    for (std::size_t i = 0; i < keyTexts.size(); ++i) {
        if (parts.texts[i].data() == nullptr) {
            return refuseMissing(keyTexts[i]);
        }
        *key += parts.texts[i];
    }
    if (UseAntenna.load(std::memory_order_relaxed)) {
        if (parts.antenna.data() == nullptr) {
            return refuseMissing("antenna");
        }
        key->append("_").append(parts.antenna);
    }
    return 0;
}

int parse_json_for_addl_key(const json* report, std::string* key) {
    if (!isAddlKeysEnabled.load(std::memory_order_relaxed)) {
        return -1;
    }
    std::string reason;
    json data;
    if (const int result = getJsonValueObject(report, "data", &data, &reason); result != 0) {
        return refuseReport(result, reason);
    }
    std::array<std::string, keyTexts.size()> texts;
    addl_key_parts_s parts{.isReport = true, .texts = {}, .antenna = {}};
    for (std::size_t i = 0; i < keyTexts.size(); ++i) {
        if (const int result = getJsonValue(&data, keyTexts[i], &texts[i], &reason, {}); result != 0) {
            return refuseReport(result, reason);
        }
        parts.texts[i] = texts[i];
    }
    std::string antennaText;
    if (UseAntenna.load(std::memory_order_relaxed)) {
        using limits = std::numeric_limits<std::int32_t>;
        std::int32_t antenna = 0;
        if (const int result =
                getJsonValue(&data, "antenna", &antenna, &reason, limits::lowest(), limits::max());
            result != 0) {
            return refuseReport(result, reason);
        }
        antennaText = std::to_string(antenna);
        parts.antenna = antennaText;
    }
    return makeAddlKey(parts, key);
}

int report_line(const std::string& key) {
    return report_line(key, timeOfDay());
}

int report_line(const std::string& key, const time_value_s& now) {
    const std::uint32_t hash = hashOf(key);
    const auto lock = lockForLookup();
    if (tagInfo_locate_map.empty()) {
        return 1;  // the filter has never been on
    }
    const std::uint32_t node = findNode(key, hash);
    if (node == noNode) {
        addKey(key, hash, now);
        return 1;
    }
    tagInfo_s& info = tagInfo_updates_in_order.nodes[node];
    if (!isAboveZero(overdue(now, info.timestamp, ReportDuration))) {
        return 0;
    }
    info.timestamp = now;
    unlink(node);
    linkInFront(node);
    return 1;
}

void resetTagInfoDB() {
    if (!tagInfo_locate_map.empty()) {
        exchangeDatabase();
    }
}

int getCurrentTagInfoDB(std::string* text, bool detailed) {
    return getCurrentTagInfoDB(text, detailed, timeOfDay());
}

int getCurrentTagInfoDB(std::string* text, bool detailed, const time_value_s& now) {
    if (!isAddlKeysEnabled.load(std::memory_order_relaxed)) {
        return -1;
    }
    database_copy_s copy;
    if (detailed) {
        copyDatabase(&copy);
    }
    const std::size_t size = detailed ? copy.entries.size() : databaseSize();
    *text = "Success: Current Tag Info DB Size : " + std::to_string(size);
    logDebug("additional_config", " ", *text);
    for (const copied_key_s& entry : copy.entries) {
        appendKey(copy.keyOf(entry), entry.timestamp, overdue(now, entry.timestamp, copy.quiet), text);
    }
    return 0;
}
