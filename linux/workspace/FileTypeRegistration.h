#pragma once

#include <string>

namespace glintmark::platform {

/// Registers the type of link files and their thumbnailer below `dataHome` ($XDG_DATA_HOME) when
/// the program runs from where it was built, that is when their descriptions lie in "filetype"
/// in `programFolder`; an installed program has them in the system's folders. Says so on standard
/// error when that changes anything. True when they are registered below `dataHome` now.
bool registerFileTypeOfBuildTree(const std::string& programFolder, const std::string& dataHome);

}  // namespace glintmark::platform
