#include "linux/network/CurlRedirect.h"

#include <charconv>
#include <utility>

#include "base/text/TextCase.h"
#include "linux/network/CurlHandles.h"

namespace glintmark::platform {

namespace {

std::optional<std::string> part(const CurlURLHandle& url, CURLUPart which, unsigned flags = 0) {
    char* text = nullptr;
    const CURLUcode outcome = curl_url_get(url.get(), which, &text, flags);
    // libcurl 7.88 also returns a text that it refuses as an international name.
    const CurlStringHandle owned(text);
    return outcome == CURLUE_OK ? std::optional<std::string>(owned.get()) : std::nullopt;
}

/// Sets the whole address in the way a request does. False if libcurl refuses it.
bool accepts(const CurlURLHandle& url, const std::string& address) {
    return curl_url_set(url.get(), CURLUPART_URL, address.c_str(), CURLU_PATH_AS_IS) == CURLUE_OK;
}

std::string origin(const CurlURLHandle& url) {
    return part(url, CURLUPART_SCHEME).value_or("") + "://" +
           lowercasedASCII(part(url, CURLUPART_HOST).value_or("")) + ":" +
           part(url, CURLUPART_PORT, CURLU_DEFAULT_PORT).value_or("");
}

/// Gives `to` the user and password of `from`, or none if it is null.
void setCredentials(const CurlURLHandle& to, const CurlURLHandle* from) {
    for (const CURLUPart which : {CURLUPART_USER, CURLUPART_PASSWORD}) {
        const auto value = from != nullptr ? part(*from, which) : std::nullopt;
        curl_url_set(to.get(), which, value ? value->c_str() : nullptr, 0);
    }
}

std::string credentials(const CurlURLHandle& url) {
    const auto user = part(url, CURLUPART_USER);
    const auto password = part(url, CURLUPART_PASSWORD);
    return user || password ? user.value_or("") + ":" + password.value_or("") : "";
}

/// `portFlags` are those for the port.
std::optional<AddressParts> partsOf(const CurlURLHandle& url, unsigned portFlags) {
    const auto host = part(url, CURLUPART_HOST, CURLU_PUNYCODE);
    if (!host) {
        return std::nullopt;
    }
    AddressParts parts{part(url, CURLUPART_SCHEME).value_or(""), lowercasedASCII(*host), 0};
    const std::string port = part(url, CURLUPART_PORT, portFlags).value_or("");
    std::from_chars(port.data(), port.data() + port.size(), parts.port);
    return parts;
}

}  // namespace

std::optional<AddressCredentials> addressCredentials(const std::string& url) {
    if (url.find('@') == std::string::npos) {
        return std::nullopt;
    }
    const CurlURLHandle parsed(curl_url());
    if (!accepts(parsed, url) || credentials(parsed).empty()) {
        return std::nullopt;
    }
    AddressCredentials found{origin(parsed), credentials(parsed), ""};
    setCredentials(parsed, nullptr);
    found.withoutThem = part(parsed, CURLUPART_URL).value_or("");
    return found;
}

std::optional<AddressParts> addressParts(const std::string& url) {
    const CurlURLHandle parsed(curl_url());
    return accepts(parsed, url) ? partsOf(parsed, CURLU_DEFAULT_PORT) : std::nullopt;
}

std::optional<AddressParts> proxyParts(const std::string& url) {
    constexpr std::uint16_t defaultPort = 1080;  // as in libcurl
    constexpr std::uint16_t defaultPortOfHTTPS = 443;
    const CurlURLHandle parsed(curl_url());
    if (curl_url_set(parsed.get(), CURLUPART_URL, url.c_str(),
                     CURLU_NON_SUPPORT_SCHEME | CURLU_GUESS_SCHEME) != CURLUE_OK) {
        return std::nullopt;
    }
    auto parts = partsOf(parsed, 0);
    if (parts && parts->port == 0) {
        parts->port = parts->scheme == "https" ? defaultPortOfHTTPS : defaultPort;
    }
    return parts;
}

std::optional<RedirectTarget> redirectTarget(const std::string& from, const std::string& location) {
    const CurlURLHandle base(curl_url());
    if (!accepts(base, from)) {
        return std::nullopt;
    }
    const CurlURLHandle target(curl_url_dup(base.get()));
    if (curl_url_set(target.get(), CURLUPART_URL, location.c_str(),
                     CURLU_URLENCODE | CURLU_ALLOW_SPACE) != CURLUE_OK) {
        return std::nullopt;
    }
    // A request does not send the fragment, and libcurl would refuse one with unescaped spaces.
    curl_url_set(target.get(), CURLUPART_FRAGMENT, nullptr, 0);
    const auto scheme = part(target, CURLUPART_SCHEME);
    const auto host = part(target, CURLUPART_HOST);
    if ((scheme != "http" && scheme != "https") || !host) {
        return std::nullopt;
    }
    const bool sameOrigin = origin(base) == origin(target);
    setCredentials(target, sameOrigin ? &base : nullptr);
    auto url = part(target, CURLUPART_URL);
    // libcurl does not escape spaces in a user's name, and refuses a request for an address with
    // them.
    if (!url || !accepts(base, *url)) {
        return std::nullopt;
    }
    return RedirectTarget{std::move(*url), lowercasedASCII(*host), sameOrigin};
}

}  // namespace glintmark::platform
