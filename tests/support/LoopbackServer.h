#pragma once
// A cpp-httplib server of the test's own, listening on a free loopback port
// in a thread of its own for as long as the object lives. Test programs that
// include this link cpp-httplib.
#include <arpa/inet.h>
#include <httplib.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <stdexcept>
#include <string>
#include <thread>

namespace nvktest {

class LoopbackServer {
public:
    /// `server` carries the handlers; it must outlive this object.
    explicit LoopbackServer(httplib::Server& server) : server_(server) {
        port_ = server_.bind_to_any_port("127.0.0.1");
        if (port_ <= 0) throw std::runtime_error("no free loopback port");
        thread_ = std::thread([this] { server_.listen_after_bind(); });
    }
    ~LoopbackServer() {
        // stop() only acts on a running server: wait for the loop to start.
        while (!server_.is_running()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
        server_.stop();
        thread_.join();
    }
    LoopbackServer(const LoopbackServer&) = delete;
    LoopbackServer& operator=(const LoopbackServer&) = delete;

    int port() const { return port_; }
    /// "http://127.0.0.1:PORT".
    std::string url() const { return "http://127.0.0.1:" + std::to_string(port_); }

private:
    httplib::Server& server_;
    int port_ = 0;
    std::thread thread_;
};

/// A loopback port that nothing listens on (bound, then closed again).
inline int closedLoopbackPort() {
    int fd = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    if (fd < 0 || ::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
        ::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length) != 0)
        throw std::runtime_error("no free loopback port");
    ::close(fd);
    return ntohs(address.sin_port);
}

}  // namespace nvktest
