#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <string>

#include "platform/URLSession.h"

namespace glintmark {
class DispatchQueue;
}  // namespace glintmark

namespace glintmark::platform {

/// What a session is set to. Sizes are in bytes, after decompression.
struct CurlURLSessionOptions {
    std::string version;            ///< Sent as "User-Agent: Glintmark/VERSION" by default.
    std::string certificateFile{};  ///< PEM file of trusted authorities; empty: the system's store.

    std::size_t placesPerHost = 6;
    std::size_t placesInAll = 256;
    std::chrono::nanoseconds wholeTransfer = std::chrono::seconds(60);  ///< Its waiting left out.

    std::size_t bodyLimit = std::size_t{32} << 20;
    std::size_t arrivingLimit = std::size_t{64} << 20;   ///< All unfinished bodies together.
    std::size_t deliveredLimit = std::size_t{32} << 20;  ///< See CurlURLSession.

    /// How long connections and the thread are kept when nothing is asked for any more.
    std::chrono::nanoseconds idleTime = std::chrono::seconds(10);

    /// The clock behind all these times.
    std::function<std::chrono::steady_clock::time_point()> now = std::chrono::steady_clock::now;
};

/// The HTTP client on libcurl's multi interface, on one thread of its own. The thread starts with
/// the first request and ends, with the connections, when there has been none for a while, so that
/// an idle program pays nothing; cookies stay as long as the session.
///
/// Memory is bounded. A request that waits its turn is no more than its texts. When the bodies that
/// are arriving exceed their limit together, the largest fails. While the bodies of completions
/// that have not returned exceed theirs, no further transfer begins.
class CurlURLSession final : public URLSession {
public:
    /// Completions run on `completionQueue`, which must outlive the session. Those of requests that
    /// failed, and of answers other than successes (RFC 9110, section 15.3) of at most 16 KiB, run
    /// on the session's thread and must return soon.
    CurlURLSession(DispatchQueue& completionQueue, CurlURLSessionOptions options);

    /// Breaks off what runs, without completing it, and waits for completions that are running;
    /// none begins any more. Must not be called from a completion.
    ~CurlURLSession() override;

    CurlURLSession(const CurlURLSession&) = delete;
    CurlURLSession& operator=(const CurlURLSession&) = delete;

    void startDataTask(URLRequest request, Completion completion) override;

private:
    class Worker;

    std::shared_ptr<Worker> worker_;
};

}  // namespace glintmark::platform
