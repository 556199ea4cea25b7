#pragma once

#include <cstddef>
#include <deque>
#include <optional>
#include <string>
#include <unordered_map>
#include <utility>

namespace glintmark::platform {

/// A queue that limits how many items run at a time, per host and in total. Hosts take turns, so
/// that a host with thousands of items does not delay the others. Items of one host keep their
/// order. For one thread.
template <typename Item>
class HostQueue {
public:
    HostQueue(std::size_t maximumPerHost, std::size_t maximumInTotal)
        : maximumPerHost_(maximumPerHost), maximumInTotal_(maximumInTotal) {}

    void push(const std::string& host, Item item) {
        hosts_[host].waiting.push_back(std::move(item));
        lineUp(host);
    }

    /// Adds an item that ran before, ahead of the waiting items of its host.
    void pushFront(const std::string& host, Item item) {
        hosts_[host].waiting.push_front(std::move(item));
        lineUp(host);
    }

    /// True if `take` would return an item.
    bool canTake() const { return running_ < maximumInTotal_ && !turns_.empty(); }

    /// The next item that may run; absent if none may. It counts as running until `release`.
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
        ++host.running;
        ++running_;
        lineUp(name);
        return item;
    }

    /// Call when an item that was taken for `host` no longer runs.
    void release(const std::string& host) {
        const auto found = hosts_.find(host);
        --found->second.running;
        --running_;
        if (found->second.running == 0 && found->second.waiting.empty()) {
            hosts_.erase(found);
        } else {
            lineUp(host);
        }
    }

    /// True if no item waits and none runs.
    bool empty() const { return hosts_.empty(); }

private:
    struct Host {
        std::deque<Item> waiting;
        std::size_t running = 0;
        bool hasTurn = false;  ///< True if the host is in `turns_`, where it is at most once.
    };

    void lineUp(const std::string& name) {
        Host& host = hosts_[name];
        if (!host.hasTurn && !host.waiting.empty() && host.running < maximumPerHost_) {
            host.hasTurn = true;
            turns_.push_back(name);
        }
    }

    std::size_t maximumPerHost_;
    std::size_t maximumInTotal_;
    std::size_t running_ = 0;
    std::unordered_map<std::string, Host> hosts_;
    std::deque<std::string> turns_;  ///< Hosts with a waiting item that may run.
};

}  // namespace glintmark::platform
