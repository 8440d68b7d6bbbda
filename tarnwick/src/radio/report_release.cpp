// SPDX-License-Identifier: MIT
// The one way by which every JSON tag report leaves.
#include <cstring>
#include <memory>
#include <nlohmann/json.hpp>
#include <vector>

#include "additional_config.hpp"
#include "logger.hpp"
#include "radio.hpp"
#include "radio_state.hpp"
#include "zmq_intfc.hpp"

std::atomic<std::uint64_t> msgTxCount{0};

std::uint32_t tagMemoryCount = 0;

namespace {

// Where the serialiser writes. It hands over a report in some hundred pieces, most
// of one to four bytes, so the common case is a bare copy: std::string would keep
// its terminator up to date for each of them.
class report_text final : public nlohmann::detail::output_adapter_protocol<char> {
  public:
    void write_character(char c) override { write_characters(&c, 1); }
    void write_characters(const char* s, std::size_t length) override {
        if (length > buffer_.size() - used_) {
            buffer_.resize(2 * (used_ + length));
        }
        std::memcpy(buffer_.data() + used_, s, length);
        used_ += length;
    }
    void clear() { used_ = 0; }
    [[nodiscard]] std::string_view view() const { return {buffer_.data(), used_}; }

  private:
    std::vector<char> buffer_ = std::vector<char>(1024);
    std::size_t used_ = 0;
};

// The parts of the serialiser are not the library's public face.
static_assert(NLOHMANN_JSON_VERSION_MAJOR == 3 && NLOHMANN_JSON_VERSION_MINOR == 11);

// The JSON library's own serialiser as dump() sets it up, kept alive over one
// text. dump() would make both anew for each report. Engine thread.
struct report_writer_s {
    std::shared_ptr<report_text> text = std::make_shared<report_text>();
    nlohmann::detail::serializer<nlohmann::json> serializer{text, ' ',
                                                            nlohmann::json::error_handler_t::strict};
};

// Appends the compact text; the pieces between the values were made by the same
// serialiser when the shape of the report was new.
void writeReport(report_writer_s* writer) {
    const std::span<const report_piece_s> layout = pendingReportLayout();
    if (layout.empty()) {
        writer->serializer.dump(pendingReport(), false, false, 0);
        return;
    }
    for (const report_piece_s& piece : layout) {
        writer->text->write_characters(piece.before.data(), piece.before.size());
        if (piece.value != nullptr) {
            writer->serializer.dump(*piece.value, false, false, 0);
        }
    }
}

// False, and news for the main thread, when a text of the report is no valid
// UTF-8: nothing may throw into the engine's callback.
bool appendReport(report_writer_s* writer) {
    try {
        writeReport(writer);
        return true;
    } catch (const nlohmann::json::exception& failure) {
        const std::string news = std::string("Tag report dropped: ") + failure.what();
        sendNews("error", news.data(), news.size());
        return false;
    }
}

// Whether the additional-keys database holds the report back: its key was reported
// too recently. A report that has no key leaves unfiltered.
bool isHeldBack() {
    static std::string key;  // reused from report to report
    return isAddlKeysEnabled.load(std::memory_order_relaxed) &&
           parse_json_for_addl_key(&pendingReport(), &key) == 0 && report_line(key) == 0;
}

}  // namespace

// A report that is held back stays pending: whatever completes it next asks again,
// and the next tag packet replaces it.
int send_out_tag_data() {
    if (isHeldBack()) {
        return 0;
    }
    static report_writer_s writer;
    writer.text->clear();
    const int form = data_analytics_type.load(std::memory_order_relaxed);
    if (form != DATA_ANALYTICS_OFF) {
        const report_header_t header = reportHeader(REPORT_KIND_JSON);
        writer.text->write_characters(header.data(), header.size());
    }
    const std::size_t headerBytes = writer.text->view().size();
    if (appendReport(&writer)) {
        const std::string_view message = writer.text->view();
        logDebug("radio", " ", message.substr(headerBytes));
        msgTxCount.fetch_add(1, std::memory_order_relaxed);
        const bool spread = form == DATA_ANALYTICS_STRING && subscribers.load(std::memory_order_relaxed) > 1;
        send_tag_data_message(message, spread, form != DATA_ANALYTICS_OFF);
    }
    tagMemoryCount = 0;
    clearReport();
    return 0;
}
