#pragma once

#include <string>

namespace glintmark {

/// A fresh random identifier (RFC 4122, section 4.4): 36 characters, upper-case digits.
std::string randomUUIDString();

}  // namespace glintmark
