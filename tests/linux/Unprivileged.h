#pragma once

#include <sys/fsuid.h>
#include <unistd.h>

namespace glintmark::platform {

/// While this lives, the thread has no more rights to files than a user who owns none of them,
/// even when root runs the test; threads that it starts inherit that. See credentials(7).
class Unprivileged {
public:
    Unprivileged() { ::setfsuid(nobody); }
    ~Unprivileged() { ::setfsuid(::geteuid()); }

    Unprivileged(const Unprivileged&) = delete;
    Unprivileged& operator=(const Unprivileged&) = delete;

private:
    static constexpr uid_t nobody = 65534;
};

}  // namespace glintmark::platform
