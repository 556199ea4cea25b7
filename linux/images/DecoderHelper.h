#pragma once

#include <chrono>
#include <memory>
#include <mutex>
#include <string>

#include "base/system/FileDescriptor.h"
#include "decoder/DecoderProtocol.h"
#include "linux/images/RestartPause.h"

namespace glintmark::platform {

/// The process that decodes images. It is started for the first request, and again for the next
/// request after it has ended. Any thread. The process ends when this object is destroyed or the
/// program ends, because its socket is then closed.
class DecoderHelper {
public:
    using Connection = std::shared_ptr<const FileDescriptor>;

    struct Request {
        decoder::DecodeSlot slot;
        int encoded;
        int pixels;
        int answer;
    };

    /// `path` names the executable. It is kept open, so that the file of this program's own build
    /// is started even after an upgrade has replaced it.
    explicit DecoderHelper(std::string path);

    /// Sends `request` and returns the connection to the process that received it. Null if none can
    /// be started now.
    Connection send(const Request& request);

    void worked();  ///< A request was answered.
    void lost(
        const Connection& connection);  ///< A request was not accepted, or not answered in time.

private:
    // The caller of these four holds the mutex.
    bool start();
    void drop();
    bool isConnected() const;
    bool transmit(const Request& request) const;

    const std::string path_;
    const FileDescriptor executable_;
    std::mutex mutex_;
    // The mutex guards the rest.
    Connection connection_;
    RestartPause pause_;
};

}  // namespace glintmark::platform
