#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace glintmark::platform {

/// The "file" URI that GLib programs make of an absolute path. As in GIO, the path is first
/// simplified by its text alone ("//", "/./", "/../"). Bytes that are not UTF-8 are escaped one by
/// one.
std::string glibFileURI(std::string_view path);

/// The same URI as Qt programs spell it: ";", "[" and "]" stay unescaped.
std::string qtFileURI(std::string_view path);

/// All spellings by which file managers look for the file at `path`: GLib's of the path as given,
/// then GLib's and Qt's of `place`, the path without symbolic links. Without duplicates.
std::vector<std::string> fileURIs(std::string_view path, std::string_view place);

/// The path of `location`, which is an absolute path or a "file" URI. The host of a URI is ignored.
/// Empty if `location` is neither.
std::string pathOfLocation(const std::string& location);

}  // namespace glintmark::platform
