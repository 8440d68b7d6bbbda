// SPDX-License-Identifier: MIT
#include "additional_config.hpp"

#include <sys/time.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <limits>
#include <memory>
#include <nlohmann/json.hpp>
#include <string_view>
#include <unordered_set>
#include <utility>
#include <vector>

#include "json_fields.hpp"
#include "logger.hpp"

using nlohmann::json;

std::atomic<bool> additional_config::isAddlKeysEnabled{false};

namespace {

// The most keys that are ever held: MaxTagInfoDBSize before it is first set.
constexpr std::uint32_t mostKeys = maxAddlKeysDBSize + 1;
constexpr std::uint32_t noNode = 0xFFFFFFFF;

constexpr auto relaxed = std::memory_order_relaxed;

// The part of a long key behind its head. The main thread may be reading it when its key is replaced.
struct rest_s {
    std::string text;
    rest_s* next = nullptr;  // among the retired
};

// One key and the last of its reports that left. Earlier reports are not kept: only the last one
// counts, and a list would grow while the tag stays in the field. The usual key (PC, CRC, EPC
// and TID of 96 bits, antenna) is inside the node, so that a look-up among thousands touches
// only two neighbouring cache lines.
//
// The engine thread alone writes; the main thread copies the words, and copies them again
// when `version` has changed meanwhile. Nothing is initialised before its first use.
struct alignas(64) tagInfo_s {
    enum word_e : std::size_t {
        TIMESTAMP,  // microseconds
        ORDER,      // number of the report, ascending
        LENGTH,     // of the whole key
        REST,       // a rest_s*, or null
        HEAD,       // the first characters of the key
        WORDS = 14
    };
    using words_t = std::array<std::uint64_t, WORDS>;

    words_t words;
    std::uint32_t version;  // odd while the words are being written
    std::uint32_t hash;
    std::uint32_t newer;  // the neighbour in the list that was reported later; noNode for the last
    std::uint32_t older;  // the neighbour that was reported earlier
};
static_assert(sizeof(tagInfo_s) == 128);

constexpr std::size_t headRoom = (tagInfo_s::WORDS - tagInfo_s::HEAD) * sizeof(std::uint64_t);

std::string_view headOf(const tagInfo_s::words_t& words) {
    return {reinterpret_cast<const char*>(&words[tagInfo_s::HEAD]),
            std::min<std::size_t>(words[tagInfo_s::LENGTH], headRoom)};
}

rest_s* restOf(const tagInfo_s::words_t& words) {
    return reinterpret_cast<rest_s*>(static_cast<std::uintptr_t>(words[tagInfo_s::REST]));
}

// The map from key to node: a hash table with open addressing, at most 61 % full. A key's slot is at or
// behind the index that its hash gives, without an empty slot in between.
struct slot_s {
    std::uint32_t hash = 0;
    std::uint32_t node = noNode;
};
constexpr std::uint32_t slots = 32768;
static_assert(std::has_single_bit(slots) && mostKeys < slots * 3 / 4);

// All nodes in one array, linked from the key that was reported last to the oldest. A node
// is never freed, only given to another key. The memory is allocated at once (2.7 MiB, of which
// the system provides pages as keys come), so that the engine thread allocates only for unusually
// long keys. Belongs to the engine thread; the main thread copies nodes.
struct database_s {
    database_s() = default;
    database_s(const database_s&) = delete;
    database_s& operator=(const database_s&) = delete;
    ~database_s() {
        for (std::uint32_t node = 0; node < size.load(relaxed); ++node) {
            delete restOf(tagInfo_updates_in_order[node].words);
        }
    }

