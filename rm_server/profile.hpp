// SPDX-License-Identifier: MIT
// What the server says about the reader: one profile for the life of the process.
#pragma once

#include <string>
#include <string_view>
#include <vector>

// One antenna's cable. The two numbers are passed on as they stand; the daemon
// takes their product, divided by 10, for a loss in tenths of a dB.
struct cable_s {
    int lossPerHundredFt;
    int length;
};

struct profile_s {
    std::string model;            // "PN5100", "PN8200", "QDX4400" or any other word
    std::string hostName;         //
    std::string regionName;       // the region the reader is set to, such as "United States"
    std::string standardName;     // the regulatory standard in force, such as "US FCC 15"
    double channelWidth;          // kHz
    int ports;                    // antenna ports, or elements of an array reader
    int maxTxPower;               // tenths of dBm
    int powerSource;              // 0 24 V supply, 1 PoE+, 2 PoE; others so that a test can claim them
    std::vector<cable_s> cables;  // by antenna, antenna 1 at index 0; `ports` entries
};

// Profiles that need no file, by name. False when no profile has that name.
bool findBuiltInProfile(std::string_view name, profile_s* profile);
std::string builtInProfileNames();

// Reads a profile from JSON text. On failure returns false, and `*error` is one
// line that names the key at fault; `*profile` is then unchanged.
bool parseProfile(std::string_view text, profile_s* profile, std::string* error);
bool readProfileFile(const std::string& path, profile_s* profile, std::string* error);

// The profile as a JSON text that parseProfile reads back.
std::string renderProfile(const profile_s& profile);
