// SPDX-License-Identifier: MIT
// The text command "configrxe": from its words to the section that serves them.
#include <algorithm>

#include "configrxe.hpp"
#include "configrxe/config_ids.hpp"
#include "configrxe/config_sections.hpp"
#include "configrxe_words.hpp"
#include "engine_io/parameter_io.hpp"
#include "logger.hpp"
#include "util.hpp"

namespace {

namespace word = vocabulary::configrxe_words;
using namespace rxe_intfc;

// A section: its words, the ids that it takes, and what it does. `ids` is null in a section
// without ids, and where the engine judges each id.
struct section_row_s {
    const word::section_s& section;
    const id_range_s* ids;
    section_step* read;
    section_step* write;
};
constexpr section_row_s sections[] = {
    {word::olio::section, &olioIds, readOlio, writeOlio},
    {word::select::section, &selectIds, readSelect, writeSelect},
    {word::access::section, &accessIds, readAccess, writeAccess},
    {word::id_filter::section, &filterIds, readIDFilter, writeIDFilter},
    {word::inventory::section, &inventoryIds, readInventory, writeInventory},
    {word::packet::section, nullptr, readPacket, writePacket},
    {word::channel::section, &channelIds, readChannel, writeChannel},
    {word::cable_loss::section, nullptr, readCableLoss, writeCableLoss},
    {word::hop_per_round::section, nullptr, readHopPerRound, writeHopPerRound},
    {word::tag_info_fields::section, nullptr, readTagInfoFields, writeTagInfoFields},
    {word::stop_conditions::section, nullptr, readStopConditions, writeStopConditions},
    {word::start_conditions::section, nullptr, readStartConditions, writeStartConditions},
    {word::report_filter::section, nullptr, readLastReportFilter, writeLastReportFilter},
    {word::tx_delay_interval::section, nullptr, readTxDelayInterval, writeTxDelayInterval},
    {word::aar_height::section, nullptr, readAARHeight, writeAARHeight},
    {word::tag_height::section, nullptr, readTagHeight, writeTagHeight},
    {word::static_v_dynamic::section, nullptr, readStaticVDynamic, writeStaticVDynamic},
};
static_assert(std::ranges::equal(
                  sections, word::sections, {}, [](const section_row_s& row) { return row.section.word; },
                  &word::section_s::word),
              "each section that the client offers is served");

bool isIdRefused(const section_row_s& row, const section_request_s& request) {
    // Id 0 passes in a write with "disable" alone: it stands for the whole range.
    const bool wholeRange = request.id == 0 && saysDisable(request);
    return row.ids != nullptr && !wholeRange && !isIn(*row.ids, request.id);
}

void serve(const section_row_s& row, const section_request_s& request) {
    const bool hasId = row.section.id != word::id_e::none;
    if (isIdRefused(row, request)) {
        *request.reply = row.ids->unsupported;
    } else if (request.words.empty()) {
        row.read(request);
    } else {
        logInfo(unit, " setting ", row.section.word, hasId ? sprintfStr(" %d", request.id) : "");
        row.write(request);
    }
}

// configrxe custom <section> [<id>] ...
constexpr std::size_t sectionIndex = 2;

// An unknown section changes nothing and leaves the reply at "Success".
void handleCustomRequest(const std::vector<std::string>& tokens, std::string* reply) {
    if (tokens.size() <= sectionIndex) {
        getFullCustomConfig(reply);
        return;
    }
    const auto* row = std::ranges::find(sections, tokens[sectionIndex],
                                        [](const section_row_s& each) { return each.section.word; });
    if (row == std::end(sections)) {
        return;
    }
    section_request_s request{row->section, 0, {}, reply};
    auto next = tokens.begin() + sectionIndex + 1;
    if (row->section.id != word::id_e::none) {
        if (next == tokens.end()) {
            *reply = "Failure: need more parameters";
            return;
        }
        request.id = static_cast<int>(numberOf(*next++, row->section.id == word::id_e::hex));
    }
    request.words.assign(next, tokens.end());
    serve(*row, request);
}

}  // namespace

int configRXEHandler(std::vector<std::string>* tokens, std::string* reply) {
    *reply = "Success";
    if (tokens->size() < 2) {
        *reply = "Failure: command requires additional parameters";
    } else if ((*tokens)[1] == word::custom) {
        handleCustomRequest(*tokens, reply);
    } else if ((*tokens)[1] == word::shadow) {
        return handleShadowRequest(tokens, reply);
    } else {
        *reply = "Failure: command not supported";
    }
    return 0;
}
