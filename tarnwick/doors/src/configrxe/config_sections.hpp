// SPDX-License-Identifier: MIT
// The sections of "configrxe custom": what they share, and their handlers.
// Private to rxe_intfc; main thread.
//
//   configrxe custom <section> [<id>]                    reads
//   configrxe custom <section> [<id>] <word or name=value> ...   writes
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "configrxe/config_json.hpp"

namespace rxe_intfc {

// One request to a section.
struct section_request_s {
    int id;                          // 0 in a section without ids
    std::vector<std::string> words;  // behind the section and its id; empty in a read
    std::string* reply;
};

using section_step = void (*)(const section_request_s& request);

// What a section is. `logName` stands in the log line of a write; `ids` is null
// where every id has its own failure text or there is no id.
struct section_s {
    const char* logName;
    const id_range_s* ids;
    section_step read;
    section_step write;
};

// Serves a request of a section with an id behind tokens[index], in decimal or,
// with `hexIds`, in hexadecimal behind "0x". Id 0 passes for a write with
// "disable" only, in which it stands for the whole range. Returns 0.
int serveWithId(const section_s& section, const std::vector<std::string>& tokens, std::size_t index,
                std::string* reply, bool hexIds = false);
int serveWithoutId(const section_s& section, const std::vector<std::string>& tokens, std::size_t index,
                   std::string* reply);

// Whether a word begins with "disable".
bool saysDisable(const section_request_s& request);
bool hasWord(const section_request_s& request, std::string_view word);

// As strtol with a long of 64 bits: decimal, or with `hex` also hexadecimal behind
// "0x"; 0 for a text that is not a number, the nearest number where 64 bits are too few.
std::int64_t numberOf(const std::string& text, bool hex = false);

// The value of name=value, of which a field keeps the low bits: 65537 is 1 in 16 bits,
// and -1 is 4294967295 in 32. `absent` without the parameter.
std::int64_t wholeParameter(const section_request_s& request, const char* name, std::int64_t absent,
                            bool hex);
template <class Number>
Number parameter(const section_request_s& request, const char* name, Number absent = 0, bool hex = false) {
    return static_cast<Number>(wholeParameter(request, name, absent, hex));
}

// Whether there is a name=value, also one without a text behind the "=".
bool hasParameter(const section_request_s& request, const char* name);

// The text of name=value, empty without the parameter.
std::string textParameter(const section_request_s& request, const char* name);

// Reads a parameter; on failure the reply is "Failure: getting <what>" and the
// result false.
bool readInto(const section_request_s& request, unsigned parameterId, void* record, const std::string& what);

// "Success: setting <what>" or "Failure: setting <what>".
void answerWrite(const section_request_s& request, RXE_API_STATUS status, const std::string& what);

// "<word> <id>".
std::string named(const char* word, const section_request_s& request);

}  // namespace rxe_intfc

// Each serves the tokens of a request whose section word stands at `index`, and
// returns 0. What is read as a number by the standard conversion lets its
// exception pass: cableLoss, aarHeight, tagHeight, staticVDynamic, and the
// duration of txDelayInterval.
using section_handler = int (*)(std::vector<std::string>* tokens, std::size_t index, std::string* reply);

int handleOlioRequest(std::vector<std::string>* tokens, std::size_t index, std::string* reply);
int handleSelectRequest(std::vector<std::string>* tokens, std::size_t index, std::string* reply);
int handleAccessRequest(std::vector<std::string>* tokens, std::size_t index, std::string* reply);
int handleIDFilterRequest(std::vector<std::string>* tokens, std::size_t index, std::string* reply);
int handleInventoryRequest(std::vector<std::string>* tokens, std::size_t index, std::string* reply);
int handlePacketRequest(std::vector<std::string>* tokens, std::size_t index, std::string* reply);
int handleHopPerRoundRequest(std::vector<std::string>* tokens, std::size_t index, std::string* reply);
int handleTagInfoFieldsRequest(std::vector<std::string>* tokens, std::size_t index, std::string* reply);
int handleStopConditionsRequest(std::vector<std::string>* tokens, std::size_t index, std::string* reply,
                                bool isPN8200);
int handleChannelRequest(std::vector<std::string>* tokens, std::size_t index, std::string* reply);
int handleStartConditionsRequest(std::vector<std::string>* tokens, std::size_t index, std::string* reply);
int handleStartConditionsRequest2(std::vector<std::string>* tokens, std::size_t index, std::string* reply);
int handleLastReportFilterRequest(std::vector<std::string>* tokens, std::size_t index, std::string* reply);
int handleTxDelayIntervalRequest(std::vector<std::string>* tokens, std::size_t index, std::string* reply);
int handleCableLossRequest(std::vector<std::string>* tokens, std::size_t index, std::string* reply);
int handleAARHeightRequest(std::vector<std::string>* tokens, std::size_t index, std::string* reply);
int handleTagHeightRequest(std::vector<std::string>* tokens, std::size_t index, std::string* reply);
int handleStaticVDynamicRequest(std::vector<std::string>* tokens, std::size_t index, std::string* reply);