    std::unique_ptr<tagInfo_s[]> tagInfo_updates_in_order =
        std::make_unique_for_overwrite<tagInfo_s[]>(mostKeys);
    std::atomic<std::uint32_t> size{0};  // nodes in use
    std::uint32_t newest = noNode;
    std::uint32_t oldest = noNode;
    std::uint64_t reports = 0;  // that have left
    std::vector<slot_s> tagInfo_locate_map = std::vector<slot_s>(slots);
    database_s* next = nullptr;  // among the retired
};

// The settings. Written by the main thread, read by the engine thread.
std::atomic<bool> UseAntenna{false};          // the antenna is part of the key
std::atomic<std::int64_t> ReportDuration{0};  // microseconds; how long a key stays quiet after a report
std::atomic<std::uint32_t> MaxTagInfoDBSize{20000};  // most keys held at once

// The database in force: the engine thread has it, or will take it before its next
// look-up. Null until the filter is turned on for the first time. Main thread.
database_s* newestDatabase = nullptr;
// The newest one until the engine thread takes it. Both threads exchange it.
std::atomic<database_s*> offered{nullptr};
// The one in use. Engine thread.
database_s* database = nullptr;
// Of the key that report_line refused last. Microseconds; engine thread.
std::int64_t endOfQuietTime = 0;

// Objects that the engine thread does not use any more and that the main thread frees.
template <class Node>
class retired_s {
  public:
    void add(Node* node) {
        node->next = first.load(relaxed);
        while (!first.compare_exchange_weak(node->next, node, std::memory_order_release, relaxed)) {
        }
    }
    void free() {
        for (Node* node = first.exchange(nullptr, std::memory_order_acquire); node != nullptr;) {
            const std::unique_ptr<Node> last(node);
            node = node->next;
        }
    }

