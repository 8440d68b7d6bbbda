// SPDX-License-Identifier: MIT
// The subcommands: what goes to the daemon, what is shown of its reply, and what
// is refused before anything is sent.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "twctl/peer.hpp"

using namespace std::string_literals;
using testing::HasSubstr;
using words_t = std::vector<std::string>;

namespace {

const std::string completionScript = TARNWICK_SOURCE_DIR "/twctl/completion.bash";

words_t with(words_t arguments, const words_t& more) {
    arguments.insert(arguments.begin() + 1, more.begin(), more.end());
    return arguments;
}

// Runs twctl with standard error in /dev/null, so that what is left is its
// standard output.
process_s standardOutputOf(const words_t& arguments) {
    words_t shell{"-c", "exec \"$@\" 2> /dev/null", "bash", twctlProgram};
    shell.insert(shell.end(), arguments.begin(), arguments.end());
    return {"bash", {shell, {}, {}}};
}

}  // namespace

TEST(Commands, AskAndShowTheReply) {
    struct case_s {
        const char* legend;
        words_t arguments;
        std::string input, request, reply, output;
        int status = 0;
    };
    const std::string mode =
        "{ \"type\" : \"SIMPLE\",\n\t\"tagMetaData\": [{\"userDefined\": \"a \\\" b\\\\\"}]}\n";
    const std::string packedMode =
        R"({"type":"SIMPLE","tagMetaData":[{"userDefined":"a\u0020\"\u0020b\\"}]})";
    const case_s cases[] = {
        {"words as they are",
         {"start", "sim_bearing", "40", "0", "std_az=0.5"},
         "",
         "start sim_bearing 40 0 std_az=0.5",
         "Success",
         "Success\n"},
        {"a minus is a word",
         {"configrxe", "custom", "cableLoss", "1", "-1.5"},
         "",
         "configrxe custom cableLoss 1 -1.5",
         "Failure: no",
         "",
         1},
        {"parameters in any order, hexadecimal",
         {"configrxe", "custom", "olio", "3", "lp=508", "rx_beam=0xFFF0", "tx_beam=3", "stop_type=time"},
         "",
         "configrxe custom olio 3 lp=508 rx_beam=0xFFF0 tx_beam=3 stop_type=time",
         "Success: setting olio 3",
         "setting olio 3\n"},
        {"lines without their first", {"version"}, "", "version", "Success:\na,b\n", "a,b\n"},
        {"an empty answer",
         {"logging", "radioPacketLog=ON"},
         "",
         "logging radioPacketLog=ON",
         "Success: ",
         "Success\n"},
        {"a mode over lines",
         {"mode"},
         "",
         "mode",
         "Success: {\"type\":\"SIMPLE\"}",
         "{\n    \"type\": \"SIMPLE\"\n}\n"},
        {"the words of the request differ",
         {"mode", "as-set"},
         "",
         "mode as_set",
         "Failure: could not",
         "",
         1},
        {"a mode loses its blanks, strings keep them",
         {"mode", "set", "-"},
         mode,
         "mode " + packedMode,
         "Success",
         "Success\n"},
        {"unknown keys do not hold a mode back",
         {"mode", "set", R"({"colour":"red"})"},
         "",
         R"(mode {"colour":"red"})",
         "Failure: no",
         "",
         1},
        {"events",
         {"events", "set", R"({"heartbeat": {"stats": ["a"], "period": 1}})"},
         "",
         R"(events {"heartbeat":{"stats":["a"],"period":1}})",
         "Success",
         "Success\n"},
        {"status as a table",
         {"status"},
         "",
         "status",
         R"(Success: {"numTagReadsPerAntenna": {"1": 5,"2": 0},"uptime": "0:01:02","cpuUtilization": 1.5,)"
         R"("temperature": {"ambient":29,"pa":-273},)"
         R"("antennas": {"1": "connected","2": "disconnected","3": "connected"}})",
         "up for         0:01:02\nby antenna     1: 5  2: 0\nprocessor      1.5 %\n"
         "temperature    ambient 29 C, amplifier unknown\n"
         "antennas       1, 3 connected; 2 disconnected\n"},
        {"status for programs, with a name that tells nothing",
         {"status", "--json", "aarEcho", "uptime", "aarEcho", "numErrors"},
         "",
         "status aarEcho uptime aarEcho numErrors",
         R"(Success: {, "uptime": "0:00:00", , "numErrors": 2})",
         "{\"uptime\":\"0:00:00\",\"numErrors\":2}\n"},
        {"a member that is not what it was",
         {"status", "antennas"},
         "",
         "status antennas",
         R"(Success: {"antennas": "unknown param"})",
         "antennas       unknown param\n"},
        {"a status that is none", {"status"}, "", "status", "Success: {", "", 3},
    };
    const peer_s peer(ZMQ_REP);
    ASSERT_EQ(zmq_bind(peer.socket, peer.endpoint.c_str()), 0);
    for (const case_s& row : cases) {
        SCOPED_TRACE(row.legend);
        process_s client = standardOutputOf(with(row.arguments, {"--socket", peer.endpoint.substr(6)}));
        client.write(row.input);
        client.closeInput();
        EXPECT_EQ(peer.receive(), row.request);
        peer.send(row.reply + "\0"s);
        EXPECT_EQ(client.waitForExit(), row.status);
        EXPECT_EQ(client.output(), row.output);
    }
}

