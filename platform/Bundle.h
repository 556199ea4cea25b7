#pragma once

#include <optional>
#include <string>

namespace glintmark::platform {

/// The program's built-in information dictionary and texts. May be called from any thread.
class Bundle {
public:
    virtual ~Bundle() = default;

    /// Absent when the key is missing or its value is not a string.
    virtual std::optional<std::string> infoString(const std::string& key) = 0;

    /// The text for `key` in the first of the user's languages that has one, else `key` itself.
    virtual std::string localizedString(const std::string& key) = 0;
};

}  // namespace glintmark::platform
