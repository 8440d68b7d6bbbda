// SPDX-License-Identifier: MIT
// The inputs of the client: replies and frames of the daemon, a person's documents and words.
//
// Nothing here opens a socket: the calls of ZeroMQ go to the functions at the end.
#include "targets.hpp"

#include <signal.h>
#include <zmq.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "twctl/boot/boot_file.hpp"
#include "twctl/boot/settings.hpp"
#include "twctl/commands.hpp"
#include "twctl/decoding.hpp"
#include "twctl/document.hpp"
#include "twctl/exit_status.hpp"
#include "twctl/json_commands.hpp"
#include "twctl/live_table.hpp"
#include "twctl/requests.hpp"
#include "twctl/status.hpp"
#include "twctl/tag_record.hpp"
#include "twctl/watch.hpp"
#include "twctl/why/rules.hpp"
#include "twctl/words.hpp"

namespace {

// The frames that the daemon has yet to send, the next first.
std::vector<std::string_view> frames;

// What a subcommand did.
struct outcome_s {
    int status;
    std::string output;
    std::string errors;
};

class captured_c {
  public:
    explicit captured_c(FILE** stream)
        : stream_(stream), own_(*stream), file_(open_memstream(&text_, &size_)) {
        *stream = file_;
    }
    captured_c(const captured_c&) = delete;
    captured_c& operator=(const captured_c&) = delete;
    ~captured_c() { std::free(text_); }

    // Ends it.
    std::string take() {
        *stream_ = own_;
        std::fclose(file_);
        return {text_, size_};
    }

