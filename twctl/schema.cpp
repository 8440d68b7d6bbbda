// SPDX-License-Identifier: MIT
// A walk over the schema and the document side by side: at each place the library says which
// keywords hold, and a keyword that does not becomes a sentence. Only the keywords that the two
// schemas use are known here. A document that another one refuses gets one general sentence.
#include "schema.hpp"

#include <algorithm>
#include <cstdint>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <ranges>
#include <set>
#include <tuple>
#include <valijson/adapters/nlohmann_json_adapter.hpp>
#include <valijson/schema.hpp>
#include <valijson/schema_parser.hpp>
#include <valijson/validator.hpp>

namespace {

using nlohmann::json;
using names_t = std::vector<std::string>;

// No text of a mode or of its rules is longer, and the library's expressions take
// stack for each character: longer texts are judged by their first bytes.
constexpr std::size_t longestText = 1024;
constexpr std::size_t mostFaults = 20;     // that are told
constexpr std::size_t enoughFaults = 200;  // that are looked for in one part of a document

// Under which condition a rule holds: the "description" beside its "if".
struct reason_s {
    std::string text;        // "in a mode of type PORTAL"; empty: always
    bool otherwise = false;  // the rule is that of "else"
};

// A fault, from which one sentence is made. `shape` is a wrong JSON type, `word` a text that is not one of
// the allowed.
struct fault_s {
    enum kind_e { shape, word, other };

    std::string place;  // "accesses[0].type"; empty: the document
    kind_e kind = other;
    std::string text;  // without the allowed words
    names_t allowed{};
};

// What was found in a part of a document.
struct findings_s {
    std::vector<fault_s> faults;
    std::map<std::string, std::set<std::string>> keys;  // by place: those that some rule knows
};

// A rule and what it is applied to.
struct look_s {
    const json& schema;
    const json& value;
    std::string place;
    reason_s reason;
};

// Cuts the texts of a document, between characters.
void clip(json* value) {
    if (value->is_string()) {
        auto& text = value->get_ref<std::string&>();
        std::size_t size = std::min(text.size(), longestText);
        while (size < text.size() && size > 0 && (static_cast<unsigned char>(text[size]) & 0xC0U) == 0x80) {
            --size;
        }
        text.resize(size);
    } else if (value->is_structured()) {
        for (json& part : *value) {
            clip(&part);
        }
    }
}

// The list of a keyword; empty without it. Not a copy: verdicts are kept by address.
const json& rulesOf(const json& schema, const char* keyword) {
    static const json none = json::array();
    const auto rules = schema.find(keyword);
    return rules == schema.end() ? none : *rules;
}

// Merges the keys that a fitting alternative knows.
void addKeys(const std::map<std::string, std::set<std::string>>& keys, findings_s* found) {
    for (const auto& [place, names] : keys) {
        found->keys[place].insert(names.begin(), names.end());
    }
}

// A value as it stands in JSON, in few characters and on one line.
std::string shown(const json& value) {
    constexpr std::size_t longest = 60;
    if (value.is_structured()) {
        return value.is_object() ? "an object" : "an array";
    }
    const std::string text = value.dump(-1, ' ', true, json::error_handler_t::replace);
    return text.size() <= longest ? text : text.substr(0, longest) + "...";
}

std::string keyShown(const std::string& key) {
    return shown(json(key));
}

// The place of a member: "config.password", or "config[\"odd key\"]".
std::string below(const std::string& place, const std::string& key) {
    const bool plain = !key.empty() && key.find_first_not_of(
                                           "abcdefghijklmnopqrstuvwxyz"
                                           "ABCDEFGHIJKLMNOPQRSTUVWXYZ_0123456789") == key.npos;
    return plain ? place + (place.empty() ? "" : ".") + key : place + "[" + keyShown(key) + "]";
}

// "READ, WRITE or KILL"
std::string listed(const names_t& names, const char* last) {
    std::string text;
    for (const std::string& name : names) {
        text += (text.empty() ? "" : &name == &names.back() ? last : ", ") + name;
    }
    return text;
}

// The names of a rule that forbids what has them: required keys or contained words.
names_t namesIn(const json& rule) {
    if (rule.contains("required")) {
        return rule["required"];
    }
    names_t names;
    for (const json& part : rulesOf(rule, "allOf")) {
        names.push_back(part.value(json::json_pointer("/contains/const"), ""));
    }
    return names;
}

// Of one type, or of an array of them.
names_t typeTexts(const json& types) {
    constexpr std::pair<const char*, const char*> texts[] = {
        {"string", "a string"}, {"number", "a number"},       {"integer", "a whole number"},
        {"array", "an array"},  {"boolean", "true or false"}, {"object", "an object"}};
    names_t names;
    for (const json& type : types.is_array() ? types : json::array({types})) {
        const auto* text = std::ranges::find(texts, type, [](const auto& row) { return json(row.first); });
        names.emplace_back(text == std::end(texts) ? "another value" : text->second);
    }
    return names;
}

// A schema with the verdicts of the library on each of its parts.
class judge_c {
  public:
    explicit judge_c(const char* text) : root(json::parse(text)) {}

