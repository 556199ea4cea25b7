#pragma once

#include <glib.h>

#include <string>

#include "linux/glib/GLibHandles.h"

namespace glintmark::platform {

/// `bytes` as D-Bus takes a string: UTF-8 without NUL. File names are bytes; what is not UTF-8 in
/// them becomes U+FFFD.
inline std::string dbusText(const std::string& bytes) {
    const std::string text = bytes.substr(0, bytes.find('\0'));
    const GStringHandle valid(g_utf8_make_valid(text.c_str(), -1));
    return valid.get();
}

}  // namespace glintmark::platform
