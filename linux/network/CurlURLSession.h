#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "linux/network/AddressRules.h"
#include "linux/queues/LoopSource.h"
#include "platform/URLSession.h"

namespace glintmark {
class DispatchQueue;
}  // namespace glintmark

namespace glintmark::platform {

class Log;

/// The settings of a session. Sizes are after decompression.
struct CurlURLSessionOptions {
    std::string version;  ///< Sent as "User-Agent: Glintmark/VERSION" by default.

    /// Trusted authorities: a PEM file, and a folder with the names of openssl-rehash(1). Either
    /// is enough. Both empty: the system's.
    std::string certificateFile{};
    std::string certificateDirectory{};

    std::size_t maximumTransfersPerHost = 6;
    std::size_t maximumTransfers = 256;

    /// While so many sockets are open, no second address is tried beside a silent first one.
    std::size_t maximumSocketsForSeconds = 160;

    std::chrono::nanoseconds transferTimeout = std::chrono::seconds(60);  ///< Without queueing.

    std::size_t maximumBodyBytes = std::size_t{32} << 20;
    std::size_t maximumArrivingBytes = std::size_t{64} << 20;   ///< All unfinished bodies together.
    std::size_t maximumDeliveredBytes = std::size_t{32} << 20;  ///< See CurlURLSession.

    /// How long an idle session keeps its connections and its thread.
    std::chrono::nanoseconds idleTimeout = std::chrono::seconds(10);

    Log* log = nullptr;  ///< For debug lines; null for none. Must outlive the session.

    /// Sorts the addresses of connections. Tests sort loopback addresses as others.
    std::function<std::optional<AddressSpace>(const sockaddr&)> addressSpaceOf =
        platform::addressSpaceOf;

    /// The clock for all timeouts.
    std::function<std::chrono::steady_clock::time_point()> now = std::chrono::steady_clock::now;
};

/// An HTTP client on libcurl's multi interface, with its own thread. The thread starts with the
/// first request. It ends, and the connections close, after the idle timeout, so that an idle
/// program pays nothing. Cookies and TLS tickets belong to the request's group.
///
/// Other work can take turns with the transfers on that thread. It keeps the thread, but not the
/// connections.
///
/// Memory is limited. A queued request holds only its texts. If all unfinished bodies together
/// exceed their maximum, the largest fails. While the bodies of completions that have not returned
/// exceed theirs, no further transfer starts.
class CurlURLSession final : public URLSession, public SourceLoop {
public:
    /// Completions with bodies over 64 KiB run on `completionQueue`, which must outlive the
    /// session, unless their request says that they are quick. All others run on the session's
    /// thread and must return quickly; what they start goes on there without another thread.
    CurlURLSession(DispatchQueue& completionQueue, CurlURLSessionOptions options);

    /// Aborts all requests without completing them and waits for running completions. No completion
    /// starts afterwards. Must not be called from a completion.
    ~CurlURLSession() override;

    CurlURLSession(const CurlURLSession&) = delete;
    CurlURLSession& operator=(const CurlURLSession&) = delete;

    std::shared_ptr<URLTaskGroup> makeTaskGroup(const std::string& host) override;
    void prepare() override;  ///< Starts the thread, which loads libcurl.
    void startDataTask(URLRequest request, Completion completion) override;

    /// A source that has not ended is dropped when the session is destroyed.
    bool attach(std::shared_ptr<LoopSource> source) override;
    void wake() override;

private:
    class Worker;

    std::shared_ptr<Worker> worker_;
};

}  // namespace glintmark::platform
