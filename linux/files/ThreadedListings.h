#pragma once

#include <chrono>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <span>
#include <string>

#include "platform/FileManager.h"

namespace glintmark::platform {

/// Which directories have a thread that lists them. A directory has at most one at a time, so a
/// file system that does not answer never costs more threads than it has such directories. Any
/// thread.
class ListingThreads {
public:
    bool enter(const std::string& directory);  ///< False if it has a thread.
    void leave(const std::string& directory);

private:
    std::mutex mutex_;
    std::set<std::string> directories_;
};

/// Lists each directory on a thread of its own, which nobody joins; on the calling thread if the
/// system has no thread left. If an earlier listing of the same directory has not ended, `collect`
/// tries again.
class ThreadedListings : public Listings {
public:
    ThreadedListings(std::shared_ptr<ListingThreads> threads,
                     std::span<const std::string> directories, std::string_view suffix,
                     std::chrono::nanoseconds limit);

    bool collect(const std::string& directory,
                 const std::function<void(std::string_view name)>& visit) override;

private:
    using Clock = std::chrono::steady_clock;
    struct Listing;

    std::shared_ptr<Listing> begin(const std::string& directory);

    const std::shared_ptr<ListingThreads> threads_;
    const std::string suffix_;
    const Clock::time_point deadline_;
    std::map<std::string, std::shared_ptr<Listing>> listings_;  // null: has not begun
};

}  // namespace glintmark::platform
