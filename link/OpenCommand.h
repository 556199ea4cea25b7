#pragma once

#include <functional>
#include <string>
#include <vector>

#include "base/url/URL.h"

namespace glintmark::link {

/// Opens the link of each file with `open`, which returns false if nothing can open it. Only
/// addresses of the web are opened. `complain` receives one line for each file that was not opened.
/// Returns an exit status of sysexits.h: that of the first failure, 0 if there was none.
int openLinks(const std::vector<std::string>& files, const std::function<bool(const URL&)>& open,
              const std::function<void(const std::string& message)>& complain);

/// Why a link with this scheme (empty for none) is not taken, as one line for the user.
std::string refusal(const std::string& what, const std::string& scheme);

}  // namespace glintmark::link
