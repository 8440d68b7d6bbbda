// SPDX-License-Identifier: MIT
// "query": the parameters of the Gen2 Query (EPC Gen2, 6.3.2.12.2.1), once or for each antenna.
#include <limits>
#include <nlohmann/json.hpp>

#include "mode/defaults.hpp"
#include "mode/engine_records.hpp"
#include "mode/parser.hpp"
#include "mode/record.hpp"

using nlohmann::json;

namespace {

// The place of a query's parameters in `params`, from 1; they are appended when they are new.
std::uint8_t inventoryParamIdOf(const query_s& query, std::vector<c1g2_info_s>* params) {
    const c1g2_info_s wanted{query.sel, query.session, query.target,
                             initialQForPopulation(query.tagPopulation)};
    const auto found = std::ranges::find(*params, wanted);
    const auto id = static_cast<std::uint8_t>(found - params->begin() + 1);
    if (found == params->end()) {
        params->push_back(wanted);
    }
    return id;
}

}  // namespace

int parseQuery(const json* root, mode_configuration_s* mode, std::string* reply) {
    reply->clear();
    json value;
    if (const int result = getObjectOrArray(root, key::query, &value, reply); result != keyParsed) {
        return result;
    }
    if (value.is_object()) {
        return parseQuerySingleValue(&value, &mode->query, reply);
    }
    for (const json& element : value) {
        query_s query;
        if (parseQuerySingleValue(&element, &query, reply) != keyParsed) {
            return keyRefused;
        }
        query.inventoryParamId = inventoryParamIdOf(query, &mode->inventoryParams);
        mode->queryList.push_back(query);
    }
    return keyParsed;
}

// Quirk: an absent key gets the default of all modes, and not that of the mode type: session S1 in
// a mode of type BEARING too.
int parseQuerySingleValue(const json* value, query_s* query, std::string* reply) {
    if (!value->is_object()) {
        return refuse(reply, "Failure: mode json payload mode \"query\" must have an object value");
    }
    query_s parsed{
        .sel = DEFAULT_QUERY_SEL, .session = DEFAULT_QUERY_SESSION, .target = DEFAULT_QUERY_TARGET};
    const auto optional = [reply](int result) { return optionalKey(result, reply) != keyRefused; };
    if (!optional(getJsonWord(value, key::sel, querySelWords, &parsed.sel, reply)) ||
        !optional(getJsonWord(value, key::session, querySessionWords, &parsed.session, reply)) ||
        !optional(getJsonWord(value, key::target, queryTargetWords, &parsed.target, reply)) ||
        !optional(getJsonValue(value, key::tagPopulation, &parsed.tagPopulation, reply, 0,
                               std::numeric_limits<std::uint32_t>::max()))) {
        return keyRefused;
    }
    *query = parsed;
    return keyParsed;
}
