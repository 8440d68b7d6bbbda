// SPDX-License-Identifier: MIT
// The records that have ids: one slot, and lists of the enabled ones.
#include "rxe_intfc/config_json.hpp"

#include <algorithm>
#include <bit>
#include <nlohmann/json.hpp>

#include "rxe_intfc.hpp"
#include "rxe_intfc/config_lists.hpp"
#include "rxe_intfc/parameter_io.hpp"
#include "util.hpp"

namespace {

using nlohmann::json;
using rxe_intfc::failWith;
using rxe_intfc::id_range_s;

// Reads the record of an id after its range check.
template <class Record>
int readSlot(std::string* reply, const id_range_s& range, unsigned base, int id, const char* failure,
             Record* record) {
    if (!rxe_intfc::isIn(range, id)) {
        return failWith(reply, range.unsupported);
    }
    const RXE_API_STATUS status = rxe_intfc::readParameter(base + static_cast<unsigned>(id), record);
    return status == RXE_OK ? 0 : failWith(reply, failure);
}

template <class Record>
int getSlot(std::string* reply, json* out, const id_range_s& range, unsigned base, int id,
            const char* failure, int (*toJson)(const Record*, json*)) {
    Record record{};
    if (readSlot(reply, range, base, id, failure, &record) != 0) {
        return -1;
    }
    *out = {{"id", id}};
    return record.enable != 0 ? toJson(&record, out) : 0;
}

int channel_to_json(const CHANNEL_s* channel, json* out) {
    (*out)["frequency"] = channel->frequency;
    (*out)["maxPower"] = channel->maxPower / 10.0;
    return 0;
}

using slot_getter = int (*)(std::string* reply, json* out, int id);

// The enabled slots of a range under one key. A disabled slot is its id alone.
int listEnabled(std::string* reply, json* out, const id_range_s& range, slot_getter get, const char* key) {
    json list = json::array();
    for (int id = std::max(range.first, 1); id <= range.last; ++id) {
        json slot;
        if (get(reply, &slot, id) != 0) {
            return -1;
        }
        if (slot.size() > 1) {
            list.push_back(std::move(slot));
        }
    }
    (*out)[key] = std::move(list);
    return 0;
}

constexpr const char* olioFailure = "Failure: error getting olio";
constexpr unsigned olioBase = RXE_PARAM_OLIO;

int addOlio(std::string* reply, const OLIO_s& olio, int id, bool verbose, json* list) {
    json entry = {{"id", id}};
    if (olio_to_json(reply, &olio, &entry, verbose) != 0) {
        return -1;
    }
    list->push_back(std::move(entry));
    return 0;
}

}  // namespace

int selectSlot_to_json(const SELECT_OP_s* select, json* out) {
    if (select->enable <= 1) {
        return select_to_json(select, out);
    }
    const auto challenge = std::bit_cast<CHALLENGE_OP_s>(*select);
    return challenge_to_json(&challenge, out);
}

int challenge_to_json(const CHALLENGE_OP_s* challenge, json* out) {
    (*out)["includeResponseLength"] = challenge->includeResponseLength != 0;
    (*out)["immediateResponse"] = challenge->immediateResponse != 0;
    (*out)["cryptoSuiteIndex"] = challenge->cryptoSuiteIndex;
    (*out)["bitLength"] = challenge->bitLength;
    const std::size_t bytes = (challenge->bitLength + std::size_t{7}) / 8;
    std::string message;
    appendHex(challenge->message, std::min(bytes, sizeof(challenge->message)), &message);
    (*out)["message"] = std::move(message);
    return 0;
}

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
    return getSlot(reply, out, rxe_intfc::channelIds, RXE_PARAM_CHANNEL, id, "Failure: error getting channel",
                   channel_to_json);
}

int getSelect(std::string* reply, json* out, int id) {
    return getSlot(reply, out, rxe_intfc::selectIds, RXE_PARAM_SELECT, id, "Failure: error getting select",
                   selectSlot_to_json);
}

int getInventory(std::string* reply, json* out, int id) {
    return getSlot(reply, out, rxe_intfc::inventoryIds, RXE_PARAM_INVENTORY, id,
                   "Failure: error getting inventory", inv_to_json);
}

int getAccess(std::string* reply, json* out, int id) {
    return getSlot(reply, out, rxe_intfc::accessIds, RXE_PARAM_ACCESS, id, "Failure: error getting access",
                   access_to_json);
}

int getIDFilter(std::string* reply, json* out, int id) {
    return getSlot(reply, out, rxe_intfc::filterIds, RXE_PARAM_ID_FILTER, id, "Failure: error getting filter",
                   idFilter_to_json);
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
        if (readSlot(reply, rxe_intfc::olioIds, olioBase, current, olioFailure, &olio) != 0) {
            return -1;
        }
        if (olio.enable == 0) {
            break;
        }
        if (addOlio(reply, olio, current, !all, &list) != 0) {
            return -1;
        }
    }
    (*out)["olios"] = std::move(list);
    return 0;
}

namespace rxe_intfc {

int failWith(std::string* reply, const char* text) {
    *reply = text;
    return -1;
}

int getEnabledOlios(std::string* reply, json* out) {
    return getEnabledOlio(reply, out, 0);
}

int getEnabledSelects(std::string* reply, json* out) {
    json slots;
    if (listEnabled(reply, &slots, selectIds, getSelect, "slots") != 0) {
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
    return listEnabled(reply, out, inventoryIds, getInventory, "inventories");
}

int getEnabledAccesses(std::string* reply, json* out) {
    return listEnabled(reply, out, accessIds, getAccess, "accesses");
}

int getEnabledChannels(std::string* reply, json* out) {
    return listEnabled(reply, out, channelIds, getChannel, "channels");
}

int getEnabledIDFilters(std::string* reply, json* out) {
    return listEnabled(reply, out, filterIds, getIDFilter, "filters");
}

}  // namespace rxe_intfc
