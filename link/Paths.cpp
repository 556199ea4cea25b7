#include "link/Paths.h"

#include <glib.h>

#include "linux/files/FileURI.h"
#include "linux/glib/GLibHandles.h"

namespace glintmark::link {

std::string absolutePath(const std::string& argument) {
    const std::string path =
        argument.starts_with("file:") ? platform::pathOfLocation(argument) : argument;
    const platform::GStringHandle absolute(g_canonicalize_filename(path.c_str(), nullptr));
    return absolute.get();
}

}  // namespace glintmark::link
