#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace glintmark {

/// Whether `word`, in lower-case ASCII, occurs in `text` in any letter case of ASCII.
bool containsIgnoringCase(std::string_view text, std::string_view word);

/// Whether an address as written ends in ".svg" in any letter case; a query behind it hides it.
bool endsWithSVG(std::string_view address);

/// The decimal integer that `text` is as a whole: ASCII digits, a plus or minus sign allowed.
/// Absent otherwise and when it does not fit.
std::optional<std::int64_t> decimalInteger(std::string_view text);

}  // namespace glintmark