TEST(Commands, WhatIsWrongIsToldBeforeAnythingIsSent) {
    const temp_dir_s directory;
    const std::string good = directory.path / "good.json";
    writeTextFile(good, R"({"type": "SIMPLE", "transmitPower": [27, 30.5], "filter": {}})");
    const auto nested = [](int levels) {
        return "{\"type\":\"\",\"filter\":{\"a\":" + std::string(levels - 2, '[') +
               std::string(levels - 2, ']') + "}}";
    };
    struct case_s {
        const char* legend;
        words_t arguments;
        int status;
        std::string output;  // a part of it
    };
    const case_s cases[] = {
        {"an unknown word", {"start", "fast"}, 3, "there may stand: doNotPersistState sim sim_bearing"},
        {"a word too much", {"subscribers", "1", "2"}, 3, "which is complete"},
        {"no number", {"start", "sim", "many"}, 3, "may not stand behind \"start sim\""},
        {"a value of none of the words", {"logging", "radioPacketLog=on"}, 3, "radioPacketLog=ON|OFF"},
        {"an unknown section", {"configrxe", "custom", "Olio"}, 3, "there may stand: olio select"},
        {"an unknown parameter", {"configrxe", "custom", "select", "1", "beam=1"}, 3, "beam=1"},
        {"a number of 20 digits", {"configrxe", "custom", "olio", "12345678901234567890"}, 3, "behind"},
        {"what would end the daemon: no number", {"configrxe", "custom", "aarHeight", "x"}, 3, "behind"},
        {"a duration without one",
         {"configrxe", "custom", "txDelayInterval", "type=noReads", "duration="},
         3,
         ""},
        {"a time without a number", {"database_reset", "time=1:x"}, 3, "time=HH:MM"},
        {"stats that are no strings",
         {"events", "set", R"({"heartbeat":{"stats":[1]}})"},
         3,
         "end the daemon"},
        {"words behind one that takes none", {"stop", "now"}, 3, "twctl: The following argument"},
        {"a member that none has", {"status", "weather"}, 3, "weather"},
        {"no file's name", {"mode", "set"}, 3, "FILE is required"},
        {"a file too much", {"mode", "show", "x"}, 3, "x"},
        {"no such file", {"mode", "set", "/nonexistent"}, 3, "/nonexistent: No such file"},
        {"a folder", {"mode", "check", "/"}, 3, "/: Is a directory"},
        {"set stops at what is no JSON", {"mode", "set", "{"}, 3, "no JSON: parse error"},
        {"a daemon that is not there",
         {"status", "--timeout", "0.2", "--socket", good + "-none"},
         2,
         "is the daemon running?"},
        {"a file that nobody listens at",
         {"stop", "--timeout", "0.2", "--socket", good},
         2,
         "daemon that is gone"},
        {"a good mode", {"mode", "check", good}, 0, "good.json: no fault found\n"},
        {"no object", {"mode", "check", "-"}, 1, "no JSON"},
        {"no UTF-8", {"mode", "check", "{\"type\": \"\xff\"}"}, 1, "no JSON"},
        {"a number too large", {"mode", "check", "{\"type\": 1e999}"}, 1, "no JSON"},
        {"as deep as it goes", {"mode", "check", nested(255)}, 0, "the text: no fault found\n"},
        {"a level too many", {"mode", "check", nested(256)}, 1, "nested deeper than 255 levels"},
        {"an endless file", {"mode", "check", "/dev/zero"}, 1, "/dev/zero: larger than 4 MiB"},
        {"every fault at once",
         {"mode", "check", R"({"antenas":[1],"query":1,"antennas":[],"beams":[]})"},
         1,
         "twctl: the text: \"type\" is missing\n"
         "twctl: the text: \"antenas\" is no key of a mode; the daemon would pass it over\n"
         "twctl: the text: \"query\" must be an object or an array\n"
         "twctl: the text: \"antennas\" and \"beams\" exclude each other\n"},
    };
    for (const case_s& row : cases) {
        SCOPED_TRACE(row.legend);
        process_s client(twctlProgram, {row.arguments, {}, {}});
        client.closeInput();
        EXPECT_EQ(client.waitForExit(), row.status);
        EXPECT_THAT(client.output(), HasSubstr(row.output));
    }
}

