#pragma once

#include <curl/curl.h>

#include <memory>

namespace glintmark::platform {

/// Calls libcurl's release function on what a handle owns when the handle goes away.
template <auto release>
struct CurlRelease {
    template <typename T>
    void operator()(T* pointer) const {
        release(pointer);
    }
};

using CurlEasyHandle = std::unique_ptr<CURL, CurlRelease<curl_easy_cleanup>>;
using CurlMultiHandle = std::unique_ptr<CURLM, CurlRelease<curl_multi_cleanup>>;
using CurlShareHandle = std::unique_ptr<CURLSH, CurlRelease<curl_share_cleanup>>;
using CurlURLHandle = std::unique_ptr<CURLU, CurlRelease<curl_url_cleanup>>;
using CurlListHandle = std::unique_ptr<curl_slist, CurlRelease<curl_slist_free_all>>;
using CurlStringHandle = std::unique_ptr<char, CurlRelease<curl_free>>;

}  // namespace glintmark::platform
