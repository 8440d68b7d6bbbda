/* SPDX-License-Identifier: MIT */
/* The radio engine library, libRxe.so: its operations, the records its
 * parameters carry, and the layout of what its callback delivers.
 *
 * All numbers are little-endian. Records have a fixed layout; every gap that
 * the library leaves is a `reservedNN` field named after its offset, and the
 * sizes and offsets are asserted at the end of this file. The caller owns every
 * record; its size follows from the parameter id. */
#ifndef TARNWICK_RXE_H
#define TARNWICK_RXE_H

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Status of an operation: 0 is success, every other value an error code whose
 * text RXE_strerror gives. One of them is no error: RXE_resume answers
 * RXE_NO_START_ONGOING while no start is under way. */
typedef enum {
    RXE_OK = 0,
    RXE_NO_START_ONGOING = 241,
    RXE_API_STATUS_MAX = 0x7FFFFFFF /* makes the type int-sized */
} RXE_API_STATUS;

/* Version of the library or of the radio firmware. Feature tests compare
 * major, minor and patch; build is only printed. */
typedef struct {
    uint8_t major;
    uint8_t minor;
    uint8_t patch;
    uint8_t build;
} REL_VERSION_s;

/* What the callback receives; valid only during the call. */
typedef struct {
    uint16_t type;   /* RXE_PACKET_* */
    uint16_t length; /* of payload, in bytes */
    __extension__ uint8_t payload[];
} RXE_packet_s;

/* Packet types, as they stand in RXE_packet_s.type. The same type has a second number,
 * its id: the type XOR 0x800 (RXE_PACKET_TYPE_XOR). PACKET_ENABLE_s and the words of
 * RXE_PARAM_PACKET_BITS go by ids, and so does the host in its texts: type 0x0B0C,
 * ACCESS_INFO, is id 780. Only types are listed here; RXE_PACKET_ID makes the id.
 *
 * A type is delivered while its id is enabled. END_OF_RUN and ERROR_LOG have no name
 * in the host's table and are never enabled: the library always delivers them.
 *
 * Pictures show the payload, `name: bytes`, numbers most significant byte first. The
 * host reads no byte behind the picture. Where there is none, the host acts on the
 * packet without a look into its payload, or ignores it. */
enum {
    /* | 08 | 09 |  A run is over; a payload that begins otherwise is ignored. */
    RXE_PACKET_END_OF_RUN = 0x0801,
    /* The fields that RXE_PARAM_CUSTOM_FIELDS asks for. Decoded into TAG_INFO_s by
     * RXE_formatPayloadToStruct, so the payload of the four tag packets is the
     * library's own; they differ in the fields that they carry. */
    RXE_PACKET_TAG_INFO_CUSTOM = 0x0805,
    RXE_PACKET_TAG_INFO_SHORT = 0x0806,
    RXE_PACKET_TAG_INFO_LONG = 0x0807,
    RXE_PACKET_TAG_INFO_COMPLETE = 0x0808,
    /* | "ERRLOG" and text, not terminated |  What RXE_getErr has asked for. */
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

    /* The radio is alive. The host sends what it has gathered, so this should come
     * several times a second, also while no run is under way. */
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
    /* | code, least significant byte first: 4 |  The host shows the code as it is. */
    RXE_PACKET_API_ERROR = 0x0BFF,
};

enum { RXE_PACKET_TYPE_XOR = 0x800 };
#define RXE_PACKET_ID(type) ((uint16_t)((unsigned)(type) ^ (unsigned)RXE_PACKET_TYPE_XOR))

/* Parameter ids. Ranges are base + id; id 0 of a range addresses the whole
 * range, for disabling. */
