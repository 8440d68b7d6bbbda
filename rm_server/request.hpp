// SPDX-License-Identifier: MIT
// One request as the client sent it.
//
//   <rm:command xmlns:rm=".." xmlns:brixrm=".."><rm:id>104</rm:id>
//     <rm:targetName>Read Point 2</rm:targetName>
//     <brixrm:antennaReadPoint><brixrm:sessionID>00:00:00:00:00:00</brixrm:sessionID>
//       <brixrm:getCableLossCompensation/>
//     </brixrm:antennaReadPoint></rm:command>
#pragma once

#include <optional>
#include <string>
#include <string_view>

enum class device_e { readerDevice, antennaReadPoint };

struct request_s {
    int id = 0;              // given back in the reply
    std::string targetName;  // "Read Point n" for an antenna, else empty
    device_e device = device_e::readerDevice;
    std::string command;         // local name of the command element, such as "getModel"
    std::string regionName;      // child of getRegionStandardList, else empty
    bool wantsChannels = false;  // its child requestChannelList said "true"
};

// Bytes up to and including the end of the first closing tag of a "command"
// element, whatever its prefix; 0 while that tag has not arrived.
std::size_t requestLength(std::string_view received);

// Reads a whole request. On failure returns nothing, and `*error` says why.
std::optional<request_s> parseRequest(std::string_view text, std::string* error);
