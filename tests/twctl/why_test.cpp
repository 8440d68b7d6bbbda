// SPDX-License-Identifier: MIT
// "twctl why" against a stand-in daemon: replies that a real one gives seldom or never. The system
// tests play the rest.
#include <gtest/gtest.h>

#include <map>

#include "twctl/peer.hpp"

TEST(Why, TellsSeldomReplies) {
    using replies_t = std::map<std::string, std::string>;  // by the beginning of the request
    const replies_t usual{
        {"status", R"(Success: {"radioConnection": "connected", "radioActivity": "active"})"},
        {"account", R"(Success: {"tagPackets": 7, "fates": {"sent": 7}})"},
        {"mode verbose",
         R"(Success: {"antennas": [1], "query": {"session": "S0"}, "transmitPower": 27, "reportFilter": {"addl_keys": ["TID"]}})"},
        {"trace list", R"(Success: {"traces": []})"},
        {"trace", "Success"},
        {"data_analytics", "Success: data_analytics BINARY"},
        {"subscribers", "Success: subscribers 1"},
        {"tag_info", "Failure: tagInfo database disabled"},
    };
    const auto traced = [](const std::string& members) {
        return replies_t{{"trace show", "Success: {" + members + "}"}, {"tag_info", "Success: "}};
    };
    const struct {
        const char* legend;
        replies_t replies;  // in place of the usual ones
        int status;
        std::string output;  // the first line without the EPC, then the reasons without what to do
    } cases[] = {
        {"a text that is not UTF-8, from the server for instance",
         traced(
             R"("packets": 300, "last": [{"antenna": 2, "fate": "notText"}, {"antenna": 1, "fate": "notText"}])"),
         0,
         "heard 300 times in 0.1 s, on antennas 1 and 2; below are the last 2\n"
         "- all 2 reads were dropped, since a text in the report is not UTF-8\n"},
        {"a reduced report has no number",
         traced(
             R"("packets": 1, "last": [{"antenna": 5361, "fate": "sent", "form": "BINARY", "listeners": 2}])"),
         0, "heard once in 0.1 s, on antenna 5361\n- the read was sent, in form BINARY, to 2 subscribers\n"},
        {"a trace that was there before, and nothing since",
         {{"trace list", R"(Success: {"traces": [{"epc": "3034", "packets": 1}]})"},
          {"tag_info", "Success: "},
          {"trace show",
           R"(Success: {"since": "2026-11-22T15:00:00.000+0000", "packets": 1, "last": [{"antenna": 1, "fate": "filtered", "rule": "r"}]})"}},
         0,
         "heard once since 15:00:00, on antenna 1, but not in the last 0.1 s\n"
         "- the read was refused by the mode's filter (r)\n"
         "- nothing was found that keeps the tag away: the radio runs, antenna 1 is connected and used, and "
         "neither the filter nor the selects of the mode refuse the EPC\n"},
        {"a local consumer that was there before",
         traced(R"("packets": 1, "last": [{"antenna": 1, "fate": "sent", "form": "OFF", "listeners": 0}])"),
         0,
         "heard once in 0.1 s, on antenna 1\n- the read was sent, in form OFF, and nobody was connected; "
         "up to 2,048 messages wait until the consumer is back\n"},
        {"types that another version might have",
         traced(R"("packets": "many", "last": [[], {"fate": 3, "antenna": "x"}])"), 0,
         "not heard in 0.1 s\n"
         "- nothing was found that keeps the tag away: the radio runs, antenna 1 is connected and used, and "
         "neither the filter nor the selects of the mode refuse the EPC\n"},
        {"a daemon that knows no traces",
         {{"trace", "Failure: Command Not Found"}, {"trace list", "Failure: Command Not Found"}},
         1,
         ""},
        {"not JSON", {{"account", "Success: seven"}}, 3, ""},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.legend);
        const peer_s peer(ZMQ_REP);
        ASSERT_EQ(zmq_bind(peer.handle, peer.endpoint.c_str()), 0);
        process_s client("bash",
                         typed("why 3034 --seconds 0.1 --engine none --socket " + peer.file +
                               " 2> /dev/null | sed -n '1s/^3034: //p; /^-/p'; exit ${PIPESTATUS[0]}"));
        while (const auto request = peer.receive(std::chrono::milliseconds(500))) {
            const auto isBegin = [&](const auto& reply) { return request->front().starts_with(reply.first); };
            // Of the beginnings that fit, the longest is the last.
            const replies_t::const_reverse_iterator own =
                std::find_if(row.replies.rbegin(), row.replies.rend(), isBegin);
            const auto other = std::find_if(usual.rbegin(), usual.rend(), isBegin);
            ASSERT_TRUE(own != row.replies.rend() || other != usual.rend()) << request->front();
            peer.send({(own != row.replies.rend() ? own : other)->second + '\0'});
        }
        EXPECT_EQ(client.waitForExit(), row.status);
        EXPECT_EQ(client.output(), row.output);
    }
}
