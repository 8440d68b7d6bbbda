// SPDX-License-Identifier: MIT
// The owner of a file descriptor.
#pragma once

#include <unistd.h>

// A descriptor that is closed with its scope, also when the thread is cancelled;
// below 0 there is none.
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
