#pragma once

#include <poll.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string_view>
#include <vector>

#include "base/system/FileDescriptor.h"
#include "decoder/DecoderProtocol.h"
#include "decoder/DescriptorMessage.h"
#include "linux/images/ChildConnection.h"
#include "linux/images/DecodeQueue.h"
#include "linux/images/PixelMemory.h"
#include "linux/images/RestartPause.h"

namespace glintmark::platform {

class DecoderHelper;

struct DecodingOptions {
    /// For one image, and once more from when it gets room. The limit on processor time is lower,
    /// so this matters only if the machine is busy or a child stops.
    std::chrono::milliseconds imageTimeout = std::chrono::seconds(5);
    /// Processor time for all images of a link. A child's own limit is as long.
    std::chrono::seconds linkTime{3};
    /// For what the helper does itself: starting, forking and killing a child.
    std::chrono::milliseconds helperTimeout = std::chrono::seconds(7);
    /// How long the decoder keeps its thread and its process without an image.
    std::chrono::milliseconds idleTimeout = std::chrono::seconds(30);
    std::size_t maximumWaitingBytes = std::size_t{32} << 20U;  ///< Encoded images in the queue.
    /// Receives lines about children that died and formats that do not work. Any thread.
    std::function<void(std::string_view line)> logDebug = [](std::string_view) {};
};

/// The helper process, its children and the images that they decode. For one thread.
///
/// Each link has at most one child. The memory of all children together is limited: there
/// are at most six, or one with a large image and one other. A child keeps its place until
/// its link ends, unless another link needs the place while the child has nothing to do.
class DecodingLoop {
public:
    using Clock = std::chrono::steady_clock;

    struct Finished {
        ImageDecoder::Completion completion;
        std::shared_ptr<const Image> image;
    };

    /// `pause` outlives the loop and keeps the deaths of earlier ones.
    DecodingLoop(DecoderHelper& executable, const DecodingOptions& options, RestartPause& pause);
    ~DecodingLoop();  ///< Ends the helper.

    DecodingLoop(const DecodingLoop&) = delete;
    DecodingLoop& operator=(const DecodingLoop&) = delete;

    void add(DecodeTask task);
    void endLink(const std::shared_ptr<DecodeLink>& link);

    /// Does all work that needs no waiting. Returns the images that are done.
    std::vector<Finished> runOnce();

    /// Appends what to wait for, and returns until when. Has the next link's child prepared.
    Clock::time_point prepare(std::vector<pollfd>& watched);

    /// Takes note of which descriptors of the last `prepare` are readable.
    void check(std::span<const pollfd> watched);

    bool isIdle() const;  ///< No image waits or is under way.

private:
    using Children = std::vector<std::unique_ptr<DecoderChild>>;

    void finish(DecodeTask task, std::shared_ptr<const Image> image);
    void fail(DecodeQueue::Tasks tasks);
    void enqueue(DecodeTask task);
    void learnLarge(const DecodeTask& task);

    bool startHelper();
    void dropHelper();
    void helperDied();
    void order(decoder::HelperOrder::Kind kind, const DecoderChild& child,
               std::uint32_t seconds = 0) const;
    void orderSpareIfNeeded();
    bool needsSpare() const;
    void kill(DecoderChild& child);

    bool mustReadNotices();
    bool isLate() const;
    bool readNotice();
    void handle(const decoder::HelperNotice& notice, decoder::NoticeDescriptors descriptors);
    void handleEnd(DecoderChild& child, const decoder::HelperNotice& notice);
    void countCrash(const DecoderChild& child, int signal);
    void retryOrFail(DecodeTask task);

    bool readAnswer(DecoderChild& child);
    void handleRoomQuestion(DecoderChild& child);
    void handleAnswer(DecoderChild& child, const decoder::DecodeAnswer& answer);
    void killLate();

    void startImages();
    void startSmall();
    void startLarge();
    bool mayStartSmall(const DecodeLink& link) const;
    void begin(DecodeTask task, DecoderChild& child);
    DecoderChild* childFor(const std::shared_ptr<DecodeLink>& link);
    void makePlace(const DecodeLink* except);
    std::size_t smallPlaces() const;
    bool fewHaveMemory(const DecodeLink& link) const;
    bool isChildAwaited() const;

    DecoderChild* spare() const;
    DecoderChild* find(std::uint32_t id) const;
    std::size_t smallChildren(const DecodeLink* except) const;
    std::size_t running() const;

    DecoderHelper& executable_;
    const DecodingOptions& options_;
    RestartPause& pause_;
    FileDescriptor helper_;  // empty while there is no helper
    bool isHelperWatched_ = false;
    bool isHelperReadable_ = false;
    Clock::time_point spareDeadline_ = Clock::time_point::max();  // max if none was ordered
    int crashes_ = 0;                                             // of this helper's children
    DecodeQueue queue_;
    Children children_;
    DecoderChild* large_ = nullptr;  // the child that may decode a large image
    std::vector<Finished> finished_;
    std::shared_ptr<PixelMemory> pixels_ = std::make_shared<PixelMemory>();
};

}  // namespace glintmark::platform
