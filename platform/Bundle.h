#pragma once

#include <optional>
#include <string>

namespace glintmark::platform {

/// What is built into the program: its information dictionary and its texts in the user's
/// languages. May be called from any thread.
class Bundle {
public:
    virtual ~Bundle() = default;

    /// Absent when there is no such key or its value is not a string.
    virtual std::optional<std::string> infoString(const std::string& key) = 0;

    /// The text for `key` in the first of the user's languages that has one; `key` itself when
    /// none has.
    virtual std::string localizedString(const std::string& key) = 0;
};

}  // namespace glintmark::platform
