#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>

#include <ombrix/core/octree/octree.h>
#include <ombrix/core/view/frame_selection.h>

namespace examples::viewer {

/// A page that looks at the cloud.
struct Client {
    explicit Client(const ombrix::core::Octree& tree);

    std::mutex mutex;  ///< of all below
    ombrix::core::FrameSelection selection;
    std::uint64_t answers = 0;  ///< frames answered so far
};

/// The pages that look at the cloud at this time, each with a selection of its own. Safe for several threads.
class Clients {
public:
    using Clock = std::chrono::steady_clock;

    /// @param most    clients at a time.
    /// @param expiry  a client that was not heard of for this long is forgotten.
    /// @param now     the time.
    Clients(const ombrix::core::Octree& tree, std::size_t most, Clock::duration expiry,
            std::function<Clock::time_point()> now = Clock::now);

    /// Makes a client; its name cannot be guessed. Empty when there are too many already.
    [[nodiscard]] std::string open();
    /// The client of that name, who is heard of by this; none when it was closed or forgotten.
    [[nodiscard]] std::shared_ptr<Client> find(const std::string& name);
    void close(const std::string& name);
    /// Number of clients now.
    [[nodiscard]] std::size_t size();

private:
    struct Entry {
        std::shared_ptr<Client> client;
        Clock::time_point heard;
    };

    void forgetSilent();

    const ombrix::core::Octree& tree_;
    std::size_t most_;
    Clock::duration expiry_;
    std::function<Clock::time_point()> now_;
    std::mutex mutex_;
    std::unordered_map<std::string, Entry> entries_;
};

}  // namespace examples::viewer
