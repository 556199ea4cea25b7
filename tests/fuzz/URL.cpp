#include "base/url/URL.h"

#include <uriparser/Uri.h>

#include "base/url/URLComponents.h"
#include "tests/fuzz/FuzzTarget.h"

using namespace glintmark;

namespace {

/// True if an independent parser accepts `text`.
bool isURI(std::string_view text) {
    UriUriA uri;
    if (uriParseSingleUriExA(&uri, text.data(), text.data() + text.size(), nullptr) !=
        URI_SUCCESS) {
        return false;
    }
    uriFreeUriMembersA(&uri);
    return true;
}

}  // namespace

/// Rule: our grammar is that of an independent parser, except that brackets become escapes; a path
/// survives the round trip through a file URL.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const auto text = fuzz::text(data, size);
    const auto url = URL::parse(text);
    fuzz::require(url || text.empty() || !isURI(text));
    fuzz::require(!url || isURI(url->absoluteString()));
    fuzz::require(!url || url->absoluteString() == text || text.find_first_of("[]") != text.npos);

    const auto base = URL::parse("http://u@h:8/a/b/c?x#y").value();
    const auto resolved = URL::parse(text, base);
    fuzz::require(resolved.has_value() == url.has_value());
    fuzz::require(!resolved || resolved->scheme());
    fuzz::require(!url || !resolved || URL::parse("i.png", *url));

    const auto path = "/" + std::string(text);
    fuzz::require(path.ends_with('/') || URL::fileURL(path).path() == path);
    const auto built = URLComponents{"http", std::string(text), path}.url();
    fuzz::require(built && (text.empty() || built->host()));
    return 0;
}
