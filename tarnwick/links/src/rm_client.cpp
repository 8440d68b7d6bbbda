// SPDX-License-Identifier: MIT
#include "rm_client.hpp"

#include <arpa/inet.h>
#include <libxml/parser.h>
#include <libxml/tree.h>
#include <libxml/xmlsave.h>
#include <libxml/xpath.h>
#include <libxml/xpathInternals.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <span>
#include <sstream>
#include <stdexcept>

#include "util/descriptor.hpp"

std::string m_pXMLRequestString;

namespace {

constexpr std::uint16_t serverPort = 50009;
constexpr timeval serverPatience{.tv_sec = 5, .tv_usec = 0};

constexpr const char* xml_prefix = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>";
constexpr const char* xsiUri = "http://www.w3.org/2001/XMLSchema-instance";
constexpr const char* rmUri = "urn:epcglobal:rm:xsd:1";
constexpr const char* epcglobalUri = "urn:epcglobal:xsd:1";
constexpr const char* brixrmUri = "urn:brixrfid:rm:xsd:1";

struct namespace_s {
    const char* prefix;
    const char* uri;
};

// The prefixes that the XPath expressions below use; those in a reply are the server's choice.
constexpr namespace_s nsArray[] = {{"g1", rmUri}, {"g3", brixrmUri}};

// Owners of what libxml2 and the system hand out.
struct xml_deleter_s {
    void operator()(xmlDoc* document) const { xmlFreeDoc(document); }
    void operator()(xmlBuffer* buffer) const { xmlBufferFree(buffer); }
    void operator()(xmlSaveCtxt* context) const { xmlSaveClose(context); }
    void operator()(xmlXPathContext* context) const { xmlXPathFreeContext(context); }
    void operator()(xmlXPathObject* object) const { xmlXPathFreeObject(object); }
    void operator()(xmlChar* text) const { xmlFree(text); }
    void operator()(struct if_nameindex* names) const { if_freenameindex(names); }
};
template <class Resource>
using owner = std::unique_ptr<Resource, xml_deleter_s>;

// The request document, from the Create functions to the next query. The nodes belong to the document.
// Main thread.
constinit owner<xmlDoc> m_pDoc;
xmlNodePtr m_pBrixRMRDNode = nullptr;
xmlNodePtr m_pStdRMRDNode = nullptr;

// The two session ids of a request: hardware address and custom id, NUL-terminated. The custom id is
// never set. Main thread.
char m_strMACAddr[128] = "00:00:00:00:00:00";
char custom_sessionID[128] = "";

constexpr std::size_t macTextLength = 17;

// The text of managementFailure, NUL-terminated. Main thread.
char m_failure[256] = "";

// Stores the cause of a failure. Keeps errno, which the next line prints.
void noteFailure(const char* what, const char* detail = "") {
    const int error = errno;
    std::snprintf(m_failure, sizeof m_failure, "the Reader Management server at 127.0.0.1:%d %s%s",
                  int{serverPort}, what, detail);
    errno = error;
}

// The text of an error of the connection; for a time-out, its length.
const char* reasonOf(int error) {
    return error == EAGAIN || error == EINPROGRESS ? "nothing came within 5 s" : std::strerror(error);
}

// Prints one line on standard output, where a person who starts the daemon sees it.
[[gnu::format(printf, 1, 2)]] void printLine(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    std::vprintf(format, arguments);
    va_end(arguments);
    std::putchar('\n');
    std::fflush(stdout);
}

const xmlChar* asXml(const char* text) {
    return reinterpret_cast<const xmlChar*>(text);
}

// Appends an element. Its text is escaped; null or empty makes an empty element.
xmlNodePtr addElement(xmlNodePtr parent, const char* name, const char* text = nullptr) {
    const bool isEmpty = text == nullptr || *text == '\0';
    return xmlNewTextChild(parent, nullptr, asXml(name), isEmpty ? nullptr : asXml(text));
}

// Begins a request: the root with its attributes in the given order, then the
// two elements that every request has. For libxml2 the prefixed names are plain names, so
// that it keeps the order of the attributes.
xmlNodePtr beginDocument(std::span<const namespace_s> attributes, int id, const char* targetName) {
    m_pBrixRMRDNode = nullptr;
    m_pStdRMRDNode = nullptr;
    m_pDoc.reset(xmlNewDoc(asXml("1.0")));
    m_pDoc->encoding = xmlStrdup(asXml("UTF-8"));
    const xmlNodePtr root = xmlNewNode(nullptr, asXml("rm:command"));
    xmlDocSetRootElement(m_pDoc.get(), root);
    for (const namespace_s& attribute : attributes) {
        xmlNewProp(root, asXml(attribute.prefix), asXml(attribute.uri));
    }
    addElement(root, "rm:id", std::to_string(id).c_str());
    addElement(root, "rm:targetName", targetName);
    return root;
}

// -------------------------------------------------------------- reading replies

// Null when the text is not XML. A text with a document type is refused as well: the server sends
// none, and one could name files or define entities that expand without limit.
owner<xmlDoc> getdoc(const char* buffer, std::size_t size) {
    constexpr int quietAndLocal = XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING;
    owner<xmlDoc> document(xmlReadMemory(buffer, static_cast<int>(size), nullptr, nullptr, quietAndLocal));
    if (document != nullptr && document->intSubset != nullptr) {
        document.reset();
    }
    return document;
}

// The nodes that the expression finds; null when it finds none, and when it fails.
owner<xmlXPathObject> getnodeset(xmlDoc* document, const namespace_s* namespaces, std::size_t count,
                                 const char* xpath) {
    const owner<xmlXPathContext> context(xmlXPathNewContext(document));
    if (context == nullptr) {
        return nullptr;
    }
    for (const namespace_s& entry : std::span(namespaces, count)) {
        if (xmlXPathRegisterNs(context.get(), asXml(entry.prefix), asXml(entry.uri)) != 0) {
            return nullptr;
        }
    }
    owner<xmlXPathObject> found(xmlXPathEvalExpression(asXml(xpath), context.get()));
    if (found == nullptr || xmlXPathNodeSetIsEmpty(found->nodesetval)) {
        return nullptr;
    }
    return found;
}

// The text of the last node found. Returns 0, or -1 when the buffer does not
// parse or nothing is found; `*out` is then as it was.
int getNodeValueAsStringFromDoc(const char* buffer, std::size_t size, const namespace_s* namespaces,
                                std::size_t count, const char* xpath, std::string* out) {
    const owner<xmlDoc> document = getdoc(buffer, size);
    if (document == nullptr) {
        return -1;
    }
    const owner<xmlXPathObject> found = getnodeset(document.get(), namespaces, count, xpath);
    if (found == nullptr) {
        return -1;
    }
    const xmlNodeSet* const nodes = found->nodesetval;
    for (const xmlNode* node : std::span(nodes->nodeTab, static_cast<std::size_t>(nodes->nodeNr))) {
        const owner<xmlChar> text(xmlNodeListGetString(document.get(), node->children, 1));
        *out = text == nullptr ? "" : reinterpret_cast<const char*>(text.get());
    }
    return 0;
}

int readText(const std::string& reply, const char* xpath, std::string* out) {
    return getNodeValueAsStringFromDoc(reply.data(), reply.size(), nsArray, std::size(nsArray), xpath, out);
}

// Reads an int as a stream does: 0 for a text without a number, the nearest int for one out of range.
int readInt(const std::string& reply, const char* xpath, int* out) {
    std::string text;
    if (readText(reply, xpath, &text) != 0) {
        return -1;
    }
    std::istringstream(text) >> *out;
    return 0;
}

int readFloat(const std::string& reply, const char* xpath, float* out) {
    std::string text;
    if (readText(reply, xpath, &text) != 0) {
        return -1;
    }
    try {
        *out = std::stof(text);
    } catch (const std::logic_error&) {  // not a number, or out of range
        return -1;
    }
    return 0;
}

// Prints the error in a reply, on one line if the reply has all its parts, and stores it as the cause.
// *customError is written only when the reply has such a code.
void printError(const std::string& reply, unsigned long code, int* customError) {
    std::printf("error code: %d, ", static_cast<int>(code));
    noteFailure("answered with error code ", std::to_string(static_cast<int>(code)).c_str());
    std::string text;
    if (readText(reply, "/g1:reply/g1:error/g1:name", &text) == 0) {
        std::printf("name: %s, ", text.c_str());
    } else {
        printLine("Invalid RM Response: no error name tag in response");
    }
    if (readText(reply, "/g1:reply/g1:error/g1:description", &text) == 0) {
        std::printf("desc: %s, ", text.c_str());
    } else {
        printLine("Invalid RM Response: no error description tag in response");
    }
    if (readText(reply, "/g1:reply/g1:error/g3:customErrorCode", &text) == 0) {
        std::printf("custom error code: %s", text.c_str());
        *customError = static_cast<int>(std::strtoul(text.c_str(), nullptr, 10));
    }
    printLine("%s", "");
}

// -------------------------------------------------------------- queries

constexpr int modelAndRegionId = 100;
constexpr int detailsAndCableId = 104;

// Sends the document. Returns 0 and the reply, with an XML declaration in front, when the server
// reports success, or -1.
int exchange(std::string* reply) {
    CreateRequestXML();
    char buffer[rmReplyBufferSize] = "";
    if (processRMRequest(m_pXMLRequestString.c_str(), buffer) != 0) {
        return -1;
    }
    *reply = std::string(xml_prefix) + buffer;
    int result = 0;
    int customError = 0;
    return ProcessRMResponse(*reply, &result, &customError) == 0 ? 0 : -1;
}

// Begins a request and adds its command element, which the caller may still
// fill. Null when the hardware address cannot be read.
xmlNodePtr beginQuery(int id, const char* command, const char* targetName = nullptr,
                      bool antennaReadPoint = false) {
    if (GetMacAddress("eth0") != 0) {
        std::snprintf(m_failure, sizeof m_failure, "the hardware address of eth0 cannot be read: %s",
                      std::strerror(errno));
        return nullptr;
    }
    noteFailure("sent a reply without what it was asked for");  // a step below replaces it
    clearXMLvariables();
    CreateBrixRMHeader(id, false, targetName, antennaReadPoint, true);
    return addElement(m_pBrixRMRDNode, command);
}

int askReader(int id, const char* command, std::string* reply) {
    return beginQuery(id, command) == nullptr ? -1 : exchange(reply);
}

int askReaderForText(int id, const char* command, const char* xpath, std::string* out) {
    std::string reply;
    return askReader(id, command, &reply) != 0 ? -1 : readText(reply, xpath, out);
}

}  // namespace

