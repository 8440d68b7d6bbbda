// SPDX-License-Identifier: MIT
// The binary form of a report as the JSON that the daemon would have sent.
#pragma once

#include <string>
#include <string_view>

// The JSON report of a serialised velmo::tag_data_report, members in ascending byte order as the daemon has
// them. `reduced` is the form of a BEARING mode, whose PC has its low byte first. The binary form does
// not hold the type of other modes, which is then left out, nor memory, accesses and heat maps. Empty when
// the bytes are not a report, or one without an EPC.
std::string jsonOfBinary(std::string_view bytes, bool reduced);
