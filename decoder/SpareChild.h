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
    FileDescriptor descriptor;  ///< Readable when it has ended; see pidfd_open(2).
};

/// A child that is forked before there is an image for it, so that no image waits for that, and
/// takes its request from `decoderSocket` itself, so that none is handed on. Until then it has no
/// other descriptor but that and its channel to the parent. It ends with its parent.
///
/// It waits for its parent's word before it takes a request, and after that says which slot that is
/// for. With the large slot it waits for the word once more before it begins.
class SpareChild {
public:
    /// Null when the system has no more processes or descriptors.
    static std::unique_ptr<SpareChild> fork(const Sandbox& sandbox, std::size_t mappedBefore,
                                            DecodeFunction decode);

    ~SpareChild();  ///< Kills it, unless it was released.
    SpareChild(const SpareChild&) = delete;
    SpareChild& operator=(const SpareChild&) = delete;

    /// Lets it take a request. Once is enough.
    void allow();

    int channel() const { return channel_.get(); }  ///< Readable when it has taken one or died.

    /// The slot of the request it has taken; absent when it died before.
    std::optional<DecodeSlot> takenSlot() const;

    /// What to wait for; the child is spare no more.
    ForkedProcess release() { return std::exchange(process_, {}); }

    /// Where the word goes for which a child with a large image waits.
    FileDescriptor releaseChannel() { return std::move(channel_); }

private:
    SpareChild(ForkedProcess process, FileDescriptor channel)
        : process_(std::move(process)), channel_(std::move(channel)) {}

    ForkedProcess process_;
    FileDescriptor channel_;
    bool allowed_ = false;
};

/// Gives the word over a channel.
void giveWord(const FileDescriptor& channel);

}  // namespace glintmark::decoder