enum {
    RXE_PARAM_FW_VERSION = 0x0001,          /* get: REL_VERSION_s */
    RXE_PARAM_LIVENESS = 0x0003,            /* get: only the status counts */
    RXE_PARAM_PACKET_ENABLE = 0x0004,       /* set: PACKET_ENABLE_s; id 0 with enable 0: all */
    RXE_PARAM_RADIO_STOP = 0x0005,          /* PER_RADIO_STOP_s, all models but PN8200 */
    RXE_PARAM_CUSTOM_FIELDS = 0x0009,       /* u32 mask over RXE_FIELD_* */
    RXE_PARAM_NUM_ANTENNAS = 0x0011,        /* set: u16, PN5100 */
    RXE_PARAM_MAX_TX_POWER = 0x0014,        /* get: u32, low 16 bits in tenths of dBm */
    RXE_PARAM_RADIO_STOP2 = 0x0015,         /* PER_RADIO_STOP2_s, PN8200 */
    RXE_PARAM_PACKET_BITS = 0x0020,         /* +n, n 0 to 31, get: u32, bit (id AND 31) of word id / 32 */
    RXE_PARAM_SELECT = 0x0100,              /* +id 1 to 32: SELECT_OP_s */
    RXE_PARAM_INVENTORY = 0x0200,           /* +id: INVENTORY_OP_s */
    RXE_PARAM_ACCESS = 0x0300,              /* +id 1 to 63: ACCESS_OP_s */
    RXE_PARAM_OLIO = 0x0400,                /* +id 1 to 0x3FF: OLIO_s */
    RXE_PARAM_CHANNEL = 0x0800,             /* +n 1 to 127: CHANNEL_s */
    RXE_PARAM_HOP_PER_ROUND = 0x0885,       /* u8 0 or 1 */
    RXE_PARAM_HOP_PER_OLIO = 0x0886,        /* get: u8 */
    RXE_PARAM_DYNAMIC_RANGE = 0x0888,       /* u8: 0 low, 1 normal, 2 high */
    RXE_PARAM_ID_FILTER = 0x1000,           /* +id: REPORT_FILTER_ID_s */
    RXE_PARAM_AUTORESTART = 0x10EB,         /* set: u8, 2 restart after a stop, 0 not */
    RXE_PARAM_PEAK_THRESHOLD = 0x10EC,      /* u8 */
    RXE_PARAM_STATIC_V_DYNAMIC = 0x10ED,    /* u8 */
    RXE_PARAM_AAR_HEIGHT = 0x10EE,          /* u16, tenths */
    RXE_PARAM_TAG_HEIGHT = 0x10EF,          /* u16, tenths */
    RXE_PARAM_MONO_OR_COM = 0x10F0,         /* u8 */
    RXE_PARAM_TX_DELAY_INTERVAL = 0x10F3,   /* u16: type + 256 * duration in ms */
    RXE_PARAM_DELAY_AFTER_SELECTS = 0x10F5, /* u16 */
    RXE_PARAM_BLOCK_SIZE = 0x10FB,          /* u8 */
    RXE_PARAM_RSSI_THRESHOLD = 0x10FE,      /* i8, dBm; -128 none */
    RXE_PARAM_LAST_REPORT = 0x10FF,         /* REPORT_FILTER_LAST_REPORT_s */
    RXE_PARAM_CABLE_LOSS = 0x1200,          /* +antenna: u8, tenths of a dB */
    RXE_PARAM_PA_TEMP = 0x2100,             /* get: i16, degrees Celsius */
    RXE_PARAM_AMB_TEMP = 0x2101,            /* get: i16, degrees Celsius */
    RXE_PARAM_ANTENNA_STATE = 0x2111,       /* get: u16, bit n-1 set: antenna n is connected */
    RXE_PARAM_ANTENNA_CHECK = 0x2112,       /* set: u8, interval of the antenna check */
    RXE_PARAM_ECHO = 0x2300,                /* +channel index, get: AAREchoResults */
    RXE_PARAM_GPIO_DIR = 0xD001,            /* u8 mask */
    RXE_PARAM_GPIO_START = 0xD003,          /* GPIO_START_s, all models but PN8200 */
    RXE_PARAM_GPIO_START2 = 0xD005,         /* GPIO_START2_s, PN8200 */
};

/* Ids of RXE_setNVMParam, a space of its own: u8, degrees Celsius as the radio
 * encodes them. */
enum {
    RXE_NVM_PA_HI_TEMP = 0x0403,
    RXE_NVM_AMB_HI_TEMP = 0x0406,
};

/* How many ids a range has: 1 to these. */
enum {
    RXE_MAX_SELECTS = 32,
    RXE_MAX_ACCESSES = 63,
    RXE_MAX_OLIOS = 0x3FF,
    RXE_MAX_CHANNELS = 127,
    RXE_PACKET_BIT_WORDS = 32,
};

/* Fields of a tag packet: what RXE_PARAM_CUSTOM_FIELDS asks for and what
 * TAG_INFO_s reports in `fields`. */
