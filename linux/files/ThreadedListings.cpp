#include "linux/files/ThreadedListings.h"

#include <condition_variable>
#include <utility>
#include <vector>

#include "linux/files/PosixFileManager.h"
#include "linux/queues/DelayedWork.h"
#include "linux/queues/Thread.h"

namespace glintmark::platform {

namespace {

constexpr const char* threadName = "folder-listing";
constexpr std::size_t stackBytes = std::size_t{64} * 1024;

}  // namespace

bool ListingThreads::enter(const std::string& directory) {
    const std::lock_guard lock(mutex_);
    return directories_.insert(directory).second;
}

void ListingThreads::leave(const std::string& directory) {
    const std::lock_guard lock(mutex_);
    directories_.erase(directory);
}

/// Shared with the thread.
struct ThreadedListings::Listing {
    std::mutex mutex;  // guards all below
    std::condition_variable ended;
    bool hasEnded = false;
    std::vector<std::string> names;
};

ThreadedListings::ThreadedListings(std::shared_ptr<ListingThreads> threads,
                                   std::span<const std::string> directories,
                                   std::string_view suffix, std::chrono::nanoseconds limit)
    : threads_(std::move(threads)), suffix_(suffix), deadline_(DelayedWork::dueAfter(limit)) {
    for (const auto& directory : directories) {
        listings_.emplace(directory, begin(directory));
    }
}

std::shared_ptr<ThreadedListings::Listing> ThreadedListings::begin(const std::string& directory) {
    if (!threads_->enter(directory)) {
        return nullptr;
    }
    auto listing = std::make_shared<Listing>();
    const auto list = [listing, directory, suffix = suffix_, threads = threads_] {
        std::vector<std::string> names;
        PosixFileManager().contentsOfDirectory(directory, [&](std::string_view name) {
            if (name.ends_with(suffix)) {
                names.emplace_back(name);
            }
        });
        threads->leave(directory);
        const std::lock_guard lock(listing->mutex);
        listing->names = std::move(names);
        listing->hasEnded = true;
        listing->ended.notify_one();
    };
    if (!Thread::startDetached(threadName, stackBytes, list)) {
        list();  // better late than without the inventory
    }
    return listing;
}

bool ThreadedListings::collect(const std::string& directory,
                               const std::function<void(std::string_view name)>& visit) {
    const auto found = listings_.find(directory);
    if (found == listings_.end()) {
        return false;
    }
    if (found->second == nullptr) {
        found->second = begin(directory);
    }
    const auto listing = found->second;
    if (listing == nullptr) {
        return false;
    }
    std::unique_lock lock(listing->mutex);
    if (!listing->ended.wait_until(lock, deadline_, [&] { return listing->hasEnded; })) {
        return false;
    }
    const auto names = std::exchange(listing->names, {});
    lock.unlock();
    listings_.erase(found);
    for (const auto& name : names) {
        visit(name);
    }
    return true;
}

}  // namespace glintmark::platform
