#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace glintmark::platform {

/// The file attribute `metadata::custom-icon`, which GVfs keeps in its own database. The daemon of
/// GVfs may be absent, slow or stuck. A separate thread calls it, one file after the other, and
/// ends when no file waits.
///
/// Main thread only, default main context.
class IconMetadata {
public:
    /// Stores the attribute and returns true on success. May block; called on another thread.
    using Writer = std::function<bool(const std::string& path, const std::string& iconURI)>;
    using Done = std::function<void(bool written)>;

    static constexpr std::chrono::milliseconds defaultAnswerTimeout{2000};

    /// A file without an answer after `answerTimeout` counts as not written.
    explicit IconMetadata(Writer writer = &IconMetadata::writeThroughGIO,
                          std::chrono::milliseconds answerTimeout = defaultAnswerTimeout);
    ~IconMetadata();  ///< Pending calls of `done` are dropped.
    IconMetadata(const IconMetadata&) = delete;
    IconMetadata& operator=(const IconMetadata&) = delete;

    /// Sets the attribute and calls `done` exactly once: before `set` returns if the answer comes
    /// within `blockFor`, else later from the main loop. While another answer is overdue, `set`
    /// does not block.
    void set(const std::string& path, const std::string& iconURI,
             std::chrono::milliseconds blockFor, Done done);

    /// True if no call of `done` is left to come.
    bool isIdle() const { return pending_.empty(); }

    static bool writeThroughGIO(const std::string& path, const std::string& iconURI);

    /// The attribute of the file at `path`; absent when it has none. Blocks; any thread.
    static std::optional<std::string> readThroughGIO(const std::string& path);

private:
    struct Worker;
    struct Request;
    struct Pending;

    void collectAnswers();
    void giveUp(const Request* request);

    std::chrono::milliseconds answerTimeout_;
    std::shared_ptr<Worker> worker_;
    std::vector<std::unique_ptr<Pending>> pending_;
    bool isOverdue_ = false;
};

}  // namespace glintmark::platform