// As bash calls it: words parted at "=" too, and the last part replaced.
TEST(Commands, TheShellCompletesThem) {
    struct case_s {
        std::string line, words, candidates;
    };
    const case_s cases[] = {
        {"twctl wa", "twctl wa", "watch"},
        {"twctl watch ", "twctl watch ''", "tags events gpio"},
        {"twctl watch tags --l", "twctl watch tags --l", "--live"},
        {"twctl status --timeout 3 cpu", "twctl status --timeout 3 cpu", "cpuUtilization"},
        {"twctl status --timeout ", "twctl status --timeout ''", ""},
        {"twctl start sim", "twctl start sim", "sim sim_bearing"},
        {"twctl configrxe custom t", "twctl configrxe custom t", "taginfofields txDelayInterval tagHeight"},
        {"twctl configrxe custom olio 7 lp=5 tx", "twctl configrxe custom olio 7 lp = 5 tx",
         "tx_beam= tx_pwr="},
        {"twctl configrxe custom olio 7 stop_type=", "twctl configrxe custom olio 7 stop_type =",
         "inventory time"},
        {"twctl mode set fi", "twctl mode set fi", ""},
    };
    for (const case_s& row : cases) {
        SCOPED_TRACE(row.line);
        const std::string script = "PATH='" TARNWICK_BIN_DIR "':$PATH; . '" + completionScript +
                                   "'; COMP_LINE='" + row.line + "'; COMP_POINT=${#COMP_LINE}; COMP_WORDS=(" +
                                   row.words + "); COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); _twctl; " +
                                   "echo \"${COMPREPLY[*]}\"";
        process_s shell("bash", {{"-c", script}, {}, {}});
        EXPECT_EQ(shell.waitForExit(), 0);
        EXPECT_EQ(shell.output(), row.candidates + "\n");
    }
}

// The two lists of keys are the same when each one of the schema is known and of
// the wrong kind.
TEST(Commands, KnowTheKeysOfAMode) {
    using nlohmann::json;
    const json schema = json::parse(readTextFile(TARNWICK_SOURCE_DIR "/docs/mode.schema.json"));
    json mode;
    for (const auto& [key, value] : schema.at("properties").items()) {
        mode[key] = nullptr;
    }
    ASSERT_GT(mode.size(), 20U);
    process_s client(twctlProgram, {{"mode", "check", mode.dump()}, {}, {}});
    EXPECT_EQ(client.waitForExit(), 1);
    for (const auto& [key, value] : mode.items()) {
        EXPECT_THAT(client.output(), HasSubstr("\"" + key + "\" must be "));
    }
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
