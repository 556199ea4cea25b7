#pragma once

#include <span>
#include <string>

namespace glintmark {

/// `texts` as the log shows them: `["a", "b"]`, with a backslash before each double quote and
/// backslash inside a text.
std::string listDescription(std::span<const std::string> texts);

}  // namespace glintmark
