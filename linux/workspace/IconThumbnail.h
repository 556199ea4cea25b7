#pragma once

#include <string>

namespace glintmark::platform {

class IconStore;

/// Writes the stored icon of the file at `location` (a path or a "file" URI) as a PNG file to
/// `output`, at most `edge` pixels wide and high. An existing `output` is overwritten in place: the
/// thumbnail service that created it may read it through its own descriptor. Decodes only pictures
/// that the program stored. False when the file has no icon, the picture is missing or broken, or
/// `output` cannot be written.
bool writeIconThumbnail(const IconStore& store, const std::string& location,
                        const std::string& output, int edge);

}  // namespace glintmark::platform
