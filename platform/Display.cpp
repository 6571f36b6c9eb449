#include "platform/Display.h"

#include <fcntl.h>
#include <netdb.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <string>

namespace pixmill::platform {

namespace {

constexpr int kX11TcpBase = 6000;
constexpr int kConnectTimeoutMs = 1000;

bool ConnectUnix(const std::string& path, bool abstract) {
    const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) return false;
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    const size_t offset = abstract ? 1 : 0;
    if (path.size() + offset >= sizeof(addr.sun_path)) {
        ::close(fd);
        return false;
    }
    std::memcpy(addr.sun_path + offset, path.data(), path.size());
    const socklen_t len = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + offset + path.size() +
                                                 (abstract ? 0 : 1));
    const bool ok = ::connect(fd, reinterpret_cast<sockaddr*>(&addr), len) == 0;
    ::close(fd);
    return ok;
}

bool ConnectTcp(const std::string& host, int port) {
    addrinfo hints{};
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* list = nullptr;
    if (::getaddrinfo(host.c_str(), std::to_string(port).c_str(), &hints, &list) != 0) return false;
    bool ok = false;
    for (addrinfo* a = list; a && !ok; a = a->ai_next) {
        const int fd = ::socket(a->ai_family, a->ai_socktype | SOCK_CLOEXEC | SOCK_NONBLOCK, a->ai_protocol);
        if (fd < 0) continue;
        if (::connect(fd, a->ai_addr, a->ai_addrlen) == 0) {
            ok = true;
        } else if (errno == EINPROGRESS) {
            pollfd p{fd, POLLOUT, 0};
            int error = 0;
            socklen_t size = sizeof(error);
            ok = ::poll(&p, 1, kConnectTimeoutMs) == 1 &&
                 ::getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &size) == 0 && error == 0;
        }
        ::close(fd);
    }
    ::freeaddrinfo(list);
    return ok;
}

}  // namespace

bool DisplayReachable() {
    const char* env = std::getenv("DISPLAY");
    if (!env || !*env) return false;
    const std::string display(env);
    const size_t colon = display.rfind(':');
    if (colon == std::string::npos) return false;
    const std::string host = display.substr(0, colon);
    const std::string rest = display.substr(colon + 1);
    char* end = nullptr;
    const long number = std::strtol(rest.c_str(), &end, 10);
    if (end == rest.c_str() || number < 0 || number > 65535 - kX11TcpBase) return false;
    if (host.empty() || host == "unix") {
        const std::string socket = "/tmp/.X11-unix/X" + std::to_string(number);
        return ConnectUnix(socket, true) || ConnectUnix(socket, false);
    }
    return ConnectTcp(host, kX11TcpBase + static_cast<int>(number));
}

}  // namespace pixmill::platform
