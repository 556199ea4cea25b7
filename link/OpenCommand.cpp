#include "link/OpenCommand.h"

#include <sysexits.h>

#include "base/text/TextCase.h"
#include "link/LinkFile.h"
#include "link/Paths.h"
#include "link/Texts.h"

namespace glintmark::link {

namespace {

int openLink(const std::string& path, const std::function<bool(const URL&)>& open,
             const std::function<void(const std::string&)>& complain) {
    const LinkFileContents contents = readLinkFile(path);
    if (!contents.link) {
        complain(path + ": " + text(contents.wasRead ? "icon.noLink" : "icon.unreadable"));
        return contents.wasRead ? EX_DATAERR : EX_NOINPUT;
    }
    const WebAddress address = webAddress(*contents.link);
    if (!address.url) {
        complain(refusal(path, address.scheme));
        return EX_DATAERR;
    }
    if (!open(*address.url)) {
        complain(path + ": " + text("error.noBrowser"));
        return EX_UNAVAILABLE;
    }
    return EX_OK;
}

}  // namespace

int openLinks(const std::vector<std::string>& files, const std::function<bool(const URL&)>& open,
              const std::function<void(const std::string& message)>& complain) {
    int status = EX_OK;
    for (const auto& file : files) {
        const int outcome = openLink(absolutePath(file), open, complain);
        if (status == EX_OK) {
            status = outcome;
        }
    }
    return status;
}

std::string refusal(const std::string& what, const std::string& scheme) {
    const std::string lower = lowercasedASCII(scheme);
    const bool isOfWeb = lower == "http" || lower == "https";
    return what + ": " +
           (scheme.empty() || isOfWeb ? text("error.noAddress") : text("error.scheme", {scheme}));
}

}  // namespace glintmark::link
