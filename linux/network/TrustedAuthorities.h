#pragma once

#include <curl/curl.h>

#include <optional>
#include <string>

namespace glintmark::platform {

struct CurlURLSessionOptions;

/// The certificates that a client trusts: a file with all, and a folder in which OpenSSL finds one
/// by its name (openssl-rehash(1)). A connection is verified with one of them, the folder first. If
/// that fails, a second connection is verified with the other.
///
/// libcurl's default is both at once. Then it reads the whole file for each connection, since it
/// keeps what it has read only without a folder. That takes 40 ms of processor time.
///
/// For one thread.
class TrustedAuthorities {
public:
    enum class Source { file, folder };

    /// Those of the options or, if they have none, those that libcurl was built with.
    explicit TrustedAuthorities(const CurlURLSessionOptions& options);

    /// Makes the transfer of `handle` trust one source: the one that is not `tried`, by default the
    /// preferred one. Returns it; absent if there is nothing to choose.
    std::optional<Source> trust(CURL* handle, std::optional<Source> tried);

    /// Call when a certificate was refused because of `source`. A file that all connections need is
    /// preferred from then on, as where the authority of a proxy is in the file alone.
    void refused(Source source) {
        preferred_ = source == Source::folder ? Source::file : preferred_;
    }

private:
    std::string file_;    ///< Empty if there is none.
    std::string folder_;  ///< Empty if there is none.
    Source preferred_ = Source::folder;
};

}  // namespace glintmark::platform
