// SPDX-License-Identifier: MIT
// The files that environment variables name.
#ifndef ENGINE_FILES_HPP
#define ENGINE_FILES_HPP

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace rxe {

// Reads a regular file of at most `most` bytes. Returns what is wrong, or an empty text. A folder,
// a device and a pipe are refused without a wait; neither throws but for memory.
std::string readFile(const char* path, std::size_t most, std::string* content);
std::string readFile(const char* path, std::size_t most, std::vector<std::uint8_t>* content);

}  // namespace rxe

#endif
