#include "linux/statusitem/FolderChecks.h"

#include <dirent.h>
#include <glib.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <deque>
#include <map>
#include <utility>

#include "base/system/ReleaseWith.h"
#include "linux/queues/Thread.h"

namespace glintmark::platform {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t maximumThreads = 16;
constexpr std::size_t stackBytes = std::size_t{64} * 1024;

}  // namespace

bool isFolderReadable(const std::string& folder) {
    const std::unique_ptr<DIR, ReleaseWith<closedir>> directory(opendir(folder.c_str()));
    return directory != nullptr && access(folder.c_str(), X_OK) == 0;  // X: its files are read, too
}

/// Used on the main thread only. The threads pass it on to there.
struct FolderChecks::State : std::enable_shared_from_this<FolderChecks::State> {
    State(std::function<void()> onChange, Look lookAt, Clock::duration time)
        : changed(std::move(onChange)), look(std::move(lookAt)), patience(time) {}

    void startThreads();
    bool startThread(const std::string& folder);
    void note(const std::string& folder, bool isReadable);
    bool mark(const std::string& folder, bool isReadable);

    std::function<void()> changed;
    Look look;
    Clock::duration patience;
    std::vector<std::string> folders;
    std::deque<std::string> waiting;
    std::map<std::string, Clock::time_point> running;  // and since when
    std::set<std::string> unreadable;
};

FolderChecks::FolderChecks(std::function<void()> changed, Look look,
                           std::chrono::milliseconds patience)
    : state_(std::make_shared<State>(std::move(changed), std::move(look), patience)) {}

FolderChecks::~FolderChecks() = default;

void FolderChecks::check(const std::vector<std::string>& folders) {
    State& state = *state_;
    state.folders = folders;
    std::erase_if(state.unreadable, [&](const std::string& folder) {
        return std::find(folders.begin(), folders.end(), folder) == folders.end();
    });
    state.waiting.clear();
    bool hasChanged = false;
    const auto now = Clock::now();
    for (const std::string& folder : folders) {
        const auto asked = state.running.find(folder);
        if (asked == state.running.end()) {
            state.waiting.push_back(folder);
        } else if (now - asked->second >= state.patience) {
            hasChanged = state.mark(folder, false) || hasChanged;
        }
    }
    state.startThreads();
    if (hasChanged) {
        state.changed();
    }
}

bool FolderChecks::isUnreadable(const std::string& folder) const {
    return state_->unreadable.contains(folder);
}

void FolderChecks::State::startThreads() {
    while (!waiting.empty() && running.size() < maximumThreads && startThread(waiting.front())) {
        running.emplace(std::move(waiting.front()), Clock::now());
        waiting.pop_front();
    }
}

bool FolderChecks::State::startThread(const std::string& folder) {
    struct Result {
        std::weak_ptr<State> state;
        std::string folder;
        bool isReadable;
    };
    return Thread::startDetached(
        "folder-check", stackBytes, [weak = weak_from_this(), look = look, folder] {
            auto result = std::make_unique<Result>(Result{weak, folder, look(folder)});
            const auto deliver = [](gpointer data) -> gboolean {
                const auto* given = static_cast<Result*>(data);
                if (const auto state = given->state.lock()) {
                    state->note(given->folder, given->isReadable);
                }
                return G_SOURCE_REMOVE;
            };
            const auto release = [](gpointer data) { delete static_cast<Result*>(data); };
            g_idle_add_full(G_PRIORITY_DEFAULT, deliver, result.release(), release);
        });
}

void FolderChecks::State::note(const std::string& folder, bool isReadable) {
    running.erase(folder);
    startThreads();
    if (std::find(folders.begin(), folders.end(), folder) != folders.end() &&
        mark(folder, isReadable)) {
        changed();
    }
}

/// True if that changed what is known.
bool FolderChecks::State::mark(const std::string& folder, bool isReadable) {
    return isReadable ? unreadable.erase(folder) > 0 : unreadable.insert(folder).second;
}

}  // namespace glintmark::platform
