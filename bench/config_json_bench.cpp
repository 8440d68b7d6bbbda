// SPDX-License-Identifier: MIT
// The document of the engine's whole state on an array reader with 50 olios, 32
// selects, 63 accesses and 127 channels, as a ratio to the bare RXE_getParam
// calls that it makes. The engine is one of this file, which only copies the
// record; the library is not linked. Both are measured in turn
// in one process, and the figure is the median of the ratios of neighbouring
// rounds. A second ratio takes the same calls through a lock, as a library that
// serves several threads has one; a third counts beside the calls what the JSON
// library itself needs at least: a copy of the finished object, its text, its end.
#include <array>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "configrxe.hpp"
#include "engine_io/channels.hpp"
#include "engine_io/olios.hpp"
#include "engine_io/operations.hpp"
#include "measure.hpp"
#include "reader_facts.hpp"

namespace {

constexpr int rounds = 400;

using bytes_t = std::vector<std::uint8_t>;
std::vector<bytes_t> records(0x10000);  // by parameter id; empty: an id that is not read
std::vector<unsigned short> asked;      // the ids of the last document, in order
bool listening = false;                 // whether `asked` is being filled
bool locking = false;                   // whether a call takes the lock
std::mutex lock;

template <class Record>
void hold(unsigned id, const Record& record) {
    records[id].assign(reinterpret_cast<const std::uint8_t*>(&record),
                       reinterpret_cast<const std::uint8_t*>(&record) + sizeof(record));
}

// Records that exist and are disabled, so that each read copies as much as usual.
template <class Record>
void holdRange(unsigned base, unsigned last) {
    for (unsigned id = base; id <= base + last; ++id) {
        hold(id, Record{});
    }
}

void fillRanges() {
    holdRange<std::uint32_t>(0, 0xFF);
    holdRange<SELECT_OP_s>(RXE_PARAM_SELECT, RXE_MAX_SELECTS);
    holdRange<INVENTORY_OP_s>(RXE_PARAM_INVENTORY, 0xFF);
    holdRange<ACCESS_OP_s>(RXE_PARAM_ACCESS, RXE_MAX_ACCESSES);
    holdRange<OLIO_s>(RXE_PARAM_OLIO, RXE_MAX_OLIOS);
    holdRange<CHANNEL_s>(RXE_PARAM_CHANNEL, RXE_MAX_CHANNELS);
    holdRange<std::uint8_t>(RXE_PARAM_HOP_PER_ROUND, 3);
    holdRange<REPORT_FILTER_ID_s>(RXE_PARAM_ID_FILTER, 0xEA);
    holdRange<std::uint16_t>(RXE_PARAM_AUTORESTART, 0x13);
    hold(RXE_PARAM_BLOCK_SIZE, std::uint8_t{4});
    hold(RXE_PARAM_RSSI_THRESHOLD, std::int8_t{-70});
    hold(RXE_PARAM_STATIC_V_DYNAMIC, std::uint8_t{7});
    hold(RXE_PARAM_LAST_REPORT, REPORT_FILTER_LAST_REPORT_s{1, 0, {}, 60});
    hold(RXE_PARAM_RADIO_STOP, PER_RADIO_STOP_s{});
    hold(RXE_PARAM_GPIO_DIR, std::uint8_t{0xFF});
    hold(RXE_PARAM_GPIO_START, GPIO_START_s{});
    holdRange<std::uint8_t>(RXE_PARAM_CABLE_LOSS, 15);
}

void configure() {
    setModelName("QDX4400");
    readerFacts.max_ants = 14;
    readerFacts.rssiFilterSupported = readerFacts.dynamicRangeSupported = readerFacts.cableLossSupported =
        readerFacts.txDelayIntervalSupported = true;
    readerFacts.rxe_max_tx_pwr_x_10 = 360;
    fillRanges();
    for (std::uint8_t id = 1; id <= RXE_MAX_SELECTS; ++id) {
        const auto target = static_cast<std::uint8_t>(id % 5), action = static_cast<std::uint8_t>(id % 8);
        setSelect(id, {1,
                       target,
                       action,
                       1,
                       32,
                       96,
                       0,
                       0,
                       {0x30, 0x74, 0x25, 0x7B, 0xF7, 0x19, 0x4E, 0x40, 0, 0, 0x1A, 0x85}});
    }
    setInvParams(1, 1, 0, 1, 2, 7);
    for (std::uint8_t id = 1; id <= RXE_MAX_ACCESSES; ++id) {
        setAccessRead(id, 1, 3, id, 4);
    }
    for (std::uint16_t id = 1; id <= 50; ++id) {
        setOlio(id, {1, 0, id, id, 0x81, 0, 250, 300, 0xFFFFFFFF, 1, {}, 0x7FFFFFFFFFFFFFFF, 201, {}});
    }
    for (std::uint8_t id = 1; id <= RXE_MAX_CHANNELS; ++id) {
        enableChannel(id, 902000U + 200U * id);
    }
    for (const unsigned type :
         {RXE_PACKET_TAG_INFO_CUSTOM, RXE_PACKET_START_INFO3, RXE_PACKET_CMD_ONGOING, RXE_PACKET_ANTENNA_INFO,
          RXE_PACKET_INV_BEGIN, RXE_PACKET_ACCESS_INFO, RXE_PACKET_ANT_DISCONNECT_ALARM}) {
        const std::uint16_t id = RXE_PACKET_ID(type);
        std::uint32_t bits = 0;
        std::memcpy(&bits, records[RXE_PARAM_PACKET_BITS + id / 32U].data(), sizeof(bits));
        hold(RXE_PARAM_PACKET_BITS + id / 32U, bits | 1U << (id & 31));
    }
    setCustomFields(0x3C71);
}

constexpr double aim = 3;

double compare(const char* legend, const nlohmann::json* copied = nullptr) {
    std::vector<double> ratios, documents, calls;
    std::string reply;
    std::array<std::uint8_t, 1024> record{};
    for (int round = 0; round < rounds; ++round) {
        calls.push_back(1e6 * secondsOf([&] {
                            for (const unsigned short id : asked) {
                                RXE_getParam(id, record.data());
                            }
                            if (copied != nullptr) {
                                reply = nlohmann::json(*copied).dump();
                            }
                        }));
        documents.push_back(1e6 * secondsOf([&] { getFullCustomConfig(&reply); }));
        ratios.push_back(documents.back() / calls.back());
    }
    std::printf("%-22s ratio %6.1f  document %7.1f us, yardstick %6.1f us (%zu calls)\n", legend,
                median(ratios), median(documents), median(calls), asked.size());
    return median(ratios);
}

}  // namespace

