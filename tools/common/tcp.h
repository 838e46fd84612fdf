// TCP on the tools' side: the simulated PLC listens, the host connects.
#ifndef KORVAN_TOOLS_TCP_H
#define KORVAN_TOOLS_TCP_H

#include <string>

#include "unique_fd.h"

namespace tools {

struct Endpoint {
    std::string host;
    int port = 0;
};

// "PORT", "HOST:PORT" or "[IPv6]:PORT"; a missing host is `defaultHost`. Throws UsageError.
Endpoint parseEndpoint(const std::string& text, const std::string& defaultHost);
std::string describeEndpoint(const Endpoint& endpoint);

// Listens on the endpoint (port 0: any free port) and stores the bound port in `endpoint`.
UniqueFd listenTcp(Endpoint& endpoint);
// The next waiting connection, or an invalid descriptor if none is waiting.
UniqueFd acceptTcp(int listenFd);
// Throws std::runtime_error naming the endpoint and the reason (refused, timed out, ...).
UniqueFd connectTcp(const Endpoint& endpoint, int timeoutMs);

}  // namespace tools

#endif
