// SPDX-License-Identifier: MIT
// The operations of rxe.h: arguments and states are checked here, the work is
// done behind. None throws: what can fail by allocation happens at RXE_connect
// and in the radio thread's own lists.
#include <algorithm>
#include <cstdio>
#include <string>
#include <utility>

#include "engine.hpp"
#include "health.hpp"
#include "population.hpp"
#include "status.hpp"

namespace rxe {
namespace {

// RXE_stop and RXE_start wait this long for a run to end, which only a callback that does not
// return can prevent.
constexpr std::chrono::seconds stopPatience{5};
// A question of the control socket waits this long; its caller may wait for 5 s.
constexpr std::chrono::seconds answerPatience{2};

// Bits a second that a serial line of the reader may have.
constexpr std::array<unsigned long, 8> baudRates{9600, 19200, 38400, 57600, 115200, 230400, 460800, 921600};

// Never destroyed: the radio thread may still run while the process ends.
engine_s& engine() {
    static engine_s& instance = *new engine_s;
    return instance;
}

// The host's side, which any thread may use.
host_s& host() {
    return engine().host;
}

// Passes a status on to the host and counts it for the error log when it is a refusal.
RXE_API_STATUS told(RXE_API_STATUS status) {
    if (status != RXE_OK) {
        host().refusals.fetch_add(1, std::memory_order_relaxed);
        host().lastRefusal.store(status, std::memory_order_relaxed);
    }
    return status;
}
// The same for a status of the engine's own.
RXE_API_STATUS told(status_e status) {
    return told(toApi(status));
}

// The status that the scenario or a control message has for this call; RXE_OK
// for none.
RXE_API_STATUS failure(const char* operation, int parameter = -1) {
    return told(failureOf(operation, parameter, &host().failures));
}

// False while the connection is being closed.
bool isConnected() {
    const std::lock_guard lock(host().mutex);
    return engine().connection == connection_e::UP;
}

// `shadowed`: a value that repeats the stored one stays with the library.
RXE_API_STATUS write(const char* operation, unsigned short id, const void* record, bool shadowed = false) {
    if (const RXE_API_STATUS failed = failure(operation, id); failed != RXE_OK) {
        return failed;
    }
    if (!isConnected()) {
        return told(STATUS_NOT_CONNECTED);
    }
    if (record == nullptr) {
        return told(STATUS_NULL_POINTER);
    }
    bool answered = false;
    const RXE_API_STATUS status = setParam(&host().params, id, record, shadowed, &answered);
    if (shadowed && status == RXE_OK) {
        (answered ? host().shadowAnswered : host().shadowWritten).fetch_add(1, std::memory_order_relaxed);
    }
    return told(status);
}

// A start that comes while the last run's end-of-run packet is with the host
// waits for it, but not when it is the callback that starts.
RXE_API_STATUS begin(activity_e activity, std::uint16_t fakeTagRate) {
    engine_s& e = engine();
    std::unique_lock lock(e.host.mutex);
    if (e.connection != connection_e::UP) {
        return told(STATUS_NOT_CONNECTED);
    }
    if (e.host.activity.load(std::memory_order_relaxed) == activity_e::ENDING && !onRadioThread(e)) {
        e.ended.wait_for(lock, stopPatience, [&] {
            return e.host.activity.load(std::memory_order_relaxed) != activity_e::ENDING;
        });
    }
    if (e.connection != connection_e::UP) {  // the wait has let a disconnect pass
        return told(STATUS_NOT_CONNECTED);
    }
    if (e.host.activity.load(std::memory_order_relaxed) != activity_e::IDLE) {
        return told(STATUS_ALREADY_STARTED);
    }
    e.fakeTagRate = fakeTagRate;
    e.host.stopRequested.store(false, std::memory_order_relaxed);
    e.host.activity.store(activity, std::memory_order_relaxed);
    e.host.wake.notify_all();
    return RXE_OK;
}

// Puts radio and host into their state after power-up in this scenario. The caller holds the
// lock, and there is not a radio thread yet. NVM parameters stay, and so do failures of calls
// before RXE_connect: they do not belong to a connection.
void powerUp(scenario_s scenario, replay_s replay, radio_s* radio, host_s* host) {
    resetParams(scenario, &host->params);
    radio->scenario = std::move(scenario);
    radio->replay = std::move(replay);
    radio->world = makeWorld(radio->scenario);
    clearReported(&radio->reported);
    radio->channelUses.clear();
    radio->random.state = radio->scenario.seed;
    radio->now = radio->nanos = radio->lastOngoing = radio->nextEvent = 0;
    radio->onAir = notOnAir;
    radio->origin = std::chrono::steady_clock::now();
    beginHealth(radio, &host->params);
    beginTimeline(radio->scenario, &radio->timeline);
    takeEvents(&host->events);  // those of the last connection
    host->refusals.store(0, std::memory_order_relaxed);
    host->lastRefusal.store(RXE_OK, std::memory_order_relaxed);
    host->shadowAnswered.store(0, std::memory_order_relaxed);
    host->shadowWritten.store(0, std::memory_order_relaxed);
    host->stopRequested.store(false, std::memory_order_relaxed);
    host->errorLogRequested.store(false, std::memory_order_relaxed);
    host->resetRequested.store(false, std::memory_order_relaxed);
}

// Control thread: the radio thread is woken to apply the event.
void passOn(event_s event) {
    engine_s& e = engine();
    postEvent(std::move(event), &e.host.events);
    { const std::lock_guard lock(e.host.mutex); }  // the radio sleeps now, or will see the event
    e.host.wake.notify_all();
}

// Control thread. The radio thread answers between two of its steps, unless the host's callback
// keeps it.
std::string answerOf(event_s question) {
    if (engine().radio.replay.active()) {
        return "a packet log is played back, which has no tags";
    }
    question.answer = std::make_shared<std::promise<std::string>>();
    std::future<std::string> answer = question.answer->get_future();
    passOn(std::move(question));
    return answer.wait_for(answerPatience) == std::future_status::ready
               ? answer.get()
               : "the radio has not answered in time: the host's callback does not return";
}

// Control thread. A call that is to fail does so before the reply is sent, and a question waits for
// its answer; every other event goes to the radio thread. An antenna that the reader does not have
// is refused.
std::string takeControlEvent(event_s event) {
    engine_s& e = engine();
    const bool isOfPort = event.kind == event_e::ANTENNA || event.kind == event_e::PA_FAILURE;
    if (const unsigned ports = antennaPorts(e.host.params); isOfPort && event.port > ports) {
        return lineOf({"must be from 1 to " + std::to_string(ports) + ", as the reader has no more", "port"});
    }
    if (event.kind == event_e::FAIL) {
        addFailure({event.operation, event.parameter, event.value, event.after, event.count},
                   &e.host.failures);
        return "ok";
    }
    if (event.kind == event_e::ASK_FAILING) {
        return tellFailures(&e.host.failures);
    }
    if (event.kind == event_e::ASK_TAG) {
        return answerOf(std::move(event));
    }
    passOn(std::move(event));
    return "ok";
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
    if (loadScenario(&scenario, &error) && !isConnected()) {
        presetFailures(scenario.failing, &host().failures);
    }
    if (const RXE_API_STATUS failed = failure("RXE_getAPIVerNum"); failed != RXE_OK) {
        return failed;
    }
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
    const std::lock_guard lock(e.host.mutex);
    if (e.connection != connection_e::DOWN) {
        return told(STATUS_ALREADY_CONNECTED);
    }
    scenario_s scenario;
    replay_s replay;
    std::string error;
    if (!loadScenario(&scenario, &error) || !loadReplay(&replay, &error)) {
        std::fprintf(stderr, "%s\n", error.c_str());
        return told(STATUS_BAD_SCENARIO);
    }
    presetFailures(scenario.failing, &e.host.failures);
    if (const RXE_API_STATUS failed = failure("RXE_connect"); failed != RXE_OK) {
        return failed;
    }
    powerUp(std::move(scenario), std::move(replay), &e.radio, &e.host);
    if (!startThread(&e)) {
        return told(STATUS_NO_THREAD);
    }
    e.connection = connection_e::UP;
    // The connection stands also without its control socket, which only tests and demos need.
    openControl(e.radio.scenario.control, takeControlEvent, &e.control, &error);
    if (!error.empty()) {
        std::fprintf(stderr, "%s\n", error.c_str());
    }
    return RXE_OK;
}

RXE_API_STATUS RXE_disconnect(void) {
    using namespace rxe;
    if (const RXE_API_STATUS failed = failure("RXE_disconnect"); failed != RXE_OK) {
        return failed;
    }
    engine_s& e = engine();
    {
        const std::lock_guard lock(e.host.mutex);
        if (e.connection != connection_e::UP) {
            return told(STATUS_NOT_CONNECTED);
        }
        if (onRadioThread(e)) {
            return told(STATUS_IN_CALLBACK);
        }
        e.connection = connection_e::CLOSING;
    }
    // Without the lock, for which the radio thread and the callback may wait. CLOSING keeps other
    // calls away meanwhile.
    closeControl(&e.control);
    stopThread(&e);
    // What belongs to the connection goes with it.
    forgetFailures(&e.host.failures);
    e.host.callback.store(nullptr, std::memory_order_relaxed);
    closeLog(&e.host.log);
    const std::lock_guard lock(e.host.mutex);
    e.connection = connection_e::DOWN;
    return RXE_OK;
}

RXE_API_STATUS RXE_setCallback(int (*callback)(RXE_packet_s*)) {
    using namespace rxe;
    if (const RXE_API_STATUS failed = failure("RXE_setCallback"); failed != RXE_OK) {
        return failed;
    }
    if (!isConnected()) {
        return told(STATUS_NOT_CONNECTED);
    }
    if (callback == nullptr) {
        return told(STATUS_NULL_POINTER);
    }
    // Release: what the host has prepared for its callback is seen by the radio thread.
    host().callback.store(callback, std::memory_order_release);
    return RXE_OK;
}

RXE_API_STATUS RXE_getParam(unsigned short id, void* record) {
    using namespace rxe;
    if (const RXE_API_STATUS failed = failure("RXE_getParam", id); failed != RXE_OK) {
        return failed;
    }
    if (!isConnected()) {
        return told(STATUS_NOT_CONNECTED);
    }
    return told(record == nullptr ? toApi(STATUS_NULL_POINTER) : getParam(&host().params, id, record));
}

RXE_API_STATUS RXE_setParam(unsigned short id, void* record) {
    return rxe::write("RXE_setParam", id, record);
}

// The first flag changes nothing: every write is done when the call returns.
RXE_API_STATUS RXE_setParam2(unsigned short id, void* record, bool, bool useShadow) {
    return rxe::write("RXE_setParam2", id, record, useShadow);
}

RXE_API_STATUS RXE_setNVMParam(unsigned short id, void* record) {
    using namespace rxe;
    if (const RXE_API_STATUS failed = failure("RXE_setNVMParam", id); failed != RXE_OK) {
        return failed;
    }
    if (!isConnected()) {
        return told(STATUS_NOT_CONNECTED);
    }
    return told(record == nullptr ? toApi(STATUS_NULL_POINTER) : setNvmParam(&host().params, id, record));
}

RXE_API_STATUS RXE_start(void) {
    using namespace rxe;
    if (const RXE_API_STATUS failed = failure("RXE_start"); failed != RXE_OK) {
        return failed;
    }
    return begin(activity_e::INVENTORY, 0);
}

RXE_API_STATUS RXE_stop(void) {
    using namespace rxe;
    if (const RXE_API_STATUS failed = failure("RXE_stop"); failed != RXE_OK) {
        return failed;
    }
    engine_s& e = engine();
    std::unique_lock lock(e.host.mutex);
    if (e.connection != connection_e::UP) {
        return told(STATUS_NOT_CONNECTED);
    }
    if (e.host.activity.load(std::memory_order_relaxed) == activity_e::IDLE) {
        return RXE_OK;
    }
    e.host.stopRequested.store(true, std::memory_order_relaxed);
    e.host.wake.notify_all();
    if (onRadioThread(e)) {
        return RXE_OK;
    }
    // By count and not by activity: the next start may come before this thread wakes.
    const std::uint64_t before = e.runsEnded;
    const bool over = e.ended.wait_for(lock, stopPatience, [&] { return e.runsEnded != before; });
    return over ? RXE_OK : told(STATUS_TIMEOUT);
}

RXE_API_STATUS RXE_resume(void) {
    if (const RXE_API_STATUS failed = rxe::failure("RXE_resume"); failed != RXE_OK) {
        return failed;
    }
    const rxe::activity_e activity = rxe::host().activity.load(std::memory_order_relaxed);
    const bool ongoing = activity == rxe::activity_e::INVENTORY || activity == rxe::activity_e::FAKE_TAGS;
    return ongoing ? RXE_OK : RXE_NO_START_ONGOING;
}

RXE_API_STATUS RXE_resetDb(void) {
    using namespace rxe;
    if (const RXE_API_STATUS failed = failure("RXE_resetDb"); failed != RXE_OK) {
        return failed;
    }
    if (!isConnected()) {
        return told(STATUS_NOT_CONNECTED);
    }
    host().resetRequested.store(true, std::memory_order_relaxed);
    return RXE_OK;
}

RXE_API_STATUS RXE_getErr(void) {
    using namespace rxe;
    if (const RXE_API_STATUS failed = failure("RXE_getErr"); failed != RXE_OK) {
        return failed;
    }
    engine_s& e = engine();
    const std::lock_guard lock(e.host.mutex);
    if (e.connection != connection_e::UP) {
        return told(STATUS_NOT_CONNECTED);
    }
    e.host.errorLogRequested.store(true, std::memory_order_relaxed);
    e.host.wake.notify_all();
    return RXE_OK;
}

const char* RXE_strerror(RXE_API_STATUS status) {
    return rxe::statusText(status);
}

RXE_API_STATUS RXE_txFakeTags(unsigned short count) {
    using namespace rxe;
    if (const RXE_API_STATUS failed = failure("RXE_txFakeTags"); failed != RXE_OK) {
        return failed;
    }
    return count == 0 && isConnected() ? told(STATUS_BAD_ARGUMENT) : begin(activity_e::FAKE_TAGS, count);
}

RXE_API_STATUS RXE_enablePacketLogging(const char* file) {
    using namespace rxe;
    if (const RXE_API_STATUS failed = failure("RXE_enablePacketLogging"); failed != RXE_OK) {
        return failed;
    }
    if (!isConnected()) {
        return told(STATUS_NOT_CONNECTED);
    }
    if (file == nullptr) {
        return told(STATUS_NULL_POINTER);
    }
    return openLog(file, engine().radio.scenario.fastClock, &host().log) ? RXE_OK : told(STATUS_FILE);
}

RXE_API_STATUS RXE_disablePacketLogging(void) {
    using namespace rxe;
    if (const RXE_API_STATUS failed = failure("RXE_disablePacketLogging"); failed != RXE_OK) {
        return failed;
    }
    if (!isConnected()) {
        return told(STATUS_NOT_CONNECTED);
    }
    return closeLog(&host().log) ? RXE_OK : told(STATUS_FILE);
}

RXE_API_STATUS RXE_formatPayloadToStruct(RXE_packet_s* packet, void* record) {
    using namespace rxe;
    if (const RXE_API_STATUS failed = failure("RXE_formatPayloadToStruct"); failed != RXE_OK) {
        return failed;
    }
    if (packet == nullptr || record == nullptr) {
        return toApi(STATUS_NULL_POINTER);
    }
    return decodePayload(packet->type, {packet->payload, packet->length}, record);
}
}
