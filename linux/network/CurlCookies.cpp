#include "linux/network/CurlCookies.h"

#include "linux/network/CurlOptions.h"

namespace glintmark::platform {

namespace {

constexpr std::size_t maximumCookieBytes = std::size_t{1} << 20;

}  // namespace

CurlCookies::CurlCookies() : share_(curl_share_init()) {
    curl_share_setopt(share_.get(), CURLSHOPT_SHARE, CURL_LOCK_DATA_COOKIE);
    curl_share_setopt(share_.get(), CURLSHOPT_SHARE, CURL_LOCK_DATA_SSL_SESSION);
}

void CurlCookies::attach(CURL* handle) {
    setCurlOption<CURLOPT_SHARE>(handle, share_.get());
    setCurlOption<CURLOPT_COOKIEFILE>(handle, "");  // no file: in memory
}

void CurlCookies::received(CURL* handle, std::size_t bytes) {
    bytes_ += bytes;
    if (bytes_ > maximumCookieBytes) {
        setCurlOption<CURLOPT_COOKIELIST>(handle, "ALL");
        bytes_ = 0;
    }
}

}  // namespace glintmark::platform
