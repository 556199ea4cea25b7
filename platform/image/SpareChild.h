#pragma once

#include <sys/types.h>

#include <cstddef>
#include <memory>
#include <utility>

#include "platform/image/DecoderChild.h"

namespace glintmark::platform::image {

struct ForkedProcess {
    pid_t pid = -1;
    FileDescriptor descriptor;  ///< Readable when it has ended; see pidfd_open(2).
};

/// A child that is forked before there is an image for it, so that no image waits for that. It has
/// no descriptor but the one over which its task comes, and ends with its parent.
class SpareChild {
public:
    /// Null when the system has no more processes or descriptors.
    static std::unique_ptr<SpareChild> fork(const Sandbox& sandbox, std::size_t mappedBefore,
                                            DecodeFunction decode);

    ~SpareChild();  ///< Kills it, unless it was released.
    SpareChild(const SpareChild&) = delete;
    SpareChild& operator=(const SpareChild&) = delete;

    /// Gives it its task. False when it was killed before.
    bool begin(const DecodeTask& task) const;

    /// What to wait for; the child is spare no more.
    ForkedProcess release() { return std::exchange(process_, {}); }

private:
    SpareChild(ForkedProcess process, FileDescriptor channel)
        : process_(std::move(process)), channel_(std::move(channel)) {}

    ForkedProcess process_;
    FileDescriptor channel_;
};

}  // namespace glintmark::platform::image
