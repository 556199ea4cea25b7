#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>

namespace glintmark::platform {

/// Limits how many images are decoded at a time: two small images, or one large image, or one small
/// image while the bitmap of a large one is in use. Callers are served in order. Any thread. Always
/// owned by a `shared_ptr`.
class DecodeSlots : public std::enable_shared_from_this<DecodeSlots> {
public:
    /// Releases the slot when the last copy is destroyed.
    using Hold = std::shared_ptr<const void>;

    struct LargeHold {
        Hold decoding;
        Hold bitmap;  ///< Keep it as long as the decoded pixels.
    };

    explicit DecodeSlots(std::chrono::milliseconds maximumWait = std::chrono::seconds(2))
        : maximumWait_(maximumWait) {}

    Hold takeSmall();

    /// Also waits until the bitmap of the previous large image is released, but at most
    /// `maximumWait`: a caller that keeps a bitmap delays others and does not block them.
    LargeHold takeLarge();

private:
    static constexpr int slots = 2;

    Hold hold(int DecodeSlots::*counter, int count);  // with the mutex held

    const std::chrono::milliseconds maximumWait_;
    std::mutex mutex_;
    std::condition_variable changed_;
    // The mutex guards the rest.
    std::uint64_t nextTicket_ = 0;
    std::uint64_t served_ = 0;
    int decoding_ = 0;
    int largeBitmaps_ = 0;
};

}  // namespace glintmark::platform
