#pragma once

#include <string>

namespace glintmark::link {

/// The absolute path of an argument, which is a path or a "file" URI. Symbolic links stay.
std::string absolutePath(const std::string& argument);

}  // namespace glintmark::link
