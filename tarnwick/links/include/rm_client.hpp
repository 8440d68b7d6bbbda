// SPDX-License-Identifier: MIT
// Client of the local Reader Management server, which has the facts about this reader: model,
// region, ports, power, cables, host name. One TCP connection to 127.0.0.1 port 50009 for each
// request; XML both ways; without an answer within 5 seconds a request fails.
//
// The functions share one request document, so only one thread may call them: the main thread.
#pragma once

#include <cstddef>
#include <string>

// ---------------------------------------------------------------- queries
// Each returns 0, or -1 on any failure; the details are then on standard output, and the
// results have not changed.

// The cause of the last failed query, as one clause for the log: "the Reader Management server
// at 127.0.0.1:50009 cannot be reached: Connection refused". Valid until the next query.
const char* managementFailure();

// Hardware address of eth0 ("00:00:00:00:00:00" without one) and host name.
int getReaderDetails(std::string* mac, std::string* hostName);

// Antenna ports, largest transmit power in tenths of dBm, and the supply:
// 0 is 24 V, 1 is PoE+, 2 is PoE.
int getReaderDetails(int* numPorts, int* maxTxPower, int* powerSource);

// The names of the model ("PN5100"), of the active region, and of the standard that the reader
// transmits by ("US FCC 15").
int getModel(std::string* model);
int getActiveRegionName(std::string* regionName);
int getActiveStandardName(std::string* standardName);

// Two exchanges: the active region, then the channel width of its standard in kHz.
int getActiveRegionNameAndChannelWidth(std::string* regionName, float* channelWidth);

// Cable data of an antenna, counted from 1. The product of both numbers, divided by 10, is the
// loss in tenths of a dB.
int getCableLossCompensation(int antenna, int* lossPerHundredFt, int* cableLength);

// ---------------------------------------------------------------- steps of a query

// The most bytes that processRMRequest writes: one read of 4096 and the NUL.
inline constexpr std::size_t rmReplyBufferSize = 4097;

// The request as it is sent, on one line. Written by CreateRequestXML.
extern std::string m_pXMLRequestString;

// Stores the hardware address of the interface for the next request's session
// id; all zeros when the interface does not exist. Returns 0, or -1 when a socket
// or the system's answer fails.
int GetMacAddress(const char* ifname);

// Begins a request document with the vendor extension, in place of the one before.
// `targetName` may be null. The device node is an antenna read point or the reader. With
// `addSession` it holds a session id: the hardware address, or the custom one, which is empty.
void CreateBrixRMHeader(int id, bool useCustomSession, const char* targetName, bool antennaReadPoint,
                        bool addSession);

// Begins a request document of EPCglobal Reader Management, without extension and session.
void CreateStandardRMHeader(int id);

// Renders the document into m_pXMLRequestString.
void CreateRequestXML();

// One exchange. `reply` has room for rmReplyBufferSize bytes and gets the text up to its
// closing tag. Returns
//   0  success; also for an empty or null request, which sends nothing and leaves `reply`
//   1  the socket cannot be created
//   2  the server cannot be reached, or does not take the request
//   3  reading failed, or the answer did not come within 5 s
//   4  the server closed the connection without an answer
int processRMRequest(const char* request, char* reply);

// Reads the result code of a reply, which begins with an XML declaration. Returns 0 when the
// server reports success, else 1. `customError` is written only when the reply has one,
// `result` whenever there is a result code.
int ProcessRMResponse(const std::string& reply, int* result, int* customError);

// Clears the request text and its document.
void clearXMLvariables();
