/* SPDX-License-Identifier: MIT */
/* The radio engine library, libRxe.so: its operations, the records its parameters
 * carry, its packet types, and the layout of what its callback delivers. The maker
 * of such a library needs this header and nothing else of the daemon.
 *
 * "Host" is the program that links the library, "radio" what the library drives.
 *
 * Records. All numbers in records are little-endian. A layout is fixed: every gap is
 * a `reservedNN` field named after its offset, and sizes and offsets are asserted in
 * rxe_layout.h. The host ignores reserved fields, and writes 0 there or the
 * value that it has read. It owns every record; the parameter id determines the size.
 * A picture in front of a record shows its bytes from the offset on the left, `name: n`
 * for a field of n bytes, `name` for one byte, `-` for reserved ones.
 *
 * Order of calls. RXE_getAPIVerNum, RXE_connect, reads and writes of parameters,
 * RXE_setCallback, more reads and writes; then RXE_resetDb, RXE_start and RXE_stop
 * any number of times, with reads and writes also during a run; RXE_disconnect last.
 *
 * Threads. The library calls the callback on a thread of its own, one packet at a time.
 * The host takes no lock around its calls, so the library guards its own state: the
 * main thread calls every operation but RXE_formatPayloadToStruct, which the callback and
 * the thread of the bearing simulator call, and all of this happens at the same time.
 * During the callback the library holds no lock that an operation needs. */
#ifndef TARNWICK_RXE_H
#define TARNWICK_RXE_H

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* -------------------------------------------------------------------- statuses
 *
 * The results of operations: 0 is success, every other value is an error code that the
 * library chooses; the host logs it and shows it as a number. RXE_strerror gives its
 * text. The host knows one of them: RXE_resume returns RXE_NO_START_ONGOING while no
 * start is under way. */
typedef enum {
    RXE_OK = 0,
    RXE_NO_START_ONGOING = 241,
    /* Makes the type int-sized. Never returned. */
    RXE_API_STATUS_MAX = 0x7FFFFFFF
} RXE_API_STATUS;

/* Version of the library (RXE_getAPIVerNum) or of the radio's firmware
 * (RXE_PARAM_FW_VERSION). Written by the library.
 *
 *   0 | major | minor | patch | build |
 *
 * By major, minor and patch the host decides which parameters it uses; it only prints
 * build. */
typedef struct {
    uint8_t major;
    uint8_t minor;
    uint8_t patch;
    uint8_t build;
} REL_VERSION_s;

/* --------------------------------------------------------------------- packets
 *
 * The argument of the callback. Written by the library, read by the host, and valid
 * only during the call.
 *
 *   0 | type: 2 | length: 2 |
 *   4 | payload: length |
 */
typedef struct {
    uint16_t type;   /* RXE_PACKET_* */
    uint16_t length; /* of payload, in bytes */
    __extension__ uint8_t payload[];
} RXE_packet_s;

/* Packet types, the values of RXE_packet_s.type. Each type also has an id, the type XOR
 * 0x800 (RXE_PACKET_TYPE_XOR). PACKET_ENABLE_s, the words of RXE_PARAM_PACKET_BITS and
 * the texts of the host use ids: type 0x0B0C, ACCESS_INFO, is id 780. This list has
 * types; RXE_PACKET_ID gives the id.
 *
 * A type is delivered while its id is enabled. The host first disables all types and
 * then enables those that it needs, except for three, which the library delivers
 * without being asked: END_OF_RUN and ERROR_LOG, whose ids the host does not have, and
 * TAG_INFO_CUSTOM.
 *
 * Pictures show the payload, `name: bytes`, numbers most significant byte first. The
 * host does not read behind the picture. Without a picture the host does not read the
 * payload; it acts on the packet alone or ignores it. */
enum {
    /* | 08 | 09 |  A run is over. The host ignores any other payload. */
    RXE_PACKET_END_OF_RUN = 0x0801,
    /* A tag was read. Decoded into TAG_INFO_s; the four types have different fields.
     * This one has those that RXE_PARAM_CUSTOM_FIELDS asks for.
     *
     * The library chooses the encoding of fields, except for the five below, because
     * the host's bearing simulator makes such packets and has the library decode them:
     *
     *   | 8D | EPC: 12 |  or, for other lengths,  | 00 F1 | bytes: 2 | bits: 2 | EPC |
     *   | 8C | PC: 2 |
     *   | 8B | CRC: 2, least significant byte first |
     *   | 03 84 11 06 | azimuth: 2 | elevation: 2 | azimuthConf | elevationConf |  */
    RXE_PACKET_TAG_INFO_CUSTOM = 0x0805,
    RXE_PACKET_TAG_INFO_SHORT = 0x0806,
    RXE_PACKET_TAG_INFO_LONG = 0x0807,
    RXE_PACKET_TAG_INFO_COMPLETE = 0x0808,
    /* | "ERRLOG" and text, not terminated |  The answer to RXE_getErr. */
    RXE_PACKET_ERROR_LOG = 0x0810,

