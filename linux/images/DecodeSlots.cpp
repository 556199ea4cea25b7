#include "linux/images/DecodeSlots.h"

namespace glintmark::platform {

DecodeSlots::Hold DecodeSlots::takeSmall() {
    std::unique_lock lock(mutex_);
    const std::uint64_t ticket = nextTicket_++;
    changed_.wait(lock, [&] {
        const int free = slots - decoding_ - (largeBitmaps_ > 0 ? 1 : 0);
        return served_ == ticket && free > 0;
    });
    ++served_;
    changed_.notify_all();
    return hold(&DecodeSlots::decoding_, 1);
}

DecodeSlots::LargeHold DecodeSlots::takeLarge() {
    std::unique_lock lock(mutex_);
    const std::uint64_t ticket = nextTicket_++;
    changed_.wait(lock, [&] { return served_ == ticket && decoding_ == 0; });
    changed_.wait_for(lock, maximumWait_, [&] { return largeBitmaps_ == 0; });
    ++served_;
    changed_.notify_all();
    return {hold(&DecodeSlots::decoding_, slots), hold(&DecodeSlots::largeBitmaps_, 1)};
}

DecodeSlots::Hold DecodeSlots::hold(int DecodeSlots::*counter, int count) {
    this->*counter += count;
    return {nullptr, [self = shared_from_this(), counter, count](const void*) {
                const std::lock_guard lock(self->mutex_);
                (*self).*counter -= count;
                self->changed_.notify_all();
            }};
}

}  // namespace glintmark::platform
