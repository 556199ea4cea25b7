#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace glintmark::platform {

/// The file attribute `metadata::custom-icon`, which GVfs keeps in a database of its own. Its
/// daemon may be absent, slow or stuck, so a thread apart asks it, one file after the other; the
/// thread is there only while something is to be asked.
///
/// Main thread only, default main context.
class IconMetadata {
public:
    /// Stores the attribute, however long it takes; whether it could. Called on another thread.
    using Writer = std::function<bool(const std::string& path, const std::string& iconURI)>;
    using Done = std::function<void(bool written)>;

    static constexpr std::chrono::milliseconds defaultLimit{2000};

    /// After `limit` a file goes on without an answer.
    explicit IconMetadata(Writer writer = &IconMetadata::writeThroughGIO,
                          std::chrono::milliseconds limit = defaultLimit);
    ~IconMetadata();  ///< Calls that are still owed are not made any more.
    IconMetadata(const IconMetadata&) = delete;
    IconMetadata& operator=(const IconMetadata&) = delete;

    /// Calls `done` exactly once: within the call when the answer comes within `patience`, else
    /// later, with false when it has not come within the limit. While an answer is overdue,
    /// nothing is waited for within the call.
    void set(const std::string& path, const std::string& iconURI,
             std::chrono::milliseconds patience, Done done);

    static bool writeThroughGIO(const std::string& path, const std::string& iconURI);

    /// The attribute of the file at `path`; absent when it has none. Blocks; any thread.
    static std::optional<std::string> readThroughGIO(const std::string& path);

private:
    struct Worker;
    struct Request;
    struct Owed;

    void collectAnswers();
    void giveUp(const Request* request);

    std::chrono::milliseconds limit_;
    std::shared_ptr<Worker> worker_;
    std::vector<std::unique_ptr<Owed>> owed_;
    bool overdue_ = false;
};

}  // namespace glintmark::platform
