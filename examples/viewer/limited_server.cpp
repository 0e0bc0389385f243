#include "limited_server.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <string>

#include <arpa/inet.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace examples::viewer {

namespace {

using Clock = std::chrono::steady_clock;

/// Waits until something can be read or written; false when that takes too long.
bool wait(socket_t socket, short events, Clock::time_point until) {
    for (;;) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(until - Clock::now()).count();
        pollfd entry{socket, events, 0};
        const int ready = left > 0 ? ::poll(&entry, 1, static_cast<int>(left)) : 0;
        if (ready > 0)
            return true;
        if (ready == 0 || errno != EINTR)
            return false;
    }
}

/// A connection that counts the bytes and watches the time of each request.
class LimitedStream : public httplib::Stream {
public:
    LimitedStream(socket_t socket, const LimitedServer::Limits& limits) : socket_(socket), limits_(limits) {}

    /// Waits for the first bytes of a request; false when there is no other, or the last one was refused.
    bool nextRequest() {
        if (refused_)
            return false;
        bytesLeft_ = limits_.requestBytes;
        answering_ = false;
        if (begin_ == end_ && !wait(socket_, POLLIN, Clock::now() + limits_.idle))
            return false;
        until_ = Clock::now() + limits_.request;
        return true;
    }

    bool is_readable() const override { return begin_ != end_ || wait(socket_, POLLIN, until_); }
    bool is_writable() const override { return wait(socket_, POLLOUT, until_); }

    ssize_t read(char* to, std::size_t size) override {
        if (begin_ == end_) {
            if (!wait(socket_, POLLIN, until_))
                return -1;
            const ssize_t got = ::recv(socket_, buffer_.data(), buffer_.size(), 0);
            if (got <= 0)
                return got;
            begin_ = 0;
            end_ = static_cast<std::size_t>(got);
        }
        const std::size_t taken = std::min({size, end_ - begin_, bytesLeft_});
        if (taken == 0)
            return -1;
        std::memcpy(to, buffer_.data() + begin_, taken);
        begin_ += taken;
        bytesLeft_ -= taken;
        return static_cast<ssize_t>(taken);
    }

    ssize_t write(const char* from, std::size_t size) override {
        if (!answering_) {
            until_ = Clock::now() + limits_.answer;
            // "HTTP/1.1 4xx": where the next request begins is not sure any more.
            refused_ = size > 9 && from[9] >= '4';
        }
        answering_ = true;
        if (!wait(socket_, POLLOUT, until_))
            return -1;
        return ::send(socket_, from, size, MSG_NOSIGNAL | MSG_DONTWAIT);
    }

    void get_remote_ip_and_port(std::string& ip, int& port) const override { name(::getpeername, ip, port); }
    void get_local_ip_and_port(std::string& ip, int& port) const override { name(::getsockname, ip, port); }
    socket_t socket() const override { return socket_; }

private:
    template <class Lookup>
    void name(Lookup lookup, std::string& ip, int& port) const {
        sockaddr_storage address{};
        socklen_t length = sizeof address;
        std::array<char, NI_MAXHOST> host{};
        std::array<char, NI_MAXSERV> service{};
        auto* const plain = reinterpret_cast<sockaddr*>(&address);
        if (lookup(socket_, plain, &length) != 0 ||
            ::getnameinfo(plain, length, host.data(), host.size(), service.data(), service.size(),
                          NI_NUMERICHOST | NI_NUMERICSERV) != 0)
            return;
        ip = host.data();
        port = std::stoi(service.data());
    }

    socket_t socket_;
    const LimitedServer::Limits& limits_;
    std::array<char, 4096> buffer_;
    std::size_t begin_ = 0;  ///< of what was received and not read
    std::size_t end_ = 0;
    std::size_t bytesLeft_ = 0;
    Clock::time_point until_;
    bool answering_ = false;
    bool refused_ = false;
};

}  // namespace

LimitedServer::LimitedServer() : LimitedServer(Limits{}) {}

LimitedServer::LimitedServer(const Limits& limits) : limits_(limits) {
    new_task_queue = [this] { return new httplib::ThreadPool(limits_.connections); };
    set_payload_max_length(limits_.requestBytes);
    set_tcp_nodelay(true);
    // By default a second server could listen on a port in use.
    set_socket_options([](socket_t socket) {
        const int yes = 1;
        ::setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    });
}

void LimitedServer::finish() {
    stop();
    const std::lock_guard lock(mutex_);
    finished_ = true;
    for (const socket_t socket : open_)
        ::shutdown(socket, SHUT_RDWR);
}

bool LimitedServer::enter(socket_t socket) {
    const std::lock_guard lock(mutex_);
    return !finished_ && open_.insert(socket).second;
}

void LimitedServer::leave(socket_t socket) {
    const std::lock_guard lock(mutex_);
    open_.erase(socket);
    ::shutdown(socket, SHUT_RDWR);
    ::close(socket);
}

bool LimitedServer::process_and_close_socket(socket_t socket) {
    bool good = enter(socket);
    LimitedStream stream(socket, limits_);
    // Answers are compressed at the highest level, which takes longer than any line to this machine.
    const auto askPlain = [](httplib::Request& request) { request.headers.erase("Accept-Encoding"); };
    for (bool closed = false; good && !closed;)
        good = stream.nextRequest() && process_request(stream, false, closed, askPlain);
    leave(socket);
    return good;
}

}  // namespace examples::viewer
