#pragma once

#include <string_view>

namespace glintmark {

/// Ends the process (SIGABRT) after writing "Fatal error: " and `message` to standard error.
/// For programming errors only: bad input never ends the process.
[[noreturn]] void fatalError(std::string_view message);

}  // namespace glintmark
