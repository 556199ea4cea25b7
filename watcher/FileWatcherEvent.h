#pragma once

#include <cstdint>
#include <string>

namespace glintmark {

/// A ".webloc" file that was not there before.
struct FileWatcherEvent {
    std::string path;         ///< Absolute: the scanned folder's path joined with the file's name.
    std::uint32_t flags = 0;  ///< Always 0 and unused.

    bool operator==(const FileWatcherEvent&) const = default;
};

}  // namespace glintmark