    RXE_PACKET_START_INFO = 0x0A81,
    RXE_PACKET_ECHO_DEBUG = 0x0A82,
    RXE_PACKET_SINGFRAME_INFO = 0x0A83,
    RXE_PACKET_AUTOMAC_DEBUG = 0x0A84,
    RXE_PACKET_START_INFO2 = 0x0A86,
    RXE_PACKET_GET_SA = 0x0A88,
    RXE_PACKET_GET_LBT = 0x0A89,
    RXE_PACKET_EVT_LP_UPDATE = 0x0A8A,
    RXE_PACKET_DUTY_CYCLE_DEBUG = 0x0A8B,
    /* The level on each beam of the array, behind the tag packet that it belongs to.
     * Decoded into PARALLEL_RSSI_s. */
    RXE_PACKET_PARALLEL_RSSI_DEBUG = 0x0A8E,
    RXE_PACKET_ECHO_AAR_DEBUG = 0x0A90,
    /* How a run ended, before END_OF_RUN. Decoded into START_INFO_s. */
    RXE_PACKET_START_INFO3 = 0x0A91,
    RXE_PACKET_FW_REV_AAR = 0x0A92,
    RXE_PACKET_PORTAL_DEBUG = 0x0A93,
    RXE_PACKET_ANT_CHECK_CONNECT = 0x0A95,
    RXE_PACKET_ANT_CHECK_CW_ON = 0x0A96,
    RXE_PACKET_ANT_CHECK_ANT_INFO = 0x0A97,

    /* The radio is at work. The host then sends the reports that it has gathered, so
     * this packet should come several times a second during a run. */
    RXE_PACKET_CMD_ONGOING = 0x0B01,
    RXE_PACKET_STATUS = 0x0B02,
    /* | olio: 2 | transmit antenna: 2 |  From here on the radio works on this olio;
     * it comes before the olio's first tag. */
    RXE_PACKET_ANTENNA_INFO = 0x0B03,
    /* | not read: 4 | frequency in kHz: 4 |  The carrier rises on this channel. Ends the
     * accesses of the tag before. */
    RXE_PACKET_CW_ON = 0x0B04,
    RXE_PACKET_CW_OFF = 0x0B05,
    RXE_PACKET_CW_OFF_TIMED = 0x0B06,
    RXE_PACKET_RET_LOSS = 0x0B07,
    /* | port: 1 | level: 1 |  An input has changed; level 0 is low. */
    RXE_PACKET_GPIO_INFO = 0x0B08,
    /* An inventory round begins. Ends the accesses of the tag before. */
    RXE_PACKET_INV_BEGIN = 0x0B09,
    RXE_PACKET_INV_END = 0x0B0A,
    /* The result of one access, behind the tag packet of its tag. Decoded into
     * ACCESS_INFO_s. */
    RXE_PACKET_ACCESS_INFO = 0x0B0C,
    RXE_PACKET_ACCESS_CRITERIA_INFO = 0x0B0D,
    RXE_PACKET_ANTENNA_TIMED_INFO = 0x0B0E,
    RXE_PACKET_CW_ON_TIMED = 0x0B0F,
    RXE_PACKET_TAG_CRC_ERROR = 0x0B10,
    RXE_PACKET_AAR_INFO = 0x0B11,
    RXE_PACKET_NXP_EAS_ALARM = 0x0B12,
    RXE_PACKET_CHAN_PWR_LMT = 0x0B13,
    RXE_PACKET_IMMED = 0x0B14,

    /* | olio: 2 |  The transmit antenna of this olio is no longer connected. */
    RXE_PACKET_ANT_DISCONNECT_ALARM = 0x0B81,
    /* | degrees Celsius, signed: 1 |  The six temperature alarms; the host acts on the
     * high and the critical ones. */
    RXE_PACKET_AMB_TEMP_HI_ALARM = 0x0B82,
    RXE_PACKET_AMB_TEMP_CRIT_ALARM = 0x0B83,
    RXE_PACKET_AMB_TEMP_LO_ALARM = 0x0B84,
    RXE_PACKET_PA_TEMP_HI_ALARM = 0x0B85,
    RXE_PACKET_PA_TEMP_CRIT_ALARM = 0x0B86,
    RXE_PACKET_PA_TEMP_LO_ALARM = 0x0B87,
    /* | port: 1 |  The power amplifier of this port fails: too much or too little
     * forward power. */
    RXE_PACKET_FWD_PWR_HI_ALARM = 0x0B88,
    RXE_PACKET_FWD_PWR_LO_ALARM = 0x0B89,
    RXE_PACKET_REV_PWR_HI_ALARM = 0x0B8A,
    RXE_PACKET_ECHO_THRESH_ALARM = 0x0B8B,
    RXE_PACKET_LMAC_ERROR = 0x0B8C,
    /* The tag database is nearly full. Decoded into DB_WARNING_s. */
    RXE_PACKET_DB_WARNING = 0x0B8D,
    /* The tag database is full; the host resets it at once. */
    RXE_PACKET_DB_ERROR = 0x0B8E,
    RXE_PACKET_ACCESS_DSBL_ALARM = 0x0B8F,
    RXE_PACKET_OVER_TEMP_PROT_ALARM = 0x0B90,
    /* | olio: 2 |  The transmit antenna of this olio is connected again. */
    RXE_PACKET_ANT_CONNECT_ALARM = 0x0B91,
    RXE_PACKET_PLL_LOCK_ALARM = 0x0B92,
    RXE_PACKET_SPI_FLASH_ERROR = 0x0B93,
    RXE_PACKET_FWD_PWR_ERR = 0x0B94,
    RXE_PACKET_REV_PWR_ERR = 0x0B95,
    RXE_PACKET_PPI_ERR = 0x0B96,
    RXE_PACKET_PPI_TEST_ERR = 0x0B97,
    RXE_PACKET_RESTART = 0x0B98,
    RXE_PACKET_SERIAL_OVFL = 0x0BFD,
    /* | code, least significant byte first: 4 |  The host shows the code. */
    RXE_PACKET_API_ERROR = 0x0BFF,
};

