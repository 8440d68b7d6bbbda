// SPDX-License-Identifier: MIT
#include "metrics.hpp"

#include <sys/resource.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <filesystem>
#include <fstream>

#include "event.hpp"
#include "fates.hpp"
#include "intake.hpp"

namespace {

using nlohmann::json;
using prometheus::ClientMetric;
using prometheus::MetricFamily;
using prometheus::MetricType;
using labels_t = std::vector<ClientMetric::Label>;

constexpr double thousand = 1e3, million = 1e6, percent = 100.0;

// Families in the order in which they were first named.
class families_c {
  public:
    void counter(const char* name, const char* help, double value, labels_t labels = {}) {
        add(MetricType::Counter, name, help, value, std::move(labels));
    }
    void gauge(const char* name, const char* help, double value, labels_t labels = {}) {
        add(MetricType::Gauge, name, help, value, std::move(labels));
    }
    std::vector<MetricFamily> take() { return std::move(families); }

  private:
    void add(MetricType type, const char* name, const char* help, double value, labels_t labels) {
        auto family = std::ranges::find(families, name, &MetricFamily::name);
        if (family == families.end()) {
            family =
                families.insert(families.end(), {.name = name, .help = help, .type = type, .metric = {}});
        }
        ClientMetric& metric = family->metric.emplace_back();
        metric.label = std::move(labels);
        (type == MetricType::Counter ? metric.counter.value : metric.gauge.value) = value;
    }

