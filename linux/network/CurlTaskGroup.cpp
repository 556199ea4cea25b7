#include "linux/network/CurlTaskGroup.h"

#include "linux/network/CurlOptions.h"

namespace glintmark::platform {

namespace {

constexpr std::size_t maximumCookieBytes = std::size_t{1} << 20;

/// The last two labels of a host. A cookie that it sets goes to no host with others: a cookie's
/// domain is the host or one above it, but no public suffix (RFC 6265, section 5.3).
std::string siteOf(const std::string& host) {
    const std::size_t last = host.rfind('.');
    const std::size_t dot =
        last == 0 || last == std::string::npos ? last : host.rfind('.', last - 1);
    return dot == std::string::npos ? host : host.substr(dot + 1);
}

}  // namespace

void CurlTaskGroup::attach(CURL* handle) {
    if (!share_) {
        share_.reset(curl_share_init());
        curl_share_setopt(share_.get(), CURLSHOPT_SHARE, CURL_LOCK_DATA_COOKIE);
        curl_share_setopt(share_.get(), CURLSHOPT_SHARE, CURL_LOCK_DATA_SSL_SESSION);
    }
    setCurlOption<CURLOPT_SHARE>(handle, share_.get());
    setCurlOption<CURLOPT_COOKIEFILE>(handle, "");  // no file: in memory
}

void CurlTaskGroup::receivedCookies(CURL* handle, const std::string& host, std::size_t bytes) {
    if (bytes > 0) {
        cookieSites_.insert(siteOf(host));
    }
    cookieBytes_ += bytes;
    if (cookieBytes_ > maximumCookieBytes) {
        setCurlOption<CURLOPT_COOKIELIST>(handle, "ALL");
        cookieBytes_ = 0;
    }
}

bool CurlTaskGroup::mayHaveCookiesFor(const std::string& host) const {
    return cookieSites_.contains(siteOf(host));
}

void CurlTaskGroup::keepCredentials(const std::string& url) {
    if (auto found = addressCredentials(url)) {
        own_ = std::move(found);
    }
}

std::string CurlTaskGroup::withoutForeignCredentials(const std::string& url) const {
    const auto found = addressCredentials(url);
    const bool isOwn = found && own_ && found->origin == own_->origin &&
                       found->userAndPassword == own_->userAndPassword;
    return found && !isOwn ? found->withoutThem : url;
}

}  // namespace glintmark::platform
