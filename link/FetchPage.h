#pragma once

#include <string>

#include "link/FetchReport.h"

namespace glintmark::link {

/// A fetch for `link` as one HTML page without anything from outside: every candidate with its
/// picture, the parts of its score, and why the winner is the winner; then every request.
std::string asPage(const FetchReport& report, const std::string& link);

}  // namespace glintmark::link