const char* managementFailure() {
    return m_failure;
}

int getReaderDetails(std::string* mac, std::string* hostName) {
    if (askReaderForText(detailsAndCableId, "brixrm:getReaderDetails",
                         "/g1:reply/g3:readerDevice/g3:getReaderDetails/g3:HostName", hostName) != 0) {
        return -1;
    }
    mac->assign(m_strMACAddr, macTextLength);
    return 0;
}

int getReaderDetails(int* numPorts, int* maxTxPower, int* powerSource) {
    std::string reply;
    int ports = 0;
    int power = 0;
    int source = 0;
    if (askReader(detailsAndCableId, "brixrm:getReaderDetails", &reply) != 0 ||
        readInt(reply, "/g1:reply/g3:readerDevice/g3:getReaderDetails/g3:NumPorts", &ports) != 0 ||
        readInt(reply, "/g1:reply/g3:readerDevice/g3:getReaderDetails/g3:maxTxPowerSupported", &power) != 0 ||
        readInt(reply, "/g1:reply/g3:readerDevice/g3:getReaderDetails/g3:PowerSource", &source) != 0) {
        return -1;
    }
    *numPorts = ports;
    *maxTxPower = power;
    *powerSource = source;
    return 0;
}

int getModel(std::string* model) {
    return askReaderForText(modelAndRegionId, "brixrm:getModel",
                            "/g1:reply/g3:readerDevice/g3:getModel/g3:returnValue", model);
}

