// SPDX-License-Identifier: MIT
// The records that have ids: one slot, and lists of the enabled ones.
#include "configrxe/config_json.hpp"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "configrxe.hpp"
#include "configrxe/config_lists.hpp"
#include "engine_io/olios.hpp"
#include "engine_io/parameter_io.hpp"
#include "engine_io/records_json.hpp"
#include "util.hpp"

namespace {

using nlohmann::json;
using rxe_intfc::failWith;
using rxe_intfc::id_range_s;

int channel_to_json(const CHANNEL_s* channel, json* out) {
    (*out)["frequency"] = channel->frequency;
    (*out)["maxPower"] = channel->maxPower / 10.0;
    return 0;
}

// The records of one kind: their ids, where they stand, and how they are told.
template <class Record>
struct slots_s {
    const id_range_s& range;
    unsigned base;
    const char* failure;  // of a read
    int (*toJson)(const Record* record, json* out);
};
constexpr slots_s<CHANNEL_s> channelSlots{rxe_intfc::channelIds, RXE_PARAM_CHANNEL,
                                          "Failure: error getting channel", channel_to_json};
constexpr slots_s<SELECT_OP_s> selectSlots{rxe_intfc::selectIds, RXE_PARAM_SELECT,
                                           "Failure: error getting select", selectSlot_to_json};
constexpr slots_s<INVENTORY_OP_s> inventorySlots{rxe_intfc::inventoryIds, RXE_PARAM_INVENTORY,
                                                 "Failure: error getting inventory", inv_to_json};
constexpr slots_s<ACCESS_OP_s> accessSlots{rxe_intfc::accessIds, RXE_PARAM_ACCESS,
                                           "Failure: error getting access", access_to_json};
constexpr slots_s<REPORT_FILTER_ID_s> filterSlots{rxe_intfc::filterIds, RXE_PARAM_ID_FILTER,
                                                  "Failure: error getting filter", idFilter_to_json};

template <class Record>
int readSlot(std::string* reply, const slots_s<Record>& slots, int id, Record* record) {
    const RXE_API_STATUS status = rxe_intfc::readParameter(slots.base + static_cast<unsigned>(id), record);
    return status == RXE_OK ? 0 : failWith(reply, slots.failure);
}

template <class Record>
int getSlot(std::string* reply, json* out, int id, const slots_s<Record>& slots) {
    Record record{};
    if (!rxe_intfc::isIn(slots.range, id)) {
        return failWith(reply, slots.range.unsupported);
    }
    if (readSlot(reply, slots, id, &record) != 0) {
        return -1;
    }
    *out = json::object();
    (*out)["id"] = id;
    return record.enable != 0 ? slots.toJson(&record, out) : 0;
}

// The enabled slots of a range under one key.
template <class Record>
int listEnabled(std::string* reply, json* out, const slots_s<Record>& slots, const char* key) {
    json list = json::array();
    for (int id = std::max(slots.range.first, 1); id <= slots.range.last; ++id) {
        Record record{};
        if (readSlot(reply, slots, id, &record) != 0) {
            return -1;
        }
        if (record.enable != 0) {
            json& slot = list.emplace_back(json::object());
            slot["id"] = id;
            slots.toJson(&record, &slot);
        }
    }
    (*out)[key] = std::move(list);
    return 0;
}

// How an olio is told depends on how many are asked for; see getEnabledOlio.
constexpr slots_s<OLIO_s> olioSlots{rxe_intfc::olioIds, RXE_PARAM_OLIO, "Failure: error getting olio",
                                    nullptr};

}  // namespace

// A last byte of which the mask has only some bits is left out.
int idFilter_to_json(const REPORT_FILTER_ID_s* filter, json* out) {
    (*out)["bitPointer"] = filter->bitPointer;
    (*out)["bitLength"] = filter->bitLength;
    std::string mask;
    appendHex(filter->mask, std::min<std::size_t>(filter->bitLength / 8, sizeof(filter->mask)), &mask);
    (*out)["mask"] = std::move(mask);
    return 0;
}

int getChannel(std::string* reply, json* out, int id) {
    return getSlot(reply, out, id, channelSlots);
}

int getSelect(std::string* reply, json* out, int id) {
    return getSlot(reply, out, id, selectSlots);
}

int getInventory(std::string* reply, json* out, int id) {
    return getSlot(reply, out, id, inventorySlots);
}

int getAccess(std::string* reply, json* out, int id) {
    return getSlot(reply, out, id, accessSlots);
}

int getIDFilter(std::string* reply, json* out, int id) {
    return getSlot(reply, out, id, filterSlots);
}

int getEnabledOlio(std::string* reply, json* out, int id) {
    const bool all = id == 0;
    if (!all && !rxe_intfc::isIn(rxe_intfc::olioIds, id)) {
        return failWith(reply, rxe_intfc::olioIds.unsupported);
    }
    const int last = all ? rxe_intfc::olioIds.last - 1 : id;
    json list = json::array();
    for (int current = all ? rxe_intfc::olioIds.first : id; current <= last; ++current) {
        OLIO_s olio{};
        if (readSlot(reply, olioSlots, current, &olio) != 0) {
            return -1;
        }
        if (olio.enable == 0) {
            break;
        }
        json& entry = list.emplace_back(json::object());
        entry["id"] = current;
        if (olio_to_json(reply, &olio, &entry, !all) != 0) {
            return -1;
        }
    }
    (*out)["olios"] = std::move(list);
    return 0;
}

namespace rxe_intfc {

int getEnabledOlios(std::string* reply, json* out) {
    return getEnabledOlio(reply, out, 0);
}

int getEnabledSelects(std::string* reply, json* out) {
    json slots;
    if (listEnabled(reply, &slots, selectSlots, "slots") != 0) {
        return -1;
    }
    (*out)["selects"] = json::array();
    (*out)["challenges"] = json::array();
    for (json& slot : slots["slots"]) {
        const char* key = slot.contains("cryptoSuiteIndex") ? "challenges" : "selects";
        (*out)[key].push_back(std::move(slot));
    }
    return 0;
}

int getEnabledInventories(std::string* reply, json* out) {
    return listEnabled(reply, out, inventorySlots, "inventories");
}

int getEnabledAccesses(std::string* reply, json* out) {
    return listEnabled(reply, out, accessSlots, "accesses");
}

int getEnabledChannels(std::string* reply, json* out) {
    return listEnabled(reply, out, channelSlots, "channels");
}

int getEnabledIDFilters(std::string* reply, json* out) {
    return listEnabled(reply, out, filterSlots, "filters");
}

}  // namespace rxe_intfc
