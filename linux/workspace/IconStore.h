#pragma once

#include <ctime>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <string_view>

namespace glintmark::platform {

/// The pictures that were set as icons, each stored once under the SHA-256 of its bytes:
/// `<data home>/glintmark/icons/<64 lower-case hexadecimal digits>.png`. Any thread.
class IconStore {
public:
    explicit IconStore(const std::string& dataHome);

    /// Stores `png` and returns its name; absent when it cannot be stored. A picture that is stored
    /// already is only marked as used now.
    std::optional<std::string> put(std::string_view png);

    std::string pathOf(std::string_view name) const;
    const std::string& folder() const { return folder_; }

    /// True if `text` has the form of a name. A path made from it stays in the folder.
    static bool isName(std::string_view text);

    /// The names of the pictures that were neither read nor marked as used since `time` (seconds
    /// since 1970).
    std::set<std::string> unusedSince(std::time_t time) const;

    /// Removes a picture, unless it was used since `time`.
    void removeUnused(const std::string& name, std::time_t time);

    /// Removes unfinished files, left by a crash while writing, that are more than a day old.
    void removeUnfinished(std::time_t now);

private:
    std::string folder_;
    std::mutex mutex_;  ///< Held while a picture is written, marked as used, or removed.
};

/// Writes the name of a file's stored icon into the file's extended attribute
/// `user.glintmark.icon`, which moves with the file. Follows symbolic links. False when that fails.
bool writeIconName(const std::string& path, const std::string& name);

/// Absent when the file does not have the attribute, or its value is not a name.
std::optional<std::string> readIconName(const std::string& path);

}  // namespace glintmark::platform
