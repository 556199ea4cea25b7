#include "tests/support/Mounting.h"

#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>

#include <thread>

namespace glintmark::test {

bool mayMount() {
    bool may = false;
    std::thread([&may] { may = unshare(CLONE_NEWNS) == 0; }).join();
    return may;
}

void withMount(const std::string& path, const char* type, const char* options,
               const std::function<void()>& body) {
    bool mounted = false;
    std::thread([&] {
        mounted = unshare(CLONE_NEWNS) == 0 &&
                  mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
                  mount("none", path.c_str(), type, 0, options) == 0;
        if (mounted) {
            body();
        }
    }).join();
    EXPECT_TRUE(mounted);
}

}  // namespace glintmark::test
