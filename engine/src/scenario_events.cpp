// SPDX-License-Identifier: MIT
// Reads events. Scenarios and control messages have the same ones with the same keys; messages have
// questions as well.
#include <charconv>

#include "codec.hpp"
#include "population.hpp"
#include "scenario.hpp"

namespace rxe {
namespace {

constexpr double longestTime = 1e6;  // seconds
constexpr std::size_t maxText = 200;

// The keys of one event are taken into this record; `finish` makes the event of it.
struct draft_s {
    event_s event;
    tag_group_s group;  // of a tag that enters
    failing_s failing;
};

using event_key_t = key_s<draft_s>;

constexpr std::array levelWords{word_s<bool>{"low", false}, word_s<bool>{"high", true}};
constexpr std::array antennaWords{word_s<bool>{"lost", false}, word_s<bool>{"back", true}};
constexpr std::array databaseWords{word_s<bool>{"warning", false}, word_s<bool>{"full", true}};
constexpr std::array sensorWords{
    word_s<event_e>{"pa", event_e::PA_TEMP},
    word_s<event_e>{"ambient", event_e::AMB_TEMP},
};
enum pa_state_e : std::uint8_t { PA_LOW, PA_HIGH, PA_GOOD };
constexpr std::array paWords{
    word_s<pa_state_e>{"low", PA_LOW},
    word_s<pa_state_e>{"high", PA_HIGH},
    word_s<pa_state_e>{"good", PA_GOOD},
};

// Only names of operations are taken: a misspelt one would fail no call.
refusal_s takeOperation(const json_t& value, std::string* operation) {
    const auto known = value.is_string()
                           ? std::ranges::find(failableOperations, value.get_ref<const std::string&>())
                           : failableOperations.end();
    if (known == failableOperations.end()) {
        return {"must be the name of an operation, such as \"RXE_start\"", {}};
    }
    *operation = *known;
    return {};
}

//   8465 or "0x2111"
refusal_s takeParameter(const json_t& value, int* parameter) {
    if (value.is_string()) {
        const auto& text = value.get_ref<const std::string&>();
        unsigned id = 0;
        const char* const end = text.data() + text.size();
        if (text.starts_with("0x") && text.size() > 2 && text.size() <= 6) {
            const auto [next, fault] = std::from_chars(text.data() + 2, end, id, 16);
            if (fault == std::errc{} && next == end) {
                *parameter = static_cast<int>(id);
                return {};
            }
        }
    } else if (!takeInteger(value, 0, 0xFFFF, parameter)) {
        return {};
    }
    return {"must be a parameter id from 0 to 65535, or as a text \"0x0\" to \"0xffff\"", {}};
}

// Of "failing" in a scenario and of the event "fail".
constexpr std::array failingKeys{
    key_s<failing_s>{"operation",
                     [](const json_t& v, failing_s* f) { return takeOperation(v, &f->operation); }},
    key_s<failing_s>{"parameter",
                     [](const json_t& v, failing_s* f) { return takeParameter(v, &f->parameter); }},
    key_s<failing_s>{
        "status", [](const json_t& v, failing_s* f) { return takeInteger(v, 0, 65535, &f->status); }, true},
    key_s<failing_s>{"count",
                     [](const json_t& v, failing_s* f) { return takeInteger(v, 0, 1000000, &f->count); }},
    key_s<failing_s>{"after",
                     [](const json_t& v, failing_s* f) { return takeInteger(v, 0, 1000000, &f->after); }},
};

// Antenna ports and inputs are counted from 1; `most` is how many there can be. The reader of
// a connection may have fewer, which only the running engine can tell.
refusal_s takePort(const json_t& value, std::int64_t most, draft_s* draft) {
    return takeInteger(value, 1, most, &draft->event.port);
}

constexpr std::array gpiKeys{
    event_key_t{"port", [](const json_t& v, draft_s* d) { return takePort(v, maxGpis, d); }, true},
    event_key_t{"level", [](const json_t& v, draft_s* d) { return takeWord(v, levelWords, &d->event.flag); },
                true},
};
constexpr std::array antennaKeys{
    event_key_t{"port", [](const json_t& v, draft_s* d) { return takePort(v, maxPorts, d); }, true},
    event_key_t{"state",
                [](const json_t& v, draft_s* d) { return takeWord(v, antennaWords, &d->event.flag); }, true},
};
constexpr std::array paKeys{
    event_key_t{"port", [](const json_t& v, draft_s* d) { return takePort(v, maxPorts, d); }, true},
    event_key_t{"state",
                [](const json_t& v, draft_s* d) {
                    pa_state_e state = PA_LOW;
                    refusal_s refusal = takeWord(v, paWords, &state);
                    d->event.flag = state != PA_GOOD;
                    d->event.value = state == PA_HIGH ? 1 : 0;
                    return refusal;
                },
                true},
};
constexpr std::array temperatureKeys{
    event_key_t{"sensor",
                [](const json_t& v, draft_s* d) { return takeWord(v, sensorWords, &d->event.kind); }, true},
    event_key_t{"degrees",
                [](const json_t& v, draft_s* d) { return takeInteger(v, -128, 127, &d->event.value); }, true},
};
constexpr std::array moveKeys{
    event_key_t{"epc", [](const json_t& v, draft_s* d) { return takeEpc(v, &d->event.bytes); }, true},
    event_key_t{"position", [](const json_t& v, draft_s* d) { return takePlace(v, &d->event.place); }, true},
    event_key_t{"velocity", [](const json_t& v, draft_s* d) { return takePlace(v, &d->event.velocity); }},
};
constexpr std::array leaveKeys{
    event_key_t{"epc", [](const json_t& v, draft_s* d) { return takeEpc(v, &d->event.bytes); }, true},
};
// What no tag has is not a mistake here: an EPC of half a word is that of none.
constexpr std::array tagKeys{
    event_key_t{"epc",
                [](const json_t& v, draft_s* d) {
                    return takeHex(v, 1, epcBankBytes - epcOffset, 1, &d->event.bytes);
                },
                true},
};
constexpr std::array databaseKeys{
    event_key_t{"state",
                [](const json_t& v, draft_s* d) { return takeWord(v, databaseWords, &d->event.flag); }, true},
};
constexpr std::array errorKeys{
    event_key_t{"text", [](const json_t& v, draft_s* d) { return takeText(v, maxText, &d->event.operation); },
                true},
};

constexpr std::array apiErrorKeys{
    event_key_t{"code",
                [](const json_t& v, draft_s* d) {
                    std::uint32_t code = 0;
                    refusal_s refusal = takeInteger(v, 0, 0xFFFFFFFF, &code);
                    for (int shift = 0; shift < 32; shift += 8) {  // least significant byte first
                        d->event.bytes.push_back(static_cast<std::uint8_t>(code >> shift));
                    }
                    return refusal;
                },
                true},
};
constexpr std::array<event_key_t, 0> noKeys{};

// An operation or a parameter has to be named: a failure of every call would help no test.
refusal_s finishFail(draft_s* draft) {
    const failing_s& row = draft->failing;
    if (row.operation.empty() && row.parameter < 0) {
        return {"is missing, and \"parameter\" too", "operation"};
    }
    draft->event.operation = row.operation;
    draft->event.parameter = row.parameter;
    draft->event.value = row.status;
    draft->event.count = row.count;
    draft->event.after = row.after;
    return {};
}

// The tag is made here, on the control thread, so that the radio thread only has to place it.
refusal_s finishEnter(draft_s* draft) {
    scenario_s alone;
    alone.groups = {draft->group};
    draft->event.tag = makeTag(alone, 0, 0, 0);
    return {};
}

// The payload of an error log packet begins with ERRLOG; the host ignores any other.
refusal_s finishError(draft_s* draft) {
    const std::string line = "ERRLOG " + draft->event.operation;
    draft->event.bytes.assign(line.begin(), line.end());
    draft->event.rawType = RXE_PACKET_ERROR_LOG;
    return {};
}

// An event: its name, the table of its keys, the keys that bare words fill, in their order, and
// what to do when all keys were taken.
struct vocabulary_s {
    std::string_view name;
    event_e kind;
    refusal_s (*takeAll)(const json_t& object, draft_s* draft);
    std::string_view words;  // names of the keys that may stand as bare words
    refusal_s (*finish)(draft_s* draft) = nullptr;
    // A question: it may come in a message, and has no place in a scenario.
    bool asks = false;
};

// A function for the rows below that takes the keys of one table.
template <const auto& Keys>
refusal_s takeBy(const json_t& object, draft_s* draft) {
    return takeKeys(object, Keys, draft);
}

constexpr std::array vocabulary{
    vocabulary_s{"gpi", event_e::GPI, takeBy<gpiKeys>, "port level"},
    vocabulary_s{"antenna", event_e::ANTENNA, takeBy<antennaKeys>, "port state"},
    vocabulary_s{"pa", event_e::PA_FAILURE, takeBy<paKeys>, "port state"},
    vocabulary_s{"temperature", event_e::PA_TEMP, takeBy<temperatureKeys>, "sensor degrees"},
    vocabulary_s{"fail", event_e::FAIL,
                 [](const json_t& object, draft_s* d) { return takeKeys(object, failingKeys, &d->failing); },
                 "operation status count", finishFail},
    vocabulary_s{"enter", event_e::TAG_ENTER,
                 [](const json_t& object, draft_s* d) { return takeEnteringTag(object, &d->group); },
                 "epc position", finishEnter},
    vocabulary_s{"move", event_e::TAG_MOVE, takeBy<moveKeys>, "epc position velocity"},
    vocabulary_s{"leave", event_e::TAG_LEAVE, takeBy<leaveKeys>, "epc"},
    vocabulary_s{"database", event_e::DATABASE, takeBy<databaseKeys>, "state"},
    vocabulary_s{"error", event_e::PACKET, takeBy<errorKeys>, "text", finishError},
    vocabulary_s{"apiError", event_e::PACKET, takeBy<apiErrorKeys>, "code",
                 [](draft_s* draft) {
                     draft->event.rawType = RXE_PACKET_API_ERROR;
                     return refusal_s{};
                 }},
    vocabulary_s{"fault", event_e::FAULT, takeBy<noKeys>, ""},
    vocabulary_s{
        .name = "tag", .kind = event_e::ASK_TAG, .takeAll = takeBy<tagKeys>, .words = "epc", .asks = true},
    vocabulary_s{.name = "failing",
                 .kind = event_e::ASK_FAILING,
                 .takeAll = takeBy<noKeys>,
                 .words = "",
                 .asks = true},
};

// Finds the event by its name, a question only with `asking`, and takes the other keys by that
// event's table.
refusal_s takeNamed(const json_t& value, bool asking, event_s* event) {
    const auto name = value.find("event");
    if (name == value.end()) {
        return under("event", {"is missing", {}});
    }
    const auto row = name->is_string() ? std::ranges::find(vocabulary, name->get_ref<const std::string&>(),
                                                           &vocabulary_s::name)
                                       : vocabulary.end();
    if (row == vocabulary.end() || (row->asks && !asking)) {
        std::string known;
        for (const vocabulary_s& each : vocabulary) {
            if (asking || !each.asks) {
                known += (known.empty() ? "\"" : ", \"") + std::string(each.name) + '"';
            }
        }
        return under("event", {"must be one of " + known, {}});
    }
    json_t rest = value;
    rest.erase("event");
    draft_s draft;
    draft.event.kind = row->kind;
    refusal_s refusal = row->takeAll(rest, &draft);
    if (!refusal && row->finish != nullptr) {
        refusal = row->finish(&draft);
    }
    if (!refusal) {
        *event = std::move(draft.event);
    }
    return refusal;
}

// --- Words: "gpi 1 high", "fail RXE_start 77 count=2", "error any text".

// Takes the word in front off the text; empty at its end.
std::string_view nextWord(std::string_view* text) {
    text->remove_prefix(std::min(text->find_first_not_of(' '), text->size()));
    const std::string_view word = text->substr(0, text->find(' '));
    text->remove_prefix(word.size());
    return word;
}

// Keys whose values are texts even when they look like numbers.
constexpr std::array textKeys{std::string_view("epc"),
                              std::string_view("tid"),
                              std::string_view("user"),
                              std::string_view("xpc"),
                              std::string_view("accessPassword"),
                              std::string_view("killPassword"),
                              std::string_view("text")};

// The JSON value of a word: a number, an array for "1,2,0.5", which is a place, or a text.
json_t valueOf(std::string_view key, std::string_view word) {
    if (std::ranges::find(textKeys, key) == textKeys.end()) {
        const bool isPlace = word.find(',') != std::string_view::npos;
        const std::string text = isPlace ? "[" + std::string(word) + "]" : std::string(word);
        json_t value = json_t::parse(text, nullptr, false);
        if (value.is_number() || (isPlace && value.is_array())) {
            return value;
        }
    }
    return std::string(word);
}

// The JSON object for an event in words. Bare words fill the keys of the event in their order;
// `key=value` may come anywhere between them.
refusal_s objectOf(std::string_view text, json_t* object) {
    const std::string_view name = nextWord(&text);
    *object = {{"event", std::string(name)}};
    const auto row = std::ranges::find(vocabulary, name, &vocabulary_s::name);
    std::string_view bare = row == vocabulary.end() ? std::string_view() : row->words;
    for (std::string_view word = nextWord(&text); !word.empty(); word = nextWord(&text)) {
        const std::size_t sign = word.find('=');
        std::string_view key = word.substr(0, sign);
        std::string_view value = sign == std::string_view::npos ? word : word.substr(sign + 1);
        if (sign == std::string_view::npos) {
            key = nextWord(&bare);
        }
        if (key == "text") {  // all that is left
            value = {value.data(), value.size() + text.size()};
            text = {};
        }
        if (key.empty()) {
            return {quote(word) + " is one word too many", {}};
        }
        (*object)[std::string(key)] = valueOf(key, value);
    }
    return {};
}

}  // namespace

refusal_s takeFailing(const json_t& value, failing_s* row) {
    refusal_s refusal = takeKeys(value, failingKeys, row);
    if (!refusal && row->operation.empty() && row->parameter < 0) {
        return {"is missing, and \"parameter\" too", "operation"};
    }
    return refusal;
}

refusal_s takeEvent(const json_t& value, bool timed, timed_event_s* event) {
    if (!value.is_object()) {
        return {"must be an object", {}};
    }
    if (!timed) {
        return takeNamed(value, true, &event->event);
    }
    json_t rest = value;
    std::int64_t due = 0;
    if (!value.contains("at")) {
        return under("at", {"is missing", {}});
    }
    if (refusal_s refusal = takeSeconds(value["at"], 0, longestTime, &due)) {
        return under("at", std::move(refusal));
    }
    if (value.contains("every")) {
        if (refusal_s refusal = takeSeconds(value["every"], 0.001, longestTime, &event->every)) {
            return under("every", std::move(refusal));
        }
    }
    rest.erase("at");
    rest.erase("every");
    refusal_s refusal = takeNamed(rest, false, &event->event);
    event->event.due = due;
    return refusal;
}

refusal_s readEvent(std::string_view text, event_s* event) {
    json_t object;
    if (text.find_first_not_of(" \t\r\n") == std::string_view::npos) {
        return {"an empty message", {}};
    }
    if (text[text.find_first_not_of(" \t\r\n")] == '{') {
        object = json_t::parse(text, nullptr, false);
        if (object.is_discarded()) {
            return {"not valid JSON", {}};
        }
    } else if (refusal_s refusal = objectOf(text, &object)) {
        return refusal;
    }
    timed_event_s timed;
    refusal_s refusal = takeEvent(object, false, &timed);
    if (!refusal) {
        *event = std::move(timed.event);
    }
    return refusal;
}

}  // namespace rxe
