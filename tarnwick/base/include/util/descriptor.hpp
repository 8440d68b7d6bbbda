// SPDX-License-Identifier: MIT
// A class that owns a file descriptor. For one thread at a time.
#pragma once

#include <unistd.h>

// Closes the descriptor at the end of its scope, also when the thread is cancelled: pthread_cancel
// unwinds the stack. A number below 0 owns nothing.
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
    // The number, still owned here; below 0 when the call that made it has failed.
    [[nodiscard]] int get() const { return fd_; }

  private:
    int fd_;
};
