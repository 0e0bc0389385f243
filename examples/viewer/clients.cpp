#include "clients.h"

#include <cstdio>
#include <random>
#include <utility>

namespace examples::viewer {

namespace {

/// 128 random bits as text.
std::string randomName() {
    std::random_device source;
    std::string name;
    for (int word = 0; word < 4; ++word) {
        char digits[9];
        std::snprintf(digits, sizeof digits, "%08x", source());
        name += digits;
    }
    return name;
}

}  // namespace

Client::Client(const ombrix::core::Octree& tree) : selection(tree) {
    constexpr float noFlicker = 0.1f;
    selection.setHysteresis(noFlicker);
    selection.setStrict(true);
}

Clients::Clients(const ombrix::core::Octree& tree, std::size_t most, Clock::duration expiry,
                 std::function<Clock::time_point()> now)
    : tree_(tree), most_(most), expiry_(expiry), now_(std::move(now)) {}

std::string Clients::open() {
    const std::lock_guard lock(mutex_);
    forgetSilent();
    if (entries_.size() >= most_)
        return {};
    std::string name = randomName();
    entries_[name] = {std::make_shared<Client>(tree_), now_()};
    return name;
}

std::shared_ptr<Client> Clients::find(const std::string& name) {
    const std::lock_guard lock(mutex_);
    forgetSilent();
    const auto found = entries_.find(name);
    if (found == entries_.end())
        return nullptr;
    found->second.heard = now_();
    return found->second.client;
}

void Clients::close(const std::string& name) {
    const std::lock_guard lock(mutex_);
    entries_.erase(name);
}

std::size_t Clients::size() {
    const std::lock_guard lock(mutex_);
    forgetSilent();
    return entries_.size();
}

void Clients::forgetSilent() {
    const Clock::time_point now = now_();
    std::erase_if(entries_, [&](const auto& entry) { return now - entry.second.heard > expiry_; });
}

}  // namespace examples::viewer
