#pragma once
// Cutting a client's connection from inside a request handler. The HTTP library does not
// hand its socket to handlers, so the socket is found by its address pair and shut down;
// the library then fails its next write and closes it.
#include <string>

namespace vxcloud::sandbox {

struct ConnectionAddress {
    std::string localAddr;
    int localPort = -1;
    std::string remoteAddr;
    int remotePort = -1;
};

// Returns whether a matching socket was found and shut down.
bool dropConnection(const ConnectionAddress& address);

// Shuts down every accepted connection on `localPort`, so a stopping server need not wait for
// idle keep-alive connections to time out. Returns how many were shut down.
int shutdownAcceptedConnections(int localPort);

}  // namespace vxcloud::sandbox