  private:
    std::atomic<Node*> first{nullptr};
};
retired_s<database_s> retiredDatabases;
retired_s<rest_s> retiredRests;
// The main thread may be reading rests: the engine thread then retires them and does not free them.
std::atomic<bool> restsAreRead{false};

constexpr std::int64_t microsecondsOfSecond = 1'000'000;

std::int64_t microsecondsOf(const time_value_s& time) {
    return time.seconds * microsecondsOfSecond + time.microseconds;
}

time_value_s timeOf(std::int64_t microseconds) {
    time_value_s time{microseconds / microsecondsOfSecond, microseconds % microsecondsOfSecond};
    if (time.microseconds < 0) {
        time.seconds -= 1;
        time.microseconds += microsecondsOfSecond;
    }
    return time;
}

time_value_s timeOfDay() {
    timeval now{};
    gettimeofday(&now, nullptr);
    return {now.tv_sec, now.tv_usec};
}

// ---------------------------------------------------------------- keys

// Takes eight characters at a time; the last eight may overlap those before them. It needs half the
// time of the standard library's hash.
std::uint32_t hashOf(std::string_view key) {
    constexpr std::size_t step = sizeof(std::uint64_t);
    constexpr std::uint64_t oddFactor = 0x9E3779B97F4A7C15;  // 2 to the 64th by the golden ratio
    std::uint64_t hash = key.size();
    const auto mix = [&hash](const char* characters, std::size_t count) {
        std::uint64_t word = 0;
        std::memcpy(&word, characters, count);
        hash = (hash ^ word) * oddFactor;
        hash ^= hash >> 32;
    };
    if (key.size() < step) {
        mix(key.data(), key.size());
    } else {
        const char* const last = key.data() + key.size() - step;
        for (const char* at = key.data(); at < last; at += step) {
            mix(at, step);
        }
        mix(last, step);
    }
    return static_cast<std::uint32_t>(hash);
}

// Engine thread.
bool hasKey(const tagInfo_s& info, std::string_view key) {
    if (info.words[tagInfo_s::LENGTH] != key.size()) {
        return false;
    }
    const std::string_view head = headOf(info.words);
    return key.starts_with(head) &&
           (key.size() == head.size() || key.substr(head.size()) == restOf(info.words)->text);
}

// Writes a node so that the main thread copies either the old or the new words. Engine thread.
void rewrite(const tagInfo_s::words_t& words, tagInfo_s* info) {
    const std::atomic_ref version(info->version);
    version.store(info->version + 1, relaxed);
    for (std::size_t i = 0; i < words.size(); ++i) {
        std::atomic_ref(info->words[i]).store(words[i], std::memory_order_release);
    }
    version.store(info->version + 1, std::memory_order_release);
}

// Frees the rest of a key. When the main thread may have found it, the rest is retired: the main
// thread sets restsAreRead before it looks for rests, and this function changes the node before it
// looks at restsAreRead. Engine thread.
void giveUp(rest_s* rest, tagInfo_s* info) {
    if (rest == nullptr) {
        return;
    }
    std::atomic_ref(info->version).fetch_add(2, std::memory_order_seq_cst);
    if (restsAreRead.load(std::memory_order_seq_cst)) {
        retiredRests.add(rest);
    } else {
        delete rest;
    }
}

// A copy of a node's words. Main thread, which has set restsAreRead if it follows REST.
tagInfo_s::words_t copyOf(tagInfo_s* info) {
    tagInfo_s::words_t copy;
    const std::atomic_ref version(info->version);
    for (;;) {
        const std::uint32_t before = version.load(std::memory_order_seq_cst);
        for (std::size_t i = 0; i < copy.size(); ++i) {
            copy[i] = std::atomic_ref(info->words[i]).load(std::memory_order_acquire);
        }
        if (before % 2 == 0 && version.load(relaxed) == before) {
            return copy;
        }
    }
}

// ---------------------------------------------------------------- the map

std::uint32_t nextSlot(std::uint32_t slot) {
    return (slot + 1) % slots;
}

// The node of a key, or noNode.
std::uint32_t findNode(std::string_view key, std::uint32_t hash) {
    for (std::uint32_t slot = hash % slots;; slot = nextSlot(slot)) {
        const slot_s& entry = database->tagInfo_locate_map[slot];
        if (entry.node == noNode ||
            (entry.hash == hash && hasKey(database->tagInfo_updates_in_order[entry.node], key))) {
            return entry.node;
        }
    }
}

void addSlot(std::uint32_t hash, std::uint32_t node) {
    auto& map = database->tagInfo_locate_map;
    std::uint32_t slot = hash % slots;
    while (map[slot].node != noNode) {
        slot = nextSlot(slot);
    }
    map[slot] = {hash, node};
}

// Empties the slot of a node; entries behind it that a search would no longer find move up.
void removeSlot(std::uint32_t hash, std::uint32_t node) {
    auto& map = database->tagInfo_locate_map;
    std::uint32_t hole = hash % slots;
    while (map[hole].node != node) {
        hole = nextSlot(hole);
    }
    for (std::uint32_t slot = nextSlot(hole); map[slot].node != noNode; slot = nextSlot(slot)) {
        const std::uint32_t home = map[slot].hash % slots;
        // Distances are counted forward, and continue from the last slot to the first.
        if ((slot - home) % slots >= (slot - hole) % slots) {
            map[hole] = map[slot];
            hole = slot;
        }
    }
    map[hole] = {};
}

// ---------------------------------------------------------------- the list

void unlink(std::uint32_t node) {
    const auto& nodes = database->tagInfo_updates_in_order;
    const tagInfo_s& info = nodes[node];
    (info.newer == noNode ? database->newest : nodes[info.newer].older) = info.older;
    (info.older == noNode ? database->oldest : nodes[info.older].newer) = info.newer;
}

void linkInFront(std::uint32_t node) {
    const auto& nodes = database->tagInfo_updates_in_order;
    nodes[node].newer = noNode;
    nodes[node].older = database->newest;
    (database->newest == noNode ? database->oldest : nodes[database->newest].newer) = node;
    database->newest = node;
}

// A node for a new key: one more, or the node of the key that was reported longest ago.
std::uint32_t takeNode() {
    const std::uint32_t size = database->size.load(relaxed);
    if (size < MaxTagInfoDBSize.load(relaxed) || size == 0) {
        tagInfo_s& info = database->tagInfo_updates_in_order[size];
        info.words = {};
        info.version = 0;
        return size;
    }
    const std::uint32_t node = database->oldest;
    removeSlot(database->tagInfo_updates_in_order[node].hash, node);
    unlink(node);
    return node;
}

void addKey(std::string_view key, std::uint32_t hash, std::int64_t now) {
    const std::uint32_t node = takeNode();
    tagInfo_s& info = database->tagInfo_updates_in_order[node];
    rest_s* const before = restOf(info.words);
    tagInfo_s::words_t words{};
    words[tagInfo_s::TIMESTAMP] = static_cast<std::uint64_t>(now);
    words[tagInfo_s::ORDER] = ++database->reports;
    words[tagInfo_s::LENGTH] = key.size();
    const std::string_view head = key.substr(0, headRoom);
    std::memcpy(&words[tagInfo_s::HEAD], head.data(), head.size());
    if (key.size() > head.size()) {
        words[tagInfo_s::REST] =
            reinterpret_cast<std::uintptr_t>(new rest_s{std::string(key.substr(head.size()))});
    }
    rewrite(words, &info);
    giveUp(before, &info);
    info.hash = hash;
    addSlot(hash, node);
    linkInFront(node);
    if (node == database->size.load(relaxed)) {
        database->size.store(node + 1, std::memory_order_release);
    }
}

void noteReport(std::uint32_t node, std::int64_t now) {
    tagInfo_s& info = database->tagInfo_updates_in_order[node];
    tagInfo_s::words_t words = info.words;
    words[tagInfo_s::TIMESTAMP] = static_cast<std::uint64_t>(now);
    words[tagInfo_s::ORDER] = ++database->reports;
    rewrite(words, &info);
    unlink(node);
    linkInFront(node);
}

// ---------------------------------------------------------------- the whole

// Offers an empty database in place of the present one. Main thread.
void offerEmptyDatabase() {
    retiredDatabases.free();
    newestDatabase = new database_s;
    // A database that the engine thread has never taken comes back and is freed here.
    const std::unique_ptr<database_s> unseen(offered.exchange(newestDatabase, std::memory_order_acq_rel));
}

// Engine thread.
void takeDatabase() {
    if (offered.load(relaxed) == nullptr) {
        return;
    }
    database_s* const before = std::exchange(database, offered.exchange(nullptr, std::memory_order_acq_rel));
    if (before != nullptr) {
        retiredDatabases.add(before);
    }
}

// A copy of the database. The keys are one behind the other in one text, so that
// a key does not need an allocation of its own.
struct copied_key_s {
    std::size_t begin;  // in `database_copy_s::keys`
    std::size_t length;
    std::uint64_t order;
    std::int64_t timestamp;  // microseconds
};
struct database_copy_s {
    std::string keys;
    std::vector<copied_key_s> entries;  // reported last first