int getActiveRegionName(std::string* regionName) {
    return askReaderForText(modelAndRegionId, "brixrm:getActiveRegion",
                            "/g1:reply/g3:readerDevice/g3:getActiveRegion/g3:returnValue/g3:regionName",
                            regionName);
}

int getActiveStandardName(std::string* standardName) {
    return askReaderForText(modelAndRegionId, "brixrm:getActiveRegion",
                            "/g1:reply/g3:readerDevice/g3:getActiveRegion/g3:returnValue/g3:standardName",
                            standardName);
}

int getActiveRegionNameAndChannelWidth(std::string* regionName, float* channelWidth) {
    std::string region;
    if (getActiveRegionName(&region) != 0) {
        return -1;
    }
    const xmlNodePtr command = beginQuery(modelAndRegionId, "brixrm:getRegionStandardList");
    if (command == nullptr) {
        return -1;
    }
    addElement(command, "brixrm:regionName", region.c_str());
    addElement(command, "brixrm:requestChannelList", "false");
    std::string reply;
    constexpr const char* xpath =
        "/g1:reply/g3:readerDevice/g3:getRegionStandardList/g3:returnValue/g3:list/g3:value/g3:channelWidth";
    if (exchange(&reply) != 0 || readFloat(reply, xpath, channelWidth) != 0) {
        return -1;
    }
    *regionName = region;
    return 0;
}

