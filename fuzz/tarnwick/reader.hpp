// SPDX-License-Identifier: MIT
// A reader without endpoints, for all targets of the daemon. Its engine is the tests' double; tag reports
// and news arrive within the process.
#pragma once

#include <string>
#include <string_view>

// A reader as it is after the start. The first character of the input selects the model and is
// removed.
void newReader(std::string_view* input);

// The reply to "mode", and to "mode" with one more word.
std::string askMode(std::string_view word);

// The mode as it was set, as JSON text. Fails when there is none in force.
std::string modeInForce();

// Receives the news for the main thread and the tag reports.
void takeNews();
void takeReports();

// The targets of each file; main.cpp knows them by the table in targets.cpp.
void requestLine(std::string_view input);
void mode(std::string_view input);
void storedMode(std::string_view input);
void filter(std::string_view input);
void packets(std::string_view input);
void additionalKeys(std::string_view input);
void simulatorFiles(std::string_view input);
void simulation(std::string_view input);
void serverReply(std::string_view input);
void envelopes(std::string_view input);
void subscriptionStream(std::string_view input);
void peers(std::string_view input);
void epcUri(std::string_view input);
void logText(std::string_view input);
