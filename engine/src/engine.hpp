// SPDX-License-Identifier: MIT
// The whole engine: the radio, the host's side of it, the connection, and the thread
// that runs the radio. Only the operations of rxe.h see all of it; every other
// function gets the radio_s and the host_s that it uses.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <thread>

#include "control.hpp"
#include "host.hpp"
#include "radio.hpp"

namespace rxe {

// UP: RXE_connect has succeeded. CLOSING: RXE_disconnect is under way, until the radio thread
// has ended; other calls are refused meanwhile.
enum class connection_e : std::uint8_t { DOWN, UP, CLOSING };

// The library has one engine, in api.cpp, which lives as long as the process; benchmarks make
// their own.
struct engine_s {
    host_s host;
    radio_s radio;
    // Opened and closed with the connection.
    control_s control;

    // All below is guarded by host.mutex. Written by the host's threads, except
    // for `runsEnded`, which the radio thread writes.
    std::thread thread;
    // Notified when a run has ended; RXE_stop waits for it.
    std::condition_variable ended;
    connection_e connection = connection_e::DOWN;
    // The radio thread ends when it has finished what it does. Set by stopThread, cleared by
    // startThread.
    bool exiting = false;
    // Counts runs. By it RXE_stop notices that its run has ended, also when the next one has
    // begun since.
    std::uint64_t runsEnded = 0;
    // Tags a second, for RXE_txFakeTags. Read by the radio thread when a run begins.
    std::uint16_t fakeTagRate = 0;
};

// Starts the radio thread. False when the system cannot create one; then nothing has
// changed. The caller holds host.mutex.
bool startThread(engine_s* engine);
// Ends the radio thread, and the run that it is in, and waits for it. The caller is another
// thread and holds no lock.
void stopThread(engine_s* engine);
// Whether the caller is the radio thread, and so within the host's callback.
bool onRadioThread(const engine_s& engine);

}  // namespace rxe
