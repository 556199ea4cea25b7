#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <vector>

namespace glintmark::platform {

/// True if the folder can be listed. May wait for its file system without end. Any thread.
bool isFolderReadable(const std::string& folder);

/// Knows which folders are missing or cannot be read, as of the last check. A check never waits:
/// each folder is looked at on a thread of its own, at most 16 at once. Main thread only.
class FolderChecks {
public:
    using Look = std::function<bool(const std::string& folder)>;  ///< Called on other threads.

    /// `changed` runs from the main loop whenever another folder is or is no longer unreadable.
    /// `patience`: what a file system may need to answer.
    explicit FolderChecks(std::function<void()> changed, Look look = isFolderReadable,
                          std::chrono::milliseconds patience = std::chrono::seconds(1));
    ~FolderChecks();  ///< Does not wait for its threads.
    FolderChecks(const FolderChecks&) = delete;
    FolderChecks& operator=(const FolderChecks&) = delete;

    /// Begins to look at `folders` and forgets all others. A folder that an earlier check has asked
    /// for longer than the patience counts as unreadable until it answers.
    void check(const std::vector<std::string>& folders);

    bool isUnreadable(const std::string& folder) const;

private:
    struct State;

    std::shared_ptr<State> state_;  ///< Threads hold it weakly.
};

}  // namespace glintmark::platform
