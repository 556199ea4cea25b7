#include "linux/workspace/IconSweep.h"

#include <fts.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <memory>
#include <utility>

#include "base/system/LinkFile.h"
#include "linux/files/FileURI.h"
#include "linux/workspace/IconMetadata.h"

namespace glintmark::platform {

namespace {

using std::chrono::seconds;

constexpr seconds firstDelay{600};
constexpr seconds period{24 * 3600};
constexpr std::size_t stackBytes = std::size_t{512} * 1024;

bool isFolder(const std::string& path) {
    struct stat status {};
    return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

/// True if in doubt.
bool exists(const std::string& path) {
    struct stat status {};
    return lstat(path.c_str(), &status) == 0 || (errno != ENOENT && errno != ENOTDIR);
}

/// True if reading a file or folder failed with an error that does not show whether it uses an
/// icon. A file that the user may not read shows no icon, so permission errors count as an answer.
bool isInconclusive(int error) {
    constexpr std::array answers = {0,       ENODATA, ENOTSUP, ERANGE, ENOENT,
                                    ENOTDIR, EACCES,  EPERM,   ELOOP};
    return std::find(answers.begin(), answers.end(), error) == answers.end();
}

/// True if the recorded file still has the icon or cannot be read now. A disk that is not mounted
/// today may be mounted tomorrow.
bool mayHaveIcon(const AppliedIcon& applied, const std::string& iconURI) {
    if (!exists(applied.path)) {
        return !isFolder(applied.path.substr(0, applied.path.rfind('/') + 1));
    }
    errno = 0;
    if (const auto name = readIconName(applied.path)) {
        return *name == applied.name;
    }
    return isInconclusive(errno) || IconMetadata::readThroughGIO(applied.path) == iconURI;
}

struct CloseTree {
    void operator()(FTS* tree) const { fts_close(tree); }
};
using Tree = std::unique_ptr<FTS, CloseTree>;

/// Lets everything else use processor and disk first (setpriority(2), ioprio_set(2)).
void lowerPriority() {
    constexpr int ioprioWhoProcess = 1;
    constexpr int ioprioIdle = 3 << 13;
    constexpr int lowest = 19;
    setpriority(PRIO_PROCESS, static_cast<id_t>(gettid()), lowest);
    syscall(SYS_ioprio_set, ioprioWhoProcess, 0, ioprioIdle);
}

}  // namespace

void IconSweep::run(std::time_t now, const std::atomic<bool>& stopping) const {
    const std::time_t before = now - std::chrono::duration_cast<seconds>(unusedFor).count();
    std::set<std::string> candidates = store_.unusedSince(before);
    keepRecordedIcons(candidates);
    keepIconsBelowHome(candidates, stopping);
    if (stopping) {
        return;
    }
    for (const auto& name : candidates) {
        store_.removeUnused(name, before);
    }
    if (!candidates.empty()) {
        applied_.filter(
            [&](const AppliedIcon& entry) { return exists(store_.pathOf(entry.name)); });
    }
    store_.removeUnfinished(now);
}

void IconSweep::makeRoom(const std::atomic<bool>& stopping) const {
    const auto pictures = store_.byLastUse();
    std::set<std::string> unused;
    for (const auto& picture : pictures) {
        unused.insert(picture.name);
    }
    keepRecordedIcons(unused);
    keepIconsBelowHome(unused, stopping);
    if (stopping) {
        return;
    }
    removeLeastRecentlyUsed(pictures, [&](const auto& name) { return unused.contains(name); });
    removeLeastRecentlyUsed(pictures, [](const auto&) { return true; });
    applied_.filter([&](const AppliedIcon& entry) { return exists(store_.pathOf(entry.name)); });
}

void IconSweep::removeLeastRecentlyUsed(
    const std::vector<IconStore::Picture>& pictures,
    const std::function<bool(const std::string&)>& mayGo) const {
    for (const auto& picture : pictures) {
        if (store_.isRelieved()) {
            return;
        }
        if (mayGo(picture.name)) {
            store_.removeUnused(picture.name, picture.lastUse.tv_sec + 1);
        }
    }
}

void IconSweep::keepRecordedIcons(std::set<std::string>& candidates) const {
    if (candidates.empty()) {
        return;
    }
    const auto entries = applied_.all();
    if (!entries) {
        candidates.clear();
        return;
    }
    for (const auto& entry : *entries) {
        if (candidates.contains(entry.name) &&
            mayHaveIcon(entry, glibFileURI(store_.pathOf(entry.name)))) {
            candidates.erase(entry.name);
        }
    }
}

void IconSweep::keepIconsBelowHome(std::set<std::string>& candidates,
                                   const std::atomic<bool>& stopping) const {
    if (candidates.empty()) {
        return;
    }
    std::string root = home_;
    char* roots[] = {root.data(), nullptr};
    // FTS_XDEV: other file systems below the home folder may be remote and hang.
    constexpr int options = FTS_PHYSICAL | FTS_NOCHDIR | FTS_XDEV;
    const Tree tree(isFolder(home_) ? fts_open(roots, options, nullptr) : nullptr);
    while (const FTSENT* entry = tree ? fts_read(tree.get()) : nullptr) {
        if (stopping || candidates.empty()) {
            return;
        }
        const std::string_view name(entry->fts_name, entry->fts_namelen);
        const bool isUnread = entry->fts_info == FTS_DNR || entry->fts_info == FTS_ERR;
        errno = isUnread ? entry->fts_errno : 0;
        if (entry->fts_info != FTS_DP && name.find(linkFileSuffix) != std::string_view::npos) {
            if (const auto icon = readIconName(entry->fts_path)) {
                candidates.erase(*icon);
            }
        }
        if (isInconclusive(errno)) {
            candidates.clear();
            return;
        }
    }
    const bool isWholeTree = tree != nullptr && errno == 0;  // fts_read(3) sets it to 0 at the end
    if (!isWholeTree) {
        candidates.clear();
    }
}

IconSweeper::IconSweeper(IconSweep sweep, std::chrono::milliseconds roomTimeout)
    : sweep_(std::move(sweep)), roomTimeout_(roomTimeout) {
    scheduleIn(firstDelay);
}

IconSweeper::~IconSweeper() { stopping_ = true; }

void IconSweeper::sweepNow() {
    const std::scoped_lock lock(mutex_);
    start([this] {
        lowerPriority();
        sweep_.run(std::time(nullptr), stopping_);
    });
}

void IconSweeper::makeRoomFor(std::uint64_t bytes) {
    const auto deadline = std::chrono::steady_clock::now() + roomTimeout_;
    std::unique_lock lock(mutex_);
    if (isOverdue_ || !awaitEnd(lock, deadline)) {
        return;
    }
    lock.unlock();
    if (sweep_.hasRoomFor(bytes)) {
        return;  // made by the sweep that has just ended
    }
    lock.lock();
    start([this] { sweep_.makeRoom(stopping_); });
    awaitEnd(lock, deadline);
}

/// False if the running sweep did not end before `deadline`.
bool IconSweeper::awaitEnd(std::unique_lock<std::mutex>& lock,
                           std::chrono::steady_clock::time_point deadline) {
    const bool hasEnded = ended_.wait_until(lock, deadline, [this] { return !isRunning_; });
    isOverdue_ = !hasEnded;
    return hasEnded;
}

/// Runs `work` on a new thread, unless another one runs. Call with the lock.
void IconSweeper::start(std::function<void()> work) {
    if (isRunning_) {
        return;
    }
    thread_ = Thread::start("icon-sweep", stackBytes, [this, work = std::move(work)] {
        work();
        const std::scoped_lock lock(mutex_);
        isRunning_ = false;
        isOverdue_ = false;
        ended_.notify_all();
    });
    isRunning_ = thread_.has_value();
}

void IconSweeper::scheduleIn(seconds delay) {
    const auto fire = [](gpointer data) -> gboolean {
        auto* self = static_cast<IconSweeper*>(data);
        self->timer_.forget();
        self->sweepNow();
        self->scheduleIn(period);
        return G_SOURCE_REMOVE;
    };
    timer_ = GSourceId(g_timeout_add_seconds(static_cast<guint>(delay.count()), fire, this));
}

}  // namespace glintmark::platform
