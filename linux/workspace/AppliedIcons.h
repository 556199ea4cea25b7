#pragma once

#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace glintmark::platform {

/// A file whose icon was set to the stored icon `name`.
struct AppliedIcon {
    std::string name;
    std::string path;
};

/// The record of which file got which icon: `<data home>/glintmark/applied`, one line for each icon
/// that was set: its name, a space, and the file's URI. Any thread. Two processes may use it at
/// the same time; neither loses a line of the other.
class AppliedIcons {
public:
    explicit AppliedIcons(const std::string& dataHome) : file_(dataHome + "/glintmark/applied") {}

    /// Adds a line if the folder exists. If the line cannot be written, the sweep still finds the
    /// file below the home folder.
    void add(const AppliedIcon& applied);

    /// The latest icon of each file, oldest first. Malformed lines are skipped. Absent when the
    /// record exists but cannot be read.
    std::optional<std::vector<AppliedIcon>> all() const;

    /// Rewrites the record with the entries for which `keep` returns true.
    void filter(const std::function<bool(const AppliedIcon&)>& keep);

private:
    std::optional<std::vector<AppliedIcon>> read() const;

    std::string file_;
    mutable std::mutex mutex_;  ///< Guards the file.
};

}  // namespace glintmark::platform
