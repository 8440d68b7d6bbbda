// SPDX-License-Identifier: MIT
// JSON texts against a JSON Schema.
#pragma once

#include <string>
#include <vector>

// Which of the texts a schema of draft 2020-12 accepts; none may hold a line break.
// Throws when the schema itself is no good or cannot be tried.
std::vector<bool> acceptedBySchema(const std::string& schemaFile, const std::vector<std::string>& texts);
