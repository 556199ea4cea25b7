#pragma once

#include <chrono>
#include <memory>
#include <mutex>
#include <string>

#include "base/system/FileDescriptor.h"
#include "decoder/DecoderProtocol.h"
#include "linux/images/RestartPause.h"

namespace glintmark::platform {

/// The process that decodes images: started when there is something to decode, let go when it says
/// goodbye, replaced when it dies. Any thread. It ends by itself when this object, or the program,
/// goes away, since its socket then ends.
class DecoderHelper {
public:
    using Connection = std::shared_ptr<const FileDescriptor>;

    struct Request {
        decoder::DecodeSlot slot;
        int encoded;
        int pixels;
        int answer;
    };

    /// `path` is that of the executable, which is held open: when an upgrade replaces it, the one
    /// of this program's own build is started all the same.
    explicit DecoderHelper(std::string path);

    /// Hands `request` over and says to which process. Null when none can be started now.
    Connection send(const Request& request);

    void worked();                            ///< A request was answered.
    void lost(const Connection& connection);  ///< A request was not even accepted, or not in time.

private:
    // These four need the mutex held.
    bool start();
    void drop();
    bool stillThere() const;
    bool transmit(const Request& request) const;

    const std::string path_;
    const FileDescriptor executable_;
    std::mutex mutex_;
    Connection connection_;  // guarded by the mutex, and so is the pause
    RestartPause pause_;
};

}  // namespace glintmark::platform
