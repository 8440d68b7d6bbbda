// SPDX-License-Identifier: MIT
// The answer to one request.
//
//   <rm:reply xmlns:rm=".." xmlns:brixrm=".."><rm:id>100</rm:id><rm:resultCode>0</rm:resultCode>
//     <brixrm:readerDevice><brixrm:getModel><brixrm:returnValue>PN5100</brixrm:returnValue>
//     </brixrm:getModel></brixrm:readerDevice></rm:reply>
//
// The client makes one read of up to 4,096 bytes, cuts the text behind the first "reply>" and puts
// an XML declaration in front. So an answer is short, has no declaration, and "reply>" occurs in
// its closing tag only.
#pragma once

#include <string>
#include <string_view>

#include "fault.hpp"
#include "profile.hpp"
#include "request.hpp"

// Longest answer that a client reads.
inline constexpr std::size_t maxReplyLength = 4096;

// What is wrong with a request; each has a result code, a name and a custom code (README.md).
enum class problem_e { malformed, tooLong, unknownCommand, badTarget, badRegion, unsupported };

// The answer to a request, or the error that its command, target or region deserves. A fault
// within the document changes the values or the result code, for `faultValue` alone if it is not
// empty; faults of the connection have no effect here.
std::string makeReply(const request_s& request, const profile_s& profile, fault_e fault,
                      std::string_view faultValue);

// The answer to a request that cannot be read: result code, error name, description and custom
// error code. `id` is 0 when the request's is not known.
std::string makeErrorReply(int id, problem_e problem, std::string_view description);
