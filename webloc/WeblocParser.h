#pragma once

#include <optional>
#include <string>

#include "base/url/URL.h"
#include "platform/FileIdentity.h"

namespace glintmark {

/// Reads link files. Keeps no state; any thread.
class WeblocParser {
public:
    WeblocParser() = delete;

    /// The string under "URL" in the property list at `file` (a file URL), exactly as stored and
    /// not checked. Absent, with one line in the log, when the file cannot be read or has no such
    /// string. Unless null, `identity` receives which file was read.
    static std::optional<std::string> extractURL(const URL& file,
                                                 platform::FileIdentity* identity = nullptr);
};

}  // namespace glintmark
