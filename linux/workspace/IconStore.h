#pragma once

#include <cstdint>
#include <ctime>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace glintmark::platform {

/// The pictures that were set as icons, each stored once under the SHA-256 of its bytes:
/// `<data home>/glintmark/icons/<64 lower-case hexadecimal digits>.png`. Any thread.
class IconStore {
public:
    static constexpr std::uint64_t defaultMaximumBytes = 256'000'000;

    /// The files in the folder together never exceed `maximumBytes`.
    explicit IconStore(const std::string& dataHome,
                       std::uint64_t maximumBytes = defaultMaximumBytes);

    /// Stores `png` and returns its name; absent when it cannot be stored, there is no room, or
    /// less than 5 % of the file system is free. A picture that is stored already is only marked as
    /// used now.
    std::optional<std::string> put(std::string_view png);

    /// True if the store has room for one more picture of `bytes`.
    bool hasRoomFor(std::uint64_t bytes);

    /// True if an eighth of the store is free. Removing pictures until then is enough for a while.
    bool isRelieved() { return hasRoomFor(maximumBytes_ / 8); }

    std::string pathOf(std::string_view name) const;
    const std::string& folder() const { return folder_; }

    /// True if `text` has the form of a name. A path made from it stays in the folder.
    static bool isName(std::string_view text);

    /// A stored picture and the time of its last use.
    struct Picture {
        std::string name;
        struct timespec lastUse;  ///< Since 1970.
    };

    /// All pictures, the least recently used first.
    std::vector<Picture> byLastUse() const;

    /// The names of the pictures that were neither read nor marked as used since `time` (seconds
    /// since 1970).
    std::set<std::string> unusedSince(std::time_t time) const;

    /// Removes a picture, unless it was used since `time`.
    void removeUnused(const std::string& name, std::time_t time);

    /// Removes unfinished files, left by a crash while writing, that are more than a day old.
    void removeUnfinished(std::time_t now);

private:
    std::uint64_t bytesStored();
    void removeFile(const std::string& path);

    std::string folder_;
    std::uint64_t maximumBytes_;
    std::optional<std::uint64_t> bytes_;  ///< Of all files; absent until they are counted.
    std::mutex mutex_;  ///< Guards the sum; held while a picture is written, marked, or removed.
};

/// Writes the name of a file's stored icon into the file's extended attribute
/// `user.glintmark.icon`, which moves with the file. Follows symbolic links. False when that fails.
bool writeIconName(const std::string& path, const std::string& name);

/// Absent when the file does not have the attribute, or its value is not a name.
std::optional<std::string> readIconName(const std::string& path);

}  // namespace glintmark::platform
