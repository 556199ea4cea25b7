#pragma once

#include <linux/filter.h>

#include <cstddef>
#include <optional>
#include <utility>
#include <vector>

namespace glintmark::decoder {

struct SandboxLimits {
    std::size_t addressSpace = 0;  ///< In bytes, including what is already mapped.
    std::size_t fileSize = 0;      ///< Maximum length of a written file, in bytes.
    unsigned cpuSeconds = 0;
};

/// Permanently takes from a process everything that decoding an image does not need. The process
/// gets no new files (Landlock enforces this too, if the kernel has it), no new privileges, little
/// memory and time, and an allow-list of system calls; any other call kills it.
class Sandbox {
public:
    /// Compiles the list of system calls. Only `answer` may be written to and closed, only the
    /// length of `pixels` may change. Absent if the system lacks seccomp.
    static std::optional<Sandbox> prepare(int answer, int pixels);

    /// Restricts the calling process, which must have one thread. False if any restriction but
    /// Landlock failed: then the process must not read untrusted data.
    bool enter(const SandboxLimits& limits) const;

private:
    explicit Sandbox(std::vector<sock_filter> filter) : filter_(std::move(filter)) {}

    std::vector<sock_filter> filter_;  // the list of system calls in the kernel's form
};

}  // namespace glintmark::decoder
