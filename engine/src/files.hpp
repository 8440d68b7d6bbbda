// SPDX-License-Identifier: MIT
// The files that environment variables name.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace rxe {

// Reads a regular file of at most `most` bytes. Returns what is wrong, as a text that goes
// behind the file's name, or an empty text. A folder, a device and a pipe are refused without
// a wait. Both throw only when there is no memory.
std::string readFile(const char* path, std::size_t most, std::string* content);
std::string readFile(const char* path, std::size_t most, std::vector<std::uint8_t>* content);

}  // namespace rxe
