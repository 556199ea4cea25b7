#pragma once

#include <functional>
#include <string>

#include "link/CommandLine.h"
#include "link/FetchRecorder.h"

namespace glintmark::link {

/// Fetches the icon of a link, or of the link in a file, and shows every request, every candidate
/// and the winner: on standard output, or as a page. `recorder` must be the session and the decoder
/// of the services in force. Waits for the fetch. Returns an exit status of sysexits.h:
/// EX_UNAVAILABLE without an icon.
int explainLink(const Command& command, const FetchRecorder& recorder,
                const std::function<void(const std::string& message)>& complain);

}  // namespace glintmark::link
