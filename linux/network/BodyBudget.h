#pragma once

#include <algorithm>
#include <cstddef>
#include <vector>

namespace glintmark::platform {

/// Bounds what several growing bodies hold together, at the cost of the largest: whoever sends far
/// more than the others loses, not who happens to send the last byte. A `Holder` has `heldBytes()`
/// and `giveUp()`, after which it holds none and takes none. For one thread.
template <typename Holder>
class BodyBudget {
public:
    explicit BodyBudget(std::size_t limit) : limit_(limit) {}

    void join(Holder& holder) { holders_.push_back(&holder); }
    void leave(Holder& holder) {
        used_ -= holder.heldBytes();
        std::erase(holders_, &holder);
    }

    /// A holder, which may be given up by this very call, has grown.
    void grown(std::size_t bytes) {
        used_ += bytes;
        while (used_ > limit_) {
            Holder& largest = **std::max_element(
                holders_.begin(), holders_.end(),
                [](const Holder* a, const Holder* b) { return a->heldBytes() < b->heldBytes(); });
            used_ -= largest.heldBytes();
            largest.giveUp();
        }
    }

private:
    std::size_t limit_;
    std::size_t used_ = 0;
    std::vector<Holder*> holders_;
};

}  // namespace glintmark::platform
