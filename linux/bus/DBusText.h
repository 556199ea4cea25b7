#pragma once

#include <glib.h>

#include <string>

#include "linux/glib/GLibHandles.h"

namespace glintmark::platform {

/// Makes a valid D-Bus string, which is UTF-8 without NUL: `bytes` ends at the first NUL, and
/// invalid UTF-8, which file names may contain, becomes U+FFFD.
inline std::string dbusText(const std::string& bytes) {
    const std::string text = bytes.substr(0, bytes.find('\0'));
    const GStringHandle valid(g_utf8_make_valid(text.c_str(), -1));
    return valid.get();
}

}  // namespace glintmark::platform
