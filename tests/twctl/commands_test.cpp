// SPDX-License-Identifier: MIT
// The subcommands: what goes to the daemon, what is shown of its reply, and what
// is refused before anything is sent.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <regex>

#include "twctl/peer.hpp"

using namespace std::string_literals;
using testing::HasSubstr, testing::AllOf, testing::Not;

TEST(Commands, AskAndShowTheReply) {
    const std::string mode =
        "{ \"type\" : \"SIMPLE\",\n\t\"tagMetaData\": [{\"userDefined\": \"a \\\" b\\\\\"}]}\n";
    const std::string packedMode =
        R"({"type":"SIMPLE","tagMetaData":[{"userDefined":"a\u0020\"\u0020b\\"}]})";
    struct case_s {
        std::string line, request, reply, output;  // standard output alone
        int status = 0;
    };
    const std::string olio = "configrxe custom olio 3 lp=508 rx_beam=0xFFF0 tx_beam=3 stop_type=time";
    const case_s cases[] = {
        {"start sim_bearing 40 0 std_az=0.5", "start sim_bearing 40 0 std_az=0.5", "Success", "Success\n"},
        {"configrxe custom cableLoss 1 -1.5", "configrxe custom cableLoss 1 -1.5", "Failure: no", "", 1},
        {olio, olio, "Success: setting olio 3", "setting olio 3\n"},
        {"version", "version", "Success:\na,b\n", "a,b\n"},
        {"logging radioPacketLog=ON", "logging radioPacketLog=ON", "Success: ", "Success\n"},
        {"mode", "mode", R"(Success: {"type":"SIMPLE"})", "{\n    \"type\": \"SIMPLE\"\n}\n"},
        {"mode as-set", "mode as_set", "Failure: could not", "", 1},
        {"mode set -", "mode " + packedMode, "Success", "Success\n"},
        {R"(mode set '{"colour":"red"}')", R"(mode {"colour":"red"})", "Failure: no", "", 1},
        {R"(events set '{"heartbeat": {"stats": ["a"], "period": 1}}')",
         R"(events {"heartbeat":{"stats":["a"],"period":1}})", "Success", "Success\n"},
        {"status", "status",
         R"(Success: {"numTagReadsPerAntenna": {"1": 5,"2": 0},"uptime": "0:01:02","cpuUtilization": 1.5,)"
         R"("temperature": {"ambient":29,"pa":-273},)"
         R"("antennas": {"1": "connected","2": "disconnected","3": "connected"}})",
         "up for         0:01:02\nby antenna     1: 5  2: 0\nprocessor      1.5 %\n"
         "temperature    ambient 29 C, amplifier unknown\n"
         "antennas       1, 3 connected; 2 disconnected\n"},
        // the names that tell nothing leave their commas
        {"status --json aarEcho uptime aarEcho numErrors", "status aarEcho uptime aarEcho numErrors",
         R"(Success: {, "uptime": "0:00:00", , "numErrors": 2})",
         "{\"uptime\":\"0:00:00\",\"numErrors\":2}\n"},
        {"status antennas", "status antennas", R"(Success: {"antennas": "unknown param"})",
         "antennas       unknown param\n"},
        {"status", "status", "Success: {", "", 3},
        {"request error --timeout -1 --help", "error --timeout -1 --help", "Success", "Success\n"},
        {"request y", "y", "Success:\nFailure", "Success:\nFailure\n"},
        {"request ''", "", "Failure: No Command", "Failure: No Command\n", 1},
        {"engine gpi 1 high", "gpi 1 high", "ok", "ok\n"},
        {R"(engine '{"event": "fault"}')", R"({"event": "fault"})", "ok", "ok\n"},
        {"engine move AA01 0,-1,2", "move AA01 0,-1,2", "\"epc\" is wrong", "\"epc\" is wrong\n", 1},
        {"engine leave", "leave", "okay", "okay\n", 1},
    };
    const peer_s peer(ZMQ_REP);
    ASSERT_EQ(zmq_bind(peer.handle, peer.endpoint.c_str()), 0);
    for (const case_s& row : cases) {
        SCOPED_TRACE(row.line);
        std::string line = row.line;
        line.insert(std::min(line.find(' '), line.size()), " --socket " + peer.file);
        process_s client("bash", typed(line, "exec 2> /dev/null;"));
        client.write(mode);
        client.closeInput();
        EXPECT_EQ(peer.hear(), row.request);
        // The daemon ends its replies with a NUL, the engine does not.
        peer.send({row.line.starts_with("engine") ? row.reply : row.reply + "\0"s});
        EXPECT_EQ(client.waitForExit(), row.status);
        EXPECT_EQ(client.output(), row.output);
    }
}

