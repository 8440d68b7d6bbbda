// SPDX-License-Identifier: MIT
// The whole gateway: what runs while the configuration is in force.
#pragma once

#include <string>

// Runs until SIGTERM or SIGINT. Returns the exit status: 0 at the end by a signal, 1 when an endpoint or
// the spool cannot be had, 78 (EX_CONFIG) for a configuration with mistakes, which are told.
int runGateway(const std::string& configFile);

// Tells every mistake of a configuration, a line each. Returns 0 without one, else 78.
int checkConfig(const std::string& configFile);
