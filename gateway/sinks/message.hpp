// SPDX-License-Identifier: MIT
// An event as one message of a protocol that has a place for metadata: the way in which every such sink
// follows CloudEvents 1.0.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "event.hpp"

enum class message_form_e {
    bare,        // the body alone, for a protocol without metadata
    binary,      // the body; the attributes are metadata
    structured,  // one JSON object with both
};

struct message_s {
    // Uses `entry`, which has to live as long.
    message_s(const entry_s& entry, message_form_e form)
        : attributes(form == message_form_e::binary ? attributesOf(entry) : std::vector<attribute_s>()),
          structured(form == message_form_e::structured ? structuredEvent(entry) : std::string()),
          contentType(form == message_form_e::structured ? "application/cloudevents+json; charset=UTF-8"
                                                         : eventContentType),
          body(form == message_form_e::structured ? structured : entry.body) {}
    message_s(const message_s&) = delete;
    message_s& operator=(const message_s&) = delete;

    const std::vector<attribute_s> attributes;  // metadata, without contentType
    const std::string structured;               // empty in the other forms
    const std::string_view contentType;
    const std::string_view body;
};
