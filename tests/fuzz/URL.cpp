#include "platform/URL.h"

#include <uriparser/Uri.h>

#include "platform/URLComponents.h"
#include "tests/fuzz/FuzzTarget.h"

using namespace glintmark;
using platform::URL;

/// The grammar is that of an independent parser; paths come back from file URLs as they were.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const auto text = fuzz::text(data, size);
    UriUriA uri;
    const bool parses =
        uriParseSingleUriExA(&uri, text.data(), text.data() + text.size(), nullptr) == URI_SUCCESS;
    if (parses) {
        uriFreeUriMembersA(&uri);
    }
    const auto url = URL::parse(text);
    fuzz::require(url.has_value() == (parses && !text.empty()));

    const auto base = URL::parse("http://u@h:8/a/b/c?x#y").value();
    const auto resolved = URL::parse(text, base);
    fuzz::require(resolved.has_value() == url.has_value());
    fuzz::require(!resolved || resolved->scheme());
    fuzz::require(!url || !resolved || URL::parse("i.png", *url));

    const auto path = "/" + std::string(text);
    fuzz::require(path.ends_with('/') || URL::fileURL(path).path() == path);
    const auto built = platform::URLComponents{"http", std::string(text), path}.url();
    fuzz::require(built && (text.empty() || built->host()));
    return 0;
}
