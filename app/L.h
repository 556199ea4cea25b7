#pragma once

#include <string>

namespace glintmark {

/// The text for `key` in the user's language; `key` itself when there is none. Any thread.
std::string L(const std::string& key);

}  // namespace glintmark
