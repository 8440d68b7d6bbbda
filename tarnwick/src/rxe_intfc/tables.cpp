// SPDX-License-Identifier: MIT
// The engine's names: packet types, tag fields, link profiles.
#include <algorithm>

#include "rxe_intfc.hpp"

// The `enabled` words are written by packets.cpp.
constinit std::array<packet_name_s, nPackets> packet_names{{
    {"TAG_INFO_CUSTOM", 5, false},
    {"TAG_INFO_SHORT", 6, false},
    {"TAG_INFO_LONG", 7, false},
    {"TAG_INFO_COMPLETE", 8, false},
    {"START_INFO", 641, false},
    {"ECHO_DEBUG", 642, false},
    {"ECHO_AAR_DEBUG", 656, false},
    {"SINGFRAME_INFO", 643, false},
    {"AUTOMAC_DEBUG", 644, false},
    {"START_INFO2", 646, false},
    {"START_INFO3", 657, false},
    {"GET_SA", 648, false},
    {"GET_LBT", 649, false},
    {"EVT_LP_UPDATE", 650, false},
    {"DUTY_CYCLE_DEBUG", 651, false},
    {"PARALLEL_RSSI_DEBUG", 654, false},
    {"FW_REV_AAR", 658, false},
    {"PORTAL_DEBUG", 659, false},
    {"ANT_CHECK_CONNECT", 661, false},
    {"ANT_CHECK_CW_ON", 662, false},
    {"ANT_CHECK_ANT_INFO", 663, false},
    {"CMD_ONGOING", 769, false},
    {"STATUS", 770, false},
    {"ANTENNA_INFO", 771, false},
    {"CW_ON", 772, false},
    {"CW_OFF", 773, false},
    {"CW_OFF_TIMED", 774, false},
    {"RET_LOSS", 775, false},
    {"GPIO_INFO", 776, false},
    {"INV_BEGIN", 777, false},
    {"INV_END", 778, false},
    {"ACCESS_INFO", 780, false},
    {"ACCESS_CRITERIA_INFO", 781, false},
    {"ANTENNA_TIMED_INFO", 782, false},
    {"CW_ON_TIMED", 783, false},
    {"TAG_CRC_ERROR", 784, false},
    {"AAR_INFO", 785, false},
    {"NXP_EAS_ALARM", 786, false},
    {"CHAN_PWR_LMT", 787, false},
    {"IMMED", 788, false},
    {"ANT_DISCONNECT_ALARM", 897, false},
    {"ANT_CONNECT_ALARM", 913, false},
    {"AMB_TEMP_HI_ALARM", 898, false},
    {"AMB_TEMP_CRIT_ALARM", 899, false},
    {"AMB_TEMP_LO_ALARM", 900, false},
    {"PA_TEMP_HI_ALARM", 901, false},
    {"PA_TEMP_CRIT_ALARM", 902, false},
    {"PA_TEMP_LO_ALARM", 903, false},
    {"FWD_PWR_HI_ALARM", 904, false},
    {"FWD_PWR_LO_ALARM", 905, false},
    {"REV_PWR_HI_ALARM", 906, false},
    {"ECHO_THRESH_ALARM", 907, false},
    {"LMAC_ERROR", 908, false},
    {"DB_WARNING", 909, false},
    {"DB_ERROR", 910, false},
    {"ACCESS_DSBL_ALARM", 911, false},
    {"OVER_TEMP_PROT_ALARM", 912, false},
    {"PLL_LOCK_ALARM", 914, false},
    {"SPI_FLASH_ERROR", 915, false},
    {"FWD_PWR_ERR", 916, false},
    {"REV_PWR_ERR", 917, false},
    {"PPI_ERR", 918, false},
    {"PPI_TEST_ERR", 919, false},
    {"RESTART", 920, false},
    {"SERIAL_OVFL", 1021, false},
    {"API_ERROR", 1023, false},
}};

constexpr std::array<custom_field_name_s, nCustomFields> custom_field_names{{
    {"EPC", RXE_FIELD_EPC},
    {"ANTENNA_ID", RXE_FIELD_ANTENNA_ID},
    {"RSSI", RXE_FIELD_RSSI},
    {"CHANNEL_ID", RXE_FIELD_CHANNEL_ID},
    {"TAG_COUNT", RXE_FIELD_TAG_COUNT},
    {"PC", RXE_FIELD_PC},
    {"XPC1", RXE_FIELD_XPC1},
    {"XPC2", RXE_FIELD_XPC2},
    {"CRC", RXE_FIELD_CRC},
    {"PHASE", RXE_FIELD_PHASE},
    {"RSSI_LIN", RXE_FIELD_RSSI_LIN},
    {"BEARING", RXE_FIELD_BEARING},
    {"LOCATION", RXE_FIELD_LOCATION},
}};

const std::vector<std::uint16_t> RXEValidLPs{
    3,    4,    5,    6,    101,  102,  107,  108,  111,  112,  113,  114,   //
    201,  202,  207,  208,  211,  212,  213,  214,                           //
    301,  302,  307,  308,  311,  312,  313,  314,                           //
    401,  402,  407,  408,  411,  412,  413,  414,                           //
    501,  502,  507,  508,  511,  512,  513,  514,                           //
    601,  602,  607,  608,  611,  612,  613,  614,                           //
    707,  708,  711,  712,  713,  714,  807,  808,  811,  812,  813,  814,   //
    907,  908,  911,  912,  913,  914,  1007, 1008, 1011, 1012, 1013, 1014,  //
    1417, 1418, 1519, 1520, 1617, 1619, 1717, 1719,
};

packet_name_s* findPacket(std::uint16_t id) {
    const auto row = std::find_if(packet_names.begin(), packet_names.end(),
                                  [id](const auto& entry) { return entry.id == id; });
    return row == packet_names.end() ? nullptr : &*row;
}

std::vector<std::string_view> getCustomFieldNames(std::uint32_t mask) {
    std::vector<std::string_view> names;
    for (const custom_field_name_s& field : custom_field_names) {
        if ((mask & field.bit) != 0) {
            names.push_back(field.name);
        }
    }
    return names;
}

bool isValidLP(std::uint16_t linkProfile) {
    return std::find(RXEValidLPs.begin(), RXEValidLPs.end(), linkProfile) != RXEValidLPs.end();
}