    std::vector<MetricFamily> families;
};

// A member of the account that is shown as it is.
struct row_s {
    const char* member;
    MetricType type;
    const char* name;
    const char* help;
};

constexpr MetricType counting = MetricType::Counter, measured = MetricType::Gauge;

constexpr std::array sourceRows{
    row_s{"heard", counting, "tarnwick_source_heard_total", "Reports and events that came"},
    row_s{"taken", counting, "tarnwick_source_taken_total", "Of these, those that the spool took"},
    row_s{"refused", counting, "tarnwick_source_refused_total",
          "Of these, those that were dropped while the disk and the memory were full"},
    row_s{"notReports", counting, "tarnwick_source_invalid_frames_total",
          "Frames that were neither report nor event"},
    row_s{"restarts", counting, "tarnwick_source_restarts_total", "Restarts of the daemon that were noticed"},
    row_s{"gaps", counting, "tarnwick_source_gaps_total", "Gaps in the numbers of the reports"},
    // A late report takes one away, so it is not a counter.
    row_s{"missing", measured, "tarnwick_source_missing_reports", "Reports that never came"},
};

constexpr std::array sinkRows{
    row_s{"taken", counting, "tarnwick_sink_taken_total", "Entries for the sink that the spool took"},
    row_s{"confirmed", counting, "tarnwick_sink_confirmed_total", "Entries that the receiver has"},
    row_s{"setAside", counting, "tarnwick_sink_set_aside_total",
          "Entries that the receiver refused for good"},
    row_s{"dropped", counting, "tarnwick_sink_dropped_total", "Entries that overflow took from the sink"},
    row_s{"delivered", counting, "tarnwick_sink_delivered_total",
          "Entries handed to the receiver, repeats included"},
    row_s{"retried", counting, "tarnwick_sink_retries_total", "Entries handed to the receiver again"},
    row_s{"pending", measured, "tarnwick_sink_pending_entries", "Entries that wait for the receiver"},
    row_s{"inFlight", measured, "tarnwick_sink_in_flight_entries", "Entries sent and not confirmed"},
    row_s{"oldestAge", measured, "tarnwick_sink_lag_seconds", "Age of the oldest entry that waits"},
};

constexpr std::array presenceRows{
    row_s{"present", measured, "tarnwick_presence_present_tags", "Tags that are present"},
    row_s{"arrived", counting, "tarnwick_presence_arrived_total", "Arrivals of tags"},
    row_s{"moved", counting, "tarnwick_presence_moved_total", "Moves of tags between antennas"},
    row_s{"departed", counting, "tarnwick_presence_departed_total", "Departures of tags"},
    row_s{"early", counting, "tarnwick_presence_early_departures_total",
          "Departures because too many tags were present"},
};

constexpr std::array heartbeatRows{
    row_s{"numTagReads", counting, "tarnwick_daemon_tag_reads_total", "Tag reads before any filter"},
    row_s{"numRadioPacketsRxed", counting, "tarnwick_daemon_radio_packets_total",
          "Packets from the radio engine"},
    row_s{"numDataMessagesTxed", counting, "tarnwick_daemon_data_messages_total",
          "Messages with JSON reports"},
    row_s{"numErrors", counting, "tarnwick_daemon_errors_total", "Errors that the daemon logged"},
    row_s{"numWarnings", counting, "tarnwick_daemon_warnings_total", "Warnings that the daemon logged"},
};

std::optional<double> numberIn(const json& object, const char* key) {
    const auto member = object.find(key);
    return member != object.end() && member->is_number() ? std::optional(member->get<double>())
                                                         : std::nullopt;
}

std::string wordIn(const json& object, const char* key) {
    const auto member = object.find(key);
    return member != object.end() && member->is_string() ? member->get<std::string>() : std::string();
}

const json& objectIn(const json& object, const char* key) {
    static const json none = json::object();
    const auto member = object.is_object() ? object.find(key) : object.end();
    return member != object.end() && member->is_object() ? *member : none;
}

template <class Rows>
void addRows(const Rows& rows, const json& object, const labels_t& labels, families_c* out) {
    for (const row_s& row : rows) {
        if (const std::optional<double> value = numberIn(object, row.member)) {
            row.type == counting ? out->counter(row.name, row.help, *value, labels)
                                 : out->gauge(row.name, row.help, *value, labels);
        }
    }
}

void addStatus(const json& status, families_c* out) {
    for (const json& source : status.at("sources")) {
        addRows(sourceRows, source, {{"reader", wordIn(source, "reader")}}, out);
    }
    for (const json& sink : status.at("sinks")) {
        const labels_t labels{{"sink", wordIn(sink, "name")}};
        addRows(sinkRows, sink, labels, out);
        out->gauge("tarnwick_sink_up", "1 while the sink is connected",
                   wordIn(sink, "state") == "down" ? 0 : 1, labels);
    }
    const json& spool = objectIn(status, "spool");
    out->gauge("tarnwick_spool_entries", "Entries in the spool", numberIn(spool, "entries").value_or(0));
    out->gauge("tarnwick_spool_payload_bytes", "Bytes of the entries in the spool",
               numberIn(spool, "bytes").value_or(0));
    out->gauge("tarnwick_spool_writable", "1 while the spool can be written",
               wordIn(spool, "trouble").empty() ? 1 : 0);
    addRows(presenceRows, objectIn(status, "presence"), {}, out);
}

// The array reader, which has elements from 0 on in place of antennas, may come to have thousands of beams:
// their sum is "other".
void addReadsByAntenna(const std::string& reader, const json& counts, bool isArray, families_c* out) {
    constexpr const char* name = "tarnwick_daemon_antenna_tag_reads_total";
    constexpr const char* help = "Tag reads before any filter, by antenna or beam";
    std::vector<std::pair<int, double>> antennas;
    for (const auto& [text, count] : counts.items()) {
        int antenna = 0;
        const auto parsed = std::from_chars(text.data(), text.data() + text.size(), antenna);
        if (parsed.ec == std::errc() && parsed.ptr == text.data() + text.size() && count.is_number()) {
            antennas.emplace_back(antenna, count.get<double>());
        }
    }
    std::ranges::sort(antennas);
    if (isArray || antennas.size() > read_rates_c::mostAntennas) {
        double sum = 0.0;
        for (const auto& [antenna, count] : antennas) {
            sum += count;
        }
        antennas.clear();
        out->counter(name, help, sum, {{"reader", reader}, {"antenna", "other"}});
    }
    for (const auto& [antenna, count] : antennas) {
        out->counter(name, help, count, {{"reader", reader}, {"antenna", std::to_string(antenna)}});
    }
}

void addHeartbeat(const std::string& reader, std::int64_t at, const json& data, families_c* out) {
    const labels_t labels{{"reader", reader}};
    out->gauge("tarnwick_heartbeat_timestamp_seconds", "When the last heartbeat came, since 1970",
               static_cast<double>(at) / thousand, labels);
    addRows(heartbeatRows, data, labels, out);
    addReadsByAntenna(reader, objectIn(data, "numTagReadsPerAntenna"),
                      objectIn(data, "antennas").contains("0"), out);
    if (const std::int64_t uptime = uptimeOf(data.dump(-1, ' ', false, json::error_handler_t::replace));
        uptime >= 0) {
        out->gauge("tarnwick_daemon_uptime_seconds", "Since the start of the daemon",
                   static_cast<double>(uptime), labels);
    }
    constexpr double noAnswer = -273.0;
    for (const char* sensor : {"ambient", "pa"}) {
        const std::optional<double> value = numberIn(objectIn(data, "temperature"), sensor);
        if (value && *value > noAnswer) {
            out->gauge("tarnwick_daemon_temperature_celsius", "Temperature of the reader", *value,
                       {{"reader", reader}, {"sensor", sensor}});
        }
    }
    std::size_t shown = 0;
    for (const auto& [port, state] : objectIn(data, "antennas").items()) {
        if (++shown <= read_rates_c::mostAntennas) {
            out->gauge("tarnwick_daemon_antenna_connected", "1 while the antenna or element is connected",
                       state == "connected" ? 1 : 0, {{"reader", reader}, {"antenna", port}});
        }
    }
    out->gauge("tarnwick_daemon_radio_connected", "1 while the radio engine is connected",
               wordIn(data, "radioConnection") == "connected" ? 1 : 0, labels);
    out->gauge("tarnwick_daemon_radio_active", "1 while the radio reads",
               wordIn(data, "radioActivity") == "active" ? 1 : 0, labels);
    if (const auto load = numberIn(data, "cpuUtilization")) {
        out->gauge("tarnwick_daemon_cpu_ratio", "Of one processor, since the last heartbeat", *load / percent,
                   labels);
    }
    if (const auto load = numberIn(data, "ramUtilization")) {
        out->gauge("tarnwick_daemon_memory_ratio", "Peak resident memory, of the machine's", *load / percent,
                   labels);
    }
}

void addAccount(const std::string& reader, const daemon_account_s& own, families_c* out) {
    const labels_t labels{{"reader", reader}};
    out->gauge("tarnwick_daemon_up", "1 when the daemon has answered the last request",
               own.trouble.empty() ? 1 : 0, labels);
    if (!own.trouble.empty() || !own.account.is_object()) {
        return;
    }
    if (const auto packets = numberIn(own.account, "tagPackets")) {
        out->counter("tarnwick_daemon_tag_packets_total", "Tag packets from the radio", *packets, labels);
    }
    const json& fates = objectIn(own.account, "fates");
    for (const vocabulary::fate_s& fate : vocabulary::fates) {
        const std::string name(fate.name);
        if (const auto count = numberIn(fates, name.c_str())) {
            out->counter("tarnwick_daemon_tag_packet_fates_total", "What became of the tag packets", *count,
                         {{"reader", reader}, {"fate", name}});
        }
    }
    if (const auto pending = numberIn(fates, "pending")) {
        out->gauge("tarnwick_daemon_pending_tag_packets", "Tag packets that have no fate yet", *pending,
                   labels);
    }
    if (const auto unheard = numberIn(own.account, "unheard")) {
        out->counter("tarnwick_daemon_unheard_reports_total", "Reports that nobody was connected to hear",
                     *unheard, labels);
    }
    if (const auto listeners = numberIn(own.account, "listeners")) {
        out->gauge("tarnwick_daemon_listeners", "Who is connected to hear reports", *listeners, labels);
    }
}

double secondsOf(const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / million;
}

const double startedAt = static_cast<double>(nowMicroseconds()) / million;  // s since 1970

void addProcess(families_c* out) {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    out->counter("process_cpu_seconds_total", "Processor time, user and system",
                 secondsOf(usage.ru_utime) + secondsOf(usage.ru_stime));
    double virtualPages = 0.0, residentPages = 0.0;
    std::ifstream("/proc/self/statm") >> virtualPages >> residentPages;
    const auto pageSize = static_cast<double>(sysconf(_SC_PAGESIZE));
    out->gauge("process_virtual_memory_bytes", "Virtual memory", virtualPages * pageSize);
    out->gauge("process_resident_memory_bytes", "Resident memory", residentPages * pageSize);
    std::error_code ignored;
    const std::filesystem::directory_iterator descriptors("/proc/self/fd", ignored);
    out->gauge("process_open_fds", "Open descriptors",
               static_cast<double>(std::distance(begin(descriptors), end(descriptors))));
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    out->gauge("process_max_fds", "Descriptors that may be open", static_cast<double>(limit.rlim_cur));
    out->gauge("process_start_time_seconds", "When the gateway started, since 1970", startedAt);
}

}  // namespace