enum { RXE_PACKET_TYPE_XOR = 0x800 };
#define RXE_PACKET_ID(type) ((uint16_t)((unsigned)(type) ^ (unsigned)RXE_PACKET_TYPE_XOR))

/* ------------------------------------------------------------------ parameters
 *
 * Ids of RXE_getParam, RXE_setParam and RXE_setParam2, and the record of each. "get" or
 * "set" means that the host only reads or only writes it; otherwise it does both.
 * A range is base + id. Id 0 of the ranges of selects, inventory sets, accesses, olios
 * and id filters addresses the whole range: a record with `enable` 0 disables all of it.
 *
 * Some parameters exist on certain models or from certain firmware on; the library
 * refuses the others with an error code and changes nothing. */
enum {
    /* get: REL_VERSION_s. */
    RXE_PARAM_FW_VERSION = 0x0001,
    /* get: the host only uses the status, to learn whether the radio still answers. It
     * gives a scratch record of 256 bytes. */
    RXE_PARAM_LIVENESS = 0x0003,
    /* set: PACKET_ENABLE_s. Id 0 with `enable` 0 disables all types. */
    RXE_PARAM_PACKET_ENABLE = 0x0004,
    /* PER_RADIO_STOP_s. All models but PN8200. */
    RXE_PARAM_RADIO_STOP = 0x0005,
    /* u32, a mask of RXE_FIELD_*: the fields of tag packets. */
    RXE_PARAM_CUSTOM_FIELDS = 0x0009,
    /* set: u16, the number of antennas. PN5100 only. */
    RXE_PARAM_NUM_ANTENNAS = 0x0011,
    /* get: u32, the largest transmit power in its low 16 bits, in tenths of dBm. */
    RXE_PARAM_MAX_TX_POWER = 0x0014,
    /* PER_RADIO_STOP2_s. PN8200 only. */
    RXE_PARAM_RADIO_STOP2 = 0x0015,
    /* +n, n 0 to 31. get: u32, whether packet types are enabled: bit (id AND 31) of
     * word id / 32, RXE_PACKET_ID. */
    RXE_PARAM_PACKET_BITS = 0x0020,
    /* +id 1 to 32: SELECT_OP_s. */
    RXE_PARAM_SELECT = 0x0100,
    /* +id 1 to 255: INVENTORY_OP_s. */
    RXE_PARAM_INVENTORY = 0x0200,
    /* +id 1 to 63: ACCESS_OP_s. */
    RXE_PARAM_ACCESS = 0x0300,
    /* +id 1 to 0x3FF: OLIO_s. */
    RXE_PARAM_OLIO = 0x0400,
    /* +n 1 to 127: CHANNEL_s. */
    RXE_PARAM_CHANNEL = 0x0800,
    /* u8, 0 or 1: the radio also changes channels at each inventory round. */
    RXE_PARAM_HOP_PER_ROUND = 0x0885,
    /* get: u8, 0 or 1: the same for each olio. */
    RXE_PARAM_HOP_PER_OLIO = 0x0886,
    /* u8: 0 low, 1 normal, 2 high dynamic range of the receiver. */
    RXE_PARAM_DYNAMIC_RANGE = 0x0888,
    /* +id: REPORT_FILTER_ID_s. */
    RXE_PARAM_ID_FILTER = 0x1000,
    /* set: u8, 2: the radio starts again after a stop when its start trigger fires
     * anew; 0: it does not. */
    RXE_PARAM_AUTORESTART = 0x10EB,
    /* u8: the level that a bearing needs, in a unit of the radio. The host writes 6 for
     * a mode with bearings, and the values of its command peak_threshold. */
    RXE_PARAM_PEAK_THRESHOLD = 0x10EC,
    /* u8: the threshold between static and dynamic; the radio defines its meaning.
     * Array reader. */
    RXE_PARAM_STATIC_V_DYNAMIC = 0x10ED,
    /* u16, tenths: the height of the array reader, and that of the tags. Array reader. */
    RXE_PARAM_AAR_HEIGHT = 0x10EE,
    RXE_PARAM_TAG_HEIGHT = 0x10EF,
    /* u8: azimuth and elevation by monopulse (0), by the centre of mass, COM (3), or one
     * by each (1, 2). The host writes 0 for a mode with bearings. */
    RXE_PARAM_MONO_OR_COM = 0x10F0,
    /* u16, type + 256 * duration: rest between two passes through the olios. Types:
     * 0 none, 1 after a pass without a read, 2 after one without a new tag. In ms. */
    RXE_PARAM_TX_DELAY_INTERVAL = 0x10F3,
    /* u16: time between the Selects and the Query of a round, in microseconds. */
    RXE_PARAM_DELAY_AFTER_SELECTS = 0x10F5,
    /* u8: words of one operation of a block write; 0 counts as 1. */
    RXE_PARAM_BLOCK_SIZE = 0x10FB,
    /* i8, dBm: the radio ignores weaker replies; -128 turns the threshold off. */
    RXE_PARAM_RSSI_THRESHOLD = 0x10FE,
    /* REPORT_FILTER_LAST_REPORT_s. */
    RXE_PARAM_LAST_REPORT = 0x10FF,
    /* +antenna: u8, loss of the antenna's cable in tenths of a dB. */
    RXE_PARAM_CABLE_LOSS = 0x1200,
    /* get: i16, temperatures of the power amplifier and of its surroundings, degrees
     * Celsius. */
    RXE_PARAM_PA_TEMP = 0x2100,
    RXE_PARAM_AMB_TEMP = 0x2101,
    /* get: u16, bit n-1 set: antenna n is connected. On the array reader bit n stands
     * for element n. */
    RXE_PARAM_ANTENNA_STATE = 0x2111,
    /* set: u8, interval of the antenna check in a unit of the radio; the host writes
     * 5. */
    RXE_PARAM_ANTENNA_CHECK = 0x2112,
    /* +index of a channel, get: AAREchoResults. Array reader. */
    RXE_PARAM_ECHO = 0x2300,
    /* u8, a bit for each GPIO port; the host writes 0xFF, all of them inputs. */
    RXE_PARAM_GPIO_DIR = 0xD001,
    /* GPIO_START_s. All models but PN8200. */
    RXE_PARAM_GPIO_START = 0xD003,
    /* GPIO_START2_s. PN8200 only. */
    RXE_PARAM_GPIO_START2 = 0xD005,
};