    [[nodiscard]] std::string_view keyOf(const copied_key_s& entry) const {
        return std::string_view(keys).substr(entry.begin, entry.length);
    }
};

// Copies in the order of the nodes, which does not change, and not in the order of the list,
// which the engine thread changes meanwhile. A key that lost its node and came back
// may be found twice: its last report counts.
void copyDatabase(database_copy_s* copy) {
    const std::uint32_t size = newestDatabase->size.load(std::memory_order_acquire);
    restsAreRead.store(true, std::memory_order_seq_cst);
    for (std::uint32_t node = 0; node < size; ++node) {
        const tagInfo_s::words_t words = copyOf(&newestDatabase->tagInfo_updates_in_order[node]);
        copy->entries.push_back({copy->keys.size(), static_cast<std::size_t>(words[tagInfo_s::LENGTH]),
                                 words[tagInfo_s::ORDER],
                                 static_cast<std::int64_t>(words[tagInfo_s::TIMESTAMP])});
        copy->keys += headOf(words);
        if (const rest_s* rest = restOf(words); rest != nullptr) {
            copy->keys += rest->text;
        }
    }
    restsAreRead.store(false, std::memory_order_seq_cst);
    retiredRests.free();
    std::ranges::sort(copy->entries, std::ranges::greater{}, &copied_key_s::order);
    std::unordered_set<std::string_view> seen(copy->entries.size());
    std::erase_if(copy->entries,
                  [&](const copied_key_s& entry) { return !seen.insert(copy->keyOf(entry)).second; });
}

// "seconds.microseconds", both as plain decimals: 5 s and 20 us is 5.20.
void appendTime(const time_value_s& time, std::string* text) {
    *text += std::to_string(time.seconds);
    *text += '.';
    *text += std::to_string(time.microseconds);
}

// `left`: how long the quiet time has been over, negative while it lasts. Microseconds.
void appendKey(std::string_view tagId, std::int64_t timestamp, std::int64_t left, std::string* text) {
    *text += "\nTag ID: ";
    *text += tagId;
    *text += ", Timestamp: ";
    appendTime(timeOf(timestamp), text);
    if (left > 0) {
        *text += ", expired";
        return;
    }
    *text += ", Time until expiration: ";
    appendTime(timeOf(left), text);
    *text += " seconds";
}

// Members of "data" from which a key is made, in their order in the key.
constexpr std::array keyTexts{"PC", "idHex", "CRC", "TID"};

int refuseReport(int result, const std::string& reason) {
    logCountedError("additional_config", " Error parsing JSON: ", reason);
    return result;
}

// Logs and counts the error text that the JSON accessor has for an object without this member.
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
    UseAntenna.store(useAntenna, relaxed);
    additional_config::isAddlKeysEnabled.store(true, relaxed);
    if (newestDatabase == nullptr) {
        offerEmptyDatabase();
    }
    ReportDuration.store(microsecondsOf({whole, micros}), relaxed);
    if (maxSize > maxAddlKeysDBSize) {
        return -1;
    }
    MaxTagInfoDBSize.store(maxSize, relaxed);
    return 0;
}

