#pragma once

#include <algorithm>
#include <cstddef>
#include <vector>

namespace glintmark::platform {

/// Limits the memory of all growing bodies together. Beyond the limit the largest body is
/// cancelled, so that the server that sends far too much fails, and not the server that sends the
/// last byte. A `Holder` has `heldBytes()` and `cancel()`; a cancelled one holds no bytes and
/// accepts none. For one thread.
template <typename Holder>
class BodyBudget {
public:
    explicit BodyBudget(std::size_t maximum) : maximum_(maximum) {}

    void join(Holder& holder) { holders_.push_back(&holder); }
    void leave(Holder& holder) {
        used_ -= holder.heldBytes();
        std::erase(holders_, &holder);
    }

    /// Call when a holder has grown by `bytes`. The call may cancel that holder.
    void grown(std::size_t bytes) {
        used_ += bytes;
        while (used_ > maximum_) {
            Holder& largest = **std::max_element(
                holders_.begin(), holders_.end(),
                [](const Holder* a, const Holder* b) { return a->heldBytes() < b->heldBytes(); });
            used_ -= largest.heldBytes();
            largest.cancel();
        }
    }

    /// Call when a holder holds `bytes` less.
    void shrunk(std::size_t bytes) { used_ -= bytes; }

private:
    std::size_t maximum_;
    std::size_t used_ = 0;
    std::vector<Holder*> holders_;
};

}  // namespace glintmark::platform
