// SPDX-License-Identifier: MIT
// What a reader does after a boot: "twctl remember" writes it down, "twctl resume" brings it back. The
// examples of docs/restart.md are the rest.
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <zmq.h>

#include <nlohmann/json.hpp>

#include "twctl/peer.hpp"

namespace {

using nlohmann::json;
using testing::HasSubstr;

struct ran_s {
    int status;
    std::string output;
};

ran_s twctl(const std::string& line) {
    process_s client("bash", typed(line));
    const int status = client.waitForExit().value_or(-1);
    return {status, client.output()};
}

bool isReading() {
    return ask("status radioActivity") == R"(Success: {"radioActivity": "active"})";
}

std::vector<std::string> settings() {
    std::vector<std::string> replies;
    for (const char* question : {"mode as_set", "events", "subscribers", "data_analytics"}) {
        replies.push_back(ask(question));
    }
    return replies;
}

// The first report after the kill comes, and in the form that the owner has chosen.
TEST(Boot, aReaderThatWasKilledWorksAsBefore) {
    reader_s reader;
    const std::string file = reader.directory.path / "boot.json";
    for (const char* request : {R"(mode {"type":"SIMPLE","antennas":[1],"reportFilter":{}})",
                                R"(events {"heartbeat":{"period":4294967295,"stats":["odd","uptime"]}})",
                                R"(events {"heartbeat":{"period":77,"stats":[]}})", "subscribers 2",
                                "data_analytics STRING", "start"}) {
        ASSERT_EQ(ask(request), "Success") << request;
    }
    ASSERT_EQ(twctl("remember " + file).status, 0);
    ASSERT_EQ(ask(R"(events {"heartbeat":{"period":77,"stats":[]}})"), "Success");
    const std::vector<std::string> before = settings();
    reader.daemon->signal(SIGKILL);
    ASSERT_EQ(reader.daemon->waitForExit(), 128 + SIGKILL);
    const std::string ended = reader.log();

    const outside_subscriber_s subscriber;
    process_s resume("bash", typed("resume --directory " + reader.directory.path.string() + " " + file));
    reader.daemon = std::make_unique<process_s>(TARNWICK_BIN_DIR "/tarnwick",
                                                process_options_s{{}, {}, reader.directory.path});
    EXPECT_EQ(resume.waitForExit(), 0) << resume.output();
    EXPECT_THAT(subscriber.receive().value_or(frames_t{""})[0], HasSubstr(R"("eventNum":0,)"));
    EXPECT_TRUE(isReading());
    const std::vector<std::string> after = settings();
    EXPECT_EQ(after[0], before[0]);
    EXPECT_EQ(json::parse(after[1].substr(9))["heartbeat"]["period"], 77);
    EXPECT_EQ(json::parse(after[1].substr(9))["heartbeat"]["stats"].size(), 14U) << "a name comes twice";
    EXPECT_EQ(after[2], before[2]);
    EXPECT_EQ(after[3], before[3]);
    // Again, as systemd does it after a crash of which nothing is left.
    EXPECT_THAT(twctl("resume " + file).output, HasSubstr("nothing to change"));
    EXPECT_EQ(reader.exit(), 0);
    std::string sent;
    std::istringstream log(reader.log().substr(ended.size()));
    for (std::string line; std::getline(log, line);) {
        const std::size_t request = line.find("Request: ");
        const bool isSetting = request != line.npos && line.find(' ', request + 9) != line.npos;
        sent += isSetting && !line.ends_with("radioActivity") && !line.ends_with("as_set")
                    ? line.substr(request + 9) + "\n"
                    : "";
    }
    EXPECT_EQ(sent,
              "events {\"heartbeat\":{\"period\":77,\"stats\":[]}}\nsubscribers 2\ndata_analytics STRING\n"
              "start doNotPersistState\n");
}

TEST(Boot, resume) {
    struct case_s {
        std::string before;  // requests and shell commands in the daemon's directory
        std::string file;
        int status;
        std::string output;  // a part
        bool reading;
        std::string form = "OFF";
    };
    const std::string asItWas = R"({"start": "as-it-was"})";
    const case_s cases[] = {
        {"", asItWas, 0, "not started: there is no autoStart.txt\n", false},
        {"twctl start; twctl stop", R"({"start": "always"})", 0, "radioActivity: active, was", true},
        {"twctl stop; twctl start doNotPersistState", asItWas, 0, "nothing to change", true},
        {"", R"({"start": "never", "data_analytics": "BINARY"})", 0, "BINARY, was OFF", true, "BINARY"},
        {"twctl stop", asItWas, 0, "not started: autoStart.txt is false\n", false, "BINARY"},
        {"echo true > autoStart.txt; twctl data_analytics OFF", asItWas, 0, "active, was inactive", true},
        {"twctl stop; echo maybe > autoStart.txt", asItWas, 3, "neither true nor false", false},
        {"", asItWas + " --directory /nonexistent", 3, "/nonexistent: not a directory", false},
        {"", R"({"start": "always", "form": 1, "data_analytics": "STRING"})", 1, "unknown key \"form\"",
         false},
        {"twctl engine fail RXE_start 77", R"({"subscribers": 9, "start": "always"})", 1,
         "twctl: start: Failure: RXE_start() returned error: 77\n", false},
        {"", R"({"subscribers": 1, /* " */ "data_analytics": "OFF"} // {)", 0, "subscribers: 1, was 9\n",
         false},
        {"mkdir boot.json", "boot.json", 3, "boot.json: Is a directory", false},
    };
    const reader_s reader;
    const auto shell = [&](const std::string& line) {
        process_s bash("bash",
                       {{"-c", "PATH='" TARNWICK_BIN_DIR "':$PATH; " + line}, {}, reader.directory.path});
        const int status = bash.waitForExit().value_or(-1);
        return ran_s{status, bash.output()};
    };
    for (const case_s& row : cases) {
        SCOPED_TRACE(row.before + " | " + row.file);
        shell(row.before);
        const std::size_t options = row.file.find(" --");
        const ran_s ran = shell("twctl resume '" + row.file.substr(0, options) + "'" +
                                (options == row.file.npos ? "" : row.file.substr(options)));
        EXPECT_EQ(ran.status, row.status);
        EXPECT_THAT(ran.output, HasSubstr(row.output));
        EXPECT_EQ(isReading(), row.reading);
        EXPECT_EQ(ask("data_analytics"), "Success: data_analytics " + row.form);
    }
    EXPECT_EQ(readTextFile(reader.directory.path / "autoStart.txt"), "maybe\n") << "resume is not a client";