int getCableLossCompensation(int antenna, int* lossPerHundredFt, int* cableLength) {
    const std::string readPoint = "Read Point " + std::to_string(antenna);
    std::string reply;
    int loss = 0;
    int length = 0;
    if (beginQuery(detailsAndCableId, "brixrm:getCableLossCompensation", readPoint.c_str(), true) ==
            nullptr ||
        exchange(&reply) != 0 ||
        readInt(reply, "/g1:reply/g3:antennaReadPoint/g3:getCableLossCompensation/g3:cableLossPerHundredFt",
                &loss) != 0 ||
        readInt(reply, "/g1:reply/g3:antennaReadPoint/g3:getCableLossCompensation/g3:cableLength", &length) !=
            0) {
        return -1;
    }
    *lossPerHundredFt = loss;
    *cableLength = length;
    return 0;
}

int GetMacAddress(const char* ifname) {
    std::snprintf(m_strMACAddr, sizeof m_strMACAddr, "00:00:00:00:00:00");
    const descriptor probe(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (probe.get() < 0) {
        return -1;
    }
    const std::unique_ptr<struct if_nameindex[], xml_deleter_s> interfaces(if_nameindex());
    for (const struct if_nameindex* entry = interfaces.get(); entry != nullptr && entry->if_index != 0;
         ++entry) {
        if (std::strcmp(entry->if_name, ifname) != 0) {
            continue;
        }
        ifreq request{};
        std::snprintf(request.ifr_name, sizeof request.ifr_name, "%s", ifname);
        if (ioctl(probe.get(), SIOCGIFHWADDR, &request) != 0) {
            return -1;
        }
        std::uint8_t mac[6];
        std::memcpy(mac, request.ifr_hwaddr.sa_data, sizeof mac);
        std::snprintf(m_strMACAddr, sizeof m_strMACAddr, "%02X:%02X:%02X:%02X:%02X:%02X", mac[0], mac[1],
                      mac[2], mac[3], mac[4], mac[5]);
    }
    return 0;
}

void CreateBrixRMHeader(int id, bool useCustomSession, const char* targetName, bool antennaReadPoint,
                        bool addSession) {
    constexpr namespace_s attributes[] = {{"xmlns:xsi", xsiUri},
                                          {"xmlns:rm", rmUri},
                                          {"xmlns:epcglobal", epcglobalUri},
                                          {"xmlns:brixrm", brixrmUri}};
    const xmlNodePtr root = beginDocument(attributes, id, targetName);
    m_pBrixRMRDNode = addElement(root, antennaReadPoint ? "brixrm:antennaReadPoint" : "brixrm:readerDevice");
    if (addSession) {
        addElement(m_pBrixRMRDNode, "brixrm:sessionID", useCustomSession ? custom_sessionID : m_strMACAddr);
    }
}

void CreateStandardRMHeader(int id) {
    constexpr namespace_s attributes[] = {
        {"xmlns:xsi", xsiUri},
        {"xsi:schemaLocation", "urn:epcglobal:rm:xsd:1 /Data/RmCommand.xsd"},
        {"xmlns:rm", rmUri},
        {"xmlns:epcglobal", epcglobalUri}};
    const xmlNodePtr root = beginDocument(attributes, id, nullptr);
    m_pStdRMRDNode = addElement(root, "rm:readerDevice");
}

void CreateRequestXML() {
    const owner<xmlBuffer> buffer(xmlBufferCreate());
    {
        const owner<xmlSaveCtxt> saving(xmlSaveToBuffer(buffer.get(), nullptr, XML_SAVE_FORMAT));
        xmlSaveDoc(saving.get(), m_pDoc.get());
    }
    m_pXMLRequestString = reinterpret_cast<const char*>(xmlBufferContent(buffer.get()));
    std::erase_if(m_pXMLRequestString, [](char character) { return character == '\n' || character == '\r'; });
}

int processRMRequest(const char* request, char* reply) {
    if (request == nullptr || *request == '\0') {
        return 0;
    }
    const descriptor server(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (server.get() < 0) {
        noteFailure("cannot be reached: ", std::strerror(errno));
        printLine("Failed to create socket for RM Server interface");
        return 1;
    }
    // The send time-out also limits connect().
    setsockopt(server.get(), SOL_SOCKET, SO_RCVTIMEO, &serverPatience, sizeof serverPatience);
    setsockopt(server.get(), SOL_SOCKET, SO_SNDTIMEO, &serverPatience, sizeof serverPatience);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(serverPort);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (connect(server.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        noteFailure("cannot be reached: ", reasonOf(errno));
        printLine("Error in RM Server socket connection:%s", std::strerror(errno));
        return 2;
    }
    if (send(server.get(), request, std::strlen(request), MSG_NOSIGNAL) < 0) {
        noteFailure("takes no request: ", reasonOf(errno));
        printLine("RM Server request error:%s", std::strerror(errno));
        int pending = 0;
        socklen_t size = sizeof pending;
        getsockopt(server.get(), SOL_SOCKET, SO_ERROR, &pending, &size);
        printLine("RM socket connection error:%s", std::strerror(pending));
        return 2;
    }
    errno = 0;  // for the text of a close, which is not an error
    const ssize_t received = recv(server.get(), reply, rmReplyBufferSize - 1, 0);
    if (received < 0) {
        noteFailure("gave no answer: ", reasonOf(errno));
        printLine("RM socket read error:%s", std::strerror(errno));
        return 3;
    }
    if (received == 0) {
        noteFailure("gave no answer: it closed the connection");
        printLine("RM socket closed by server:%s", std::strerror(errno));
        return 4;
    }
    reply[received] = '\0';
    // The opening tag has attributes between "reply" and ">", so the first match is in the closing tag.
    constexpr const char* endOfReply = "reply>";
    if (char* const end = std::strstr(reply, endOfReply)) {
        end[std::strlen(endOfReply)] = '\0';
    }
    return 0;
}

int ProcessRMResponse(const std::string& reply, int* result, int* customError) {
    std::string text;
    if (readText(reply, "/g1:reply/g1:resultCode", &text) != 0) {
        noteFailure("sent something else than a reply");
        printLine("Invalid RM Response no response code tag in response");
        return 1;
    }
    const unsigned long code = std::strtoul(text.c_str(), nullptr, 10);
    *result = static_cast<int>(code);
    if (code == 0) {
        return 0;
    }
    printError(reply, code, customError);
    return 1;
}

void clearXMLvariables() {
    m_pXMLRequestString.clear();
    m_pDoc.reset();
    m_pBrixRMRDNode = nullptr;
    m_pStdRMRDNode = nullptr;
}