/* Ids of RXE_setNVMParam, a space of its own: u8, the temperature in degrees Celsius,
 * as the radio encodes it, above which the high alarms come. The host writes 131. */
enum {
    /* Of the power amplifier. All models but the array reader. */
    RXE_NVM_PA_HI_TEMP = 0x0403,
    /* Of its surroundings. */
    RXE_NVM_AMB_HI_TEMP = 0x0406,
};

/* How many ids a range has: 1 to these. The masks of OLIO_s have a bit for each
 * select and each access. */
enum {
    RXE_MAX_SELECTS = 32,
    RXE_MAX_ACCESSES = 63,
    RXE_MAX_OLIOS = 0x3FF,
    RXE_MAX_CHANNELS = 127,
    /* Words from RXE_PARAM_PACKET_BITS on, so ids of packet types are below 1024. */
    RXE_PACKET_BIT_WORDS = 32,
};

/* Fields of a tag packet: the bits of RXE_PARAM_CUSTOM_FIELDS and of `fields` in
 * TAG_INFO_s. The host may ask for all of them, also for those without a member of
 * TAG_INFO_s; these bits may be set there, and the host ignores them. */
enum {
    RXE_FIELD_EPC = 0x1,
    /* No members. */
    RXE_FIELD_ROSPEC = 0x2,
    RXE_FIELD_SPEC_INDEX = 0x4,
    RXE_FIELD_INV_PARAM = 0x8,
    /* No member: ANTENNA_INFO has the antenna. */
    RXE_FIELD_ANTENNA_ID = 0x10,
    RXE_FIELD_RSSI = 0x20,
    /* No member: CW_ON has the channel. */
    RXE_FIELD_CHANNEL_ID = 0x40,
    /* No members: the host takes the time of day at which the packet comes. */
    RXE_FIELD_FIRST_SEEN = 0x80,
    RXE_FIELD_LAST_SEEN = 0x100,
    RXE_FIELD_TAG_COUNT = 0x200,
    RXE_FIELD_PC = 0x400,
    /* In JSON the host reports the second XPC word only together with the first. */
    RXE_FIELD_XPC1 = 0x800,
    RXE_FIELD_XPC2 = 0x1000,
    RXE_FIELD_CRC = 0x2000,
    /* No member. */
    RXE_FIELD_ACCESS_SPEC = 0x4000,
    RXE_FIELD_PHASE = 0x8000,
    RXE_FIELD_RSSI_LIN = 0x10000,
    /* Azimuth and elevation with their confidences. Array reader. */
    RXE_FIELD_BEARING = 0x20000,
    RXE_FIELD_BRAND_ID = 0x40000,
    /* Both coordinates and their confidence. Array reader. */
    RXE_FIELD_LOCATION = 0x80000,
};

/* Link profiles: the numbers that `linkProfileIndex` of an olio may have, ascending.
 * The radio defines their meaning (forward link, link frequency, coding of the tag). */
static const uint16_t RXE_LINK_PROFILES[] = {
    3,   4,   5,    6,    101,  102,  107,  108,  111,  112,  113,  114,  201,  202,  207,  208,  211,
    212, 213, 214,  301,  302,  307,  308,  311,  312,  313,  314,  401,  402,  407,  408,  411,  412,
    413, 414, 501,  502,  507,  508,  511,  512,  513,  514,  601,  602,  607,  608,  611,  612,  613,
    614, 707, 708,  711,  712,  713,  714,  807,  808,  811,  812,  813,  814,  907,  908,  911,  912,
    913, 914, 1007, 1008, 1011, 1012, 1013, 1014, 1417, 1418, 1519, 1520, 1617, 1619, 1717, 1719,
};

/* --------------------------------------- records that the host writes and reads
 *
 * The host writes them with RXE_setParam2, and may read the values in force at any time.
 * A record that the library refuses changes nothing. */

/* RXE_PARAM_PACKET_ENABLE, written only: whether packets of one type are delivered.
 *
 *   0 | enable | - | id: 2 |
 */
