// SPDX-License-Identifier: MIT
// The parts of the mode that the engine thread needs for its reports. The main thread makes a plan
// for each mode; it is constant from then on and takes effect between two packets. The engine
// thread reads nothing else of the mode.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "engine_io/olios.hpp"
#include "mode/record.hpp"
#include "rxe.h"

struct tag_read_s;
struct report_plan_s;
struct report_member_s;  // json_report.cpp
struct tag_trace_s;      // tag_trace.hpp

// A text that is the same in many reports.
struct planned_text_s {
    std::string plain;
    std::string json;   // escaped, in its quotes
    std::string error;  // what the JSON library says of text that is not valid UTF-8; empty for none
};

// A member of "data" that the mode asks for.
struct planned_member_s {
    const report_member_s* row;  // constant, and not of this plan
    std::array<char, 32> start;  // ,"key": and zeros
    std::size_t startLength;
    std::uint32_t fields;  // RXE_FIELD_*: the packet must have all of them
    char* (*write)(const tag_read_s& read, const report_plan_s& plan, char* out);
};

// The parts of an access that reports of its results need. `enable` is 0 when the mode does not have
// an access with the id.
struct planned_access_s {
    std::uint8_t enable = 0;
    std::uint8_t type = 0;   // RXE_ACCESS_*
    std::uint8_t words = 0;  // to read or write; 0 for a read of the whole bank
    std::uint8_t parts = 0;  // radio operations of an access in parts
    std::string memoryKey;   // "USER", "USER[4]" or "EPC[2-7]"
};

struct report_plan_s {
    MODE_TYPE_e modeType{};
    bool arrayReader = false;  // reads are counted by beam
    tagFilter_s filter;
    std::string filterRule;  // for people

    std::vector<planned_member_s> members;  // in the order of their keys
    std::size_t room = 0;                   // the most bytes of a report without late members
    std::string tail;                       // the text behind the timestamp

    report_switches_s switches;
    bool userDefined = false;  // the mode has such a text
    bool portName = false;     // and names of ports
    planned_text_s macText;
    planned_text_s hostNameText;
    planned_text_s userDefinedText;
    std::vector<planned_text_s> portNames;  // port 1 first; a port past the end has the empty name
    planned_text_s noName;

    // What follows a tag packet.
    bool accesses = false;         // or reads of memory
    bool readsAsMetadata = false;  // outcomes are members of "data", not slots of "accessResults"
    bool restartsSlots = false;    // each tag begins with the first slot
    std::uint32_t enabledAccesses = 0;
    std::array<planned_access_s, accessTableSize> access;
    std::uint64_t accessMask = 0;  // bit n-1: access n is enabled
    std::array<std::uint64_t, olioTableSize> accessesOfOlio{};

    std::vector<std::shared_ptr<tag_trace_s>> traces;  // tags that are followed

    [[nodiscard]] const planned_text_s& portNameOf(std::uint8_t port) const {
        return port >= 1 && port <= portNames.size() ? portNames[port - 1U] : noName;
    }
};

// Offers the newest plan once more, with other tags to follow. Main thread.
void publishTraces(const std::vector<std::shared_ptr<tag_trace_s>>& traces);

// The members that a mode asks for, in the order of their keys. Any thread.
std::vector<planned_member_s> plannedMembers(const mode_configuration_s& mode);

// The plan in force; before the first mode that of an empty one. takeReportPlan writes it before
// each packet. Engine thread.
namespace radio {
extern const report_plan_s* planInForce;
}
inline const report_plan_s& reportPlan() {
    return *radio::planInForce;
}
