#include <algorithm>
#include <string>

#include "base/json/JSON.h"
#include "favicon/FaviconFetcher.h"
#include "tests/fuzz/FuzzTarget.h"

using namespace glintmark;

namespace {

/// True if the manifest has an icon with the address `url`.
bool names(const JSON& manifest, const URL& url, const URL& page) {
    const JSON* const icons = manifest.member("icons");
    fuzz::require(icons != nullptr && icons->array() != nullptr);
    return std::ranges::any_of(*icons->array(), [&](const JSON& icon) {
        const JSON* const src = icon.member("src");
        return src != nullptr && src->string() != nullptr &&
               FaviconFetcher::resolveURL(*src->string(), page) == url;
    });
}

}  // namespace

/// Rule: the chosen icon is an absolute address that the manifest names.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const auto page = URL::parse("http://u@h:81/dir/page?x#y").value();
    const auto text = fuzz::text(data, size);
    const auto icon = FaviconFetcher::chooseManifestIcon(text, page);
    if (icon) {
        const auto manifest = JSON::parse(text);
        fuzz::require(icon->url.scheme().has_value());
        fuzz::require(manifest && names(*manifest, icon->url, page));
    }
    return 0;
}