typedef struct {
    uint8_t enable; /* 0 or 1 */
    uint8_t reserved1;
    uint16_t id; /* RXE_PACKET_ID; 0, with `enable` 0: all types */
} PACKET_ENABLE_s;

/* RXE_PARAM_OLIO: one work item of the radio. On this antenna pair, with this power,
 * link profile and inventory parameter set, run these selects and accesses until the
 * stop rule fires. The radio takes its enabled olios in the order of their ids, pass
 * after pass.
 *
 *    0 | enable | - | transmitAntenna: 2 | receiveAntenna: 2 | stopType | - |
 *    8 | stopValue: 2 | transmitPower: 2 | selectBitMask: 4 |
 *   16 | inventoryIndex | -: 7 |
 *   24 | accessBitMask: 8 |
 *   32 | linkProfileIndex: 2 | -: 6 |
 */
typedef struct {
    uint8_t enable; /* 0 unused, 1 active */
    uint8_t reserved1;
    /* Number of an antenna port from 1 on, or of a beam of the array reader. */
    uint16_t transmitAntenna;
    /* The same. From 0xFFF0 up a receive-pattern selector of the array reader: 0xFFF0
     * and the thousands of the transmitting beam's number. */
    uint16_t receiveAntenna;
    /* RXE_STOP_*, 3 to 10 for GPIO, from 0x81 rounds and dwell time */
    uint8_t stopType;
    uint8_t reserved7;
    /* By stopType: rounds, ms, or for GPIO how long the level must last. */
    uint16_t stopValue;
    int16_t transmitPower;  /* tenths of dBm, up to RXE_PARAM_MAX_TX_POWER */
    uint32_t selectBitMask; /* bit n-1: select n runs in this olio */
    uint8_t inventoryIndex; /* id of the INVENTORY_OP_s */
    uint8_t reserved17[7];
    uint64_t accessBitMask;    /* bit n-1: access n runs in this olio */
    uint16_t linkProfileIndex; /* one of RXE_LINK_PROFILES */
    uint8_t reserved34[6];
} OLIO_s;

/* Stop types of an olio, with what stopValue is. A GPIO rule is port * 2 + 1 for a
 * high level and port * 2 + 2 for a low level, ports 1 to 4. */
enum {
    /* rounds */
    RXE_STOP_INVENTORY_ROUNDS = 1,
    /* ms */
    RXE_STOP_DWELL_TIME = 2,
    /* hold value */
    RXE_STOP_GPIO1_HIGH = 3,
    RXE_STOP_GPIO4_LOW = 10,
    /* Types from here + 1 up stand for two rules: stopType - 0x80 inventory rounds, and
     * stopValue ms of dwell time. 0x83 is 3 rounds. */
    RXE_STOP_ROUNDS_AND_DWELL = 0x80,
};

/* RXE_PARAM_SELECT: one Gen2 Select command (EPC Gen2 air interface, 6.3.2.12.1.1),
 * sent at the beginning of each round of the olios that name it.
 *
 *    0 | enable | target | action | membank | pointer: 2 | length | - |
 *    8 | truncate: 2 |
 *   10 | mask: 66 |
 */
typedef struct {
    uint8_t enable;   /* 0 disabled, 1 a Select, else a slot that is not a Select */
    uint8_t target;   /* 0 to 3: session S0 to S3, 4: SL */
    uint8_t action;   /* Gen2 action code 0 to 7 */
    uint8_t membank;  /* 0 reserved, 1 EPC, 2 TID, 3 user */
    uint16_t pointer; /* first bit compared */
    uint8_t length;   /* of the mask, bits */
    uint8_t reserved7;
    uint16_t truncate; /* 0 none, else the expected truncated length in bits */
    uint8_t mask[66];  /* (length + 7) / 8 bytes count, most significant bit first */
} SELECT_OP_s;

/* RXE_PARAM_INVENTORY: one inventory parameter set, the Query of a round (EPC Gen2 air
 * interface). Two forms by protocol; the host writes the first one only and shows the
 * second one as it reads it.
 *
 *   0 | enable | 1 | sel | session | target | initialQ |                  epcGen2
 *   0 | enable | 3 | membank | - | wordPointer: 2 | wordCount: 2 |        nxpParallelEncode
 *   8 | data: 2 each |
 */
typedef struct {
    uint8_t enable;   /* 0 or 1 */
    uint8_t protocol; /* 1 epcGen2, 3 nxpParallelEncode */
    __extension__ union {
        struct {
            uint8_t sel;      /* below 2 all, 2 not SL, 3 SL */
            uint8_t session;  /* 0 to 3 */
            uint8_t target;   /* 0 A, 1 B, 2 A and B in turn */
            uint8_t initialQ; /* 0 to 15 */
        };
        struct {
            uint8_t membank; /* as in SELECT_OP_s */
            uint8_t reserved3;
            uint16_t wordPointer;
            uint16_t wordCount;
            uint16_t data[256];
        };
    };
} INVENTORY_OP_s;

/* RXE_PARAM_ACCESS: one tag memory operation, done on each tag that is read in the olios
 * that name it, in the order of the ids. The library sends an ACCESS_INFO packet for each
 * radio operation: one, or for a multiword write one for each word, and for a block write
 * one for each block of RXE_PARAM_BLOCK_SIZE words.
 *
 *     0 | enable | type | -: 2 |
 *     4 | membank | - | wordPointer: 2 |          or | payload: 4 |
 *     8 | wordCount: 2 |
 *    10 | data: 2 each |
 *   524 | criteriaIdx | - | stopCount: 2 |
 */
