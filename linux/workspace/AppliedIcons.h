#pragma once

#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace glintmark::platform {

/// A file that was given the stored icon `name`.
struct AppliedIcon {
    std::string name;
    std::string path;
};

/// Which file was given which icon: `<data home>/glintmark/applied`, one line per event with the
/// icon's name, a blank and the file's URI. Any thread.
class AppliedIcons {
public:
    explicit AppliedIcons(const std::string& dataHome) : file_(dataHome + "/glintmark/applied") {}

    /// Adds a line, for which the folder must be there. Losing one costs nothing but that the
    /// sweep has to find the file by itself.
    void add(const AppliedIcon& applied);

    /// The latest icon of each file, oldest first. Lines that are no such lines are left out.
    /// Absent when the list is there but cannot be read.
    std::optional<std::vector<AppliedIcon>> all() const;

    /// Writes the list anew with the entries that `keep` holds for.
    void reduce(const std::function<bool(const AppliedIcon&)>& keep);

private:
    std::optional<std::vector<AppliedIcon>> read() const;

    std::string file_;
    mutable std::mutex mutex_;  ///< Guards the file.
};

}  // namespace glintmark::platform