    // Without port 5160 there is no way for the reports, so that the radio is not started.
    const socket_s other(ZMQ_PUB);
    ASSERT_EQ(zmq_bind(other.handle, "tcp://*:5160"), 0);
    const ran_s ran = shell(R"(twctl resume '{"start": "always", "data_analytics": "STRING"}')");
    EXPECT_EQ(ran.status, 1);
    EXPECT_EQ(ran.output,
              "twctl: data_analytics: Failure: Failed to open ZMQ socket for data\n"
              "twctl: the radio is not started, since its reports would not be as the file says\n");
    EXPECT_FALSE(isReading());
}

TEST(Boot, rememberLosesNothing) {
    const reader_s reader;
    const std::filesystem::path directory = reader.directory.path;
    const std::string file = directory / "boot.json";
    const auto rights = [&] {
        struct stat found {};
        return stat(file.c_str(), &found) == 0 ? found.st_mode & 07777U : 0U;
    };
    ASSERT_EQ(twctl("remember --dry-run " + file).status, 0);
    EXPECT_FALSE(std::filesystem::exists(file));
    umask(077);
    ASSERT_EQ(twctl("remember " + file).status, 0);
    EXPECT_EQ(rights(), 0644U);
    const std::string kept[] = {"{\"start\": \"never\"} // mine", R"({"forms": 1})", "{", "[]"};
    for (const std::string& text : kept) {
        writeTextFile(file, text);
        const ran_s ran = twctl("remember " + file);
        EXPECT_EQ(ran.status, 1) << text;
        EXPECT_THAT(ran.output, HasSubstr("boot.json: stays as it is")) << text;
        EXPECT_EQ(readTextFile(file), text);
    }
    std::filesystem::remove(file);
    writeTextFile(directory / "own.json", R"({"start": "never", "$schema": "s", "subscribers": 4})");
    create_symlink(directory / "own.json", file);
    chmod(file.c_str(), 0640);
    ASSERT_EQ(twctl("remember " + file).status, 0);
    EXPECT_TRUE(std::filesystem::is_symlink(file));
    EXPECT_EQ(rights(), 0640U);
    EXPECT_THAT(readTextFile(file),
                testing::StartsWith("{\n    \"start\": \"never\",\n    \"$schema\": \"s\",\n"
                                    "    \"subscribers\": 1,\n    \"data_analytics\": \"OFF\""));
    const ran_s example = twctl("resume --check " TARNWICK_SOURCE_DIR "/examples/boot.json");
    EXPECT_THAT(example.output,
                HasSubstr("boot.json: no errors found\nevents.heartbeat.period: 30 in the file"));
    EXPECT_THAT(readTextFile(TARNWICK_SOURCE_DIR "/docs/restart.md"),
                HasSubstr(readTextFile(TARNWICK_SOURCE_DIR "/examples/boot.json")));
}

}  // namespace
