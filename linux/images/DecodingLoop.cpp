#include "linux/images/DecodingLoop.h"

#include <sys/wait.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <string>
#include <utility>

#include "base/graphics/Image.h"
#include "linux/images/DecoderHelper.h"

namespace glintmark::platform {

namespace {

using decoder::DecodeAnswer;
using decoder::HelperNotice;
using decoder::HelperOrder;

// Children of one helper that may crash. Then another helper is executed, which has other
// addresses.
constexpr int maximumCrashes = 3;

// A longer pause fails the images that wait.
constexpr std::chrono::seconds longestWaitForRestart{1};

/// True if the signal means that the child was taken over or has a bug. Being killed does not, nor
/// does the end of its processor time.
bool isCrash(int waitStatus) {
    return WIFSIGNALED(waitStatus) && WTERMSIG(waitStatus) != SIGKILL &&
           WTERMSIG(waitStatus) != SIGXCPU;
}

}  // namespace

DecodingLoop::DecodingLoop(DecoderHelper& executable, const DecodingOptions& options,
                           RestartPause& pause)
    : executable_(executable),
      options_(options),
      pause_(pause),
      queue_(options.maximumWaitingBytes) {}

DecodingLoop::~DecodingLoop() {
    helper_ = {};
    executable_.endStart();
}

void DecodingLoop::add(DecodeTask task) {
    if (task.data.empty() || task.link->isRefused()) {
        finish(std::move(task), nullptr);
        return;
    }
    enqueue(std::move(task));
}

void DecodingLoop::enqueue(DecodeTask task) {
    const bool isLarge = task.data.size() >= task.link->largeFrom;
    fail(queue_.add(std::move(task), isLarge ? DecodeSize::large : DecodeSize::small));
}

/// `task` has turned out to be large. The link's images that are at least as long are taken for
/// large, too: otherwise each of them would take a place from another link just to find that out.
void DecodingLoop::learnLarge(const DecodeTask& task) {
    task.link->largeFrom = std::min(task.link->largeFrom, task.data.size());
    for (DecodeTask& waiting : queue_.takeAll(*task.link)) {
        enqueue(std::move(waiting));
    }
}

void DecodingLoop::endLink(const std::shared_ptr<DecodeLink>& link) {
    link->hasEnded = true;
    if (link->child != nullptr && link->child->isIdle() && !link->hasWaiting()) {
        kill(*link->child);
    }
}

std::vector<DecodingLoop::Finished> DecodingLoop::runOnce() {
    // Answers first: a child may end right after its last one. What is not read now makes the
    // descriptor readable again.
    for (const auto& child : children_) {
        if (std::exchange(child->isReadable, false)) {
            readAnswer(*child);
        }
    }
    if (mustReadNotices()) {
        while (readNotice()) {
        }
    }
    killLate();
    startImages();
    return std::exchange(finished_, {});
}

DecodingLoop::Clock::time_point DecodingLoop::prepare(std::vector<pollfd>& watched) {
    orderSpareIfNeeded();
    isHelperWatched_ = !isIdle();
    watched.push_back({isHelperWatched_ ? helper_.get() : -1, POLLIN, 0});
    Clock::time_point latest = spareDeadline_;
    if (!helper_ && !queue_.isEmpty()) {
        latest = std::min(latest, pause_.end());
    }
    for (const auto& child : children_) {
        latest = std::min(latest, child->deadline);
        const bool mayAnswer = child->link != nullptr && !child->isEnding;
        watched.push_back({mayAnswer ? child->channel.get() : -1, POLLIN, 0});
    }
    return latest;
}

void DecodingLoop::check(std::span<const pollfd> watched) {
    isHelperReadable_ = watched[0].revents != 0;
    for (std::size_t i = 0; i < children_.size(); ++i) {
        children_[i]->isReadable = watched[i + 1].revents != 0;
    }
}

/// While there is no image, nobody waits for what the helper has to say. Then its notices are left
/// until there is one, or until they are late: each would wake the thread.
bool DecodingLoop::mustReadNotices() {
    const bool isReadable = std::exchange(isHelperReadable_, false);
    return helper_ && (isReadable || (!isHelperWatched_ && (!isIdle() || isLate())));
}

bool DecodingLoop::isLate() const {
    const auto now = Clock::now();
    return now >= spareDeadline_ || std::ranges::any_of(children_, [now](const auto& child) {
               return now >= child->deadline;
           });
}

bool DecodingLoop::isIdle() const { return queue_.isEmpty() && running() == 0; }

void DecodingLoop::finish(DecodeTask task, std::shared_ptr<const Image> image) {
    finished_.push_back({std::move(task.completion), std::move(image)});
}

void DecodingLoop::fail(DecodeQueue::Tasks tasks) {
    for (DecodeTask& task : tasks) {
        finish(std::move(task), nullptr);
    }
}

// ---- the helper

/// False if there is none and none can be started now. Then images wait, or fail if the pause is
/// long.
bool DecodingLoop::startHelper() {
    if (helper_) {
        return true;
    }
    const auto now = Clock::now();
    if (now < pause_.end()) {
        if (pause_.end() - now > longestWaitForRestart) {
            fail(queue_.takeAll());
        }
        return false;
    }
    helper_ = executable_.start();
    if (!helper_) {
        pause_.died(now);
        fail(queue_.takeAll());
        return false;
    }
    crashes_ = 0;
    spareDeadline_ = now + options_.helperTimeout;  // it forks a child without an order
    return true;
}

/// Ends the helper, and with it all children. Their images are decoded again.
void DecodingLoop::dropHelper() {
    helper_ = {};
    executable_.endStart();
    spareDeadline_ = Clock::time_point::max();
    large_ = nullptr;
    for (const auto& child : std::exchange(children_, {})) {
        if (child->link != nullptr) {
            child->link->child = nullptr;
        }
        if (child->task) {
            retryOrFail(std::move(*child->task));
        }
    }
}

void DecodingLoop::helperDied() {
    pause_.died(Clock::now());
    dropHelper();
}

void DecodingLoop::order(HelperOrder::Kind kind, const DecoderChild& child,
                         std::uint32_t seconds) const {
    decoder::sendMessage(helper_.get(), HelperOrder{kind, child.id, seconds});
}

/// Keeps one child in reserve. It is forked when nothing is being decoded, since a fork slows down
/// the children that run, or at once if an image waits for it.
void DecodingLoop::orderSpareIfNeeded() {
    if (helper_ && needsSpare()) {
        decoder::sendMessage(helper_.get(), HelperOrder{});
        spareDeadline_ = Clock::now() + options_.helperTimeout;
    }
}

bool DecodingLoop::needsSpare() const {
    const bool isOrdered = spareDeadline_ != Clock::time_point::max();
    return !isOrdered && spare() == nullptr && (running() == 0 || isChildAwaited());
}

/// Also orders the spare child if it is needed, with the same message.
void DecodingLoop::kill(DecoderChild& child) {
    if (child.isEnding) {
        return;
    }
    child.isEnding = true;
    child.exchange = {};  // so that its pages are freed by the child's end, not by this thread
    child.deadline = Clock::now() + options_.helperTimeout;
    if (needsSpare()) {
        order(HelperOrder::Kind::replace, child);
        spareDeadline_ = child.deadline;
    } else {
        order(HelperOrder::Kind::kill, child);
    }
}

/// False if there was none.
bool DecodingLoop::readNotice() {
    HelperNotice notice;
    decoder::NoticeDescriptors descriptors;
    const auto length = decoder::receiveMessage(
        helper_.get(), std::as_writable_bytes(std::span(&notice, 1)), descriptors);
    if (!length) {
        return false;
    }
    if (*length != sizeof notice) {
        helperDied();
        return false;
    }
    executable_.endStart();
    handle(notice, std::move(descriptors));
    return static_cast<bool>(helper_);
}

void DecodingLoop::handle(const HelperNotice& notice, decoder::NoticeDescriptors descriptors) {
    DecoderChild* const child = find(notice.child);
    switch (notice.kind) {
        case HelperNotice::Kind::ready:
            spareDeadline_ = Clock::time_point::max();
            children_.push_back(std::make_unique<DecoderChild>(
                DecoderChild{.id = notice.child,
                             .channel = std::move(descriptors[0]),
                             .exchange = std::move(descriptors[1])}));
            break;
        case HelperNotice::Kind::roomAdded:
            if (child != nullptr) {
                sendRoomReply(*child, true);
            }
            break;
        case HelperNotice::Kind::ended:
            if (child != nullptr) {
                handleEnd(*child, notice);
            }
            break;
        case HelperNotice::Kind::brokenFormat:
            options_.logDebug("The sandbox breaks the image decoder's sample " +
                              std::string(notice.text.data()));
            break;
    }
}

/// The child has ended and holds no memory any more.
void DecodingLoop::handleEnd(DecoderChild& ended, const HelperNotice& notice) {
    while (readAnswer(ended)) {  // what it sent last
    }
    const auto position = std::ranges::find(children_, &ended, &std::unique_ptr<DecoderChild>::get);
    const std::unique_ptr<DecoderChild> child = std::move(*position);
    children_.erase(position);
    if (large_ == child.get()) {
        large_ = nullptr;
    }
    if (child->link != nullptr) {
        child->link->child = nullptr;
        child->link->cpuMicroseconds += notice.cpuMicroseconds;
    }
    const bool wasKilledFromOutside = WIFSIGNALED(notice.waitStatus) &&
                                      WTERMSIG(notice.waitStatus) == SIGKILL && !child->isEnding;
    if (child->task && wasKilledFromOutside) {
        retryOrFail(std::move(*child->task));
    } else if (child->task) {
        ++child->link->lostChildren;
        finish(std::move(*child->task), nullptr);
        if (child->link->isRefused()) {
            fail(queue_.takeAll(*child->link));
        }
    }
    if (isCrash(notice.waitStatus)) {
        countCrash(*child, WTERMSIG(notice.waitStatus));
    }
}

void DecodingLoop::countCrash(const DecoderChild& child, int signal) {
    std::string line = "A child of the image decoder was ended by signal " + std::to_string(signal);
    if (child.refusedCall) {
        line += ", because of the system call " + std::to_string(*child.refusedCall);
    }
    options_.logDebug(line);
    if (++crashes_ >= maximumCrashes) {
        helperDied();
    }
}

void DecodingLoop::retryOrFail(DecodeTask task) {
    if (task.wasRetried) {
        finish(std::move(task), nullptr);
        return;
    }
    task.wasRetried = true;
    enqueue(std::move(task));
}

// ---- the children

/// False if there was none.
bool DecodingLoop::readAnswer(DecoderChild& child) {
    if (!child.channel) {
        return false;
    }
    std::array<std::byte, sizeof(DecodeAnswer)> bytes{};
    decoder::NoticeDescriptors none;
    const auto length = decoder::receiveMessage(child.channel.get(), bytes, none);
    if (!length) {
        return false;
    }
    if (*length == 0) {
        child.channel = {};  // the helper will report the child's end
        return false;
    }
    const auto answer =
        decoder::parseAnswer({reinterpret_cast<const std::uint8_t*>(bytes.data()), *length});
    if (answer && answer->status == DecodeAnswer::Status::refusedCall) {
        child.refusedCall = answer->call;
    } else if (!answer || !child.task || child.isEnding) {
        child.channel = {};
        kill(child);  // it did what no child does
    } else if (answer->status == DecodeAnswer::Status::asksForRoom) {
        handleRoomQuestion(child);
    } else {
        handleAnswer(child, *answer);
    }
    return true;
}

/// Room is refused while it is not free. Then the image waits until it is its turn.
void DecodingLoop::handleRoomQuestion(DecoderChild& child) {
    if (std::exchange(child.hasAsked, true)) {
        kill(child);
        return;
    }
    const bool isFree =
        large_ == nullptr && queue_.isEmpty(DecodeSize::large) && fewHaveMemory(*child.link);
    if (isFree) {
        large_ = &child;
    }
    learnLarge(*child.task);
    if (large_ == &child) {
        child.deadline = Clock::now() + options_.imageTimeout;
        order(HelperOrder::Kind::addRoom, child);
    } else {
        sendRoomReply(child, false);
    }
}

void DecodingLoop::handleAnswer(DecoderChild& child, const DecodeAnswer& answer) {
    auto image = receiveImage(child, answer, *pixels_);
    DecodeTask task = std::move(*child.task);
    child.task.reset();
    child.lastUse = Clock::now();
    child.deadline = Clock::time_point::max();
    if (answer.status == DecodeAnswer::Status::lacksRoom && &child != large_) {
        learnLarge(task);
        enqueue(std::move(task));
    } else {
        finish(std::move(task), std::move(image));
    }
    // Only the end of a child proves that a large image's memory is free.
    if (&child == large_ || (child.link->hasEnded && !child.link->hasWaiting())) {
        kill(child);
    }
}

void DecodingLoop::killLate() {
    const auto now = Clock::now();
    const auto isStuck = [&](const auto& child) {
        return child->isEnding && now >= child->deadline;
    };
    if (now >= spareDeadline_ || std::ranges::any_of(children_, isStuck)) {
        helperDied();
        fail(queue_.takeAll());
        return;
    }
    for (const auto& child : children_) {
        if (now >= child->deadline) {
            kill(*child);
        }
    }
}

}  // namespace glintmark::platform
