#include "linux/files/FileURI.h"

#include <glib.h>

#include <algorithm>
#include <cstdlib>
#include <memory>

namespace glintmark::platform {

namespace {

// What each library leaves bare in a path besides letters and digits.
constexpr std::string_view glibBare = "!$&'()*+,-.:=@_~/";
constexpr std::string_view qtBare = "!$&'()*+,-.:=@_~/;[]";

struct Free {
    void operator()(char* text) const { free(text); }  // NOLINT(cppcoreguidelines-no-malloc)
};
using CString = std::unique_ptr<char, Free>;

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

/// GLib's g_canonicalize_filename for an absolute path: the path's text alone decides.
std::string simplified(std::string_view path) {
    const std::unique_ptr<char, decltype(&g_free)> simple(
        g_canonicalize_filename(std::string(path).c_str(), "/"), &g_free);
    return simple.get();
}

}  // namespace

std::string glibFileURI(std::string_view path) { return escapedURI(simplified(path), glibBare); }

std::string qtFileURI(std::string_view path) { return escapedURI(simplified(path), qtBare); }

std::vector<std::string> fileURIs(const std::string& path) {
    std::vector<std::string> uris{glibFileURI(path)};
    if (const CString canonical(realpath(path.c_str(), nullptr)); canonical != nullptr) {
        uris.push_back(glibFileURI(canonical.get()));
        uris.push_back(qtFileURI(canonical.get()));
    }
    std::vector<std::string> distinct;
    for (auto& uri : uris) {
        if (std::find(distinct.begin(), distinct.end(), uri) == distinct.end()) {
            distinct.push_back(std::move(uri));
        }
    }
    return distinct;
}

std::string pathOfLocation(const std::string& location) {
    if (location.starts_with('/')) {
        return location;
    }
    const std::unique_ptr<char, decltype(&g_free)> path(
        g_filename_from_uri(location.c_str(), nullptr, nullptr), &g_free);
    return path == nullptr ? std::string() : std::string(path.get());
}

}  // namespace glintmark::platform
