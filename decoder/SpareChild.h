#pragma once

#include <sys/types.h>

#include <cstddef>
#include <memory>
#include <optional>
#include <utility>

#include "decoder/DecoderChild.h"

namespace glintmark::decoder {

struct ForkedProcess {
    pid_t pid = -1;
    FileDescriptor descriptor;  ///< Readable once the process has ended; see pidfd_open(2).
};

/// A child that is forked before its request arrives, so that no request waits for a fork. It
/// receives the request from `decoderSocket` itself, so that the parent need not forward it. Apart
/// from the standard streams, the child has only that socket and a channel to the parent. The child
/// ends if the parent ends.
///
/// The child waits for the parent's go-ahead before it receives a request. It then sends the
/// request's slot to the parent. For the large slot it waits for a second go-ahead before it
/// starts.
class SpareChild {
public:
    /// Null if the system has no more processes or descriptors.
    static std::unique_ptr<SpareChild> fork(const Sandbox& sandbox, std::size_t mappedBefore,
                                            DecodeFunction decode);

    ~SpareChild();  ///< Kills the child, unless it was released.
    SpareChild(const SpareChild&) = delete;
    SpareChild& operator=(const SpareChild&) = delete;

    /// Sends the first go-ahead. Further calls do nothing.
    void allow();

    /// Readable once the child has a request or died.
    int channel() const { return channel_.get(); }

    /// The slot of the child's request; absent if the child died before it had one.
    std::optional<DecodeSlot> takenSlot() const;

    /// The caller must reap the child from now on.
    ForkedProcess release() { return std::exchange(process_, {}); }

    /// The channel for the second go-ahead.
    FileDescriptor releaseChannel() { return std::move(channel_); }

private:
    SpareChild(ForkedProcess process, FileDescriptor channel)
        : process_(std::move(process)), channel_(std::move(channel)) {}

    ForkedProcess process_;
    FileDescriptor channel_;
    bool allowed_ = false;
};

/// Sends a go-ahead to the child at the other end of `channel`.
void sendGoAhead(const FileDescriptor& channel);

}  // namespace glintmark::decoder
