// SPDX-License-Identifier: MIT
// The array reader simulator: bearing traffic without a radio. Two files in the
// working directory, aar.json and tag.json, place array readers (AAR) and tags
// in a room. A thread for each simulation plays one of the readers and hands noisy
// bearings of the tags in its range to getPacket, in place of the engine thread.
//
// Lengths have one unit of the user's choice, angles are degrees. All output goes to standard
// output, none to the log.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include "rxe.h"

// ---- start and stop. Main thread -------------------------------------------

// Starts a simulation of array reader `aar` (an index into aar.json) at `tps` tags a
// second with the given standard deviations of the noise. It runs beside those that
// run already; getPacket takes their packets one at a time. Returns 0, or -1 if the
// thread could not be created. When its files or `aar` cannot be used, the thread prints
// the reason and ends.
int startSimulationThread(int aar, int tps, float stdAz, float stdEl);

// While at least one simulation runs, ends them all, those that still load their files
// too: each at the end of its slice of 250 ms, or between two packets when that takes
// more than a second. Returns the result of joining the threads, 0 on success. While
// none runs it returns 0, and those that load their files go on and run later.
int stopSimulationThread();

// Ends all simulations at once, those that load too, and joins their threads. For the end
// of the process. Returns the result of joining, 0 on success and without a simulation.
int endSimulations();

// Whether a simulation has loaded its files and sends.
// Any thread.
bool isSimulationRunning();

// The number behind "std_az=" or "std_el=" among the words of a request, degrees; 0 when the
// word is missing or does not begin with a number. Quirk: both print "setting std_az to".
double get_std_az(const std::vector<std::string>* tokens);
double get_std_el(const std::vector<std::string>* tokens);

// ---- the room. Simulator thread --------------------------------------------

inline constexpr std::size_t maxAars = 128;
inline constexpr std::size_t maxSimulatedTags = 1000;

struct aar_position_s {
    double x, y, z;
    // Degrees, added to each azimuth.
    double orientation;
};
struct tag_position_s {
    double x, y, z;
};
using aar_table_t = std::array<aar_position_s, maxAars>;
using tag_table_t = std::array<tag_position_s, maxSimulatedTags>;
// EPCs in hexadecimal.
using tag_id_table_t = std::array<std::string, maxSimulatedTags>;

// Angles by tag and array reader, in degrees.
using angle_table_t = std::array<std::array<double, maxAars>, maxSimulatedTags>;

// In an angle table: the tag is farther than 30.0 from this reader.
inline constexpr double outOfRange = std::numeric_limits<double>::max();

// Fills the table from the array "aar_info" of the file. Returns the number of elements, or 0
// after it has printed what is wrong; elements before the bad one are then in the table.
// Elements behind the table's end are checked and counted, but not stored.
int get_aar_info(const std::string& path, aar_table_t* aars);

// The same for "tag_info". Quirk: returns one less than the number of elements, so the last tag
// is never simulated; 0 after a failure.
int get_tag_info(const std::string& path, tag_id_table_t* ids, tag_table_t* tags);

// Fill the cells of the first `tagCount` tags and `aarCount` readers; counts beyond the tables
// are cut. An azimuth is a compass angle, 0 along y and growing towards x, plus the reader's
// orientation; an elevation is 0 straight below the reader, 90 level with it and 180 straight
// above.
void get_az(const aar_table_t& aars, const tag_table_t& tags, angle_table_t* azimuths, int aarCount,
            int tagCount);
void get_el(const aar_table_t& aars, const tag_table_t& tags, angle_table_t* elevations, int aarCount,
            int tagCount);

// Degrees.
struct bearing_s {
    double azimuth, elevation;
};

// Adds Gaussian noise with these standard deviations, degrees, to both angles; takes two draws
// of rand().
void add_noise(bearing_s* pair, double stdAz, double stdEl);

// ---- packets. Simulator thread ---------------------------------------------

// The longest EPC of a tag packet: TAG_INFO_s has a length of up to 2047 bits.
inline constexpr std::size_t maxSimulatedEpcBytes = 255;
// Head of an EPC that is not 96 bits long, EPC, PC, CRC, bearing.
inline constexpr std::size_t maxSimulatedPayload = 6 + maxSimulatedEpcBytes + 16;

// The packet in a vector, whose memory is aligned for it.
RXE_packet_s* headOf(std::vector<std::uint8_t>* packet);

// Makes `packet`, which has room for maxSimulatedPayload bytes of payload, a tag
// packet with EPC, PC, CRC and bearing (tenths of a degree; the low 16 bits
// count). The last digit of an id with an odd number of digits is dropped; an id that is
// too long is cut; a pair that is not a hexadecimal number becomes 0.
void buildTagPacket(const std::string& tagId, int azimuthX10, int elevationX10, RXE_packet_s* packet);
