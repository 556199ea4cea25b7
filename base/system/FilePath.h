#pragma once

#include <string>
#include <string_view>

namespace glintmark {

/// `directory` and `name` with exactly one "/" between them.
std::string appendPathComponent(std::string_view directory, std::string_view name);

}  // namespace glintmark