typedef struct {
    uint8_t enable; /* 0 or 1 */
    uint8_t type;   /* RXE_ACCESS_* */
    uint8_t reserved2[2];
    __extension__ union {
        /* Types that read and write. */
        struct {
            uint8_t membank; /* as in SELECT_OP_s */
            uint8_t reserved5;
            uint16_t wordPointer; /* first word */
        };
        /* KILL and ACCESS: the password. LOCK: mask in bits 19 to 10, action in bits 9
         * to 0, as in the Lock command. */
        uint32_t payload;
    };
    /* Words to read or write; for a write of one word the word itself; for a read the
     * low byte is wordCount, 0 for all words to the end of the bank, and the high byte
     * wordCountExpected. */
    uint16_t wordCount;
    uint16_t data[257];  /* words of a multiword or block write */
    uint8_t criteriaIdx; /* access criteria index, 0 none; the host writes 0 */
    uint8_t reserved525;
    uint16_t stopCount; /* 0 no limit */
} ACCESS_OP_s;

/* Types of access. The host writes READ to BLOCK_WRITE and MULTIWORD_WRITE; it only shows
 * the others when it reads them. */
enum {
    RXE_ACCESS_READ = 1,
    /* One word. */
    RXE_ACCESS_WRITE = 2,
    RXE_ACCESS_KILL = 3,
    RXE_ACCESS_LOCK = 4,
    RXE_ACCESS_ACCESS = 5,
    RXE_ACCESS_BLOCK_WRITE = 6,
    RXE_ACCESS_BLOCK_ERASE = 7,
    RXE_ACCESS_BLOCK_PERMALOCK = 8,
    RXE_ACCESS_MULTIWORD_WRITE = 11,
    RXE_ACCESS_AUTHENTICATE = 12,
    RXE_ACCESS_READ_BUFFER = 13,
    RXE_ACCESS_UNTRACEABLE = 14,
    RXE_ACCESS_CRYPTO10 = 15,
};

/* RXE_PARAM_RADIO_STOP: the rule that ends a run, as soon as one of its parts fires.
 *
 *   0 | duration: 4 | olioLoops: 2 | tagCount: 2 |
 *   8 | gpiBitMask | - | holdTime1: 2 | holdTime2: 2 | -: 2 |
 */
typedef struct {
    uint32_t duration;  /* ms, 0 none */
    uint16_t olioLoops; /* passes through the olio list, 0 none */
    /* 0 none. Up to RXE_NO_MORE_UNIQUE_TAGS_BASE: stop after this many tags. Above:
     * stop when no new tag has come for (value - base) seconds; 0xF00A is 10 s. */
    uint16_t tagCount;
    uint8_t gpiBitMask; /* bit n-1: level on port n, 1 high; bit n+3: port n takes part */
    uint8_t reserved9;
    uint16_t holdTime1; /* ms that the level on port 1 must last */
    uint16_t holdTime2;
    uint16_t reserved14;
} PER_RADIO_STOP_s;

/* RXE_PARAM_RADIO_STOP2: the same with four GPIs, PN8200.
 *
 *    0 | duration: 4 | olioLoops: 2 | tagCount: 2 |
 *    8 | gpiBitMask | - | holdTime1: 2 | holdTime2: 2 | holdTime3: 2 |
 *   16 | holdTime4: 2 | -: 2 |
 */
typedef struct {
    uint32_t duration;
    uint16_t olioLoops;
    uint16_t tagCount;
    uint8_t gpiBitMask;
    uint8_t reserved9;
    uint16_t holdTime1;
    uint16_t holdTime2;
    uint16_t holdTime3;
    uint16_t holdTime4;
    uint16_t reserved18;
} PER_RADIO_STOP2_s;

enum { RXE_NO_MORE_UNIQUE_TAGS_BASE = 0xF000 };

/* RXE_PARAM_GPIO_START: the trigger that starts the radio. With a mask of 0 it starts
 * at once.
 *
 *   0 | gpiBitMask | - | holdTime1: 2 | holdTime2: 2 |
 */
typedef struct {
    uint8_t gpiBitMask; /* as in PER_RADIO_STOP_s */
    uint8_t reserved1;
    uint16_t holdTime1; /* ms */
    uint16_t holdTime2;
} GPIO_START_s;

/* RXE_PARAM_GPIO_START2: the same with four GPIs, PN8200.
 *
 *   0 | gpiBitMask | - | holdTime1: 2 | holdTime2: 2 | holdTime3: 2 |
 *   8 | holdTime4: 2 |
 */
typedef struct {
    uint8_t gpiBitMask;
    uint8_t reserved1;
    uint16_t holdTime1;
    uint16_t holdTime2;
    uint16_t holdTime3;
    uint16_t holdTime4;
} GPIO_START2_s;

/* RXE_PARAM_ID_FILTER: an id filter on reported tags.
 *
 *   0 | enable | - | bitLength: 2 | bitPointer: 2 |
 *   6 | mask: 66 |
 */
typedef struct {
    uint8_t enable; /* 0 or 1 */
    uint8_t reserved1;
    uint16_t bitLength;  /* of the mask, bits */
    uint16_t bitPointer; /* first EPC bit compared */
    uint8_t mask[66];    /* (bitLength + 7) / 8 bytes count, most significant bit first */
} REPORT_FILTER_ID_s;

