// SPDX-License-Identifier: MIT
// Reads the files that RXE_SCENARIO and RXE_REPLAY name.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace rxe {

// Reads a regular file of at most `most` bytes, which is a multiple of 1 MiB, into `*content`.
// Returns an empty text, or what is wrong, to be put behind the file's name: "cannot be opened:
// ...", "is not a regular file", "has more than 32 MiB". After a fault `*content` may hold a part of
// the file. A folder, a device and a pipe are refused without a wait. Throws only
// std::bad_alloc. Any thread.
std::string readFile(const char* path, std::size_t most, std::string* content);
std::string readFile(const char* path, std::size_t most, std::vector<std::uint8_t>* content);

}  // namespace rxe
