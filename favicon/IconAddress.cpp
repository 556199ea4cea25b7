#include "favicon/IconAddress.h"

#include <algorithm>
#include <charconv>
#include <system_error>

#include "base/text/TextCase.h"

namespace glintmark {

bool containsIgnoringCase(std::string_view text, std::string_view word) {
    return std::search(text.begin(), text.end(), word.begin(), word.end(),
                       [](char a, char b) { return lowercasedASCII(a) == b; }) != text.end();
}

bool endsWithSVG(std::string_view address) {
    constexpr std::string_view ending = ".svg";
    if (address.size() < ending.size()) {
        return false;
    }
    // No character outside ASCII has one of these letters as its lower case.
    return std::ranges::equal(address.substr(address.size() - ending.size()), ending, {},
                              [](char c) { return lowercasedASCII(c); });
}

std::optional<std::int64_t> decimalInteger(std::string_view text) {
    if (text.starts_with('+')) {
        text.remove_prefix(1);
        if (text.starts_with('-')) {
            return std::nullopt;
        }
    }
    std::int64_t number = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    if (error != std::errc{} || stop != end) {
        return std::nullopt;
    }
    return number;
}

}  // namespace glintmark
