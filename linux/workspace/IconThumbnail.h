#pragma once

#include <string>

namespace glintmark::platform {

class IconStore;

/// Writes the stored icon of the file at `location` (a path or a "file" URI) as a PNG file at
/// `output`, at most `edge` pixels wide and high. Decodes nothing but the program's own pictures.
/// Fills a file that exists: the service that made it may read it through its own descriptor.
/// False when the file has no icon, its picture is gone or broken, or nothing can be written.
bool writeIconThumbnail(const IconStore& store, const std::string& location,
                        const std::string& output, int edge);

}  // namespace glintmark::platform