enum {
    RXE_FIELD_EPC = 0x1,
    RXE_FIELD_ROSPEC = 0x2,
    RXE_FIELD_SPEC_INDEX = 0x4,
    RXE_FIELD_INV_PARAM = 0x8,
    RXE_FIELD_ANTENNA_ID = 0x10,
    RXE_FIELD_RSSI = 0x20,
    RXE_FIELD_CHANNEL_ID = 0x40,
    RXE_FIELD_FIRST_SEEN = 0x80,
    RXE_FIELD_LAST_SEEN = 0x100,
    RXE_FIELD_TAG_COUNT = 0x200,
    RXE_FIELD_PC = 0x400,
    RXE_FIELD_XPC1 = 0x800,
    RXE_FIELD_XPC2 = 0x1000,
    RXE_FIELD_CRC = 0x2000,
    RXE_FIELD_ACCESS_SPEC = 0x4000,
    RXE_FIELD_PHASE = 0x8000,
    RXE_FIELD_RSSI_LIN = 0x10000,
    RXE_FIELD_BEARING = 0x20000,
    RXE_FIELD_BRAND_ID = 0x40000,
    RXE_FIELD_LOCATION = 0x80000,
};

/* Link profiles: the numbers that `linkProfileIndex` of an olio may have, ascending.
 * What a number means (forward link, link frequency, coding of the tag) is the radio's
 * own. */
static const uint16_t RXE_LINK_PROFILES[] = {
    3,   4,   5,    6,    101,  102,  107,  108,  111,  112,  113,  114,  201,  202,  207,  208,  211,
    212, 213, 214,  301,  302,  307,  308,  311,  312,  313,  314,  401,  402,  407,  408,  411,  412,
    413, 414, 501,  502,  507,  508,  511,  512,  513,  514,  601,  602,  607,  608,  611,  612,  613,
    614, 707, 708,  711,  712,  713,  714,  807,  808,  811,  812,  813,  814,  907,  908,  911,  912,
    913, 914, 1007, 1008, 1011, 1012, 1013, 1014, 1417, 1418, 1519, 1520, 1617, 1619, 1717, 1719,
};

/* RXE_PARAM_PACKET_ENABLE: report packets of one type, or not. */
typedef struct {
    uint8_t enable;
    uint8_t reserved1;
    uint16_t id;
} PACKET_ENABLE_s;

/* One work item of the radio: on this antenna pair, with this power, link
 * profile and inventory parameter set, run these selects and accesses until
 * the stop rule fires. */
typedef struct {
    uint8_t enable;
    uint8_t reserved1;
    uint16_t transmitAntenna; /* antenna or beam id */
    uint16_t receiveAntenna;  /* the same; from 0xFFF0 up a receive-pattern selector */
    uint8_t stopType;         /* RXE_STOP_*, 3 to 10 for GPIO, from 0x81 rounds and dwell time */
    uint8_t reserved7;
    uint16_t stopValue;     /* rounds or milliseconds, by stopType */
    int16_t transmitPower;  /* tenths of dBm */
    uint32_t selectBitMask; /* bit n-1: select n runs in this olio */
    uint8_t inventoryIndex;
    uint8_t reserved17[7];
    uint64_t accessBitMask; /* bit n-1: access n runs in this olio */
    uint16_t linkProfileIndex;
    uint8_t reserved34[6];
} OLIO_s;

/* Stop types of an olio. A GPIO rule is port * 2 + 1 for a high level and
 * port * 2 + 2 for a low level, ports 1 to 4. From 0x81 up: stopType - 0x80
 * inventory rounds and stopValue ms of dwell time. */
enum {
    RXE_STOP_INVENTORY_ROUNDS = 1,
    RXE_STOP_DWELL_TIME = 2,
    RXE_STOP_GPIO1_HIGH = 3,
    RXE_STOP_GPIO4_LOW = 10,
    RXE_STOP_ROUNDS_AND_DWELL = 0x80,
};

/* One Gen2 Select command (EPC Gen2, 6.3.2.12.1.1). */
typedef struct {
    uint8_t enable;   /* 0 disabled, 1 a Select, else a slot that is not a Select */
    uint8_t target;   /* 0 to 3: session S0 to S3, 4: SL */
    uint8_t action;   /* Gen2 action code 0 to 7 */
    uint8_t membank;  /* 0 reserved, 1 EPC, 2 TID, 3 user */
    uint16_t pointer; /* bits */
    uint8_t length;   /* of the mask, bits */
    uint8_t reserved7;
    uint16_t truncate; /* 0 none, else the expected truncated length in bits */
    uint8_t mask[66];  /* (length + 7) / 8 bytes count, most significant bit first */
} SELECT_OP_s;

