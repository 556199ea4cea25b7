#pragma once

#include <cstddef>
#include <deque>
#include <optional>
#include <string>
#include <unordered_map>
#include <utility>

namespace glintmark::platform {

/// Items that wait until their host, and the whole, have a place free. Hosts take turns, so that a
/// host with thousands of items does not hold up the others; items of one host keep their order.
/// For one thread.
template <typename Item>
class HostQueue {
public:
    HostQueue(std::size_t placesPerHost, std::size_t placesInAll)
        : placesPerHost_(placesPerHost), placesInAll_(placesInAll) {}

    void push(const std::string& host, Item item) {
        hosts_[host].waiting.push_back(std::move(item));
        lineUp(host);
    }

    /// For an item that has had a place before.
    void pushFirst(const std::string& host, Item item) {
        hosts_[host].waiting.push_front(std::move(item));
        lineUp(host);
    }

    /// Whether an item has a place.
    bool canTake() const { return taken_ < placesInAll_ && !turns_.empty(); }

    /// The next item that has a place; absent when none has. It keeps the place until `release`.
    std::optional<Item> take() {
        if (!canTake()) {
            return std::nullopt;
        }
        const std::string name = std::move(turns_.front());
        turns_.pop_front();
        Host& host = hosts_[name];
        host.hasTurn = false;
        Item item = std::move(host.waiting.front());
        host.waiting.pop_front();
        ++host.taken;
        ++taken_;
        lineUp(name);
        return item;
    }

    /// Gives back the place of an item taken for `host`.
    void release(const std::string& host) {
        const auto found = hosts_.find(host);
        --found->second.taken;
        --taken_;
        if (found->second.taken == 0 && found->second.waiting.empty()) {
            hosts_.erase(found);
        } else {
            lineUp(host);
        }
    }

    /// No item waits and none holds a place.
    bool empty() const { return hosts_.empty(); }

private:
    struct Host {
        std::deque<Item> waiting;
        std::size_t taken = 0;
        bool hasTurn = false;  ///< It is in `turns_`, once.
    };

    void lineUp(const std::string& name) {
        Host& host = hosts_[name];
        if (!host.hasTurn && !host.waiting.empty() && host.taken < placesPerHost_) {
            host.hasTurn = true;
            turns_.push_back(name);
        }
    }

    std::size_t placesPerHost_;
    std::size_t placesInAll_;
    std::size_t taken_ = 0;
    std::unordered_map<std::string, Host> hosts_;
    std::deque<std::string> turns_;  ///< Hosts that have a place free and an item for it.
};

}  // namespace glintmark::platform