TEST(Commands, WhatIsWrongIsTold) {
    const peer_s silent(ZMQ_REP);
    ASSERT_EQ(zmq_bind(silent.handle, silent.endpoint.c_str()), 0);
    const std::string good = silent.directory.path / "good.json";
    writeTextFile(good, R"({"type": "SIMPLE", "transmitPower": [27, 30.5], "filter": {}})");
    const auto nested = [](int levels) {
        return "mode check '{\"type\":\"CUSTOM\",\"modeSpecificSettings\":{\"a\":" +
               std::string(levels - 2, '[') + std::string(levels - 2, ']') + "}}'";
    };
    // What is typed, the status, and a part of the output.
    const std::tuple<std::string, int, const char*> cases[] = {
        {"start fast", 3, "there may stand: doNotPersistState sim sim_bearing"},
        {"subscribers 1 2", 3, "which is complete"},
        {"logging radioPacketLog=on", 3, "radioPacketLog=ON|OFF"},
        {"configrxe custom olio 12345678901234567890", 3, "behind"},
        {"configrxe custom aarHeight x", 3, "behind"},  // which would end the daemon
        {"configrxe custom txDelayInterval type=noReads duration=", 3, "behind"},
        {"database_reset time=1:x", 3, "time=HH:MM"},
        {R"(events set '{"heartbeat":{"stats":[1]}}')", 3, "end the daemon"},
        {"stop now", 3, "twctl: The following argument"},
        {"status weather", 3, "weather"},
        {"mode set", 3, "FILE is required"},
        {"mode show x", 3, "x"},
        {"mode set /nonexistent", 3, "/nonexistent: No such file"},
        {"mode check /", 3, "/: Is a directory"},
        {"mode set '{'", 3, "no JSON: parse error"},
        {"status --timeout 0.2 --socket " + good + "-none", 2, "is the daemon running?"},
        {"stop --timeout 0.2 --socket " + good, 2, "daemon that is gone"},
        {"request --timeout 0.2 --socket " + silent.file + " start", 2, "no reply within 0.2 s"},
        {"request", 3, "WORDS is required"},
        {"request --timeot 1 start", 3, "--timeot"},
        {"ask", 3, "ask: there is no such subcommand"},
        {"--timeout=1 stop", 3, "--timeout: an option stands behind the subcommand"},
        {"subscribers 1 --help", 3, "--help: options stand in front of the words"},
        {"watch tags --count 0", 3, "no whole number from 1 on"},
        {R"(events set '{"hearbeat":{},"heartbeat":{"stats":["uptme"]}}' --timeout 0.1 --socket )" + good, 2,
         "the text: \"uptme\" is no word of \"heartbeat.stats\"; there may stand: radioConnection"},
        {"request --endpoint nonsense start", 3, "nonsense"},
        {"engine --timeout 0.2 --socket " + good + "-none fault", 2, "running with the software engine?"},
        {"watch tags --epc 30x", 3, "no row of hex digits"},
        {"watch events --live", 3, "only for tags"},
        {"watch events --antenna 1", 3, "only for tags"},
        {"mode check " + good, 0, "good.json: no fault found\n"},
        {"mode check -", 1, "no JSON"},
        {"mode check '{\"type\": \"\xff\"}'", 1, "no JSON"},
        {"mode check '{\"type\": 1e999}'", 1, "no JSON"},
        {nested(255), 0, "the text: no fault found\n"},
        {nested(256), 1, "nested deeper than 255 levels"},
        {"mode check /dev/zero", 1, "/dev/zero: larger than 4 MiB"},
        {R"(mode check '{"antenas":[1],"query":1,"antennas":[],"beams":[]}')", 1,
         "twctl: the text: \"type\" is missing\n"
         "twctl: the text: \"antenas\" is no key of a mode; the daemon would pass it over\n"
         "twctl: the text: \"query\" must be an object or an array\n"
         "twctl: the text: \"antennas\" and \"beams\" exclude each other\n"},
        // what depends on a word beside it
        {R"(mode check '{"mode":"portal","modeSpecificSettings":{"interval":1}}')", 1,
         "\"interval\" is no key of \"modeSpecificSettings\" (PORTAL); the daemon would pass it over\n"},
        {R"(mode check '{"type":"CUSTOM","accesses":[[{"type":"READ","config":{"membank":"epc"}}]]}')", 1,
         "\"epc\" is no word of \"accesses.config.membank\"; there may stand: RESERVED EPC TID USER\n"},
        {R"(mode check '{"type":"CUSTOM","radioStartConditions":{"gpis":[{"signal":1}]},"reportFilter":)"
         R"({"addl_keys":1},"modeSpecificSettings":{"a":1},"tagMetaData":["USER[0-3,7]"]}')",
         0, "no fault"},
    };
    for (const auto& [line, status, output] : cases) {
        SCOPED_TRACE(line.substr(0, 100));
        process_s client("bash", typed(line));
        client.closeInput();
        EXPECT_EQ(client.waitForExit(), status);
        EXPECT_THAT(client.output(), HasSubstr(output));
    }
}

