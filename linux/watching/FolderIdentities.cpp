#include "linux/watching/FolderIdentities.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>

#include "linux/queues/Thread.h"

namespace glintmark::platform {

namespace {

constexpr const char* threadName = "folder-look";
constexpr std::size_t stackBytes = std::size_t{64} * 1024;
constexpr std::chrono::milliseconds maximumWait{100};

/// Shared with the thread.
struct Look {
    std::mutex mutex;  // guards all below
    std::condition_variable changed;
    std::vector<std::optional<FolderIdentity>> found;
    std::size_t done = 0;
};

FolderIdentity identityOf(const std::string& folder) {
    struct statx status {};
    if (::statx(AT_FDCWD, folder.c_str(), AT_NO_AUTOMOUNT, STATX_INO, &status) != 0) {
        return {};
    }
    return {status.stx_dev_major, status.stx_dev_minor, status.stx_ino};
}

}  // namespace

std::vector<std::optional<FolderIdentity>> folderIdentities(
    const std::vector<std::string>& folders) {
    const auto look = std::make_shared<Look>();
    look->found.resize(folders.size());
    const auto lookAtAll = [look, folders] {
        for (std::size_t i = 0; i < folders.size(); ++i) {
            const auto identity = identityOf(folders[i]);
            const std::lock_guard lock(look->mutex);
            look->found[i] = identity;
            ++look->done;
            look->changed.notify_one();
        }
    };
    std::unique_lock lock(look->mutex);
    if (Thread::startDetached(threadName, stackBytes, lookAtAll)) {
        look->changed.wait_for(lock, maximumWait, [&] { return look->done == folders.size(); });
    }
    return look->found;
}

}  // namespace glintmark::platform
