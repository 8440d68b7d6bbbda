// SPDX-License-Identifier: MIT
#include "support/management_double.hpp"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <stdexcept>

std::string managementReply(const std::string& body, const std::string& code) {
    return "<rm:reply xmlns:rm=\"urn:epcglobal:rm:xsd:1\" xmlns:v=\"urn:brixrfid:rm:xsd:1\"><rm:resultCode>" +
           code + "</rm:resultCode>" + body + "</rm:reply>";
}

std::string managementElement(const std::string& name, const std::string& body) {
    return "<v:" + name + ">" + body + "</v:" + name + ">";
}

ManagementDouble::ManagementDouble(answer_t answer)
    : listener(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)), answerTo(std::move(answer)) {
    const int yes = 1;
    setsockopt(listener, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    const sockaddr_in address{AF_INET, htons(50009), {htonl(INADDR_LOOPBACK)}, {}};
    if (bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        listen(listener, 16) != 0) {
        close(listener);
        throw std::runtime_error("port 50009 is taken");
    }
    server = std::thread([this] { serve(); });
}

ManagementDouble::ManagementDouble(std::vector<std::string> answers)
    : ManagementDouble([answers = std::move(answers), next = std::size_t{0}](const std::string&) mutable {
          return next < answers.size() ? answers[next++] : std::string();
      }) {}

ManagementDouble::~ManagementDouble() {
    shutdown(listener, SHUT_RDWR);  // ends a wait for a client that does not come
    server.join();
    close(listener);
}

std::vector<std::string> ManagementDouble::requests() const {
    const std::lock_guard lock(mutex);
    return received;
}

void ManagementDouble::serve() {
    for (int client = -1; (client = accept(listener, nullptr, nullptr)) >= 0; close(client)) {
        char buffer[8192];
        const ssize_t size = recv(client, buffer, sizeof buffer, 0);
        const std::string request(buffer, size > 0 ? static_cast<std::size_t>(size) : 0);
        {
            const std::lock_guard lock(mutex);
            received.push_back(request);
        }
        const std::string answer = answerTo(request);
        send(client, answer.data(), answer.size(), MSG_NOSIGNAL);
    }
}