// As bash calls it: words parted at "=" too, and the last part replaced.
TEST(Commands, TheShellCompletesThem) {
    const std::pair<std::string, std::string> cases[] = {
        {"twctl wa", "watch"},
        {"twctl watch ", "tags events gpio"},
        {"twctl watch tags --l", "--live"},
        {"twctl status --timeout 3 cpu", "cpuUtilization"},
        {"twctl status --timeout ", ""},
        {"twctl configrxe custom t", "taginfofields txDelayInterval tagHeight"},
        {"twctl configrxe custom olio 7 lp=5 tx", "tx_beam= tx_pwr="},
        {"twctl configrxe custom olio 7 stop_type=", "inventory time"},
        {"twctl mode set fi", ""},
        {"twctl engine antenna 2 ", "lost back"},
    };
    for (const auto& [line, candidates] : cases) {
        const std::string last = line.ends_with(' ') ? "''" : "";
        const std::string words = std::regex_replace(line, std::regex("="), " = ") + last;
        const std::string script = "PATH='" TARNWICK_BIN_DIR "':$PATH; . '" TARNWICK_SOURCE_DIR
                                   "/twctl/completion.bash'; COMP_LINE='" +
                                   line + "'; COMP_POINT=${#COMP_LINE}; COMP_WORDS=(" + words +
                                   "); COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); _twctl; " +
                                   "echo \"${COMPREPLY[*]}\"";
        process_s shell("bash", {{"-c", script}, {}, {}});
        EXPECT_EQ(shell.waitForExit(), 0);
        EXPECT_EQ(shell.output(), candidates + "\n") << line;
    }
}

// A mode of every key of the schema, with a word of each of its lists, is told of
// what it lacks and of keys that exclude each other, and of no unknown key or word.
TEST(Commands, KnowTheKeysAndWordsOfAMode) {
    using nlohmann::json;
    const json schema = json::parse(readTextFile(TARNWICK_SOURCE_DIR "/docs/mode.schema.json"));
    const std::function<json(const json&)> sample = [&](const json& part) -> json {
        if (part.contains("$ref")) {
            return sample(schema.at(json::json_pointer(part["$ref"].get<std::string>().substr(1))));
        }
        json value = part.contains("enum") ? part["enum"].back() : part.value("const", json());
        const json members = part.value("properties", json::object());
        for (const auto& [key, member] : members.items()) {
            value[key] = sample(member);
        }
        if (part.contains("items")) {
            value.push_back(sample(part["items"]));
        }
        return value.is_null() && part.contains("anyOf") ? sample(part["anyOf"].back()) : value;
    };
    process_s client(twctlProgram, {{"mode", "check", sample(schema).dump()}, {}, {}});
    EXPECT_EQ(client.waitForExit(), 1);
    EXPECT_THAT(client.output(), AllOf(HasSubstr("\" exclude each other"), Not(HasSubstr("is no "))));
}

TEST(Commands, AWriteErrorIsTroubleAndAReaderThatLeavesIsNone) {
    const std::pair<const char*, int> lines[] = {{"\"$0\" help > /dev/full", 3},
                                                 {"\"$0\" complete 'twctl ' > /dev/full", 3},
                                                 {"set -o pipefail; \"$0\" help | true", 0}};
    for (const auto& [line, status] : lines) {
        process_s shell("bash", {{"-c", line, twctlProgram}, {}, {}});
        EXPECT_EQ(shell.waitForExit(), status) << line;
    }
}