/* One inventory parameter set. */
typedef struct {
    uint8_t enable;
    uint8_t protocol; /* 1 epcGen2, 3 nxpParallelEncode */
    __extension__ union {
        struct {             /* protocol 1 */
            uint8_t sel;     /* below 2 all, 2 not SL, 3 SL */
            uint8_t session; /* 0 to 3 */
            uint8_t target;  /* 0 A, 1 B, 2 A and B in turn */
            uint8_t initialQ;
        };
        struct { /* protocol 3, only read */
            uint8_t membank;
            uint8_t reserved3;
            uint16_t wordPointer;
            uint16_t wordCount;
            uint16_t data[256];
        };
    };
} INVENTORY_OP_s;

/* One tag memory operation. */
typedef struct {
    uint8_t enable;
    uint8_t type; /* RXE_ACCESS_* */
    uint8_t reserved2[2];
    __extension__ union {
        struct { /* read and write types */
            uint8_t membank;
            uint8_t reserved5;
            uint16_t wordPointer;
        };
        uint32_t payload; /* kill, lock, access: password or lock word */
    };
    /* Words to read or write; for a write of one word the word itself; for a
     * read the low byte is wordCount and the high byte wordCountExpected. */
    uint16_t wordCount;
    uint16_t data[257];  /* words of a multiword or block write */
    uint8_t criteriaIdx; /* access criteria index, 0 none */
    uint8_t reserved525;
    uint16_t stopCount; /* 0 no limit */
} ACCESS_OP_s;