  private:
    FILE** stream_;
    FILE* own_;
    char* text_ = nullptr;
    std::size_t size_ = 0;
    FILE* file_;
};

template <class Command>
outcome_s outcomeOf(Command command) {
    sigset_t signals;
    pthread_sigmask(SIG_SETMASK, nullptr, &signals);  // a subcommand blocks some
    captured_c output(&stdout);
    captured_c errors(&stderr);
    const int status = command();
    pthread_sigmask(SIG_SETMASK, &signals, nullptr);
    std::string printed = output.take();
    return {status, std::move(printed), errors.take()};
}

bool isLine(std::string_view text) {
    return text.find_first_of(std::string_view("\n\0", 2)) == std::string_view::npos;
}

// A frame of the tag channel, shown in each form. A JSON body is printed unchanged.
void tagFrame(std::string_view input) {
    decodeTagFrame(input);
    require(isLine(decodeTextFrame(input)), "a frame of text is one line");
    tag_record_s record;
    if (!readTagFrame(input, &record)) {
        return;
    }
    csvLine(record);
    isWanted({{"3034"}, {1}}, record);
    live_table_s seen;
    countReport(&seen, record, seen.began);
    tableLines(seen, seen.began, 10);
}

// A mode or settings for "events": one that is accepted is accepted without its blanks as well.
void document(std::string_view input) {
    const std::string text(input);
    nlohmann::json root, again;
    std::string reason;
    if (!isObject(text, &root, &reason)) {
        require(!reason.empty(), "a refusal has a reason");
        return;
    }
    findModeFaults(root);
    findEventsFaults(root);
    const std::string word = packed(text);
    require(word.find_first_of(" \t\r\n") == std::string::npos, "a packed document is one word");
    require(isObject(word, &again, &reason) && again == root, "a packed document says the same");
}

// What "resume" reads, a line each: the daemon's answers, as many as there are; then the file.
void bootFile(std::string_view input) {
    for (int i = 0; i < 4; ++i) {
        frames.push_back(input.substr(0, input.find('\n')));
        input.remove_prefix(std::min(frames.back().size() + 1, input.size()));
    }
    boot::settings_s settings;
    const outcome_s outcome = outcomeOf([&] {
        return boot::askSettings({"tcp://127.0.0.1:1", 1}, &settings);
    });
    frames.clear();
    require((outcome.status == exitSuccess) == outcome.errors.empty(), "an odd answer is told");

    const std::string text = withoutComments(std::string(input));
    require(text.size() == input.size() && withoutComments(text) == text, "comments become blanks");
    nlohmann::json file;
    std::string reason;
    if (!isObject(text, &file, &reason)) {
        return;
    }
    const nlohmann::json sound = boot::soundPartOf(file);
    require(boot::findFaults(sound).empty(), "what is sound has no faults");
    require(boot::findFaults(file).empty() == (sound == file), "the rest has some");
    boot::findWarnings(sound);
    if (outcome.status != exitSuccess) {
        return;
    }
    for (const boot::change_s& change : boot::changesTo(sound, settings)) {
        require(!change.differences.empty(), "a request changes something");
        require(change.request.starts_with(change.name + " "), "a request is of its command");
    }
}

// The arguments of twctl.
void words(std::string_view input) {
    const std::vector<std::string> typed = splitWords(input);
    std::string reason;
    require(areWordsGood(typed, &reason) == reason.empty(), "bad words have a reason");
    completionsAfter(typed);
}

// The first character chooses a question, the rest is the daemon's reply to it.
void reply(std::string_view input) {
    const daemon_s daemon{"tcp://127.0.0.1:1", 1};
    const char question = input.empty() ? '0' : input.front();
    input.remove_prefix(input.empty() ? 0 : 1);
    frames = {input};
    const outcome_s outcome = outcomeOf([&] {
        switch (question & 7) {
            case 0:
                return runStatus(daemon, {});
            case 1:
                return runStatus(daemon, {{"antennas", "temperature"}, true});
            case 2:
                return runMode(daemon, {});
            case 3:
                return runEvents(daemon, {"set", "{}"});  // a mode's schema takes long
            case 4:
                return runEvents(daemon, {});
            case 5:
                return runCommand(daemon, {"version", "", false}, {"version"});
            default:
                return runRequest(daemon, {"any", "words"});
        }
    });
    require(frames.empty(), "a reply is read");
    const bool isRequest = (question & 7) > 5;
    if (isFailure(input)) {
        require(outcome.status == exitFailure, "a failure shows as the exit status");
        require((isRequest ? outcome.output : outcome.errors).starts_with("Failure"), "a failure is told");
    } else {
        require(outcome.status == exitSuccess || outcome.status == exitTrouble, "a reply is no refusal");
        require(outcome.status != exitSuccess || outcome.output.ends_with('\n'),
                "what is printed ends in a line");
        require(outcome.status == exitSuccess || outcome.errors.starts_with("twctl: "), "trouble is told");
    }
}

// What "why" reads, a line each: the mode, the trace, the software radio's answer; then tag_info.
void facts(std::string_view input) {
    const auto nextLine = [&] {
        const std::string_view line = input.substr(0, input.find('\n'));
        input.remove_prefix(std::min(line.size() + 1, input.size()));
        return nlohmann::json::parse(line, nullptr, false);
    };
    why::facts_s facts;
    facts.epc = "3034257bf7194e4000000001";
    facts.seconds = 1;
    facts.isActive = true;
    facts.mode = why::readMode(nextLine());
    why::readTrace(nextLine(), &facts);
    for (const bool isSoftware : {false, true}) {
        facts.scene = isSoftware ? std::optional(why::readScene(nextLine())) : std::nullopt;
        facts.held = why::findHeldKey(input, facts.epc);
        const std::vector<why::reason_s> reasons = why::explain(facts);
        require(!reasons.empty() && !why::summary(facts).empty(), "there is always something to tell");
        require(std::ranges::none_of(reasons, &std::string::empty, &why::reason_s::text),
                "a reason is a sentence");
    }
}

// How to watch, one byte each, and frames, each with its length in front:
//
//   | channel, form: 1 | filter, how many: 1 | bytes: 1, from 128 on in steps of 16 | frame | ...
void watch(std::string_view input) {
    if (input.size() < 2) {
        return;
    }
    const auto how = static_cast<std::uint8_t>(input[0]);
    const auto which = static_cast<std::uint8_t>(input[1]);
    input.remove_prefix(2);
    watch_s watch;
    watch.channel = &channels[how % channels.size()];
    watch.endpoint = "tcp://127.0.0.1:1";
    watch.bind = false;
    const bool isTags = watch.channel == channels.data();
    watch.form = isTags ? static_cast<form_e>(how / 8 % 3) : form_e::lines;
    watch.columns =
        (how & 0x80) != 0 ? columns_t{"time", "memory", "accessResults", "USER[0-1]"} : usualColumns();
    if (isTags && (which & 1) != 0) {
        watch.filter.epcPrefixes = {"3034"};
    }
    if (isTags && (which & 2) != 0) {
        watch.filter.antennas = {1, 2};
    }
    watch.count = which / 8;
    std::size_t expected = 0;
    frames.clear();
    while (!input.empty()) {
        const auto head = static_cast<std::uint8_t>(input.front());
        const std::size_t length = head < 128 ? head : 128 + std::size_t{head - 128U} * 16;
        frames.push_back(input.substr(1, length));
        expected += frames.back().empty() ? 0 : 1;  // an empty frame ends a batch
        input.remove_prefix(1 + frames.back().size());
    }
    expected = watch.count == 0 ? expected : std::min<std::size_t>(expected, watch.count);
    const outcome_s outcome = outcomeOf([&] { return runWatch(watch); });
    require(outcome.status == exitSuccess, "a watch ends well, whatever comes");
    const auto lines = std::ranges::count(outcome.output, '\n');
    if (watch.form == form_e::lines && wantsAll(watch.filter)) {
        require(lines == static_cast<std::ptrdiff_t>(expected), "each frame is one line");
    }
    require(watch.form == form_e::lines || lines >= 1, "a table has a heading");
    frames.clear();
}

constexpr target_s table[] = {
    {"tag_frame", tagFrame, 512}, {"document", document, 1024}, {"words", words, 256},
    {"reply", reply, 1024},       {"watch", watch, 2048},       {"facts", facts, 2048},
    {"boot", bootFile, 2048},
};

}  // namespace

