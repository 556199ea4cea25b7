#pragma once

#include <string>

namespace glintmark::platform {

/// If the program runs from its build tree, registers the type of link files and their thumbnailer
/// below `dataHome` ($XDG_DATA_HOME). A build tree has their descriptions in "filetype" in
/// `programFolder`; an installation has them in the system's folders. Reports a change on standard
/// error. True if they are registered below `dataHome` now. Registers nothing, and says why, if
/// other users can replace the thumbnailer, which services would run for this user.
bool registerFileTypeOfBuildTree(const std::string& programFolder, const std::string& dataHome);

/// Removes the entry of this build tree's thumbnailer, since its path may lead to another program
/// later. The type stays: it names no program. For the end of the program.
void removeThumbnailerOfBuildTree(const std::string& programFolder, const std::string& dataHome);

}  // namespace glintmark::platform
