#pragma once

#include <string>

namespace glintmark {

/// The text for `key` in the user's language, else `key` itself. Any thread.
std::string L(const std::string& key);

}  // namespace glintmark
