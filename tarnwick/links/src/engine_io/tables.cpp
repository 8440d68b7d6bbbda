// SPDX-License-Identifier: MIT
// The engine's names: packet types, tag fields, link profiles.
#include <algorithm>
#include <iterator>

#include "engine_io/packets.hpp"

namespace {

// The name is made from that of the enumerator, so that a row cannot have the number of another one.
#define ROW(type) \
    { #type, RXE_PACKET_ID(RXE_PACKET_##type), false }
constexpr auto packetTypes = std::to_array<packet_name_s>({
    ROW(TAG_INFO_CUSTOM),
    ROW(TAG_INFO_SHORT),
    ROW(TAG_INFO_LONG),
    ROW(TAG_INFO_COMPLETE),
    ROW(START_INFO),
    ROW(ECHO_DEBUG),
    ROW(ECHO_AAR_DEBUG),
    ROW(SINGFRAME_INFO),
    ROW(AUTOMAC_DEBUG),
    ROW(START_INFO2),
    ROW(START_INFO3),
    ROW(GET_SA),
    ROW(GET_LBT),
    ROW(EVT_LP_UPDATE),
    ROW(DUTY_CYCLE_DEBUG),
    ROW(PARALLEL_RSSI_DEBUG),
    ROW(FW_REV_AAR),
    ROW(PORTAL_DEBUG),
    ROW(ANT_CHECK_CONNECT),
    ROW(ANT_CHECK_CW_ON),
    ROW(ANT_CHECK_ANT_INFO),
    ROW(CMD_ONGOING),
    ROW(STATUS),
    ROW(ANTENNA_INFO),
    ROW(CW_ON),
    ROW(CW_OFF),
    ROW(CW_OFF_TIMED),
    ROW(RET_LOSS),
    ROW(GPIO_INFO),
    ROW(INV_BEGIN),
    ROW(INV_END),
    ROW(ACCESS_INFO),
    ROW(ACCESS_CRITERIA_INFO),
    ROW(ANTENNA_TIMED_INFO),
    ROW(CW_ON_TIMED),
    ROW(TAG_CRC_ERROR),
    ROW(AAR_INFO),
    ROW(NXP_EAS_ALARM),
    ROW(CHAN_PWR_LMT),
    ROW(IMMED),
    ROW(ANT_DISCONNECT_ALARM),
    ROW(ANT_CONNECT_ALARM),
    ROW(AMB_TEMP_HI_ALARM),
    ROW(AMB_TEMP_CRIT_ALARM),
    ROW(AMB_TEMP_LO_ALARM),
    ROW(PA_TEMP_HI_ALARM),
    ROW(PA_TEMP_CRIT_ALARM),
    ROW(PA_TEMP_LO_ALARM),
    ROW(FWD_PWR_HI_ALARM),
    ROW(FWD_PWR_LO_ALARM),
    ROW(REV_PWR_HI_ALARM),
    ROW(ECHO_THRESH_ALARM),
    ROW(LMAC_ERROR),
    ROW(DB_WARNING),
    ROW(DB_ERROR),
    ROW(ACCESS_DSBL_ALARM),
    ROW(OVER_TEMP_PROT_ALARM),
    ROW(PLL_LOCK_ALARM),
    ROW(SPI_FLASH_ERROR),
    ROW(FWD_PWR_ERR),
    ROW(REV_PWR_ERR),
    ROW(PPI_ERR),
    ROW(PPI_TEST_ERR),
    ROW(RESTART),
    ROW(SERIAL_OVFL),
    ROW(API_ERROR),
});
#undef ROW

constexpr bool hasBit(const packet_name_s& row) {
    return row.id != 0 && row.id < RXE_PACKET_BIT_WORDS * 32;
}
constexpr bool standsOnce(const packet_name_s& row) {
    return std::ranges::count(packetTypes, row.id, &packet_name_s::id) == 1;
}
static_assert(std::ranges::all_of(packetTypes, hasBit), "each type can be enabled");
static_assert(std::ranges::all_of(packetTypes, standsOnce), "each type has one name");

// The same rows, to be changed: packets.cpp writes `enabled`. Main thread.
constinit auto rememberedTypes = packetTypes;

}  // namespace

constinit const std::size_t nPackets = packetTypes.size();
constinit const std::span<packet_name_s> packet_names = rememberedTypes;

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

const std::vector<std::uint16_t> RXEValidLPs(std::begin(RXE_LINK_PROFILES), std::end(RXE_LINK_PROFILES));

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
