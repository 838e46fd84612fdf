#include "tcp.h"

#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>

#include "command_line.h"

namespace tools {

namespace {

constexpr int kListenBacklog = 4;
constexpr long kMaxPort = 65535;

struct AddressList {
    addrinfo* head = nullptr;
    ~AddressList() {
        if (head != nullptr) {
            freeaddrinfo(head);
        }
    }
};

void resolve(const Endpoint& endpoint, int flags, AddressList& out) {
    addrinfo hints{};
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = flags;
    const std::string port = std::to_string(endpoint.port);
    const int rc = getaddrinfo(endpoint.host.c_str(), port.c_str(), &hints, &out.head);
    if (rc != 0) {
        throw std::runtime_error("cannot resolve " + endpoint.host + ": " + gai_strerror(rc));
    }
}

// Requests and replies are a few bytes each; they must leave at once.
void sendImmediately(int fd) {
    const int on = 1;
    setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
}

int boundPort(int fd) {
    sockaddr_storage address{};
    socklen_t length = sizeof address;
    getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length);
    return ntohs(address.ss_family == AF_INET6
                     ? reinterpret_cast<sockaddr_in6*>(&address)->sin6_port
                     : reinterpret_cast<sockaddr_in*>(&address)->sin_port);
}

std::runtime_error connectError(const Endpoint& endpoint, int error) {
    return std::runtime_error("cannot connect to " + describeEndpoint(endpoint) + ": " +
                              std::strerror(error));
}

}  // namespace

Endpoint parseEndpoint(const std::string& text, const std::string& defaultHost) {
    Endpoint endpoint{defaultHost, 0};
    std::string port = text;
    const std::size_t colon = text.rfind(':');
    if (colon != std::string::npos) {
        endpoint.host = text.substr(0, colon);
        port = text.substr(colon + 1);
        if (endpoint.host.size() >= 2 && endpoint.host.front() == '[' &&
            endpoint.host.back() == ']') {
            endpoint.host = endpoint.host.substr(1, endpoint.host.size() - 2);
        }
        if (endpoint.host.empty()) {
            throw UsageError("no host in '" + text + "'");
        }
    }
    endpoint.port = static_cast<int>(parseInteger(port, 0, kMaxPort, "the TCP port"));
    return endpoint;
}

std::string describeEndpoint(const Endpoint& endpoint) {
    const bool ipv6 = endpoint.host.find(':') != std::string::npos;
    return (ipv6 ? "[" + endpoint.host + "]" : endpoint.host) + ":" + std::to_string(endpoint.port);
}

UniqueFd listenTcp(Endpoint& endpoint) {
    AddressList addresses;
    resolve(endpoint, AI_PASSIVE, addresses);
    int error = 0;
    for (addrinfo* a = addresses.head; a != nullptr; a = a->ai_next) {
        UniqueFd fd(
            socket(a->ai_family, a->ai_socktype | SOCK_CLOEXEC | SOCK_NONBLOCK, a->ai_protocol));
        const int on = 1;
        if (fd.valid() && setsockopt(fd.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) == 0 &&
            bind(fd.get(), a->ai_addr, a->ai_addrlen) == 0 &&
            listen(fd.get(), kListenBacklog) == 0) {
            endpoint.port = boundPort(fd.get());
            return fd;
        }
        error = errno;
    }
    throw std::runtime_error("cannot listen on " + describeEndpoint(endpoint) + ": " +
                             std::strerror(error));
}

UniqueFd acceptTcp(int listenFd) {
    UniqueFd fd(accept4(listenFd, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
    if (fd.valid()) {
        sendImmediately(fd.get());
    }
    return fd;
}

UniqueFd connectTcp(const Endpoint& endpoint, int timeoutMs) {
    AddressList addresses;
    resolve(endpoint, 0, addresses);
    int error = ECONNREFUSED;
    for (addrinfo* a = addresses.head; a != nullptr; a = a->ai_next) {
        UniqueFd fd(
            socket(a->ai_family, a->ai_socktype | SOCK_CLOEXEC | SOCK_NONBLOCK, a->ai_protocol));
        if (!fd.valid()) {
            error = errno;
            continue;
        }
        if (connect(fd.get(), a->ai_addr, a->ai_addrlen) != 0 && errno != EINPROGRESS) {
            error = errno;
            continue;
        }
        pollfd p{fd.get(), POLLOUT, 0};
        if (poll(&p, 1, timeoutMs) != 1) {
            error = ETIMEDOUT;
            continue;
        }
        socklen_t length = sizeof error;
        getsockopt(fd.get(), SOL_SOCKET, SO_ERROR, &error, &length);
        if (error == 0) {
            sendImmediately(fd.get());
            return fd;
        }
    }
    throw connectError(endpoint, error);
}

}  // namespace tools
