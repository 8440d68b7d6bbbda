// SPDX-License-Identifier: MIT
// The text command "configrxe": whole replies of every section, and what a
// write puts into the engine.
#include <gtest/gtest.h>

#include <span>
#include <stdexcept>

#include "rxe_intfc.hpp"
#include "support/engine_double.hpp"
#include "util.hpp"

namespace {

std::string ask(const std::string& request) {
    std::vector<std::string> tokens = tokenizeRequestByWhitespace(&request);
    std::string reply;
    EXPECT_EQ(configRXEHandler(&tokens, &reply), 0);
    return reply;
}

struct exchange_s {
    const char* request;  // behind "configrxe custom "
    const char* reply;    // whole
    const char* write;    // what the engine got, null when nothing may reach it
};

void expectExchanges(std::span<const exchange_s> exchanges) {
    for (const exchange_s& row : exchanges) {
        SCOPED_TRACE(row.request);
        engine_double::clearCalls();
        EXPECT_EQ(ask(std::string("configrxe custom ") + row.request), row.reply);
        std::string writes;
        for (const auto& call : engine_double::calls()) {
            writes += call.record.empty() ? "" : engine_double::describe(call).substr(sizeof("setParam2"));
        }
        EXPECT_EQ(writes, row.write == nullptr ? "" : row.write);
    }
}

TEST(ConfigRXE, EverySectionWritesAndReadsBack) {
    rxe_max_tx_pwr_x_10 = 315;
    const exchange_s exchanges[] = {
        {"channel 3 frequency=915250 max_pwr=30.5", "Success: setting channel 3",
         "0803 0100000032f70d003101"},
        {"channel 3",
         "Success:\nchannel    3:\n          frequency (kHz):  915250\n"
         "          maxPwrValue (dbm): 30.5",
         nullptr},
        {"channel 3 disable", "Success: setting channel 3", "0803 -"},
        {"channel 3", "Success:\nchannel    3:\ndisabled", nullptr},
        {"select 2 target=4 action=1 membank=2 pointer=32 length=36 mask=A1b2c3d4e5f truncate=9",
         "Success: setting select 2",
         "0102 0104010220002400"
         "0900a1b2c3d4e5"},
        {"select 2",
         "Success:\nselect    2:\n             target: 4 (SL)\n             action: 1\n"
         "             membank: 2 (TID)\n             pointer: bit 32 \n"
         "             length: 36 bits\n             mask: a1b2c3d4 e5\n"
         "             truncate: 9 bit expected\n",
         nullptr},
        {"select 2 target=x length=4 mask=c", "Success: setting select 2",
         "0102 0100000000000400"
         "0000c0"},
        {"select 2",
         "Success:\nselect    2:\n             target: 0 (S0)\n             action: 0\n"
         "             membank: 0 (RFU)\n             pointer: bit 0 \n"
         "             length: 4 bits\n             mask: c0\n"
         "             no truncation\n",
         nullptr},
        {"id_filter 1 startIdx=16 length=12 mask=30f0", "Success: setting select 1", "1001 01000c00100030f0"},
        {"id_filter 1",
         "Success:\nid_filter    1:\n             pointer: bit 16 \n"
         "             length: 12 bits\n             mask: 30f0\n",
         nullptr},
        {"inventory 2 sel=~SL session=1 target=ab initq=7", "Success: setting inventory 2",
         "0202 010102010207"},
        {"inventory 2", "Success:\ninventory    2: ignore ~SL, S1-AB,initial Q: 7\n", nullptr},
        {"inventory 2 sel=SL session=3 target=B", "Success: setting inventory 2", "0202 0101030301"},
        {"inventory 2", "Success:\ninventory    2: ignore SL, S3-B,initial Q: 0\n", nullptr},
        {"inventory 2 disabled", "Success: setting inventory 2", "0202 0001"},
        {"inventory 2", "Success:\ninventory    2: disabled", nullptr},
        {"olio 5 tx_beam=2 rx_beam=0xff03 stop_type=time stop_value=250 tx_pwr=20 select_bitmask=0x80000001"
         " inv_param=3 lp=201",
         "Success: setting olio 5",
         "0405 0100020003ff0200fa00c8000100008003000000000000000000000000000000c9"},
        {"olio 5",
         "Success:\nolio    5:\n          tx_beam: 2, rx_beam: 65283 (secondary beam set 3)\n"
         "          tx_pwr: 20.0 dbm\n          lp: 201\n"
         "          select_bitmask: 0x80000001\n          inv_param: 3\n"
         "          access_bitmask : 0x00000000 00000000\n          stop after 250 mS\n",
         nullptr},
        {"olio 6 tx_beam=1 stop_type=inventory stop_value=1 tx_pwr=99", "Success: setting olio 6",
         "0406 01000100010001000100"
         "3b01"},
        {"olio 6",
         "Success:\nolio    6:\n          tx_beam: 1, rx_beam: 1\n          tx_pwr: 31.5 dbm\n"
         "          lp: 0\n          select_bitmask: 0x00000000\n          inv_param: 0\n"
         "          access_bitmask : 0x00000000 00000000\n"
         "          stop after 1 inventory round\n",
         nullptr},
        {"olio 0 disable", "Success: disabled all olios", "0400 -"},
        {"packet 0x30c enable", "Success: setting packet 780 (0x030c)", "0004 01000c03"},
        {"packet 780 disable", "Success: setting packet 780 (0x030c)", "0004 00000c03"},
        {"packet 0 disable", "Success: setting packet 0 (0x0000)", "0004 -"},
        {"cableLoss 2 1.3", "Success: setting cable loss compensation for antenna 2 to 1.3", "1202 0d"},
        {"cableLoss 2", "Success: cable loss compensation for antenna 2: 1.3", nullptr},
        {"hopperround enable", "Success: setting hopperround", "0885 01"},
        {"hopperround", "Success:\nhopperround enabled\n", nullptr},
        {"hopperround disable", "Success: setting hopperround", "0885 -"},
        {"hopperround", "Success:\nhopperround disabled\n", nullptr},
        {"aarHeight 15.5", "Success: setting aar height to 15.5", "10ee 9b"},
        {"aarHeight", "Success: aar height is set to: 15.5", nullptr},
        {"tagHeight 3", "Success: setting tag height to 3.0", "10ef 1e"},
        {"tagHeight", "Success: tag height is set to: 3.0", nullptr},
        {"staticVDynamic 7", "Success: setting static vs dynamic threshold to 7", "10ed 07"},
        {"staticVDynamic", "Success: static vs dynamic threshold is set to: 7", nullptr},
        {"reportfilter type=antenna duration=60", "Success: setting reportfilter", "10ff 010100003c"},
        {"reportfilter", "Success: reportfilter:\n    per antenna every 60 seconds\n", nullptr},
        {"reportfilter disabled", "Success: setting reportfilter", "10ff -"},
        {"reportfilter", "Success: reportfilter is disabled", nullptr},
        {"txDelayInterval type=noReads duration=75", "Success: setting txDelayInterval", "10f3 014b"},
        {"txDelayInterval", "Success: txDelayInterval:\n    delay 75 milliSeconds when no reads", nullptr},
        {"txDelayInterval type=noUniqueReads duration=9", "Success: setting txDelayInterval", "10f3 0209"},
        {"txDelayInterval", "Success: txDelayInterval:\n    delay 9 milliseconds when no unique reads",
         nullptr},
        {"txDelayInterval disable", "Success: setting txDelayInterval", "10f3 -"},
        {"txDelayInterval", "Success: txDelayInterval is disabled", nullptr},
        {"taginfofields epc 1sttime location nonsense", "Success: setting taginfofields", "0009 810008"},
        {"taginfofields",
         "Success: taginfofields: (0x00080081)\nEnabled Fields:\n    epc\n    1sttime\n"
         "    location\n",
         nullptr},
        {"nonsense 3", "Success", nullptr},
    };
    expectExchanges(exchanges);
}

TEST(ConfigRXE, AccessesReadAsJsonAsNameOrAsNumber) {
    const exchange_s exchanges[] = {
        {"access 4 type=read membank=2 startWord=5 wordCount=6 accessCriteriaIdx=7 stopCount=300",
         "Success: setting access 4", nullptr},
        {"access 4",
         "Success:\naccess    4:\n{\"config\":{\"membank\":\"tid\",\"wordCount\":6,"
         "\"wordCountExpected\":6,\"wordPointer\":5},\"criteriaIdx\":7,\"stopCount\":300,"
         "\"type\":\"read\"}\n            accessCriteriaIdx: 7\n             stopCount: 300\n",
         nullptr},
        {"access 4 type=kill", "Failure: setting access type only supports read", nullptr},
        {"access 4 membank=2", "Failure: setting access requires type", nullptr},
    };
    EXPECT_EQ(ask(std::string("configrxe custom ") + exchanges[0].request), exchanges[0].reply);
    EXPECT_EQ(engine_double::recordOf<ACCESS_OP_s>(engine_double::calls().back()).wordCount, 0x0606);
    expectExchanges(std::span(exchanges).subspan(1));
    const std::pair<std::uint8_t, const char*> types[] = {
        {RXE_ACCESS_BLOCK_ERASE, "blockerase"}, {RXE_ACCESS_CRYPTO10, "crypto10"}, {9, "9"}};
    for (const auto& [type, text] : types) {
        ACCESS_OP_s access{};
        access.enable = 1;
        access.type = type;
        engine_double::setRecord(0x305, &access, sizeof(access));
        EXPECT_EQ(ask("configrxe custom access 5"),
                  std::string("Success:\naccess    5:\n") + text +
                      "\n            accessCriteriaIdx: 0\n             stopCount: 0\n");
    }
}

// What only the engine can hold: other stop types, slots of another kind.
TEST(ConfigRXE, RecordsThatThisCommandDoesNotWrite) {
    SELECT_OP_s challenge{};
    challenge.enable = 2;
    engine_double::setRecord(0x101, &challenge, sizeof(challenge));
    EXPECT_EQ(ask("configrxe custom select 1"), "Success:\nselect    1:\nNot Select");
    INVENTORY_OP_s parallel{};
    parallel.enable = 1;
    parallel.protocol = 3;
    engine_double::setRecord(0x201, &parallel, sizeof(parallel));
    EXPECT_EQ(ask("configrxe custom inventory 1"), "Success:\ninventory    1: Not C1G2");
    OLIO_s olio{};
    olio.enable = 1;
    olio.transmitPower = -5;
    olio.stopType = 0x83;
    olio.stopValue = 40;
    olio.accessBitMask = 0x8000000000000001;
    engine_double::setRecord(0x401, &olio, sizeof(olio));
    EXPECT_EQ(ask("configrxe custom olio 1"),
              "Success:\nolio    1:\n          tx_beam: 0, rx_beam: 0\n          tx_pwr: -0.5 dbm\n"
              "          lp: 0\n          select_bitmask: 0x00000000\n          inv_param: 0\n"
              "          access_bitmask : 0x80000000 00000001\n"
              "          stop condition 131, stop value 40\n");
    const std::uint32_t bits = 0x1000;  // bit 12 of word 24 is packet 780
    engine_double::setRecord(0x38, &bits, sizeof(bits));
    EXPECT_EQ(ask("configrxe custom packet 0x30C"), "Success:\npacket  780 (0x030c): enabled");
    EXPECT_EQ(ask("configrxe custom packet 781"), "Success:\npacket  781 (0x030d): disabled");
    // A length beyond the record shows the bytes that the record has.
    REPORT_FILTER_ID_s filter{};
    filter.enable = 1;
    filter.bitLength = 65535;
    engine_double::setRecord(0x1002, &filter, sizeof(filter));
    std::string mask;
    for (int i = 0; i < 66; ++i) {
        mask += i % 4 == 3 ? "00 " : "00";
    }
    EXPECT_EQ(ask("configrxe custom id_filter 2"),
              "Success:\nid_filter    2:\n             pointer: bit 0 \n             length: 65535 bits\n"
              "             mask: " +
                  mask + "\n");
}

TEST(ConfigRXE, TriggersHaveTwoPortsOrFour) {
    const exchange_s two[] = {
        {"stopconditions time=5000 tagcount=61450 olioloops=3 gpiobitmask=0x21 gpio2holdtime=20 "
         "gpio3holdtime=30",
         "Success: setting stopconditions",
         "0005 8813000003000af021"
         "00000014"},
        {"stopconditions",
         "Success: stopconditions:\n    after 5000 mS\n"
         "    after no more tags read for 10 seconds\n    after 3 olio loops\n"
         "    after GPIO activity (0x21) with hold times: gpio1 0 mS, gpio2 20 mS\n",
         nullptr},
        {"startconditions gpiobitmask=17 gpio1holdtime=5", "Success: setting startconditions", "d003 110005"},
        {"startconditions",
         "Success:\n     Triggering on GPIO 1 is enabled HIGH  HoldTime: 5\n"
         "     Triggering on GPIO 2 is disabled\n",
         nullptr},
    };
    const exchange_s four[] = {
        {"stopconditions tagcount=61440 gpiobitmask=0x80 gpio3holdtime=30 gpio4holdtime=40",
         "Success: setting stopconditions", "0015 00000000000000f08000000000001e0028"},
        {"stopconditions",
         "Success: stopconditions:\n    after 61440 tags read\n    after GPIO activity "
         "(0x80) with hold times: gpio1 0 mS, gpio2 0 mS, gpio3 30 mS, gpio4 40 mS\n",
         nullptr},
        {"stopconditions autonomous", "Success: setting stopconditions", "0015 -"},
        {"stopconditions", "Success: stopconditions are set to autonomous", nullptr},
        {"startconditions gpiobitmask=0x80 gpio4holdtime=9", "Success: setting startconditions",
         "d005 8000000000000000"
         "09"},
        {"startconditions",
         "Success:\n     Triggering on GPIO 1 is disabled\n"
         "     Triggering on GPIO 2 is disabled\n     Triggering on GPIO 3 is disabled\n"
         "     Triggering on GPIO 4 is enabled LOW   HoldTime: 9\n",
         nullptr},
        {"startconditions disable", "Success: setting startconditions", "d005 -"},
    };
    for (const char* model : {"PN5100", "PN5100-ASIC", "QDX4400"}) {
        SCOPED_TRACE(model);
        modelName = model;
        expectExchanges(two);
    }
    modelName = "PN8200";
    expectExchanges(four);
}

TEST(ConfigRXE, RefusalsReachNoEngine) {
    const std::string longMask = "select 1 mask=" + std::string(134, 'a');
    const std::string longFilter = "id_filter 1 mask=" + std::string(133, 'a');
    const exchange_s exchanges[] = {
        {"channel", "Failure: need more parameters", nullptr},
        {"channel 3 max_pwr=30", "Failure: setting channel must include frequency", nullptr},
        {"channel 3 frequency=915250", "Failure: setting channel must include max_pwr", nullptr},
        {"channel 128", "Failure: channel id not supported", nullptr},
        {"select 33", "Failure: select id not supported", nullptr},
        {"select 0 target=1", "Failure: select id not supported", nullptr},
        {"access 64 disable", "Failure: access id not supported", nullptr},
        {"id_filter 235 disable", "Failure: filter id not supported", nullptr},
        {"inventory 256 sel=SL", "Failure: inventory id not supported", nullptr},
        {"olio 99999999999", "Failure: olio id not supported", nullptr},
        {"olio 1 rx_beam=1 stop_type=time", "Failure: setting olio must include tx_beam", nullptr},
        {"olio 1 tx_beam=1 stop_type=never", "Failure: setting olio stop_type must be inventory or time",
         nullptr},
        {longMask.c_str(), "Failure: mask is too long", nullptr},
        {longFilter.c_str(), "Failure: mask is too long", nullptr},
        {"id_filter 1 length=529", "Failure: mask is too long", nullptr},
        {"packet 5 on", "Failure: configrxe packet must include enable or disable", nullptr},
        {"packet 1024 enable", "Failure: setting packet 1024 (0x0400)", nullptr},
        {"cableLoss 16", "Failure: getting cable loss compensation for antenna 16", nullptr},
        {"cableLoss 1 25.6", "Failure: setting cable loss compensation for antenna 1 to 25.6", nullptr},
        {"hopperround on", "Failure: setting hopperround requires enable or disable", nullptr},
        {"aarHeight -1", "Failure: setting aar height to -1.0", nullptr},
        {"staticVDynamic 256", "Failure: setting static vs dynamic threshold to 256", nullptr},
        {"reportfilter duration=1", "Failure: type must be radion or antenna", nullptr},
        {"txDelayInterval duration=1", "Failure: txDelayInterval must include disable or type", nullptr},
        {"txDelayInterval type=x", "Failure: type must be noReads or noUniqueReads", nullptr},
        {"txDelayInterval type=noReads", "Failure: txDelayInterval must include disable or duration",
         nullptr},
    };
    expectExchanges(exchanges);
    EXPECT_EQ(ask("configrxe"), "Failure: command requires additional parameters");
    EXPECT_EQ(ask("configrxe Custom"), "Failure: command not supported");
    EXPECT_EQ(ask("configrxe shadow"), "Success: using RXE shadow");
    for (const char* request : {"cableLoss 1 x", "aarHeight x", "tagHeight x", "staticVDynamic x",
                                "txDelayInterval type=noReads duration=x"}) {
        EXPECT_THROW(ask(std::string("configrxe custom ") + request), std::invalid_argument) << request;
    }
}

TEST(ConfigRXE, AFailingEngineHasAReplyInEachSection) {
    engine_double::failOn("RXE_getParam", -1, static_cast<RXE_API_STATUS>(77));
    engine_double::failOn("RXE_setParam2", -1, static_cast<RXE_API_STATUS>(77));
    const std::string error = RXE_strerror(static_cast<RXE_API_STATUS>(77));
    const std::pair<const char*, std::string> cases[] = {
        {"channel 3", "getting channel 3"},
        {"channel 3 disable", "setting channel 3 (error " + error + ")"},
        {"select 1 disable", "setting select 1"},
        {"id_filter 4", "getting id_filter 4"},
        {"id_filter 4 disable", "setting select 4"},
        {"inventory 1 disable", "setting inventory 1"},
        {"access 1 disable", "setting access 1"},
        {"olio 1 disable", "setting olio 1"},
        {"olio 0 disable", "setting olio 0"},
        {"packet 5 enable", "setting packet 5 (0x0005)"},
        {"cableLoss 2", "getting cable loss compensation for antenna 2"},
        {"cableLoss 2 1", "setting cable loss compensation for antenna 2 to 1.0"},
        {"hopperround enable", "setting hopperround"},
        {"aarHeight 1", "setting aar height to 1.0"},
        {"tagHeight 1", "setting tag height to 1.0"},
        {"staticVDynamic 1", "setting static vs dynamic threshold to 1"},
        {"reportfilter disabled", "setting reportfilter"},
        {"txDelayInterval disable", "setting txDelayInterval"},
        {"taginfofields epc", "setting taginfofields"},
        {"stopconditions", "getting stopconditions"},
        {"stopconditions time=1", "setting stopconditions"},
        {"startconditions", "getting startconditions"},
        {"startconditions disable", "setting stopconditions"},
        {"startconditions gpiobitmask=1", "setting startconditions"},
    };
    for (const auto& [request, reply] : cases) {
        EXPECT_EQ(ask(std::string("configrxe custom ") + request), "Failure: " + reply);
    }
}

}  // namespace
