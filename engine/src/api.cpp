// SPDX-License-Identifier: MIT
// The operations of rxe.h: arguments and states are checked here, the work is
// done behind. None throws: what can fail by allocation happens at RXE_connect
// and in the radio thread's own lists.
#include <algorithm>
#include <cstdio>
#include <string>

#include "engine.hpp"
#include "status.hpp"

namespace rxe {
namespace {

// How long RXE_stop waits for a callback that does not return.
constexpr std::chrono::seconds STOP_PATIENCE{5};

constexpr std::array<unsigned long, 8> baudRates{9600, 19200, 38400, 57600, 115200, 230400, 460800, 921600};

// Never destroyed: the radio thread may still run while the process ends.
engine_s& engine() {
    static engine_s& instance = *new engine_s;
    return instance;
}

// Counts a refusal for the error log on its way to the host.
RXE_API_STATUS told(RXE_API_STATUS status) {
    if (status != RXE_OK) {
        engine().refusals.fetch_add(1, std::memory_order_relaxed);
        engine().lastRefusal.store(status, std::memory_order_relaxed);
    }
    return status;
}
RXE_API_STATUS told(status_e status) {
    return told(toApi(status));
}

bool isConnected() {
    const std::lock_guard lock(engine().mutex);
    return engine().connection == connection_e::UP;
}

RXE_API_STATUS write(unsigned short id, const void* record) {
    if (!isConnected()) {
        return told(STATUS_NOT_CONNECTED);
    }
    return told(record == nullptr ? toApi(STATUS_NULL_POINTER) : setParam(&engine().params, id, record));
}

// A start that comes while the last run's end-of-run packet is with the host
// waits for it, but not when it is the callback that starts.
RXE_API_STATUS begin(activity_e activity, std::uint16_t fakeTagRate) {
    engine_s& e = engine();
    std::unique_lock lock(e.mutex);
    if (e.connection != connection_e::UP) {
        return told(STATUS_NOT_CONNECTED);
    }
    if (e.activity.load(std::memory_order_relaxed) == activity_e::ENDING && !onRadioThread(e)) {
        e.ended.wait_for(lock, STOP_PATIENCE,
                         [&] { return e.activity.load(std::memory_order_relaxed) != activity_e::ENDING; });
    }
    if (e.connection != connection_e::UP) {  // the wait has let a disconnect pass
        return told(STATUS_NOT_CONNECTED);
    }
    if (e.activity.load(std::memory_order_relaxed) != activity_e::IDLE) {
        return told(STATUS_ALREADY_STARTED);
    }
    e.fakeTagRate = fakeTagRate;
    e.stopRequested.store(false, std::memory_order_relaxed);
    e.activity.store(activity, std::memory_order_relaxed);
    e.wake.notify_all();
    return RXE_OK;
}

}  // namespace
}  // namespace rxe

