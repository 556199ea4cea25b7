#pragma once

#include <linux/filter.h>

#include <cstddef>
#include <optional>
#include <utility>
#include <vector>

namespace glintmark::decoder {

struct SandboxLimits {
    std::size_t addressSpace = 0;  ///< In bytes, with all that is mapped already.
    std::size_t fileSize = 0;      ///< Of any file that is written, in bytes.
    unsigned cpuSeconds = 0;
};

/// A state in which a process has given up, for good, all that decoding an image does not need: no
/// new files (also by Landlock where the kernel has it), no new privileges, little memory and time,
/// and an allow-list of system calls whose breach kills the process.
class Sandbox {
public:
    /// What can be made ready ahead of time. `answer` is the one descriptor that may be written to,
    /// `pixels` the one whose length may be changed. Absent when the system lacks seccomp.
    static std::optional<Sandbox> prepare(int answer, int pixels);

    /// Enters it. False when it is not wholly in force (a kernel without Landlock apart): then
    /// nothing untrusted may be touched. Only for a process with a single thread.
    bool enter(const SandboxLimits& limits) const;

private:
    explicit Sandbox(std::vector<sock_filter> filter) : filter_(std::move(filter)) {}

    std::vector<sock_filter> filter_;  // of system calls, ready for the kernel
};

}  // namespace glintmark::decoder