int makeAddlKey(const addl_key_parts_s& parts, std::string* key) {
    if (!additional_config::isAddlKeysEnabled.load(relaxed)) {
        return -1;
    }
    if (!parts.isReport) {
        return refuseMissing("data");
    }
    const bool withAntenna = UseAntenna.load(relaxed);
    std::size_t length = withAntenna ? 1 + parts.antenna.size() : 0;
    for (std::size_t i = 0; i < keyTexts.size(); ++i) {
        if (parts.texts[i].data() == nullptr) {
            return refuseMissing(keyTexts[i]);
        }
        length += parts.texts[i].size();
    }
    if (withAntenna && parts.antenna.data() == nullptr) {
        return refuseMissing("antenna");
    }
    key->resize(length);
    char* out = key->data();
    for (const std::string_view text : parts.texts) {
        out += text.copy(out, text.size());
    }
    if (withAntenna) {
        *out = '_';
        parts.antenna.copy(out + 1, parts.antenna.size());
    }
    return 0;
}

int parse_json_for_addl_key(const json* report, std::string* key) {
    if (!additional_config::isAddlKeysEnabled.load(relaxed)) {
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
    if (UseAntenna.load(relaxed)) {
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
    takeDatabase();
    if (database == nullptr) {
        return 1;  // the filter has never been on
    }
    const std::int64_t time = microsecondsOf(now);
    const std::uint32_t hash = hashOf(key);
    const std::uint32_t node = findNode(key, hash);
    if (node == noNode) {
        addKey(key, hash, time);
        return 1;
    }
    const tagInfo_s& info = database->tagInfo_updates_in_order[node];
    const std::int64_t end =
        static_cast<std::int64_t>(info.words[tagInfo_s::TIMESTAMP]) + ReportDuration.load(relaxed);
    if (time <= end) {
        endOfQuietTime = end;
        return 0;
    }
    noteReport(node, time);
    return 1;
}

std::int64_t quietUntil() {
    return endOfQuietTime;
}

void resetTagInfoDB() {
    if (newestDatabase != nullptr) {
        offerEmptyDatabase();
    }
}

int getCurrentTagInfoDB(std::string* text, bool detailed) {
    return getCurrentTagInfoDB(text, detailed, timeOfDay());
}

int getCurrentTagInfoDB(std::string* text, bool detailed, const time_value_s& now) {
    if (!additional_config::isAddlKeysEnabled.load(relaxed)) {
        return -1;
    }
    retiredDatabases.free();
    database_copy_s copy;
    if (detailed) {
        copyDatabase(&copy);
    }
    const std::size_t size = detailed ? copy.entries.size() : newestDatabase->size.load(relaxed);
    *text = "Success: Current Tag Info DB Size : " + std::to_string(size);
    logDebug("additional_config", " ", *text);
    const std::int64_t quiet = ReportDuration.load(relaxed);
    for (const copied_key_s& entry : copy.entries) {
        appendKey(copy.keyOf(entry), entry.timestamp, microsecondsOf(now) - entry.timestamp - quiet, text);
    }
    return 0;
}