extern "C" {

RXE_API_STATUS RXE_getParam(unsigned short id, void* record) {
    std::unique_lock guard(lock, std::defer_lock);
    if (locking) {
        guard.lock();
    }
    if (listening) {
        asked.push_back(id);
    }
    const bytes_t& bytes = records[id];
    std::memcpy(record, bytes.data(), bytes.size());
    return bytes.empty() ? static_cast<RXE_API_STATUS>(1) : RXE_OK;
}

RXE_API_STATUS RXE_setParam2(unsigned short id, void* record, bool, bool) {
    std::memcpy(records[id].data(), record, records[id].size());
    return RXE_OK;
}

// The other operations of the library are needed by the linker and never called.
#define UNUSED(name, ...)              \
    RXE_API_STATUS name(__VA_ARGS__) { \
        return RXE_OK;                 \
    }
UNUSED(RXE_getAPIVerNum, REL_VERSION_s*, char**)
UNUSED(RXE_connect, char*, unsigned long)
UNUSED(RXE_disconnect)
UNUSED(RXE_setCallback, int (*)(RXE_packet_s*))
UNUSED(RXE_setParam, unsigned short, void*)
UNUSED(RXE_setNVMParam, unsigned short, void*)
UNUSED(RXE_start)
UNUSED(RXE_stop)
UNUSED(RXE_resume)
UNUSED(RXE_resetDb)
UNUSED(RXE_getErr)
UNUSED(RXE_txFakeTags, unsigned short)
UNUSED(RXE_enablePacketLogging, const char*)
UNUSED(RXE_disablePacketLogging)
UNUSED(RXE_formatPayloadToStruct, RXE_packet_s*, void*)
const char* RXE_strerror(RXE_API_STATUS) {
    return "an error";
}

}  // extern "C"

int main() {
    configure();
    std::string reply;
    listening = true;
    if (getFullCustomConfig(&reply) != 0) {
        std::fprintf(stderr, "the document failed: %s\n", reply.c_str());
        return 2;
    }
    listening = false;
    std::printf("the document has %zu bytes\n", reply.size());
    const double ratio = compare("records copied out");
    std::printf("aim %.1f %s; the last line says what of it is the JSON library's own part\n", aim,
                ratio <= aim ? "met" : "MISSED");
    locking = true;
    compare("behind a lock");
    locking = false;
    const nlohmann::json document = nlohmann::json::parse(reply);
    compare("and the JSON library", &document);
    return ratio <= aim ? 0 : 1;
}
