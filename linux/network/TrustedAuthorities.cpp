#include "linux/network/TrustedAuthorities.h"

#include <unistd.h>

#include "linux/network/CurlHandles.h"
#include "linux/network/CurlOptions.h"
#include "linux/network/CurlURLSession.h"

namespace glintmark::platform {

namespace {

std::string builtIn(CURLINFO which) {
    const CurlEasyHandle handle(curl_easy_init());
    const char* path = nullptr;
    curl_easy_getinfo(handle.get(), which, &path);
    return path != nullptr && ::access(path, R_OK) == 0 ? path : "";
}

void trustOnly(CURL* handle, const std::string& file, const std::string& folder) {
    setCurlOption<CURLOPT_CAINFO>(handle, file.empty() ? nullptr : file.c_str());
    setCurlOption<CURLOPT_CAPATH>(handle, folder.empty() ? nullptr : folder.c_str());
}

}  // namespace

TrustedAuthorities::TrustedAuthorities(const CurlURLSessionOptions& options)
    : file_(options.certificateFile), folder_(options.certificateDirectory) {
    if (file_.empty() && folder_.empty()) {
        file_ = builtIn(CURLINFO_CAINFO);
        folder_ = builtIn(CURLINFO_CAPATH);
    }
}

std::optional<TrustedAuthorities::Source> TrustedAuthorities::trust(CURL* handle,
                                                                    std::optional<Source> tried) {
    if (file_.empty() && folder_.empty()) {
        return std::nullopt;  // libcurl's default, which may be a store of another kind
    }
    if (file_.empty() || folder_.empty()) {
        trustOnly(handle, file_, folder_);
        return std::nullopt;
    }
    const Source other = tried == Source::file ? Source::folder : Source::file;
    const Source chosen = tried ? other : preferred_;
    trustOnly(handle, chosen == Source::file ? file_ : "", chosen == Source::folder ? folder_ : "");
    return chosen;
}

}  // namespace glintmark::platform
