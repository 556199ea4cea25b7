#include "tests/support/Mounting.h"

#include <sched.h>

#include <thread>

namespace glintmark::test {

bool mayMount() {
    bool may = false;
    std::thread([&may] { may = unshare(CLONE_NEWNS) == 0; }).join();
    return may;
}

}  // namespace glintmark::test