    const json root;

    const json& resolved(const json& schema) const {
        const auto reference = schema.find("$ref");
        return reference == schema.end()
                   ? schema
                   : root.at(json::json_pointer(reference->get<std::string>().substr(1)));
    }

    // Whether the value fits the whole rule, or one keyword of it.
    bool accepts(const json& schema, const json& value, const std::string& keyword = "") {
        auto& compiled = parts[{&schema, keyword}];
        if (compiled == nullptr) {
            json part = keyword.empty() ? schema : json{{keyword, schema.at(keyword)}};
            part["$defs"] = root.value("$defs", json::object());
            compiled = std::make_unique<valijson::Schema>();
            valijson::SchemaParser().populateSchema(valijson::adapters::NlohmannJsonAdapter(part), *compiled);
        }
        return valijson::Validator().validate(*compiled, valijson::adapters::NlohmannJsonAdapter(value),
                                              nullptr);
    }

  private:
    std::map<std::pair<const json*, std::string>, std::unique_ptr<valijson::Schema>> parts;
};

// Applies a rule to a value, and all rules below it; they call each other in a circle.
void look(judge_c* judge, const look_s& at, findings_s* found);

std::string becauseOf(const reason_s& reason) {
    return reason.text.empty() || reason.otherwise ? "" : " " + reason.text;
}

// "must be from 1 to 255", with the bounds that the schema has.
std::string boundsText(const json& schema) {
    const auto text = [&](const char* key) { return schema.value(key, json()).dump(); };
    return !schema.contains("maximum")   ? "must be at least " + text("minimum")
           : !schema.contains("minimum") ? "must be at most " + text("maximum")
                                         : "must be from " + text("minimum") + " to " + text("maximum");
}

// The faults of one keyword whose verdict is already known to be bad.
using tell_function = void (*)(judge_c* judge, const look_s& at, std::vector<fault_s>* faults);

void tellWords(judge_c*, const look_s& at, std::vector<fault_s>* faults) {
    if (at.schema.contains("const") && !at.schema["const"].is_string()) {
        const std::string only = at.schema["const"].dump();
        faults->push_back({at.place, fault_s::other, "must be " + only + ", not " + shown(at.value)});
        return;
    }
    fault_s fault{at.place, fault_s::word, shown(at.value) + " is not valid"};
    fault.allowed = at.schema.contains("enum")    ? at.schema["enum"].get<names_t>()
                    : at.schema.contains("const") ? names_t{at.schema["const"].get<std::string>()}
                                                  : names_t{at.schema.value("description", "another text")};
    faults->push_back(fault);
}

void tellBounds(judge_c*, const look_s& at, std::vector<fault_s>* faults) {
    faults->push_back({at.place, fault_s::other, boundsText(at.schema) + ", not " + shown(at.value)});
}

void tellCount(judge_c*, const look_s& at, std::vector<fault_s>* faults) {
    const bool isText = at.value.is_string();
    const std::string most = at.schema.value(isText ? "maxLength" : "maxItems", json(0)).dump();
    const bool tooFew = at.value.empty();
    faults->push_back(
        {at.place, fault_s::other,
         tooFew ? "must not be empty" : "must have at most " + most + (isText ? " characters" : " entries")});
}

void tellKeys(judge_c*, const look_s& at, std::vector<fault_s>* faults) {
    faults->push_back({at.place, fault_s::shape, "must be empty"});
}

void tellMissing(judge_c*, const look_s& at, std::vector<fault_s>* faults) {
    for (const std::string key : at.schema["required"]) {
        if (!at.value.contains(key)) {
            faults->push_back({below(at.place, key), fault_s::other,
                               at.reason.text.empty() ? "is missing" : "is needed" + becauseOf(at.reason)});
        }
    }
}

void tellLacking(judge_c* judge, const look_s& at, std::vector<fault_s>* faults) {
    const json& element = judge->resolved(at.schema["contains"]);
    const std::string wanted = element.value("const", element.value("description", "more"));
    faults->push_back({at.place, fault_s::other, "must hold " + wanted + becauseOf(at.reason)});
}

// A "not" with one key forbids it, with more it forbids them together.
void tellCombination(const json& forbidden, const look_s& at, std::vector<fault_s>* faults) {
    const names_t names = namesIn(forbidden);
    if (names.size() == 1) {
        const std::string how = at.reason.otherwise ? "is allowed only " : "is not allowed ";
        faults->push_back({below(at.place, names[0]), fault_s::other, how + at.reason.text});
    } else {
        faults->push_back({at.place, fault_s::other, listed(names, " and ") + " exclude each other"});
    }
}

void tellForbidden(judge_c* judge, const look_s& at, std::vector<fault_s>* faults) {
    const json& forbidden = at.schema["not"];
    if (!forbidden.contains("anyOf")) {
        tellCombination(forbidden, at, faults);
    }
    for (const json& rule : rulesOf(forbidden, "anyOf")) {
        if (judge->accepts(rule, at.value)) {
            tellCombination(rule, at, faults);
        }
    }
}

// The keywords that end in a sentence of their own. A rule of a wrong shape is not
// looked at any further.
struct keyword_s {
    const char* name;
    tell_function tell;
};
constexpr keyword_s keywords[] = {
    {"enum", tellWords},       {"const", tellWords},      {"maxLength", tellCount},
    {"pattern", tellWords},    {"minimum", tellBounds},   {"maximum", tellBounds},
    {"minItems", tellCount},   {"maxItems", tellCount},   {"maxProperties", tellKeys},
    {"required", tellMissing}, {"contains", tellLacking}, {"not", tellForbidden},
};

void lookAtKeywords(judge_c* judge, const look_s& at, findings_s* found) {
    for (const keyword_s& keyword : keywords) {
        if (at.schema.contains(keyword.name) && !judge->accepts(at.schema, at.value, keyword.name)) {
            keyword.tell(judge, at, &found->faults);
            if (keyword.tell == tellCount || keyword.tell == tellBounds) {
                return;  // the pattern of a text that is too long is not judged
            }
        }
    }
}

void lookAtParts(judge_c* judge, const look_s& at, findings_s* found) {
    if (at.schema.contains("properties") && at.value.is_object()) {
        for (const auto& [key, rule] : at.schema["properties"].items()) {
            found->keys[at.place].insert(key);
            if (const auto member = at.value.find(key); member != at.value.end()) {
                look(judge, {rule, *member, below(at.place, key), at.reason}, found);
            }
        }
    }
    // Keys of any name, whose values have one rule.
    if (const auto rule = at.schema.find("additionalProperties");
        rule != at.schema.end() && rule->is_object() && at.value.is_object()) {
        for (const auto& [key, member] : at.value.items()) {
            look(judge, {*rule, member, below(at.place, key), at.reason}, found);
        }
    }
    if (at.schema.contains("items") && at.value.is_array()) {
        for (std::size_t i = 0; i < at.value.size() && found->faults.size() < enoughFaults; ++i) {
            const std::string place = at.place + "[" + std::to_string(i) + "]";
            look(judge, {at.schema["items"], at.value[i], place, at.reason}, found);
        }
    }
}

// How far an alternative of "anyOf" is from the value: how near to the root the first wrong shape
// is, then how many wrong words and how many faults there are. Less is nearer.
std::tuple<std::ptrdiff_t, std::ptrdiff_t, std::size_t> distanceOf(const findings_s& found) {
    std::ptrdiff_t highest = PTRDIFF_MAX;
    std::ptrdiff_t words = 0;
    for (const fault_s& fault : found.faults) {
        highest = fault.kind == fault_s::shape ? std::min(highest, std::ssize(fault.place)) : highest;
        words += fault.kind == fault_s::word ? 1 : 0;
    }
    return {-highest, words, found.faults.size()};
}

// Adds to each fault of the nearest alternative the words that the others allow at its place.
void addAlternatives(const std::vector<findings_s>& choices, findings_s* best) {
    for (fault_s& fault : best->faults) {
        fault.allowed.clear();
        for (const findings_s& choice : choices) {
            for (const fault_s& alternative : choice.faults) {
                const bool same = alternative.place == fault.place && alternative.kind == fault.kind;
                std::ranges::copy_if(same ? alternative.allowed : names_t(),
                                     std::back_inserter(fault.allowed), [&](const std::string& word) {
                                         return std::ranges::find(fault.allowed, word) == fault.allowed.end();
                                     });
            }
        }
    }
}

// The alternatives of "anyOf": all that fit, or else the nearest one.
void lookAtChoices(judge_c* judge, const look_s& at, findings_s* found) {
    std::vector<findings_s> others;
    bool fits = false;
    for (const json& rule : at.schema["anyOf"]) {
        findings_s choice;
        look(judge, {rule, at.value, at.place, at.reason}, &choice);
        if (judge->accepts(rule, at.value)) {
            fits = true;
            addKeys(choice.keys, found);
        } else {
            others.push_back(choice);
        }
    }
    if (fits) {
        return;
    }
    const auto nearest = std::ranges::min_element(others.rbegin(), others.rend(), {}, distanceOf);
    findings_s best = *nearest;
    addAlternatives(others, &best);
    std::ranges::copy(best.faults, std::back_inserter(found->faults));
    addKeys(best.keys, found);
}

void look(judge_c* judge, const look_s& where, findings_s* found) {
    const json& schema = judge->resolved(where.schema);
    const look_s at{schema, where.value, where.place, where.reason};
    if (schema.contains("type") && !judge->accepts(schema, at.value, "type")) {
        found->faults.push_back({at.place, fault_s::shape, "must be", typeTexts(schema["type"])});
        return;
    }
    lookAtKeywords(judge, at, found);
    lookAtParts(judge, at, found);
    if (schema.contains("anyOf")) {
        lookAtChoices(judge, at, found);
    }
    for (const json& rule : rulesOf(schema, "allOf")) {
        look(judge, {rule, at.value, at.place, at.reason}, found);
    }
    if (schema.contains("if")) {
        const bool holds = judge->accepts(schema["if"], at.value);
        if (const auto rule = schema.find(holds ? "then" : "else"); rule != schema.end()) {
            look(judge, {*rule, at.value, at.place, {schema.value("description", ""), !holds}}, found);
        }
    }
}

// "accesses[0].type: "read" is not valid; use READ, WRITE or KILL"
std::string sentenceOf(const fault_s& fault) {
    const char* const how = fault.kind == fault_s::shape ? " " : "; use ";
    return (fault.place.empty() ? "" : fault.place + ": ") + fault.text +
           (fault.allowed.empty() ? "" : how + listed(fault.allowed, " or "));
}

// Keys of objects that some rule describes, and that no rule names. What is below an unknown
// key is not looked at.
void findUnknownKeys(const findings_s& found, const json& value, const std::string& place,
                     const char* consequence, std::vector<std::string>* sentences) {
    if (value.is_object()) {
        const auto known = found.keys.find(place);
        for (const auto& [key, member] : value.items()) {
            if (known != found.keys.end() && !known->second.contains(key)) {
                sentences->push_back((place.empty() ? "" : place + ": ") + "unknown key " + keyShown(key) +
                                     consequence);
            } else {
                findUnknownKeys(found, member, below(place, key), consequence, sentences);
            }
        }
    }
    for (std::size_t i = 0; value.is_array() && i < value.size(); ++i) {
        findUnknownKeys(found, value[i], place + "[" + std::to_string(i) + "]", consequence, sentences);
    }
}

}  // namespace

std::vector<std::string> findSchemaFaults(const char* schemaText, const json& document,
                                          const char* consequence) {
    judge_c judge(schemaText);
    json value = document;
    clip(&value);
    findings_s found;
    look(&judge, {judge.root, value, "", {}}, &found);
    std::vector<std::string> sentences;
    std::set<std::string> told;  // several rules may find the same
    for (const fault_s& fault : found.faults) {
        if (const std::string sentence = sentenceOf(fault); told.insert(sentence).second) {
            sentences.push_back(sentence);
        }
    }
    if (sentences.empty() && !judge.accepts(judge.root, value)) {
        sentences.emplace_back("the schema refuses it");
    }
    findUnknownKeys(found, value, "", consequence, &sentences);
    if (sentences.size() > mostFaults) {
        sentences.resize(mostFaults);
        sentences.emplace_back("and more");
    }
    return sentences;
}
