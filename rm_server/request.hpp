// SPDX-License-Identifier: MIT
// One request of a client.
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
    // The reply has the same.
    int id = 0;
    // "Read Point n" for antenna n, counted from 1; empty for the reader.
    std::string targetName;
    device_e device = device_e::readerDevice;
    // Local name of the command element, such as "getModel".
    std::string command;
    // Child of getRegionStandardList, empty for other commands.
    std::string regionName;
    // The child requestChannelList of that command is "true".
    bool wantsChannels = false;
};

// Bytes up to and including the end of the first closing tag of a "command"
// element, whatever its prefix; 0 while that tag has not arrived.
std::size_t requestLength(std::string_view received);

// Reads a whole request. On failure returns nothing, and `*error` says why. A document type is
// refused, so there are no entities to expand; libxml2 opens no file and no connection.
std::optional<request_s> parseRequest(std::string_view text, std::string* error);
