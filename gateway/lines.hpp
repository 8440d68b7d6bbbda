// SPDX-License-Identifier: MIT
// Files of whole lines, also after a kill in the middle of one or on a full disk.
#pragma once

#include <sys/types.h>

#include <string_view>

// Bytes up to behind the last line end of an open file; -1 with errno when it cannot be read.
off_t wholeLines(int fd);

// Appends all of `text` to an open file (O_APPEND) that has `size` bytes, and returns true. Else, with
// errno, the file has those bytes as before, unless it cannot be cut either.
bool appendWhole(int fd, off_t size, std::string_view text);
