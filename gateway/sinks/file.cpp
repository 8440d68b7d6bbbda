// SPDX-License-Identifier: MIT
// Type "file": lines in files below one name. The file that is written has ".part" behind its name; when it
// is full or old it is synced and gets its final name, so that a file under a final name is whole:
//
//   tags-20260302T101530.123456Z.jsonl        whole
//   tags-20260302T111530.482913Z.jsonl.part   still written
//
// Entries are confirmed when they are synced, once a second and at each rotation.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <nlohmann/json.hpp>

#include "lines.hpp"
#include "sink.hpp"

namespace {

using namespace std::chrono_literals;
using steady_t = std::chrono::steady_clock;
namespace fs = std::filesystem;

constexpr auto syncEvery = 1s;
constexpr const char* csvHeader = "id,reader,stream,type,time,epc,antenna,rssi,body\n";

// A form of the lines.
struct format_s {
    std::string_view name;
    std::string_view extension;
    std::string_view header;  // of each file
    void (*append)(const entry_s& entry, std::string* text);
};

// RFC 4180: quotation marks around it, and doubled within.
void appendQuoted(std::string_view value, std::string* text) {
    *text += '"';
    for (const char c : value) {
        *text += c;
        if (c == '"') {
            *text += '"';
        }
    }
    *text += '"';
}

void appendJson(const entry_s& entry, std::string* text) {
    *text += entry.body;
    *text += '\n';
}

void appendCloudEvent(const entry_s& entry, std::string* text) {
    *text += structuredEvent(entry);
    *text += '\n';
}

void appendCsv(const entry_s& entry, std::string* text) {
    const std::string id = idOf(entry);
    std::string time;
    for (const attribute_s& attribute : attributesOf(entry)) {
        time = attribute.name == "time" ? attribute.value : time;
    }
    for (const std::string_view value :
         {std::string_view(id), std::string_view(entry.reader), streamName(entry.stream), typeOf(entry),
          std::string_view(time), std::string_view(entry.key), numberMember(entry.body, "\"antenna\":"),
          numberMember(entry.body, "\"peakRssi\":")}) {
        *text += value;
        *text += ',';
    }
    appendQuoted(entry.body, text);
    *text += '\n';
}

constexpr std::array formats{
    format_s{"jsonl", ".jsonl", "", appendJson},
    format_s{"csv", ".csv", csvHeader, appendCsv},
    format_s{"cloudevent", ".jsonl", "", appendCloudEvent},
};

const format_s& formatOf(const std::string& name) {
    return *std::ranges::find(formats, name, &format_s::name);
}

class file_sink_c : public sink_c {
  public:
    explicit file_sink_c(const sink_config_s& config)
        : sink_c({.window = 200'000, .batch = 2'000, .pollWithin = 200ms, .lastBackOff = 5s}),
          path(config.settings.at("path").get<std::string>()),
          format(formatOf(config.settings.value("format", "jsonl"))),
          rotateBytes(config.settings.value("rotateBytes", std::uint64_t{64} << 20)),
          rotateEvery(config.settings.value("rotateEvery", 0.0)),
          keep(config.settings.value("keep", std::size_t{0})) {}

    ~file_sink_c() override { closeFile(); }

    std::optional<failure_s> open() override {
        finishLeftOver();
        return begin();
    }

    std::size_t offer(std::span<const entry_s> entries) override {
        std::string text;
        for (const entry_s& entry : entries) {
            format.append(entry, &text);
        }
        if (const std::string error = writeAll(text); !error.empty()) {
            trouble = error;
            return 0;
        }
        // An overflow comes behind entries whose places are higher.
        first = first == 0 ? entries.front().seq : std::min(first, entries.front().seq);
        last = std::max(last, entries.back().seq);
        hasEntries = true;
        return entries.size();
    }

    poll_s poll() override {
        poll_s result;
        const auto now = steady_t::now();
        if (trouble.empty() && isDue(now)) {
            rotate(&result);
        } else if (trouble.empty() && first != 0 && now - lastSync >= syncEvery) {
            sync(&result);
        }
        if (!trouble.empty()) {
            result.failure = failure_s{std::exchange(trouble, {})};
        }
        return result;
    }

    // The file stays under its name with ".part", for the next start to finish.
    void close() override {
        closeFile();
        first = last = 0;
    }

  private:
    bool isDue(steady_t::time_point now) const {
        const bool isOld = rotateEvery.count() > 0 && now - begun >= rotateEvery;
        return hasEntries && (size >= rotateBytes || isOld);
    }

    void closeFile() {
        if (fd >= 0) {
            ::close(fd);
            fd = -1;
        }
    }

