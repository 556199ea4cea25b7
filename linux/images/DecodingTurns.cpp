// Whose turn it is: which link's image is decoded next, and which child makes place for it.

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <utility>

#include "linux/images/DecodingLoop.h"

namespace glintmark::platform {

namespace {

// A child may map 40 MiB for small images and 224 MiB for a large one. With the helper (12 MB) and
// the program (11 MB), either number of children stays under 300 MB.
constexpr std::size_t maximumSmallChildren = 6;
constexpr std::size_t maximumBesideLarge = 1;

// Decoding more at once takes longer on two processors.
constexpr std::size_t maximumRunning = 2;

}  // namespace

void DecodingLoop::startImages() {
    if (queue_.isEmpty() || !startHelper()) {
        return;
    }
    startLarge();
    startSmall();
}

/// Starts a large image as soon as at most one other child has memory.
void DecodingLoop::startLarge() {
    while (large_ == nullptr && !queue_.isEmpty(DecodeSize::large)) {
        auto task = queue_.take(DecodeSize::large, [this](const DecodeLink& link) {
            const bool hasChild = link.child != nullptr ? link.child->isIdle() : spare() != nullptr;
            return hasChild && fewHaveMemory(link);
        });
        if (!task) {
            const DecodeLink& next = queue_.next(DecodeSize::large);
            if (!fewHaveMemory(next)) {
                makePlace(&next);
            }
            break;
        }
        large_ = childFor(task->link);
        if (large_ != nullptr) {
            begin(std::move(*task), *large_);
        } else {
            finish(std::move(*task), nullptr);
        }
    }
}

void DecodingLoop::startSmall() {
    const DecodeLink* const next = queue_.find(DecodeSize::small, &DecodeLink::hasNoChild);
    if (next != nullptr && smallChildren(nullptr) >= smallPlaces()) {
        makePlace(next);
    }
    while (running() < maximumRunning) {
        auto task = queue_.take(DecodeSize::small,
                                [this](const DecodeLink& link) { return mayStartSmall(link); });
        if (!task) {
            break;
        }
        if (DecoderChild* const child = childFor(task->link)) {
            begin(std::move(*task), *child);
        } else {
            finish(std::move(*task), nullptr);
        }
    }
}

bool DecodingLoop::mayStartSmall(const DecodeLink& link) const {
    if (link.child != nullptr) {
        return link.child->isIdle();
    }
    return spare() != nullptr && smallChildren(nullptr) < smallPlaces();
}

std::size_t DecodingLoop::smallPlaces() const {
    const bool hasLarge = large_ != nullptr || !queue_.isEmpty(DecodeSize::large);
    return hasLarge ? maximumBesideLarge : maximumSmallChildren;
}

/// The child of `link`, or the spare child, which then becomes the link's. Null if the link has
/// used up its budget.
DecoderChild* DecodingLoop::childFor(const std::shared_ptr<DecodeLink>& link) {
    if (link->child != nullptr) {
        return link->child;
    }
    const std::chrono::microseconds used(link->cpuMicroseconds);
    const auto left = std::chrono::floor<std::chrono::seconds>(options_.linkTime - used);
    if (left <= left.zero()) {
        link->lostChildren = DecodeLink::maximumLostChildren;
        fail(queue_.takeAll(*link));
        return nullptr;
    }
    DecoderChild* const child = spare();
    child->link = link;
    link->child = child;
    if (used > used.zero()) {
        order(decoder::HelperOrder::Kind::limitTime, *child,
              static_cast<std::uint32_t>(left.count()));
    }
    return child;
}

void DecodingLoop::begin(DecodeTask task, DecoderChild& child) {
    child.task = std::move(task);
    child.hasAsked = false;
    child.lastUse = Clock::now();
    child.deadline = child.lastUse + options_.imageTimeout;
    if (!sendImage(child, child.task->data)) {
        finish(std::move(*child.task), nullptr);
        child.task.reset();
        kill(child);
    }
}

/// Ends a child that is idle, unless one is ending already: rather one whose link has no image
/// waiting, then the one that has been idle for the longest time. Never that of `except`.
void DecodingLoop::makePlace(const DecodeLink* except) {
    const auto rank = [](const DecoderChild& child) {
        return std::pair(!child.link->waiting[0].empty(), child.lastUse);
    };
    DecoderChild* best = nullptr;
    for (const auto& child : children_) {
        if (child->isEnding) {
            return;
        }
        const bool isCandidate = child->isIdle() && child->link.get() != except;
        if (isCandidate && (best == nullptr || rank(*child) < rank(*best))) {
            best = child.get();
        }
    }
    if (best != nullptr) {
        kill(*best);
    }
}

DecoderChild* DecodingLoop::spare() const {
    const auto found = std::ranges::find_if(
        children_, [](const auto& child) { return child->link == nullptr && !child->isEnding; });
    return found != children_.end() ? found->get() : nullptr;
}

DecoderChild* DecodingLoop::find(std::uint32_t id) const {
    const auto found =
        std::ranges::find(children_, id, [](const auto& child) { return child->id; });
    return found != children_.end() ? found->get() : nullptr;
}

/// True if so few other children hold memory that `link` may have a large image.
bool DecodingLoop::fewHaveMemory(const DecodeLink& link) const {
    return smallChildren(&link) <= maximumBesideLarge;
}

bool DecodingLoop::isChildAwaited() const {
    return queue_.find(DecodeSize::small, &DecodeLink::hasNoChild) != nullptr ||
           queue_.find(DecodeSize::large, &DecodeLink::hasNoChild) != nullptr;
}

/// The children, except that of the large image, that may hold memory of an image.
std::size_t DecodingLoop::smallChildren(const DecodeLink* except) const {
    return static_cast<std::size_t>(std::ranges::count_if(children_, [&](const auto& child) {
        return child->link != nullptr && child->link.get() != except && child.get() != large_;
    }));
}

std::size_t DecodingLoop::running() const {
    return static_cast<std::size_t>(std::ranges::count_if(
        children_, [](const auto& child) { return child->task.has_value(); }));
}

}  // namespace glintmark::platform
