// SPDX-License-Identifier: MIT
// The mouths of the client: what the daemon publishes, and a person's documents.
#include "targets.hpp"

#include <nlohmann/json.hpp>

#include "twctl/decoding.hpp"
#include "twctl/document.hpp"
#include "twctl/live_table.hpp"
#include "twctl/tag_record.hpp"
#include "twctl/words.hpp"

namespace {

bool isLine(std::string_view text) {
    return text.find_first_of(std::string_view("\n\0", 2)) == std::string_view::npos;
}

// A frame of the tag channel, in each of the ways to show it. A body of JSON is
// shown as it came.
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

// A mode or settings for "events": a good one is as good without its blanks.
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

// What a person types behind "twctl".
void words(std::string_view input) {
    const std::vector<std::string> typed = splitWords(input);
    std::string reason;
    require(areWordsGood(typed, &reason) == reason.empty(), "bad words have a reason");
    completionsAfter(typed);
}

constexpr target_s table[] = {{"tag_frame", tagFrame}, {"document", document}, {"words", words}};

}  // namespace

const std::span<const target_s> targets = table;
