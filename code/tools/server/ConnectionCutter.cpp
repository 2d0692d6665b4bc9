#include "tools/server/ConnectionCutter.h"

#include <dirent.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdlib>

namespace VelmoraTestServer {
namespace ConnectionCutter {
namespace {

int PortOf(const sockaddr_storage& address) {
    if (address.ss_family == AF_INET) return ntohs(reinterpret_cast<const sockaddr_in&>(address).sin_port);
    if (address.ss_family == AF_INET6) return ntohs(reinterpret_cast<const sockaddr_in6&>(address).sin6_port);
    return -1;
}

// Raw system calls on purpose: the probe reads descriptors that other threads may close or reuse at
// the same moment. That is harmless, since a probe only reads and a closed or reused descriptor fails
// or does not match, but a race detector's descriptor tracking would report it.
bool PortsOf(int fd, int& local_port, int& peer_port) {
    sockaddr_storage address{};
    socklen_t length = sizeof address;
    if (syscall(SYS_getsockname, fd, reinterpret_cast<sockaddr*>(&address), &length) != 0) return false;
    local_port = PortOf(address);
    length = sizeof address;
    if (syscall(SYS_getpeername, fd, reinterpret_cast<sockaddr*>(&address), &length) != 0) return false;
    peer_port = PortOf(address);
    return true;
}

}  // namespace

void CutDescriptor(int fd) {
    // A zero linger turns the later close into a reset; the shutdown ends the peer's wait now.
    linger abort_on_close{1, 0};
    setsockopt(fd, SOL_SOCKET, SO_LINGER, &abort_on_close, sizeof abort_on_close);
    shutdown(fd, SHUT_RDWR);
}

bool Cut(int local_port, int peer_port) {
    DIR* folder = opendir("/proc/self/fd");
    if (folder == nullptr) return false;
    int found = -1;
    while (dirent* entry = readdir(folder)) {
        if (entry->d_name[0] < '0' || entry->d_name[0] > '9') continue;
        const int fd = std::atoi(entry->d_name);
        int local = -1;
        int peer = -1;
        if (PortsOf(fd, local, peer) && local == local_port && peer == peer_port) {
            found = fd;
            break;
        }
    }
    closedir(folder);
    if (found < 0) return false;
    CutDescriptor(found);
    return true;
}

}  // namespace ConnectionCutter
}  // namespace VelmoraTestServer
