#pragma once

#include <chrono>
#include <cstddef>
#include <mutex>
#include <unordered_set>

#include <httplib.h>

namespace examples::viewer {

/// An HTTP server that no client can fill or hold up.
///
/// Each request, its head included, has a size and a time within which it must arrive, and each answer a time
/// within which it must be taken; the connection is closed otherwise. Every connection has a thread, up to a
/// fixed number of them; more have to wait for one that is closed. `finish` closes all connections at once.
class LimitedServer : public httplib::Server {
public:
    struct Limits {
        std::size_t requestBytes = 32 * 1024;
        std::size_t connections = 96;
        std::chrono::milliseconds idle{5'000};     ///< between two requests
        std::chrono::milliseconds request{5'000};  ///< for a request to arrive
        std::chrono::milliseconds answer{30'000};  ///< for an answer to be taken
    };

    LimitedServer();
    explicit LimitedServer(const Limits& limits);

    /// Ends `listen_after_bind` and all connections.
    void finish();

private:
    bool process_and_close_socket(socket_t socket) override;
    bool enter(socket_t socket);
    void leave(socket_t socket);

    Limits limits_;
    std::mutex mutex_;
    bool finished_ = false;
    std::unordered_set<socket_t> open_;
};

}  // namespace examples::viewer
