#include "linux/files/FileURI.h"

#include <glib.h>

#include <algorithm>

#include "linux/glib/GLibHandles.h"

namespace glintmark::platform {

namespace {

// The characters that each library leaves unescaped in a path, in addition to letters and digits.
constexpr std::string_view glibBare = "!$&'()*+,-.:=@_~/";
constexpr std::string_view qtBare = "!$&'()*+,-.:=@_~/;[]";

bool staysBare(char byte, std::string_view bare) {
    return g_ascii_isalnum(byte) || bare.find(byte) != std::string_view::npos;
}

std::string escapedURI(std::string_view path, std::string_view bare) {
    constexpr char digits[] = "0123456789ABCDEF";
    std::string uri = "file://";
    for (const char byte : path) {
        if (staysBare(byte, bare)) {
            uri += byte;
        } else {
            const auto value = static_cast<unsigned char>(byte);
            uri += {'%', digits[value >> 4U], digits[value & 0xFU]};
        }
    }
    return uri;
}

/// Removes "//", "/./" and "/../" from the text. Does not read the file system.
std::string simplified(std::string_view path) {
    const GStringHandle simple(g_canonicalize_filename(std::string(path).c_str(), "/"));
    return simple.get();
}

}  // namespace

std::string glibFileURI(std::string_view path) { return escapedURI(simplified(path), glibBare); }

std::string qtFileURI(std::string_view path) { return escapedURI(simplified(path), qtBare); }

std::vector<std::string> fileURIs(std::string_view path, std::string_view place) {
    std::vector<std::string> distinct;
    for (const auto& uri : {glibFileURI(path), glibFileURI(place), qtFileURI(place)}) {
        if (std::find(distinct.begin(), distinct.end(), uri) == distinct.end()) {
            distinct.push_back(uri);
        }
    }
    return distinct;
}

std::string pathOfLocation(const std::string& location) {
    if (location.starts_with('/')) {
        return location;
    }
    const GStringHandle path(g_filename_from_uri(location.c_str(), nullptr, nullptr));
    return path == nullptr ? std::string() : std::string(path.get());
}

}  // namespace glintmark::platform