/* RXE_PARAM_LAST_REPORT: the engine's own duplicate suppression. A tag is reported once
 * and then not again for the duration.
 *
 *   0 | enable | type | -: 2 | duration: 4 |
 */
typedef struct {
    uint8_t enable; /* 0 or 1 */
    uint8_t type;   /* 0 radio wide, 1 per olio, that is per antenna */
    uint8_t reserved2[2];
    uint32_t duration; /* seconds */
} REPORT_FILTER_LAST_REPORT_s;

/* RXE_PARAM_CHANNEL: one channel of the hopping table. The host reads all of them when
 * it connects, so the library has a table by then.
 *
 *   0 | enable | -: 3 | frequency: 4 |
 *   8 | maxPower: 2 | -: 2 |
 */
typedef struct {
    uint8_t enable; /* 0 or 1 */
    uint8_t reserved1[3];
    uint32_t frequency; /* kHz */
    uint16_t maxPower;  /* tenths of dBm */
    uint16_t reserved10;
} CHANNEL_s;

/* ------------------------------------------------ records that the library writes
 *
 * RXE_formatPayloadToStruct fills them from a packet. The host has zeroed the record, so
 * that members without a field in the packet are 0. RXE_getParam fills the echo record. */

/* A tag packet. `fields` says which of the members are present. The host uses `epcLength`
 * also without RXE_FIELD_EPC, as the length of the EPC that it reports.
 *
 *    0 | -: 16 |
 *   16 | fields: 4 | azimuth: 2 | elevation: 2 |
 *   24 | azimuthConf | elevationConf | locationX: 2 | locationY: 2 | locConf | - |
 *   32 | rssiLin: 4 | phase: 4 |
 *   40 | -: 4 | tagCount: 2 | pc: 2 |
 *   48 | xpc1: 2 | xpc2: 2 | crc: 2 | epcLength: 2 |
 *   56 | rssi | brandIdMatched | epc: 256 |
 *  314 | -: 3846 |
 */
typedef struct {
    uint8_t reserved0[16];
    uint32_t fields; /* RXE_FIELD_* */
    /* Where the tag is, seen from the array reader, and how sure that is. */
    uint16_t azimuth;   /* tenths of a degree */
    uint16_t elevation; /* tenths of a degree */
    uint8_t azimuthConf;
    uint8_t elevationConf;
    /* Where the tag is in the plane of the tags. */
    int16_t locationX; /* tenths of a unit of the radio's own */
    int16_t locationY; /* the same */
    uint8_t locConf;
    uint8_t reserved31;
    uint32_t rssiLin; /* bits of a 32-bit float: the level on a linear scale */
    float phase;      /* as the radio measures it */
    uint8_t reserved40[4];
    uint16_t tagCount;  /* reads merged in this packet */
    uint16_t pc;        /* words that the tag has sent: protocol control, ... */
    uint16_t xpc1;      /* ... extended protocol control, ... */
    uint16_t xpc2;      /* ... its second word, ... */
    uint16_t crc;       /* ... and the CRC of what it has sent */
    uint16_t epcLength; /* bits, in the low 11 bits */
    int8_t rssi;        /* dBm, the strongest of the reads */
    uint8_t brandIdMatched;
    uint8_t epc[256]; /* first byte first */
    uint8_t reserved314[3846];
} TAG_INFO_s;

/* An ACCESS_INFO packet: the result of one radio operation of an access on the tag whose
 * packet came last.
 *
 *   0 | accessId | result | -: 2 | dataLength: 4 |
 *   8 | data: dataLength, up to 4096 |
 */
typedef struct {
    uint8_t accessId; /* id of the ACCESS_OP_s */
    uint8_t result;   /* RXE_ACCESS_RESULT_* */
    uint8_t reserved2[2];
    uint32_t dataLength; /* bytes of data */
    /* The words read, each with its high byte first, or with
     * RXE_ACCESS_RESULT_TAG_ERROR the tag's reply, whose second byte is the error code
     * (EPC Gen2 air interface, annex I). */
    uint8_t data[4096];
} ACCESS_INFO_s;

/* Results of an access. Every other number is a general error, and the host shows the
 * number. A result other than OK ends the accesses on the tag. */
enum {
    RXE_ACCESS_RESULT_OK = 0,
    /* The tag has answered with an error code. */
    RXE_ACCESS_RESULT_TAG_ERROR = 1,
    RXE_ACCESS_RESULT_NO_RESPONSE = 2,
    /* The tag's reply was broken. */
    RXE_ACCESS_RESULT_CRC_ERROR = 3,
};

/* A PARALLEL_RSSI_DEBUG packet: the level of the tag's reply on each beam of the array.
 *
 *     0 | count: 4 |
 *     4 | beam: 160 * 2 |
 *   324 | rssi: 160 * 4 |
 */
typedef struct {
    uint32_t count;    /* entries in use, up to 160 */
    int16_t beam[160]; /* numbers as in OLIO_s::transmitAntenna */
    float rssi[160];   /* dBm */
} PARALLEL_RSSI_s;

/* A START_INFO3 packet: how a run ended.
 *
 *   0 | duration: 8 |
 *   8 | tagReads: 4 | rounds: 2 | stopCause: 2 |
 */
