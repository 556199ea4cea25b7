#pragma once

#include <curl/curl.h>

#include <memory>

#include "base/system/ReleaseWith.h"

namespace glintmark::platform {

using CurlEasyHandle = std::unique_ptr<CURL, ReleaseWith<curl_easy_cleanup>>;
using CurlMultiHandle = std::unique_ptr<CURLM, ReleaseWith<curl_multi_cleanup>>;
using CurlShareHandle = std::unique_ptr<CURLSH, ReleaseWith<curl_share_cleanup>>;
using CurlURLHandle = std::unique_ptr<CURLU, ReleaseWith<curl_url_cleanup>>;
using CurlListHandle = std::unique_ptr<curl_slist, ReleaseWith<curl_slist_free_all>>;
using CurlStringHandle = std::unique_ptr<char, ReleaseWith<curl_free>>;

}  // namespace glintmark::platform
