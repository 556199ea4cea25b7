#pragma once

#include <linux/filter.h>

#include <cstddef>
#include <optional>
#include <utility>
#include <vector>

namespace glintmark::decoder {

/// Soft limits and hard limits. Another process may raise a soft limit up to the hard one.
struct SandboxLimits {
    std::size_t addressSpace = 0;  ///< In bytes, including what is already mapped.
    std::size_t maximumAddressSpace = 0;
    unsigned cpuSeconds = 0;
    unsigned maximumCPUSeconds = 0;
};

/// Permanently takes from a process everything that decoding an image does not need. The process
/// gets no new files (Landlock enforces this too, if the kernel has it), no new privileges, little
/// memory and time, and an allow-list of system calls; any other call kills it with SIGSYS.
class Sandbox {
public:
    /// Compiles the list of system calls. Only `channel` may be read from and written to. A refused
    /// call is reported there, in a `DecodeAnswer`, before it kills the process. Absent if the
    /// system lacks seccomp.
    static std::optional<Sandbox> prepare(int channel);

    /// Restricts the calling process, which must have one thread. False if any restriction but
    /// Landlock failed: then the process must not read untrusted data.
    bool enter(const SandboxLimits& limits) const;

private:
    Sandbox(std::vector<sock_filter> filter, int channel)
        : filter_(std::move(filter)), channel_(channel) {}

    std::vector<sock_filter> filter_;  // the list of system calls in the kernel's form
    int channel_;
};

}  // namespace glintmark::decoder
