// SPDX-License-Identifier: MIT
// Sends JSON tag reports, unless the additional-keys database holds them back.
#include <algorithm>

#include "additional_config.hpp"
#include "logger.hpp"
#include "radio.hpp"
#include "radio/tag_account.hpp"
#include "radio_state.hpp"
#include "zmq_intfc.hpp"

std::atomic<std::uint64_t> radio::msgTxCount{0};

std::uint32_t radio::tagMemoryCount = 0;

namespace {

// Whether the additional-keys database holds the report back, because its key was reported
// too recently. A report without a key is not held back.
bool isHeldBack() {
    radio::wasHeldBack = false;
    if (!additional_config::isAddlKeysEnabled.load(std::memory_order_relaxed)) {
        return false;
    }
    static std::string key;  // reused from report to report
    radio::wasHeldBack = makeAddlKey(keyPartsOfReport(), &key) == 0 && report_line(key) == 0;
    if (radio::wasHeldBack && radio::isTraced) {
        radio::traceHeldBack(key);
    }
    return radio::wasHeldBack;
}

}  // namespace

// A suppressed report stays pending; the next completing packet asks the database again.
int send_out_tag_data() {
    if (isHeldBack()) {
        return 0;
    }
    const finished_report_s report = finishReport();
    if (!report.error.empty()) {
        // Nothing may throw into the engine's callback.
        const std::string news = "Tag report dropped: " + std::string(report.error);
        sendNews("error", news.data(), news.size());
        radio::closeTagPacket(radio::fate_e::notText);
    } else {
        const report_header_t header = reportHeader(REPORT_KIND_JSON);
        std::ranges::copy(header, report.bytes.begin());
        const std::string_view message(report.bytes.data(), report.bytes.size());
        const std::string_view text = message.substr(header.size());
        logDebug("radio", " ", text);
        countOne(&radio::msgTxCount);
        const int form = radio::data_analytics_type.load(std::memory_order_relaxed);
        const bool outside = form != DATA_ANALYTICS_OFF;
        const bool spread =
            form == DATA_ANALYTICS_STRING && radio::subscribers.load(std::memory_order_relaxed) > 1;
        radio::closeSentPacket(send_tag_data_message(outside ? message : text, spread, outside), form);
    }
    radio::tagMemoryCount = 0;
    clearReport();
    return 0;
}
