// SPDX-License-Identifier: MIT
// What the radio sends in the mode in force as JSON: queries, selects, accesses.
#include <cstdio>
#include <nlohmann/json.hpp>

#include "mode/defaults.hpp"
#include "mode/record.hpp"
#include "mode/render.hpp"
#include "mode/words.hpp"
#include "util.hpp"

using nlohmann::json;

namespace {

// At least `digits` lower-case hex digits.
std::string hexNumber(std::uint32_t number, int digits) {
    return sprintfStr("%0*x", digits, number);
}

json queryObj(const query_s& query, bool verbose) {
    json out = json::object();
    if (verbose || query.sel != DEFAULT_QUERY_SEL) {
        out[key::sel] = findWord(querySelWords, query.sel);
    }
    out[key::session] = findWord(querySessionWords, query.session);
    if (verbose || query.target != DEFAULT_QUERY_TARGET) {
        out[key::target] = findWord(queryTargetWords, query.target);
    }
    if (verbose || query.tagPopulation != 0) {
        out[key::tagPopulation] = query.tagPopulation;
    }
    return out;
}

// One list as an array, each element built by `build`.
template <class Element>
json listOf(const std::vector<Element>& list, void (*build)(json*, const Element*)) {
    json out = json::array();
    for (const Element& element : list) {
        json value;
        build(&value, &element);
        out.push_back(std::move(value));
    }
    return out;
}

// The flat list, or an array of lists, one for each antenna.
template <class Element>
json listOrLists(const std::vector<Element>& flat, const std::vector<std::vector<Element>>& perAntenna,
                 void (*build)(json*, const Element*)) {
    if (perAntenna.empty()) {
        return listOf(flat, build);
    }
    json out = json::array();
    for (const auto& list : perAntenna) {
        out.push_back(listOf(list, build));
    }
    return out;
}

// The builder of "config" by type of access.
struct access_builder_s {
    access_cmd_type_e type;
    void (*build)(json* config, const ACCESS_CMD_S* access);
};
constexpr std::array accessBuilders{
    access_builder_s{access_cmd_type_e::READ, getIndividualAccessJsonObj_read},
    access_builder_s{access_cmd_type_e::WRITE, getIndividualAccessJsonObj_write},
    access_builder_s{access_cmd_type_e::ACCESS, getIndividualAccessJsonObj_access},
    access_builder_s{access_cmd_type_e::LOCK, getIndividualAccessJsonObj_lock},
    access_builder_s{access_cmd_type_e::KILL, getIndividualAccessJsonObj_kill},
};

}  // namespace

void getQueryJsonObj(json* out, bool verbose) {
    const mode_configuration_s& mode = mode_configuration;
    if (mode.queryList.empty()) {
        *out = queryObj(mode.query, verbose);
        return;
    }
    *out = json::array();
    for (const query_s& query : mode.queryList) {
        out->push_back(queryObj(query, verbose));
    }
}

// ---------------------------------------------------------------- "selects"

void getIndividualSelectJsonObj(json* out, const select_s* select) {
    *out = {{key::target, findWord(selectTargetWords, select->target)},
            {key::action, findWord(selectActionWords(select->target), select->action)},
            {key::membank, findWord(membankWords, select->membank)},
            {key::pointer, select->pointer},
            {key::length, select->length},
            {key::mask, hexStr(select->mask, static_cast<int>(select->mask.size()))}};
    if (select->truncate != 0) {
        (*out)[key::truncate] = select->truncate;
    }
}

void getSelectsJsonObj(json* out) {
    *out = listOrLists(mode_configuration.selectList, mode_configuration.selectListPerAntenna,
                       getIndividualSelectJsonObj);
}

// ---------------------------------------------------------------- "accesses"

void getIndividualAccessJsonObj(json* out, const ACCESS_CMD_S* access) {
    json config = json::object();
    const auto* row = std::ranges::find(accessBuilders, access->type, &access_builder_s::type);
    if (row != accessBuilders.end()) {
        row->build(&config, access);
    }
    *out = {{key::type, findWord(accessTypeWords, access->type)}, {key::config, std::move(config)}};
}

void getIndividualAccessJsonObj_read(json* config, const ACCESS_CMD_S* access) {
    *config = {{key::membank, findWord(membankWords, access->readMembank)},
               {key::wordPointer, access->readWordPointer},
               {key::wordCount, access->readWordCount}};
}

void getIndividualAccessJsonObj_write(json* config, const ACCESS_CMD_S* access) {
    std::string data;
    for (const std::uint16_t word : access->writeData) {
        data += hexNumber(word, 4);
    }
    *config = {{key::membank, findWord(membankWords, access->writeMembank)},
               {key::wordPointer, access->writeWordPointer},
               {key::data, std::move(data)}};
    if (access->writeBlockSize != 0) {
        (*config)[key::blockSize] = access->writeBlockSize;
    }
}

void getIndividualAccessJsonObj_access(json* config, const ACCESS_CMD_S* access) {
    *config = {{key::password, hexNumber(access->accessPassword, 8)}};
}

void getIndividualAccessJsonObj_lock(json* config, const ACCESS_CMD_S* access) {
    json actions = json::array();
    for (const lock_action_s& row : lockActions) {
        if ((access->lockPayload & row.pattern) == row.value) {
            actions.push_back(row.word);
        }
    }
    *config = {{key::actions, std::move(actions)}};
}

void getIndividualAccessJsonObj_kill(json* config, const ACCESS_CMD_S* access) {
    *config = {{key::password, hexNumber(access->killPassword, 8)}};
}

void getAccessesJsonObj(json* out) {
    *out = listOrLists(mode_configuration.accessList, mode_configuration.accessListPerAntenna,
                       getIndividualAccessJsonObj);
}
