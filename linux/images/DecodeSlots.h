#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>

namespace glintmark::platform {

/// Bounds what decoding takes at a time: two small images, or a single large one, or a small one
/// beside the bitmap of a large one. Callers are served in the order in which they come. Any
/// thread; always held by a `shared_ptr`.
class DecodeSlots : public std::enable_shared_from_this<DecodeSlots> {
public:
    /// Given back when the last copy goes away.
    using Hold = std::shared_ptr<const void>;

    struct LargeHold {
        Hold decoding;
        Hold bitmap;  ///< To be kept as long as the pixels that were decoded.
    };

    explicit DecodeSlots(std::chrono::milliseconds patience = std::chrono::seconds(2))
        : patience_(patience) {}

    Hold takeSmall();

    /// Also waits until the bitmap of the large image before is gone, but not for ever: a caller
    /// that keeps one slows others down and does not stop them.
    LargeHold takeLarge();

private:
    static constexpr int slots = 2;

    Hold hold(int DecodeSlots::*counter, int count);  // with the mutex held

    const std::chrono::milliseconds patience_;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::uint64_t nextTicket_ = 0;  // the four from here on are guarded by the mutex
    std::uint64_t served_ = 0;
    int decoding_ = 0;
    int largeBitmaps_ = 0;
};

}  // namespace glintmark::platform