    std::string describe(const std::string& what) const { return what + ": " + std::strerror(errno); }

    std::optional<failure_s> begin() {
        std::string stamp = utcText(nowMicroseconds());
        std::erase_if(stamp, [](char c) { return c == '-' || c == ':'; });
        name = path + "-" + stamp + std::string(format.extension);
        const std::string part = name + ".part";
        fd = ::open(part.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_APPEND | O_CLOEXEC, 0640);
        if (fd < 0) {
            return failure_s{describe(part)};
        }
        size = 0;
        hasEntries = false;
        begun = lastSync = steady_t::now();
        if (const std::string error = writeAll(format.header); !error.empty()) {
            closeFile();
            ::unlink(part.c_str());
            return failure_s{error};
        }
        return std::nullopt;
    }

    // All of it, or nothing and the reason.
    std::string writeAll(std::string_view text) {
        if (!appendWhole(fd, static_cast<off_t>(size), text)) {
            return describe(name + ".part");
        }
        size += text.size();
        return {};
    }

    void sync(poll_s* result) {
        if (::fdatasync(fd) != 0) {
            trouble = describe(name + ".part");
            return;
        }
        lastSync = steady_t::now();
        if (first != 0) {
            result->settled.push_back({first, last});
            first = 0;
        }
    }

    void rotate(poll_s* result) {
        sync(result);
        if (!trouble.empty()) {
            return;
        }
        closeFile();
        if (::rename((name + ".part").c_str(), name.c_str()) != 0) {
            trouble = describe(name);
            return;
        }
        removeOldest();
        if (const std::optional<failure_s> failure = begin()) {
            trouble = failure->text;
        }
    }

    // Files of this sink with one of the two endings, by their names, which is by age.
    std::vector<fs::path> filesWith(const std::string& ending) const {
        std::vector<fs::path> files;
        const std::string begin = fs::path(path).filename().string() + "-";
        const std::string end = std::string(format.extension) + ending;
        std::error_code failure;
        for (const auto& entry : fs::directory_iterator(fs::path(path).parent_path(), failure)) {
            const std::string file = entry.path().filename().string();
            constexpr std::size_t stampLength = std::string_view("20260302T101530.123456Z").size();
            if (file.size() == begin.size() + stampLength + end.size() && file.starts_with(begin) &&
                file.ends_with(end)) {
                files.push_back(entry.path());
            }
        }
        std::ranges::sort(files);
        return files;
    }

    void removeOldest() const {
        std::vector<fs::path> files = filesWith("");
        std::error_code failure;
        for (std::size_t i = 0; keep > 0 && i + keep < files.size(); ++i) {
            fs::remove(files[i], failure);
        }
    }

    // A file that a killed gateway has left is cut behind its last whole line and gets its final name; one
    // without an entry goes.
    void finishLeftOver() const {
        for (const fs::path& part : filesWith(".part")) {
            const int left = ::open(part.c_str(), O_RDWR | O_CLOEXEC);
            const off_t whole = left < 0 ? -1 : wholeLines(left);
            if (whole < 0) {
                continue;
            }
            const bool isEmpty = whole <= static_cast<off_t>(format.header.size());
            const bool isSound = isEmpty || (::ftruncate(left, whole) == 0 && ::fsync(left) == 0);
            ::close(left);
            std::error_code failure;
            if (isEmpty) {
                fs::remove(part, failure);
            } else if (isSound) {
                fs::rename(part, fs::path(part).replace_extension(), failure);
            }
        }
    }

    const std::string path;
    const format_s& format;
    const std::uint64_t rotateBytes;
    const std::chrono::duration<double> rotateEvery;  // 0: by size only
    const std::size_t keep;                           // whole files; 0: all

    int fd = -1;
    std::string name;        // the final one
    std::uint64_t size = 0;  // bytes of whole lines
    bool hasEntries = false;
    steady_t::time_point begun{}, lastSync{};
    std::int64_t first = 0, last = 0;  // written and not synced; 0: none
    std::string trouble;
};

}  // namespace

std::vector<std::string> findFileMistakes(const sink_config_s& config) {
    const fs::path folder = fs::path(config.settings.at("path").get<std::string>()).parent_path();
    std::error_code failure;
    if (!fs::is_directory(folder, failure)) {
        return {"path: " + folder.string() + " is not a folder"};
    }
    if (::access(folder.c_str(), W_OK | X_OK) != 0) {
        return {"path: " + folder.string() + ": " + std::strerror(errno)};
    }
    return {};
}

std::unique_ptr<sink_c> makeFileSink(const sink_config_s& config, sink_context_s) {
    return std::make_unique<file_sink_c>(config);
}
