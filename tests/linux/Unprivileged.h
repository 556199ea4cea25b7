#pragma once

#include <sys/fsuid.h>
#include <unistd.h>

namespace glintmark::platform {

inline constexpr uid_t nobody = 65534;  ///< A user who owns no files.

/// While this exists, the thread has the file rights of a user who owns no files, even if root runs
/// the test. Threads that it starts inherit them. See credentials(7).
class Unprivileged {
public:
    Unprivileged() { ::setfsuid(nobody); }
    ~Unprivileged() { ::setfsuid(::geteuid()); }

    Unprivileged(const Unprivileged&) = delete;
    Unprivileged& operator=(const Unprivileged&) = delete;
};

}  // namespace glintmark::platform
