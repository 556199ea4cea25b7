#include "platform/linux/network/CurlRedirect.h"

#include <algorithm>
#include <utility>

#include "platform/linux/network/CurlHandles.h"
#include "platform/linux/network/LowerCase.h"

namespace glintmark::platform {

namespace {

std::optional<std::string> part(const CurlURLHandle& url, CURLUPart which, unsigned flags = 0) {
    char* text = nullptr;
    if (curl_url_get(url.get(), which, &text, flags) != CURLUE_OK) {
        return std::nullopt;
    }
    return std::string(CurlStringHandle(text).get());
}

std::string origin(const CurlURLHandle& url) {
    return part(url, CURLUPART_SCHEME).value_or("") + "://" +
           lowerCase(part(url, CURLUPART_HOST).value_or("")) + ":" +
           part(url, CURLUPART_PORT, CURLU_DEFAULT_PORT).value_or("");
}

void carryCredentials(const CurlURLHandle& from, const CurlURLHandle& to) {
    for (const CURLUPart which : {CURLUPART_USER, CURLUPART_PASSWORD}) {
        if (const auto value = part(from, which)) {
            curl_url_set(to.get(), which, value->c_str(), 0);
        }
    }
}

}  // namespace

std::optional<RedirectTarget> redirectTarget(const std::string& from, const std::string& location) {
    const CurlURLHandle base(curl_url());
    if (curl_url_set(base.get(), CURLUPART_URL, from.c_str(), CURLU_PATH_AS_IS) != CURLUE_OK) {
        return std::nullopt;
    }
    const CurlURLHandle target(curl_url_dup(base.get()));
    if (curl_url_set(target.get(), CURLUPART_URL, location.c_str(),
                     CURLU_URLENCODE | CURLU_ALLOW_SPACE) != CURLUE_OK) {
        return std::nullopt;
    }
    const auto scheme = part(target, CURLUPART_SCHEME);
    const auto host = part(target, CURLUPART_HOST);
    if ((scheme != "http" && scheme != "https") || !host) {
        return std::nullopt;
    }
    const bool sameOrigin = origin(base) == origin(target);
    if (sameOrigin && !part(target, CURLUPART_USER)) {
        carryCredentials(base, target);
    }
    auto url = part(target, CURLUPART_URL);
    if (!url) {
        return std::nullopt;
    }
    return RedirectTarget{std::move(*url), lowerCase(*host), sameOrigin};
}

}  // namespace glintmark::platform
