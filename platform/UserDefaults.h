#pragma once

#include <optional>
#include <string>
#include <vector>

namespace glintmark::platform {

/// The user's settings, kept across runs. Main thread only.
class UserDefaults {
public:
    virtual ~UserDefaults() = default;

    /// Absent when the key is missing or its value is not a list that contains only strings.
    virtual std::optional<std::vector<std::string>> stringArray(const std::string& key) = 0;

    /// Stores `value` under `key`, in place of any earlier value of any type. If writing fails, the
    /// file keeps its old contents undamaged, and the new value is valid for this run only.
    virtual void set(const std::string& key, const std::vector<std::string>& value) = 0;
};

}  // namespace glintmark::platform
