#include "base/text/LogMessage.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <optional>
#include <string>

#include "tests/fuzz/FuzzTarget.h"

using namespace glintmark;

namespace {

/// The input as a directive that the C library defines and that reads one argument of a known type:
/// flags, digits, a point and digits, one letter.
std::optional<std::string> safeDirective(std::string_view text) {
    constexpr std::string_view flags = "-+ #0";
    constexpr std::string_view digits = "0123456789";
    constexpr std::string_view conversions = "diuxXofFeEgGaA";
    const auto behind = [](std::string_view characters, std::string_view rest, std::size_t most) {
        return std::min({rest.find_first_not_of(characters), rest.size(), most});
    };
    auto rest = text;
    rest.remove_prefix(behind(flags, rest, rest.size()));
    rest.remove_prefix(behind(digits, rest, 3));
    if (rest.starts_with('.')) {
        rest.remove_prefix(1);
        rest.remove_prefix(behind(digits, rest, 3));
    }
    if (rest.size() != 1 || conversions.find(rest.front()) == std::string_view::npos) {
        return std::nullopt;
    }
    return "%" + std::string(text);
}

/// Calls the C library without its compile-time format check, which needs a literal.
std::string printed(const std::string& directive) {
    using Print = int (*)(char*, std::size_t, const char*, ...);
    const Print print = std::snprintf;
    std::array<char, 4096> buffer{};
    constexpr std::string_view floating = "fFeEgGaA";
    if (floating.find(directive.back()) != std::string_view::npos) {
        print(buffer.data(), buffer.size(), directive.c_str(), 0.0);
    } else {
        print(buffer.data(), buffer.size(), directive.c_str(), 0);
    }
    return buffer.data();
}

}  // namespace

/// Rule: a directive prints what the C library prints for zero, and the line of any message stays
/// within the limits.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const auto text = fuzz::text(data, size);
    fuzz::require(formatLogMessage(text).size() <= maximumLogLineBytes);
    if (const auto directive = safeDirective(text)) {
        fuzz::require(formatLogMessage(*directive) == printed(*directive));
    }
    return 0;
}
