// SPDX-License-Identifier: MIT
// The two XML namespaces of the Reader Management exchange, written as "rm" and "brixrm".
#pragma once

#include <string_view>

// EPCglobal Reader Management: the frame of a request or reply.
inline constexpr std::string_view standardUri = "urn:epcglobal:rm:xsd:1";
// The reader's extension: devices, commands and values.
inline constexpr std::string_view extensionUri = "urn:brixrfid:rm:xsd:1";