enum {
    RXE_ACCESS_READ = 1,
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

/* The radio-wide stop rule. */
typedef struct {
    uint32_t duration;  /* ms, 0 none */
    uint16_t olioLoops; /* passes through the olio list, 0 none */
    uint16_t tagCount;  /* up to 0xF000: tags; above: value - 0xF000 seconds without a new tag */
    uint8_t gpiBitMask; /* bit n-1: level on port n, bit n+3: port n takes part */
    uint8_t reserved9;
    uint16_t holdTime1; /* ms */
    uint16_t holdTime2;
    uint16_t reserved14;
} PER_RADIO_STOP_s;

/* The same with four GPIs, PN8200. */
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

/* The trigger that starts the radio. */
typedef struct {
    uint8_t gpiBitMask; /* as in PER_RADIO_STOP_s */
    uint8_t reserved1;
    uint16_t holdTime1; /* ms */
    uint16_t holdTime2;
} GPIO_START_s;

/* The same with four GPIs, PN8200. */
typedef struct {
    uint8_t gpiBitMask;
    uint8_t reserved1;
    uint16_t holdTime1;
    uint16_t holdTime2;
    uint16_t holdTime3;
    uint16_t holdTime4;
} GPIO_START2_s;

/* An id filter on reported tags. */
typedef struct {
    uint8_t enable;
    uint8_t reserved1;
    uint16_t bitLength;
    uint16_t bitPointer; /* first EPC bit compared */
    uint8_t mask[66];    /* (bitLength + 7) / 8 bytes count */
} REPORT_FILTER_ID_s;

/* The engine's own duplicate suppression. */
typedef struct {
    uint8_t enable;
    uint8_t type; /* 0 radio wide, 1 per olio, that is per antenna */
    uint8_t reserved2[2];
    uint32_t duration; /* seconds */
} REPORT_FILTER_LAST_REPORT_s;

/* One channel of the hopping table. */
typedef struct {
    uint8_t enable;
    uint8_t reserved1[3];
    uint32_t frequency; /* kHz */
    uint16_t maxPower;  /* tenths of dBm */
    uint16_t reserved10;
} CHANNEL_s;

/* A decoded tag packet. `fields` says which of the members are present. */
typedef struct {
    uint8_t reserved0[16];
    uint32_t fields;    /* RXE_FIELD_* */
    uint16_t azimuth;   /* tenths of a degree */
    uint16_t elevation; /* tenths of a degree */
    uint8_t azimuthConf;
    uint8_t elevationConf;
    int16_t locationX; /* tenths */
    int16_t locationY; /* tenths */
    uint8_t locConf;
    uint8_t reserved31;
    uint32_t rssiLin; /* bits of a 32-bit float */
    float phase;
    uint8_t reserved40[4];
    uint16_t tagCount; /* reads merged in this packet */
    uint16_t pc;
    uint16_t xpc1;
    uint16_t xpc2;
    uint16_t crc;
    uint16_t epcLength; /* bits, in the low 11 bits */
    int8_t rssi;        /* dBm */
    uint8_t brandIdMatched;
    uint8_t epc[256]; /* first byte first */
    uint8_t reserved314[3846];
} TAG_INFO_s;

/* A decoded ACCESS_INFO packet. */
typedef struct {
    uint8_t accessId;
    uint8_t result; /* RXE_ACCESS_RESULT_* */
    uint8_t reserved2[2];
    uint32_t dataLength; /* bytes of data */
    uint8_t data[4096];  /* words read, or with RXE_ACCESS_RESULT_TAG_ERROR the reply: data[1] is the code */
} ACCESS_INFO_s;

enum {
    RXE_ACCESS_RESULT_OK = 0,
    RXE_ACCESS_RESULT_TAG_ERROR = 1,
    RXE_ACCESS_RESULT_NO_RESPONSE = 2,
    RXE_ACCESS_RESULT_CRC_ERROR = 3,
};

/* A decoded PARALLEL_RSSI_DEBUG packet: the level on each beam. */
typedef struct {
    uint32_t count;
    int16_t beam[160];
    float rssi[160]; /* dBm */
} PARALLEL_RSSI_s;

/* A decoded START_INFO3 packet: how a run ended. */
typedef struct {
    uint64_t duration; /* microseconds */
    uint32_t tagReads;
    uint16_t rounds;
    uint16_t stopCause; /* bit value */
} START_INFO_s;

/* A decoded DB_WARNING packet: the tag database is nearly full. */
typedef struct {
    uint32_t used;
    uint32_t free;
} DB_WARNING_s;

/* Echo results of one channel of the array reader, by element. */
typedef struct {
    uint8_t reserved0[4];
    int16_t txPwrx10[14];
    int16_t rxPwrPreEchox10[14];
    int16_t rxPwrPostEchox10[14];
    uint8_t reserved88[28];
} AAREchoResults;

/* Operations. None throws. RXE_getParam and RXE_setParam2 may be called while
 * the radio runs and from any thread, also from within the callback. */
RXE_API_STATUS RXE_getAPIVerNum(REL_VERSION_s* version, char** text); /* also before RXE_connect */
RXE_API_STATUS RXE_connect(char* device, unsigned long baud);
RXE_API_STATUS RXE_disconnect(void);
/* The function is called for every packet, one at a time, on the library's own
 * thread, and returns 0. */
RXE_API_STATUS RXE_setCallback(int (*callback)(RXE_packet_s* packet));
RXE_API_STATUS RXE_getParam(unsigned short id, void* record);
RXE_API_STATUS RXE_setParam(unsigned short id, void* record);
/* `useShadow` asks the library to go through its shadow copy of the parameter. */
RXE_API_STATUS RXE_setParam2(unsigned short id, void* record, bool flag, bool useShadow);
/* Writes a parameter that the radio keeps over power cycles: RXE_NVM_*. */
RXE_API_STATUS RXE_setNVMParam(unsigned short id, void* record);
RXE_API_STATUS RXE_start(void);
RXE_API_STATUS RXE_stop(void);
/* RXE_NO_START_ONGOING when no start is under way, anything else when one is. */
RXE_API_STATUS RXE_resume(void);
RXE_API_STATUS RXE_resetDb(void);
/* Asks the radio for its error log, which then arrives as a packet. */
RXE_API_STATUS RXE_getErr(void);
const char* RXE_strerror(RXE_API_STATUS status);
RXE_API_STATUS RXE_txFakeTags(unsigned short count);
RXE_API_STATUS RXE_enablePacketLogging(const char* file);
RXE_API_STATUS RXE_disablePacketLogging(void);
/* Decodes a packet's payload into the record of its type, which the caller has
 * zeroed: TAG_INFO_s, ACCESS_INFO_s, PARALLEL_RSSI_s, START_INFO_s, DB_WARNING_s. */
RXE_API_STATUS RXE_formatPayloadToStruct(RXE_packet_s* packet, void* record);

#ifdef __cplusplus
}

#define RXE_LAYOUT(type, field, offset) static_assert(offsetof(type, field) == (offset), #type "." #field)

