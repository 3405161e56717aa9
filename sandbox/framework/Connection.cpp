#include "framework/Connection.h"

#include <arpa/inet.h>
#include <dirent.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <cstdlib>
#include <cstring>

namespace vxcloud::sandbox {
namespace {

bool describe(const sockaddr_storage& address, std::string& ip, int& port) {
    char text[INET6_ADDRSTRLEN] = {};
    if (address.ss_family == AF_INET) {
        const auto* in = reinterpret_cast<const sockaddr_in*>(&address);
        inet_ntop(AF_INET, &in->sin_addr, text, sizeof text);
        port = ntohs(in->sin_port);
    } else if (address.ss_family == AF_INET6) {
        const auto* in6 = reinterpret_cast<const sockaddr_in6*>(&address);
        inet_ntop(AF_INET6, &in6->sin6_addr, text, sizeof text);
        port = ntohs(in6->sin6_port);
    } else {
        return false;
    }
    ip = text;
    if (ip.rfind("::ffff:", 0) == 0) ip = ip.substr(7);  // IPv4-mapped
    return true;
}

std::string normalise(std::string ip) {
    if (ip.rfind("::ffff:", 0) == 0) ip = ip.substr(7);
    return ip;
}

bool matches(int fd, const ConnectionAddress& want) {
    sockaddr_storage local{}, remote{};
    socklen_t localLength = sizeof local, remoteLength = sizeof remote;
    if (getsockname(fd, reinterpret_cast<sockaddr*>(&local), &localLength) != 0) return false;
    std::string ip;
    int port = -1;
    if (!describe(local, ip, port) || port != want.localPort) return false;
    if (!want.localAddr.empty() && ip != normalise(want.localAddr)) return false;
    if (getpeername(fd, reinterpret_cast<sockaddr*>(&remote), &remoteLength) != 0) return false;
    if (!describe(remote, ip, port) || port != want.remotePort) return false;
    return want.remoteAddr.empty() || ip == normalise(want.remoteAddr);
}

bool acceptedOn(int fd, int localPort) {
    sockaddr_storage local{}, remote{};
    socklen_t localLength = sizeof local, remoteLength = sizeof remote;
    if (getsockname(fd, reinterpret_cast<sockaddr*>(&local), &localLength) != 0) return false;
    std::string ip;
    int port = -1;
    if (!describe(local, ip, port) || port != localPort) return false;
    // The listening socket has no peer; only connections do.
    return getpeername(fd, reinterpret_cast<sockaddr*>(&remote), &remoteLength) == 0;
}

template <typename Visit>
void forEachOpenFd(Visit visit) {
    DIR* dir = opendir("/proc/self/fd");
    if (!dir) return;
    while (const dirent* entry = readdir(dir)) {
        if (entry->d_name[0] < '0' || entry->d_name[0] > '9') continue;
        const int fd = std::atoi(entry->d_name);
        if (fd != dirfd(dir) && !visit(fd)) break;
    }
    closedir(dir);
}

}  // namespace

int shutdownAcceptedConnections(int localPort) {
    int count = 0;
    forEachOpenFd([&](int fd) {
        if (acceptedOn(fd, localPort) && shutdown(fd, SHUT_RDWR) == 0) ++count;
        return true;
    });
    return count;
}

bool dropConnection(const ConnectionAddress& address) {
    bool dropped = false;
    forEachOpenFd([&](int fd) {
        if (!matches(fd, address)) return true;
        // Reset rather than close politely, the way a broken network path looks.
        linger hard{1, 0};
        setsockopt(fd, SOL_SOCKET, SO_LINGER, &hard, sizeof hard);
        shutdown(fd, SHUT_RDWR);
        dropped = true;
        return false;
    });
    return dropped;
}

}  // namespace vxcloud::sandbox
