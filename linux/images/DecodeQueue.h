#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/ImageDecoder.h"

namespace glintmark::platform {

struct DecoderChild;

/// Large images need more memory than others. Which ones do is not known before a child has looked
/// at them.
enum class DecodeSize : std::uint8_t { small, large };

struct DecodeLink;

/// An image that is to be decoded.
struct DecodeTask {
    std::string data;
    std::shared_ptr<DecodeLink> link;
    ImageDecoder::Completion completion;
    bool wasRetried = false;
};

/// What is known of one link, whose images are decoded by one child.
struct DecodeLink {
    DecoderChild* child = nullptr;      ///< Null while it has none.
    std::uint64_t cpuMicroseconds = 0;  ///< Of its children that have ended.
    int lostChildren = 0;               ///< Those that an image of the link has ended.
    bool hasEnded = false;              ///< No more images will come.
    /// The length of the shortest file that turned out to be large.
    std::size_t largeFrom = std::numeric_limits<std::size_t>::max();
    std::array<std::vector<DecodeTask>, 2> waiting;  ///< By size.

    static constexpr int maximumLostChildren = 2;

    /// No image of the link is decoded any more.
    bool isRefused() const { return lostChildren >= maximumLostChildren; }
    bool hasNoChild() const { return child == nullptr; }
    bool hasWaiting() const { return !waiting[0].empty() || !waiting[1].empty(); }
};

/// The images that wait. Links take turns; of one link, the shortest file goes first. For one
/// thread.
class DecodeQueue {
public:
    using Tasks = std::vector<DecodeTask>;

    explicit DecodeQueue(std::size_t maximumBytes) : maximumBytes_(maximumBytes) {}
    ~DecodeQueue() { takeAll(); }  // an image that waits and its link own each other
    DecodeQueue(const DecodeQueue&) = delete;
    DecodeQueue& operator=(const DecodeQueue&) = delete;

    /// Returns the tasks that have to leave the queue, because the encoded images in it would be
    /// longer than the maximum: the longest of the link that has most. As long as any link has
    /// several images, no link loses its only one.
    Tasks add(DecodeTask task, DecodeSize size);

    /// The next image of the first link for which `canStart` is true. That link's turn is over.
    std::optional<DecodeTask> take(DecodeSize size,
                                   const std::function<bool(const DecodeLink&)>& canStart);

    /// The link whose turn is next among those for which `condition` is true. Null if there is
    /// none.
    const DecodeLink* find(DecodeSize size,
                           const std::function<bool(const DecodeLink&)>& condition) const;

    /// The link whose turn is next. There must be one.
    const DecodeLink& next(DecodeSize size) const { return *turns_[index(size)].front(); }

    /// All images, or those of one link.
    Tasks takeAll();
    Tasks takeAll(const DecodeLink& link);

    bool isEmpty(DecodeSize size) const { return turns_[index(size)].empty(); }
    bool isEmpty() const { return isEmpty(DecodeSize::small) && isEmpty(DecodeSize::large); }

private:
    using Links = std::deque<std::shared_ptr<DecodeLink>>;

    static std::size_t index(DecodeSize size) { return static_cast<std::size_t>(size); }
    DecodeTask removeFromGreediest();
    DecodeTask remove(DecodeLink& link, std::size_t size, std::size_t position);

    std::size_t maximumBytes_;
    std::size_t bytes_ = 0;
    std::array<Links, 2> turns_;  ///< By size: the links that have images, the next one first.
};

}  // namespace glintmark::platform