static_assert(sizeof(RXE_API_STATUS) == sizeof(int));
static_assert(sizeof(REL_VERSION_s) == 4);
static_assert(sizeof(RXE_packet_s) == 4);
RXE_LAYOUT(RXE_packet_s, length, 2);
RXE_LAYOUT(RXE_packet_s, payload, 4);
static_assert(sizeof(PACKET_ENABLE_s) == 4);
RXE_LAYOUT(PACKET_ENABLE_s, id, 2);

static_assert(sizeof(OLIO_s) == 40);
RXE_LAYOUT(OLIO_s, enable, 0);
RXE_LAYOUT(OLIO_s, transmitAntenna, 2);
RXE_LAYOUT(OLIO_s, receiveAntenna, 4);
RXE_LAYOUT(OLIO_s, stopType, 6);
RXE_LAYOUT(OLIO_s, stopValue, 8);
RXE_LAYOUT(OLIO_s, transmitPower, 10);
RXE_LAYOUT(OLIO_s, selectBitMask, 12);
RXE_LAYOUT(OLIO_s, inventoryIndex, 16);
RXE_LAYOUT(OLIO_s, accessBitMask, 24);
RXE_LAYOUT(OLIO_s, linkProfileIndex, 32);

static_assert(sizeof(SELECT_OP_s) == 76);
RXE_LAYOUT(SELECT_OP_s, target, 1);
RXE_LAYOUT(SELECT_OP_s, action, 2);
RXE_LAYOUT(SELECT_OP_s, membank, 3);
RXE_LAYOUT(SELECT_OP_s, pointer, 4);
RXE_LAYOUT(SELECT_OP_s, length, 6);
RXE_LAYOUT(SELECT_OP_s, truncate, 8);
RXE_LAYOUT(SELECT_OP_s, mask, 10);

static_assert(sizeof(INVENTORY_OP_s) == 520);
RXE_LAYOUT(INVENTORY_OP_s, protocol, 1);
RXE_LAYOUT(INVENTORY_OP_s, sel, 2);
RXE_LAYOUT(INVENTORY_OP_s, session, 3);
RXE_LAYOUT(INVENTORY_OP_s, target, 4);
RXE_LAYOUT(INVENTORY_OP_s, initialQ, 5);
RXE_LAYOUT(INVENTORY_OP_s, membank, 2);
RXE_LAYOUT(INVENTORY_OP_s, wordPointer, 4);
RXE_LAYOUT(INVENTORY_OP_s, wordCount, 6);
RXE_LAYOUT(INVENTORY_OP_s, data, 8);

static_assert(sizeof(ACCESS_OP_s) == 528);
RXE_LAYOUT(ACCESS_OP_s, type, 1);
RXE_LAYOUT(ACCESS_OP_s, membank, 4);
RXE_LAYOUT(ACCESS_OP_s, payload, 4);
RXE_LAYOUT(ACCESS_OP_s, wordPointer, 6);
RXE_LAYOUT(ACCESS_OP_s, wordCount, 8);
RXE_LAYOUT(ACCESS_OP_s, data, 10);
RXE_LAYOUT(ACCESS_OP_s, criteriaIdx, 524);
RXE_LAYOUT(ACCESS_OP_s, stopCount, 526);

static_assert(sizeof(PER_RADIO_STOP_s) == 16 && sizeof(PER_RADIO_STOP2_s) == 20);
RXE_LAYOUT(PER_RADIO_STOP_s, duration, 0);
RXE_LAYOUT(PER_RADIO_STOP_s, olioLoops, 4);
RXE_LAYOUT(PER_RADIO_STOP_s, tagCount, 6);
RXE_LAYOUT(PER_RADIO_STOP_s, gpiBitMask, 8);
RXE_LAYOUT(PER_RADIO_STOP_s, holdTime1, 10);
RXE_LAYOUT(PER_RADIO_STOP_s, holdTime2, 12);
RXE_LAYOUT(PER_RADIO_STOP2_s, duration, 0);
RXE_LAYOUT(PER_RADIO_STOP2_s, olioLoops, 4);
RXE_LAYOUT(PER_RADIO_STOP2_s, tagCount, 6);
RXE_LAYOUT(PER_RADIO_STOP2_s, gpiBitMask, 8);
RXE_LAYOUT(PER_RADIO_STOP2_s, holdTime1, 10);
RXE_LAYOUT(PER_RADIO_STOP2_s, holdTime2, 12);
RXE_LAYOUT(PER_RADIO_STOP2_s, holdTime3, 14);
RXE_LAYOUT(PER_RADIO_STOP2_s, holdTime4, 16);

