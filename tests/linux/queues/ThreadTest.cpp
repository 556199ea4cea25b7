#include <gtest/gtest.h>

#include <csignal>

#include "linux/queues/Thread.h"

namespace glintmark::platform {
namespace {

TEST(ThreadTest, SignalsAreLeftToTheMainThread) {
    sigset_t blocked;
    sigemptyset(&blocked);
    Thread::start("test", std::size_t{256} << 10, [&] {
        pthread_sigmask(SIG_BLOCK, nullptr, &blocked);
    })->join();
    for (const int signal : {SIGTERM, SIGINT, SIGHUP, SIGPIPE}) {
        EXPECT_EQ(sigismember(&blocked, signal), 1) << signal;
    }
}

}  // namespace
}  // namespace glintmark::platform