extern "C" {

RXE_API_STATUS RXE_getAPIVerNum(REL_VERSION_s* version, char** text) {
    using namespace rxe;
    if (version == nullptr) {
        return told(STATUS_NULL_POINTER);
    }
    // The version is asked for before there is a connection; a scenario that
    // cannot be read is told then, by RXE_connect.
    scenario_s scenario;
    std::string error;
    loadScenario(&scenario, &error);
    *version = scenario.library;
    if (text != nullptr) {
        static char name[] = "software radio engine";
        *text = name;
    }
    return RXE_OK;
}

RXE_API_STATUS RXE_connect(char* device, unsigned long baud) {
    using namespace rxe;
    engine_s& e = engine();
    if (device == nullptr) {
        return told(STATUS_NULL_POINTER);
    }
    if (*device == '\0' || std::ranges::find(baudRates, baud) == baudRates.end()) {
        return told(STATUS_BAD_ARGUMENT);
    }
    const std::lock_guard lock(e.mutex);
    if (e.connection != connection_e::DOWN) {
        return told(STATUS_ALREADY_CONNECTED);
    }
    scenario_s scenario;
    std::string error;
    if (!loadScenario(&scenario, &error)) {
        std::fprintf(stderr, "%s\n", error.c_str());
        return told(STATUS_BAD_SCENARIO);
    }
    e.scenario = scenario;
    resetParams(scenario, &e.params);
    e.radio.tags = makePopulation(scenario);
    clearReported(e.radio.tags.size(), &e.radio.reported);
    e.radio.random.state = scenario.seed;
    e.radio.now = e.radio.lastOngoing = 0;
    e.radio.origin = std::chrono::steady_clock::now();
    e.refusals.store(0, std::memory_order_relaxed);
    e.lastRefusal.store(RXE_OK, std::memory_order_relaxed);
    e.stopRequested.store(false, std::memory_order_relaxed);
    e.errorLogRequested.store(false, std::memory_order_relaxed);
    if (!startThread(&e)) {
        return told(STATUS_NO_THREAD);
    }
    e.connection = connection_e::UP;
    return RXE_OK;
}

RXE_API_STATUS RXE_disconnect(void) {
    using namespace rxe;
    engine_s& e = engine();
    {
        const std::lock_guard lock(e.mutex);
        if (e.connection != connection_e::UP) {
            return told(STATUS_NOT_CONNECTED);
        }
        if (onRadioThread(e)) {
            return told(STATUS_IN_CALLBACK);
        }
        e.connection = connection_e::CLOSING;
    }
    stopThread(&e);
    e.callback.store(nullptr, std::memory_order_relaxed);
    closeLog(&e.log);
    const std::lock_guard lock(e.mutex);
    e.connection = connection_e::DOWN;
    return RXE_OK;
}

RXE_API_STATUS RXE_setCallback(int (*callback)(RXE_packet_s*)) {
    using namespace rxe;
    if (!isConnected()) {
        return told(STATUS_NOT_CONNECTED);
    }
    if (callback == nullptr) {
        return told(STATUS_NULL_POINTER);
    }
    engine().callback.store(callback, std::memory_order_release);
    return RXE_OK;
}

RXE_API_STATUS RXE_getParam(unsigned short id, void* record) {
    using namespace rxe;
    if (!isConnected()) {
        return told(STATUS_NOT_CONNECTED);
    }
    return told(record == nullptr ? toApi(STATUS_NULL_POINTER) : getParam(&engine().params, id, record));
}

RXE_API_STATUS RXE_setParam(unsigned short id, void* record) {
    return rxe::write(id, record);
}

// There is no radio behind a serial line whose parameters could differ from
// the library's copy: both flags lead to the same record.
RXE_API_STATUS RXE_setParam2(unsigned short id, void* record, bool, bool) {
    return rxe::write(id, record);
}

RXE_API_STATUS RXE_setNVMParam(unsigned short id, void* record) {
    using namespace rxe;
    if (!isConnected()) {
        return told(STATUS_NOT_CONNECTED);
    }
    return told(record == nullptr ? toApi(STATUS_NULL_POINTER) : setNvmParam(&engine().params, id, record));
}

RXE_API_STATUS RXE_start(void) {
    return rxe::begin(rxe::activity_e::INVENTORY, 0);
}

RXE_API_STATUS RXE_stop(void) {
    using namespace rxe;
    engine_s& e = engine();
    std::unique_lock lock(e.mutex);
    if (e.connection != connection_e::UP) {
        return told(STATUS_NOT_CONNECTED);
    }
    if (e.activity.load(std::memory_order_relaxed) == activity_e::IDLE) {
        return RXE_OK;
    }
    e.stopRequested.store(true, std::memory_order_relaxed);
    e.wake.notify_all();
    if (onRadioThread(e)) {
        return RXE_OK;
    }
    const std::uint64_t before = e.runsEnded;
    const bool over = e.ended.wait_for(lock, STOP_PATIENCE, [&] { return e.runsEnded != before; });
    return over ? RXE_OK : told(STATUS_TIMEOUT);
}

RXE_API_STATUS RXE_resume(void) {
    const rxe::activity_e activity = rxe::engine().activity.load(std::memory_order_relaxed);
    const bool ongoing = activity == rxe::activity_e::INVENTORY || activity == rxe::activity_e::FAKE_TAGS;
    return ongoing ? RXE_OK : RXE_NO_START_ONGOING;
}

RXE_API_STATUS RXE_resetDb(void) {
    using namespace rxe;
    if (!isConnected()) {
        return told(STATUS_NOT_CONNECTED);
    }
    engine().resetRequested.store(true, std::memory_order_relaxed);
    return RXE_OK;
}

RXE_API_STATUS RXE_getErr(void) {
    using namespace rxe;
    engine_s& e = engine();
    const std::lock_guard lock(e.mutex);
    if (e.connection != connection_e::UP) {
        return told(STATUS_NOT_CONNECTED);
    }
    e.errorLogRequested.store(true, std::memory_order_relaxed);
    e.wake.notify_all();
    return RXE_OK;
}

const char* RXE_strerror(RXE_API_STATUS status) {
    return rxe::statusText(status);
}

RXE_API_STATUS RXE_txFakeTags(unsigned short count) {
    using namespace rxe;
    return count == 0 && isConnected() ? told(STATUS_BAD_ARGUMENT) : begin(activity_e::FAKE_TAGS, count);
}

RXE_API_STATUS RXE_enablePacketLogging(const char* file) {
    using namespace rxe;
    if (!isConnected()) {
        return told(STATUS_NOT_CONNECTED);
    }
    if (file == nullptr) {
        return told(STATUS_NULL_POINTER);
    }
    return openLog(file, engine().scenario.fastClock, &engine().log) ? RXE_OK : told(STATUS_FILE);
}

RXE_API_STATUS RXE_disablePacketLogging(void) {
    using namespace rxe;
    if (!isConnected()) {
        return told(STATUS_NOT_CONNECTED);
    }
    return closeLog(&engine().log) ? RXE_OK : told(STATUS_FILE);
}

RXE_API_STATUS RXE_formatPayloadToStruct(RXE_packet_s* packet, void* record) {
    using namespace rxe;
    if (packet == nullptr || record == nullptr) {
        return toApi(STATUS_NULL_POINTER);
    }
    return decodePayload(packet->type, {packet->payload, packet->length}, record);
}
}
