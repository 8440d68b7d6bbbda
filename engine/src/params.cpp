// SPDX-License-Identifier: MIT
#include "params.hpp"

#include <algorithm>
#include <cstring>
#include <span>

#include "beams.hpp"
#include "codec.hpp"
#include "link_profiles.hpp"
#include "status.hpp"

namespace rxe {
namespace {

enum access_e : std::uint8_t { GET = 1, SET = 2, RW = GET | SET, NVM = 4 };

// Whether the fields of a record are in range; some bounds depend on `params`.
using valid_f = bool(const params_s& params, const std::byte* record);
// Whether a record whose fields are in range is for a command that the software radio models.
using modelled_f = bool(const std::byte* record);
using read_f = void(const params_s& params, std::uint16_t id, std::byte* record);
using write_f = RXE_API_STATUS(params_s* params, std::uint16_t id, const std::byte* record);

// Ids base + first to base + last hold a record of `size` bytes each. With
// `whole`, the base itself takes a disabled record and clears the range.
// `read` and `write` stand where a parameter is more than a stored record.
struct range_s {
    std::uint16_t base;
    std::uint16_t first;
    std::uint16_t last;
    std::uint16_t size;
    std::uint8_t access;
    bool whole = false;
    valid_f* valid = nullptr;
    modelled_f* modelled = nullptr;
    read_f* read = nullptr;
    write_f* write = nullptr;
};

// Records of the host need not be aligned, so they are copied.
template <typename Record>
Record as(const std::byte* bytes) {
    Record record;
    std::memcpy(&record, bytes, sizeof record);
    return record;
}

// For a parameter of one byte.
template <std::uint8_t Max>
bool upTo(const params_s&, const std::byte* record) {
    return std::to_integer<std::uint8_t>(*record) <= Max;
}

// The protocol of an inventory set that writes many tags at once.
constexpr std::uint8_t parallelEncode = 3;
constexpr std::uint16_t lastPattern = patternBase + 5;  // 5 polarisations

// Hosts also compute beam ids that lie outside the grids. The radio accepts them and hears
// nothing there.
bool isAntenna(const reader_s& reader, std::uint16_t id) {
    return isBeam(reader.model, id) ? id != 0 : id >= 1 && id <= maxPorts;
}

// Only enabled records are checked: a host disables one by writing zeros.
bool validOlio(const params_s& params, const std::byte* bytes) {
    const auto olio = as<OLIO_s>(bytes);
    const bool stopKnown =
        (olio.stopType >= RXE_STOP_INVENTORY_ROUNDS && olio.stopType <= RXE_STOP_GPIO4_LOW) ||
        olio.stopType > RXE_STOP_ROUNDS_AND_DWELL;
    const bool linkKnown = olio.linkProfileIndex == 0 || isLinkProfile(olio.linkProfileIndex);
    const bool powerKnown = olio.transmitPower >= 0 && olio.transmitPower <= params.maxTxPower;
    const bool antennasKnown =
        isAntenna(params.reader, olio.transmitAntenna) &&
        (isPattern(olio.receiveAntenna) ? olio.receiveAntenna <= lastPattern
                                        : isAntenna(params.reader, olio.receiveAntenna));
    return olio.enable == 0 || (olio.enable == 1 && stopKnown && linkKnown && powerKnown && antennasKnown);
}

// A slot whose `enable` is neither 0 nor 1 holds another command, in a form that is not checked.
bool validSelect(const params_s&, const std::byte* bytes) {
    const auto select = as<SELECT_OP_s>(bytes);
    return select.enable != 1 || (select.target <= 4 && select.action <= 7 && select.membank <= 3);
}

// The protocol that writes many tags at once is not modelled; such a set is refused.
bool modelledInventory(const std::byte* bytes) {
    const auto set = as<INVENTORY_OP_s>(bytes);
    return set.enable == 0 || set.protocol != parallelEncode;
}

bool validInventory(const params_s&, const std::byte* bytes) {
    const auto set = as<INVENTORY_OP_s>(bytes);
    if (set.enable == 0 || (set.enable == 1 && set.protocol == parallelEncode)) {
        return true;
    }
    return set.enable == 1 && set.protocol == 1 && set.sel <= 3 && set.session <= 3 && set.target <= 2 &&
           set.initialQ <= 15;
}

enum access_form_e : std::uint8_t { UNKNOWN_FORM, BANK_FORM, WORDS_FORM, LOCK_FORM, OTHER_FORM, CRYPTO_FORM };

// Form of the record by access type, 0 to 15.
constexpr std::array<access_form_e, 16> accessForms{
    UNKNOWN_FORM, BANK_FORM,    BANK_FORM,    OTHER_FORM, LOCK_FORM,   OTHER_FORM,  WORDS_FORM,  BANK_FORM,
    WORDS_FORM,   UNKNOWN_FORM, UNKNOWN_FORM, WORDS_FORM, CRYPTO_FORM, CRYPTO_FORM, CRYPTO_FORM, CRYPTO_FORM};

access_form_e formOf(const ACCESS_OP_s& access) {
    return access.type < accessForms.size() ? accessForms[access.type] : UNKNOWN_FORM;
}

bool modelledAccess(const std::byte* bytes) {
    const auto access = as<ACCESS_OP_s>(bytes);
    return access.enable == 0 || formOf(access) != CRYPTO_FORM;
}

bool validAccess(const params_s&, const std::byte* bytes) {
    const auto access = as<ACCESS_OP_s>(bytes);
    if (access.enable == 0) {
        return true;
    }
    if (access.enable != 1 || access.criteriaIdx > RXE_MAX_ACCESSES) {
        return false;
    }
    switch (formOf(access)) {
        case BANK_FORM:
            return access.membank <= 3;
        case WORDS_FORM:
            return access.membank <= 3 && access.wordCount >= 1 && access.wordCount <= std::size(access.data);
        case LOCK_FORM:  // mask and action, 10 bits each
            return access.payload < (1U << 20);
        case OTHER_FORM:
        case CRYPTO_FORM:
            return true;
        default:
            return false;
    }
}

bool validIdFilter(const params_s&, const std::byte* bytes) {
    const auto filter = as<REPORT_FILTER_ID_s>(bytes);
    return filter.enable == 0 || (filter.enable == 1 && filter.bitLength <= sizeof filter.mask * 8 &&
                                  filter.bitPointer < maxEpcBits);
}

bool validLastReport(const params_s&, const std::byte* bytes) {
    const auto filter = as<REPORT_FILTER_LAST_REPORT_s>(bytes);
    return filter.enable == 0 || (filter.enable == 1 && filter.type <= 1);
}

// The band that UHF RFID is licensed in anywhere, in kHz.
bool validChannel(const params_s&, const std::byte* bytes) {
    const auto channel = as<CHANNEL_s>(bytes);
    return channel.enable == 0 ||
           (channel.enable == 1 && channel.frequency >= 840000 && channel.frequency <= 960000);
}

bool validFields(const params_s&, const std::byte* bytes) {
    return (as<std::uint32_t>(bytes) & ~allFields) == 0;
}

bool validAntennaCount(const params_s&, const std::byte* bytes) {
    const auto count = as<std::uint16_t>(bytes);
    return count >= 1 && count <= 64;
}

// Low byte: 0 off, 1 after no reads, 2 after no unique reads.
bool validTxDelay(const params_s& params, const std::byte* bytes) {
    return (as<std::uint16_t>(bytes) & 0xFF) <= (delaysAfterNoUniques(params.reader) ? 2 : 1);
}

// Quirk: id 0, "all packets off", leaves custom tag packets on. The host needs them and does not
// enable them by id. Their own id does switch them off.
RXE_API_STATUS writePacketEnable(params_s* params, std::uint16_t, const std::byte* bytes) {
    const auto record = as<PACKET_ENABLE_s>(bytes);
    constexpr std::uint32_t tagPackets = 1U << RXE_PACKET_ID(RXE_PACKET_TAG_INFO_CUSTOM);
    if (record.enable > 1 || record.id > maxPacketId || (record.id == 0 && record.enable == 1)) {
        return toApi(STATUS_BAD_RECORD);
    }
    if (record.id == 0) {
        for (auto& word : params->packetBits) {
            word.store(0, std::memory_order_relaxed);
        }
        params->packetBits[0].store(tagPackets, std::memory_order_relaxed);
    } else if (record.enable == 1) {
        params->packetBits[record.id / 32].fetch_or(1U << (record.id % 32), std::memory_order_relaxed);
    } else {
        params->packetBits[record.id / 32].fetch_and(~(1U << (record.id % 32)), std::memory_order_relaxed);
    }
    return RXE_OK;
}

void readPacketBits(const params_s& params, std::uint16_t id, std::byte* record) {
    const std::uint32_t word = params.packetBits[id - RXE_PARAM_PACKET_BITS].load(std::memory_order_relaxed);
    std::memcpy(record, &word, sizeof word);
}

std::byte* recordAt(params_s* params, std::uint16_t id);
const std::byte* recordAt(const params_s& params, std::uint16_t id);

// The two-port records are the first bytes of the four-port ones, up to the second hold time.
// Both address the same stored rule; a write of the two-port record clears the other ports.
template <std::uint16_t FourPorts, std::size_t Shared>
void readTwoPorts(const params_s& params, std::uint16_t, std::byte* record) {
    std::memcpy(record, recordAt(params, FourPorts), Shared);
}

template <std::uint16_t FourPorts, std::size_t Shared, std::size_t Size>
RXE_API_STATUS writeTwoPorts(params_s* params, std::uint16_t, const std::byte* record) {
    std::byte* const rule = recordAt(params, FourPorts);
    std::fill_n(rule, Size, std::byte{});
    std::memcpy(rule, record, Shared);
    return RXE_OK;
}

constexpr std::size_t sharedStop = offsetof(PER_RADIO_STOP_s, reserved14);
constexpr std::size_t sharedStart = sizeof(GPIO_START_s);
static_assert(offsetof(PER_RADIO_STOP2_s, holdTime3) == sharedStop);
static_assert(offsetof(GPIO_START2_s, holdTime3) == sharedStart);

constexpr std::uint16_t u8 = 1, u16 = 2, u32 = 4;

// The liveness probe has no record: callers pass a scratch one of any size.
constexpr std::array ranges{
    range_s{RXE_PARAM_FW_VERSION, 0, 0, sizeof(REL_VERSION_s), GET},
    range_s{RXE_PARAM_LIVENESS, 0, 0, 0, GET},
    range_s{.base = RXE_PARAM_PACKET_ENABLE,
            .first = 0,
            .last = 0,
            .size = sizeof(PACKET_ENABLE_s),
            .access = SET,
            .write = writePacketEnable},
    range_s{.base = RXE_PARAM_RADIO_STOP,
            .first = 0,
            .last = 0,
            .size = sizeof(PER_RADIO_STOP_s),
            .access = RW,
            .read = readTwoPorts<RXE_PARAM_RADIO_STOP2, sharedStop>,
            .write = writeTwoPorts<RXE_PARAM_RADIO_STOP2, sharedStop, sizeof(PER_RADIO_STOP2_s)>},
    range_s{RXE_PARAM_CUSTOM_FIELDS, 0, 0, u32, RW, false, validFields},
    range_s{RXE_PARAM_NUM_ANTENNAS, 0, 0, u16, RW, false, validAntennaCount},
    range_s{RXE_PARAM_MAX_TX_POWER, 0, 0, u32, GET},
    range_s{RXE_PARAM_RADIO_STOP2, 0, 0, sizeof(PER_RADIO_STOP2_s), RW},
    range_s{.base = RXE_PARAM_PACKET_BITS,
            .first = 0,
            .last = RXE_PACKET_BIT_WORDS - 1,
            .size = u32,
            .access = GET,
            .read = readPacketBits},
    range_s{RXE_PARAM_SELECT, 1, RXE_MAX_SELECTS, sizeof(SELECT_OP_s), RW, true, validSelect},
    range_s{RXE_PARAM_INVENTORY, 1, 0xFF, sizeof(INVENTORY_OP_s), RW, true, validInventory,
            modelledInventory},
    range_s{RXE_PARAM_ACCESS, 1, RXE_MAX_ACCESSES, sizeof(ACCESS_OP_s), RW, true, validAccess,
            modelledAccess},
    range_s{RXE_PARAM_OLIO, 1, RXE_MAX_OLIOS, sizeof(OLIO_s), RW, true, validOlio},
    range_s{RXE_PARAM_CHANNEL, 1, RXE_MAX_CHANNELS, sizeof(CHANNEL_s), RW, false, validChannel},
    range_s{RXE_PARAM_HOP_PER_ROUND, 0, 0, u8, RW, false, upTo<1>},
    range_s{RXE_PARAM_HOP_PER_OLIO, 0, 0, u8, GET},
    range_s{RXE_PARAM_DYNAMIC_RANGE, 0, 0, u8, RW, false, upTo<2>},
    range_s{RXE_PARAM_ID_FILTER, 1, RXE_PARAM_AUTORESTART - RXE_PARAM_ID_FILTER - 1,
            sizeof(REPORT_FILTER_ID_s), RW, true, validIdFilter},
    range_s{RXE_PARAM_AUTORESTART, 0, 0, u8, RW, false, upTo<2>},
    range_s{RXE_PARAM_PEAK_THRESHOLD, 0, 0, u8, RW, false, upTo<12>},
    range_s{RXE_PARAM_STATIC_V_DYNAMIC, 0, 0, u8, RW},
    range_s{RXE_PARAM_AAR_HEIGHT, 0, 0, u16, RW},
    range_s{RXE_PARAM_TAG_HEIGHT, 0, 0, u16, RW},
    range_s{RXE_PARAM_MONO_OR_COM, 0, 0, u8, RW, false, upTo<1>},
    range_s{RXE_PARAM_TX_DELAY_INTERVAL, 0, 0, u16, RW, false, validTxDelay},
    range_s{RXE_PARAM_DELAY_AFTER_SELECTS, 0, 0, u16, RW},
    range_s{RXE_PARAM_BLOCK_SIZE, 0, 0, u8, RW},
    range_s{RXE_PARAM_RSSI_THRESHOLD, 0, 0, u8, RW},
    range_s{RXE_PARAM_LAST_REPORT, 0, 0, sizeof(REPORT_FILTER_LAST_REPORT_s), RW, false, validLastReport},
    range_s{RXE_PARAM_CABLE_LOSS, 0, 64, u8, RW},
    range_s{RXE_PARAM_PA_TEMP, 0, 0, u16, GET},
    range_s{RXE_PARAM_AMB_TEMP, 0, 0, u16, GET},
    range_s{RXE_PARAM_ANTENNA_STATE, 0, 0, u16, GET},
    range_s{RXE_PARAM_ANTENNA_CHECK, 0, 0, u8, RW},
    range_s{RXE_PARAM_ECHO, 0, RXE_MAX_CHANNELS, sizeof(AAREchoResults), GET},
    range_s{RXE_PARAM_GPIO_DIR, 0, 0, u8, RW},
    range_s{.base = RXE_PARAM_GPIO_START,
            .first = 0,
            .last = 0,
            .size = sizeof(GPIO_START_s),
            .access = RW,
            .read = readTwoPorts<RXE_PARAM_GPIO_START2, sharedStart>,
            .write = writeTwoPorts<RXE_PARAM_GPIO_START2, sharedStart, sizeof(GPIO_START2_s)>},
    range_s{RXE_PARAM_GPIO_START2, 0, 0, sizeof(GPIO_START2_s), RW},
    // An id space of its own, which only RXE_setNVMParam writes.
    range_s{RXE_NVM_PA_HI_TEMP, 0, 0, u8, NVM},
    range_s{RXE_NVM_AMB_HI_TEMP, 0, 0, u8, NVM},
};

constexpr bool holdsId(const range_s& range, std::uint16_t id) {
    const int offset = id - range.base;
    return (offset >= range.first && offset <= range.last) || (range.whole && offset == 0);
}

// Sorts ids: those of RXE_setNVMParam, which are an id space of their own, come last.
constexpr std::uint32_t placeOf(std::uint16_t id, bool nvm) {
    return id + (nvm ? 0x10000U : 0);
}
constexpr std::uint32_t placeOf(const range_s& range) {
    return placeOf(range.base, (range.access & NVM) != 0);
}

constexpr bool eachEndsBeforeTheNext() {
    return std::ranges::adjacent_find(ranges, [](const range_s& range, const range_s& next) {
               return placeOf(range) + range.last >= placeOf(next);
           }) == ranges.end();
}
static_assert(eachEndsBeforeTheNext(), "findRange searches by halves");

// Where each range's first record lies in params_s::records, and after the
// last range the size of them all.
constexpr auto layOut() {
    std::array<std::size_t, ranges.size() + 1> offsets{};
    for (std::size_t i = 0; i < ranges.size(); ++i) {
        offsets[i + 1] = offsets[i] + (ranges[i].last - ranges[i].first + 1U) * ranges[i].size;
    }
    return offsets;
}
constexpr auto offsets = layOut();

const range_s* findRange(std::uint16_t id, bool nvm) {
    const auto* const next = std::ranges::upper_bound(ranges, placeOf(id, nvm), {},
                                                      [](const range_s& range) { return placeOf(range); });
    if (next == ranges.begin()) {
        return nullptr;
    }
    const range_s& range = *std::prev(next);
    return placeOf(range) + range.last >= placeOf(id, nvm) && holdsId(range, id) ? &range : nullptr;
}

// The base of a range stands for all of its records.
bool addressesWhole(const range_s& range, std::uint16_t id) {
    return range.whole && id == range.base;
}

// The part of all records that belongs to the range.
template <typename Byte>
std::span<Byte> partOf(std::span<Byte> records, const range_s& range) {
    const auto index = static_cast<std::size_t>(&range - ranges.data());
    return records.subspan(offsets[index], offsets[index + 1] - offsets[index]);
}
std::span<std::byte> recordsOf(params_s* params, const range_s& range) {
    return partOf(std::span(params->records), range);
}
std::span<const std::byte> recordsOf(const params_s& params, const range_s& range) {
    return partOf(std::span(params.records), range);
}

// Bytes from the front of the range to the record of `id`, which the range holds.
std::size_t offsetIn(const range_s& range, std::uint16_t id) {
    return static_cast<std::size_t>(id - range.base - range.first) * range.size;
}

std::byte* recordIn(params_s* params, const range_s& range, std::uint16_t id) {
    return recordsOf(params, range).data() + offsetIn(range, id);
}
const std::byte* recordIn(const params_s& params, const range_s& range, std::uint16_t id) {
    return recordsOf(params, range).data() + offsetIn(range, id);
}

std::byte* recordAt(params_s* params, std::uint16_t id) {
    return recordIn(params, *findRange(id, false), id);
}
const std::byte* recordAt(const params_s& params, std::uint16_t id) {
    return recordIn(params, *findRange(id, false), id);
}

// Whether a write would change nothing. Parameters that are more than a stored
// record are never answered from the shadow.
bool repeats(const params_s& params, const range_s& range, std::uint16_t id, const std::byte* record) {
    if (addressesWhole(range, id)) {
        return std::to_integer<int>(*record) == 0 &&
               std::ranges::all_of(recordsOf(params, range),
                                   [](std::byte byte) { return byte == std::byte{}; });
    }
    return range.write == nullptr && std::memcmp(recordIn(params, range, id), record, range.size) == 0;
}

// Checks and stores a record. In this order: answered from the shadow, out of range, not modelled.
RXE_API_STATUS store(params_s* params, const range_s& range, std::uint16_t id, const std::byte* record,
                     bool shadowed = false, bool* answered = nullptr) {
    const std::lock_guard lock(params->mutex);
    RXE_API_STATUS status = RXE_OK;
    if (shadowed && repeats(*params, range, id, record)) {
        *answered = true;
        return RXE_OK;
    }
    if (addressesWhole(range, id)) {
        if (std::to_integer<int>(*record) != 0) {
            return toApi(STATUS_BAD_RECORD);
        }
        const std::span<std::byte> records = recordsOf(params, range);
        std::memset(records.data(), 0, records.size());
    } else if (range.valid != nullptr && !range.valid(*params, record)) {
        return toApi(STATUS_BAD_RECORD);
    } else if (range.modelled != nullptr && !range.modelled(record)) {
        return toApi(STATUS_NOT_MODELLED);
    } else if (range.write != nullptr) {
        status = range.write(params, id, record);
    } else {
        std::memcpy(recordIn(params, range, id), record, range.size);
    }
    params->generation.fetch_add(1, std::memory_order_relaxed);
    return status;
}

// Learns how many antennas there are: the host writes their number, or, when it connects, the
// cable loss of each.
void noteAntennas(params_s* params, std::uint16_t id, const void* record) {
    std::uint16_t told = 0;
    if (id == RXE_PARAM_NUM_ANTENNAS) {
        std::memcpy(&told, record, sizeof told);
        params->toldAntennas.store(told, std::memory_order_relaxed);
    } else if (findRange(id, false)->base == RXE_PARAM_CABLE_LOSS) {
        told = std::max<std::uint16_t>(id - RXE_PARAM_CABLE_LOSS,
                                       params->toldAntennas.load(std::memory_order_relaxed));
        params->toldAntennas.store(told, std::memory_order_relaxed);
    }
}

constexpr std::array<std::uint16_t, 2> nvmIds{RXE_NVM_PA_HI_TEMP, RXE_NVM_AMB_HI_TEMP};

// Stores a record without a check, for what the radio holds after power-up.
template <typename Record>
void preset(params_s* params, unsigned id, const Record& record) {
    std::memcpy(recordAt(params, static_cast<std::uint16_t>(id)), &record, sizeof record);
}

// The hopping table of 47 CFR 15.247: 50 channels of 500 kHz from 902.75 MHz.
void presetChannels(params_s* params) {
    constexpr unsigned count = 50;
    for (unsigned n = 1; n <= count; ++n) {
        preset(params, RXE_PARAM_CHANNEL + n,
               CHANNEL_s{.enable = 1,
                         .reserved1 = {},
                         .frequency = 902750 + (n - 1) * 500,
                         .maxPower = static_cast<std::uint16_t>(params->maxTxPower),
                         .reserved10 = 0});
    }
}

}  // namespace

void resetParams(const scenario_s& scenario, params_s* params) {
    const std::lock_guard lock(params->mutex);
    // What RXE_setNVMParam has written outlives the connection.
    std::array<std::byte, nvmIds.size()> kept{};
    for (std::size_t i = 0; i < nvmIds.size() && !params->records.empty(); ++i) {
        kept[i] = *recordIn(params, *findRange(nvmIds[i], true), nvmIds[i]);
    }
    // Zeros are a disabled record of every kind.
    params->records.assign(offsets.back(), std::byte{});
    for (std::size_t i = 0; i < nvmIds.size(); ++i) {
        *recordIn(params, *findRange(nvmIds[i], true), nvmIds[i]) = kept[i];
    }
    params->maxTxPower = scenario.maxTxPower;
    params->toldAntennas.store(0, std::memory_order_relaxed);
    params->reader = {scenario.world.model, scenario.firmware, scenario.library};
    preset(params, RXE_PARAM_FW_VERSION, scenario.firmware);
    preset(params, RXE_PARAM_CUSTOM_FIELDS, std::uint32_t{RXE_FIELD_EPC});
    preset(params, RXE_PARAM_NUM_ANTENNAS, std::uint16_t{16});
    preset(params, RXE_PARAM_MAX_TX_POWER, static_cast<std::uint32_t>(scenario.maxTxPower));
    preset(params, RXE_PARAM_HOP_PER_OLIO, std::uint8_t{1});
    preset(params, RXE_PARAM_DYNAMIC_RANGE, std::uint8_t{1});
    preset(params, RXE_PARAM_RSSI_THRESHOLD, std::int8_t{-128});
    preset(params, RXE_PARAM_ANTENNA_CHECK, std::uint8_t{1});
    preset(params, RXE_PARAM_GPIO_DIR, std::uint8_t{0xFF});  // a set bit is an input
    presetChannels(params);
    const PACKET_ENABLE_s allOff{};
    writePacketEnable(params, RXE_PARAM_PACKET_ENABLE, reinterpret_cast<const std::byte*>(&allOff));
    params->generation.fetch_add(1, std::memory_order_relaxed);
}

std::span<const std::byte> recordsFrom(const params_s& params, std::uint16_t id) {
    const range_s& range = *findRange(id, false);
    return recordsOf(params, range).subspan(offsetIn(range, id));
}

void publishRecord(params_s* params, std::uint16_t id, const void* record) {
    const range_s& range = *findRange(id, false);
    const std::lock_guard lock(params->mutex);
    std::memcpy(recordIn(params, range, id), record, range.size);
}

std::uint8_t nvmByte(params_s* params, std::uint16_t id) {
    const range_s& range = *findRange(id, true);
    const std::lock_guard lock(params->mutex);
    return std::to_integer<std::uint8_t>(*recordIn(params, range, id));
}

unsigned antennaPorts(const params_s& params) {
    if (params.reader.model == reader_model_e::QDX4400) {
        return arrayElements;
    }
    const unsigned told = params.toldAntennas.load(std::memory_order_relaxed);
    return told == 0 ? maxPorts : std::min<unsigned>(told, maxPorts);
}

RXE_API_STATUS getParam(params_s* params, std::uint16_t id, void* record) {
    const range_s* const range = findRange(id, false);
    if (range == nullptr || addressesWhole(*range, id)) {
        return toApi(STATUS_UNKNOWN_PARAM);
    }
    if (!hasParameter(params->reader, id)) {
        return toApi(STATUS_NOT_SUPPORTED);
    }
    if ((range->access & GET) == 0) {
        return toApi(STATUS_NOT_READABLE);
    }
    const std::lock_guard lock(params->mutex);
    if (range->read != nullptr) {
        std::memset(record, 0, range->size);
        range->read(*params, id, static_cast<std::byte*>(record));
    } else {
        std::memcpy(record, recordIn(params, *range, id), range->size);
    }
    return RXE_OK;
}

RXE_API_STATUS setParam(params_s* params, std::uint16_t id, const void* record, bool shadowed,
                        bool* answered) {
    const range_s* const range = findRange(id, false);
    if (range == nullptr) {
        return toApi(STATUS_UNKNOWN_PARAM);
    }
    if (!hasParameter(params->reader, id)) {
        return toApi(STATUS_NOT_SUPPORTED);
    }
    if ((range->access & SET) == 0) {
        return toApi(STATUS_NOT_WRITABLE);
    }
    const RXE_API_STATUS status =
        store(params, *range, id, static_cast<const std::byte*>(record), shadowed, answered);
    if (status == RXE_OK) {
        noteAntennas(params, id, record);
    }
    return status;
}

RXE_API_STATUS setNvmParam(params_s* params, std::uint16_t id, const void* record) {
    const range_s* const range = findRange(id, true);
    return range == nullptr ? toApi(STATUS_UNKNOWN_PARAM)
                            : store(params, *range, id, static_cast<const std::byte*>(record));
}

}  // namespace rxe
