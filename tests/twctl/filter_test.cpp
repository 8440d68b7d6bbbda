// SPDX-License-Identifier: MIT
// Tag reports taken apart: filters, comma-separated values, the live table.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "twctl/peer.hpp"

using namespace std::string_literals;
using testing::HasSubstr;
using testing::MatchesRegex;

namespace {

// One tag in the three forms, another one, and frames that are not reports.
const std::string first = R"({"data":{"antenna":1,"channel":902.75,"idHex":"30a1","peakRssi":-52,"reads":3},)"
                          R"("timestamp":"now","type":"SIMPLE"})";
const std::string second =
    R"({"data":{"TID":"aa","USER[1]":"bb","accessResults":["SUCCESS","Error: x"],"antenna":2,"idHex":"30b2"},)"
    R"("timestamp":"a,\"b\"","type":"x"})";
const std::string last = R"({"data":{"antenna":2,"idHex":"30c3"}})";
const std::string bare = R"({"data":{"idHex":"30a1"}})";
const std::string binary =
    "\x01\0\x01\0\x0a\x02\x30\xa1\x10\xe8\x07\x38\x67\x48\x01\x50\xde\x8c\x37\x58\x02\x60\x7b\xc0\x01\x09"s;
const std::string frames[] = {
    first,  "no report",         second, "\x01\0\0\0"s + first, "{}", R"({"data":{"idHex":7}})", bare,
    binary, "\x01\0\x02\0\xff"s, last,
};

// What twctl shows of all frames; it ends by --count or with the time.
std::string outputOf(const std::string& inFront, const std::string& options, int status) {
    const peer_s peer(ZMQ_XPUB);
    zmq_connect(peer.handle, peer.endpoint.c_str());
    process_s client("bash", typed("watch tags --bind " + peer.file + " " + options, inFront));
    EXPECT_EQ(peer.hear(), "\x01"s);
    for (const std::string& frame : frames) {
        peer.send({frame});
    }
    EXPECT_EQ(client.waitForExit(), status);
    return client.output();
}

}  // namespace

TEST(Filter, ShowsTheReportsThatAreAskedFor) {
    const std::string leftOut = "twctl: frames that are not tag reports are left out\n";
    const std::string noAntenna =
        "twctl: reports without an antenna are left out; the mode's \"tagMetaData\" must hold \"ANTENNA\"\n";
    const std::string firstAgain = "subscriber=1 kind=json " + first + "\n";
    const std::string header =
        "time,epc,antenna,rssi,reads,channel,eventNum,type,azimuth,elevation,azimuthConf,"
        "elevationConf,x,y,locConf,phase,memory,accessResults\n";
    const std::string firstRow = "now,30a1,1,-52,3,902.75,,SIMPLE,,,,,,,,,,\n";
    const std::string secondRow =
        "\"a,\"\"b\"\"\",30b2,2,,,,,x,,,,,,,,,TID=aa; USER[1]=bb,SUCCESS; Error: x\n";
    const std::string binaryRow = "1970-01-01T00:00:01.000+0000,30a1,1,-52,2,902.75,9,,12.3,,,,,,,,,\n";
    // The options, the two outputs, and the status.
    const std::tuple<std::string, std::string, std::string, int> cases[] = {
        {"--epc 30b2 --epc 30a --count 3", first + "\n" + second + "\n" + firstAgain, leftOut, 0},
        {"--antenna 2 --count 2", second + "\n" + last + "\n", leftOut + noAntenna, 0},
        {"--antenna 2 --epc 30a1 --seconds 1 --count 1", "",
         leftOut + noAntenna + "twctl: 0 of 1 frames within 1 s\n", 2},
        {"--csv --count 6",
         header + firstRow + secondRow + firstRow + ",30a1,,,,,,,,,,,,,,,,\n" + binaryRow +
             ",30c3,2,,,,,,,,,,,,,,,\n",
         leftOut, 0},
        {"--csv --columns azimuth,USER[1],rssi --epc 30B2 --count 1", "azimuth,USER[1],rssi\n,bb,\n", leftOut,
         0},
    };
    for (const auto& [options, output, complaint, status] : cases) {
        SCOPED_TRACE(options);
        EXPECT_EQ(outputOf("exec 2> /dev/null;", options, status), output);
        EXPECT_EQ(outputOf("exec 2>&1 > /dev/null;", options, status), complaint);
    }
}

// 3 reads, 3 again, 1 and 2 of the one tag; 1 of each other.
TEST(Filter, TheLiveTableStandsOnceWithoutATerminalAndIsDrawnOnOne) {
    const std::string options = "--live --count 6";
    EXPECT_THAT(
        outputOf("exec 2> /dev/null;", options, 0),
        MatchesRegex("3 tags, 11 reads, [0-9]+\\.[0-9] reads/s\n"
                     "tag +reads antenna +RSSI azimuth +memory +accessResults +last seen +reads/s\n"
                     "30a1 +9 +1 +-52 +12.3 +- +- +[0-9]\\.[0-9] s +[0-9]\\.[0-9]\n"
                     "30c3 +1 +2 +- +- +- +- +[0-9]\\.[0-9] s +[0-9]\\.[0-9]\n"
                     "30b2 +1 +2 +- +- +TID=aa; USER\\[1]=bb +SUCCESS; Error: x +[0-9]\\.[0-9] s +.*\n"));
    const std::string drawn =
        outputOf("exec() { script -qec \"$(printf '%q ' \"$@\")\" /dev/null; };", options, 0);
    EXPECT_THAT(drawn, HasSubstr("\x1b["));  // the cursor goes back over the table
    EXPECT_THAT(drawn, HasSubstr("3 tags, 11 reads, "));
}