const std::span<const target_s> targets = table;

// The linker puts these in place of the library's.
namespace {

std::optional<std::string_view> takeFrame() {
    if (frames.empty()) {
        return std::nullopt;
    }
    const std::string_view frame = frames.front();
    frames.erase(frames.begin());
    return frame;
}

}  // namespace

extern "C" {
int handle;

void* __wrap_zmq_ctx_new() {
    return &handle;
}
int __wrap_zmq_ctx_term(void*) {
    return 0;
}
void* __wrap_zmq_socket(void*, int) {
    return &handle;
}
int __wrap_zmq_close(void*) {
    return 0;
}
int __wrap_zmq_setsockopt(void*, int, const void*, std::size_t) {
    return 0;
}
int __wrap_zmq_connect(void*, const char*) {
    return 0;
}
int __wrap_zmq_bind(void*, const char*) {
    return 0;
}
int __wrap_zmq_send(void*, const void*, std::size_t size, int) {
    return static_cast<int>(size);
}
// When no more frames come, a signal does.
int __wrap_zmq_poll(zmq_pollitem_t* items, int count, long) {
    items[0].revents = frames.empty() ? 0 : ZMQ_POLLIN;
    if (count > 1) {
        items[1].revents = frames.empty() ? ZMQ_POLLIN : 0;
    }
    return 1;
}
int __wrap_zmq_msg_recv(zmq_msg_t* message, void*, int) {
    const auto frame = takeFrame();
    if (!frame) {
        return -1;
    }
    zmq_msg_close(message);
    zmq_msg_init_size(message, frame->size());
    std::memcpy(zmq_msg_data(message), frame->data(), frame->size());
    return static_cast<int>(frame->size());
}
}
