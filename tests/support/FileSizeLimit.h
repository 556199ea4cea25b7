#pragma once

#include <sys/resource.h>

#include <csignal>

namespace glintmark::test {

/// While it lives, no file of the process can grow beyond `bytes`, as on a full disk: a write is
/// cut short, the next one fails.
class FileSizeLimit {
public:
    explicit FileSizeLimit(rlim_t bytes) {
        ::getrlimit(RLIMIT_FSIZE, &before_);
        const rlimit limit{bytes, before_.rlim_max};
        ::setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~FileSizeLimit() {
        ::setrlimit(RLIMIT_FSIZE, &before_);
        static_cast<void>(std::signal(SIGXFSZ, handlerBefore_));
    }

    FileSizeLimit(const FileSizeLimit&) = delete;
    FileSizeLimit& operator=(const FileSizeLimit&) = delete;

private:
    void (*handlerBefore_)(int) = std::signal(SIGXFSZ, SIG_IGN);  // the write fails instead
    rlimit before_{};
};

}  // namespace glintmark::test