std::vector<MetricFamily> collectMetrics(const picture_numbers_s& picture, const http_numbers_s& http) {
    families_c out;
    out.gauge("tarnwick_gateway_build_info", "Always 1", 1, {{"version", TARNWICK_VERSION}});
    const auto nameOf = [&](std::size_t reader) {
        return reader < picture.readers.size() ? picture.readers[reader] : std::string();
    };
    for (const auto& [name, count] : picture.reports) {
        out.counter("tarnwick_reports_total", "Reports that came, by antenna or beam",
                    static_cast<double>(count), {{"reader", nameOf(name.reader)}, {"antenna", name.antenna}});
    }
    if (picture.status) {
        addStatus(*picture.status, &out);
    }
    for (const auto& [reader, heartbeat] : picture.heartbeats) {
        addHeartbeat(nameOf(reader), heartbeat.first, heartbeat.second, &out);
    }
    for (const auto& [name, count] : picture.alarms) {
        out.counter("tarnwick_alarms_total", "Alarms that came", static_cast<double>(count),
                    {{"reader", nameOf(name.first)}, {"severity", name.second}});
    }
    for (const auto& [reader, own] : picture.accounts) {
        addAccount(reader, own, &out);
    }
    out.gauge("tarnwick_page_tags", "Tags that the live page knows", static_cast<double>(picture.tags));
    out.counter("tarnwick_page_unseen_reports_total", "Reports that the live page missed",
                static_cast<double>(picture.unseen));
    out.counter("tarnwick_http_requests_total", "Requests that were answered",
                static_cast<double>(http.requests));
    out.counter("tarnwick_http_refused_requests_total", "Of these, those that were refused",
                static_cast<double>(http.refused));
    out.counter("tarnwick_http_cut_connections_total", "Connections that were closed before their time",
                static_cast<double>(http.cut));
    out.gauge("tarnwick_http_connections", "Open connections", static_cast<double>(http.connections));
    out.gauge("tarnwick_http_streams", "Open streams", static_cast<double>(http.streams));
    addProcess(&out);
    return out.take();
}
