// SPDX-License-Identifier: MIT
// The subcommands: what goes to the daemon, what is shown of its reply, and what
// is refused before anything is sent.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <regex>

#include "twctl/peer.hpp"

using namespace std::string_literals;
using testing::HasSubstr;

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
    // without its fates
    const std::string account =
        R"(Success: {"byAntenna":[{"antenna":1,"sent":3,"tagPackets":4},{"antenna":2}],)"
        R"("firstEventNum":0,"forms":{"BINARY":1,"OFF":2},"lines":{"refused":1,"sent":4},"nextEventNum":3,)"
        R"("since":"today","tagPackets":4,"unheard":1,"fates":{"pending":0)";
    const case_s cases[] = {
        {"start sim_bearing 40 0 std_az=0.5", "start sim_bearing 40 0 std_az=0.5", "Success", "Success\n"},
        {"configrxe custom cableLoss 1 -1.5", "configrxe custom cableLoss 1 -1.5", "Failure: no", "", 1},
        {olio, olio, "Success: setting olio 3", "setting olio 3\n"},
        {"version", "version", "Success:\na,b\n", "a,b\n"},
        {"logging radioPacketLog=ON", "logging radioPacketLog=ON", "Success: ", "Success\n"},
        {"mode", "mode", R"(Success: {"type":"SIMPLE"})", "{\n    \"type\": \"SIMPLE\"\n}\n"},
        {"mode as_set", "mode as_set", "Failure: could not", "", 1},
        {"mode set -", "mode " + packedMode, "Success", "Success\n"},
        {R"(mode set '{"colour":"red"}')", R"(mode {"colour":"red"})", "Failure: no", "", 1},
        {R"(events set '{"heartbeat": {"stats": ["a"], "period": 1}}')",
         R"(events {"heartbeat":{"stats":["a"],"period":1}})", "Success", "Success\n"},
        {"status --alarms 0", "status",
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
        {"trace add 3034", "trace add 3034", "Failure: 16 EPCs", "", 1},
        {"trace list", "trace list", R"(Success: {"traces": []})", "{\n    \"traces\": []\n}\n"},
        {"account", "account", account + R"(,"sent":3,"odd":1}})",
         "since          today\ntag packets               4\n"
         "sent                      3   75.0 %  sent as a report\n"
         "pending                   0    0.0 %  not decided yet\n"
         "odd                       1   25.0 %\n"
         "sent as        OFF 2, BINARY 1\n"
         "unheard        1 of the sent ones, since nobody was subscribed\n"
         "numbers        0 to 2 (eventNum)\nlines          sent 4, refused 1\n\n"
         "antenna          tagPackets        sent\n"
         "1                         4           3\n"
         "2                         0           0\n\ncloses: yes\n"},
        {"account", "account", R"(Success: {"fates":{"odd":1},"tagPackets":2})",
         "tag packets               2\nodd                       1   50.0 %\n\n"
         "closes: no, 1 packet has no fate\n",
         1},
        {"account --json", "account", R"(Success: {"fates":{"sent":3}, "tagPackets":1})",
         "{\"fates\":{\"sent\":3},\"tagPackets\":1}\n", 1},
        {"account", "account", "Failure: Command Not Found", "", 1},
        {"account", "account", R"(Success: {"tagPackets":1,"fates":[]})", "", 3},
        {"request -- error --timeout -1 --help", "error --timeout -1 --help", "Success", "Success\n"},
        {"request y --timeout=9 '[z]'", "y [z]", "Success:\nFailure", "Success:\nFailure\n"},
        {"request ''", "", "Failure: No Command", "Failure: No Command\n", 1},
        {"engine gpi 1 high", "gpi 1 high", "ok", "ok\n"},
        {R"(engine '{"event": "fault"}')", R"({"event": "fault"})", "ok", "ok\n"},
        {"engine move AA01 0,-1,2", "move AA01 0,-1,2", "\"epc\" is wrong", "\"epc\" is wrong\n", 1},
        {"engine leave", "leave", "okay", "okay\n", 1},
        {"engine tag AA01", "tag AA01", R"({"present":false})", "{\"present\":false}\n"},
    };
    const peer_s peer(ZMQ_REP);
    ASSERT_EQ(zmq_bind(peer.handle, peer.endpoint.c_str()), 0);
    for (const case_s& row : cases) {
        SCOPED_TRACE(row.line);
        std::string line = row.line;
        line.insert(line.find(" --") == line.npos ? line.size() : line.find(" --"), " --socket " + peer.file);
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

// The third account is of a daemon that has started again.
TEST(Commands, TheAccountIsWatched) {
    const peer_s peer(ZMQ_REP);
    ASSERT_EQ(zmq_bind(peer.handle, peer.endpoint.c_str()), 0);
    const auto answer = [&peer](const std::string& since, const std::string& sent) {
        EXPECT_EQ(peer.hear(), "account");
        peer.send({R"(Success: {"since":")" + since + R"(","tagPackets":)" + sent +
                   R"(,"fates":{"pending":0,"sent":)" + sent + "}}\0"s});
    };
    process_s client("bash", typed("account --watch --interval 0.1 --socket " + peer.file));
    answer("a", "1000");
    answer("a", "1010");
    answer("b", "5000");
    answer("b", "5000");
    EXPECT_EQ(peer.hear(), "account");
    peer.send({"Failure"});
    EXPECT_EQ(client.waitForExit(), 1);
    EXPECT_THAT(
        client.output(),
        testing::MatchesRegex("tagPackets [1-9][0-9]?\\.[0-9]  sent [1-9][0-9]?\\.[0-9]  unheard 0\\.0\n"
                              "twctl: the daemon has restarted\n"
                              "tagPackets 0\\.0  sent 0\\.0  unheard 0\\.0\nFailure\n"));
    process_s waiting("bash", typed("account --watch --interval 60 --socket " + peer.file));
    answer("a", "1");
    waiting.signal(SIGINT);
    EXPECT_EQ(waiting.waitForExit(), 0);
}

namespace {

// What is typed, the status, and a part of the output.
struct typed_s {
    std::string line;
    int status;
    const char* output;
};

void type(const std::vector<typed_s>& cases) {
    for (const auto& [line, status, output] : cases) {
        SCOPED_TRACE(line.substr(0, 100));
        process_s client("bash", typed(line));
        client.closeInput();
        EXPECT_EQ(client.waitForExit(), status);
        EXPECT_THAT(client.output(), HasSubstr(output));
    }
}

}  // namespace

TEST(Commands, WhatIsWrongIsTold) {
    const peer_s silent(ZMQ_REP);
    ASSERT_EQ(zmq_bind(silent.handle, silent.endpoint.c_str()), 0);
    const std::string other = silent.directory.path / "file";
    writeTextFile(other, "");
    type({
        {"start fast", 3, "unexpected argument \"fast\" after \"start\"; expected doNotPersistState sim"},
        {"subscribers 1 2", 3, "which is complete"},
        {"logging radioPacketLog=on", 3, "radioPacketLog=ON|OFF"},
        {"configrxe custom olio 12345678901234567890", 3, "after"},
        {"configrxe custom aarHeight x", 3, "after"},  // which would end the daemon
        {"configrxe custom txDelayInterval type=noReads duration=", 3, "after"},
        {"database_reset time=1:x", 3, "time=HH:MM"},
        {R"(events set '{"heartbeat":{"stats":[1]}}')", 3, "end the daemon"},
        {"trace add 3x", 3, "unexpected argument \"3x\" after \"trace add\"; expected HEX"},
        {"account --interval 2", 3, "--interval requires --watch"},
        {"watch gpio --gaps", 3, "only for tags"},
        {"stop now", 3, "twctl: The following argument"},
        {"start --socket", 3, "--socket: 1 required ENDPOINT missing"},
        {"status weather", 3, "\"weather\" is not valid; use radioConnection"},
        {"mode set", 3, "FILE is required"},
        {"mode show x", 3, "x"},
        {"mode set /nonexistent", 3, "/nonexistent: No such file"},
        {"mode check /", 3, "/: Is a directory"},
        {"mode set '{'", 3, "mode: not JSON: parse error"},
        {"status --timeout 0.2 --socket " + other + "-none", 2, "is the daemon running?"},
        {"stop --timeout 0.2 --socket " + other, 2, "daemon that has ended"},
        {"request start --timeout 0.2 --socket " + silent.file, 2, "no reply within 0.2 s"},
        {"request", 3, "WORDS is required"},
        {"request start --timeot 1", 3, "--timeot: there is no such option of \"request\""},
        {"ask", 3, "ask: there is no such subcommand"},
        {"--timeout 0.2 stop --socket " + silent.file, 2, "no reply within 0.2 s"},
        {"subscribers --help", 0,
         "--timeout SECONDS           How many seconds to wait for the answer (default: 5)"},
        {"watch tags --count 0", 3, "not a whole number from 1 up"},
        {R"(events set '{"hearbeat":{},"heartbeat":{"stats":["uptme"]}}' --timeout 0.1 --socket )" + other, 2,
         "events: heartbeat.stats[0]: \"uptme\" is not valid; use numTagReads"},
        {"request --endpoint nonsense start", 3, "nonsense"},
        {"engine --timeout 0.2 --socket " + other + "-none fault", 2, "running with the software engine?"},
        {"watch tags --epc 30x", 3, "is not a hex string"},
        {"watch tags --columns epc", 3, "only with --csv or --live"},
        {"watch tags --csv --columns epc,hex", 3, "\"hex\" is not a column; use time epc"},
        {"watch events --live", 3, "only for tags"},
        {"watch events --antenna 1", 3, "only for tags"},
    });
}

TEST(Commands, ModesAndBeamsAreChecked) {
    const temp_dir_s directory;
    const std::string good = directory.path / "good.json";
    writeTextFile(good, R"({"type": "SIMPLE", "transmitPower": [27, 30.5], "selects": []})");
    const auto nested = [](int levels) {
        return "mode check '{\"type\":\"CUSTOM\",\"modeSpecificSettings\":{\"a\":" +
               std::string(levels - 2, '[') + std::string(levels - 2, ']') + "}}'";
    };
    type({
        {"mode check " + good, 0, "good.json: no errors found (what depends on the reader"},
        {"mode check -", 1, "not JSON"},
        {"mode check '{\"type\": \"\xff\"}'", 1, "not JSON"},
        {"mode check '{\"type\": 1e999}'", 1, "not JSON"},
        {nested(255), 0, "mode: no errors found"},
        {nested(256), 1, "nested deeper than 255 levels"},
        {"mode check /dev/zero", 1, "/dev/zero: larger than 4 MiB"},
        // the schema's verdicts, by place; the nearest of several choices
        {R"(mode check '{"antenas":[1],"query":1,"antennas":[],"beams":[{}]}')", 1,
         "twctl: mode: antennas and beams exclude each other\n"
         "twctl: mode: antennas: must not be empty\n"
         "twctl: mode: beams[0].azimuth: is missing\n"
         "twctl: mode: beams[0].elevation: is missing\n"
         "twctl: mode: query: must be an object or an array\n"
         "twctl: mode: type: is missing\n"
         "twctl: mode: unknown key \"antenas\"; the daemon ignores it\n"},
        {R"(mode check '{"mode":"portal","modeSpecificSettings":{"interval":1},"interval":1.5}')", 1,
         "twctl: mode: interval: must be an object\n"
         "twctl: mode: interval: is allowed only in a mode of type INVENTORY\n"
         "twctl: mode: modeSpecificSettings: unknown key \"interval\"; the daemon ignores it\n"},
        {R"(mode check '{"type":"CUSTOM","accesses":[[{"type":"KILL","config":{"password":"1"}},{"type":"read",)"
         R"("config":{}}]],"tagMetaData":["RSSi","TID"],"reportFilter":{}}')",
         1,
         "twctl: mode: reportFilter and accesses exclude each other\n"
         "twctl: mode: accesses[0][0].config.password: \"1\" is not valid; use 8 hex digits\n"
         "twctl: mode: accesses[0][1].type: \"read\" is not valid; use READ, WRITE, ACCESS, LOCK or KILL\n"
         "twctl: mode: tagMetaData[0]: \"RSSi\" is not valid; use ANTENNA, CHANNEL, PC, XPC, CRC, MAC, "
         "HOSTNAME, TAGURI, EPCURI, HEATMAP, RSSI, SEEN_COUNT, PHASE, BEARING, LOCATION or a bank to read, "
         "as in TID or USER[0-3]\n"
         "twctl: mode: accesses: is not allowed beside a memory bank in tagMetaData\n"
         "twctl: mode: reportFilter.addl_keys: is needed beside a memory bank in tagMetaData\n"},
        {R"(mode check '{"type":"CUSTOM","delayBetweenAntennaCycles":{"type":"X","duration":999},)"
         R"("beams":[{"azimuth":7,"elevation":30}]}')",
         1,
         "Cycles.duration: must be from 1 to 255, not 999\n"
         "twctl: mode: delayBetweenAntennaCycles.type: \"X\" is not valid; use DISABLED, NO_TAGS or "
         "NO_UNIQUE_TAGS\n"
         "twctl: mode: beams[0]: azimuth 7, elevation 30 is not a beam; the nearest is azimuth 5, elevation "
         "30\n"},
        {R"(mode check '{"type":"CUSTOM","filter":{"value":"30[0-9A-Fa-f]\\D[^A][A]","match":"regex",)"
         R"("operation":"include"},"beams":[{"azimuth":0,"elevation":3}],"modeSpecificSettings":{"a":1}}')",
         0,
         "twctl: mode: warning: filter.value: capital hex digits never match, since EPCs are compared in "
         "lower case\n"
         "twctl: mode: warning: beams[0]: azimuth 0, elevation 3 makes a number that is not a beam; "
         "the nearest is azimuth 0, elevation 5\nmode: no errors found"},
        {R"(mode check '{"type":"CUSTOM","filter":{"value":"30[0-9A-Fa-f]\\D[^A]\\x4F","match":"regex",)"
         R"("operation":"include"}}' | grep -c warning)",
         1, "0\n"},
        {"beam 5361", 0, "azimuth 0, elevation 45, polarization LHCP\n"},
        {"beam 90 12 RHCP", 0, "4811, which is azimuth 90, elevation 15\n"},
        {"beam 425", 1, "not a beam"},
        {"beam 350 5", 1, "the nearest is azimuth 0, elevation 5"},
    });
}

// As bash calls it: words parted at "=" too, and the last part replaced.
TEST(Commands, TheShellCompletesThem) {
    const std::pair<std::string, std::string> cases[] = {
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

TEST(Commands, AWriteErrorIsTroubleAndAReaderThatLeavesIsNone) {
    const std::pair<const char*, int> lines[] = {{"\"$0\" help > /dev/full", 3},
                                                 {"\"$0\" complete 'twctl ' > /dev/full", 3},
                                                 {"set -o pipefail; \"$0\" help | true", 0}};
    for (const auto& [line, status] : lines) {
        process_s shell("bash", {{"-c", line, twctlProgram}, {}, {}});
        EXPECT_EQ(shell.waitForExit(), status) << line;
    }
}
