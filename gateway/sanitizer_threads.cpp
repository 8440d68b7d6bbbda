// SPDX-License-Identifier: MIT
// For builds with the thread sanitizer alone. librdkafka starts its threads by C11's thrd_create(), which
// the sanitizer of g++ 12 does not know: it crashes in the first of them. These two, which the
// library finds before those of glibc, start and join them in a way that it knows.
#include <pthread.h>
#include <threads.h>

#include <cstdint>
#include <memory>

namespace {

struct start_s {
    thrd_start_t function;
    void* argument;
};

void* run(void* given) {
    const std::unique_ptr<start_s> start(static_cast<start_s*>(given));
    return reinterpret_cast<void*>(static_cast<std::intptr_t>(start->function(start->argument)));
}

}  // namespace

extern "C" int thrd_create(thrd_t* thread, thrd_start_t function, void* argument) {
    auto start = std::make_unique<start_s>(start_s{function, argument});
    if (pthread_create(thread, nullptr, run, start.get()) != 0) {
        return thrd_error;
    }
    static_cast<void>(start.release());  // the thread's now
    return thrd_success;
}

extern "C" int thrd_join(thrd_t thread, int* result) {
    void* given = nullptr;
    if (pthread_join(thread, &given) != 0) {
        return thrd_error;
    }
    if (result != nullptr) {
        *result = static_cast<int>(reinterpret_cast<std::intptr_t>(given));
    }
    return thrd_success;
}