static_assert(sizeof(GPIO_START_s) == 6 && sizeof(GPIO_START2_s) == 10);
RXE_LAYOUT(GPIO_START_s, holdTime1, 2);
RXE_LAYOUT(GPIO_START_s, holdTime2, 4);
RXE_LAYOUT(GPIO_START2_s, holdTime1, 2);
RXE_LAYOUT(GPIO_START2_s, holdTime2, 4);
RXE_LAYOUT(GPIO_START2_s, holdTime3, 6);
RXE_LAYOUT(GPIO_START2_s, holdTime4, 8);

static_assert(sizeof(REPORT_FILTER_ID_s) == 72);
RXE_LAYOUT(REPORT_FILTER_ID_s, bitLength, 2);
RXE_LAYOUT(REPORT_FILTER_ID_s, bitPointer, 4);
RXE_LAYOUT(REPORT_FILTER_ID_s, mask, 6);
static_assert(sizeof(REPORT_FILTER_LAST_REPORT_s) == 8);
RXE_LAYOUT(REPORT_FILTER_LAST_REPORT_s, type, 1);
RXE_LAYOUT(REPORT_FILTER_LAST_REPORT_s, duration, 4);
static_assert(sizeof(CHANNEL_s) == 12);
RXE_LAYOUT(CHANNEL_s, frequency, 4);
RXE_LAYOUT(CHANNEL_s, maxPower, 8);

static_assert(sizeof(TAG_INFO_s) == 4160);
RXE_LAYOUT(TAG_INFO_s, fields, 16);
RXE_LAYOUT(TAG_INFO_s, azimuth, 20);
RXE_LAYOUT(TAG_INFO_s, elevation, 22);
RXE_LAYOUT(TAG_INFO_s, azimuthConf, 24);
RXE_LAYOUT(TAG_INFO_s, elevationConf, 25);
RXE_LAYOUT(TAG_INFO_s, locationX, 26);
RXE_LAYOUT(TAG_INFO_s, locationY, 28);
RXE_LAYOUT(TAG_INFO_s, locConf, 30);
RXE_LAYOUT(TAG_INFO_s, rssiLin, 32);
RXE_LAYOUT(TAG_INFO_s, phase, 36);
RXE_LAYOUT(TAG_INFO_s, tagCount, 44);
RXE_LAYOUT(TAG_INFO_s, pc, 46);
RXE_LAYOUT(TAG_INFO_s, xpc1, 48);
RXE_LAYOUT(TAG_INFO_s, xpc2, 50);
RXE_LAYOUT(TAG_INFO_s, crc, 52);
RXE_LAYOUT(TAG_INFO_s, epcLength, 54);
RXE_LAYOUT(TAG_INFO_s, rssi, 56);
RXE_LAYOUT(TAG_INFO_s, brandIdMatched, 57);
RXE_LAYOUT(TAG_INFO_s, epc, 58);

static_assert(sizeof(ACCESS_INFO_s) == 4104);
RXE_LAYOUT(ACCESS_INFO_s, result, 1);
RXE_LAYOUT(ACCESS_INFO_s, dataLength, 4);
RXE_LAYOUT(ACCESS_INFO_s, data, 8);
static_assert(sizeof(PARALLEL_RSSI_s) == 964);
RXE_LAYOUT(PARALLEL_RSSI_s, beam, 4);
RXE_LAYOUT(PARALLEL_RSSI_s, rssi, 324);
static_assert(sizeof(START_INFO_s) == 16);
RXE_LAYOUT(START_INFO_s, tagReads, 8);
RXE_LAYOUT(START_INFO_s, rounds, 12);
RXE_LAYOUT(START_INFO_s, stopCause, 14);
static_assert(sizeof(DB_WARNING_s) == 8);
static_assert(sizeof(AAREchoResults) == 116);
RXE_LAYOUT(AAREchoResults, txPwrx10, 4);
RXE_LAYOUT(AAREchoResults, rxPwrPreEchox10, 32);
RXE_LAYOUT(AAREchoResults, rxPwrPostEchox10, 60);

#undef RXE_LAYOUT
#endif

#endif