typedef struct {
    uint64_t duration; /* microseconds */
    uint32_t tagReads;
    uint16_t rounds;
    /* 1 host, 2 olio loops, 4 duration, 8 tag count, 16 GPIO trigger, 32 an error, 64 no
     * enabled olio, 1024 misconfiguration. From 32 up the host calls RXE_getErr. */
    uint16_t stopCause;
} START_INFO_s;

/* A DB_WARNING packet: the tag database is nearly full.
 *
 *   0 | used: 4 | free: 4 |
 */
typedef struct {
    uint32_t used; /* tags */
    uint32_t free;
} DB_WARNING_s;

/* RXE_PARAM_ECHO, read only: what the elements of the array reader have measured on one
 * channel, by element, 0 to 13, in tenths: the power sent and two powers received.
 *
 *    0 | -: 4 |
 *    4 | txPwrx10: 14 * 2 |
 *   32 | rxPwrPreEchox10: 14 * 2 |
 *   60 | rxPwrPostEchox10: 14 * 2 |
 *   88 | -: 28 |
 */
typedef struct {
    uint8_t reserved0[4];
    int16_t txPwrx10[14];
    int16_t rxPwrPreEchox10[14];
    int16_t rxPwrPostEchox10[14];
    uint8_t reserved88[28];
} AAREchoResults;

/* ------------------------------------------------------------------ operations
 *
 * None throws. RXE_getParam and RXE_setParam2 may be called at any time from RXE_connect
 * on, also while the radio runs, from any thread and from within the callback.
 *
 * The host can run without a radio and then calls all of them without a link. Then
 * RXE_getAPIVerNum, RXE_strerror and RXE_formatPayloadToStruct work as usual, RXE_resume
 * returns RXE_NO_START_ONGOING, and the others return an error code. */

/* The library's own version. `text` receives a string that belongs to the library; the
 * host does not use it. */
RXE_API_STATUS RXE_getAPIVerNum(REL_VERSION_s* version, char** text);

/* Opens the serial link to the radio; the host gives "/dev/ttyS1" and 460800. The first
 * read, of RXE_PARAM_FW_VERSION, shows whether the radio answers. */
RXE_API_STATUS RXE_connect(char* device, unsigned long baud);

/* Ends the link. No callback may be under way when it returns, and none may follow: the
 * host then ends, with everything that its callback uses. After an error the link counts
 * as open. */
RXE_API_STATUS RXE_disconnect(void);

/* The library calls the function for every packet, one at a time, on its own thread, from
 * now on until RXE_disconnect. The function returns 0. It must be expected to run as often
 * as tags are read. */
RXE_API_STATUS RXE_setCallback(int (*callback)(RXE_packet_s* packet));

/* Reads a parameter into the host's record, whose size the id determines. After an error
 * the host does not use the record. */
RXE_API_STATUS RXE_getParam(unsigned short id, void* record);

/* Writes a parameter while the host connects, before RXE_setCallback: the number of
 * antennas, the antenna check, the cable losses. */
RXE_API_STATUS RXE_setParam(unsigned short id, void* record);

/* Writes a parameter at any time from then on. `flag` is always true. With `useShadow` the
 * library may use its shadow copy of the parameter: a record that repeats the stored one
 * need not reach the radio. It is true until a client of the host switches it off. */
RXE_API_STATUS RXE_setParam2(unsigned short id, void* record, bool flag, bool useShadow);

/* Writes a parameter that the radio keeps over power cycles: RXE_NVM_*. */
RXE_API_STATUS RXE_setNVMParam(unsigned short id, void* record);

/* Begins to execute the enabled olios, when the start trigger fires. */
RXE_API_STATUS RXE_start(void);

/* Ends the run, if there is one; START_INFO3 and END_OF_RUN follow as packets. The host
 * also calls it without a run. */
RXE_API_STATUS RXE_stop(void);

/* Changes nothing. Returns RXE_NO_START_ONGOING when no start is under way, anything else
 * when one is. */
RXE_API_STATUS RXE_resume(void);

/* Empties the radio's tag database. The host calls it before every start, and when the
 * database is full. */
RXE_API_STATUS RXE_resetDb(void);

/* Asks the radio for its error log, which then comes as an ERROR_LOG packet. */
RXE_API_STATUS RXE_getErr(void);

/* The text of a status, of any number. Lives as long as the library. Any thread. */
const char* RXE_strerror(RXE_API_STATUS status);

/* The radio sends tag packets of imaginary tags, `count` a second, until RXE_stop. */
RXE_API_STATUS RXE_txFakeTags(unsigned short count);

/* Logs every packet to this file, in a format of the library's own; the host gives
 * "logs/packet_log". An error when the file cannot be written. */
RXE_API_STATUS RXE_enablePacketLogging(const char* file);
RXE_API_STATUS RXE_disablePacketLogging(void);

/* Decodes a packet's payload into the record of its type, which the caller has zeroed:
 * TAG_INFO_s, ACCESS_INFO_s, PARALLEL_RSSI_s, START_INFO_s, DB_WARNING_s. An error when
 * the payload cannot be decoded. Never reads beyond `length`. Called from within the
 * callback, for each tag, so it neither waits nor allocates. */
RXE_API_STATUS RXE_formatPayloadToStruct(RXE_packet_s* packet, void* record);

#ifdef __cplusplus
}
#include "rxe_layout.h"  // after the records, whose layout it proves
#endif

#endif
