// SPDX-License-Identifier: MIT
// How the daemon comes up and goes down, with and without a radio.
#include <sys/syscall.h>

#include <gmock/gmock.h>
#include <signal.h>

#include <regex>

#include "support/reader.hpp"

namespace {

using testing::HasSubstr;
using testing::StartsWith;

std::size_t countOf(std::string_view part, std::string_view text) {
    const std::size_t at = text.find(part);
    return at == text.npos ? 0 : 1 + countOf(part, text.substr(at + 1));
}

// The system calls that wait for sockets. 64-bit ARM has only the two younger ones.
constexpr long socketWaits[] = {
#ifdef SYS_poll
    SYS_poll, SYS_epoll_wait,
#endif
    SYS_ppoll, SYS_epoll_pwait};

// Whether the thread of this name waits for its sockets.
bool waits(const process_s& process, const std::string& thread) {
    const std::filesystem::path tasks = "/proc/" + std::to_string(process.pid) + "/task";
    return std::ranges::any_of(std::filesystem::directory_iterator(tasks), [&](const auto& task) {
        const std::string call = readTextFile(task.path() / "syscall");
        return readTextFile(task.path() / "comm") == thread + "\n" &&
               std::ranges::any_of(
                   socketWaits, [&](long number) { return call.starts_with(std::to_string(number) + " "); });
    });
}

// With the files that were full, which a busy machine may need for the simulations' reports.
std::string wholeLog(const reader_s& reader) {
    std::string log;
    for (const char* const old : {".5", ".4", ".3", ".2", ".1"}) {
        const std::filesystem::path file = reader.directory.path / (std::string("tarnwick.log") + old);
        log += std::filesystem::exists(file) ? readTextFile(file) : "";
    }
    return log + reader.log();
}

TEST(StartupShutdown, servesWithoutARadioUntilExit) {
    const auto writeRoom = [](const auto& directory) {
        writeTextFile(directory / "aar.json", R"({"aar_info": [{"x":0,"y":0,"z":0,"orientation":0}]})");
        const std::string tag = R"({"tag_id":"E2801160","x":3,"y":0,"z":0})";
        writeTextFile(directory / "tag.json", R"({"tag_info": [)" + tag + "," + tag + "]}");
    };
    reader_s reader({.arguments = {"-v", "--no_rxex", "--no_rxe"}, .server = false, .prepare = writeRoom});
    EXPECT_THAT(reader.daemon->output(),
                StartsWith("Welcome to tarnwick\n-v\n--no_rxex\n--no_rxe\nnot using rxe \n"));
    EXPECT_EQ(ask("Exit"), "Failure: Command Not Found");
    EXPECT_EQ(ask(" data_analytics \n"), "Success: data_analytics OFF");
    // Simulations that send without a pause, and log each report, end with the daemon.
    for (int i = 0; i < 2; ++i) {
        ask("start sim_bearing 2000000000 0");
    }
    EXPECT_TRUE(reader.daemon->waitForOutput("simulated 1000 packets\n"));
    EXPECT_EQ(reader.exit(), 0);
    EXPECT_FALSE(std::filesystem::exists(replyFile));

    // Without the time in front of each line, and without the reports until the radio's end.
    std::string log = std::regex_replace(wholeLog(reader), std::regex("(^|\n)[^ ]* "), "$1");
    const std::size_t closed = log.find("DEBUG main RXE connection closed\n");
    ASSERT_NE(closed, std::string::npos);
    log = std::regex_replace(log.substr(0, closed), std::regex("DEBUG radio .*\n"), "") + log.substr(closed);
    EXPECT_THAT(log, StartsWith("INFO tarnwick: 0.2.58.12\nINFO zmq_intfc zmq: "));
    EXPECT_THAT(log, HasSubstr("INFO requests Request: Exit\n"
                               "INFO requests Response: Failure: Command Not Found\n"
                               "INFO requests Request:  data_analytics \\n\n"));
    const std::size_t end = log.find("INFO requests Request: exit\n");
    ASSERT_NE(end, std::string::npos);
    // No more than what the heartbeat has asked for: temperatures of a radio that is not there.
    EXPECT_THAT(log.substr(0, end),
                testing::Not(testing::ContainsRegex(
                    "ERROR (main|radio|requests|zmq_intfc) |DEBUG requests|Antenna|onnect")));
    // The engine is disconnected in any case, and says so when it never was connected.
    EXPECT_THAT(log.substr(end), testing::MatchesRegex("INFO requests Request: exit\n"
                                                       "INFO requests Response: Success\n"
                                                       "DEBUG main stopping radio thread\n"
                                                       "(ERROR rxe_intfc failed with error code: [0-9]+\n)?"
                                                       "DEBUG main RXE connection closed\n"
                                                       "DEBUG zmq_intfc closing ZMQ sockets...\n"
                                                       "DEBUG zmq_intfc succeeded\n"
                                                       "INFO main goodbye\n"));
}

TEST(StartupShutdown, theConsoleGivesRequestsAndASignalEndsItAfterOneFailedWait) {
    for (const int number : {SIGTERM, SIGINT}) {
        SCOPED_TRACE(number);
        reader_s reader({.arguments = {"--cli", "--no_rxe", "-v"}, .server = false});
        EXPECT_THAT(reader.daemon->output(), HasSubstr("--cli\nCLI is enabled\n--no_rxe\nnot using rxe \n"));
        reader.daemon->write("dance\nsubscribers 12\n");
        EXPECT_TRUE(reader.daemon->waitForOutput("\nFailure: Command Not Found\n"));
        EXPECT_TRUE(reader.daemon->waitForOutput("\nSuccess\n"));
        EXPECT_THAT(ask("subscribers"), StartsWith("Success: subscribers 12 "));
        // The radio thread sends some news before it waits, and the client that saw the
        // daemon answer leaves; from then on nothing but the signal wakes the wait for
        // requests. It interrupts that wait, and not any other sleep.
        reader.daemon->write("version");
        int looks = 0;
        ASSERT_TRUE(eventually([&] {
            const bool quiet = waits(*reader.daemon, "radio") && waits(*reader.daemon, "tarnwick");
            looks = quiet ? looks + 1 : 0;
            return looks == 10;
        }));
        const auto sent = std::chrono::steady_clock::now();
        reader.daemon->signal(number);
        EXPECT_EQ(reader.daemon->waitForExit(), 0);
        EXPECT_GE(std::chrono::steady_clock::now() - sent, std::chrono::seconds(1));
        const std::string output = reader.daemon->output();
        EXPECT_EQ(countOf("ERROR requests zmq polling error failed: Interrupted system call\n", output), 1U)
            << output;
        EXPECT_THAT(output.substr(output.find("Interrupted")), HasSubstr("\nSuccess\n"));
        EXPECT_EQ(output.find("Request: version"), output.npos) << "it was not finished";
        EXPECT_THAT(output, testing::EndsWith("INFO main goodbye\n"));
        EXPECT_FALSE(std::filesystem::exists(replyFile));
    }
}

// A crash, or a program that is not ours, may have left the reply file; the log may have
// no room, or a folder in its place.
TEST(StartupShutdown, worksWhateverLiesInItsWay) {
    void (*const left[])(const std::filesystem::path&) = {
        [](const auto&) { writeTextFile(replyFile, "left"); },
        [](const auto& directory) { create_symlink("/dev/full", directory / "tarnwick.log"); },
        [](const auto& directory) { create_directory(directory / "tarnwick.log"); },
    };
    for (const auto prepare : left) {
        reader_s reader({.arguments = {"--no_rxe", "-v"}, .server = false, .prepare = prepare});
        for (int i = 0; i < 300; ++i) {  // past the log's flush threshold
            ASSERT_EQ(ask("data_analytics"), "Success: data_analytics OFF");
        }
        EXPECT_EQ(reader.exit(), 0);
        EXPECT_FALSE(std::filesystem::exists(replyFile));
    }
}

// The radio has one user: a second daemon ends before it touches a socket. One
// without a radio takes the reply socket over, and the first still ends properly.
TEST(StartupShutdown, aSecondInstance) {
    reader_s first;
    const temp_dir_s second;
    writeTextFile(second.path / "busy.json", R"({"failing": [{"operation": "RXE_connect", "status": 5}]})");
    process_s refused(TARNWICK_BIN_DIR "/tarnwick",
                      {{}, {{"RXE_SCENARIO", second.path / "busy.json"}}, second.path});
    EXPECT_EQ(refused.waitForExit(), 0);
    EXPECT_THAT(readTextFile(second.path / "tarnwick.log"),
                testing::ContainsRegex("rxe: 5 - is another application connected to RXE \\(LLRP, TW\\)[?]\n"
                                       ".* the radio engine refused RXE_connect for /dev/ttyS1: status 5 "));
    EXPECT_EQ(ask("subscribers 3"), "Success");

    process_s other(TARNWICK_BIN_DIR "/tarnwick", {{"--no_rxe"}, {}, second.path});
    EXPECT_TRUE(eventually([] { return ask("subscribers").starts_with("Success: subscribers 1 "); }));
    EXPECT_EQ(ask("exit"), "Success");
    EXPECT_EQ(other.waitForExit(), 0);
    first.daemon->signal(SIGTERM);
    EXPECT_EQ(first.daemon->waitForExit(), 0);
}

TEST(StartupShutdown, aReplySocketThatCannotBeBoundEndsIt) {
    const auto block = [](const auto&) { std::filesystem::create_directory(replyFile); };
    reader_s reader({.arguments = {"--no_rxe"}, .server = false, .prepare = block, .awaitReady = false});
    EXPECT_EQ(reader.daemon->waitForExit(), 0);
    EXPECT_THAT(reader.log(),
                testing::ContainsRegex("ERROR zmq_intfc responder bind failed: .*\n.* ERROR main "
                                       "Failed to initiazlize main zmq connections\n$"));
    std::filesystem::remove(replyFile);
}

}  // namespace
