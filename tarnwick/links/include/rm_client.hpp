// SPDX-License-Identifier: MIT
// Client of the local Reader Management server, which knows what this reader is:
// model, region, ports, power, cables, host name. One TCP connection to
// 127.0.0.1 port 50009 for each request; XML both ways; no answer within 5
// seconds is a failure.
//
// The functions share one request document, so that one thread at a time may
// call them: the main thread, which also starts the radio thread.
#pragma once

#include <cstddef>
#include <string>

// ---------------------------------------------------------------- queries
// Each returns 0, or -1 on any failure; the detail then stands on standard
// output and the results are as they were.

// Why the last query that failed did, as one clause for the log, such as "the Reader
// Management server at 127.0.0.1:50009 cannot be reached: Connection refused". Written
// by the queries.
const char* managementFailure();

// Hardware address of eth0 ("00:00:00:00:00:00" without one) and host name.
int getReaderDetails(std::string* mac, std::string* hostName);

// Antenna ports, largest transmit power in tenths of dBm, and the supply:
// 0 is 24 V, 1 is PoE+, 2 is PoE.
int getReaderDetails(int* numPorts, int* maxTxPower, int* powerSource);

int getModel(std::string* model);
int getActiveRegionName(std::string* regionName);
int getActiveStandardName(std::string* standardName);

// Two exchanges: the active region, then its standard's channel width in the
// server's unit.
int getActiveRegionNameAndChannelWidth(std::string* regionName, float* channelWidth);

// Cable data of antenna 1 and up, in the server's units.
int getCableLossCompensation(int antenna, int* lossPerHundredFt, int* cableLength);

// ---------------------------------------------------------------- steps of a query

// Bytes that processRMRequest may write: one read of 4096 and the closing NUL.
inline constexpr std::size_t rmReplyBufferSize = 4097;

// The request as it goes out, on one line. Written by CreateRequestXML.
extern std::string m_pXMLRequestString;

// Stores the hardware address of the interface for the next request's session
// id; all zeros when there is no such interface. Returns 0, or -1 when a socket
// or the system's answer fails.
int GetMacAddress(const char* ifname);

// Begins a request document with the vendor extension, which replaces the one
// before. `targetName` may be null. The device node is an antenna read point or
// the reader; with `addSession` it holds the session id: the custom one or the
// hardware address.
void CreateBrixRMHeader(int id, bool useCustomSession, const char* targetName, bool antennaReadPoint,
                        bool addSession);

// The same without the vendor extension and without a session.
void CreateStandardRMHeader(int id);

// Renders the document into m_pXMLRequestString.
void CreateRequestXML();

// One exchange. `reply` has room for rmReplyBufferSize bytes and gets the text
// up to its closing tag. Returns 0; 1 no socket; 2 no connection, or it took no
// request; 3 the answer failed or did not come in time; 4 closed without an
// answer. An empty or null request sends nothing and returns 0 with `reply` as
// it was.
int processRMRequest(const char* request, char* reply);

// Reads the result code of a reply, which begins with its XML declaration.
// Returns 0 when the server reported success; `customError` is written only
// when the reply has one.
int ProcessRMResponse(const std::string& reply, int* result, int* customError);

// Drops the request text and its document.
void clearXMLvariables();
