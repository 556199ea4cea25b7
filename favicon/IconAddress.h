#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace glintmark {

/// True if `text` contains `word` in any letter case. `word` must be lower-case ASCII.
bool containsIgnoringCase(std::string_view text, std::string_view word);

/// True if an address, as written, ends with ".svg" in any letter case. With a query it does not.
bool endsWithSVG(std::string_view address);

/// The whole of `text` as a decimal integer: ASCII digits after an optional plus or minus sign.
/// Absent if it is not one or does not fit.
std::optional<std::int64_t> decimalInteger(std::string_view text);

}  // namespace glintmark
