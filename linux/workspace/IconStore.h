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

    /// The name under which `png` is stored now; absent when it cannot be. A picture that is there
    /// already is only marked as used now.
    std::optional<std::string> put(std::string_view png);

    std::string pathOf(std::string_view name) const;
    const std::string& folder() const { return folder_; }

    /// Whether `text` has the form of a name, so that a path made of it stays in the folder.
    static bool isName(std::string_view text);

    /// The names of the pictures that were neither read nor marked as used since `time` (seconds
    /// since 1970).
    std::set<std::string> unusedSince(std::time_t time) const;

    /// Removes a picture, unless it was used since `time` after all.
    void removeUnused(const std::string& name, std::time_t time);

    /// Removes what a crash in the middle of writing left behind more than a day before `now`.
    void removeUnfinished(std::time_t now);

private:
    std::string folder_;
    std::mutex mutex_;  ///< Held while a picture is marked as used or removed.
};

/// Which stored picture is the icon of a file, kept with the file in its extended attribute
/// `user.glintmark.icon`, so that it moves with it.
bool writeIconName(const std::string& path, const std::string& name);

/// Absent when the file has no such attribute, or one that is no name.
std::optional<std::string> readIconName(const std::string& path);

}  // namespace glintmark::platform
