// SPDX-License-Identifier: MIT
// The facts that the server gives about the reader: one profile for the life of the process. The
// only thread reads it.
#pragma once

#include <string>
#include <string_view>
#include <vector>

// One antenna's cable; both numbers -30000 to 30000, sent as they are. The daemon takes their
// product, divided by 10, as a loss in tenths of a dB: 4 and 25 make 1 dB.
struct cable_s {
    int lossPerHundredFt;
    int length;
};

struct profile_s {
    // The four texts have 1 to 64 printable ASCII characters. "PN5100", "PN8200" and "QDX4400" are
    // the models that the daemon knows.
    std::string model;
    std::string hostName;
    // The region that the reader is set to, such as "United States".
    std::string regionName;
    // The regulatory standard in force, such as "US FCC 15".
    std::string standardName;
    // kHz, above 0 and up to 100000.
    double channelWidth;
    // Antenna ports, or elements of an array reader, 1 to 64.
    int ports;
    // Tenths of dBm, 0 to 1000.
    int maxTxPower;
    // 0 24 V supply, 1 PoE+, 2 PoE; up to 255 so that a test can send an unknown one.
    int powerSource;
    // By antenna, antenna 1 at index 0; `ports` entries.
    std::vector<cable_s> cables;
};

// A profile that is built in, by its name. False when no profile has that name.
bool findBuiltInProfile(std::string_view name, profile_s* profile);
// Their names, for the help: "PN5100, PN8200, QDX4400".
std::string builtInProfileNames();

// Reads a profile from JSON text or from a file. On failure returns false, and `*error` is one
// line that names the key at fault; `*profile` is then unchanged.
bool parseProfile(std::string_view text, profile_s* profile, std::string* error);
bool readProfileFile(const std::string& path, profile_s* profile, std::string* error);

// The profile as a JSON text that parseProfile reads back.
std::string renderProfile(const profile_s& profile);
