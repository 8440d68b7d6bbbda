// SPDX-License-Identifier: MIT
// A class that owns a file descriptor.
#pragma once

#include <unistd.h>

// Closes the descriptor at the end of its scope, also when the thread is cancelled. A number below 0
// owns nothing.
class descriptor {
  public:
    explicit descriptor(int fd) : fd_(fd) {}
    ~descriptor() {
        if (fd_ >= 0) {
            close(fd_);
        }
    }
    descriptor(const descriptor&) = delete;
    descriptor& operator=(const descriptor&) = delete;
    [[nodiscard]] int get() const { return fd_; }

  private:
    int fd_;
};
