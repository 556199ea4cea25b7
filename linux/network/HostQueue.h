#pragma once

#include <cstddef>
#include <deque>
#include <optional>
#include <string>
#include <unordered_map>
#include <utility>

namespace glintmark::platform {

/// A queue that limits how many items run at a time, per host and in total. Hosts take turns, so
/// that a host with thousands of items does not delay the others. A share of the total is only for
/// hosts that answer and for the first item of a host, so that many hosts which do not answer delay
/// no other. Items of one host keep their order. For one thread.
template <typename Item>
class HostQueue {
public:
    /// `reserved`: the share, part of `maximumInTotal`.
    HostQueue(std::size_t maximumPerHost, std::size_t maximumInTotal, std::size_t reserved = 0)
        : maximumPerHost_(maximumPerHost), maximumInTotal_(maximumInTotal), reserved_(reserved) {}

    void push(const std::string& host, Item item) {
        Host& entry = hosts_[host];
        entry.waiting.push_back(std::move(item));
        lineUp(host, entry);
    }

    /// Adds an item that ran before, ahead of the waiting items of its host.
    void pushFront(const std::string& host, Item item) {
        Host& entry = hosts_[host];
        entry.waiting.push_front(std::move(item));
        lineUp(host, entry);
    }

    /// True if `take` would return an item.
    bool canTake() const {
        return running_ < maximumInTotal_ &&
               (!preferredTurns_.empty() ||
                (!turns_.empty() && running_ + reserved_ < maximumInTotal_));
    }

    /// The next item that may run; absent if none may. It counts as running until `release`.
    std::optional<Item> take() {
        if (!canTake()) {
            return std::nullopt;
        }
        auto& turns = preferredTurns_.empty() ? turns_ : preferredTurns_;
        const std::string name = std::move(turns.front());
        turns.pop_front();
        Host& host = hosts_[name];
        host.line = nullptr;
        Item item = std::move(host.waiting.front());
        host.waiting.pop_front();
        ++host.running;
        ++running_;
        lineUp(name, host);
        return item;
    }

    /// Call when an item that was taken for `host` no longer runs. `hasAnswered`: the host did.
    void release(const std::string& host, bool hasAnswered = false) {
        const auto found = hosts_.find(host);
        --found->second.running;
        --running_;
        found->second.answers = found->second.answers || hasAnswered;
        if (found->second.running == 0 && found->second.waiting.empty()) {
            hosts_.erase(found);
        } else {
            lineUp(host, found->second);
        }
    }

    /// True if no item waits and none runs.
    bool empty() const { return hosts_.empty(); }

private:
    using Line = std::deque<std::string>;

    struct Host {
        std::deque<Item> waiting;
        std::size_t running = 0;
        bool answers = false;
        Line* line = nullptr;  ///< Where the host is, once; null if it is in none.
    };

    void lineUp(const std::string& name, Host& host) {
        const bool isPreferred = reserved_ > 0 && (host.answers || host.running == 0);
        if (host.line == &turns_ && isPreferred) {
            std::erase(turns_, name);
            host.line = nullptr;
        }
        if (host.line == nullptr && !host.waiting.empty() && host.running < maximumPerHost_) {
            host.line = isPreferred ? &preferredTurns_ : &turns_;
            host.line->push_back(name);
        }
    }

    std::size_t maximumPerHost_;
    std::size_t maximumInTotal_;
    std::size_t reserved_;
    std::size_t running_ = 0;
    std::unordered_map<std::string, Host> hosts_;
    Line turns_;           ///< Hosts with a waiting item that may run.
    Line preferredTurns_;  ///< The same, of hosts that may use the reserved share.
};

}  // namespace glintmark::platform
