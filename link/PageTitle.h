#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "base/url/URL.h"

namespace glintmark::link {

/// The text of the first title element of a page, with character references resolved (HTML
/// standard, section 13.5) and white space collapsed. The page is UTF-8, or in the encoding that it
/// declares in its first kilobyte. Absent if there is no title or it is empty. Takes time in
/// proportion to the page.
std::optional<std::string> titleInPage(std::string_view page);

/// Asks for the page at `url` and calls `completion` once, on any thread, with its title. Absent if
/// the answer is no success.
void fetchTitle(const URL& url, std::function<void(std::optional<std::string> title)> completion);

/// `text` with its HTML character references resolved: all numbers and the names of HTML 4. Other
/// names stay as they are.
std::string withoutReferences(std::string_view text);

/// `title` as the name of a file, at most `maximumBytes` long in whole characters: without slashes,
/// control characters, marks that change the direction of writing, and dots at its begin. May be
/// empty.
std::string fileNameFrom(std::string_view title, std::size_t maximumBytes);

}  // namespace glintmark::link
