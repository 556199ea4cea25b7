#pragma once

#include <optional>
#include <string>
#include <vector>

namespace glintmark::platform {

/// The user's settings, kept across runs. Main thread only.
class UserDefaults {
public:
    virtual ~UserDefaults() = default;

    /// Absent when there is no such key or its value is not a list made only of strings.
    virtual std::optional<std::vector<std::string>> stringArray(const std::string& key) = 0;

    /// Stores a value, replacing one of any type. What was stored before stays whole when the
    /// system fails meanwhile; the new value then holds for this run only.
    virtual void set(const std::string& key, const std::vector<std::string>& value) = 0;
};

}  // namespace glintmark::platform
